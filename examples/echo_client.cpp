// Echo client: streams a file through the echo server over several connections at once and compares
// every byte that comes back with the file.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "bell.h"
#include "engine.h"
#include "input_file.h"
#include "options.h"
#include "transfer.h"

namespace {

using Seconds = std::chrono::duration<double>;

constexpr double kMiB = 1024.0 * 1024.0;

// Prints a line per connection; true when all of them succeeded. After an interruption it does not
// matter who closed first.
bool PrintStreams(const echo::Transfer& transfer, bool interrupted) {
  int number = 0;
  bool allSucceeded = true;
  for (const echo::FileStream& stream : transfer.Streams()) {
    const auto bytes = static_cast<unsigned long long>(stream.EqualBytes());
    if (!stream.Finished() || (interrupted && stream.Broken())) {
      std::printf("connection %d: not finished, %llu bytes equal\n", number, bytes);
      allSucceeded = false;
    } else if (stream.Succeeded()) {
      const Seconds time = stream.FinishTime() - transfer.StartTime();
      std::printf("connection %d: %llu bytes equal in %.3f s\n", number, bytes, time.count());
    } else {
      std::fprintf(stderr, "echo_client: connection %d: %s\n", number, stream.Failure().c_str());
      allSucceeded = false;
    }
    ++number;
  }
  return allSucceeded;
}

void PrintTotal(const echo::Transfer& transfer, const echo::ClientSettings& settings) {
  Seconds time(0);
  for (const echo::FileStream& stream : transfer.Streams()) {
    time = std::max<Seconds>(time, stream.FinishTime() - transfer.StartTime());
  }
  const auto bytes = static_cast<double>(transfer.EqualBytes());
  std::printf("sent %llu bytes over %d connections in messages of up to %d bytes: all came back\n",
              static_cast<unsigned long long>(transfer.EqualBytes()), settings.connections,
              settings.messageSize);
  std::printf("throughput %.1f MiB/s each way (%.3f s)\n", bytes / kMiB / time.count(),
              time.count());
}

int Report(echo::Transfer::End end, const echo::Transfer& transfer,
           const echo::ClientSettings& settings) {
  const bool interrupted = end == echo::Transfer::End::kInterrupted;
  const bool allSucceeded = PrintStreams(transfer, interrupted);
  if (interrupted) {
    std::fprintf(stderr, "echo_client: interrupted\n");
    return echo::kExitInterrupted;
  }
  if (end == echo::Transfer::End::kStalled) {
    std::fprintf(stderr, "echo_client: the server has sent nothing for a long time\n");
  }
  if (!allSucceeded) {
    return echo::kExitFailed;
  }
  PrintTotal(transfer, settings);
  return 0;
}

int Stream(const std::string& path, const echo::ClientSettings& settings) {
  echo::Bell bell;
  const echo::InputFile file(path);
  const echo::Library library;
  echo::Transfer transfer(file, settings, bell);
  std::printf("streaming '%s' (%llu bytes) through port %d\n", path.c_str(),
              static_cast<unsigned long long>(file.Size()), settings.port);
  std::fflush(stdout);
  return Report(transfer.Run(), transfer, settings);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::string path;
    echo::ClientSettings settings;
    echo::Options options("echo_client",
                          "Streams FILE through the echo server on 127.0.0.1 and compares every "
                          "byte that comes back.");
    options.SetOperand("FILE", "the file to send", &path);
    options.AddNumber("port", "port of the server", 1, 65535, &settings.port);
    options.AddNumber("connections", "connections that share the file, a range each", 1, 1000,
                      &settings.connections);
    options.AddNumber("message-size", "most bytes sent in one go on a connection", 1, 262144,
                      &settings.messageSize);
    options.AddNumber("workers", "worker threads of the completion queue", 1, 64,
                      &settings.workers);
    if (const auto status = options.Parse(argc, argv)) {
      return *status;
    }
    return Stream(path, settings);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "echo_client: %s\n", failure.what());
    return echo::kExitFailed;
  }
}
