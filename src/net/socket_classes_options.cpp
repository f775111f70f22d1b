// The class layer's socket options, and its calls that pass straight to the system.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <qiv/socket_classes.h>
#include <unistd.h>

#include <cerrno>

namespace qiv {
namespace {

static_assert(sizeof(qiv_sock_utils) == sizeof(void*));
static_assert(sizeof(ip_mreq) == 8 && sizeof(linger) == 8);

template <class Value>
int SetOption(int descriptor, int level, int name, const Value& value) {
  return ::setsockopt(descriptor, level, name, &value, sizeof(value));
}

int ChangeMembership(int descriptor, const qiv_net_addr& local, const qiv_net_addr& group,
                     int option) {
  ip_mreq request = {};
  group.get_addr(request.imr_multiaddr);
  local.get_addr(request.imr_interface);
  return SetOption(descriptor, IPPROTO_IP, option, request);
}

}  // namespace

qiv_sock_utils::qiv_sock_utils() noexcept = default;
qiv_sock_utils::~qiv_sock_utils() = default;

int qiv_sock_utils::socket(int family, int type, int protocol) noexcept {
  return ::socket(family, type, protocol);
}

int qiv_sock_utils::closesocket(int descriptor) { return ::close(descriptor); }

int qiv_sock_utils::shutdown(int descriptor, int how) noexcept {
  return ::shutdown(descriptor, how);
}

int qiv_sock_utils::listen(int descriptor, int backlog) noexcept {
  return ::listen(descriptor, backlog);
}

int qiv_sock_utils::join_multicast_group(int descriptor, const qiv_net_addr& local,
                                         const qiv_net_addr& group) noexcept {
  return ChangeMembership(descriptor, local, group, IP_ADD_MEMBERSHIP);
}

int qiv_sock_utils::leave_multicast_group(int descriptor, const qiv_net_addr& local,
                                          const qiv_net_addr& group) noexcept {
  return ChangeMembership(descriptor, local, group, IP_DROP_MEMBERSHIP);
}

int qiv_sock_utils::set_sock_opt(int descriptor, int level, int name, const char* value,
                                 int length) noexcept {
  return ::setsockopt(descriptor, level, name, value, static_cast<socklen_t>(length));
}

int qiv_sock_utils::get_sock_opt(int descriptor, int level, int name, char* value,
                                 int* length) noexcept {
  return ::getsockopt(descriptor, level, name, value, reinterpret_cast<socklen_t*>(length));
}

int qiv_sock_utils::set_nonblock(int descriptor, int on) noexcept {
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags == -1) return QIV_ERROR;
  return ::fcntl(descriptor, F_SETFL, on > 0 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

int qiv_sock_utils::set_reuseaddr(int descriptor, int on) noexcept {
  return SetOption(descriptor, SOL_SOCKET, SO_REUSEADDR, on > 0 ? 1 : 0);
}

int qiv_sock_utils::set_tcp_dontlinger(int descriptor) noexcept {
  // Kept: whatever the name says, the linger option is on, with no time.
  return SetOption(descriptor, SOL_SOCKET, SO_LINGER, linger{1, 0});
}

int qiv_sock_utils::set_tcp_nodelay(int descriptor) noexcept {
  return SetOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
}

int qiv_sock_utils::set_ttl(int descriptor, int ttl) noexcept {
  return SetOption(descriptor, IPPROTO_IP, IP_TTL, ttl);
}

int qiv_sock_utils::set_buffsize(int descriptor, int receive, int send) noexcept {
  if (receive >= 0 && SetOption(descriptor, SOL_SOCKET, SO_RCVBUF, receive) != 0) return QIV_ERROR;
  if (send < 0) return QIV_OK;
  return SetOption(descriptor, SOL_SOCKET, SO_SNDBUF, send) == 0 ? QIV_OK : QIV_ERROR;
}

int qiv_sock_utils::get_lasterror() noexcept { return errno; }

}  // namespace qiv
