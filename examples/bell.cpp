#include "bell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace echo {
namespace {

std::atomic<Bell*> g_bell{nullptr};
std::atomic<bool> g_stopAsked{false};
static_assert(std::atomic<Bell*>::is_always_lock_free, "used in a signal handler");
static_assert(std::atomic<bool>::is_always_lock_free, "used in a signal handler");

void OnStopSignal(int /*signal*/) {
  const int savedErrno = errno;
  g_stopAsked.store(true, std::memory_order_release);
  if (Bell* bell = g_bell.load(std::memory_order_acquire)) {
    bell->Ring();
  }
  errno = savedErrno;
}

void SetHandler(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Bell::Bell() {
  int ends[2];
  // Neither end blocks: a full pipe already holds what wakes the main thread.
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
  }
  m_readEnd = ends[0];
  m_writeEnd = ends[1];
  g_bell.store(this, std::memory_order_release);
  SetHandler(OnStopSignal);
}

Bell::~Bell() {
  SetHandler(SIG_IGN);  // a signal that comes while the program ends changes nothing
  g_bell.store(nullptr, std::memory_order_release);
  close(m_readEnd);
  close(m_writeEnd);
}

void Bell::Ring() noexcept {
  const char byte = 0;
  [[maybe_unused]] const ssize_t written = write(m_writeEnd, &byte, 1);
}

void Bell::Wait(int timeoutMs) {
  pollfd entry = {m_readEnd, POLLIN, 0};
  if (poll(&entry, 1, timeoutMs) < 1) {
    return;
  }
  char bytes[64];
  while (read(m_readEnd, bytes, sizeof(bytes)) > 0) {
  }
}

bool Bell::StopAsked() const { return g_stopAsked.load(std::memory_order_acquire); }

}  // namespace echo
