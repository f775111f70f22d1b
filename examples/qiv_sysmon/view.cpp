#include "view.h"

#include <qiv/time.h>

#include <algorithm>
#include <utility>

#include "figures.h"

namespace sysmon {
namespace {

constexpr std::size_t kHistoryLength = 512;  // the widest screen whose history is full
constexpr std::size_t kLabelWidth = 12;
constexpr std::size_t kValueWidth = 35;
constexpr std::size_t kLeastDrawn = 8;  // columns of a bar, even where its value is cut off then
constexpr double kBusy = 0.6;
constexpr double kNearlyFull = 0.85;

// The terminal's codes.
constexpr const char* kPlain = "";
constexpr const char* kStrong = "1";
constexpr const char* kFaint = "2";
constexpr const char* kRed = "31";
constexpr const char* kGreen = "32";
constexpr const char* kYellow = "33";
constexpr const char* kCyan = "36";

const char* ColourOf(double fraction) {
  if (fraction >= kNearlyFull) return kRed;
  return fraction >= kBusy ? kYellow : kGreen;
}

// A line that takes what fits into its columns and drops the rest.
class Line {
 public:
  Line(std::size_t columns, bool colour) : m_columns(columns), m_colour(colour) {}

  Line& Put(const Cells& cells, const char* code) {
    const std::size_t count = std::min(cells.size(), m_columns - m_used);
    const bool isCoded = m_colour && *code != '\0' && count > 0;
    if (isCoded) m_text.append("\x1b[").append(code).append("m");
    for (std::size_t i = 0; i < count; ++i) m_text += cells[i];
    if (isCoded) m_text += "\x1b[0m";
    m_used += count;
    return *this;
  }

  Line& Put(const std::string& ascii, const char* code = kPlain) {
    Cells cells;
    for (const char c : ascii) cells.emplace_back(1, c);
    return Put(cells, code);
  }

  Line& SkipTo(std::size_t column) {
    return column > m_used ? Put(std::string(column - m_used, ' ')) : *this;
  }

  const std::string& Text() const { return m_text; }

 private:
  std::size_t m_columns;
  bool m_colour;
  std::size_t m_used = 0;
  std::string m_text;
};

std::string LocalTimeText(QIV_TIME_T time) {
  char text[32] = {};
  QIV_CTime(text, time);
  return text;
}

std::string UsedText(const Storage& storage) {
  return BytesText(static_cast<double>(storage.UsedBytes())) + " of " +
         BytesText(static_cast<double>(storage.totalBytes));
}

std::string TotalText(qiv_uint64 bytes) { return BytesText(static_cast<double>(bytes)); }

}  // namespace

// Lines of a label, something drawn, and a value.
class View::Canvas {
 public:
  Canvas(Size size, Style style) : m_size(size), m_style(style) {}

  std::size_t Rows() const { return m_size.rows; }
  bool HasRoom() const { return m_lines.size() < m_size.rows; }

  void Add(const Line& line) {
    if (HasRoom()) m_lines.push_back(line.Text());
  }
  void AddEmpty() { Add(NewLine()); }

  void AddTitle(const std::string& left, const std::string& right) {
    Line line = NewLine();
    line.Put(" " + left, kStrong);
    if (left.size() + right.size() + 3 <= m_size.columns) {
      line.SkipTo(m_size.columns - right.size() - 1).Put(right, kFaint);
    }
    Add(line);
  }

  void AddBar(const std::string& label, const char* labelCode, double fraction,
              const std::string& value) {
    const Cells bar = Bar(fraction, DrawnWidth(), m_style.utf8);
    const Cells rest(DrawnWidth() - bar.size(), m_style.utf8 ? "·" : ".");
    Add(Labelled(label, labelCode)
            .Put(bar, ColourOf(fraction))
            .Put(rest, kFaint)
            .Put(" " + PercentText(fraction) + "  " + value));
  }

  void AddSparkline(const std::string& label, const Series& values, double most,
                    const std::string& value) {
    Add(Labelled(label, kFaint)
            .Put(Sparkline(values, most, DrawnWidth(), m_style.utf8), kCyan)
            .Put("  " + value));
  }

  // As many heights as there are values, from left to right.
  void AddHeights(const std::string& label, const std::vector<double>& values) {
    const Series series(values.begin(), values.end());
    Add(Labelled(label, kFaint).Put(Sparkline(series, 1, series.size(), m_style.utf8), kCyan));
  }

  void AddText(const std::string& label, const std::string& text) {
    Add(Labelled(label, kStrong).Put(text, kFaint));
  }

  std::vector<std::string> TakeLines() { return std::move(m_lines); }

 private:
  Line NewLine() const { return {m_size.columns, m_style.colour}; }

