// Conversions between integers and texts.
#include <qiv/string.h>

#include <algorithm>
#include <cctype>
#include <climits>

static_assert(sizeof(QIV_INT32) == 4 && sizeof(qiv_int64) == 8, "the widths of the names");

namespace {

constexpr int kDecimal = 10;
constexpr int kMinRadix = 2;
constexpr int kMaxRadixWritten = 36;
constexpr int kMaxBaseRead = 16;
constexpr int kNoDigit = INT_MAX;  // above every base, hence never part of a number

/** Writes the digits and a NUL. */
void WriteDigits(char* out, unsigned int value, unsigned int radix) {
  char* end = out;
  do {
    *end++ = "0123456789abcdefghijklmnopqrstuvwxyz"[value % radix];
    value /= radix;
  } while (value != 0);
  *end = '\0';
  std::reverse(out, end);
}

char* WriteInteger(char* buf, int value, int radix) {
  if (radix < kMinRadix || radix > kMaxRadixWritten || buf == nullptr) return nullptr;
  char* digits = buf;
  auto bits = static_cast<unsigned int>(value);
  if (value < 0 && radix == kDecimal) {
    *digits++ = '-';
    bits = 0 - bits;  // the magnitude, of the lowest value too
  }
  WriteDigits(digits, bits, static_cast<unsigned int>(radix));
  return buf;
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  return kNoDigit;
}

/** What stands before the digits. */
struct Head {
  const char* digits;
  int base;
  bool isNegative;
};

Head ReadHead(const char* text, int base) {
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) ++text;
  const bool isNegative = *text == '-';
  if (isNegative || *text == '+') ++text;
  if ((base == 0 || base == 16) && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    return {text + 2, 16, isNegative};
  }
  if (base == 0) base = *text == '0' ? 8 : 10;
  return {text, base, isNegative};
}

/** Puts a digit behind the value; false when the result is beyond Integer. */
template <typename Integer>
bool Append(Integer& value, int base, int digit, bool isNegative) {
  Integer shifted = 0;
  if (__builtin_mul_overflow(value, base, &shifted)) return false;
  // The lowest value has no positive counterpart, hence no magnitude and sign.
  return isNegative ? !__builtin_sub_overflow(shifted, digit, &value)
                    : !__builtin_add_overflow(shifted, digit, &value);
}

template <typename Integer>
Integer ReadInteger(const char* text, char** end, int base) {
  char* ignored = nullptr;
  if (end == nullptr) end = &ignored;
  *end = const_cast<char*>(text);
  if (text == nullptr) return 0;

  const Head head = ReadHead(text, base);
  if (head.base < kMinRadix || head.base > kMaxBaseRead) return 0;
  Integer value = 0;
  bool isInRange = true;
  const char* position = head.digits;
  for (;; ++position) {
    const int digit = DigitValue(*position);
    if (digit > head.base) break;  // kept: a digit that equals the base is accepted
    if (isInRange) isInRange = Append(value, head.base, digit, head.isNegative);
  }
  if (position != head.digits) *end = const_cast<char*>(position);
  return isInRange ? value : -1;
}

}  // namespace

extern "C" {

char* QIV_Itoa(char* buf, int value, int radix) noexcept { return WriteInteger(buf, value, radix); }

char* QIV_Ltoa(char* buf, int value, int radix) noexcept { return WriteInteger(buf, value, radix); }

qiv_int64 QIV_StrToi64(const char* str, char** end, int base) noexcept {
  return ReadInteger<qiv_int64>(str, end, base);
}

qiv_int64 QIV_Atoi64(const char* s) noexcept { return QIV_StrToi64(s, nullptr, kDecimal); }

QIV_INT32 QIV_StrToi32(const char* str, char** end, int base) noexcept {
  return ReadInteger<QIV_INT32>(str, end, base);
}

QIV_INT32 QIV_Atoi32(const char* s) noexcept { return QIV_StrToi32(s, nullptr, kDecimal); }

}  // extern "C"
