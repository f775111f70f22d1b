// Directories: a stream of the platform and the path that its entries' status is asked by.
#include <dirent.h>
#include <qiv/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "base/no_cancellation.h"
#include "sys/file_status.h"

namespace qiv {
namespace {

struct StreamCloser {
  void operator()(DIR* stream) const { closedir(stream); }
};
using StreamPointer = std::unique_ptr<DIR, StreamCloser>;

std::string WithSlash(std::string path) {
  if (path.empty() || path.back() != '/') path += '/';
  return path;
}

class Directory {
 public:
  Directory(StreamPointer stream, const char* path)
      : m_stream(std::move(stream)), m_prefix(WithSlash(path)) {}

  /** False, and nothing stored, at the end and on failure. */
  bool Next(_FILE_FIND_INFO* info) noexcept {
    const dirent* const entry = readdir(m_stream.get());
    if (entry == nullptr) return false;
    _FILE_FIND_INFO record = {};
    std::memcpy(record.szName, entry->d_name, strnlen(entry->d_name, sizeof record.szName - 1));
    struct stat status = {};
    if (ReadStatus(entry->d_name, &status)) PutStatus(status, &record);
    // The caller's record may have the alignment of 32 bits.
    std::memcpy(static_cast<void*>(info), &record, sizeof record);
    return true;
  }

 private:
  bool ReadStatus(const char* name, struct stat* status) const noexcept {
    char path[PATH_MAX];
    const std::size_t nameBytes = std::strlen(name) + 1;
    if (m_prefix.size() + nameBytes > sizeof path) return false;
    std::memcpy(path, m_prefix.data(), m_prefix.size());
    std::memcpy(path + m_prefix.size(), name, nameBytes);
    return stat(path, status) == 0;
  }

  StreamPointer m_stream;
  std::string m_prefix;
};

Directory* Open(const char* path) noexcept {
  StreamPointer stream(opendir(path));
  if (!stream) return nullptr;
  try {
    return std::make_unique<Directory>(std::move(stream), path).release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace
}  // namespace qiv

extern "C" {

QIV_HANDLE QIV_OpenDir(const char* path) noexcept {
  if (path == nullptr) return nullptr;
  const qiv::base::NoCancellation noCancellation;
  return qiv::Open(path);
}

int QIV_FindFileInDir(QIV_HANDLE directory, _FILE_FIND_INFO* info) noexcept {
  if (directory == nullptr || info == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  return static_cast<qiv::Directory*>(directory)->Next(info) ? QIV_OK : QIV_ERROR;
}

int QIV_CloseDir(QIV_HANDLE directory) noexcept {
  if (directory == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  delete static_cast<qiv::Directory*>(directory);
  return QIV_OK;
}

}  // extern "C"
