// qiv-sysmon: what the processors, the memory and the network of this machine do, from the
// library's own counters: live on a terminal, as plain lines or as JSON for scripts.
#include <poll.h>
#include <qiv/adapter.h>
#include <qiv/library.h>
#include <qiv/poll.h>
#include <qiv/time.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "figures.h"
#include "options.h"
#include "reading.h"
#include "report.h"
#include "signals.h"
#include "terminal.h"
#include "view.h"

namespace sysmon {
namespace {

struct Settings {
  int intervalMs = 1000;
  int count = 0;  // readings; 0 for no end
  bool once = false;
  bool json = false;
};

// What readings are handed to, and what may happen between two of them.
class Output {
 public:
  virtual ~Output() = default;
  // False when the output takes nothing any more.
  virtual bool Show(const Reading& reading) = 0;
  virtual void OnSignal(int /*signal*/) {}
  // How long to measure before the first reading.
  virtual int FirstIntervalMs(int intervalMs) const { return intervalMs; }
  // A descriptor to read keys from, -1 for none.
  virtual int Keys() const { return -1; }
};

class LineOutput final : public Output {
 public:
  explicit LineOutput(bool json) : m_json(json) {}

  bool Show(const Reading& reading) override {
    const std::string text = m_json ? JsonReport(reading) : PlainText(reading);
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
    // A reader that has seen enough is no failure to speak of.
    if (errno != EPIPE) std::perror("qiv-sysmon: cannot write");
    return false;
  }

 private:
  // An empty line stands between two readings.
  std::string PlainText(const Reading& reading) {
    const char* const separator = m_isFirst ? "" : "\n";
    m_isFirst = false;
    return separator + PlainReport(reading);
  }

  bool m_json;
  bool m_isFirst = true;
};

std::string HostName() {
  char name[256] = {};
  return QIV_GetHostName(name, sizeof name) == QIV_OK ? VisibleText(name) : "";
}

const char* EndingKey() { return isatty(STDIN_FILENO) == 1 ? "q" : "Ctrl-C"; }

class ScreenOutput final : public Output {
 public:
  ScreenOutput(Signals* signals, int intervalMs)
      : m_signals(signals),
        m_view(HostName(), "every " + std::to_string(intervalMs) + " ms, " + EndingKey() + " ends",
               StyleOfTerminal()) {
    signals->Catch({SIGWINCH, SIGTSTP, SIGCONT});
  }

  bool Show(const Reading& reading) override {
    m_view.Add(reading);
    m_isFilled = true;
    return Redraw();
  }

  void OnSignal(int signal) override {
    if (signal == SIGTSTP) {
      m_screen.Leave();
      m_signals->StopProcess();
    }
    if (signal == SIGTSTP || signal == SIGCONT) m_screen.Enter();
    if (m_isFilled) Redraw();
  }

  // Nobody likes to look at an empty screen.
  int FirstIntervalMs(int intervalMs) const override { return std::min(intervalMs, kFirstMs); }

  int Keys() const override { return m_screen.HasKeys() ? STDIN_FILENO : -1; }

 private:
  bool Redraw() {
    const Size size = SizeOfTerminal();
    return m_screen.Show(m_view.Draw(size), size.rows);
  }

  static constexpr int kFirstMs = 200;

