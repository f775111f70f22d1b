#include "base/contract.h"

#undef NDEBUG  // without it the platform declares its function, whatever the kind of the build
#include <cassert>

namespace qiv::base {

#if defined(__UCLIBC__)

void ContractFailed(const char* assertion, const ContractPlace& place) noexcept {
  __assert(assertion, place.file, place.line, place.function);
}

#else

void ContractFailed(const char* assertion, const ContractPlace& place) noexcept {
  __assert_fail(assertion, place.file, static_cast<unsigned int>(place.line), place.function);
}

#endif

}  // namespace qiv::base
