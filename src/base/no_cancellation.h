// Keeps the thread from being cancelled to the end of the scope: for functions that may not unwind
// but call something short that is a cancellation point.
#ifndef QIV_BASE_NO_CANCELLATION_H
#define QIV_BASE_NO_CANCELLATION_H

#include <pthread.h>

namespace qiv::base {

class NoCancellation {
 public:
  NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_saved); }
  ~NoCancellation() {
    int ignored = 0;
    pthread_setcancelstate(m_saved, &ignored);
  }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int m_saved = PTHREAD_CANCEL_ENABLE;
};

}  // namespace qiv::base

#endif
