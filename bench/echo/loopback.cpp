#include "loopback.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace bench {
namespace {

Descriptor NewSocket() { return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

void SetNoDelay(const Descriptor& socket) {
  const int on = 1;
  Check(setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)), "TCP_NODELAY");
}

}  // namespace

Descriptor::Descriptor(int value) : m_value(value) { Check(value, "cannot open a descriptor"); }

Descriptor::~Descriptor() {
  if (m_value != -1) {
    close(m_value);
  }
}

void Check(int result, const char* what) {
  if (result == -1) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

Connections MakeConnections(int count) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof(address);

  const Descriptor listener = NewSocket();
  Check(bind(listener.Get(), generic, length), "bind");
  Check(listen(listener.Get(), 1), "listen");
  Check(getsockname(listener.Get(), generic, &length), "getsockname");

  Connections connections;
  for (int i = 0; i < count; ++i) {
    Descriptor& client = connections.clientEnds.emplace_back(NewSocket());
    Check(connect(client.Get(), generic, length), "connect");
    Descriptor& server = connections.serverEnds.emplace_back(
        accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    SetNoDelay(client);
    SetNoDelay(server);
  }
  return connections;
}

}  // namespace bench
