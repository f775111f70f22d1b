// The class layer's waits: select and poll against a budget of time.
#include <qiv/socket_classes.h>
#include <qiv/time_classes.h>

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace qiv {
namespace {

constexpr int kNoLimit = -1;
constexpr long long kMostMilliseconds = std::numeric_limits<int>::max();

bool IsInterrupted(int result) { return result == -1 && errno == EINTR; }

bool FitsASet(int descriptor) {
  if (descriptor >= 0 && descriptor < FD_SETSIZE) return true;
  errno = descriptor < 0 ? EBADF : EINVAL;
  return false;
}

long long MonotonicMicroseconds() {
  timespec clock = {};
  clock_gettime(CLOCK_MONOTONIC, &clock);
  return clock.tv_sec * 1000000LL + clock.tv_nsec / 1000;
}

int PollMilliseconds(const timeval& budget) {
  if (budget.tv_sec > kMostMilliseconds / 1000) return static_cast<int>(kMostMilliseconds);
  const long long ms = qiv_time_tick::timeval2ms(&budget);
  return static_cast<int>(std::clamp<long long>(ms, kNoLimit, kMostMilliseconds));
}

void Lower(timeval& budget, long long elapsed) {
  const long long before = qiv_time_tick::timeval2us(&budget);
  qiv_time_tick::us2timeval(elapsed < before ? before - elapsed : 0, &budget);
}

/** One poll; lowers `budget` by what it took, to 0 when the time ran out. */
int TimedPoll(pollfd* records, unsigned long count, timeval& budget) {
  const long long start = MonotonicMicroseconds();
  const int result = ::poll(records, count, PollMilliseconds(budget));
  if (result == 0) {
    budget = {};
  } else {
    Lower(budget, MonotonicMicroseconds() - start);
  }
  return result;
}

}  // namespace

int qiv_sock_utils::select_ctime(int count, fd_set* read, fd_set* write, fd_set* error,
                                 timeval* timeout) {
  if (timeout == nullptr) return ::select(count, read, write, error, nullptr);
  timeval copy = *timeout;
  return ::select(count, read, write, error, &copy);
}

int qiv_sock_utils::select_vtime(int count, fd_set* read, fd_set* write, fd_set* error,
                                 timeval* timeout) {
  int result;
  do {
    result = ::select(count, read, write, error, timeout);
  } while (IsInterrupted(result));
  return result;
}

int qiv_sock_utils::is_rdwr(int descriptor, timeval* timeout, int mask) {
  const bool asksReadable = (mask & kReadable) != 0;
  const bool asksWritable = (mask & kWritable) != 0;
  if (!asksReadable && !asksWritable) return QIV_ERROR;
  if (!FitsASet(descriptor)) return QIV_ERROR;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(descriptor, &set);
  fd_set read = set;
  fd_set write = set;
  const int result = select_vtime(descriptor + 1, asksReadable ? &read : nullptr,
                                  asksWritable ? &write : nullptr, nullptr, timeout);
  if (result <= 0) return result;
  int ready = 0;
  if (asksReadable && FD_ISSET(descriptor, &read)) ready |= kReadable;
  if (asksWritable && FD_ISSET(descriptor, &write)) ready |= kWritable;
  return ready;
}

int qiv_sock_utils::is_rd(int descriptor, timeval* timeout) {
  return is_rdwr(descriptor, timeout, kReadable);
}

int qiv_sock_utils::is_wr(int descriptor, timeval* timeout) {
  return is_rdwr(descriptor, timeout, kWritable);
}

int qiv_sock_utils::poll_vtime(pollfd* records, unsigned long count, timeval* budget) {
  if (budget == nullptr) return ::poll(records, count, kNoLimit);
  int result;
  do {
    result = TimedPoll(records, count, *budget);
  } while (IsInterrupted(result));
  return result;
}

}  // namespace qiv
