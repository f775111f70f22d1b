// Arithmetic on callers' 64-bit values that wraps where it would overflow.
#ifndef QIV_BASE_WRAPPING_H
#define QIV_BASE_WRAPPING_H

#include <qiv/types.h>

namespace qiv::base {

constexpr qiv_int64 WrappingSum(qiv_int64 a, qiv_int64 b) noexcept {
  return static_cast<qiv_int64>(static_cast<qiv_uint64>(a) + static_cast<qiv_uint64>(b));
}

constexpr qiv_int64 WrappingDifference(qiv_int64 a, qiv_int64 b) noexcept {
  return static_cast<qiv_int64>(static_cast<qiv_uint64>(a) - static_cast<qiv_uint64>(b));
}

constexpr qiv_int64 WrappingProduct(qiv_int64 a, qiv_int64 b) noexcept {
  return static_cast<qiv_int64>(static_cast<qiv_uint64>(a) * static_cast<qiv_uint64>(b));
}

}  // namespace qiv::base

#endif