  Signals* m_signals;
  View m_view;
  bool m_isFilled = false;
  Screen m_screen;
};

enum class Outcome { kGoOn, kDone, kInterrupted, kNoFigures, kNoOutput };

// A key that ends the program, or the end of all keys.
bool IsEndAsked(int keys) {
  char key = 0;
  return read(keys, &key, 1) != 1 || key == 'q' || key == 'Q';
}

Outcome TakeSignals(Signals* signals, Output* output) {
  while (const std::optional<int> signal = signals->Take()) {
    if (*signal == SIGINT || *signal == SIGTERM || *signal == SIGHUP) return Outcome::kInterrupted;
    output->OnSignal(*signal);
  }
  return Outcome::kGoOn;
}

// Waits until the monotonic clock shows `dueMs`.
Outcome WaitUntil(qiv_int64 dueMs, Signals* signals, Output* output) {
  for (;;) {
    const qiv_int64 leftMs = std::max<qiv_int64>(dueMs - QIV_GetTimeTick64(), 0);
    auto budget = static_cast<unsigned int>(leftMs);
    pollfd records[] = {{signals->Descriptor(), POLLIN, 0}, {output->Keys(), POLLIN, 0}};
    const int ready = QIV_PollEx(records, 2, &budget);
    if (ready == 0) return Outcome::kGoOn;
    // A wait that a signal has ended tells nothing of the descriptors, but the signal is there.
    if (ready > 0 && records[1].revents != 0 && IsEndAsked(output->Keys())) return Outcome::kDone;
    const Outcome outcome = TakeSignals(signals, output);
    if (outcome != Outcome::kGoOn) return outcome;
  }
}

Outcome Watch(const Settings& settings, Signals* signals, Output* output) {
  Sampler sampler;
  Snapshot before;
  if (!sampler.Take(&before)) return Outcome::kNoFigures;
  int intervalMs = output->FirstIntervalMs(settings.intervalMs);
  for (int shown = 0; settings.count == 0 || shown < settings.count; ++shown) {
    // From the last reading on, however late it was: figures of a shorter time would say little.
    const Outcome outcome = WaitUntil(before.tickMs + intervalMs, signals, output);
    if (outcome != Outcome::kGoOn) return outcome;
    Snapshot after;
    if (!sampler.Take(&after)) return Outcome::kNoFigures;
    if (!output->Show(Compare(before, after))) return Outcome::kNoOutput;
    before = std::move(after);
    intervalMs = settings.intervalMs;
  }
  return Outcome::kDone;
}

Outcome WatchOnOutput(const Settings& settings) {
  Signals signals;
  signals.Catch({SIGINT, SIGTERM, SIGHUP});
  if (settings.json || settings.once || !HasScreen()) {
    LineOutput output(settings.json);
    return Watch(settings, &signals, &output);
  }
  ScreenOutput output(&signals, settings.intervalMs);
  return Watch(settings, &signals, &output);
}

// The exit status. What is to be said comes when the screen has been given back.
int Run(const Settings& settings) {
  switch (WatchOnOutput(settings)) {
    case Outcome::kNoFigures:
      std::fprintf(stderr, "qiv-sysmon: cannot read the system's counters\n");
      return echo::kExitFailed;
    case Outcome::kNoOutput:
      return echo::kExitFailed;
    case Outcome::kInterrupted:
      // Where there is no other end, an interruption is the end that was meant.
      return settings.count != 0 ? echo::kExitInterrupted : 0;
    default:
      return 0;
  }
}

std::optional<int> ReadOptions(int argc, char** argv, Settings* settings) {
  echo::Options options("qiv-sysmon",
                        "Shows what the processors, the memory and the network do: live on a "
                        "terminal,\nas plain lines elsewhere. Network interfaces without an IPv4 "
                        "address are not listed.");
  options.AddNumber("interval", "milliseconds from one reading to the next", 100, 3600000,
                    &settings->intervalMs);
  options.AddNumber("count", "end after N readings; 0 for no end", 0, INT_MAX, &settings->count);
  options.AddFlag("once", "print one reading as plain lines, and end", &settings->once);
  options.AddFlag("json", "print each reading as a JSON object on a line", &settings->json);
  const std::optional<int> status = options.Parse(argc, argv);
  if (!status && settings->once) settings->count = 1;
  return status;
}

}  // namespace
}  // namespace sysmon

int main(int argc, char** argv) {
  // Not the way numbers are written: that of JSON is everybody's.
  std::setlocale(LC_CTYPE, "");
  try {
    sysmon::Settings settings;
    if (const std::optional<int> status = sysmon::ReadOptions(argc, argv, &settings)) {
      return *status;
    }
    // The line that it writes to standard error comes before the screen is taken.
    if (QIV_Init() != QIV_OK) {
      std::fprintf(stderr, "qiv-sysmon: the library does not start\n");
      return echo::kExitFailed;
    }
    const int status = sysmon::Run(settings);
    QIV_Fini();
    return status;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "qiv-sysmon: %s\n", failure.what());
    return echo::kExitFailed;
  }
}
