// The echo client's transfer: a file cut into one range per connection, streamed at once.
//
// Belongs to the main thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>

#include "bell.h"
#include "engine.h"
#include "file_stream.h"
#include "input_file.h"

namespace echo {

struct ClientSettings {
  int port = 7777;
  int connections = 4;
  int messageSize = 65536;
  int workers = 2;
};

class Transfer {
 public:
  enum class End { kComplete, kInterrupted, kStalled };

  Transfer(const InputFile& file, const ClientSettings& settings, Bell& bell);

  // Returns when every stream has finished, the bell asks to stop, or no byte has come back for a
  // long time; no stream goes on afterwards.
  End Run();

  const std::list<FileStream>& Streams() const { return m_streams; }
  std::uint64_t EqualBytes() const;
  std::chrono::steady_clock::time_point StartTime() const { return m_startTime; }

 private:
  End WaitForStreams();
  bool CloseFinished();

  const ClientSettings m_settings;
  const std::uint64_t m_totalBytes;
  Bell& m_bell;
  CompletionQueue m_queue;
  std::list<FileStream> m_streams;  // after the queue: destroyed first
  std::chrono::steady_clock::time_point m_startTime;
};

}  // namespace echo
