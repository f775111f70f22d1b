// Sizes of pools, as their 32-bit figures tell them.
#ifndef QIV_MEMORY_POOL_SIZE_H
#define QIV_MEMORY_POOL_SIZE_H

#include <qiv/types.h>

#include <algorithm>
#include <limits>

namespace qiv::memory {

/** A number of bytes, or the largest figure there is. */
constexpr unsigned int SizeFigure(qiv_uint64 bytes) noexcept {
  return static_cast<unsigned int>(
      std::min<qiv_uint64>(bytes, std::numeric_limits<unsigned int>::max()));
}

}  // namespace qiv::memory

#endif
