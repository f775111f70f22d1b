// Sends: the data is copied into pool chunks, in pieces of bounded size, under a memory limit.
#include <algorithm>
#include <cstring>

#include "aio/socket_operation.h"
#include "base/diagnostic.h"
#include "base/scoped_lock.h"

using qiv::base::ScopedLock;

std::atomic<int> g_max_socket_send_dataMemory{-1};

namespace {

/** Numbers of queued requests between which a backlog has built up and drained again. */
struct TrimThresholds {
  std::size_t backlog;
  std::size_t drained;
};
constexpr TrimThresholds kStreamThresholds = {2048, 512};
constexpr TrimThresholds kDatagramThresholds = {10240, 2560};

}  // namespace

int CSocketOperation::PushTCPSendRequest(const void* data, int length, void* userData,
                                         QIV_ASYNC_CALLBACK callback) noexcept {
  return PushSendRequest(QIV_IO_TCP_SEND, data, length, userData, nullptr, callback);
}

int CSocketOperation::PushUDPSendRequest(const void* data, int length, void* userData,
                                         const QIV_ADDR_T* address,
                                         QIV_ASYNC_CALLBACK callback) noexcept {
  return PushSendRequest(QIV_IO_UDP_SEND, data, length, userData, address, callback);
}

int CSocketOperation::PushSendRequest(QIV_IO_TYPE type, const void* data, int length,
                                      void* userData, const QIV_ADDR_T* address,
                                      QIV_ASYNC_CALLBACK callback) noexcept {
  if (length < 1 || data == nullptr) return kBadArguments;
  if (type == QIV_IO_CONNECT && address == nullptr) return kBadArguments;
  const ScopedLock lock(m_sendMutex[m_socketFd]);
  if (IsOverMemoryLimit()) {
    qiv::base::Diagnose("over max data memory limit! m_socketFd{%d}\r\n", m_socketFd);
    return kOverMemoryLimit;
  }
  TrimAfterBacklog(type);

  const SendRequest send = {type, userData, address, callback};
  const auto* const bytes = static_cast<const char*>(data);
  for (int done = 0; done < length;) {
    const int pieceLength = std::min(length - done, CDataMemoryPool::kLargestChunk);
    const int result = QueuePiece(send, bytes + done, pieceLength);
    if (result != QIV_OK) return result;
    done += pieceLength;
  }
  return QIV_OK;
}

// The new data is not counted yet: one request may take the total past the limit.
bool CSocketOperation::IsOverMemoryLimit() noexcept {
  const int commonLimit = g_max_socket_send_dataMemory.load(std::memory_order_relaxed);
  if (commonLimit > 0) m_maxDataMemory = commonLimit;
  return m_usedDataMemory > m_maxDataMemory;
}

void CSocketOperation::TrimAfterBacklog(QIV_IO_TYPE type) noexcept {
  if (type != QIV_IO_TCP_SEND && type != QIV_IO_UDP_SEND) return;
  const TrimThresholds& thresholds =
      type == QIV_IO_TCP_SEND ? kStreamThresholds : kDatagramThresholds;
  if (m_sendQueue.Size() >= thresholds.backlog) m_trimPending = 1;
  if (m_trimPending == 0 || m_sendQueue.Size() > thresholds.drained) return;
  qiv::base::Diagnose("trim boost pool!\r\n");
  m_dataPool.Trim();
  m_trimPending = 0;
}

int CSocketOperation::QueuePiece(const SendRequest& send, const char* data, int length) noexcept {
  if (!m_sendQueue.MakeRoom()) return kNoMemory;
  IO_DATA* const request = NewRequest(&m_sendRequestPool, send.type, send.userData, send.callback);
  if (request == nullptr) return kNoMemory;
  // Kept: the count stays raised when the chunk cannot be had.
  m_usedDataMemory += CDataMemoryPool::ClassSize(length);
  request->buffer = m_dataPool.Take(length);
  if (request->buffer == nullptr) {
    m_sendRequestPool.Give(request);
    qiv::base::Diagnose("PushSendRequest 3\n");
    return kNoMemory;
  }
  std::memcpy(request->buffer, data, static_cast<std::size_t>(length));
  request->length = length;
  if (send.address != nullptr) {
    request->addrCopy = *send.address;
    request->addr = &request->addrCopy;
  }
  AppendSend(request);
  return QIV_OK;
}

void CSocketOperation::AppendSend(IO_DATA* request) noexcept {
  const bool wasEmpty = m_sendQueue.IsEmpty();
  m_sendQueue.Append(request);
  if (wasEmpty) ChangeSocketOpr(SOCKET_OPR_ADD_WRITE);
}
