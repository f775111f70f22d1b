// Steps of the adapter functions that their tests reach too.
#ifndef QIV_NET_ADAPTER_H
#define QIV_NET_ADAPTER_H

#include <qiv/adapter.h>

namespace qiv::net {

/** Which families the adapters of a list have. Leaves `family` alone when none has an address. */
void TellFamily(const QIV_ADAPTER_INFO* adapter, int& family) noexcept;

}  // namespace qiv::net

#endif
