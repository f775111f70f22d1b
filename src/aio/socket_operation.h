// A socket's pending requests, the memory of its outgoing data and its place in an epoll set.
#ifndef QIV_AIO_SOCKET_OPERATION_H
#define QIV_AIO_SOCKET_OPERATION_H

#include <qiv/mutex.h>

#include <atomic>

#include "aio/data_memory_pool.h"
#include "aio/io_data.h"
#include "aio/lazy_mutex_array.h"
#include "aio/request_queue.h"
#include "aio/trimmable_pool.h"
#include "base/load_time_mutex.h"

/** An edit of a socket's registration in its epoll set. */
enum __SOCKET_OPR : int {
  SOCKET_OPR_ADD = 0,       // register for errors and hang-ups
  SOCKET_OPR_DEL = 1,       // unregister if no request is pending
  SOCKET_OPR_ADD_READ = 2,  // the last four register first where that is needed
  SOCKET_OPR_DEL_READ = 3,
  SOCKET_OPR_ADD_WRITE = 4,
  SOCKET_OPR_DEL_WRITE = 5,
};

/** Limit of each socket's pending send memory in bytes; -1 leaves every socket its own limit. */
extern std::atomic<int> g_max_socket_send_dataMemory;

/**
 * Two queues: sends and connects are guarded by the socket's entry of m_sendMutex, receives and
 * accepts by its entry of m_recvMutex. The registration is guarded by the object's own lock. Order:
 * the worker's lock, the send-side mutex, the receive-side mutex, the object's lock. A request
 * stays valid while its worker holds the worker's lock: only an unbind, which takes that lock,
 * destroys the object.
 */
class CSocketOperation {
 public:
  /** Results of the Push calls beside 0 and -1. */
  static constexpr int kBadArguments = -4;
  static constexpr int kOverMemoryLimit = -5;
  static constexpr int kNoMemory = -6;

  static qiv::aio::LazyMutexArray m_sendMutex;
  static qiv::aio::LazyMutexArray m_recvMutex;
  static qiv::base::LoadTimeMutex m_gUuidMutex;

  CSocketOperation(int socketFd, int epollFd) noexcept;
  ~CSocketOperation();
  CSocketOperation(const CSocketOperation&) = delete;
  CSocketOperation& operator=(const CSocketOperation&) = delete;

  /** The serial number that the next object will have. */
  static unsigned int NextUuid() noexcept;

  int PushTCPSendRequest(const void* data, int length, void* userData,
                         QIV_ASYNC_CALLBACK callback) noexcept;
  int PushUDPSendRequest(const void* data, int length, void* userData, const QIV_ADDR_T* address,
                         QIV_ASYNC_CALLBACK callback) noexcept;
  int PushTCPRecvRequest(void* buffer, int length, void* userData,
                         QIV_ASYNC_CALLBACK callback) noexcept;
  int PushUDPRecvRequest(void* buffer, int length, void* userData, QIV_ADDR_T* address,
                         QIV_ASYNC_CALLBACK callback) noexcept;
  int PushAcceptRequest(void* userData, QIV_ADDR_T* address, QIV_ASYNC_CALLBACK callback) noexcept;

  /** Copies the data in pieces. 0, -4 bad arguments, -5 over the limit, -6 memory is short. */
  int PushSendRequest(QIV_IO_TYPE type, const void* data, int length, void* userData,
                      const QIV_ADDR_T* address, QIV_ASYNC_CALLBACK callback) noexcept;

  /** 0, -1 when the queue is full or memory is short, -4 for a negative length. */
  int PushRecvRequest(QIV_IO_TYPE type, void* buffer, int length, void* userData,
                      QIV_ADDR_T* address, QIV_ASYNC_CALLBACK callback) noexcept;

  /** Calls connect() and queues the report of its outcome. 0, or -1 when no report will follow. */
  int PushConnectRequest(void* userData, const QIV_ADDR_T* address,
                         QIV_ASYNC_CALLBACK callback) noexcept;

  IO_DATA* FrontSendRequest() noexcept;
  IO_DATA* FrontRecvRequest() noexcept;
  void PopSendRequest() noexcept;
  void PopRecvRequest() noexcept;

  /** 0 or the result of epoll_ctl(); -1 for an unknown edit. */
  int ChangeSocketOpr(__SOCKET_OPR operation) noexcept;

  /** Ends the use of the epoll set, which is about to be closed. */
  void LeaveEpollSet() noexcept;

  int EpollFd() const noexcept { return m_epollFd; }
  unsigned int Uuid() const noexcept { return m_uuid; }
  unsigned int CreateTick() const noexcept { return m_createTick; }
  long long UsedDataMemory() const noexcept { return m_usedDataMemory; }

 private:
  /** What the pieces of one send have in common. */
  struct SendRequest {
    QIV_IO_TYPE type;
    void* userData;
    const QIV_ADDR_T* address;
    QIV_ASYNC_CALLBACK callback;
  };

  int SetEvents(int control, unsigned int events) noexcept;
  int Register() noexcept;
  int UnregisterIfIdle() noexcept;
  int AddEvents(unsigned int events) noexcept;
  int RemoveEvents(unsigned int events) noexcept;

  bool IsOverMemoryLimit() noexcept;
  void TrimAfterBacklog(QIV_IO_TYPE type) noexcept;
  IO_DATA* NewRequest(qiv::aio::TrimmablePool* pool, QIV_IO_TYPE type, void* userData,
                      QIV_ASYNC_CALLBACK callback) noexcept;
  int QueuePiece(const SendRequest& send, const char* data, int length) noexcept;
  void AppendSend(IO_DATA* request) noexcept;

  QIV_Mutex m_lock;
  unsigned int m_events = 0;
  int m_socketFd;
  int m_epollFd;
  unsigned int m_uuid;
  unsigned int m_createTick;
  qiv::aio::TrimmablePool m_recvRequestPool;
  qiv::aio::TrimmablePool m_sendRequestPool;
  CDataMemoryPool m_dataPool;
  long long m_usedDataMemory = 0;
  qiv::aio::RequestQueue m_sendQueue;
  qiv::aio::RequestQueue m_recvQueue;
  int m_trimPending = 0;
  int m_maxDataMemory = 33554432;

  static std::atomic<unsigned int> m_gUuid;  // given out under m_gUuidMutex, read without it
};

#endif
