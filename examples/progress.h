// The line that shows, on a terminal, how far a transfer is.
#pragma once

#include <cstdint>

namespace echo {

class Progress {
 public:
  explicit Progress(std::uint64_t total);
  ~Progress();  // takes the line away
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uint64_t done);

 private:
  const std::uint64_t m_total;
  const bool m_onTerminal;
};

}  // namespace echo
