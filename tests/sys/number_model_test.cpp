// The reading of numbers against a model of its rules, over random texts. The model works on the
// magnitude and looks at the digits backwards, so that it shares no step with what it checks.
#include <gtest/gtest.h>
#include <qiv/string.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/test_limit.h"

namespace {

constexpr int kLowestBase = 2;
constexpr int kHighestBase = 16;

// Up to the digit that equals the highest base.
const std::string kLower = "0123456789abcdefg";
const std::string kUpper = "0123456789ABCDEFG";

/** What the model finds in a text; all 0 when there is no number. */
struct Reading {
  long long value = 0;
  std::size_t consumed = 0;
  std::size_t base = 0;  // that the digits are in
  bool isNegative = false;
  bool hasDigitOfBase = false;       // one that equals the base
  unsigned long long limit = 0;      // the highest magnitude of its sign
  unsigned long long magnitude = 0;  // or limit + 2, when it is higher than that
};

/** The lower of the sum and `limit` + 1, which stands for all that is beyond. */
unsigned long long CappedMagnitude(const std::string& digits, unsigned long long base,
                                   unsigned long long limit) {
  const unsigned long long beyond = limit + 1;
  unsigned long long sum = 0;
  unsigned long long weight = 1;  // of the digit; `beyond` once it is above the limit
  for (std::size_t i = digits.size(); i-- > 0;) {
    const std::size_t lower = kLower.find(digits[i]);
    const unsigned long long digit = lower != std::string::npos ? lower : kUpper.find(digits[i]);
    if (digit != 0 && (weight == beyond || digit > limit / weight)) return beyond;
    if (digit != 0 && digit * weight > limit - sum) return beyond;
    sum += digit != 0 ? digit * weight : 0;
    weight = weight == beyond || weight > limit / base ? beyond : weight * base;
  }
  return sum;
}

template <typename Integer>
Reading Model(const std::string& text, int base) {
  std::size_t position = text.find_first_not_of(" \t\n\v\f\r");
  if (position == std::string::npos) position = text.size();
  const std::string sign = text.substr(position, 1);
  if (sign == "+" || sign == "-") ++position;
  const std::string next = text.substr(position, 2);
  if ((base == 0 || base == 16) && (next == "0x" || next == "0X")) {
    position += 2;
    base = 16;
  }
  if (base == 0) base = next.substr(0, 1) == "0" ? 8 : 10;
  if (base < kLowestBase || base > kHighestBase) return {};

  Reading reading;
  reading.base = static_cast<std::size_t>(base);
  const std::string accepted =
      kLower.substr(0, reading.base + 1) + kUpper.substr(0, reading.base + 1);
  std::size_t end = text.find_first_not_of(accepted, position);
  if (end == std::string::npos) end = text.size();
  if (end == position) return {};

  const std::string digits = text.substr(position, end - position);
  reading.consumed = end;
  reading.isNegative = sign == "-";
  reading.hasDigitOfBase = digits.find(kLower[reading.base]) != std::string::npos ||
                           digits.find(kUpper[reading.base]) != std::string::npos;
  reading.limit = static_cast<unsigned long long>(std::numeric_limits<Integer>::max());
  if (reading.isNegative) ++reading.limit;
  reading.magnitude = CappedMagnitude(digits, reading.base, reading.limit + 1);
  reading.value =
      static_cast<long long>(reading.isNegative ? 0 - reading.magnitude : reading.magnitude);
  if (reading.magnitude > reading.limit) reading.value = -1;
  return reading;
}

struct Sample {
  std::string text;
  int base;
};

/** Random texts that are near numbers: most parts of one are there, and few other characters. */
class Texts {
 public:
  Sample Next() { return Below(4) == 0 ? NearALimit() : OfAnyDigits(); }

 private:
  static constexpr int kAround = 40;  // how far from a limit a number may be

  Sample OfAnyDigits() {
    static const std::array<int, 10> kSpecial = {-1, 0, 0, 0, 1, 17, 20, 36, INT_MIN, INT_MAX};
    const bool isSpecial = Below(3) == 0;
    const int base = isSpecial ? kSpecial[static_cast<std::size_t>(Below(10))] : AnyBase();
    std::string text = Blanks();
    if (Below(3) == 0) text += Any("+--");
    if (Below(4) == 0) text += Below(2) == 0 ? "0x" : "0X";
    int highest = isSpecial ? AnyBase() : base;
    if (Below(4) == 0) highest = kHighestBase;
    const int length = Below(Below(3) == 0 ? 70 : 22);
    for (int i = 0; i < length; ++i) text += Digit(Below(highest + 1));
    return {text + Tail(), base};
  }

  /** Numbers around the limits of both widths, which random digits practically never make. */
  Sample NearALimit() {
    const int base = AnyBase();
    const bool isNegative = Below(2) == 0;
    // Base 0 takes these from the text.
    const bool isBaseInText = (base == 8 || base == 10 || base == 16) && Below(2) == 0;
    std::string text = Blanks();
    if (isNegative) text += '-';
    if (!isNegative && Below(2) == 0) text += '+';
    if (isBaseInText && base == 8) text += '0';
    if (isBaseInText && base == 16) text += Below(2) == 0 ? "0x" : "0X";

    unsigned long long lowest = Below(2) == 0 ? LLONG_MAX - kAround : INT_MAX - kAround;
    if (isNegative) ++lowest;
    // Half of them are the limit itself or one beyond.
    const int distance = Below(2) == 0 ? kAround + Below(2) : Below(2 * kAround + 1);
    const std::vector<int> digits = Digits(lowest + static_cast<unsigned int>(distance), base);
    for (std::size_t i = digits.size(); i-- > 0;) text += Digit(digits[i]);
    return {text + Tail(), isBaseInText ? 0 : base};
  }

