// Statistics of several threads: a counter that is always right, and a maximum that is tried again.
#include <qiv/atomic.h>
#include <qiv/thread.h>

#include <cstdio>

namespace {

const int kThreads = 4;
const long kRequests = 20000;

qiv::qiv_atomic g_requests;
volatile int g_longest = 0;  // milliseconds; written by QIV_AtomicCas() alone

// The functions store only when nobody else was quicker: take what was found and try again.
void KeepLongest(int ms) {
  int known = QIV_AtomicCas(&g_longest, 0, 0);  // reads
  while (ms > known) {
    const int found = QIV_AtomicCas(&g_longest, ms, known);
    if (found == known) return;
    known = found;
  }
}

void* Serve(void* argument) {
  const int thread = *static_cast<int*>(argument);
  for (int i = 0; i < kRequests; ++i) {
    KeepLongest(i * 7 % 1000 + thread);
    g_requests.increment();
  }
  return nullptr;
}

}  // namespace

int main() {
  int numbers[kThreads];
  QIV_Thread threads[kThreads];
  for (int i = 0; i < kThreads; ++i) {
    numbers[i] = i;
    if (threads[i].Create(Serve, &numbers[i], 0, 0, 0, 0) != QIV_OK) return 1;
  }
  for (QIV_Thread& thread : threads) thread.Wait();

  const long requests = g_requests.get();
  const int longest = QIV_AtomicCas(&g_longest, 0, 0);
  std::printf("%ld requests, the longest took %d ms\n", requests, longest);
  return requests == kThreads * kRequests && longest == 999 + kThreads - 1 ? 0 : 1;
}
