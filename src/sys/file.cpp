// Files: descriptors of the platform behind the library's own flags and records.
#include <fcntl.h>
#include <qiv/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "sys/file_status.h"

namespace {

constexpr int kNoFile = -1;
constexpr mode_t kDirectoryMode = 0766;

/** False, and nothing stored, when neither reading nor writing is asked for. */
bool PutAccessMode(unsigned int flags, int* platformFlags) {
  switch (flags & (QIV_OPEN_READ | QIV_OPEN_WRITE)) {
    case QIV_OPEN_READ:
      *platformFlags = O_RDONLY;
      return true;
    case QIV_OPEN_WRITE:
      *platformFlags = O_WRONLY;
      return true;
    case QIV_OPEN_READ | QIV_OPEN_WRITE:
      *platformFlags = O_RDWR;
      return true;
    default:
      return false;
  }
}

int CreationFlags(unsigned int flags) {
  int platformFlags = 0;
  if ((flags & QIV_OPEN_CREATE) != 0) {
    platformFlags |= O_CREAT;
    if ((flags & QIV_OPEN_EXCLUSIVE) != 0) platformFlags |= O_EXCL;
  }
  if ((flags & QIV_OPEN_APPEND) != 0) platformFlags |= O_APPEND;
  if ((flags & QIV_OPEN_TRUNCATE) != 0) platformFlags |= O_TRUNC;
  if ((flags & QIV_OPEN_DIRECT) != 0) platformFlags |= O_DIRECT;
  return platformFlags;
}

// A negative length that became unsigned: 32-bit platforms refuse it, 64-bit ones would overrun the
// buffer.
bool IsLengthTooLarge(unsigned int length) {
  if (length <= INT_MAX) return false;
  errno = EINVAL;
  return true;
}

/** Stores what read() or write() returned, which is never above INT_MAX, and turns it into a
 * result. */
int Finish(ssize_t transferred, int* count) {
  if (count != nullptr) *count = static_cast<int>(transferred);
  return transferred == -1 ? QIV_ERROR : QIV_OK;
}

}  // namespace

extern "C" {

int QIV_OpenFile(const char* path, unsigned int flags, unsigned int permissions) {
  int platformFlags = 0;
  if (path == nullptr || !PutAccessMode(flags, &platformFlags)) return kNoFile;
  return open(path, platformFlags | CreationFlags(flags), qiv::CreationMode(permissions));
}

void QIV_CloseFile(int file) {
  if (file != kNoFile) close(file);
}

int QIV_ReadFile(int file, void* buffer, unsigned int length, int* count) {
  if (file == kNoFile || buffer == nullptr || IsLengthTooLarge(length)) return Finish(-1, count);
  return Finish(read(file, buffer, length), count);
}

int QIV_WriteFile(int file, const void* buffer, unsigned int length, int* count) {
  if (file == kNoFile || buffer == nullptr || IsLengthTooLarge(length)) return Finish(-1, count);
  return Finish(write(file, buffer, length), count);
}

int QIV_FileSeek(int file, qiv_int64 offset, int origin, qiv_int64* position) {
  if (file == kNoFile) return QIV_ERROR;
  const off_t reached = lseek(file, offset, origin);
  if (reached == -1) return QIV_ERROR;
  if (position != nullptr) *position = reached;
  return QIV_OK;
}

// Kept: tells nothing.
int QIV_FileIsEOF(int /*file*/) noexcept { return 1; }

int QIV_FileStat(int file, void* status) {
  if (file == kNoFile || status == nullptr) return QIV_ERROR;
  struct stat found = {};
  if (fstat(file, &found) != 0) return QIV_ERROR;
  qiv::PutStatus(found, static_cast<QIV_FILE_STAT*>(status));
  return QIV_OK;
}

void QIV_FileFlush(int file) {
  if (file != kNoFile) fsync(file);
}

int QIV_DeleteFile(const char* path) { return path == nullptr ? QIV_ERROR : std::remove(path); }

int QIV_RenameFile(const char* oldPath, const char* newPath) {
  if (oldPath == nullptr || newPath == nullptr) return QIV_ERROR;
  return std::rename(oldPath, newPath);
}

int QIV_AccessFile(const char* path, int mode) {
  return path == nullptr ? QIV_ERROR : access(path, mode);
}

int QIV_MakeDir(const char* path) {
  return path == nullptr ? QIV_ERROR : mkdir(path, kDirectoryMode);
}

int QIV_RemoveDir(const char* path) { return path == nullptr ? QIV_ERROR : std::remove(path); }

}  // extern "C"
