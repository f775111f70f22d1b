// Sockets of the tests: closed by themselves, on the loopback interface only, ports chosen by the
// system.
#ifndef QIV_TESTS_SUPPORT_LOOPBACK_H
#define QIV_TESTS_SUPPORT_LOOPBACK_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <qiv/address.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace qiv::test {

/** Owns a descriptor. */
class Socket {
 public:
  explicit Socket(int descriptor = -1) : m_descriptor(descriptor) {}
  Socket(int family, int type) : m_descriptor(socket(family, type, 0)) {
    if (m_descriptor == -1) throw std::runtime_error("no socket");
  }
  Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  ~Socket() { Close(); }

  int Get() const { return m_descriptor; }
  int Release() { return std::exchange(m_descriptor, -1); }
  void Close() {
    if (m_descriptor != -1) close(std::exchange(m_descriptor, -1));
  }

 private:
  int m_descriptor;
};

/** The loopback address of a family. */
inline QIV_ADDR_T Loopback(int family, unsigned int port = 0) {
  QIV_ADDR_T address;
  const char* text = family == AF_INET ? "127.0.0.1" : "::1";
  if (QIV_MakeAddrByString(family, text, port, &address) != 0) {
    throw std::runtime_error("no loopback address");
  }
  return address;
}

/** The address to which a socket is bound. */
inline QIV_ADDR_T LocalAddress(const Socket& socket) {
  QIV_ADDR_T address = {};
  socklen_t length = sizeof(address);
  if (getsockname(socket.Get(), &address.any, &length) != 0) {
    throw std::runtime_error("no local address");
  }
  return address;
}

/** A socket bound to a free port of the loopback address. */
inline Socket BoundSocket(int family, int type) {
  Socket bound(family, type);
  const QIV_ADDR_T address = Loopback(family);
  const socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  if (bind(bound.Get(), &address.any, length) != 0) throw std::runtime_error("no port");
  return bound;
}

/** A TCP socket that listens on a free port of the loopback address. */
inline Socket ListeningSocket(int family = AF_INET, int backlog = 8) {
  Socket listener = BoundSocket(family, SOCK_STREAM);
  if (listen(listener.Get(), backlog) != 0) throw std::runtime_error("no listener");
  return listener;
}

/** Two ends of a TCP connection. */
struct ConnectedPair {
  ConnectedPair() : near(AF_INET, SOCK_STREAM) {
    const Socket listener = ListeningSocket();
    const QIV_ADDR_T address = LocalAddress(listener);
    if (connect(near.Get(), &address.any, sizeof(sockaddr_in)) != 0) {
      throw std::runtime_error("no connection");
    }
    far = Socket(accept(listener.Get(), nullptr, nullptr));
    if (far.Get() == -1) throw std::runtime_error("no connection");
  }

  Socket near;
  Socket far;
};

}  // namespace qiv::test

#endif
