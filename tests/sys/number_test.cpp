#include <gtest/gtest.h>
#include <qiv/string.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <string>

#include "support/test_limit.h"

namespace {

std::string Written(int value, int radix) {
  char text[33];
  return QIV_Itoa(text, value, radix) == text ? text : "refused";
}

struct WriteRow {
  const char* name;
  int value;
  int radix;
  const char* text;
};

TEST(NumberWriteTest, TextFollowsFromValueAndRadix) {
  const WriteRow rows[] = {
      {"sign in radix 10", -42, 10, "-42"},
      {"hexadecimal", 255, 16, "ff"},
      {"zero", 0, 10, "0"},
      {"zero in radix 2", 0, 2, "0"},
      {"one digit", 9, 10, "9"},
      {"carry", 10, 10, "10"},
      {"highest", INT_MAX, 10, "2147483647"},
      {"lowest", INT_MIN, 10, "-2147483648"},
      {"highest in radix 2", INT_MAX, 2, "1111111111111111111111111111111"},
      {"highest in radix 36", INT_MAX, 36, "zik0zj"},
      {"last digit of radix 36", 35, 36, "z"},
      {"octal", 511, 8, "777"},
      {"radix 3", 5, 3, "12"},
  };
  for (const WriteRow& row : rows) {
    char text[40] = "";
    EXPECT_EQ(text, QIV_Itoa(text, row.value, row.radix)) << row.name;
    EXPECT_STREQ(row.text, text) << row.name;
    EXPECT_EQ(text, QIV_Ltoa(text, row.value, row.radix)) << row.name;
    EXPECT_STREQ(row.text, text) << row.name;
  }
}

TEST(NumberWriteTest, RadixOutsideTwoToThirtySixIsRefused) {
  for (const int radix : {INT_MIN, -10, 0, 1, 37, 64, INT_MAX}) {
    char text[16] = "unchanged";
    EXPECT_EQ(nullptr, QIV_Itoa(text, 5, radix)) << radix;
    EXPECT_EQ(nullptr, QIV_Ltoa(text, 5, radix)) << radix;
    EXPECT_STREQ("unchanged", text) << radix;
  }
}

TEST(NumberWriteTest, NullBufferIsRefused) {
  EXPECT_EQ(nullptr, QIV_Itoa(nullptr, 5, 10));
  EXPECT_EQ(nullptr, QIV_Ltoa(nullptr, 5, 10));
}

TEST(NumberWriteTest, NoMoreBytesAreWrittenThanTheTextNeeds) {
  char text[] = "############";
  QIV_Itoa(text, INT_MIN, 10);
  EXPECT_EQ(std::string("-2147483648\0", 12), std::string(text, 12));
  QIV_Itoa(text, 7, 10);
  EXPECT_EQ(std::string("7\0"
                        "147483648\0",
                        12),
            std::string(text, 12));
}

TEST(NumberWriteTest, NegativeValueInAnotherRadixHasNoSignAndIsItsBits) {
  EXPECT_EQ("ffffffff", Written(-1, 16));
  EXPECT_EQ("10000000000000000000000000000000", Written(INT_MIN, 2));
}

TEST(NumberWriteTest, EveryTextIsReadBackByThePlatform) {
  std::mt19937 random(20261122);
  std::uniform_int_distribution<int> shift(0, 31);
  std::uniform_int_distribution<int> anyRadix(2, 36);
  for (int i = 0; i < qiv::test::ScaledLoad(200000); ++i) {
    const int value = static_cast<int>((random() & INT_MAX) >> shift(random));
    const int radix = anyRadix(random);
    const std::string text = Written(value, radix);
    ASSERT_EQ(value, std::strtol(text.c_str(), nullptr, radix)) << text << " in radix " << radix;
    ASSERT_EQ(std::string::npos, text.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ")) << text;
    ASSERT_EQ(std::to_string(-value), Written(-value, 10));
  }
}

struct ReadRow {
  const char* name;
  const char* text;
  int base;
  int consumed;
  long long value;
};

const ReadRow kRowsOfBothWidths[] = {
    {"plain", "123", 10, 3, 123},
    {"leading zeros", "007", 10, 3, 7},
    {"white space of every kind", " \t\n\v\f\r5", 10, 7, 5},
    {"white space behind", "5 ", 10, 1, 5},
    {"plus", "+5", 10, 2, 5},
    {"minus", "-5", 10, 2, -5},
    {"minus zero", "-0", 10, 2, 0},
    {"two signs", "+-5", 10, 0, 0},
    {"blank behind the sign", "- 5", 10, 0, 0},
    {"sign alone", "-", 10, 0, 0},
    {"empty", "", 10, 0, 0},
    {"white space alone", "   ", 10, 0, 0},
    {"no digit", "xyz", 10, 0, 0},
    {"no digit behind white space", "  ?", 10, 0, 0},
    {"minus one is not an overflow", "-1", 10, 2, -1},

    {"prefix in base 0, behind blanks and sign", "  -0x1F", 0, 7, -31},
    {"upper-case prefix in base 0", "0X1f", 0, 4, 31},
    {"prefix in base 16", "0x1F", 16, 4, 31},
    {"upper-case prefix in base 16", "+0X1F", 16, 5, 31},
    {"no prefix in base 16", "1F", 16, 2, 31},
    {"prefix in base 10", "0x1F", 10, 1, 0},
    {"prefix in base 8", "0x1F", 8, 1, 0},
    {"second prefix", "0x0x1", 16, 3, 0},
    {"prefix alone: no digit", "0x", 16, 0, 0},
    {"prefix alone in base 0: no digit", "0x", 0, 0, 0},
    {"prefix and no digit", " 0xz", 0, 0, 0},
    {"prefix and sign", "0x-1", 16, 0, 0},

    {"base 0: octal", "017", 0, 3, 15},
    {"base 0: zero", "0", 0, 1, 0},
    {"base 0: decimal", "19", 0, 2, 19},
    {"base 0: sign and octal", "-017", 0, 4, -15},
    {"base 0: empty", "", 0, 0, 0},
    {"base 0: no digit", "f", 0, 0, 0},

    {"kept: digit equal to the base", "12a", 10, 3, 130},
    {"kept: digit equal to the base in two digits", "9a", 10, 2, 100},
    {"kept: upper-case digit equal to the base", "9A", 10, 2, 100},
    {"kept: nothing but a digit equal to the base", "a", 10, 1, 10},
    {"kept: negative, digit equal to the base", "-9a", 10, 3, -100},
    {"digit above the base", "9b", 10, 1, 9},
    {"kept: 8 in octal", "08", 0, 2, 8},
    {"9 in octal", "089", 0, 2, 8},
    {"kept: g in hexadecimal", "fg", 16, 2, 256},
    {"h in hexadecimal", "fh", 16, 1, 15},
    {"kept: g behind the prefix", "0xg", 0, 3, 16},
    {"kept: 2 in binary", "12", 2, 2, 4},
    {"3 in binary", "13", 2, 1, 1},

    {"smallest base", "101", 2, 3, 5},
    {"base 3", "12", 3, 2, 5},
    {"base 15", "ef", 15, 2, 225},
    {"base 20", "12", 20, 0, 0},
    {"base 17, though g is a digit", "g", 17, 0, 0},
    {"base 36", "z", 36, 0, 0},
    {"base 1", "1", 1, 0, 0},
    {"negative base", "1", -10, 0, 0},
    {"lowest base", "1", INT_MIN, 0, 0},
    {"highest base", "1", INT_MAX, 0, 0},
    {"refused base behind white space", "  -1", 20, 0, 0},

    {"byte above 127", "5\xE4", 10, 1, 5},
    {"only a byte above 127", "\xFF", 16, 0, 0},
    {"neighbours of the digits", "5/", 10, 1, 5},
    {"neighbours of the digits, above", "5:", 10, 1, 5},
    {"neighbours of the letters", "f`", 16, 1, 15},
    {"neighbours of the letters, below", "f@", 16, 1, 15},
};

/** Reads with and without an end pointer. */
template <typename Integer>
void ExpectRead(Integer (*read)(const char*, char**, int), const ReadRow& row) {
  char* end = nullptr;
  EXPECT_EQ(row.value, read(row.text, &end, row.base)) << row.name;
  EXPECT_EQ(row.text + row.consumed, end) << row.name;
  EXPECT_EQ(row.value, read(row.text, nullptr, row.base)) << row.name;
}

TEST(NumberReadTest, ValueAndEndFollowFromTextAndBase) {
  for (const ReadRow& row : kRowsOfBothWidths) {
    ExpectRead(QIV_StrToi64, row);
    ExpectRead(QIV_StrToi32, row);
  }
}

TEST(NumberReadTest, OverflowOf64BitsGivesMinusOneAndConsumesTheRest) {
  const ReadRow rows[] = {
      {"highest", "9223372036854775807", 10, 19, LLONG_MAX},
      {"one above", "9223372036854775808", 10, 19, -1},
      {"lowest", "-9223372036854775808", 10, 20, LLONG_MIN},
      {"one below", "-9223372036854775809", 10, 20, -1},
      {"highest, hexadecimal", "0x7fffffffffffffff", 0, 18, LLONG_MAX},
      {"one above, hexadecimal", "0x8000000000000000", 0, 18, -1},
      {"lowest, hexadecimal", "-0x8000000000000000", 0, 19, LLONG_MIN},
      {"product beyond", "99999999999999999999", 10, 20, -1},
      {"rest consumed", "99999999999999999999000111a?", 10, 27, -1},
      {"rest consumed, negative", " -99999999999999999999000111b", 10, 28, -1},
      {"overflow by a digit equal to the base", "922337203685477580a", 10, 19, -1},
      {"zeros do not count", "00000000000000000000000000001", 10, 29, 1},
  };
  for (const ReadRow& row : rows) ExpectRead(QIV_StrToi64, row);
}

TEST(NumberReadTest, OverflowOf32BitsGivesMinusOneAndConsumesTheRest) {
  const ReadRow rows[] = {
      {"highest", "2147483647", 10, 10, INT_MAX},
      {"one above", "2147483648", 10, 10, -1},
      {"lowest", "-2147483648", 10, 11, INT_MIN},
      {"one below", "-2147483649", 10, 11, -1},
      {"highest, hexadecimal", "0x7fffffff", 0, 10, INT_MAX},
      {"all bits", "0xffffffff", 0, 10, -1},
      {"zero in the low 32 bits", "4294967296", 10, 10, -1},
      {"rest consumed", "99999999990001 ", 10, 14, -1},
      {"beyond 64 bits too", "-99999999999999999999", 10, 21, -1},
      {"overflow by a digit equal to the base", "214748364a", 10, 10, -1},
  };
  for (const ReadRow& row : rows) ExpectRead(QIV_StrToi32, row);
}

TEST(NumberReadTest, AtoiReadsBaseTen) {
  EXPECT_EQ(-42, QIV_Atoi64(" -42x"));
  EXPECT_EQ(100, QIV_Atoi64("9a"));
  EXPECT_EQ(0, QIV_Atoi64("0x10"));
  EXPECT_EQ(10, QIV_Atoi64("010"));
  EXPECT_EQ(LLONG_MIN, QIV_Atoi64("-9223372036854775808"));
  EXPECT_EQ(-1, QIV_Atoi64("9223372036854775808"));
  EXPECT_EQ(-42, QIV_Atoi32(" -42x"));
  EXPECT_EQ(100, QIV_Atoi32("9a"));
  EXPECT_EQ(0, QIV_Atoi32("0x10"));
  EXPECT_EQ(10, QIV_Atoi32("010"));
  EXPECT_EQ(INT_MIN, QIV_Atoi32("-2147483648"));
  EXPECT_EQ(-1, QIV_Atoi32("2147483648"));
}

TEST(NumberReadTest, NullTextGivesZeroAndANullEnd) {
  char other = 0;
  char* end = &other;
  EXPECT_EQ(0, QIV_StrToi64(nullptr, &end, 10));
  EXPECT_EQ(nullptr, end);
  end = &other;
  EXPECT_EQ(0, QIV_StrToi32(nullptr, &end, 20));
  EXPECT_EQ(nullptr, end);
  EXPECT_EQ(0, QIV_StrToi64(nullptr, nullptr, 10));
  EXPECT_EQ(0, QIV_Atoi64(nullptr));
  EXPECT_EQ(0, QIV_Atoi32(nullptr));
}

}  // namespace
