// The load of async_echo: ping-pong on several connections from one thread.
#pragma once

#include <chrono>
#include <vector>

#include "loopback.h"

namespace bench {

// Plays ping-pong for a time, after a short warm-up, and counts the messages that came back. Throws
// std::runtime_error when a connection fails or an echo differs.
double MessagesPerSecond(std::vector<Descriptor> connections, std::chrono::milliseconds time);

}  // namespace bench