  /** Those of the value, at times of the value times the base; the lowest comes first. */
  std::vector<int> Digits(unsigned long long value, int base) {
    std::vector<int> digits;
    if (Below(8) == 0) digits.push_back(0);
    const auto divisor = static_cast<unsigned int>(base);
    for (; value != 0; value /= divisor) digits.push_back(static_cast<int>(value % divisor));
    for (std::size_t i = 0; i + 1 < digits.size(); ++i) {
      if (digits[i] != 0 || digits[i + 1] == 0 || Below(2) == 0) continue;
      digits[i] = base;  // the same value, as the digit above counts one less
      --digits[i + 1];
    }
    while (digits.back() == 0) digits.pop_back();
    return digits;
  }

  std::string Blanks() {
    std::string text;
    while (Below(4) == 0) text += Any(" \t\n\v\f\r");
    return text;
  }

  std::string Tail() {
    std::string text;
    while (Below(3) == 0) text += Any(" -+xX0@G`gz/:\x80\xFF");
    return text;
  }

  int AnyBase() { return kLowestBase + Below(kHighestBase - kLowestBase + 1); }
  char Digit(int value) {
    return (Below(2) == 0 ? kLower : kUpper)[static_cast<std::size_t>(value)];
  }
  int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
  char Any(const std::string& from) {
    return from[static_cast<std::size_t>(Below(static_cast<int>(from.size())))];
  }

  std::mt19937 m_random{20261123};
};

/** How often a sweep met what it is for. */
class Tally {
 public:
  void Add(const Reading& reading) {
    if (reading.consumed == 0) return;
    const bool isBeyond = reading.magnitude > reading.limit;
    ++m_numbers;
    m_overflows += isBeyond;
    Edges& edges = m_edges[reading.base][reading.isNegative ? 1 : 0];
    edges.atLimit += reading.magnitude == reading.limit;
    edges.oneBeyond += reading.magnitude == reading.limit + 1;
    edges.beyondWithDigitOfBase += isBeyond && reading.hasDigitOfBase;
  }

  void ExpectAllMet(int texts) const {
    EXPECT_GT(m_numbers, texts / 2);
    EXPECT_GT(m_overflows, texts / 20);
    EXPECT_LT(m_overflows, m_numbers - texts / 10);
    const int enough = texts / 20000;
    for (std::size_t base = kLowestBase; base <= kHighestBase; ++base) {
      for (const Edges& edges : m_edges[base]) {
        const int rarest = std::min({edges.atLimit, edges.oneBeyond, edges.beyondWithDigitOfBase});
        EXPECT_GT(rarest, enough) << "base " << base;
      }
    }
  }

 private:
  struct Edges {
    int atLimit = 0;
    int oneBeyond = 0;
    int beyondWithDigitOfBase = 0;
  };

  int m_numbers = 0;
  int m_overflows = 0;
  std::array<std::array<Edges, 2>, kHighestBase + 1> m_edges;  // by base and sign
};

template <typename Integer>
void CompareWithModel(Integer (*read)(const char*, char**, int)) {
  Texts texts;
  Tally tally;
  const int count = qiv::test::ScaledLoad(1000000);
  for (int i = 0; i < count; ++i) {
    const Sample sample = texts.Next();
    const char* const text = sample.text.c_str();
    const Reading expected = Model<Integer>(sample.text, sample.base);
    char* end = nullptr;
    const Integer value = read(text, &end, sample.base);
    ASSERT_EQ(expected.value, value) << '"' << text << "\" in base " << sample.base;
    ASSERT_EQ(text + expected.consumed, end) << '"' << text << "\" in base " << sample.base;
    tally.Add(expected);
  }
  tally.ExpectAllMet(count);
}

TEST(NumberModelTest, ModelKnowsTheExamples) {
  EXPECT_EQ(-31, Model<qiv_int64>("  -0x1F", 0).value);
  EXPECT_EQ(100, Model<qiv_int64>("9a", 10).value);
  EXPECT_EQ(130, Model<qiv_int64>("12a", 10).value);
  EXPECT_EQ(0u, Model<qiv_int64>("12", 20).consumed);
  EXPECT_EQ(LLONG_MIN, Model<qiv_int64>("-9223372036854775808", 10).value);
  EXPECT_EQ(-1, Model<QIV_INT32>("2147483648", 10).value);
  EXPECT_EQ(INT_MIN, Model<QIV_INT32>("-0x7ffffffg", 0).value);
  EXPECT_EQ(-1, Model<QIV_INT32>("-0x800000001", 0).value);
}

TEST(NumberModelTest, Reading64BitsAgreesOverRandomTexts) { CompareWithModel(QIV_StrToi64); }

TEST(NumberModelTest, Reading32BitsAgreesOverRandomTexts) { CompareWithModel(QIV_StrToi32); }

}  // namespace
