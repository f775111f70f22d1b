// Owners of the library's start, of a completion queue and of a socket bound to it.
//
// Constructors throw std::runtime_error (std::system_error where errno tells more). Destroy in the
// order socket, queue, library; members and locals declared in the opposite order do so.
#pragma once

#include <qiv/address.h>
#include <qiv/async_io.h>

namespace echo {

class Library {
 public:
  Library();
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

class CompletionQueue {
 public:
  explicit CompletionQueue(int workers);
  ~CompletionQueue();
  CompletionQueue(const CompletionQueue&) = delete;
  CompletionQueue& operator=(const CompletionQueue&) = delete;

  QIV_HANDLE Handle() const { return m_queue; }

 private:
  QIV_HANDLE m_queue;
};

// Owns a descriptor and its binding. When Close() or the destructor has returned, no callback of
// the socket runs or will run, so what the callbacks use may go. They must therefore not run on a
// worker of the queue, nor hold a lock that a callback takes.
class BoundSocket {
 public:
  // Takes the descriptor in any case: it is closed when it cannot be bound.
  BoundSocket(int descriptor, const CompletionQueue& queue);
  ~BoundSocket();
  BoundSocket(const BoundSocket&) = delete;
  BoundSocket& operator=(const BoundSocket&) = delete;

  int Descriptor() const { return m_descriptor; }
  void Close();

 private:
  int m_descriptor;
  QIV_HANDLE m_queue;
};

// A new IPv4 stream socket.
int NewStreamSocket();

// 127.0.0.1 with a port.
QIV_ADDR_T LoopbackAddress(int port);

}  // namespace echo
