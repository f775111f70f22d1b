#include "support/test_limit.h"

#include <algorithm>
#include <cstdlib>

namespace qiv::test {
namespace {

int EnvironmentNumber(const char* name, int fallback) {
  const char* text = std::getenv(name);
  const int value = text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
  return value > 0 ? value : fallback;
}

}  // namespace

std::chrono::milliseconds TestLimit() {
  static const int scale = EnvironmentNumber("QIV_TEST_TIME_SCALE", 1);
  return std::chrono::seconds(20) * scale;
}

int ScaledLoad(int fullLoad) {
  static const int percent = EnvironmentNumber("QIV_TEST_LOAD", 100);
  return std::max(1, fullLoad * percent / 100);
}

}  // namespace qiv::test
