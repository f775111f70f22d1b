#include "figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sysmon {
namespace {

constexpr int kEighths = 8;
constexpr const char* kColumnParts[kEighths + 1] = {" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
constexpr const char* kHeights[kEighths + 1] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* kAsciiHeights[kEighths + 1] = {" ", ".", ":", "-", "=", "+", "*", "#", "@"};

// Also for what is no number.
double Bounded(double fraction) { return fraction > 0 ? std::min(fraction, 1.0) : 0.0; }

template <class... Values>
std::string Formatted(const char* format, Values... values) {
  char text[64];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

}  // namespace

std::string PercentText(double fraction) { return Formatted("%5.1f %%", Bounded(fraction) * 100); }

std::string BytesText(double bytes) {
  constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  constexpr double kStep = 1024;
  constexpr double kRoundsUp = 1023.95;  // would show as 1024.0
  const char* const* unit = kUnits;
  while (bytes >= kRoundsUp && unit + 1 != std::end(kUnits)) {
    bytes /= kStep;
    ++unit;
  }
  return Formatted(unit == kUnits ? "%.0f %s" : "%.1f %s", bytes, *unit);
}

std::string RateText(double bytesPerSecond) { return BytesText(bytesPerSecond) + "/s"; }

std::string VisibleText(const std::string& text) {
  std::string visible = text;
  std::replace_if(
      visible.begin(), visible.end(), [](char c) { return c <= ' ' || c > '~'; }, '?');
  return visible;
}

Cells Bar(double fraction, std::size_t width, bool utf8) {
  const double columns = Bounded(fraction) * static_cast<double>(width);
  const auto eighths = static_cast<std::size_t>(std::lround(columns * kEighths));
  const auto wholes = utf8 ? eighths / kEighths : static_cast<std::size_t>(std::lround(columns));
  Cells cells(wholes, utf8 ? kColumnParts[kEighths] : "#");
  if (utf8 && eighths % kEighths != 0) cells.emplace_back(kColumnParts[eighths % kEighths]);
  return cells;
}

Cells Sparkline(const std::deque<double>& values, double most, std::size_t width, bool utf8) {
  const std::size_t count = std::min(width, values.size());
  Cells cells(width - count, " ");
  for (std::size_t i = values.size() - count; i < values.size(); ++i) {
    const double fraction = most > 0 ? Bounded(values[i] / most) : 0;
    // What is not nothing shows.
    const int least = fraction > 0 ? 1 : 0;
    const int height = std::max(least, static_cast<int>(std::lround(fraction * kEighths)));
    cells.emplace_back(utf8 ? kHeights[height] : kAsciiHeights[height]);
  }
  return cells;
}

}  // namespace sysmon
