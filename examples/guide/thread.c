// Counts primes on four threads, each with a range of its own and a tally in thread-local storage.
#include <qiv/thread.h>
#include <stdio.h>

enum { kThreads = 4, kLimit = 20000 };
enum { kDefaultStack = 0, kIgnored = 0, kNoPriority = 0, kSchedOther = 0 };

typedef struct {
  int first;
  int last;
  int primes;  // written by the thread, read when it has been joined
} Range;

static unsigned int g_tallyKey;

// Deep in the program, where nobody hands the tally on.
static void CountPrime(void) { ++*(int*)QIV_ThreadTls_GetValue(g_tallyKey); }

static int IsPrime(int number) {
  int divisor;
  for (divisor = 2; divisor <= number / divisor; ++divisor) {
    if (number % divisor == 0) return 0;
  }
  return number >= 2;
}

static void* CountPrimes(void* argument) {
  Range* const range = argument;
  int number;
  range->primes = 0;
  QIV_ThreadTls_SetValue(g_tallyKey, &range->primes);
  for (number = range->first; number <= range->last; ++number) {
    if (IsPrime(number)) CountPrime();
  }
  return NULL;  // dropped: results go through the argument
}

int main(void) {
  Range ranges[kThreads];
  unsigned int threads[kThreads];
  int isRight = 1;
  int primes = 0;
  int i;
  g_tallyKey = QIV_ThreadTls_Create();
  if (g_tallyKey == QIV_INVALID_ID) return 1;
  for (i = 0; i < kThreads; ++i) {
    ranges[i].first = i * (kLimit / kThreads) + 1;
    ranges[i].last = (i + 1) * (kLimit / kThreads);
    threads[i] = QIV_Thread_Create(CountPrimes, &ranges[i], kDefaultStack, kIgnored, kNoPriority,
                                   kSchedOther);
    if (threads[i] == QIV_INVALID_ID) CountPrimes(&ranges[i]);  // no thread to be had: do it here
  }
  for (i = 0; i < kThreads; ++i) {
    if (threads[i] != QIV_INVALID_ID) isRight = QIV_Thread_Wait(threads[i]) == QIV_OK && isRight;
    printf("%5d to %5d: %d primes\n", ranges[i].first, ranges[i].last, ranges[i].primes);
    primes += ranges[i].primes;
  }
  QIV_ThreadTls_Destroy(g_tallyKey);
  printf("%d in all\n", primes);
  return isRight && primes == 2262 ? 0 : 1;
}
