// Figures as texts, and as characters to draw with. Nothing here reads or prints.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace sysmon {

std::string PercentText(double fraction);     // " 21.5 %", of one width from 0 to 100
std::string BytesText(double bytes);          // "4.9 GiB"
std::string RateText(double bytesPerSecond);  // "4.9 MiB/s"

// A foreign text for a terminal: bytes that are no visible ASCII become "?".
std::string VisibleText(const std::string& text);

// What stands in one column each.
using Cells = std::vector<std::string>;

// The filled part of a bar, exact to an eighth of a column with UTF-8.
Cells Bar(double fraction, std::size_t width, bool utf8);

// The last `width` values as heights from 0 to `most`, the newest to the right.
Cells Sparkline(const std::deque<double>& values, double most, std::size_t width, bool utf8);

}  // namespace sysmon
