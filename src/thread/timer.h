// The lock of the timer table, shared with the tests.
#ifndef QIV_THREAD_TIMER_H
#define QIV_THREAD_TIMER_H

#include "base/load_time_mutex.h"

namespace qiv::thread {

extern base::LoadTimeMutex g_timerTableMutex;

}  // namespace qiv::thread

#endif
