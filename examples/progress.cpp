#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace echo {

Progress::Progress(std::uint64_t total)
    : m_total(total), m_onTerminal(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (m_onTerminal) {
    std::fputs("\r\033[K", stderr);
  }
}

void Progress::Show(std::uint64_t done) {
  if (!m_onTerminal || m_total == 0) {
    return;
  }
  constexpr double kMiB = 1024.0 * 1024.0;
  const double doneMiB = static_cast<double>(done) / kMiB;
  const double totalMiB = static_cast<double>(m_total) / kMiB;
  std::fprintf(stderr, "\r%3.0f %%  %.1f of %.1f MiB", 100.0 * doneMiB / totalMiB, doneMiB,
               totalMiB);
}

}  // namespace echo
