// The class layer's connections and transfers. The waits of one call share one budget of time.
#include <qiv/socket_classes.h>
#include <qiv/time_classes.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace qiv {
namespace {

constexpr int kNoLimit = -1;
constexpr socklen_t kAddressLength = sizeof(sockaddr_in);

/** What is left of a call's time-out. */
class Budget {
 public:
  explicit Budget(int ms) : m_isLimited(ms != kNoLimit) { qiv_time_tick::ms2timeval(ms, &m_left); }

  /** What a wait takes and lowers; null for no limit. */
  timeval* Left() { return m_isLimited ? &m_left : nullptr; }
  bool IsUsedUp() const { return m_isLimited && !timerisset(&m_left); }

 private:
  bool m_isLimited;
  timeval m_left = {-1, 0};  // what a negative time-out leaves: select() fails with EINVAL
};

sockaddr_in SystemAddress(const qiv_net_addr& address) {
  sockaddr_in system = {};
  address.get_addr(system);
  return system;
}

/** A place for an address that the system may not write, as on a connected stream. */
sockaddr_in NoAddress() { return SystemAddress(qiv_net_addr()); }

const sockaddr* AsSystemCallsTakeIt(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

sockaddr* AsSystemCallsTakeIt(sockaddr_in& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

bool IsLength(int length) {
  if (length >= 0) return true;
  errno = EINVAL;
  return false;
}

int ResultOfTransfer(ssize_t count) { return count < 1 ? QIV_ERROR : static_cast<int>(count); }

int SendOnce(int descriptor, const char* data, int length, int flags) {
  return ResultOfTransfer(
      ::send(descriptor, data, static_cast<std::size_t>(length), flags | MSG_NOSIGNAL));
}

int ReceiveOnce(int descriptor, char* buffer, int length, int flags) {
  return ResultOfTransfer(::recv(descriptor, buffer, static_cast<std::size_t>(length), flags));
}

/** Waits and transfers until everything is done or the time has run out. */
template <class Byte>
int TransferAll(int (*wait)(int, timeval*), int (*transfer)(int, Byte*, int, int), int descriptor,
                Byte* bytes, int length, int ms, int flags) {
  if (!IsLength(length)) return QIV_ERROR;
  Budget budget(ms);
  int done = 0;
  do {
    const int ready = wait(descriptor, budget.Left());
    if (ready == 0) return done;
    if (ready < 0) return QIV_ERROR;
    const int count = transfer(descriptor, bytes + done, length - done, flags);
    // Kept: what has been transferred before does not count then.
    if (count < 1) return QIV_ERROR;
    // With MSG_TRUNC, the system tells the length of a datagram that did not fit.
    done += std::min(count, length - done);
    if (done == length) return length;
  } while (!budget.IsUsedUp());
  return done;
}

}  // namespace

int qiv_sock_utils::bind(int descriptor, const qiv_net_addr& address) noexcept {
  const sockaddr_in system = SystemAddress(address);
  return ::bind(descriptor, AsSystemCallsTakeIt(system), kAddressLength);
}

int qiv_sock_utils::connect(int descriptor, const qiv_net_addr& address, int ms) {
  const sockaddr_in system = SystemAddress(address);
  if (::connect(descriptor, AsSystemCallsTakeIt(system), kAddressLength) == 0) return QIV_OK;
  if (errno != EINPROGRESS) return QIV_ERROR;
  Budget budget(ms);
  const int ready = is_wr(descriptor, budget.Left());
  if (ready == 0) errno = ETIMEDOUT;
  if (ready <= 0) return QIV_ERROR;
  int error = 0;
  int length = sizeof(error);
  if (get_sock_opt(descriptor, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) !=
      0) {
    return QIV_ERROR;
  }
  if (error == 0) return QIV_OK;
  errno = error;
  return QIV_ERROR;
}

int qiv_sock_utils::accept(int descriptor, qiv_net_addr& peer, int ms) {
  Budget budget(ms);
  if (is_rd(descriptor, budget.Left()) <= 0) return QIV_ERROR;
  sockaddr_in address = NoAddress();
  socklen_t length = kAddressLength;
  const int connection = ::accept(descriptor, AsSystemCallsTakeIt(address), &length);
  if (connection == -1) return QIV_ERROR;
  peer.set_addr(address);
  return connection;
}

int qiv_sock_utils::send(int descriptor, const char* data, int length, int ms, int flags) {
  if (!IsLength(length)) return QIV_ERROR;
  Budget budget(ms);
  const int ready = is_wr(descriptor, budget.Left());
  return ready <= 0 ? ready : SendOnce(descriptor, data, length, flags);
}

int qiv_sock_utils::recv(int descriptor, char* buffer, int length, int ms, int flags) {
  if (!IsLength(length)) return QIV_ERROR;
  Budget budget(ms);
  const int ready = is_rd(descriptor, budget.Left());
  return ready <= 0 ? ready : ReceiveOnce(descriptor, buffer, length, flags);
}

int qiv_sock_utils::sendn(int descriptor, const char* data, int length, int ms, int flags) {
  return TransferAll(is_wr, SendOnce, descriptor, data, length, ms, flags);
}

int qiv_sock_utils::recvn(int descriptor, char* buffer, int length, int ms, int flags) {
  return TransferAll(is_rd, ReceiveOnce, descriptor, buffer, length, ms, flags);
}

int qiv_sock_utils::sendto(int descriptor, const char* data, int length,
                           const qiv_net_addr& address, int ms, int flags) {
  if (!IsLength(length)) return QIV_ERROR;
  Budget budget(ms);
  const int ready = is_wr(descriptor, budget.Left());
  if (ready <= 0) return ready;
  const sockaddr_in system = SystemAddress(address);
  return static_cast<int>(::sendto(descriptor, data, static_cast<std::size_t>(length),
                                   flags | MSG_NOSIGNAL, AsSystemCallsTakeIt(system),
                                   kAddressLength));
}

int qiv_sock_utils::recvfrom(int descriptor, char* buffer, int length, qiv_net_addr& source, int ms,
                             int flags) {
  if (!IsLength(length)) return QIV_ERROR;
  Budget budget(ms);
  const int ready = is_rd(descriptor, budget.Left());
  if (ready <= 0) return ready;
  sockaddr_in address = NoAddress();
  socklen_t addressLength = kAddressLength;
  const int count =
      ResultOfTransfer(::recvfrom(descriptor, buffer, static_cast<std::size_t>(length), flags,
                                  AsSystemCallsTakeIt(address), &addressLength));
  if (count != QIV_ERROR) source.set_addr(address);
  return count;
}

int qiv_sock_utils::getaddrbyfd(int descriptor, qiv_net_addr& peer, qiv_net_addr& local) noexcept {
  sockaddr_in address = NoAddress();
  socklen_t length = kAddressLength;
  if (::getsockname(descriptor, AsSystemCallsTakeIt(address), &length) != 0) return QIV_ERROR;
  local.set_addr(address);
  address = NoAddress();
  length = kAddressLength;
  if (::getpeername(descriptor, AsSystemCallsTakeIt(address), &length) != 0) return QIV_ERROR;
  peer.set_addr(address);
  return QIV_OK;
}

}  // namespace qiv
