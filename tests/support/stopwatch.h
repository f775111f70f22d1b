// Time since an object of this was made.
#ifndef QIV_TESTS_SUPPORT_STOPWATCH_H
#define QIV_TESTS_SUPPORT_STOPWATCH_H

#include <chrono>

namespace qiv::test {

class Stopwatch {
 public:
  long long Milliseconds() const {
    const auto spent = std::chrono::steady_clock::now() - m_start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(spent).count();
  }

 private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

}  // namespace qiv::test

#endif