  Line Labelled(const std::string& label, const char* code) const {
    Line line = NewLine();
    line.Put(" " + label, code).SkipTo(std::max(kLabelWidth, label.size() + 2));
    return line;
  }

  std::size_t DrawnWidth() const {
    const std::size_t others = kLabelWidth + kValueWidth;
    return m_size.columns > others + kLeastDrawn ? m_size.columns - others : kLeastDrawn;
  }

  Size m_size;
  Style m_style;
  std::vector<std::string> m_lines;
};

View::View(std::string host, std::string footer, Style style)
    : m_host(std::move(host)), m_footer(std::move(footer)), m_style(style) {}

void View::Add(const Reading& reading) {
  std::map<std::string, Series> history;
  // What has no value any more, as an interface that is gone, has no history either.
  const auto append = [this, &history](const std::string& name, double value) {
    Series& series = history[name] = std::move(m_history[name]);
    series.push_back(value);
    if (series.size() > kHistoryLength) series.pop_front();
  };
  append("cpu", reading.busyFraction);
  append("memory", reading.memory.UsedFraction());
  for (const Traffic& each : reading.interfaces) {
    append("receive " + each.counters.adapter.name, each.receivedPerSecond);
    append("send " + each.counters.adapter.name, each.sentPerSecond);
  }
  m_history = std::move(history);
  m_reading = reading;
}

std::vector<std::string> View::Draw(Size size) const {
  Canvas canvas(size, m_style);
  canvas.AddTitle("qiv-sysmon  " + m_host, LocalTimeText(m_reading.time));
  canvas.AddEmpty();
  const std::size_t others = RowsWithoutProcessors();
  DrawProcessors(size.rows > others ? size.rows - others : 1, &canvas);
  canvas.AddEmpty();
  DrawStorage(&canvas);
  for (const Traffic& each : m_reading.interfaces) {
    canvas.AddEmpty();
    DrawTraffic(each, &canvas);
  }
  canvas.AddEmpty();
  canvas.AddTitle("", m_footer);
  return canvas.TakeLines();
}

std::size_t View::RowsWithoutProcessors() const {
  constexpr std::size_t kOthers = 10;  // title, all processors and memory, with their gaps; footer
  constexpr std::size_t kRowsOfInterface = 4;
  return kOthers + kRowsOfInterface * m_reading.interfaces.size();
}

// Processors that have no row of their own share one.
void View::DrawProcessors(std::size_t rows, Canvas* canvas) const {
  const std::size_t count = m_reading.processors.size();
  canvas->AddBar("Processor", kStrong, m_reading.busyFraction, "of " + std::to_string(count));
  if (count <= rows) {
    for (std::size_t i = 0; i < count; ++i) {
      canvas->AddBar("  " + std::to_string(i), kPlain, m_reading.processors[i], "");
    }
  } else {
    canvas->AddHeights("  each", m_reading.processors);
  }
  canvas->AddSparkline("  history", m_history.at("cpu"), 1, "");
}

void View::DrawStorage(Canvas* canvas) const {
  canvas->AddBar("Memory", kStrong, m_reading.memory.UsedFraction(), UsedText(m_reading.memory));
  canvas->AddSparkline("  history", m_history.at("memory"), 1, "");
  if (m_reading.swap.totalBytes == 0) {
    canvas->AddText("Swap", "none");
  } else {
    canvas->AddBar("Swap", kStrong, m_reading.swap.UsedFraction(), UsedText(m_reading.swap));
  }
}

// Both directions have one scale, the highest rate that is in sight.
void View::DrawTraffic(const Traffic& traffic, Canvas* canvas) const {
  const InterfaceCounters& counters = traffic.counters;
  const Series& received = m_history.at("receive " + counters.adapter.name);
  const Series& sent = m_history.at("send " + counters.adapter.name);
  const double most = std::max(*std::max_element(received.begin(), received.end()),
                               *std::max_element(sent.begin(), sent.end()));
  std::string addresses;
  for (const std::string& each : counters.adapter.addresses) {
    addresses += (addresses.empty() ? "" : ", ") + each;
  }
  const auto value = [](double rate, qiv_uint64 total) {
    std::string text = RateText(rate);
    text.resize(std::max<std::size_t>(text.size(), 13), ' ');
    return text + "total " + TotalText(total);
  };
  canvas->AddText(VisibleText(counters.adapter.name), addresses);
  canvas->AddSparkline("  receive", received, most,
                       value(traffic.receivedPerSecond, counters.receivedBytes));
  canvas->AddSparkline("  send", sent, most, value(traffic.sentPerSecond, counters.sentBytes));
}

}  // namespace sysmon
