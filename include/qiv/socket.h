#ifndef QIV_SOCKET_H
#define QIV_SOCKET_H
#include <qiv/types.h>
QIV_EXTERN_C_BEGIN
QIV_API int QIV_InitNetwork_Inter(void) QIV_NOEXCEPT;
QIV_API int QIV_FiniNetwork_Inter(void) QIV_NOEXCEPT;
QIV_EXTERN_C_END
#endif
