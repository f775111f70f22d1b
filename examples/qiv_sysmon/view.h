// The screen: the latest reading as bars, and the readings before it as a history. Nothing here
// reads or prints.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "reading.h"

namespace sysmon {

struct Style {
  bool utf8 = false;
  bool colour = false;
};

struct Size {
  std::size_t columns;
  std::size_t rows;
};

class View {
 public:
  // `host` and `footer` are visible ASCII.
  View(std::string host, std::string footer, Style style);

  void Add(const Reading& reading);

  // The lines of a screen, none of them wider and no more of them than fit.
  std::vector<std::string> Draw(Size size) const;

 private:
  using Series = std::deque<double>;
  class Canvas;

  void DrawProcessors(std::size_t rows, Canvas* canvas) const;
  void DrawStorage(Canvas* canvas) const;
  void DrawTraffic(const Traffic& traffic, Canvas* canvas) const;
  std::size_t RowsWithoutProcessors() const;

  std::string m_host;
  std::string m_footer;
  Style m_style;
  Reading m_reading;
  std::map<std::string, Series> m_history;
};

}  // namespace sysmon
