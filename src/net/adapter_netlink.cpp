#include "net/adapter_netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <qiv/debug.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "base/descriptor.h"

namespace qiv::net {
namespace {

constexpr timeval kAnswerLimit = {3, 0};

// Signals and messages of others that the wait for one answer lives through.
constexpr int kMaxInterruptions = 100;

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

/** Waits for a message and gives its length; -1 when there is none. Leaves it to be received. */
ssize_t AwaitMessage(int socket) noexcept {
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kAnswerLimit, sizeof(kAnswerLimit));
  return recv(socket, nullptr, 0, MSG_PEEK | MSG_TRUNC);
}

/** Receives a message whole. Only those of the kernel are answers: others may send too. */
bool Receive(int socket, AnswerBuffer& buffer, Reply& answer, bool& isFromKernel) noexcept {
  sockaddr_nl sender = {};
  socklen_t senderLength = sizeof(sender);
  const ssize_t received = recvfrom(socket, buffer.bytes.get(), buffer.size, 0,
                                    reinterpret_cast<sockaddr*>(&sender), &senderLength);
  if (received < 0) return false;
  answer = {buffer.bytes.get(), static_cast<std::size_t>(received)};
  isFromKernel = sender.nl_pid == 0;
  return true;
}

bool NextAnswer(int socket, AnswerBuffer& buffer, Reply& answer) noexcept {
  for (int i = 0; i < kMaxInterruptions; ++i) {
    const ssize_t length = AwaitMessage(socket);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 || !buffer.MakeRoomFor(static_cast<std::size_t>(length))) return false;
    bool isFromKernel = false;
    if (!Receive(socket, buffer, answer, isFromKernel)) return false;
    if (isFromKernel) return true;
  }
  return false;
}

/** Sends a request and reads its answers to their end; false when it cannot be sent. */
template <class Request, class Table>
bool Dump(int socket, const Request& request, AnswerBuffer& buffer,
          bool (*take)(Reply, std::uint32_t, Table&), Table& out) noexcept {
  if (!Send(socket, request)) return false;
  Reply answer = {};
  while (NextAnswer(socket, buffer, answer) && take(answer, request.header.nlmsg_seq, out)) {
  }
  return true;
}

bool Fail(const char* format) noexcept {
  QIV_OutputDebug(format, errno);
  return false;
}

}  // namespace

bool AskLinksAndIpv6Addresses(LinkTable& links, Ipv6Table& addresses) noexcept {
  const base::Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!socket.IsOpen()) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 0 socket,errno=%d\n");
  }
  if (!BindToFreePort(socket.Get())) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 1 bind,errno=%d\n");
  }
  if (!DumpLinksAndIpv6Addresses(socket.Get(), links, addresses)) {
    return Fail("zelmar GetIPv6ToAdapterInfo_Inter_Posix error 2 sendto,errno=%d\n");
  }
  return true;
}

bool DumpLinksAndIpv6Addresses(int socket, LinkTable& links, Ipv6Table& addresses) noexcept {
  links = {};
  addresses = {};
  AnswerBuffer buffer;
  const auto linkRequest = MakeRequest<LinkRequest>(RTM_GETLINK, 1);
  if (!Dump(socket, linkRequest, buffer, TakeLinks, links)) return false;
  auto addressRequest = MakeRequest<AddressRequest>(RTM_GETADDR, 2);
  addressRequest.address.ifa_family = AF_INET6;
  return Dump(socket, addressRequest, buffer, TakeIpv6Addresses, addresses);
}

}  // namespace qiv::net
