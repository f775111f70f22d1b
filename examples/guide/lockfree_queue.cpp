// Two sensors push readings while the main thread takes them out; a semaphore tells of each one.
#include <qiv/lockfree_queue.h>
#include <qiv/semaphore.h>
#include <qiv/thread.h>

#include <cstdio>

namespace {

const int kSensors = 2;
const int kReadings = 500;  // of each sensor

struct Reading : qiv::cobject {
  Reading(int fromSensor, int itsNumber) : sensor(fromSensor), number(itsNumber) {}
  const int sensor;
  const int number;
};

struct Station {
  qiv::qiv_lockfreeQ queue;
  sem_t pushed;
};

struct Sensor {
  Station* station;
  int id;
};

void* Measure(void* argument) {
  const Sensor& sensor = *static_cast<Sensor*>(argument);
  for (int i = 0; i < kReadings; ++i) {
    sensor.station->queue.push_back(new Reading(sensor.id, i));
    QIV_SemPost(&sensor.station->pushed);
  }
  return nullptr;
}

// True when each sensor's readings came complete and in their order.
bool TakeAll(Station& station) {
  int next[kSensors] = {0, 0};
  for (int i = 0; i < kSensors * kReadings; ++i) {
    if (QIV_SemWait(&station.pushed) != QIV_OK) return false;
    const qiv::cshared_ptr<qiv::cobject> object = station.queue.pop_front();
    const Reading* const reading = dynamic_cast<Reading*>(object.get());
    if (reading == nullptr || reading->number != next[reading->sensor]) return false;
    ++next[reading->sensor];
  }
  return station.queue.empty() == 1;
}

}  // namespace

int main() {
  Station station;
  if (QIV_SemCreate(&station.pushed, 0) != QIV_OK) return 1;
  Sensor sensors[kSensors] = {{&station, 0}, {&station, 1}};
  const unsigned int first = QIV_Thread_Create(Measure, &sensors[0], 0, 0, 0, 0);
  const unsigned int second = QIV_Thread_Create(Measure, &sensors[1], 0, 0, 0, 0);
  const bool started = first != QIV_INVALID_ID && second != QIV_INVALID_ID;
  const bool isRight = started && TakeAll(station);
  if (first != QIV_INVALID_ID) QIV_Thread_Wait(first);
  if (second != QIV_INVALID_ID) QIV_Thread_Wait(second);
  std::printf("%d readings: %s\n", kSensors * kReadings, isRight ? "each in its place" : "wrong");
  QIV_SemDestroy(&station.pushed);
  return isRight ? 0 : 1;
}
