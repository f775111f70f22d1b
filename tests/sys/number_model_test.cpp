// The reading of numbers against a model of its rules, over random texts. The model works on the
// magnitude and looks at the digits backwards, so that it shares no step with what it checks.
#include <gtest/gtest.h>
#include <qiv/string.h>

#include <array>
#include <climits>
#include <cstddef>
#include <limits>
#include <random>
#include <string>

#include "support/test_limit.h"

namespace {

struct Reading {
  long long value;
  std::size_t consumed;
};

/** The lower of the sum and `limit` + 1, which stands for all that is beyond. */
unsigned long long CappedMagnitude(const std::string& digits, unsigned long long base,
                                   unsigned long long limit) {
  static const std::string kLower = "0123456789abcdefg";
  static const std::string kUpper = "0123456789ABCDEFG";
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
  if (base < 2 || base > 16) return {0, 0};

  // Up to the digit that equals the base, in both cases.
  const auto count = static_cast<std::size_t>(base) + 1;
  const std::string accepted = std::string("0123456789abcdefg").substr(0, count) +
                               std::string("0123456789ABCDEFG").substr(0, count);
  std::size_t end = text.find_first_not_of(accepted, position);
  if (end == std::string::npos) end = text.size();
  if (end == position) return {0, 0};

  const auto highest = static_cast<unsigned long long>(std::numeric_limits<Integer>::max());
  const unsigned long long limit = sign == "-" ? highest + 1 : highest;
  const unsigned long long magnitude = CappedMagnitude(
      text.substr(position, end - position), static_cast<unsigned long long>(base), limit);
  if (magnitude > limit) return {-1, end};
  return {static_cast<long long>(sign == "-" ? 0 - magnitude : magnitude), end};
}

/** Random texts that are near numbers: most parts of one are there, and few other characters. */
class Texts {
 public:
  std::string Next() {
    std::string text;
    while (Below(4) == 0) text += Any(" \t\n\v\f\r");
    if (Below(3) == 0) text += Any("+--");
    if (Below(4) == 0) text += Below(2) == 0 ? "0x" : "0X";
    const int length = Below(Below(3) == 0 ? 70 : 22);
    const std::string digits = kDigits[static_cast<std::size_t>(Below(4))];
    for (int i = 0; i < length; ++i) text += Any(digits);
    while (Below(3) == 0) text += Any(" -+xX0@G`gz/:\x80\xFF");
    return text;
  }

  int Base() {
    static const std::array<int, 10> kSpecial = {-1, 0, 0, 0, 1, 17, 20, 36, INT_MIN, INT_MAX};
    return Below(3) == 0 ? kSpecial[static_cast<std::size_t>(Below(10))] : 2 + Below(15);
  }

 private:
  const std::array<std::string, 4> kDigits = {"0123456789", "01", "0123456789abcdefgABCDEFG",
                                              "01234567"};

  int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
  char Any(const std::string& from) {
    return from[static_cast<std::size_t>(Below(static_cast<int>(from.size())))];
  }

  std::mt19937 m_random{20261123};
};

template <typename Integer>
void CompareWithModel(Integer (*read)(const char*, char**, int)) {
  Texts texts;
  int overflows = 0;
  int numbers = 0;
  const int count = qiv::test::ScaledLoad(1000000);
  for (int i = 0; i < count; ++i) {
    const std::string text = texts.Next();
    const int base = texts.Base();
    const Reading expected = Model<Integer>(text, base);
    char* end = nullptr;
    const Integer value = read(text.c_str(), &end, base);
    ASSERT_EQ(expected.value, value) << '"' << text << "\" in base " << base;
    ASSERT_EQ(text.c_str() + expected.consumed, end) << '"' << text << "\" in base " << base;
    numbers += expected.consumed > 0;
    overflows += expected.value == -1;
  }
  // The texts are of use only when they reach both outcomes often.
  EXPECT_GT(numbers, count / 2);
  EXPECT_GT(overflows, count / 20);
  EXPECT_LT(overflows, numbers - count / 10);
}

TEST(NumberModelTest, ModelKnowsTheExamples) {
  EXPECT_EQ(-31, Model<qiv_int64>("  -0x1F", 0).value);
  EXPECT_EQ(100, Model<qiv_int64>("9a", 10).value);
  EXPECT_EQ(130, Model<qiv_int64>("12a", 10).value);
  EXPECT_EQ(0u, Model<qiv_int64>("12", 20).consumed);
  EXPECT_EQ(LLONG_MIN, Model<qiv_int64>("-9223372036854775808", 10).value);
  EXPECT_EQ(-1, Model<QIV_INT32>("2147483648", 10).value);
}

TEST(NumberModelTest, Reading64BitsAgreesOverRandomTexts) { CompareWithModel(QIV_StrToi64); }

TEST(NumberModelTest, Reading32BitsAgreesOverRandomTexts) { CompareWithModel(QIV_StrToi32); }

}  // namespace
