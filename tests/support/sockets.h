// Sockets on the loopback interface for tests, on ports chosen by the system; everything is closed
// at the end of its scope. A set-up that fails ends the test process with a message.
#ifndef QIV_TESTS_SUPPORT_SOCKETS_H
#define QIV_TESTS_SUPPORT_SOCKETS_H

#include <fcntl.h>
#include <netinet/in.h>
#include <qiv/address.h>
#include <sys/socket.h>

#include <cstddef>
#include <string>

namespace qiv::test {

/** A time-out that is not reached, in milliseconds. */
constexpr unsigned int kLongTimeOutMs = 15000;

/** Owns a descriptor. */
class Socket {
 public:
  explicit Socket(int descriptor = -1) : m_descriptor(descriptor) {}
  Socket(int family, int type);
  ~Socket() { Close(); }
  Socket(Socket&& other) noexcept : m_descriptor(other.Release()) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int Get() const { return m_descriptor; }
  int Release();
  void Close();

 private:
  int m_descriptor;
};

Socket TcpSocket();
Socket UdpSocket();

/** The loopback address of a family. */
QIV_ADDR_T Loopback(int family, unsigned int port = 0);

/**
 * A socket bound to a free loopback port. A stream socket refuses every connection, and nobody else
 * gets its port as long as it lives.
 */
Socket BoundSocket(int family, int type);
Socket BoundUdpSocket();

/** A stream socket that listens on a free loopback port. */
Socket Listener(int family = AF_INET, int backlog = 128);

/** The address that a socket is bound to. */
QIV_ADDR_T AddressOf(const Socket& socket);

/** Two connected stream sockets. */
struct TcpPair {
  explicit TcpPair(int family = AF_INET);
  Socket first;
  Socket second;
};

/** Closes a connection so that its peer gets a reset. */
void Reset(Socket& socket);

/** Moves a socket to another descriptor number. */
Socket MoveTo(Socket socket, int number);

/** Writes every byte; reads exactly as many bytes as asked, or fewer at the end of the stream. */
void WriteAll(const Socket& socket, const std::string& bytes);
std::string ReadExactly(const Socket& socket, std::size_t count);

/** Bytes that differ from position to position and from seed to seed. */
std::string Pattern(std::size_t count, unsigned int seed);

inline bool IsNonBlocking(const Socket& socket) {
  return (fcntl(socket.Get(), F_GETFL) & O_NONBLOCK) != 0;
}

}  // namespace qiv::test

#endif
