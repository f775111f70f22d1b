// Invoice: due on the first working day 30 days after its date; and a pause for select().
#include <qiv/time_classes.h>
#include <stdlib.h>
#include <sys/select.h>

#include <cstdio>

namespace {

const qiv::qiv_time kDay(86400);
const int kSaturday = 6;
const int kSunday = 0;

qiv::qiv_time DueDate(const qiv::qiv_time& issued, int days) {
  qiv::qiv_time due(issued);
  for (int i = 0; i < days; ++i) due += kDay;
  while (due.get_week_day() == kSaturday || due.get_week_day() == kSunday) due += kDay;
  return due;
}

void Print(const char* what, const qiv::qiv_time& time) {
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  std::printf("%s %s %04d-%02d-%02d\n", what, kDays[time.get_week_day()], time.get_year(),
              time.get_mon() + 1, time.get_mon_day());
}

// Sleeps in select(); false when a signal or an error ended it.
bool Pause(long long milliseconds) {
  timeval limit;
  if (qiv::qiv_time_tick::ms2timeval(milliseconds, &limit) == nullptr) return false;
  return select(0, nullptr, nullptr, nullptr, &limit) == 0;
}

}  // namespace

int main() {
  setenv("TZ", "UTC0", 1);  // the same dates on every host
  tzset();

  // Noon: where the clocks change, an hour more or less does not reach another day.
  const qiv::qiv_time issued(1772798400);
  const qiv::qiv_time due = DueDate(issued, 30);
  Print("issued:", issued);
  Print("due:   ", due);

  const qiv::qiv_time_tick begin;
  if (!Pause(15)) return 1;
  qiv::qiv_time_tick spent;  // now
  spent -= begin;
  std::fprintf(stderr, "the pause took %lld ms\n", qiv::qiv_time_tick::us2ms(spent.get_time()));

  const bool isRight = due.get_mon() == 3 && due.get_mon_day() == 6 && due.get_week_day() == 1;
  return isRight ? 0 : 1;
}
