#include "net/adapter_netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <qiv/debug.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "base/descriptor.h"

namespace qiv::net {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kAnswerLimit{3};

struct LinkRequest {
  nlmsghdr header;
  ifinfomsg link;
};
static_assert(sizeof(LinkRequest) == 32, "no filling in between");

struct AddressRequest {
  nlmsghdr header;
  ifaddrmsg address;
};
static_assert(sizeof(AddressRequest) == 24, "no filling in between");

template <class Request>
Request MakeRequest(std::uint16_t type, std::uint32_t sequence) noexcept {
  Request request = {};
  request.header.nlmsg_len = sizeof(request);
  request.header.nlmsg_type = type;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT | NLM_F_MATCH;
  request.header.nlmsg_seq = sequence;
  return request;
}

/** Memory for answers, which grows to the longest. */
struct AnswerBuffer {
  std::unique_ptr<unsigned char[]> bytes;
  std::size_t size = 0;

  bool MakeRoomFor(std::size_t length) noexcept {
    if (length <= size) return true;
    bytes.reset(new (std::nothrow) unsigned char[length]);
    size = bytes == nullptr ? 0 : length;
    return bytes != nullptr;
  }
};

sockaddr_nl PortAddress(pid_t port) noexcept {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = static_cast<std::uint32_t>(port);
  return address;
}

bool BindToPort(int socket, pid_t port) noexcept {
  const sockaddr_nl address = PortAddress(port);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// The process id may be the port of another thread's query or of a socket of the program; the
// kernel chooses a free port then.
bool BindToFreePort(int socket) noexcept {
  if (BindToPort(socket, getpid())) return true;
  return errno == EADDRINUSE && BindToPort(socket, 0);
}

template <class Request>
bool Send(int socket, const Request& request) noexcept {
  const sockaddr_nl kernel = PortAddress(0);
  return sendto(socket, &request, sizeof(request), 0, reinterpret_cast<const sockaddr*>(&kernel),
                sizeof(kernel)) != -1;
}

/** False when the time is up. */
bool LimitWait(int socket, Clock::time_point deadline) noexcept {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
  if (left.count() <= 0) return false;  // a limit of 0 would be none
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  timeval limit = {};
  limit.tv_sec = static_cast<time_t>(seconds.count());
  limit.tv_usec = static_cast<suseconds_t>((left - seconds).count());
  return setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0;
}

/** Waits for a message and gives its length; -1 when there is none. Leaves it to be received. */
ssize_t AwaitMessage(int socket, Clock::time_point deadline) noexcept {
  ssize_t length = 0;
  do {
    if (!LimitWait(socket, deadline)) return -1;
    length = recv(socket, nullptr, 0, MSG_PEEK | MSG_TRUNC);
  } while (length < 0 && errno == EINTR);
  return length;
}

/**
 * Receives an answer whole. Only what the kernel sends is one: others may send too, which extends
 * the wait no more than signals do.
 */
bool NextAnswer(int socket, AnswerBuffer& buffer, Reply& answer) noexcept {
  const Clock::time_point deadline = Clock::now() + kAnswerLimit;
  sockaddr_nl sender = {};
  do {
    const ssize_t length = AwaitMessage(socket, deadline);
    if (length < 0 || !buffer.MakeRoomFor(static_cast<std::size_t>(length))) return false;
    socklen_t senderLength = sizeof(sender);
    const ssize_t received = recvfrom(socket, buffer.bytes.get(), buffer.size, 0,
                                      reinterpret_cast<sockaddr*>(&sender), &senderLength);
    if (received < 0) return false;
    answer = {buffer.bytes.get(), static_cast<std::size_t>(received)};
  } while (sender.nl_pid != 0);
  return true;
}

/** Sends a request and reads its answers to their end; 0, or errno when it cannot be sent. */
template <class Request, class Table>
int Dump(int socket, const Request& request, AnswerBuffer& buffer,
         bool (*take)(Reply, std::uint32_t, Table&), Table& out) noexcept {
  if (!Send(socket, request)) return errno;
  Reply answer = {};
  while (NextAnswer(socket, buffer, answer) && take(answer, request.header.nlmsg_seq, out)) {
  }
  return 0;
}

bool Fail(const char* format, int error) noexcept {
  QIV_OutputDebug(format, error);
  return false;
}

}  // namespace

bool AskLinksAndIpv6Addresses(LinkTable& links, Ipv6Table& addresses) noexcept {
  const base::Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!socket.IsOpen()) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 0 socket,errno=%d\n", errno);
  }
  if (!BindToFreePort(socket.Get())) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 1 bind,errno=%d\n", errno);
  }
  const int error = DumpLinksAndIpv6Addresses(socket.Get(), links, addresses);
  if (error != 0) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 2 sendto,errno=%d\n", error);
  }
  return true;
}

int DumpLinksAndIpv6Addresses(int socket, LinkTable& links, Ipv6Table& addresses) noexcept {
  links = {};
  addresses = {};
  AnswerBuffer buffer;
  const auto linkRequest = MakeRequest<LinkRequest>(RTM_GETLINK, 1);
  const int error = Dump(socket, linkRequest, buffer, TakeLinks, links);
  if (error != 0) return error;
  auto addressRequest = MakeRequest<AddressRequest>(RTM_GETADDR, 2);
  addressRequest.address.ifa_family = AF_INET6;
  return Dump(socket, addressRequest, buffer, TakeIpv6Addresses, addresses);
}

}  // namespace qiv::net
