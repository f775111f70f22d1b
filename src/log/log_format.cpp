// The head of a line.
#include <qiv/log.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>

#include "base/constant_mutex.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "log/log_service.h"

namespace {

// What stands between the date and the file.
constexpr std::string_view kLevelTexts[] = {
    "[DISABLE][FILE:", "[ERR][FILE:", "[DBG][FILE:", "[INF][FILE:"};
constexpr std::string_view kUnknownLevel = "[UNKNOWN][FILE:";

std::string_view LevelText(log_level level) {
  const bool isKnown = level >= 0 && level < static_cast<log_level>(std::size(kLevelTexts));
  return isKnown ? kLevelTexts[level] : kUnknownLevel;
}

const char* BehindLast(const char* text, char separator) {
  const char* const found = std::strrchr(text, separator);
  return found == nullptr ? text : found + 1;
}

const char* FileName(const char* path) { return BehindLast(BehindLast(path, '/'), '\\'); }

/** The first bracket of a head, made once for all lines of a second. */
struct DateText {
  std::time_t second;
  long zone;
  int hasSummerTime;
  int length;  // 0: none has been made
  char text[48];
};

// The C library has a lock of its own around the zone, which it leaves locked in a child made by
// fork() while another thread converts a time. This one is held over the fork instead.
qiv::base::ConstantMutex g_zoneMutex;

bool ToLocal(std::time_t second, std::tm* local) {
  const qiv::base::NoCancellation noCancellation;  // localtime_r() may be a cancellation point
  const qiv::base::ScopedLock lock(g_zoneMutex);
  return localtime_r(&second, local) != nullptr;
}

thread_local DateText t_date;

/** Empty when the time has no local form. */
std::string_view DateOf(std::time_t second) {
  DateText& date = t_date;
  const bool isOfNow =
      date.second == second && date.zone == timezone && date.hasSummerTime == daylight;
  if (!isOfNow || date.length == 0) {
    std::tm local{};
    if (!ToLocal(second, &local)) return {};
    // Kept: the milliseconds are always 000.
    date.length = std::snprintf(
        date.text, sizeof date.text, "[%04u-%02u-%02u %02u:%02u:%02u.%03u]",
        static_cast<unsigned int>(local.tm_year) + 1900,
        static_cast<unsigned int>(local.tm_mon + 1), static_cast<unsigned int>(local.tm_mday),
        static_cast<unsigned int>(local.tm_hour), static_cast<unsigned int>(local.tm_min),
        static_cast<unsigned int>(local.tm_sec), 0U);
    date.second = second;
    date.zone = timezone;
    date.hasSummerTime = daylight;
  }
  return {date.text, static_cast<std::size_t>(date.length)};
}

/** Puts parts behind each other, as far as they fit, and a NUL behind them: what snprintf() would
 * do at several times the cost. */
class CutText {
 public:
  CutText(char* to, unsigned int size) noexcept : m_to(to), m_room(size > 0 ? size - 1 : 0) {}

  void Add(std::string_view text) noexcept {
    const std::size_t room = m_length < m_room ? m_room - m_length : 0;
    const std::size_t fitting = std::min(text.size(), room);
    if (fitting > 0) std::memcpy(m_to + m_length, text.data(), fitting);
    m_length += text.size();
  }
  /** The length without a cut. */
  std::size_t Length() const noexcept { return m_length; }
  void Terminate() noexcept { m_to[std::min(m_length, m_room)] = '\0'; }

 private:
  char* const m_to;
  const std::size_t m_room;
  std::size_t m_length = 0;
};

}  // namespace

void qiv::log::LockDatesForFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS { g_zoneMutex.Lock(); }

void qiv::log::UnlockDatesAfterFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS {
  g_zoneMutex.Unlock();
}

extern "C" int FormatTimeAndName(char* dst, unsigned int size, log_level level, const char* file,
                                 int line) noexcept {
  if (file == nullptr || (dst == nullptr && size != 0)) return -1;
  const std::string_view date = DateOf(std::time(nullptr));
  if (date.empty()) return -1;
  CutText head(dst, size);
  head.Add(date);
  head.Add(LevelText(level));
  head.Add(FileName(file));
  char lineText[] = "][LINE:-2147483648] ";
  char* const number = lineText + std::strlen("][LINE:");
  char* const end = std::to_chars(number, std::end(lineText), line).ptr;
  std::memcpy(end, "] ", 2);
  head.Add({lineText, static_cast<std::size_t>(end + 2 - lineText)});
  if (size > 0) head.Terminate();
  return static_cast<int>(std::min<std::size_t>(head.Length(), INT_MAX));
}
