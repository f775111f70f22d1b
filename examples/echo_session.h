// One client of the echo server: receives up to a message, sends it back, and so on.
//
// The next receive starts when the echo has left, so a client that does not read its echo holds one
// buffer and no more. The callbacks, all on the socket's worker, never end the session: they set
// `ended` and ring the bell, and the main thread destroys it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "bell.h"
#include "engine.h"
#include "stream_sender.h"

namespace echo {

class EchoSession final : private StreamSender::Owner {
 public:
  // Takes the descriptor; throws when it cannot be bound.
  EchoSession(int descriptor, std::size_t messageSize, const CompletionQueue& queue, Bell& bell);

  void Start();

  bool Ended() const { return m_ended.load(std::memory_order_acquire); }
  std::uint64_t EchoedBytes() const { return m_echoedBytes.load(std::memory_order_relaxed); }

 private:
  static void OnReceived(unsigned int error, unsigned int bytes, void* user);
  void OnSent() override;
  void OnSendFailed(int error) override;
  void Receive();
  void End();

  Bell& m_bell;
  std::vector<char> m_buffer;
  std::size_t m_received = 0;
  StreamSender m_sender;
  std::atomic<std::uint64_t> m_echoedBytes{0};
  std::atomic<bool> m_ended{false};
  BoundSocket m_socket;  // last: closed first, after which no callback uses the others
};

}  // namespace echo
