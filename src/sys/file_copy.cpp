// Copies of files. The content goes through a buffer and not through mappings of the two files: a
// source that shrinks or a target without space fails a call, but would kill the process through a
// mapping.
#include "sys/file_copy.h"

#include <fcntl.h>
#include <qiv/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "base/descriptor.h"
#include "base/no_cancellation.h"

namespace qiv {
namespace {

using base::Descriptor;

constexpr mode_t kModeBits = 07777;
// Opening never waits, for a pipe's other end or a terminal's line, and takes no terminal over.
constexpr int kHarmlessOpen = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

template <class Call>
ssize_t Uninterrupted(Call call) {
  ssize_t result = 0;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

bool WriteAll(int target, const char* data, std::size_t length) {
  while (length > 0) {
    const ssize_t written = Uninterrupted([&] { return write(target, data, length); });
    if (written <= 0) return false;
    data += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

bool IsRegularFile(const char* path) {
  struct stat status = {};
  return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

bool IsRegularFile(const Descriptor& file, struct stat* status) {
  return file.IsOpen() && fstat(file.Get(), status) == 0 && S_ISREG(status->st_mode);
}

/** Empties a target that may be written; false when it may not. */
bool Prepare(const Descriptor& target, const Descriptor& source) {
  struct stat to = {};
  struct stat from = {};
  if (fstat(target.Get(), &to) != 0 || fstat(source.Get(), &from) != 0) return false;
  if (to.st_dev == from.st_dev && to.st_ino == from.st_ino) return false;
  if (S_ISBLK(to.st_mode)) return true;
  return S_ISREG(to.st_mode) && ftruncate(target.Get(), 0) == 0;
}

/** Gives the target its size and leaves its position at the start. */
bool Extend(const Descriptor& target, off_t size) {
  // Kept: there is no byte in front of the end of an empty file, so it cannot be copied.
  if (lseek(target.Get(), size - 1, SEEK_SET) == -1) return false;
  return WriteAll(target.Get(), "", 1) && lseek(target.Get(), 0, SEEK_SET) == 0;
}

bool Copy(const char* sourcePath, const char* targetPath, bool failIfExists) {
  // Asked before it is opened, because opening alone makes some devices act, and afterwards,
  // because the name may lead to another file by then.
  if (!IsRegularFile(sourcePath)) return false;
  const Descriptor source(open(sourcePath, O_RDONLY | kHarmlessOpen));
  struct stat status = {};
  if (!IsRegularFile(source, &status)) return false;
  // Before the target is touched: short memory shall not destroy it.
  const std::unique_ptr<char[]> block(new (std::nothrow) char[kCopyBlockBytes]);
  if (!block) return false;
  // Not emptied by opening it: it may be the source under another name.
  const int flags = O_RDWR | O_CREAT | kHarmlessOpen | (failIfExists ? O_EXCL : 0);
  Descriptor target(open(targetPath, flags, status.st_mode & kModeBits));
  if (!target.IsOpen() || !Prepare(target, source)) return false;
  return Extend(target, status.st_size) &&
         CopyBytes(source.Get(), target.Get(), status.st_size, block.get()) && target.Close();
}

}  // namespace

bool CopyBytes(int source, int target, off_t count, char* block) noexcept {
  while (count > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(count, kCopyBlockBytes));
    const ssize_t got = Uninterrupted([&] { return read(source, block, wanted); });
    if (got <= 0) return false;
    if (!WriteAll(target, block, static_cast<std::size_t>(got))) return false;
    count -= got;
  }
  return true;
}

}  // namespace qiv

extern "C" {

int QIV_CopyFile(const char* source, const char* target, int failIfExists) noexcept {
  if (source == nullptr || target == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  return qiv::Copy(source, target, failIfExists != 0) ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
