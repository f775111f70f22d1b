// The lock of the timer table, shared with the tests.
#ifndef QIV_THREAD_TIMER_H
#define QIV_THREAD_TIMER_H

#include <qiv/mutex.h>

namespace qiv::thread {

extern QIV_Mutex g_timerTableMutex;

}  // namespace qiv::thread

#endif
