#include "sys/exe_path.h"

#include <qiv/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "base/no_cancellation.h"

namespace qiv {
namespace {

constexpr const char* kProgramLink = "/proc/self/exe";
constexpr std::size_t kMostBytes = 260;

}  // namespace

int CopyLinkText(const char* link, char* buffer, int size) noexcept {
  if (buffer == nullptr) {
    errno = EINVAL;
    return QIV_ERROR;
  }
  const base::NoCancellation noCancellation;
  char text[kMostBytes] = {};
  // Kept: a longer text is cut without a sign.
  const ssize_t length = readlink(link, text, sizeof text);
  if (length == -1 || length > size) {
    errno = ENOMEM;
    return QIV_ERROR;
  }
  // Kept: no NUL behind it.
  std::memcpy(buffer, text, static_cast<std::size_t>(length));
  return QIV_OK;
}

}  // namespace qiv

extern "C" {

int QIV_GetCurExePath(char* buffer, int size) noexcept {
  return qiv::CopyLinkText(qiv::kProgramLink, buffer, size);
}

}  // extern "C"
