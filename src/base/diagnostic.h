// Diagnostic texts that go to standard error exactly as they stand.
#ifndef QIV_BASE_DIAGNOSTIC_H
#define QIV_BASE_DIAGNOSTIC_H

#include <qiv/types.h>

namespace qiv::base {

/** Formats a text to standard error, adding nothing. Leaves errno as it was. */
void Diagnose(const char* format, ...) noexcept QIV_PRINTF_FORMAT(1, 2);

}  // namespace qiv::base

#endif
