// What a lock and its release cost when nobody competes: the shared mutex beside the platform's
// reader/writer lock.
#include <pthread.h>
#include <qiv/shared_mutex.h>

#include "compare.h"

namespace {

constexpr int kPairs = 1000000;

template <class Pair>
double NanosecondsPerPair(Pair pair) {
  const qiv::bench::Timer timer;
  for (int i = 0; i < kPairs; ++i) pair();
  return timer.Nanoseconds() / kPairs;
}

}  // namespace

int main() {
  QIV_SharedMutex mutex;
  pthread_rwlock_t platform = PTHREAD_RWLOCK_INITIALIZER;
  const auto pairOf = [](auto pair) { return [pair] { return NanosecondsPerPair(pair); }; };
  qiv::bench::PrintHead("uncontended pair, ns");
  qiv::bench::Compare("Lock, Unlock", pairOf([&mutex] {
                        mutex.Lock();
                        mutex.Unlock();
                      }),
                      pairOf([&platform] {
                        pthread_rwlock_wrlock(&platform);
                        pthread_rwlock_unlock(&platform);
                      }));
  qiv::bench::Compare("LockShared, UnlockShared", pairOf([&mutex] {
                        mutex.LockShared();
                        mutex.UnlockShared();
                      }),
                      pairOf([&platform] {
                        pthread_rwlock_rdlock(&platform);
                        pthread_rwlock_unlock(&platform);
                      }));
  return 0;
}
