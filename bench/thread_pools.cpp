// The two kinds of pool beside a plain one of the platform's means: threads that take items from a
// queue under a mutex and a condition variable. How long an item waits for a sleeping worker, and
// how many items a second one and four submitters get done.
#include <qiv/library.h>
#include <qiv/thread_pool.h>
#include <qiv/thread_pool_flex.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "compare.h"

namespace {

constexpr unsigned int kWorkers = 2;
constexpr int kLatencyItems = 300;
constexpr int kItems = 100000;

struct Task {
  std::chrono::steady_clock::time_point started;
  std::atomic<int> run{0};
};

void* CountRun(void* task) {
  static_cast<Task*>(task)->run.fetch_add(1, std::memory_order_release);
  return nullptr;
}

void* NoteStart(void* task) {
  static_cast<Task*>(task)->started = std::chrono::steady_clock::now();
  return CountRun(task);
}

using Routine = void* (*)(void*);

class QivPool {
 public:
  explicit QivPool(Routine routine)
      : m_routine(routine), m_pool(QIV_ThreadPool_Create(kWorkers, kWorkers)) {}
  ~QivPool() { QIV_ThreadPool_Destroy(m_pool); }
  QivPool(const QivPool&) = delete;
  QivPool& operator=(const QivPool&) = delete;
  void Submit(Task* task) { QIV_ThreadPool_WorkEx(m_pool, m_routine, task, 1); }

 private:
  Routine m_routine;
  QIV_HANDLE m_pool;
};

template <Routine routine>
void Handle(void* task) {
  routine(task);
}

class QivFlexPool {
 public:
  explicit QivFlexPool(Routine routine)
      : m_pool(QIV_ThreadPoolFlex_Create(
            kWorkers, 60000, routine == CountRun ? Handle<CountRun> : Handle<NoteStart>, 0)) {}
  ~QivFlexPool() { QIV_ThreadPoolFlex_Destroy(m_pool); }
  QivFlexPool(const QivFlexPool&) = delete;
  QivFlexPool& operator=(const QivFlexPool&) = delete;
  void Submit(Task* task) {
    while (QIV_ThreadPoolFlex_Work(m_pool, task) != 0) std::this_thread::yield();
  }

 private:
  QIV_HANDLE m_pool;
};

class PlainPool {
 public:
  explicit PlainPool(Routine routine) : m_routine(routine) {
    for (unsigned int i = 0; i < kWorkers; ++i) m_workers.emplace_back([this] { Serve(); });
  }
  ~PlainPool() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_quit = true;
    }
    m_changed.notify_all();
    for (std::thread& worker : m_workers) worker.join();
  }
  PlainPool(const PlainPool&) = delete;
  PlainPool& operator=(const PlainPool&) = delete;
  void Submit(Task* task) {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_queue.push_back(task);
    }
    m_changed.notify_one();
  }

 private:
  void Serve() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_changed.wait(lock, [this] { return m_quit || !m_queue.empty(); });
      if (m_queue.empty()) return;
      Task* const task = m_queue.front();
      m_queue.pop_front();
      lock.unlock();
      m_routine(task);
      lock.lock();
    }
  }

  Routine m_routine;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<Task*> m_queue;
  bool m_quit = false;
  std::vector<std::thread> m_workers;
};

/** From the submission to the start of the item, while the workers sleep. */
template <class Pool>
double LatencyNanoseconds() {
  Pool pool(NoteStart);
  std::vector<double> latencies;
  for (int i = 0; i < kLatencyItems; ++i) {
    usleep(200);
    Task task;
    const auto submitted = std::chrono::steady_clock::now();
    pool.Submit(&task);
    while (task.run.load(std::memory_order_acquire) == 0) std::this_thread::yield();
    const std::chrono::duration<double, std::nano> latency = task.started - submitted;
    latencies.push_back(latency.count());
  }
  return qiv::bench::Median(latencies);
}

template <class Pool, int submitterCount>
double ItemsPerSecond() {
  Pool pool(CountRun);
  Task task;
  const qiv::bench::Timer timer;
  std::vector<std::thread> submitters;
  submitters.reserve(submitterCount);
  for (int i = 0; i < submitterCount; ++i) {
    submitters.emplace_back([&] {
      for (int item = 0; item < kItems / submitterCount; ++item) pool.Submit(&task);
    });
  }
  for (std::thread& submitter : submitters) submitter.join();
  while (task.run.load(std::memory_order_acquire) != kItems) std::this_thread::yield();
  return kItems * 1e9 / timer.Nanoseconds();
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) return 1;
  using qiv::bench::Compare;
  std::printf("%u workers\n", kWorkers);
  qiv::bench::PrintHead("submission to start of the item, ns");
  Compare("thread pool", LatencyNanoseconds<QivPool>, LatencyNanoseconds<PlainPool>);
  Compare("flexible pool", LatencyNanoseconds<QivFlexPool>, LatencyNanoseconds<PlainPool>);
  qiv::bench::PrintHead("items a second");
  Compare("thread pool, 1 submitter", ItemsPerSecond<QivPool, 1>, ItemsPerSecond<PlainPool, 1>);
  Compare("thread pool, 4 submitters", ItemsPerSecond<QivPool, 4>, ItemsPerSecond<PlainPool, 4>);
  Compare("flexible pool, 1 submitter", ItemsPerSecond<QivFlexPool, 1>,
          ItemsPerSecond<PlainPool, 1>);
  Compare("flexible pool, 4 submitters", ItemsPerSecond<QivFlexPool, 4>,
          ItemsPerSecond<PlainPool, 4>);
  return QIV_Fini();
}
