// Requests that are sent again when no answer comes: an alarm for each, under the request's number.
#include <qiv/alarm_clock.h>
#include <qiv/semaphore.h>

#include <cstdio>

namespace {

const int kTries = 3;
const long long kSoonMs = 20;
const long long kLateMs = 60000;

struct Request {
  Request() : tries(0), givenUp(0, 1) {}
  int tries;  // changed before the alarm is added, then by the clock's thread alone
  QIV_Sema givenUp;
};

void Send(int id, Request& request) {
  ++request.tries;
  std::printf("request %d, attempt %d\n", id, request.tries);
}

// No answer came in time. The number is free again: the alarm can be added anew.
void OnNoAnswer(void* clock, int id, void* param) {
  Request& request = *static_cast<Request*>(param);
  if (request.tries == kTries) {
    std::printf("request %d given up\n", id);
    request.givenUp.Post();
    return;
  }
  Send(id, request);
  static_cast<qiv::CAlarmClock*>(clock)->AddAlarm(id, OnNoAnswer, param, kSoonMs);
}

}  // namespace

int main() {
  Request lost;
  Request answered;
  qiv::CAlarmClock clock;  // declared last, so that it ends before what its callbacks use
  Send(1, lost);
  Send(2, answered);
  if (!clock.AddAlarm(1, OnNoAnswer, &lost, kSoonMs)) return 1;
  if (!clock.AddAlarm(2, OnNoAnswer, &answered, kLateMs)) return 1;
  if (!clock.Start()) return 1;

  lost.givenUp.Wait();
  // An answer: no alarm any more. False would mean that it was too late.
  const bool wasInTime = clock.RemoveAlarm(2);
  std::printf("request 2 %s\n", wasInTime ? "answered" : "answered too late");
  clock.Stop();  // from here on no callback runs
  return wasInTime && lost.tries == kTries && answered.tries == 1 ? 0 : 1;
}
