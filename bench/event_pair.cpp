// What an event costs beside the plain platform: an eventfd and poll().
//
// pair:       set, wait and reset of one signalled object on one thread
// ping-pong:  there and back between two threads, by two objects
//
// The two sides take turns; medians of the rounds and their spread are printed, and the median of
// the rounds' ratios.
//
// usage: event_pair [--quick]
#include <poll.h>
#include <qiv/event.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

void Check(bool isRight, const char* what) {
  if (isRight) return;
  std::fprintf(stderr, "event_pair: %s failed\n", what);
  std::exit(1);
}

class QivEvent {
 public:
  QivEvent() : m_event(QIV_CreateEvent(0)) { Check(m_event != nullptr, "QIV_CreateEvent"); }
  ~QivEvent() { QIV_CloseEvent(m_event); }
  QivEvent(const QivEvent&) = delete;
  QivEvent& operator=(const QivEvent&) = delete;

  void Set() { Check(QIV_SetEvent(m_event) == QIV_TRUE, "QIV_SetEvent"); }
  void Wait() {
    Check(QIV_WaitForSingleObject(m_event, -1) == QIV_WAIT_SIGNALLED, "QIV_WaitForSingleObject");
  }
  void Reset() { Check(QIV_ResetEvent(m_event) == QIV_TRUE, "QIV_ResetEvent"); }

 private:
  QIV_HANDLE m_event;
};

class PlainEvent {
 public:
  PlainEvent() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    Check(m_descriptor != -1, "eventfd");
  }
  ~PlainEvent() { close(m_descriptor); }
  PlainEvent(const PlainEvent&) = delete;
  PlainEvent& operator=(const PlainEvent&) = delete;

  void Set() {
    const std::uint64_t one = 1;
    Check(write(m_descriptor, &one, sizeof(one)) == sizeof(one), "write");
  }
  void Wait() {
    pollfd entry = {m_descriptor, POLLIN, 0};
    Check(poll(&entry, 1, -1) == 1, "poll");
  }
  void Reset() {
    std::uint64_t count = 0;
    Check(read(m_descriptor, &count, sizeof(count)) == sizeof(count), "read");
  }

 private:
  int m_descriptor;
};

template <class Event>
void RunPairs(int times) {
  Event event;
  for (int i = 0; i < times; ++i) {
    event.Set();
    event.Wait();
    event.Reset();
  }
}

template <class Event>
void RunPingPong(int times) {
  Event ping;
  Event pong;
  const auto play = [times](Event& mine, Event& other) {
    for (int i = 0; i < times; ++i) {
      mine.Wait();
      mine.Reset();
      other.Set();
    }
  };
  std::thread partner([&] { play(ping, pong); });
  ping.Set();
  play(pong, ping);  // the last set finds nobody waiting
  partner.join();
}

double NanosecondsEach(void (*run)(int), int times) {
  const auto start = std::chrono::steady_clock::now();
  run(times);
  const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
  return spent.count() / times;
}

void PrintSpread(const char* what, std::vector<double> values, const char* unit) {
  std::sort(values.begin(), values.end());
  std::printf("  %-16s %8.2f %s (%.2f to %.2f)\n", what, values[values.size() / 2], unit,
              values.front(), values.back());
}

void Compare(const char* what, void (*qiv)(int), void (*plain)(int), int times, int rounds) {
  std::vector<double> qivTimes;
  std::vector<double> plainTimes;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round) {
    qivTimes.push_back(NanosecondsEach(qiv, times));
    plainTimes.push_back(NanosecondsEach(plain, times));
    ratios.push_back(qivTimes.back() / plainTimes.back());
  }
  std::printf("%s, %d rounds of %d\n", what, rounds, times);
  PrintSpread("qiv", qivTimes, "ns");
  PrintSpread("eventfd, poll", plainTimes, "ns");
  PrintSpread("qiv / plain", ratios, "");
}

}  // namespace

int main(int argc, char** argv) {
  const bool isQuick = argc == 2 && std::strcmp(argv[1], "--quick") == 0;
  const int rounds = isQuick ? 3 : 15;
  Compare("set, wait and reset", RunPairs<QivEvent>, RunPairs<PlainEvent>, isQuick ? 10000 : 200000,
          rounds);
  Compare("there and back between two threads", RunPingPong<QivEvent>, RunPingPong<PlainEvent>,
          isQuick ? 2000 : 20000, rounds);
  return 0;
}
