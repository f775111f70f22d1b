#include "support/sockets.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "support/test_limit.h"

namespace qiv::test {
namespace {

// Set-up that cannot fail on a working machine: the test process ends with a message if it does.
int Checked(int result, const char* step) {
  if (result == -1) {
    std::perror(step);
    std::abort();
  }
  return result;
}

socklen_t LengthOf(const QIV_ADDR_T& address) {
  return address.family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

bool WaitFor(const Socket& socket, short events) {
  pollfd record = {socket.Get(), events, 0};
  return poll(&record, 1, static_cast<int>(TestLimit().count())) == 1;
}

}  // namespace

Socket::Socket(int family, int type) : m_descriptor(Checked(socket(family, type, 0), "socket")) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    Close();
    m_descriptor = other.Release();
  }
  return *this;
}

int Socket::Release() {
  const int descriptor = m_descriptor;
  m_descriptor = -1;
  return descriptor;
}

void Socket::Close() {
  if (m_descriptor != -1) close(m_descriptor);
  m_descriptor = -1;
}

Socket TcpSocket() { return {AF_INET, SOCK_STREAM}; }

Socket UdpSocket() { return {AF_INET, SOCK_DGRAM}; }

QIV_ADDR_T Loopback(int family, unsigned int port) {
  QIV_ADDR_T address;
  const char* const text = family == AF_INET ? "127.0.0.1" : "::1";
  Checked(QIV_MakeAddrByString(family, text, port, &address), "address");
  return address;
}

Socket BoundSocket(int family, int type) {
  Socket socket(family, type);
  const QIV_ADDR_T address = Loopback(family);
  Checked(bind(socket.Get(), &address.any, LengthOf(address)), "bind");
  return socket;
}

Socket BoundUdpSocket() { return BoundSocket(AF_INET, SOCK_DGRAM); }

Socket Listener(int family, int backlog) {
  Socket socket = BoundSocket(family, SOCK_STREAM);
  Checked(listen(socket.Get(), backlog), "listen");
  return socket;
}

QIV_ADDR_T AddressOf(const Socket& socket) {
  QIV_ADDR_T address = {};
  socklen_t length = sizeof(address);
  Checked(getsockname(socket.Get(), &address.any, &length), "getsockname");
  return address;
}

TcpPair::TcpPair(int family) : first(family, SOCK_STREAM) {
  const Socket listener = Listener(family);
  const QIV_ADDR_T address = AddressOf(listener);
  Checked(connect(first.Get(), &address.any, LengthOf(address)), "connect");
  second = Socket(Checked(accept(listener.Get(), nullptr, nullptr), "accept"));
}

void Reset(Socket& socket) {
  const linger abort = {1, 0};
  Checked(setsockopt(socket.Get(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort)), "setsockopt");
  socket.Close();
}

Socket MoveTo(Socket socket, int number) {
  return Socket(Checked(dup2(socket.Get(), number), "dup2"));
}

void WriteAll(const Socket& socket, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size() && WaitFor(socket, POLLOUT)) {
    const ssize_t sent =
        send(socket.Get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) done += static_cast<std::size_t>(sent);
    if (sent == -1 && errno != EAGAIN) break;
  }
}

std::string ReadExactly(const Socket& socket, std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t done = 0;
  while (done < count && WaitFor(socket, POLLIN)) {
    const ssize_t got = recv(socket.Get(), &bytes[done], count - done, MSG_DONTWAIT);
    if (got > 0) done += static_cast<std::size_t>(got);
    if (got == 0 || (got == -1 && errno != EAGAIN)) break;
  }
  bytes.resize(done);
  return bytes;
}

std::string Pattern(std::size_t count, unsigned int seed) {
  std::minstd_rand random(seed + 1);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random() >> 7);
  return bytes;
}

}  // namespace qiv::test
