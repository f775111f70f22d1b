// One worker of a completion queue: a thread and the epoll set that it serves.
#ifndef QIV_AIO_WORKER_H
#define QIV_AIO_WORKER_H

#include <qiv/mutex.h>
#include <sys/epoll.h>

#include <atomic>

#include "aio/socket_operation.h"

namespace qiv::aio {

/** Whether a serial number was given out while the next one went from `first` to `end`. They wrap.
 */
constexpr bool IsSerialBetween(unsigned int first, unsigned int serial, unsigned int end) noexcept {
  return serial - first < end - first;
}

/**
 * The lock is held while events are handled; it is what keeps the objects of this worker's sockets
 * alive meanwhile. The stop flag is written by the thread that destroys the queue.
 */
class Worker {
 public:
  Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /** Opens the epoll set and starts the thread. False when a step fails; nothing is left open. */
  bool Start(int mode, int maxEvents) noexcept;

  /** Asks the thread to end; it looks every 500 ms. */
  void RequestStop() noexcept { m_stop.store(1, std::memory_order_release); }

  /** Waits for the thread. */
  void Join();

  /** Detaches the sockets still bound and frees what Start() acquired. The thread has ended. */
  void Close() noexcept;

  bool IsCurrentThread() const noexcept;
  QIV_Mutex& Lock() noexcept QIV_THREAD_ANNOTATION(lock_returned(m_lock)) { return m_lock; }
  int EpollFd() const noexcept { return m_epollFd; }

 private:
  /** Tells an object from a later one of the same descriptor. */
  struct Identity {
    explicit Identity(const CSocketOperation& operation) noexcept
        : uuid(operation.Uuid()), createTick(operation.CreateTick()) {}
    unsigned int uuid;
    unsigned int createTick;
  };

  static void* Main(void* worker);
  void Run();
  void HandleReadyEvents(int count);
  void HandleEvent(const epoll_event& event, unsigned int nextUuid) QIV_REQUIRES(m_lock);
  bool HandleReceive(CSocketOperation* operation, int socketFd, bool isHangUp) QIV_REQUIRES(m_lock);
  bool HandleSend(CSocketOperation* operation, int socketFd) QIV_REQUIRES(m_lock);
  CSocketOperation* Find(int socketFd) const noexcept;
  bool IsStillBound(int socketFd, const Identity& identity) const noexcept;
  void DetachSockets() noexcept;

  std::atomic<int> m_stop{0};
  int m_mode = 0;
  int m_epollFd = -1;
  int m_maxEvents = 0;
  epoll_event* m_events = nullptr;
  QIV_Mutex m_lock;
  unsigned int m_threadId = QIV_INVALID_ID;
};

}  // namespace qiv::aio

#endif
