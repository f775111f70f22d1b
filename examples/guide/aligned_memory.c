// Two threads count in one array without sharing a cache line: each counter has a line of its own.
#include <qiv/aligned_memory.h>
#include <qiv/thread.h>
#include <stdint.h>
#include <stdio.h>

enum { kCacheLine = 64, kThreads = 2 };

static const unsigned int kNumbers = 100000;

// As large as its alignment, so that neighbours begin on lines of their own.
struct Counter {
  unsigned int multiples;
  unsigned int divisor;
  char rest[kCacheLine - 2 * sizeof(unsigned int)];
};

static void* CountMultiples(void* argument) {
  struct Counter* const counter = argument;
  for (unsigned int number = 1; number <= kNumbers; ++number) {
    if (number % counter->divisor == 0) ++counter->multiples;
  }
  return NULL;
}

int main(void) {
  struct Counter* const counters =
      QIV_AlignedMalloc((unsigned int)sizeof(struct Counter) * kThreads, kCacheLine);
  if (counters == NULL) return 1;
  unsigned int threads[kThreads];
  for (int i = 0; i < kThreads; ++i) {
    counters[i].divisor = i == 0 ? 3 : 7;  // the rest is zero from the start
    threads[i] = QIV_Thread_Create(CountMultiples, &counters[i], 0, 0, 0, 0);
  }
  int isRight = 1;
  for (int i = 0; i < kThreads; ++i) {
    if (threads[i] == QIV_INVALID_ID || QIV_Thread_Wait(threads[i]) != QIV_OK) isRight = 0;
    const unsigned int misplaced = (unsigned int)((uintptr_t)&counters[i] % kCacheLine);
    printf("%u multiples of %u, %u bytes into a cache line\n", counters[i].multiples,
           counters[i].divisor, misplaced);
    isRight = isRight && misplaced == 0 && counters[i].multiples == kNumbers / counters[i].divisor;
  }
  QIV_AlignedFree(counters);
  return isRight ? 0 : 1;
}
