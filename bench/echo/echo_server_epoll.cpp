// What one would write by hand: receive and send on one thread, straight on epoll.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <thread>
#include <utility>

#include "echo_servers.h"

namespace bench {
namespace {

class EpollServer final : public EchoServer {
 public:
  explicit EpollServer(std::vector<Descriptor> sockets)
      : m_sockets(std::move(sockets)),
        m_set(epoll_create1(EPOLL_CLOEXEC)),
        m_stop(eventfd(0, EFD_CLOEXEC)) {
    Watch(m_stop.Get());
    for (const Descriptor& socket : m_sockets) {
      Watch(socket.Get());
    }
    m_thread = std::thread([this] { Run(); });
  }

  ~EpollServer() override {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_stop.Get(), &one, sizeof(one));
    m_thread.join();
  }

 private:
  void Watch(int descriptor) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    Check(epoll_ctl(m_set.Get(), EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
  }

  void Run() {
    epoll_event events[64];
    for (;;) {
      const int ready = epoll_wait(m_set.Get(), events, 64, -1);
      for (int i = 0; i < ready; ++i) {
        if (events[i].data.fd == m_stop.Get()) {
          return;
        }
        Echo(events[i].data.fd);
      }
    }
  }

  void Echo(int socket) {
    char message[kMessageSize];
    const ssize_t length = recv(socket, message, sizeof(message), MSG_DONTWAIT);
    // The socket of a client that plays ping-pong has room for a message.
    if (length <= 0 || send(socket, message, static_cast<std::size_t>(length),
                            MSG_DONTWAIT | MSG_NOSIGNAL) != length) {
      epoll_ctl(m_set.Get(), EPOLL_CTL_DEL, socket, nullptr);
    }
  }

  std::vector<Descriptor> m_sockets;
  Descriptor m_set;
  Descriptor m_stop;
  std::thread m_thread;
};

}  // namespace

std::unique_ptr<EchoServer> MakeEpollServer(std::vector<Descriptor> sockets) {
  return std::make_unique<EpollServer>(std::move(sockets));
}

}  // namespace bench
