// Echo messages per second: a server on the completion queue beside a server on a plain epoll loop.
//
// Both have one thread and echo small messages on loopback TCP; the same load, an epoll loop on a
// thread of its own, plays ping-pong on 1 and on 64 connections. The two servers take turns, and
// the median of their rounds is compared.
//
// usage: async_echo [--quick]
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "echo/echo_load.h"
#include "echo/echo_servers.h"

namespace {

using bench::Connections;
using bench::EchoServer;

using ServerMaker = std::unique_ptr<EchoServer> (*)(std::vector<bench::Descriptor>);

struct Plan {
  int rounds;
  std::chrono::milliseconds roundTime;
};

struct Spread {
  double least;
  double median;
  double most;
};

Spread SpreadOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {values.front(), values[values.size() / 2], values.back()};
}

double MeasureRound(ServerMaker makeServer, int connections, const Plan& plan) {
  Connections sockets = bench::MakeConnections(connections);
  const std::unique_ptr<EchoServer> server = makeServer(std::move(sockets.serverEnds));
  return bench::MessagesPerSecond(std::move(sockets.clientEnds), plan.roundTime);
}

void Compare(int connections, const Plan& plan) {
  std::vector<double> qiv;
  std::vector<double> epoll;
  std::vector<double> ratios;
  for (int round = 0; round < plan.rounds; ++round) {
    qiv.push_back(MeasureRound(bench::MakeQivServer, connections, plan));
    epoll.push_back(MeasureRound(bench::MakeEpollServer, connections, plan));
    ratios.push_back(qiv.back() / epoll.back());
  }
  const Spread qivSpread = SpreadOf(qiv);
  const Spread epollSpread = SpreadOf(epoll);
  const Spread ratioSpread = SpreadOf(ratios);
  std::printf("%11d  %8.0f (%8.0f..%8.0f)  %8.0f (%8.0f..%8.0f)  %5.2f (%.2f..%.2f)\n", connections,
              qivSpread.median, qivSpread.least, qivSpread.most, epollSpread.median,
              epollSpread.least, epollSpread.most, ratioSpread.median, ratioSpread.least,
              ratioSpread.most);
}

// Whether the queue's worker gets the real-time policy that it asks for; the epoll loop is an
// ordinary thread.
bool WorkersAreRealTime() {
  bool granted = false;
  std::thread([&granted] {
    sched_param priority = {};
    priority.sched_priority = 1;
    granted = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority) == 0;
  }).join();
  return granted;
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = argc == 2 && std::strcmp(argv[1], "--quick") == 0;
  if (argc > 2 || (argc == 2 && !quick)) {
    std::fputs("usage: async_echo [--quick]\n", stderr);
    return 2;
  }
  const Plan plan =
      quick ? Plan{3, std::chrono::milliseconds(100)} : Plan{5, std::chrono::milliseconds(500)};
  try {
    std::printf("echo of %zu-byte messages, ping-pong: median of %d rounds of %lld ms (spread)\n",
                bench::kMessageSize, plan.rounds, static_cast<long long>(plan.roundTime.count()));
    std::printf("the qiv worker runs as %s thread, the epoll loop as an ordinary one\n\n",
                WorkersAreRealTime() ? "a real-time" : "an ordinary");
    std::printf("%11s  %-28s  %-28s  %s\n", "connections", "qiv messages/s", "epoll messages/s",
                "qiv/epoll");
    for (const int connections : {1, 64}) {
      Compare(connections, plan);
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "async_echo: %s\n", failure.what());
    return 1;
  }
  return 0;
}
