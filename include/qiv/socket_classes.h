/**
 * @file
 * The class layer over IPv4 sockets: an endpoint with its text, byte order and host names, and
 * socket calls with a time-out that bounds the waits of one call together. Exists in C++ only.
 *
 * Nothing here prints, sets a last error or throws. The classes know IPv4 only; QIV_ADDR_T and the
 * functions of socket.h take both families.
 */
#ifndef QIV_SOCKET_CLASSES_H
#define QIV_SOCKET_CLASSES_H

#include <qiv/types.h>

#ifdef __cplusplus
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace qiv {

/**
 * An IPv4 endpoint: the system's socket address and nothing else. Every constructor makes its
 * family AF_INET. One object must not be written by one thread while another uses it.
 */
class QIV_API qiv_net_addr {
 public:
  /** Port 0 of 0.0.0.0. */
  qiv_net_addr() noexcept;
  /** A copy of port, address and zero fill. */
  qiv_net_addr(const qiv_net_addr& other) noexcept;
  /**
   * @param port  host order; its lower 16 bits count
   * @param host  a dotted address, as set_host() takes it; null leaves 0.0.0.0
   */
  qiv_net_addr(int port, const char* host) noexcept;
  /** @param address  copied, except that the family becomes AF_INET */
  qiv_net_addr(const sockaddr_in& address) noexcept;
  /** @param url  as for parse_url(), on port 0 of 0.0.0.0 */
  qiv_net_addr(const char* url) noexcept;
  /** Overwrites the endpoint with zeros. */
  virtual ~qiv_net_addr();
  /** Copies the whole socket address, its family too. */
  qiv_net_addr& operator=(const qiv_net_addr& other) noexcept;

  /** Whether family, port and address are equal; the zero fill does not count. */
  bool operator==(const qiv_net_addr& other) const noexcept;
  /** The negation of ==. */
  bool operator!=(const qiv_net_addr& other) const noexcept;

  /** The port in host order. */
  int get_port() const noexcept;
  /**
   * The address in dotted form, in a buffer of the system that the next call overwrites. No other
   * thread may use inet_ntoa() at once; get_addr() with a buffer has no such limit.
   *
   * System: inet_ntoa(3).
   */
  char* get_host() const noexcept;
  /** Copies the socket address out. @return 0 */
  int get_addr(sockaddr_in& out) const noexcept;
  /** Copies the address out, in network order. @return 0 */
  int get_addr(in_addr& out) const noexcept;
  /**
   * Writes the text "host:port", at most 21 characters and a NUL.
   *
   * @param buffer  gets the text; null is refused
   * @param length  bytes at `buffer`; becomes the length of the text, NUL not counted
   * @return `buffer`; null, and nothing written, when `buffer` is null or the text and its NUL take
   *         more than `length` bytes
   */
  char* get_addr(char* buffer, int& length) const noexcept;

  /** @param port  0 to 65535, host order  @return 0; -1, and nothing changes, for others */
  int set_port(int port) noexcept;
  /** Copies the whole socket address, its family too. @return 0 */
  int set_addr(sockaddr_in address) noexcept;
  /**
   * Sets the port and then the address.
   *
   * @param port  0 to 65535, host order
   * @param host  as for set_host(); null leaves the address alone
   * @return 0; -1, and nothing changes, for another port
   */
  int set_addr(int port, const char* host) noexcept;
  /** Does what parse_url() does. @return 0 */
  int set_addr(const char* url) noexcept;
  /**
   * Sets the address.
   *
   * @param host  a text that inet_addr(3) reads; any other makes the address 255.255.255.255
   * @return 0; -1, and nothing changes, when `host` is null
   */
  int set_host(const char* host) noexcept;
  /** Whether `text` is not null: what it says is not looked at. */
  static bool is_valid_ipv4(const char* text) noexcept;
  /**
   * Sets the family to AF_INET and takes address and port from a text, which is split at its last
   * ":". Without a ":" nothing but the family is set.
   *
   * What stands before the ":" becomes the address as by set_host() when it has more than 6
   * characters, and is left out otherwise; so "1.2.3:80" and ":80" set the port alone. Its first
   * white space ends the address; what follows up to the ":" does not count. An address of 256
   * characters and more makes 255.255.255.255, as does a scheme in front.
   *
   * What stands after it becomes the port unless it is empty. It is read as a C++ stream in the "C"
   * locale reads an unsigned short: leading white space is skipped, a sign is allowed ("-1" is
   * 65535), and the first character that is not a digit ends the number. A text without a number,
   * or with one above 65535, makes the port 0.
   *
   * @param url  null changes nothing
   * @return 0
   */
  int parse_url(const char* url) noexcept;

 private:
  sockaddr_in m_address;
};

/** Byte order and host names; has no data, and its functions need no object. */
class QIV_API qiv_net_utils {
 public:
  /** Nothing to set up. */
  qiv_net_utils() noexcept;
  /** Nothing to free. */
  virtual ~qiv_net_utils();

  /** 16 bits from the host's order to the network's. */
  static unsigned short qiv_htons(unsigned short value) noexcept;
  /** 16 bits from the network's order to the host's. */
  static unsigned short qiv_ntohs(unsigned short value) noexcept;
  /** 32 bits from the host's order to the network's. */
  static unsigned int qiv_htonl(unsigned int value) noexcept;
  /** 32 bits from the network's order to the host's. */
  static unsigned int qiv_ntohl(unsigned int value) noexcept;
  /**
   * Gets the name of this host. System: gethostname(2).
   *
   * @param buffer  gets the name and its NUL; null is refused
   * @param length  bytes at `buffer`; negative is refused
   * @return 0; -1 with errno, EFAULT for null and EINVAL for a negative length. A name that does
   *         not fit fails, and may leave its beginning in `buffer` without a NUL.
   */
  static int get_host_name(char* buffer, int length) noexcept;
  /**
   * Looks up the IPv4 addresses of a host; may wait for a name server. One thread at a time.
   * System: gethostbyname(3).
   *
   * @param name  a host's name or dotted address; null is refused
   * @return the system's record, which lives until the next call of any thread; null with h_errno
   *         when there is no such host, NO_RECOVERY when `name` is null
   */
  static hostent* get_host_by_name(const char* name);
};

/**
 * Socket calls on IPv4 endpoints; has no data, and its functions need no object. Any threads may
 * call them at once. Failures leave the system's reason in errno, which get_lasterror() reads.
 *
 * A time-out `ms` is in milliseconds, -1 for no limit; a value below -1 makes the wait fail with
 * EINVAL. It bounds all waits of one call together, also when signals interrupt them. Only waits
 * are bounded: on a blocking socket the transfer after a wait may block longer, so make the socket
 * non-blocking where a limit has to hold.
 *
 * Waits use select(2), so they fail with EINVAL for a descriptor of 1024 (FD_SETSIZE) or more and
 * with EBADF for a negative one. The functions of socket.h have no such limit.
 *
 * No send raises SIGPIPE: a connection that the peer has broken gives EPIPE. Negative lengths are
 * refused with EINVAL before anything is waited for.
 */
class QIV_API qiv_sock_utils {
 public:
  /** What is_rdwr() is asked for, and what it reports. */
  enum {
    kReadable = 0x40, /**< the descriptor can be read */
    kWritable = 0x100 /**< the descriptor can be written */
  };

  /** Nothing to set up. */
  qiv_sock_utils() noexcept;
  /** Nothing to free. */
  virtual ~qiv_sock_utils();

  /** Creates a socket. @return a descriptor for closesocket(), or -1. System: socket(2). */
  static int socket(int family, int type, int protocol) noexcept;
  /** Closes a socket. @return 0 or -1. System: close(2). */
  static int closesocket(int descriptor);
  /** Ends receiving (0), sending (1) or both (2). @return 0 or -1. System: shutdown(2). */
  static int shutdown(int descriptor, int how) noexcept;
  /** Gives a socket its local address. @return 0 or -1. System: bind(2). */
  static int bind(int descriptor, const qiv_net_addr& address) noexcept;
  /** Waits for connections, up to `backlog` at once. @return 0 or -1. System: listen(2). */
  static int listen(int descriptor, int backlog) noexcept;

  /**
   * Connects a socket. The time-out works on a non-blocking socket only, and the blocking mode is
   * not changed.
   *
   * @return 0 when connected; -1 otherwise, errno ETIMEDOUT when the time ran out while the
   *         connection was under way
   */
  static int connect(int descriptor, const qiv_net_addr& address, int ms);
  /**
   * Takes a connection.
   *
   * @param descriptor  a listening socket
   * @param peer        gets the peer's address: the first 16 bytes of it when it is not IPv4
   * @param ms          longest wait
   * @return the connection's descriptor, for closesocket(); -1 when the time ran out or on an error
   *         (errno is unspecified when the time ran out)
   */
  static int accept(int descriptor, qiv_net_addr& peer, int ms);

  /**
   * Waits until there is room and sends once.
   *
   * @param descriptor  a connected socket
   * @param data        `length` bytes
   * @param length      bytes to send
   * @param ms          longest wait
   * @param flags       as for send(2); MSG_NOSIGNAL is added
   * @return the number of bytes taken, at least 1; 0 when the time ran out; -1 on an error, also
   *         when nothing was taken, as with a length of 0
   */
  static int send(int descriptor, const char* data, int length, int ms, int flags);
  /**
   * Waits until there is something and receives once.
   *
   * @param descriptor  a connected socket
   * @param buffer      gets at most `length` bytes
   * @param length      bytes at `buffer`
   * @param ms          longest wait
   * @param flags       as for recv(2)
   * @return the number of bytes, at least 1; 0 when the time ran out; -1 when the peer has closed,
   *         for an empty datagram (which is gone then), or on an error
   */
  static int recv(int descriptor, char* buffer, int length, int ms, int flags);
  /**
   * Sends all bytes.
   *
   * @param descriptor  a connected socket
   * @param data        `length` bytes
   * @param length      bytes to send
   * @param ms          longest time for all waits together
   * @param flags       as for send()
   * @return `length`; fewer, or 0, when the time ran out; -1 on an error, also when some bytes have
   *         gone out, and for a length of 0
   */
  static int sendn(int descriptor, const char* data, int length, int ms, int flags);
  /**
   * Receives as many bytes as asked.
   *
   * @param descriptor  a connected socket
   * @param buffer      gets `length` bytes
   * @param length      bytes to receive
   * @param ms          longest time for all waits together
   * @param flags       as for recv()
   * @return `length`; fewer, or 0, when the time ran out; -1 on an error or when the peer closes,
   *         also when some bytes have come, and for a length of 0
   */
  static int recvn(int descriptor, char* buffer, int length, int ms, int flags);
  /**
   * Waits until there is room and sends a datagram.
   *
   * @param descriptor  a datagram socket
   * @param data        `length` bytes
   * @param length      bytes to send; 0 sends an empty datagram
   * @param address     where to
   * @param ms          longest wait
   * @param flags       as for sendto(2); MSG_NOSIGNAL is added
   * @return the number of bytes; 0 when the time ran out too; -1 on an error
   */
  static int sendto(int descriptor, const char* data, int length, const qiv_net_addr& address,
                    int ms, int flags);
  /**
   * Waits for a datagram and receives it.
   *
   * @param descriptor  a datagram socket
   * @param buffer      gets at most `length` bytes; the rest of a longer datagram is lost
   * @param length      bytes at `buffer`
   * @param source      gets the sender's address when a datagram was received: its first 16 bytes
   *                    when it is not IPv4, port 0 of 0.0.0.0 when the system tells none
   * @param ms          longest wait
   * @param flags       as for recvfrom(2)
   * @return as recv()
   */
  static int recvfrom(int descriptor, char* buffer, int length, qiv_net_addr& source, int ms,
                      int flags);

  /**
   * Gets both ends of a connection, the local one first.
   *
   * @return 0; -1 at the first failure. When there is no peer, `local` has been set.
   */
  static int getaddrbyfd(int descriptor, qiv_net_addr& peer, qiv_net_addr& local) noexcept;

  /**
   * Joins an IPv4 multicast group on the interface that has the local address.
   *
   * @return 0 or -1. System: ip(7) IP_ADD_MEMBERSHIP.
   */
  static int join_multicast_group(int descriptor, const qiv_net_addr& local,
                                  const qiv_net_addr& group) noexcept;
  /** Leaves a group that was joined so. @return 0 or -1. System: ip(7) IP_DROP_MEMBERSHIP. */
  static int leave_multicast_group(int descriptor, const qiv_net_addr& local,
                                   const qiv_net_addr& group) noexcept;

  /** Sets an option to `length` bytes. @return 0 or -1. System: setsockopt(2). */
  static int set_sock_opt(int descriptor, int level, int name, const char* value,
                          int length) noexcept;
  /** Reads an option; `length` tells the room and becomes the size. System: getsockopt(2). */
  static int get_sock_opt(int descriptor, int level, int name, char* value, int* length) noexcept;
  /** Above 0: calls fail with EAGAIN instead of waiting. Otherwise they wait. @return as fcntl(2)
   */
  static int set_nonblock(int descriptor, int on) noexcept;
  /** Above 0: the local address may be in use, see socket(7) SO_REUSEADDR. @return 0 or -1 */
  static int set_reuseaddr(int descriptor, int on) noexcept;
  /** Makes a close discard what is not sent and reset the connection. @return 0 or -1 */
  static int set_tcp_dontlinger(int descriptor) noexcept;
  /** Sends small pieces at once, see tcp(7) TCP_NODELAY. @return 0 or -1 */
  static int set_tcp_nodelay(int descriptor) noexcept;
  /** Sets the hops of what is sent, see ip(7) IP_TTL. @return 0 or -1 */
  static int set_ttl(int descriptor, int ttl) noexcept;
  /**
   * Sets the buffers' sizes, as socket(7) SO_RCVBUF and SO_SNDBUF count them. A negative size
   * leaves its buffer alone; with QIV_SetBuffSize() 0 does.
   *
   * @return 0; -1 at the first failure
   */
  static int set_buffsize(int descriptor, int receive, int send) noexcept;
  /** The calling thread's errno. */
  static int get_lasterror() noexcept;

  /** select(2) that leaves `timeout` as it is. A signal ends it with EINTR. */
  static int select_ctime(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout);
  /** select(2) that lowers `timeout` by the time spent and goes on after a signal. */
  static int select_vtime(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout);

  /**
   * Waits for one descriptor.
   *
   * @param descriptor  0 to 1023
   * @param timeout     longest wait, lowered by the time spent; null is no limit
   * @param mask        kReadable, kWritable or both; other bits do not count
   * @return kReadable, kWritable or their sum for what holds; 0 when the time ran out; -1 on an
   *         error, or for a mask with neither
   */
  static int is_rdwr(int descriptor, timeval* timeout, int mask);
  /** is_rdwr() with kReadable. */
  static int is_rd(int descriptor, timeval* timeout);
  /** is_rdwr() with kWritable. */
  static int is_wr(int descriptor, timeval* timeout);

  /**
   * poll(2) against a budget of time, at most 2147483647 ms, which is never lowered below 0.
   *
   * @param records  `count` records
   * @param count    number of records
   * @param budget   longest wait, rounded to milliseconds and lowered by the time spent; a signal
   *                 does not end the wait. Null is no limit, and a signal ends the wait with EINTR.
   *                 A negative budget is no limit until a signal comes, and 0 afterwards.
   * @return the number of records with a non-zero `revents`; 0 when the time ran out; -1 on an
   * error
   */
  static int poll_vtime(pollfd* records, unsigned long count, timeval* budget);
};

}  // namespace qiv

#endif  // __cplusplus

#endif
