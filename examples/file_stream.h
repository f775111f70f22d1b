// One connection of the echo client: sends a range of the file and compares what comes back.
//
// Bytes on their way are kept in a ring, which bounds them: a message is sent only when the ring
// has room for it. All callbacks run on the socket's worker and own everything but the two atomics,
// by which the main thread follows them; after Finished() the outcome is the main thread's to read.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bell.h"
#include "engine.h"
#include "input_file.h"
#include "stream_sender.h"

namespace echo {

struct FileRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

class FileStream final : private StreamSender::Owner {
 public:
  FileStream(const InputFile& file, FileRange range, std::size_t messageSize,
             const CompletionQueue& queue, Bell& bell);

  void Start(const QIV_ADDR_T& server);
  void Close() { m_socket.Close(); }  // repeated calls do nothing

  bool Finished() const { return m_finished.load(std::memory_order_acquire); }
  std::uint64_t EqualBytes() const { return m_equal.load(std::memory_order_relaxed); }
  const FileRange& Range() const { return m_range; }

  // After Finished(): whether the whole range came back equal, and if not, what happened.
  bool Succeeded() const { return m_outcome == Outcome::kEqual; }
  bool Broken() const { return m_outcome == Outcome::kClosed || m_outcome == Outcome::kSendFailed; }
  std::string Failure() const;
  std::chrono::steady_clock::time_point FinishTime() const { return m_finishTime; }

 private:
  enum class Outcome {
    kEqual,
    kNotConnected,
    kDifferent,
    kTooMuch,
    kClosed,
    kSendFailed,
    kFileUnreadable,
    kRefused,
  };

  static void OnConnected(unsigned int error, unsigned int bytes, void* user);
  static void OnReceived(unsigned int error, unsigned int bytes, void* user);
  void OnSent() override;
  void OnSendFailed(int error) override;
  void SendMore();
  void Receive();
  void TakeEcho(std::size_t length);
  bool Compare(std::size_t length);
  void EndIfComplete();
  void Finish(Outcome outcome, int error);

  const InputFile& m_file;
  const FileRange m_range;
  const std::size_t m_messageSize;
  Bell& m_bell;
  std::vector<char> m_ring;      // what was sent and has not come back, at its offset modulo size
  std::vector<char> m_received;  // what one receive brings
  std::uint64_t m_sent = 0;
  StreamSender m_sender;
  std::atomic<std::uint64_t> m_equal{0};

  Outcome m_outcome = Outcome::kEqual;
  int m_error = 0;
  unsigned char m_expected = 0;
  unsigned char m_got = 0;
  std::chrono::steady_clock::time_point m_finishTime;
  std::atomic<bool> m_finished{false};
  BoundSocket m_socket;  // last: closed first, after which no callback uses the others
};

}  // namespace echo
