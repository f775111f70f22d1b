#include "support/test_limit.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace qiv::test {
namespace {

int EnvironmentNumber(const char* name, int fallback) {
  const char* text = std::getenv(name);
  const long long value = text == nullptr ? 0 : std::strtoll(text, nullptr, 10);
  return value > 0 ? static_cast<int>(std::min<long long>(value, INT_MAX)) : fallback;
}

}  // namespace

std::chrono::milliseconds TestLimit() {
  static const int scale = EnvironmentNumber("QIV_TEST_TIME_SCALE", 1);
  return std::chrono::seconds(20) * scale;
}

int ScaledLoad(int fullLoad) {
  static const int percent = EnvironmentNumber("QIV_TEST_LOAD", 100);
  const long long load = 1LL * fullLoad * percent / 100;
  return static_cast<int>(std::clamp<long long>(load, 1, INT_MAX));
}

}  // namespace qiv::test
