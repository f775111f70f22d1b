// Echo server: sends back what its clients send, on a port of 127.0.0.1.
#include <qiv/library.h>
#include <qiv/log.h>

#include <cstdio>
#include <exception>

#include "bell.h"
#include "engine.h"
#include "options.h"
#include "server.h"

namespace {

// Files of 16 KiB, so that an ordinary run fills several.
void StartLog(const std::string& directory) {
  constexpr unsigned int kFileBytes = 16384;
  if (directory.empty()) return;
  QIV_Log(2, directory.c_str());
  EnableTarget(LOG_TARGET_FILE, directory.c_str(), kFileBytes, 1);
}

int Serve(const echo::ServerSettings& settings) {
  echo::Bell bell;
  const echo::Library library;  // its end writes what is still to be logged
  StartLog(settings.logDirectory);
  echo::Server server(settings, bell);
  WriteLog(LOG_INF, __FILE__, __LINE__, "listening on port %d", server.Port());
  std::printf("listening on 127.0.0.1 port %d\n", server.Port());
  std::fflush(stdout);
  server.Run();
  WriteLog(LOG_INF, __FILE__, __LINE__, "stopped");
  std::printf("stopped after %llu clients and %llu bytes\n",
              static_cast<unsigned long long>(server.ClientsServed()),
              static_cast<unsigned long long>(server.EchoedBytes()));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    echo::ServerSettings settings;
    echo::Options options(
        "echo_server", "Sends back what its clients send, on a port of 127.0.0.1, until Ctrl-C.");
    options.AddNumber("port", "port to listen on; 0 takes a free one", 0, 65535, &settings.port);
    options.AddNumber("connections", "most clients served at once; more wait their turn", 1, 10000,
                      &settings.connections);
    options.AddNumber("message-size", "most bytes taken from a client at a time", 1, 262144,
                      &settings.messageSize);
    options.AddNumber("workers", "worker threads of the completion queue", 1, 64,
                      &settings.workers);
    options.AddDirectory("log", "write a log of the run into files there", &settings.logDirectory);
    if (const auto status = options.Parse(argc, argv)) {
      return *status;
    }
    return Serve(settings);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "echo_server: %s\n", failure.what());
    return echo::kExitFailed;
  }
}
