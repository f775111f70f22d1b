// Readiness waits: the system's select and poll, and a poll against a budget of time.
#include <qiv/poll.h>
#include <qiv/time.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr int kBitsPerWord = 32;
constexpr int kNoLimit = -1;

unsigned int TimeLeft(unsigned int budget, qiv_int64 elapsed) {
  return budget > elapsed ? static_cast<unsigned int>(budget - elapsed) : 0;
}

bool IsInterrupted(int result) { return result == -1 && errno == EINTR; }

int PollWithoutLimit(pollfd* records, unsigned int count) {
  int result;
  do {
    result = poll(records, count, kNoLimit);
  } while (IsInterrupted(result));
  return result;
}

/** One poll of at most `ms` milliseconds; `elapsed` gets how many it took. */
int TimedPoll(pollfd* records, unsigned int count, int ms, qiv_int64& elapsed) {
  const qiv_int64 start = QIV_GetTimeTick64();
  const int result = poll(records, count, ms);
  const int pollErrno = errno;
  elapsed = QIV_GetTimeTick64() - start;
  errno = pollErrno;
  return result;
}

}  // namespace

extern "C" {

int QIV_FdIsSet(int descriptor, const fd_set* set) noexcept {
  if (descriptor < 0 || set == nullptr) return 0;
  std::uint32_t word = 0;
  const auto offset = static_cast<std::size_t>(descriptor / kBitsPerWord) * sizeof(word);
  std::memcpy(&word, reinterpret_cast<const unsigned char*>(set) + offset, sizeof(word));
  return static_cast<int>(word >> (descriptor % kBitsPerWord) & 1U);
}

int QIV_Select(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout) {
  if (timeout == nullptr) return select(count, read, write, error, nullptr);
  timeval copy = *timeout;
  return select(count, read, write, error, &copy);
}

int QIV_SelectEx(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout) {
  return select(count, read, write, error, timeout);
}

int QIV_Poll(pollfd* records, unsigned int count, int ms) { return poll(records, count, ms); }

int QIV_PollEx(pollfd* records, unsigned int count, unsigned int* budget) {
  if (budget == nullptr || *budget == QIV_INFINITE) return PollWithoutLimit(records, count);
  qiv_int64 elapsed = 0;
  int result = TimedPoll(records, count, static_cast<int>(*budget), elapsed);
  while (IsInterrupted(result)) {
    *budget = TimeLeft(*budget, elapsed);
    if (static_cast<int>(*budget) < 1) break;
    result = TimedPoll(records, count, static_cast<int>(*budget), elapsed);
  }
  *budget = TimeLeft(*budget, elapsed);
  return result;
}

}  // extern "C"
