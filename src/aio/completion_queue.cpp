// Completion queues: creation and destruction, and the binding of sockets to their workers.
//
// Lock order: a worker's lock, then the socket's send-side mutex, then its receive-side mutex.
// Binding takes no worker's lock: a callback in mode 1 that binds a socket to another worker holds
// its own, and two such callbacks would wait for each other.
#include <qiv/async_io.h>
#include <qiv/socket.h>
#include <qiv/system.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "aio/socket_table.h"
#include "aio/worker.h"
#include "base/diagnostic.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"

namespace {

using qiv::aio::kSocketLimit;
using qiv::aio::TableEntry;
using qiv::aio::Worker;
using qiv::base::NoCancellation;
using qiv::base::ScopedLock;

/** A queue: this header and its workers are one block of memory. */
struct Queue {
  int workerCount;
  Worker* workers;
};
constexpr std::size_t kHeaderSize =
    (sizeof(Queue) + alignof(Worker) - 1) / alignof(Worker) * alignof(Worker);

QIV_HANDLE InvalidQueue() { return reinterpret_cast<QIV_HANDLE>(static_cast<std::intptr_t>(-1)); }

Queue* AllocateQueue(int workers) {
  const auto count = static_cast<std::size_t>(std::max(workers, 0));
  if (count > (SIZE_MAX - kHeaderSize) / sizeof(Worker)) return nullptr;
  void* const block = std::calloc(1, kHeaderSize + count * sizeof(Worker));
  if (block == nullptr) return nullptr;
  auto* const records = reinterpret_cast<Worker*>(static_cast<char*>(block) + kHeaderSize);
  return new (block) Queue{workers, records};
}

// A worker's record is built, and its memory touched, only when it is started.
bool StartWorker(const Queue& queue, int index, int mode) {
  auto* const worker = new (queue.workers + index) Worker;
  if (worker->Start(mode, kSocketLimit / queue.workerCount + 1)) return true;
  worker->~Worker();
  return false;
}

void StopWorkers(Worker* first, Worker* last) {
  for (Worker* worker = first; worker != last; ++worker) worker->RequestStop();
  for (Worker* worker = first; worker != last; ++worker) worker->Join();
  // Only now: until the last thread has ended, callbacks may bind and unbind on every worker.
  for (Worker* worker = first; worker != last; ++worker) {
    worker->Close();
    worker->~Worker();
  }
}

// Kept: the last worker that could be started is left running. It stands in the queue's block,
// which is therefore left to it.
void AbandonQueue(Queue* queue, int started) {
  if (started == 0) {
    std::free(queue);
  } else {
    StopWorkers(queue->workers, queue->workers + (started - 1));
  }
}

/** The worker of a socket, or null for arguments that name none. */
Worker* WorkerOf(int socket, QIV_HANDLE handle) {
  if (handle == nullptr || handle == InvalidQueue()) return nullptr;
  const auto* const queue = static_cast<const Queue*>(handle);
  if (queue->workerCount < 1 || socket < 0 || socket >= kSocketLimit) return nullptr;
  return &queue->workers[socket % queue->workerCount];
}

}  // namespace

extern "C" {

QIV_HANDLE QIV_AIO_CreateQueueEx(int workers, int mode) noexcept {
  const NoCancellation noCancellation;
  Queue* const queue = AllocateQueue(workers);
  if (queue == nullptr) return InvalidQueue();
  for (int i = 0; i < workers; ++i) {
    if (StartWorker(*queue, i, mode)) continue;
    AbandonQueue(queue, i);
    return InvalidQueue();
  }
  return queue;
}

QIV_HANDLE QIV_AsyncIO_CreateQueueEx_New(int workers) noexcept {
  return QIV_AIO_CreateQueueEx(workers, 1);
}

QIV_HANDLE QIV_AsyncIO_CreateQueueEx2(void) noexcept {
  return QIV_AsyncIO_CreateQueueEx_New((QIV_GetCPUNumber() + 1) * 2);
}

int QIV_AsyncIO_DestroyQueueEx(QIV_HANDLE handle) {
  if (handle == nullptr || handle == InvalidQueue()) return QIV_ERROR;
  auto* const queue = static_cast<Queue*>(handle);
  Worker* const end = queue->workers + std::max(queue->workerCount, 0);
  const bool isOwnWorker = std::any_of(
      queue->workers, end, [](const Worker& worker) { return worker.IsCurrentThread(); });
  if (isOwnWorker) return QIV_ERROR;
  const NoCancellation noCancellation;
  StopWorkers(queue->workers, end);
  std::free(queue);
  return QIV_OK;
}

int QIV_AsyncIO_BindIOHandleToQueueEx(int socket, QIV_HANDLE queue) noexcept {
  const Worker* const worker = WorkerOf(socket, queue);
  if (worker == nullptr) return QIV_ERROR;
  const ScopedLock sendSide(CSocketOperation::m_sendMutex[socket]);
  const ScopedLock recvSide(CSocketOperation::m_recvMutex[socket]);
  if (TableEntry(socket) != nullptr) {
    qiv::base::Diagnose("QIV_AsyncIO_BindIOHandleToQueueEx, ERROR, socketFd = %d\n", socket);
    return QIV_ERROR;
  }
  QIV_SetNonBlock(socket, 1);
  auto* const operation = new (std::nothrow) CSocketOperation(socket, worker->EpollFd());
  if (operation == nullptr) return QIV_ERROR;
  gSocketOpr[socket].store(operation, std::memory_order_relaxed);  // ordered by the side mutexes
  return QIV_OK;
}

int QIV_AsyncIO_UnBindIOHandleEx(int socket, QIV_HANDLE queue) noexcept {
  Worker* const worker = WorkerOf(socket, queue);
  if (worker == nullptr) return QIV_ERROR;
  const ScopedLock lock(worker->Lock());
  const ScopedLock sendSide(CSocketOperation::m_sendMutex[socket]);
  const ScopedLock recvSide(CSocketOperation::m_recvMutex[socket]);
  const CSocketOperation* const operation = TableEntry(socket);
  if (operation == nullptr || operation->EpollFd() != worker->EpollFd()) {
    qiv::base::Diagnose("QIV_AsyncIO_UnBindIOHandleEx gSocketOpr[socketFd] = NULL, socketFd = %d\n",
                        socket);
    return QIV_ERROR;
  }
  delete operation;
  gSocketOpr[socket].store(nullptr, std::memory_order_relaxed);  // ordered by the side mutexes
  return QIV_OK;
}

int QIV_AsyncIO_BindCallBackToIOHandleEx(...) noexcept { return QIV_OK; }

}  // extern "C"
