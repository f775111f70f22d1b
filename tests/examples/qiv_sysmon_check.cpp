// Checks what qiv-sysmon computes and draws, on snapshots made up here.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "figures.h"
#include "reading.h"
#include "report.h"
#include "view.h"

namespace {

using namespace sysmon;

constexpr qiv_uint64 kMiB = 1024ull * 1024;

void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "FAILED: %s\n", what.c_str());
  std::exit(1);
}

void CheckText(const std::string& text, const std::string& expected) {
  Check(text == expected, "'" + text + "' instead of '" + expected + "'");
}

std::string Joined(const Cells& cells) {
  std::string text;
  for (const std::string& cell : cells) text += cell;
  return text;
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

void TextsOfFiguresHaveTheirUnits() {
  CheckText(PercentText(0), "  0.0 %");
  CheckText(PercentText(0.2155), " 21.6 %");
  CheckText(PercentText(1), "100.0 %");
  CheckText(PercentText(7), "100.0 %");
  CheckText(PercentText(-1), "  0.0 %");
  CheckText(PercentText(std::numeric_limits<double>::quiet_NaN()), "  0.0 %");
  CheckText(BytesText(0), "0 B");
  CheckText(BytesText(1023), "1023 B");
  CheckText(BytesText(1024), "1.0 KiB");
  CheckText(BytesText(1536), "1.5 KiB");
  CheckText(BytesText(1024 * 1024 - 1), "1.0 MiB");
  CheckText(BytesText(5.0 * 1024 * 1024 * 1024), "5.0 GiB");
  CheckText(BytesText(18446744073709551615.0), "16.0 EiB");
  CheckText(RateText(2048), "2.0 KiB/s");
  CheckText(VisibleText("e\x1b[2Jth 0\xc3\xa4"), "e?[2Jth?0??");
}

void BarsFillTheirPartOfTheWidth() {
  CheckText(Joined(Bar(0, 10, true)), "");
  CheckText(Joined(Bar(1, 4, true)), "████");
  CheckText(Joined(Bar(0.5, 3, true)), "█▌");
  CheckText(Joined(Bar(0.0125, 10, true)), "▏");
  CheckText(Joined(Bar(2, 3, true)), "███");
  CheckText(Joined(Bar(-1, 3, true)), "");
  CheckText(Joined(Bar(0.5, 10, false)), "#####");
  CheckText(Joined(Bar(1, 0, true)), "");
  for (int i = 0; i <= 1000; ++i) {
    Check(Bar(i / 1000.0, 7, true).size() <= 7, "a bar wider than its place");
    Check(Bar(i / 1000.0, 7, false).size() <= 7, "a bar of ASCII wider than its place");
  }
}

void SparklinesShowTheNewestValuesToTheRight() {
  CheckText(Joined(Sparkline({}, 1, 3, true)), "   ");
  CheckText(Joined(Sparkline({0, 0.5, 1}, 1, 5, true)), "   ▄█");
  CheckText(Joined(Sparkline({0.125, 0.25, 1}, 1, 2, true)), "▂█");
  CheckText(Joined(Sparkline({0.0001}, 1, 1, true)), "▁");
  CheckText(Joined(Sparkline({5, 10}, 10, 2, false)), "=@");
  CheckText(Joined(Sparkline({5, 50}, 0, 2, false)), "  ");
  CheckText(Joined(Sparkline({50}, 10, 1, false)), "@");
}

QIV_CPU_STAT_T Processor(qiv_uint64 user, qiv_uint64 system, qiv_uint64 irq, qiv_uint64 idle) {
  QIV_CPU_STAT_T record = {};
  record.ullUser = user;
  record.ullSystem = system;
  record.ullIrq = irq;
  record.ullIdleAll = idle;
  return record;
}

Snapshot Before() {
  Snapshot snapshot;
  snapshot.tickMs = 1000;
  snapshot.processors = {Processor(100, 100, 10, 1000), Processor(0, 0, 0, 500)};
  snapshot.interfaces = {{{"eth0", {"192.0.2.1", "fe80::1"}}, 1000, 10, 5000, 50}};
  return snapshot;
}

Snapshot After() {
  Snapshot snapshot = Before();
  snapshot.time = 1700000000123456;
  snapshot.tickMs += 2000;
  snapshot.processors = {Processor(140, 130, 15, 1025), Processor(0, 0, 0, 600)};
  snapshot.memory.ullTotalPhys = 1000 * kMiB;
  snapshot.memory.ullAvailPhys = 250 * kMiB;
  snapshot.interfaces = {{{"eth0", {"192.0.2.1", "fe80::1"}}, 5000, 20, 4000, 60},
                         {{"wg\"0", {}}, 700, 7, 800, 8}};
  return snapshot;
}

void RatesAreThoseOfTheInterval() {
  const Reading reading = Compare(Before(), After());
  Check(reading.intervalMs == 2000 && reading.time == 1700000000123456, "the interval");
  Check(reading.processors == std::vector<double>({0.75, 0}), "each processor");
  Check(reading.busyFraction == 0.375, "all processors");
  Check(reading.memory.UsedFraction() == 0.75, "the memory in use");
  Check(reading.swap.UsedFraction() == 0, "no swap space");
  Check(reading.interfaces.size() == 2, "the interfaces");
  Check(reading.interfaces[0].receivedPerSecond == 2000, "the rate of reception");
  Check(reading.interfaces[0].sentPerSecond == 0, "a counter that went back");
  Check(reading.interfaces[1].receivedPerSecond == 0, "an interface that is new");
}

void SnapshotsThatDoNotFitGiveNoRates() {
  Snapshot before = Before();
  before.tickMs = After().tickMs;
  before.processors.pop_back();
  const Reading reading = Compare(before, After());
  Check(reading.processors == std::vector<double>({0, 0}), "a processor came on");
  Check(reading.busyFraction == 0, "all of processors that changed");
  Check(reading.interfaces[0].receivedPerSecond == 0, "no time has passed");
  Check(Compare(Snapshot(), Snapshot()).processors.empty(), "nothing at all");
  Check((Storage{10, 20}).UsedBytes() == 0, "more available than there is");
}

void ReportsCarryEveryFigure() {
  const Reading reading = Compare(Before(), After());
  CheckText(PlainReport(reading),
            "time 2023-11-14T22:13:20.123Z\n"
            "interval_ms 2000\n"
            "cpu all used_percent 37.5\n"
            "cpu 0 used_percent 75.0\n"
            "cpu 1 used_percent 0.0\n"
            "memory total 1048576000\n"
            "memory available 262144000\n"
            "memory used_percent 75.0\n"
            "swap total 0\n"
            "swap available 0\n"
            "swap used_percent 0.0\n"
            "net eth0 address 192.0.2.1\n"
            "net eth0 address fe80::1\n"
            "net eth0 received_bytes 5000\n"
            "net eth0 received_packets 20\n"
            "net eth0 received_bytes_per_second 2000\n"
            "net eth0 sent_bytes 4000\n"
            "net eth0 sent_packets 60\n"
            "net eth0 sent_bytes_per_second 0\n"
            "net wg\"0 received_bytes 700\n"
            "net wg\"0 received_packets 7\n"
            "net wg\"0 received_bytes_per_second 0\n"
            "net wg\"0 sent_bytes 800\n"
            "net wg\"0 sent_packets 8\n"
            "net wg\"0 sent_bytes_per_second 0\n");
  CheckText(JsonReport(reading),
            "{\"time\":\"2023-11-14T22:13:20.123Z\",\"interval_ms\":2000,"
            "\"cpu\":{\"used_percent\":37.5,\"each_used_percent\":[75.0,0.0]},"
            "\"memory\":{\"total_bytes\":1048576000,\"available_bytes\":262144000,"
            "\"used_percent\":75.0},"
            "\"swap\":{\"total_bytes\":0,\"available_bytes\":0,\"used_percent\":0.0},"
            "\"network\":[{\"name\":\"eth0\",\"addresses\":[\"192.0.2.1\",\"fe80::1\"],"
            "\"received_bytes\":5000,\"received_packets\":20,\"received_bytes_per_second\":2000,"
            "\"sent_bytes\":4000,\"sent_packets\":60,\"sent_bytes_per_second\":0},"
            "{\"name\":\"wg\\\"0\",\"addresses\":[],"
            "\"received_bytes\":700,\"received_packets\":7,\"received_bytes_per_second\":0,"
            "\"sent_bytes\":800,\"sent_packets\":8,\"sent_bytes_per_second\":0}]}\n");
  CheckText(JsonText("a\\b\n\x1b\x7f\xff"), R"("a\\b\u000a\u001b\u007f\u00ff")");
}

View FilledView(Style style) {
  View view("host", "footer", style);
  view.Add(Compare(Before(), Before()));
  view.Add(Compare(Before(), After()));
  return view;
}

std::string Screen(const View& view, Size size) {
  std::string text;
  for (const std::string& line : view.Draw(size)) text += line + "\n";
  return text;
}

void ScreensShowEveryFigure() {
  const std::string text = Screen(FilledView({false, false}), {100, 40});
  for (const char* part : {"qiv-sysmon  host", "Processor", " 37.5 %", " 75.0 %", "of 2",
                           "750.0 MiB of 1000.0 MiB", "none", "eth0", "192.0.2.1, fe80::1",
                           "2.0 KiB/s", "total 4.9 KiB", "wg\"0", "footer", "####", "...."}) {
    Check(Holds(text, part), std::string("the screen lacks ") + part);
  }
  Check(!Holds(text, "\x1b"), "codes on a screen without colour");
  for (const char c : text) Check(c == '\n' || (c >= ' ' && c <= '~'), "more than ASCII");
  Check(Holds(Screen(FilledView({true, false}), {100, 40}), "█"), "no blocks with UTF-8");
  Check(Holds(Screen(FilledView({false, true}), {100, 40}), "\x1b[33m#"), "no colour");
}

void ScreensFitIntoEverySize() {
  const View view = FilledView({false, false});
  for (std::size_t columns = 1; columns <= 130; ++columns) {
    for (std::size_t rows = 1; rows <= 30; ++rows) {
      const std::vector<std::string> lines = view.Draw({columns, rows});
      Check(lines.size() <= rows, "too many lines");
      for (const std::string& line : lines) Check(line.size() <= columns, "a line too wide");
    }
  }
}

void ManyProcessorsShareALine() {
  Snapshot before;
  Snapshot after;
  before.processors.assign(64, Processor(0, 0, 0, 0));
  after.processors.assign(64, Processor(1, 0, 0, 1));
  View view("host", "footer", {false, false});
  view.Add(Compare(before, after));
  Check(Holds(Screen(view, {100, 24}), "each     " + std::string(64, '=')), "64 heights");
  Check(Holds(Screen(view, {100, 90}), "  63  "), "64 rows where there is room");
}

// A view that has gone on for long keeps no more than it can show.
void LongHistoriesEnd() {
  View view = FilledView({true, false});
  for (int i = 0; i < 3000; ++i) view.Add(Compare(Before(), After()));
  Check(view.Draw({2000, 24}).size() <= 24, "the screen after a long time");
}

}  // namespace

int main() {
  TextsOfFiguresHaveTheirUnits();
  BarsFillTheirPartOfTheWidth();
  SparklinesShowTheNewestValuesToTheRight();
  RatesAreThoseOfTheInterval();
  SnapshotsThatDoNotFitGiveNoRates();
  ReportsCarryEveryFigure();
  ScreensShowEveryFigure();
  ScreensFitIntoEverySize();
  ManyProcessorsShareALine();
  LongHistoriesEnd();
  std::puts("all checks hold");
  return 0;
}
