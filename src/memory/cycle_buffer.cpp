// The byte ring: a header and the ring's bytes in one heap block.
//
// nWritePos, nReadPos and nDataLen are guarded by the buffer's mutex, which is not held while the
// callback runs: the stored bytes that it looks at are no writer's until they are taken out.
#include <qiv/cycle_buffer.h>
#include <qiv/mutex.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/scoped_lock.h"

namespace {

using Callback = void (*)(char* data, int len, void* user);

struct CycleBuffer {
  char* pData;
  int nSize;
  unsigned int nWritePos QIV_GUARDED_BY(mutex);
  unsigned int nReadPos QIV_GUARDED_BY(mutex);
  unsigned int nDataLen QIV_GUARDED_BY(mutex);
  QIV_Mutex mutex;
  Callback pfnRead;
  void* pUser;
};

static_assert(sizeof(void*) != 4 || sizeof(CycleBuffer) == 52, "a mutex is 24 of these bytes");
static_assert(offsetof(CycleBuffer, nSize) == sizeof(void*), "fields in order");
static_assert(offsetof(CycleBuffer, nWritePos) == sizeof(void*) + 4, "fields in order");
static_assert(offsetof(CycleBuffer, nReadPos) == sizeof(void*) + 8, "fields in order");
static_assert(offsetof(CycleBuffer, nDataLen) == sizeof(void*) + 12, "fields in order");
static_assert(offsetof(CycleBuffer, mutex) == sizeof(void*) + 16, "fields in order");
static_assert(offsetof(CycleBuffer, pfnRead) + 2 * sizeof(void*) == sizeof(CycleBuffer), "last");

using Lock = qiv::base::ScopedLock<QIV_Mutex>;

/** What is stored at one moment. */
struct Stored {
  unsigned int readPos;
  unsigned int writePos;
  unsigned int length;
};

Stored Look(CycleBuffer& buffer) {
  const Lock lock(buffer.mutex);
  return {buffer.nReadPos, buffer.nWritePos, buffer.nDataLen};
}

void Deliver(const CycleBuffer& buffer, const Stored& stored) {
  if (buffer.pfnRead == nullptr) return;  // the bytes are dropped
  const auto size = static_cast<unsigned int>(buffer.nSize);
  char* const start = buffer.pData + stored.readPos;
  if (stored.readPos + stored.length < size) {
    buffer.pfnRead(start, static_cast<int>(stored.length), buffer.pUser);
    return;
  }
  // Kept: callers rely on the size less the length, not less the read position. Where that leads
  // past the ring's end, the zeros behind it are read.
  buffer.pfnRead(start, static_cast<int>(size - stored.length), buffer.pUser);
  buffer.pfnRead(buffer.pData, static_cast<int>(stored.writePos), buffer.pUser);
}

void TakeOut(CycleBuffer& buffer, const Stored& stored) {
  const Lock lock(buffer.mutex);
  buffer.nReadPos = stored.writePos;
  // Less is left when a second reader, which there must not be, has taken the bytes out already.
  buffer.nDataLen -= std::min(stored.length, buffer.nDataLen);
}

}  // namespace

extern "C" {

int QIV_CycleBufferInit(QIV_HANDLE* handle, int capacity, Callback read, void* user) noexcept {
  if (handle == nullptr || read == nullptr || capacity <= 0) return QIV_ERROR;
  // A read position and a first length that are both below the capacity stay within twice of it.
  const std::uint64_t blockSize = sizeof(CycleBuffer) + 2 * static_cast<std::uint64_t>(capacity);
  if (blockSize > SIZE_MAX) {
    errno = ENOMEM;
    return QIV_ERROR;
  }
  void* const block = std::calloc(1, static_cast<std::size_t>(blockSize));
  if (block == nullptr) return QIV_ERROR;
  char* const data = static_cast<char*>(block) + sizeof(CycleBuffer);
  *handle = new (block) CycleBuffer{data, capacity, 0, 0, 0, {}, read, user};
  return QIV_OK;
}

int QIV_CycleBufferWrite(QIV_HANDLE handle, const void* data, int length) noexcept {
  if (handle == nullptr || data == nullptr || length <= 0) return QIV_ERROR;
  CycleBuffer& buffer = *static_cast<CycleBuffer*>(handle);
  const auto* const bytes = static_cast<const char*>(data);
  const auto count = static_cast<unsigned int>(length);
  const auto size = static_cast<unsigned int>(buffer.nSize);
  const Lock lock(buffer.mutex);
  if (count > size - buffer.nDataLen) return QIV_ERROR;
  const unsigned int space = size - buffer.nWritePos;
  if (count < space) {
    std::memcpy(buffer.pData + buffer.nWritePos, bytes, count);
    buffer.nWritePos += count;
  } else {
    std::memcpy(buffer.pData + buffer.nWritePos, bytes, space);
    std::memcpy(buffer.pData, bytes + space, count - space);
    buffer.nWritePos = count - space;
  }
  buffer.nDataLen += count;
  return QIV_OK;
}

int QIV_CycleBufferRead(QIV_HANDLE handle) {
  if (handle == nullptr) return QIV_ERROR;
  CycleBuffer& buffer = *static_cast<CycleBuffer*>(handle);
  const Stored stored = Look(buffer);
  if (stored.length == 0) return QIV_ERROR;
  Deliver(buffer, stored);
  TakeOut(buffer, stored);
  return QIV_OK;
}

int QIV_CycleBufferValue(QIV_HANDLE handle, unsigned int* count) noexcept {
  if (handle == nullptr || count == nullptr) return QIV_ERROR;
  *count = Look(*static_cast<CycleBuffer*>(handle)).length;
  return QIV_OK;
}

int QIV_CycleBufferDestroy(QIV_HANDLE handle) noexcept {
  if (handle == nullptr) return QIV_ERROR;
  static_cast<CycleBuffer*>(handle)->~CycleBuffer();
  std::free(handle);
  return QIV_OK;
}

}  // extern "C"
