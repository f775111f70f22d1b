// Lock-free queue: a list with a dummy in front, linked and followed by compare-and-swap.
//
// Pushers take no lock. They reach nodes through m_tail only, and m_tail only moves forward. A
// popper holds m_popMutex over its whole pop; it guards m_head, the elements' pointers in linked
// nodes, and the change of m_epoch and m_pops.
//
// When may a popper free the old dummy? A pusher counts itself in one of m_inside, then reads
// m_tail. A popper makes sure that m_tail is past the dummy, then reads both counts. All four steps
// are sequentially consistent, so they have one order: a pusher whose counting the popper does not
// see reads m_tail after the popper did, and finds it past the dummy. So once the popper has seen
// each count at 0, at whatever moments, every pusher that might have reached the dummy has left.
// For the same reason no node's memory is used anew while a pusher inside still compares with it.
//
// m_epoch says where pushers count themselves. A popper that finds them in one place leads new
// ones to the other, so that the count it waits for can only fall, but for stragglers: pushers that
// had read m_epoch before, at most one for each thread. A straggler may count itself after the pop
// that turned m_epoch is over. So the next popper waits for the idle place too: a straggler there
// may stand on its dummy.
#include <qiv/lockfree_queue.h>
#include <qiv/trace_info.h>

#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"

