// Aligned allocation: a heap block whose address stands in front of the aligned memory in it.
#include <errno.h>
#include <qiv/aligned_memory.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kWordSize = sizeof(void*);

bool IsPowerOfTwo(unsigned int number) { return number != 0 && (number & (number - 1)) == 0; }

/** Bytes from an address up to the next multiple of `alignment`; 0 at one. */
std::size_t Padding(const void* memory, std::size_t alignment) {
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  if (address % alignment == 0) return 0;
  return alignment * ((address + alignment) / alignment) - address;
}

}  // namespace

extern "C" {

void* QIV_AlignedMalloc(unsigned int size, unsigned int alignment) noexcept {
  if (!IsPowerOfTwo(alignment)) {
    errno = EINVAL;
    return nullptr;
  }
  const std::uint64_t blockSize = std::uint64_t{size} + alignment + kWordSize;
  if (blockSize > SIZE_MAX) {
    errno = ENOMEM;
    return nullptr;
  }
  void* const block = std::calloc(1, static_cast<std::size_t>(blockSize));
  if (block == nullptr) return nullptr;
  char* memory = static_cast<char*>(block) + kWordSize;
  memory += Padding(memory, alignment);
  std::memcpy(memory - kWordSize, &block, kWordSize);
  return memory;
}

void QIV_AlignedFree(void* memory) noexcept {
  if (memory == nullptr) return;
  void* block = nullptr;
  std::memcpy(&block, static_cast<char*>(memory) - kWordSize, kWordSize);
  std::free(block);
}

}  // extern "C"
