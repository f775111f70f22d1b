// Echo server: sends back what its clients send, on a port of 127.0.0.1.
#include <cstdio>
#include <exception>

#include "bell.h"
#include "engine.h"
#include "options.h"
#include "server.h"

namespace {

int Serve(const echo::ServerSettings& settings) {
  echo::Bell bell;
  const echo::Library library;
  echo::Server server(settings, bell);
  std::printf("listening on 127.0.0.1 port %d\n", server.Port());
  std::fflush(stdout);
  server.Run();
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
    if (const auto status = options.Parse(argc, argv)) {
      return *status;
    }
    return Serve(settings);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "echo_server: %s\n", failure.what());
    return echo::kExitFailed;
  }
}