namespace qiv {
namespace {

constexpr int kLooksBeforeYields = 50;  // most pushes are over by then
constexpr int kLooksBeforeSleep = 150;
constexpr std::chrono::microseconds kSleep(100);

/** Sleeps in the end, since a thread of real-time priority may keep the others from running. */
void WaitForZero(const std::atomic<unsigned int>& count) noexcept {
  for (int looks = 0; count.load(std::memory_order_seq_cst) != 0; ++looks) {
    if (looks < kLooksBeforeYields) continue;
    if (looks < kLooksBeforeSleep) {
      std::this_thread::yield();
      continue;
    }
    const base::NoCancellation noCancellation;
    std::this_thread::sleep_for(kSleep);
  }
}

}  // namespace

static_assert(sizeof(void*) != 4 || sizeof(qiv_lockfreeQ) == 16, "two pointers and the base");

qiv_lockfreeQImpl::qiv_lockfreeQImpl()
    : m_head(new Node{nullptr, {nullptr}}),
      m_tail(m_head.load(std::memory_order_relaxed)),
      m_reserved(0),
      m_count(0),
      m_epoch(0),
      m_inside{{0}, {0}},
      m_pops(0) {
  static_assert(sizeof(Node) == 2 * sizeof(void*), "two pointers");
  static_assert(sizeof(m_reserved) == 4 && sizeof(m_count) == 4, "32 bits each");
}

qiv_lockfreeQImpl::~qiv_lockfreeQImpl() {
  Node* node = m_head.load(std::memory_order_acquire);
  while (node != nullptr) {
    const auto value = cshared_ptr<cobject>::adopt(node->value);
    Node* const next = node->next.load(std::memory_order_acquire);
    delete node;
    node = next;
  }
}

void qiv_lockfreeQImpl::push_back(cshared_ptr<cobject> value) {
  if (!value) return;
  Node* const node = new Node{value.get(), {nullptr}};
  value.detach();  // the node's now
  // Only a hint: relaxed does, and one that is out of date does no harm.
  std::atomic<unsigned int>& inside = m_inside[m_epoch.load(std::memory_order_relaxed)];
  inside.fetch_add(1, std::memory_order_seq_cst);
  link(node);
  m_count.fetch_add(1, std::memory_order_relaxed);  // orders nothing
  inside.fetch_sub(1, std::memory_order_release);
}

void qiv_lockfreeQImpl::link(Node* node) noexcept {
  Node* last = m_tail.load(std::memory_order_seq_cst);
  for (;;) {
    Node* next = nullptr;
    if (last->next.compare_exchange_strong(next, node, std::memory_order_acq_rel,
                                           std::memory_order_acquire)) {
      break;
    }
    // The tail is behind: move it on in place of the pusher that has linked `next`.
    if (m_tail.compare_exchange_strong(last, next, std::memory_order_seq_cst)) last = next;
  }
  // Fails when another thread has moved it on already.
  m_tail.compare_exchange_strong(last, node, std::memory_order_seq_cst);
}

cshared_ptr<cobject> qiv_lockfreeQImpl::pop_front() noexcept {
  const base::ScopedLock<QIV_Mutex> lock(m_popMutex);
  Node* const dummy = unlinkDummy();
  if (dummy == nullptr) return nullptr;
  m_count.fetch_sub(1, std::memory_order_relaxed);  // orders nothing
  Node* const first = m_head.load(std::memory_order_relaxed);
  cobject* const value = std::exchange(first->value, nullptr);
  waitForPushers();
  delete dummy;
  return cshared_ptr<cobject>::adopt(value);
}

/** Makes the first node the dummy and returns the old one; null when there is no first node. */
qiv_lockfreeQImpl::Node* qiv_lockfreeQImpl::unlinkDummy() noexcept {
  Node* const dummy = m_head.load(std::memory_order_relaxed);
  Node* tail = m_tail.load(std::memory_order_seq_cst);
  Node* const first = dummy->next.load(std::memory_order_acquire);
  if (first == nullptr) return nullptr;
  if (tail == dummy) m_tail.compare_exchange_strong(tail, first, std::memory_order_seq_cst);
  m_head.store(first, std::memory_order_release);
  m_pops.fetch_add(1, std::memory_order_release);
  return dummy;
}

void qiv_lockfreeQImpl::waitForPushers() noexcept {
  const unsigned int current = m_epoch.load(std::memory_order_relaxed);
  WaitForZero(m_inside[1 - current]);
  if (m_inside[current].load(std::memory_order_seq_cst) == 0) return;
  m_epoch.store(1 - current, std::memory_order_relaxed);
  WaitForZero(m_inside[current]);
}

int qiv_lockfreeQImpl::empty() const noexcept {
  // Addresses only: the nodes may be gone. A node that a pop has freed in between may come back as
  // the last one; the queue was not empty then.
  const unsigned int pops = m_pops.load(std::memory_order_acquire);
  const Node* const head = m_head.load(std::memory_order_acquire);
  const Node* const tail = m_tail.load(std::memory_order_acquire);
  return head == tail && m_pops.load(std::memory_order_relaxed) == pops ? 1 : 0;
}

int qiv_lockfreeQImpl::size() const noexcept { return m_count.load(std::memory_order_relaxed); }

qiv_lockfreeQ::qiv_lockfreeQ() noexcept : m_impl(nullptr) {
  try {
    m_impl = new qiv_lockfreeQImpl;
  } catch (const std::bad_alloc&) {
    m_impl = nullptr;
  }
}

qiv_lockfreeQ::~qiv_lockfreeQ() { delete m_impl; }

void qiv_lockfreeQ::push_back(cshared_ptr<cobject> value) {
  if (!value) return;
  qiv_tlsTraceInfoOper::instance()->getTraceInfo(&value->m_traceInfo);
  if (m_impl != nullptr) m_impl->push_back(std::move(value));
}

cshared_ptr<cobject> qiv_lockfreeQ::pop_front() noexcept {
  if (m_impl == nullptr) return nullptr;
  cshared_ptr<cobject> value = m_impl->pop_front();
  if (value) qiv_tlsTraceInfoOper::instance()->setTraceInfo(&value->m_traceInfo);
  return value;
}

int qiv_lockfreeQ::empty() const noexcept { return m_impl == nullptr ? 1 : m_impl->empty(); }

int qiv_lockfreeQ::size() const noexcept { return m_impl == nullptr ? -1 : m_impl->size(); }

}  // namespace qiv
