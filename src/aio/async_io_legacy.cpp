// The first asynchronous interface: kept callable, and failing.
#include <qiv/async_io_legacy.h>
#include <unistd.h>

namespace {

constexpr int kNoQueue = -1;

}  // namespace

static_assert(sizeof(QIV_AsyncIOQueue) == 4);
static_assert(sizeof(QIV_AsyncIO) == sizeof(void*));

QIV_AsyncIOQueue::QIV_AsyncIOQueue() noexcept : m_handle(0) {}
QIV_AsyncIOQueue::~QIV_AsyncIOQueue() = default;

int QIV_AsyncIOQueue::Initialize() noexcept {
  m_handle = QIV_AsyncIO_CreateQueue();
  return m_handle == kNoQueue ? QIV_ERROR : QIV_OK;
}

int QIV_AsyncIOQueue::Release() {
  // Kept: a queue that was never initialised closes descriptor 0.
  if (m_handle != kNoQueue) close(m_handle);
  return QIV_OK;
}

int QIV_AsyncIOQueue::GetHandle() const noexcept { return m_handle; }

QIV_AsyncIO::QIV_AsyncIO(void* handle) noexcept : m_handle(handle) {}
QIV_AsyncIO::~QIV_AsyncIO() = default;

int QIV_AsyncIO::BindCallBackToIOHandle(QIV_ASYNC_LEGACY_CALLBACK callback) noexcept {
  if (callback == nullptr) return QIV_ERROR;
  return QIV_AsyncIO_BindCallBackToIOHandle(m_handle, callback);
}

int QIV_AsyncIO::IOSend(void* buffer, unsigned long length, void* user) noexcept {
  return QIV_AsyncIO_Send(m_handle, buffer, length, user);
}

int QIV_AsyncIO::IORecv(void* buffer, unsigned long length, void* user) noexcept {
  return QIV_AsyncIO_Recv(m_handle, buffer, length, user);
}

int QIV_AsyncIO::IOSendTo(void* buffer, unsigned long length, void* user,
                          QIV_ADDR_T* destination) noexcept {
  return QIV_AsyncIO_SendTo(m_handle, buffer, length, user, destination);
}

int QIV_AsyncIO::IORecvFrom(void* buffer, unsigned long length, void* user,
                            QIV_ADDR_T* source) noexcept {
  return QIV_AsyncIO_RecvFrom(m_handle, buffer, length, user, source);
}

int QIV_AsyncIO::IOWriteFile(void* buffer, unsigned long length, void* user) noexcept {
  return QIV_AsyncIO_WriteFile(m_handle, buffer, length, user);
}

int QIV_AsyncIO::IOReadFile(void* buffer, unsigned long length, void* user) noexcept {
  return QIV_AsyncIO_ReadFile(m_handle, buffer, length, user);
}

int QIV_AsyncIO::BindIOHandleToQueue(QIV_AsyncIOQueue* queue) noexcept {
  if (queue == nullptr) return QIV_ERROR;
  return QIV_AsyncIO_BindIOHandleToQueue(m_handle, queue->GetHandle());
}

extern "C" {

int QIV_AsyncIO_CreateQueue(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_CreateQueueEx(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_DestroyQueue(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_BindIOHandleToQueue(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_BindCallBackToIOHandle(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_PostQueuedCompleteStatus(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_Send(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_Recv(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_SendTo(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_RecvFrom(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_WriteFile(...) noexcept { return QIV_ERROR; }
int QIV_AsyncIO_ReadFile(...) noexcept { return QIV_ERROR; }

}  // extern "C"
