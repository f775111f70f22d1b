// Thread ids from the library's table, and the key by which each thread remembers its own.
//
// The key is made by the first thread that asks for its id, under g_keyMutex, and read without a
// lock once g_keyState says that it is there. Its destructor tells the table that a thread ends.
// Under g_keyMutex no other lock is taken.
#include "thread/thread_ids.h"

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "base/constant_mutex.h"
#include "base/load_order.h"
#include "base/scoped_lock.h"
#include "thread/thread_id_table.h"

namespace qiv::thread {
namespace {

enum class KeyState { kNone, kMade, kDeleted };

// Threads may call in until the process is gone, so none of this may need a destructor.
ThreadIdTable g_table;
base::ConstantMutex g_keyMutex;
std::atomic<KeyState> g_keyState{KeyState::kNone};
pthread_key_t g_key = 0;
static_assert(std::is_trivially_destructible<ThreadIdTable>::value, "used until the process ends");

extern "C" void ThreadWithIdEnds(void*) { g_table.SelfEnds(); }

bool KeyExists() { return g_keyState.load(std::memory_order_acquire) == KeyState::kMade; }

bool MakeKey() {
  const base::ScopedLock lock(g_keyMutex);
  // The mutex orders the looks at the state here; the release is for KeyExists().
  if (g_keyState.load(std::memory_order_relaxed) != KeyState::kNone) return KeyExists();
  if (pthread_key_create(&g_key, ThreadWithIdEnds) != 0) return false;
  g_keyState.store(KeyState::kMade, std::memory_order_release);
  return true;
}

unsigned int RememberedId() {
  if (!KeyExists()) return 0;
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pthread_getspecific(g_key)));
}

bool RememberId(unsigned int id) {
  if (!KeyExists() && !MakeKey()) return false;
  return pthread_setspecific(g_key, reinterpret_cast<void*>(static_cast<std::uintptr_t>(id))) == 0;
}

/** Leaves nothing behind in the process when the library is unloaded. */
class UnloadGuard {
 public:
  constexpr UnloadGuard() noexcept = default;
  ~UnloadGuard() {
    DeleteKey();
    g_table.Clear();
  }
  UnloadGuard(const UnloadGuard&) = delete;
  UnloadGuard& operator=(const UnloadGuard&) = delete;

 private:
  static void DeleteKey() {
    const base::ScopedLock lock(g_keyMutex);
    const bool made = KeyExists();
    g_keyState.store(KeyState::kDeleted, std::memory_order_release);
    if (made) pthread_key_delete(g_key);
  }
};

QIV_LOAD_ORDER(QIV_LOAD_THREAD_IDS) UnloadGuard g_unloadGuard;

}  // namespace

unsigned int TableThreadIds::Create(const pthread_attr_t* attributes, ThreadRoutine routine,
                                    void* argument) noexcept {
  return g_table.Create(attributes, routine, argument);
}

unsigned int TableThreadIds::Self() noexcept {
  const unsigned int remembered = RememberedId();
  if (remembered != 0) return remembered;
  const unsigned int id = g_table.Self();
  if (id == kInvalid || RememberId(id)) return id;
  // Nobody would notice the end of this thread, so an entry made just now must not stay.
  return g_table.SelfEnds() ? kInvalid : id;
}

int TableThreadIds::Join(unsigned int id) { return g_table.Join(id); }

void TableThreadIds::LockForFork() noexcept { g_table.LockForFork(); }

void TableThreadIds::UnlockAfterFork() noexcept { g_table.UnlockAfterFork(); }

int TableThreadIds::SetPriority(unsigned int id, int priority) noexcept {
  return g_table.SetPriority(id, priority);
}

}  // namespace qiv::thread
