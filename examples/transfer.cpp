#include "transfer.h"

#include <algorithm>

#include "progress.h"

namespace echo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kProgressMs = 200;
constexpr std::chrono::seconds kStallLimit(30);

// The ranges follow one another and differ in length by at most one byte; those beyond the end of
// a very short file are empty.
FileRange RangeOf(std::uint64_t size, std::uint64_t index, std::uint64_t count) {
  const std::uint64_t share = size / count;
  const std::uint64_t longer = size % count;
  return {index * share + std::min(index, longer), share + (index < longer ? 1 : 0)};
}

}  // namespace

Transfer::Transfer(const InputFile& file, const ClientSettings& settings, Bell& bell)
    : m_settings(settings), m_totalBytes(file.Size()), m_bell(bell), m_queue(settings.workers) {
  const auto count = static_cast<std::uint64_t>(settings.connections);
  const auto messageSize = static_cast<std::size_t>(settings.messageSize);
  for (std::uint64_t i = 0; i < count; ++i) {
    m_streams.emplace_back(file, RangeOf(file.Size(), i, count), messageSize, m_queue, bell);
  }
}

Transfer::End Transfer::Run() {
  m_startTime = Clock::now();
  const QIV_ADDR_T server = LoopbackAddress(m_settings.port);
  for (FileStream& stream : m_streams) {
    stream.Start(server);
  }
  const End end = WaitForStreams();
  for (FileStream& stream : m_streams) {
    stream.Close();
  }
  return end;
}

Transfer::End Transfer::WaitForStreams() {
  Progress progress(m_totalBytes);
  std::uint64_t lastBytes = 0;
  Clock::time_point lastMove = Clock::now();
  while (!CloseFinished()) {
    m_bell.Wait(kProgressMs);
    const std::uint64_t bytes = EqualBytes();
    progress.Show(bytes);
    if (bytes != lastBytes) {
      lastBytes = bytes;
      lastMove = Clock::now();
    }
    if (m_bell.StopAsked()) {
      return End::kInterrupted;
    }
    if (Clock::now() - lastMove > kStallLimit) {
      return End::kStalled;
    }
  }
  // A server that the same Ctrl-C has stopped may have broken the streams first.
  const bool brokenByStop = m_bell.StopAsked() && EqualBytes() < m_totalBytes;
  return brokenByStop ? End::kInterrupted : End::kComplete;
}

// Whether every stream has finished. One that failed must not keep its place at the server.
bool Transfer::CloseFinished() {
  bool all = true;
  for (FileStream& stream : m_streams) {
    if (stream.Finished()) {
      stream.Close();
    } else {
      all = false;
    }
  }
  return all;
}

std::uint64_t Transfer::EqualBytes() const {
  std::uint64_t bytes = 0;
  for (const FileStream& stream : m_streams) {
    bytes += stream.EqualBytes();
  }
  return bytes;
}

}  // namespace echo
