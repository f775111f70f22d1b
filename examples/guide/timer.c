// A sensor that is read every 10 ms: the timer's callback stores readings, main() waits for five.
#include <qiv/mutex.h>
#include <qiv/semaphore.h>
#include <qiv/timer.h>
#include <stdio.h>

enum { kNormal = 0 };  // the type of mutex: not recursive
enum { kPeriodMs = 10, kWanted = 5, kPatienceMs = 60000 };

typedef struct {
  pthread_mutex_t mutex;  // guards the count and the sum
  int count;
  int sum;
  sem_t enough;
} Readings;

static int ReadSensor(int count) { return 20 + count; }

// On the timer's thread; the next call comes a period after this one has returned.
static void OnTimer(unsigned int id, void* user) {
  Readings* const readings = user;
  (void)id;
  QIV_MutexLock(&readings->mutex);
  if (readings->count < kWanted) {
    readings->sum += ReadSensor(readings->count);
    ++readings->count;
    if (readings->count == kWanted) QIV_SemPost(&readings->enough);
  }
  QIV_MutexUnlock(&readings->mutex);
}

int main(void) {
  Readings readings;
  unsigned int timer = 0;
  int isDone, isKilled;
  readings.count = 0;
  readings.sum = 0;
  QIV_MutexCreate(&readings.mutex, kNormal);
  if (QIV_SemCreate(&readings.enough, 0) != QIV_OK) return 1;

  if (QIV_SetTimer(OnTimer, &readings, kPeriodMs, &timer) != QIV_OK) return 1;
  // Not without a limit: a timer for which no thread was to be had never calls.
  isDone = QIV_SemTimedWait(&readings.enough, kPatienceMs) == QIV_OK;
  // Not under the mutex, which the callback takes: this waits for a call in progress.
  isKilled = QIV_KillTimer(timer) == QIV_OK;

  // No call is running and none will come: no lock is needed any more, and all can go.
  if (isDone) printf("%d readings, mean %d\n", readings.count, readings.sum / readings.count);
  QIV_SemDestroy(&readings.enough);
  QIV_MutexDestroy(&readings.mutex);
  return isDone && isKilled && readings.sum == 110 ? 0 : 1;
}
