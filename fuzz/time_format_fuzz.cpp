// Time formats: any format and any capacity write no more than they may, and end the text.
#include <qiv/time.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < sizeof(QIV_TIME_T) + 1) return 0;
  QIV_TIME_T time = 0;
  std::memcpy(&time, data, sizeof(time));
  const std::size_t capacity = data[sizeof(time)];
  const std::string format(reinterpret_cast<const char*>(data) + sizeof(time) + 1,
                           size - sizeof(time) - 1);
  QIV_TIME_EXP_T record = {};
  if (QIV_ExpTimeFromTimeGMT(time, &record) != 0) return 0;
  std::vector<char> out(capacity + 1, '#');
  std::size_t length = 0;
  if (QIV_StrFmtTime(out.data(), &length, capacity, format.c_str(), &record) != 0) std::abort();
  if (out[capacity] != '#') std::abort();
  if (capacity > 0 && (length >= capacity || out[length] != '\0')) std::abort();
  char text[25];
  if (QIV_CTime(text, time) != 0 || text[24] != '\0') std::abort();
  return 0;
}
