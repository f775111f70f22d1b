// A fixture of the alarm clock's tests: writes down which alarms fire.
#ifndef QIV_TESTS_THREAD_ALARM_FIXTURE_H
#define QIV_TESTS_THREAD_ALARM_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/alarm_clock.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "support/call_counter.h"
#include "support/gate.h"
#include "support/leak_check.h"

namespace qiv::test {

constexpr long long kHourMs = 3600LL * 1000;

/** The alarms that have fired, in their order. */
class Firings {
 public:
  /** For AddAlarm(), with the object as its parameter. */
  static void Record(void* /*clock*/, int id, void* firings) {
    static_cast<Firings*>(firings)->Add(id);
  }

  void Add(int id) {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_ids.push_back(id);
    }
    m_counter.Add();
  }
  [[nodiscard]] bool WaitFor(int count) { return m_counter.WaitFor(count); }
  int Count() { return m_counter.Count(); }
  std::vector<int> Ids() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_ids;
  }

 private:
  std::mutex m_mutex;
  std::vector<int> m_ids;
  CallCounter m_counter;
};

struct AlarmGate : Gate {
  static void Run(void* /*clock*/, int /*id*/, void* gate) {
    static_cast<AlarmGate*>(gate)->Pass();
  }
};

class AlarmClockTest : public LeakCheckedTest {
 protected:
  void TearDown() override {
    m_clock.Stop();
    LeakCheckedTest::TearDown();
  }
  bool Add(int id, long long delay) {
    return m_clock.AddAlarm(id, Firings::Record, &m_firings, delay);
  }

  Firings m_firings;
  CAlarmClock m_clock;
};

}  // namespace qiv::test

#endif
