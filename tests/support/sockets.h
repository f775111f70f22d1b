// Sockets on the loopback interface for tests; everything is closed at the end of its scope.
#ifndef QIV_TESTS_SUPPORT_SOCKETS_H
#define QIV_TESTS_SUPPORT_SOCKETS_H

#include <netinet/in.h>
#include <qiv/address.h>

#include <cstddef>
#include <string>

namespace qiv::test {

/** Owns a descriptor. */
class Socket {
 public:
  Socket() = default;
  explicit Socket(int descriptor) : m_descriptor(descriptor) {}
  ~Socket() { Close(); }
  Socket(Socket&& other) noexcept : m_descriptor(other.Release()) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int Get() const { return m_descriptor; }
  int Release();
  void Close();

 private:
  int m_descriptor = -1;
};

Socket TcpSocket();
Socket UdpSocket();

/** A datagram socket bound to a free loopback port. */
Socket BoundUdpSocket();

/** A socket that listens on a free loopback port. */
Socket Listener(int backlog = 128);

/** The address that a socket is bound to. */
QIV_ADDR_T AddressOf(const Socket& socket);

/** A loopback address at which nothing listens. */
QIV_ADDR_T ClosedAddress();

/** Two connected stream sockets. */
struct TcpPair {
  TcpPair();
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

}  // namespace qiv::test

#endif
