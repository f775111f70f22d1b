// What the tests of the memory pools share.
#ifndef QIV_TESTS_MEMORY_POOL_VALUES_H
#define QIV_TESTS_MEMORY_POOL_VALUES_H

#include <cstdio>
#include <string>

namespace qiv::test {

// Idle times in milliseconds.
constexpr long long kNever = -1;
constexpr long long kHour = 3600000;

/** A pointer as the pools' reports print it. */
inline std::string PointerText(const void* pointer) {
  char text[64];
  std::snprintf(text, sizeof(text), "%p", pointer);
  return text;
}

}  // namespace qiv::test

#endif
