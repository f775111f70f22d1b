#include "echo_load.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cstring>
#include <list>
#include <stdexcept>
#include <utility>

#include "echo_servers.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStallMs = 5000;
constexpr std::chrono::milliseconds kWarmUp(20);

// One connection, with at most one message under way.
struct Player {
  explicit Player(Descriptor socket) : connection(std::move(socket)) {}

  void Serve() {
    std::memset(message, static_cast<int>(++count & 0xff), kMessageSize);
    received = 0;
    if (send(connection.Get(), message, kMessageSize, MSG_NOSIGNAL) !=
        static_cast<ssize_t>(kMessageSize)) {
      throw std::runtime_error("a message could not be sent");
    }
  }

  // Whether the message is back as a whole.
  bool Receive() {
    const ssize_t length =
        recv(connection.Get(), echo + received, kMessageSize - received, MSG_DONTWAIT);
    if (length <= 0) {
      throw std::runtime_error("a connection broke");
    }
    received += static_cast<std::size_t>(length);
    if (received == kMessageSize && std::memcmp(message, echo, kMessageSize) != 0) {
      throw std::runtime_error("an echo differs");
    }
    return received == kMessageSize;
  }

  Descriptor connection;
  char message[kMessageSize] = {};
  char echo[kMessageSize] = {};
  std::size_t received = 0;
  unsigned int count = 0;
};

// Plays until `end`; the number of messages that came back.
long long Play(const Descriptor& set, Clock::time_point end) {
  long long messages = 0;
  epoll_event events[64];
  while (Clock::now() < end) {
    const int ready = epoll_wait(set.Get(), events, 64, kStallMs);
    Check(ready, "epoll_wait");
    if (ready == 0) {
      throw std::runtime_error("the server has stalled");
    }
    for (int i = 0; i < ready; ++i) {
      auto* player = static_cast<Player*>(events[i].data.ptr);
      if (player->Receive()) {
        ++messages;
        player->Serve();
      }
    }
  }
  return messages;
}

}  // namespace

double MessagesPerSecond(std::vector<Descriptor> connections, std::chrono::milliseconds time) {
  const Descriptor set(epoll_create1(EPOLL_CLOEXEC));
  std::list<Player> players;
  for (Descriptor& connection : connections) {
    players.emplace_back(std::move(connection));
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = &players.back();
    Check(epoll_ctl(set.Get(), EPOLL_CTL_ADD, players.back().connection.Get(), &event),
          "epoll_ctl");
  }
  for (Player& player : players) {
    player.Serve();
  }
  Play(set, Clock::now() + kWarmUp);
  const Clock::time_point start = Clock::now();
  const long long messages = Play(set, start + time);
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  return static_cast<double>(messages) / elapsed.count();
}

}  // namespace bench
