// The head of a line.
#include <qiv/log.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

namespace {

constexpr const char* kLevelNames[] = {"DISABLE", "ERR", "DBG", "INF"};

const char* LevelName(log_level level) {
  if (level < 0 || level >= static_cast<log_level>(std::size(kLevelNames))) return "UNKNOWN";
  return kLevelNames[level];
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
  char text[48];
};

thread_local DateText t_date;

/** Null when the time has no local form. */
const char* DateOf(std::time_t second) {
  const long zone = timezone;
  if (t_date.text[0] != '\0' && t_date.second == second && t_date.zone == zone) return t_date.text;
  std::tm local{};
  if (localtime_r(&second, &local) == nullptr) return nullptr;
  // Kept: the milliseconds are always 000.
  std::snprintf(
      t_date.text, sizeof t_date.text, "[%04u-%02u-%02u %02u:%02u:%02u.%03u]",
      static_cast<unsigned int>(local.tm_year) + 1900, static_cast<unsigned int>(local.tm_mon + 1),
      static_cast<unsigned int>(local.tm_mday), static_cast<unsigned int>(local.tm_hour),
      static_cast<unsigned int>(local.tm_min), static_cast<unsigned int>(local.tm_sec), 0U);
  t_date.second = second;
  t_date.zone = timezone;
  return t_date.text;
}

}  // namespace

extern "C" int FormatTimeAndName(char* dst, unsigned int size, log_level level, const char* file,
                                 int line) noexcept {
  if (file == nullptr || (dst == nullptr && size != 0)) return -1;
  const char* const date = DateOf(std::time(nullptr));
  if (date == nullptr) return -1;
  return std::snprintf(dst, size, "%s[%s][FILE:%s][LINE:%d] ", date, LevelName(level),
                       FileName(file), line);
}
