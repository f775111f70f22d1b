// The two echo servers that async_echo compares. Each serves connected sockets on one thread until
// it is destroyed.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "loopback.h"

namespace bench {

// Bytes of a message, and of the servers' receives.
constexpr std::size_t kMessageSize = 64;

class EchoServer {
 public:
  virtual ~EchoServer() = default;
};

// On a completion queue with one worker. Throws std::runtime_error.
std::unique_ptr<EchoServer> MakeQivServer(std::vector<Descriptor> sockets);

// On a level-triggered epoll set. Throws std::runtime_error.
std::unique_ptr<EchoServer> MakeEpollServer(std::vector<Descriptor> sockets);

}  // namespace bench
