// Debug output: diagnostic messages on standard error.
#include <qiv/debug.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/no_cancellation.h"

namespace {

constexpr std::size_t kBufferBytes = 5120;
constexpr std::size_t kFormatBytes = 5118;
constexpr char kFormatError[] = "QIV_OutputDebug error,input parameter is too long!!!";

// Where the LF goes. Kept: that of a text of 5118 characters stands behind the NUL that cuts the
// text, so it is not written. Longer texts get theirs at the cut.
std::size_t LineEnd(int formatted) {
  const auto length = static_cast<std::size_t>(formatted);
  return length <= kBufferBytes - 2 ? length : kFormatBytes - 1;
}

// Failure paths report what errno says, and many of them may not unwind.
int WriteToStandardError(const char* text) {
  const int savedErrno = errno;
  const qiv::base::NoCancellation noCancellation;
  const int result = std::fputs(text, stderr);
  errno = savedErrno;
  return result;
}

}  // namespace

extern "C" {

int QIV_OutputDebug(const char* format, ...) noexcept {
  const int savedErrno = errno;
  char buffer[kBufferBytes] = {};
  int formatted = -1;
  if (format != nullptr) {
    va_list arguments;
    va_start(arguments, format);
    formatted = std::vsnprintf(buffer, kFormatBytes, format, arguments);
    va_end(arguments);
  }
  if (formatted < 0) {
    std::memcpy(buffer, kFormatError, sizeof kFormatError);
  } else {
    const std::size_t end = LineEnd(formatted);
    buffer[end] = '\n';
    buffer[end + 1] = '\0';
  }
  errno = savedErrno;
  return WriteToStandardError(buffer);
}

int QIV_OutputDebugString(const char* text) noexcept {
  return text == nullptr ? EOF : WriteToStandardError(text);
}

void QIV_Debug(...) noexcept {}

void qiv2_log(...) noexcept {}

}  // extern "C"
