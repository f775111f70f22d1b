// The handler reads nothing but the descriptor, which is set before the first handler is and is
// never closed: a signal may still be on its way when the object ends.
#include "signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace sysmon {
namespace {

std::atomic<int> g_writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

void OnSignal(int signal) {
  const int savedErrno = errno;
  const auto byte = static_cast<unsigned char>(signal);
  [[maybe_unused]] const ssize_t written =
      write(g_writeEnd.load(std::memory_order_acquire), &byte, 1);
  errno = savedErrno;
}

void SetHandler(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

Signals::Signals() {
  int ends[2];
  // Neither end blocks: a full pipe already holds more than anybody needs to know.
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
  }
  m_readEnd = ends[0];
  g_writeEnd.store(ends[1], std::memory_order_release);
}

void Signals::Catch(std::initializer_list<int> signals) {
  for (const int signal : signals) {
    struct sigaction present = {};
    sigaction(signal, nullptr, &present);
    if (present.sa_handler != SIG_IGN) SetHandler(signal, OnSignal);
  }
}

std::optional<int> Signals::Take() {
  unsigned char byte = 0;
  if (read(m_readEnd, &byte, 1) != 1) return std::nullopt;
  return byte;
}

void Signals::StopProcess() {
  SetHandler(SIGTSTP, SIG_DFL);
  raise(SIGTSTP);
  SetHandler(SIGTSTP, OnSignal);
}

}  // namespace sysmon
