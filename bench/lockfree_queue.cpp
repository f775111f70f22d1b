// The lock-free queue beside a deque under a mutex and beside boost::lockfree::queue, which keeps
// unlinked nodes in a list of its own instead of freeing them. Counted pointers go through all of
// them. One thread, then streams between one and two pushers and as many poppers.
#include <qiv/lockfree_queue.h>

#include <boost/lockfree/queue.hpp>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "compare.h"

namespace {

using Pointer = qiv::cshared_ptr<qiv::cobject>;

/** The queue without trace records, which the others do not carry. */
class QivQueue {
 public:
  void Push(Pointer value) { m_queue.push_back(std::move(value)); }
  Pointer Pop() { return m_queue.pop_front(); }

 private:
  qiv::qiv_lockfreeQImpl m_queue;
};

class LockedQueue {
 public:
  void Push(Pointer value) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.push_back(std::move(value));
  }
  Pointer Pop() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_queue.empty()) return nullptr;
    Pointer value = std::move(m_queue.front());
    m_queue.pop_front();
    return value;
  }

 private:
  std::mutex m_mutex;
  std::deque<Pointer> m_queue;
};

class BoostQueue {
 public:
  void Push(Pointer value) { m_queue.push(value.detach()); }
  Pointer Pop() {
    qiv::cobject* value = nullptr;
    return m_queue.pop(value) ? Pointer::adopt(value) : nullptr;
  }

 private:
  boost::lockfree::queue<qiv::cobject*> m_queue{128};
};

template <class Queue>
double OneThread() {
  constexpr int kTimes = 1000000;
  Queue queue;
  Pointer element = new qiv::cobject;
  const qiv::bench::Timer timer;
  for (int i = 0; i < kTimes; ++i) {
    queue.Push(std::move(element));
    element = queue.Pop();
  }
  return timer.Nanoseconds() / kTimes;
}

template <class Queue, int kPairs>
double Stream() {
  constexpr int kTimes = 200000;
  Queue queue;
  std::vector<std::thread> threads;
  const qiv::bench::Timer timer;
  for (int pair = 0; pair < kPairs; ++pair) {
    threads.emplace_back([&queue] {
      const Pointer element = new qiv::cobject;
      for (int i = 0; i < kTimes; ++i) queue.Push(element);
    });
    threads.emplace_back([&queue] {
      for (int popped = 0; popped < kTimes;) {
        if (queue.Pop()) {
          ++popped;
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return timer.Nanoseconds() / (kTimes * kPairs);
}

}  // namespace

int main() {
  using qiv::bench::Compare;
  qiv::bench::PrintHead("beside a deque under a mutex, ns");
  Compare("push and pop on one thread", OneThread<QivQueue>, OneThread<LockedQueue>);
  Compare("1 pusher and 1 popper", Stream<QivQueue, 1>, Stream<LockedQueue, 1>);
  Compare("2 pushers and 2 poppers", Stream<QivQueue, 2>, Stream<LockedQueue, 2>);
  qiv::bench::PrintHead("beside boost::lockfree::queue, ns");
  Compare("push and pop on one thread", OneThread<QivQueue>, OneThread<BoostQueue>);
  Compare("1 pusher and 1 popper", Stream<QivQueue, 1>, Stream<BoostQueue, 1>);
  Compare("2 pushers and 2 poppers", Stream<QivQueue, 2>, Stream<BoostQueue, 2>);
  return 0;
}
