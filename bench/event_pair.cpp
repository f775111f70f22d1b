// What an event costs beside the plain platform, an eventfd and poll(): set, wait and reset of one
// object on one thread, and there and back between two threads by two objects.
#include <poll.h>
#include <qiv/event.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "compare.h"

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
  const qiv::bench::Timer timer;
  run(times);
  return timer.Nanoseconds() / times;
}

}  // namespace

int main() {
  constexpr int kPairs = 100000;
  constexpr int kPingPongs = 20000;
  qiv::bench::PrintHead("event beside eventfd and poll(), ns");
  qiv::bench::Compare(
      "set, wait, reset on one thread", [] { return NanosecondsEach(RunPairs<QivEvent>, kPairs); },
      [] { return NanosecondsEach(RunPairs<PlainEvent>, kPairs); });
  qiv::bench::Compare(
      "there and back between two threads",
      [] { return NanosecondsEach(RunPingPong<QivEvent>, kPingPongs); },
      [] { return NanosecondsEach(RunPingPong<PlainEvent>, kPingPongs); });
  return 0;
}
