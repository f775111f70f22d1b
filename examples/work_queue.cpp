// Work queue: submits jobs to a flexible thread pool, lets it drain and prints the results in the
// order of their submission. Each job counts the primes up to a limit.
#include <qiv/library.h>
#include <qiv/system.h>
#include <qiv/thread_pool_flex.h>

#include <cstdio>

namespace {

constexpr int kIdleMs = 1000;
constexpr int kDefaultStackSize = 0;
constexpr int kWaitForEveryJob = -1;

// A job and its result. The pool hands its address to the handler and nothing else, so the job has
// to live until the pool is destroyed.
struct Job {
  int limit;
  int expectedPrimes;
  int primes;
};

bool IsPrime(int number) {
  for (int divisor = 2; divisor <= number / divisor; ++divisor) {
    if (number % divisor == 0) {
      return false;
    }
  }
  return number >= 2;
}

// The handler: runs on several workers at once, each with a job of its own.
void CountPrimes(void* data) {
  Job& job = *static_cast<Job*>(data);
  job.primes = 0;
  for (int number = 2; number <= job.limit; ++number) {
    job.primes += IsPrime(number) ? 1 : 0;
  }
}

// False when a job was not taken. Whatever was taken is done on return.
template <int count>
bool RunAll(Job (&jobs)[count]) {
  QIV_HANDLE pool =
      QIV_ThreadPoolFlex_Create(QIV_GetCPUNumber(), kIdleMs, CountPrimes, kDefaultStackSize);
  bool allQueued = pool != nullptr;
  for (Job& job : jobs) {
    allQueued = allQueued && QIV_ThreadPoolFlex_Work(pool, &job) == QIV_OK;
  }
  QIV_ThreadPoolFlex_DestroyEx(pool, kWaitForEveryJob);
  return allQueued;
}

bool PrintResult(const Job& job) {
  const bool isRight = job.primes == job.expectedPrimes;
  std::printf("%d primes up to %d%s\n", job.primes, job.limit, isRight ? "" : ": wrong");
  return isRight;
}

}  // namespace

int main() {
  Job jobs[] = {
      {500000, 41538, 0}, {10, 4, 0},        {100, 25, 0},       {1000, 168, 0},
      {10000, 1229, 0},   {100000, 9592, 0}, {200000, 17984, 0}, {1, 0, 0},
  };
  if (QIV_Init() != QIV_OK) {
    std::fprintf(stderr, "work_queue: the library does not start\n");
    return 1;
  }
  const bool allDone = RunAll(jobs);
  QIV_Fini();
  if (!allDone) {
    std::fprintf(stderr, "work_queue: a job could not be submitted\n");
    return 1;
  }
  bool allRight = true;
  for (const Job& job : jobs) {
    allRight = PrintResult(job) && allRight;
  }
  return allRight ? 0 : 1;
}
