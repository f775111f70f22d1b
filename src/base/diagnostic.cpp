#include "base/diagnostic.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "base/no_cancellation.h"

namespace qiv::base {

void Diagnose(const char* format, ...) noexcept {
  const NoCancellation noCancellation;
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  errno = savedErrno;
}

}  // namespace qiv::base
