// Number texts: the first byte less "0" is the base, the rest the text. Checks what holds between
// the two widths, the end pointers and the texts that are written.
#include <qiv/string.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kMaxBaseRead = 16;
constexpr int kMaxRadixWritten = 36;

void Require(bool holds) {
  if (!holds) std::abort();
}

bool IsRefused(int base) { return base != 0 && (base < 2 || base > kMaxBaseRead); }

/** What is within 32 bits is read alike in both widths, and what is not overflows. */
void RequireSameInBothWidths(const char* text, int base, QIV_INT32 narrow, qiv_int64 wide) {
  const bool isNarrow = wide >= INT_MIN && wide <= INT_MAX;
  Require(narrow == (isNarrow ? wide : -1));
  Require(QIV_StrToi64(text, nullptr, base) == wide);
  Require(QIV_StrToi32(text, nullptr, base) == narrow);
}

void RequireRoundTrip(int value) {
  for (int radix = 2; radix <= kMaxRadixWritten; ++radix) {
    char text[33];
    Require(QIV_Itoa(text, value, radix) == text);
    if (value < 0 && radix != 10) continue;  // written without a sign
    Require(std::strtoll(text, nullptr, radix) == value);
    if (IsRefused(radix)) continue;
    char* end = nullptr;
    Require(QIV_StrToi32(text, &end, radix) == value);
    Require(*end == '\0');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int base = data[0] - '0';
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const char* const text = bytes.c_str();
  char* wideEnd = nullptr;
  char* narrowEnd = nullptr;
  const qiv_int64 wide = QIV_StrToi64(text, &wideEnd, base);
  const QIV_INT32 narrow = QIV_StrToi32(text, &narrowEnd, base);
  Require(wideEnd == narrowEnd);
  Require(wideEnd >= text && wideEnd <= text + std::strlen(text));
  if (wideEnd == text || IsRefused(base)) Require(wide == 0 && wideEnd == text);
  RequireSameInBothWidths(text, base, narrow, wide);
  RequireRoundTrip(narrow);
  return 0;
}
