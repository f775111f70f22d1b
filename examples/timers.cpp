// A timer and an alarm clock: a heart that beats periodically, and a watchdog that looks after it.
//
// The watchdog is an alarm that adds itself again as long as it finds new beats. When the heart is
// stopped it notices, reports, and sets no further alarm.
#include <qiv/alarm_clock.h>
#include <qiv/timer.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

namespace {

constexpr unsigned int kBeatMs = 20;
constexpr long long kLookMs = 1000;  // generous: a busy machine may keep the heart waiting
constexpr int kLooksInHealth = 2;
constexpr int kWatchdogAlarm = 1;

/** Shared by the timer's thread, the clock's thread and main(). */
struct Patient {
  std::atomic<int> beats{0};
  std::promise<void> seenHealthy;
  std::promise<void> seenSilent;
  // Of the watchdog alone:
  int beatsAtLastLook = 0;
  int looksInHealth = 0;
};

/** On the timer's thread, every kBeatMs. */
void Beat(unsigned int /*timer*/, void* user) {
  static_cast<Patient*>(user)->beats.fetch_add(1, std::memory_order_relaxed);
}

/** On the clock's thread, kLookMs after it was added. */
void Look(void* clock, int alarm, void* param) {
  auto* const patient = static_cast<Patient*>(param);
  const int beats = patient->beats.load(std::memory_order_relaxed);
  const int newBeats = beats - patient->beatsAtLastLook;
  patient->beatsAtLastLook = beats;
  std::printf("watchdog: %d new beats\n", newBeats);
  if (newBeats == 0) {
    patient->seenSilent.set_value();
    return;
  }
  if (++patient->looksInHealth == kLooksInHealth) patient->seenHealthy.set_value();
  static_cast<qiv::CAlarmClock*>(clock)->AddAlarm(alarm, Look, param, kLookMs);
}

bool Came(std::promise<void>& event) {
  constexpr auto kLimit = std::chrono::seconds(10);
  return event.get_future().wait_for(kLimit) == std::future_status::ready;
}

}  // namespace

int main() {
  Patient patient;
  // Its end waits for a callback in progress, so it goes before the patient.
  qiv::CAlarmClock clock;
  if (!clock.Start() || !clock.AddAlarm(kWatchdogAlarm, Look, &patient, kLookMs)) {
    std::fprintf(stderr, "timers: cannot set the watchdog\n");
    return 1;
  }
  unsigned int heart = 0;
  if (QIV_SetTimer(Beat, &patient, kBeatMs, &heart) != 0) {
    std::fprintf(stderr, "timers: cannot start the heart\n");
    return 1;
  }

  const bool wasHealthy = Came(patient.seenHealthy);
  QIV_KillTimer(heart);  // from here on, no beat comes any more
  const int beats = patient.beats.load(std::memory_order_relaxed);
  const bool isSilent = Came(patient.seenSilent);
  clock.Stop();

  std::printf("%d beats, %d looks in health\n", beats, patient.looksInHealth);
  const bool countsAreRight = beats == patient.beats.load(std::memory_order_relaxed) &&
                              beats == patient.beatsAtLastLook && beats > kLooksInHealth;
  return wasHealthy && isSilent && countsAreRight ? 0 : 1;
}
