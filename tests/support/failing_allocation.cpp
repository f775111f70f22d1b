#include "support/failing_allocation.h"

#include <cstdlib>
#include <new>

namespace {

// Allocations until the one that fails; 0 when none is to fail any more.
thread_local int t_untilFailure = 0;
thread_local bool t_failsForEver = false;
thread_local bool t_happened = false;

bool ThisOneFails() noexcept {
  if (t_untilFailure == 1) {
    if (!t_failsForEver) t_untilFailure = 0;
    t_happened = true;
    return true;
  }
  if (t_untilFailure > 1) --t_untilFailure;
  return false;
}

}  // namespace

// The linker leads the calls of malloc() and its kind in the objects of this program here.
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);

void* __wrap_malloc(std::size_t size) { return ThisOneFails() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return ThisOneFails() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
  return ThisOneFails() ? nullptr : __real_realloc(memory, size);
}

}  // extern "C"

namespace {

void* Allocate(std::size_t size) noexcept {
  return ThisOneFails() ? nullptr : __real_malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace qiv::test {

FailingAllocation::FailingAllocation(int nth, FailingFor duration) noexcept {
  t_untilFailure = nth;
  t_failsForEver = duration == FailingFor::kEver;
  t_happened = false;
}
FailingAllocation::~FailingAllocation() { t_untilFailure = 0; }
bool FailingAllocation::Happened() const noexcept { return t_happened; }

}  // namespace qiv::test
