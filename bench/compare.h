// Measures the library and a plain platform counterpart in turn and prints both, with their ratio.
#ifndef QIV_BENCH_COMPARE_H
#define QIV_BENCH_COMPARE_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace qiv::bench {

class Timer {
 public:
  double Nanoseconds() const {
    const std::chrono::duration<double, std::nano> spent =
        std::chrono::steady_clock::now() - m_start;
    return spent.count();
  }

 private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

inline double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

inline void PrintHead(const char* unit) {
  std::printf("%-44s %12s %12s   %s\n", unit, "qiv", "platform", "qiv / platform");
}

/** One line: the medians of the figures, and the median of the rounds' ratios with its spread.
 *  Each measurement returns a figure, such as nanoseconds. */
template <class Qiv, class Platform>
void Compare(const char* what, Qiv measureQiv, Platform measurePlatform) {
  constexpr int kRounds = 7;
  std::vector<double> qiv;
  std::vector<double> platform;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    qiv.push_back(measureQiv());
    platform.push_back(measurePlatform());
    ratios.push_back(qiv.back() / platform.back());
  }
  const auto spread = std::minmax_element(ratios.begin(), ratios.end());
  std::printf("%-44s %12.0f %12.0f   %.2f (%.2f to %.2f)\n", what, Median(qiv), Median(platform),
              Median(ratios), *spread.first, *spread.second);
}

}  // namespace qiv::bench

#endif
