#include "sys/file_status.h"

#include <climits>
#include <cstddef>
#include <cstring>

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB");

static_assert(sizeof(QIV_FILE_STAT) == 64, "sixteen 32-bit words");
static_assert(offsetof(QIV_FILE_STAT, dwUserId) == 4, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, dwGroupId) == 8, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, dwPermissions) == 12, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, dwDevice) == 16, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, dwLinks) == 20, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, ullInode) == 24, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, llSize) == 32, "order of the words");
static_assert(offsetof(QIV_FILE_STAT, llAccessTime) == 40, "order of the times");
static_assert(offsetof(QIV_FILE_STAT, llChangeTime) == 48, "order of the times");
static_assert(offsetof(QIV_FILE_STAT, llModifyTime) == 56, "order of the times");

static_assert(sizeof(_FILE_FIND_INFO) == 328, "a name, six 32-bit and five 64-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, dwType) == 264, "the name stands in front");
static_assert(offsetof(_FILE_FIND_INFO, dwUserId) == 268, "order of the 32-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, dwGroupId) == 272, "order of the 32-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, dwPermissions) == 276, "order of the 32-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, dwDevice) == 280, "order of the 32-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, dwLinks) == 284, "order of the 32-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, ullInode) == 288, "order of the 64-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, llSize) == 296, "order of the 64-bit fields");
static_assert(offsetof(_FILE_FIND_INFO, llAccessTime) == 304, "order of the times");
static_assert(offsetof(_FILE_FIND_INFO, llChangeTime) == 312, "order of the times");
static_assert(offsetof(_FILE_FIND_INFO, llModifyTime) == 320, "order of the times");

namespace qiv {
namespace {

constexpr qiv_int64 kMicrosecondsPerSecond = 1000000;
constexpr qiv_int64 kNanosecondsPerMicrosecond = 1000;

struct PermissionBit {
  unsigned int bit;
  mode_t mode;
};

// What means the same in both directions.
constexpr PermissionBit kPermissionBits[] = {
    {QIV_PERM_OWNER_READ, S_IRUSR},     {QIV_PERM_OWNER_WRITE, S_IWUSR},
    {QIV_PERM_OWNER_EXECUTE, S_IXUSR},  {QIV_PERM_GROUP_READ, S_IRGRP},
    {QIV_PERM_GROUP_WRITE, S_IWGRP},    {QIV_PERM_GROUP_EXECUTE, S_IXGRP},
    {QIV_PERM_OTHERS_READ, S_IROTH},    {QIV_PERM_OTHERS_WRITE, S_IWOTH},
    {QIV_PERM_OTHERS_EXECUTE, S_IXOTH}, {QIV_PERM_SET_USER_ID, S_ISUID},
};

// What both records hold in the same form.
template <class Record>
void PutCommonFields(const struct stat& status, Record* out) {
  out->dwType = FileType(status.st_mode);
  out->dwUserId = status.st_uid;
  out->dwGroupId = status.st_gid;
  out->dwPermissions = ReportedPermissions(status.st_mode);
  out->dwDevice = static_cast<QIV_UINT32>(status.st_rdev);
  out->dwLinks = static_cast<QIV_UINT32>(status.st_nlink);
  out->llSize = status.st_size;
}

}  // namespace

unsigned int FileType(mode_t mode) noexcept {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return QIV_FILE_TYPE_REGULAR;
    case S_IFDIR:
      return QIV_FILE_TYPE_DIRECTORY;
    case S_IFCHR:
      return QIV_FILE_TYPE_CHARACTER_DEVICE;
    case S_IFBLK:
      return QIV_FILE_TYPE_BLOCK_DEVICE;
    case S_IFIFO:
      return QIV_FILE_TYPE_PIPE;
    case S_IFLNK:
      return QIV_FILE_TYPE_SYMBOLIC_LINK;
    case S_IFSOCK:
      return QIV_FILE_TYPE_SOCKET;
    default:
      return QIV_FILE_TYPE_OTHER;
  }
}

unsigned int ReportedPermissions(mode_t mode) noexcept {
  unsigned int permissions = (mode & S_ISGID) != 0 ? QIV_PERM_SET_GROUP_ID : 0;
  for (const PermissionBit& row : kPermissionBits) {
    if ((mode & row.mode) != 0) permissions |= row.bit;
  }
  return permissions;
}

mode_t CreationMode(unsigned int permissions) noexcept {
  mode_t mode = S_IRUSR;
  if ((permissions & QIV_PERM_CREATE_READ_ONLY) != 0) return mode;
  for (const PermissionBit& row : kPermissionBits) {
    if ((permissions & row.bit) != 0) mode |= row.mode;
  }
  // Kept: these two are not what is reported under the same bits.
  if ((permissions & QIV_PERM_SET_GROUP_ID) != 0) mode |= S_IXUSR;
  if ((permissions & QIV_PERM_CREATE_WRITABLE) != 0) mode |= S_IWUSR;
  return mode;
}

QIV_TIME_T Microseconds(const timespec& time) noexcept {
  constexpr qiv_int64 kMostSeconds = LLONG_MAX / kMicrosecondsPerSecond;
  const qiv_int64 seconds = time.tv_sec;
  if (seconds >= kMostSeconds) return LLONG_MAX;
  if (seconds <= -kMostSeconds) return LLONG_MIN;
  return seconds * kMicrosecondsPerSecond + time.tv_nsec / kNanosecondsPerMicrosecond;
}

void PutStatus(const struct stat& status, QIV_FILE_STAT* out) noexcept {
  QIV_FILE_STAT record = {};
  PutCommonFields(status, &record);
  record.ullInode = status.st_ino;
  record.llAccessTime = status.st_atim.tv_sec;
  record.llChangeTime = status.st_ctim.tv_sec;
  record.llModifyTime = status.st_mtim.tv_sec;
  // The caller's words may have the alignment of 32 bits.
  std::memcpy(static_cast<void*>(out), &record, sizeof record);
}

void PutStatus(const struct stat& status, _FILE_FIND_INFO* out) noexcept {
  PutCommonFields(status, out);
  // Kept: the high half is 0.
  out->ullInode = static_cast<QIV_UINT32>(status.st_ino);
  out->llAccessTime = Microseconds(status.st_atim);
  out->llChangeTime = Microseconds(status.st_ctim);
  out->llModifyTime = Microseconds(status.st_mtim);
}

}  // namespace qiv
