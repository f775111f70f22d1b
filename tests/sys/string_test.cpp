#include <gtest/gtest.h>
#include <qiv/string.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/failing_allocation.h"
#include "support/fenced_bytes.h"

namespace {

using qiv::test::FailingAllocation;
using qiv::test::FencedBytes;

struct Free {
  void operator()(char* text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

TEST(StringCopyTest, StrcpyCopiesWithTheNul) {
  char text[8] = "1234567";
  QIV_Strcpy(text, "abc");
  EXPECT_EQ(0, std::memcmp("abc\0"
                           "567",
                           text, 8));
  QIV_Strcpy(text, "");
  EXPECT_STREQ("", text);
}

TEST(StringCopyTest, StrncpyWritesExactlyTheCount) {
  struct Row {
    const char* name;
    const char* source;
    int count;
    std::string result;
  };
  const Row rows[] = {
      {"shorter: rest is NULs", "ab", 5, std::string("ab\0\0\0###", 8)},
      {"as long: no NUL", "abc", 3, "abc#####"},
      {"longer: cut off", "abcdef", 3, "abc#####"},
      {"empty", "", 2, std::string("\0\0######", 8)},
      {"zero", "abc", 0, "########"},
      {"negative is refused", "abc", -1, "########"},
      {"lowest is refused", "abc", INT_MIN, "########"},
  };
  for (const Row& row : rows) {
    std::string memory(8, '#');
    QIV_Strncpy(memory.data(), row.source, row.count);
    EXPECT_EQ(row.result, memory) << row.name;
  }
}

TEST(StringCopyTest, StrncpyReadsNoMoreThanTheCount) {
  const FencedBytes source("abc");
  char text[4] = "";
  QIV_Strncpy(text, source.data(), 3);
  EXPECT_STREQ("abc", text);
}

TEST(StringCopyTest, NullDoesNothing) {
  char text[4] = "abc";
  QIV_Strcpy(text, nullptr);
  QIV_Strcpy(nullptr, text);
  QIV_Strncpy(text, nullptr, 2);
  QIV_Strncpy(nullptr, text, 2);
  EXPECT_STREQ("abc", text);
}

TEST(StringDuplicateTest, StrdupGivesACopyThatFreeReleases) {
  const std::string source(10000, 'x');
  const OwnedText copy(QIV_Strdup(source.c_str()));
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(source.c_str(), copy.get());
  EXPECT_EQ(source, copy.get());
  EXPECT_STREQ("", OwnedText(QIV_Strdup("")).get());
}

TEST(StringDuplicateTest, StrndupCopiesTheLowerOfLengthAndCount) {
  EXPECT_STREQ("ab", OwnedText(QIV_Strndup("abc", 2)).get());
  EXPECT_STREQ("abc", OwnedText(QIV_Strndup("abc", 3)).get());
  EXPECT_STREQ("abc", OwnedText(QIV_Strndup("abc", 4)).get());
  EXPECT_STREQ("abc", OwnedText(QIV_Strndup("abc", INT_MAX)).get());
  EXPECT_STREQ("", OwnedText(QIV_Strndup("abc", 0)).get());
}

TEST(StringDuplicateTest, StrndupReadsNoMoreThanTheCount) {
  const FencedBytes source("abc");
  EXPECT_STREQ("abc", OwnedText(QIV_Strndup(source.data(), 3)).get());
}

TEST(StringDuplicateTest, NullAndNegativeCountAreRefused) {
  EXPECT_EQ(nullptr, QIV_Strdup(nullptr));
  EXPECT_EQ(nullptr, QIV_Strndup(nullptr, 1));
  EXPECT_EQ(nullptr, QIV_Strndup("abc", -1));
}

TEST(StringDuplicateTest, ShortMemoryGivesNull) {
  char* copy = nullptr;
  {
    const FailingAllocation failing(1);
    copy = QIV_Strdup("abc");
  }
  EXPECT_EQ(nullptr, copy);
  {
    const FailingAllocation failing(1);
    copy = QIV_Strndup("abc", 2);
  }
  EXPECT_EQ(nullptr, copy);
}

TEST(StringCompareTest, ResultIsTheDifferenceOfTheFirstDifferingBytes) {
  EXPECT_EQ(0, QIV_Strcmp("abc", "abc"));
  EXPECT_EQ('b' - 'd', QIV_Strcmp("abc", "adz"));
  EXPECT_EQ('d' - 'b', QIV_Strcmp("ad", "abzz"));
  EXPECT_EQ('c', QIV_Strcmp("abc", "ab"));
  EXPECT_EQ(-'c', QIV_Strcmp("ab", "abc"));
  EXPECT_EQ(0, QIV_Strcmp("", ""));
  EXPECT_EQ('A' - 'a', QIV_Strcmp("A", "a"));
}

TEST(StringCompareTest, BytesAreUnsigned) {
  EXPECT_EQ(0xE4 - 'a', QIV_Strcmp("\xE4", "a"));
  EXPECT_EQ(0xE4 - 'a', QIV_Strncmp("\xE4", "a", 1));
  EXPECT_EQ(0xFF, QIV_Strcasecmp("\xFF", ""));
  EXPECT_EQ(-0xFF, QIV_Strncasecmp("", "\xFF", 3));
}

TEST(StringCompareTest, StrncmpComparesNoMoreThanTheCount) {
  EXPECT_EQ(0, QIV_Strncmp("abc", "abd", 2));
  EXPECT_EQ(-1, QIV_Strncmp("abc", "abd", 3));
  EXPECT_EQ(-1, QIV_Strncmp("abc", "abd", 100));
  EXPECT_EQ(0, QIV_Strncmp("abc", "abc", 100));
  EXPECT_EQ(0, QIV_Strncmp("a", "b", 0));
}

TEST(StringCompareTest, StrncmpReadsNoMoreThanTheCount) {
  const FencedBytes left("abc");
  const FencedBytes right("abc");
  EXPECT_EQ(0, QIV_Strncmp(left.data(), right.data(), 3));
}

TEST(StringCompareTest, NothingBehindTheNulIsCompared) {
  EXPECT_EQ(0, QIV_Strncmp("ab\0x", "ab\0y", 4));
  EXPECT_EQ(0, QIV_Strncasecmp("ab\0x", "AB\0y", 4));
}

TEST(StringCompareTest, NegativeCountOfStrncmpComparesAll) {
  EXPECT_EQ('c' - 'd', QIV_Strncmp("abc", "abd", -1));
  EXPECT_EQ(0, QIV_Strncmp("abc", "abc", INT_MIN));
}

TEST(StringCompareTest, StrcasecmpComparesAfterToupper) {
  EXPECT_EQ(0, QIV_Strcasecmp("aBc12", "AbC12"));
  EXPECT_EQ('B' - 'C', QIV_Strcasecmp("ab", "AC"));
  EXPECT_EQ('B' - 'C', QIV_Strncasecmp("ab", "AC", 2));
  // Lower case on both sides would put "_" before the letters.
  EXPECT_EQ('_' - 'A', QIV_Strcasecmp("_", "a"));
  EXPECT_EQ('_' - 'A', QIV_Strncasecmp("_", "a", 1));
}

TEST(StringCompareTest, StrncasecmpComparesNoMoreThanTheCount) {
  EXPECT_EQ(0, QIV_Strncasecmp("abX", "ABy", 2));
  EXPECT_EQ(-1, QIV_Strncasecmp("abX", "ABy", 3));
  EXPECT_EQ(0, QIV_Strncasecmp("abc", "ABC", 100));
}

TEST(StringCompareTest, StrncasecmpReadsNoMoreThanTheCount) {
  const FencedBytes left("abc");
  const FencedBytes right("ABC");
  EXPECT_EQ(0, QIV_Strncasecmp(left.data(), right.data(), 3));
  const FencedBytes first("c");
  EXPECT_EQ(0, QIV_Strncasecmp(first.data(), first.data(), -1));
}

TEST(StringCompareTest, StrncasecmpWithZeroGivesZero) {
  EXPECT_EQ(0, QIV_Strncasecmp("a", "b", 0));
  EXPECT_EQ(0, QIV_Strncasecmp(nullptr, "b", 0));
}

TEST(StringCompareTest, StrncasecmpWithNegativeCountComparesOnlyTheFirstCharacters) {
  EXPECT_EQ(0, QIV_Strncasecmp("axx", "Ayy", -1));
  EXPECT_EQ('A' - 'C', QIV_Strncasecmp("a", "c", -1));
  EXPECT_EQ(0, QIV_Strncasecmp("axx", "Ayy", INT_MIN));
  EXPECT_EQ(-'A', QIV_Strncasecmp("", "a", -5));
}

TEST(StringCompareTest, NullComesBeforeEveryText) {
  EXPECT_EQ(-1, QIV_Strcmp(nullptr, ""));
  EXPECT_EQ(1, QIV_Strcmp("", nullptr));
  EXPECT_EQ(0, QIV_Strcmp(nullptr, nullptr));
  EXPECT_EQ(-1, QIV_Strncmp(nullptr, "a", 1));
  EXPECT_EQ(1, QIV_Strcasecmp("a", nullptr));
  EXPECT_EQ(-1, QIV_Strncasecmp(nullptr, "a", -1));
}

TEST(StringSearchTest, StrchrFindsTheFirst) {
  const char* const text = "abcb\xE4";
  EXPECT_EQ(text + 1, QIV_Strchr(text, 'b'));
  EXPECT_EQ(text + 4, QIV_Strchr(text, '\xE4'));
  EXPECT_EQ(text + 4, QIV_Strchr(text, 0xE4));
  EXPECT_EQ(text + 5, QIV_Strchr(text, '\0'));
  EXPECT_EQ(nullptr, QIV_Strchr(text, 'x'));
  EXPECT_EQ(nullptr, QIV_Strchr(nullptr, 'a'));
}

TEST(StringSearchTest, StrnchrLooksAtTheFirstCharactersOnly) {
  const char* const text = "abcabc";
  EXPECT_EQ(text + 2, QIV_Strnchr(text, 'c', 3));
  EXPECT_EQ(nullptr, QIV_Strnchr(text, 'c', 2));
  EXPECT_EQ(nullptr, QIV_Strnchr(text, 'x', 6));
}

TEST(StringSearchTest, StrnchrReadsNoMoreThanTheCount) {
  const FencedBytes bytes("abc");
  EXPECT_EQ(nullptr, QIV_Strnchr(bytes.data(), 'x', 3));
}

TEST(StringSearchTest, StrnchrFindsBytesAbove127) {
  const char* const text = "abc\xE4";
  EXPECT_EQ(text + 3, QIV_Strnchr(text, '\xE4', 4));
  EXPECT_EQ(text + 3, QIV_Strnchr(text, 0xE4, 4));
  EXPECT_EQ(nullptr, QIV_Strnchr(text, 0xE4, 3));
}

TEST(StringSearchTest, StrnchrDoesNotStopAtTheTerminator) {
  const char text[] = "ab\0cd";
  EXPECT_EQ(text + 3, QIV_Strnchr(text, 'c', 5));
  EXPECT_EQ(text + 2, QIV_Strnchr(text, '\0', 5));
}

TEST(StringSearchTest, StrnchrWithACountBelowOneGivesNull) {
  EXPECT_EQ(nullptr, QIV_Strnchr("abc", 'a', 0));
  EXPECT_EQ(nullptr, QIV_Strnchr("abc", 'a', -1));
  EXPECT_EQ(nullptr, QIV_Strnchr("abc", 'a', INT_MIN));
  EXPECT_EQ(nullptr, QIV_Strnchr(nullptr, 'a', 1));
}

TEST(StringSearchTest, StrstrFindsTheFirst) {
  const char* const text = "ababc";
  EXPECT_EQ(text + 2, QIV_Strstr(text, "abc"));
  EXPECT_EQ(text, QIV_Strstr(text, ""));
  EXPECT_EQ(nullptr, QIV_Strstr(text, "ac"));
  EXPECT_EQ(nullptr, QIV_Strstr(nullptr, "a"));
  EXPECT_EQ(nullptr, QIV_Strstr("a", nullptr));
}

TEST(StringSearchTest, StrnstrFindsTheFirstMatchOfTheBytes) {
  const char* const text = "ababc";
  EXPECT_EQ(text + 2, QIV_Strnstr(text, "abc", 3));
  EXPECT_EQ(text, QIV_Strnstr(text, "abx", 2));
  EXPECT_EQ(text, QIV_Strnstr(text, "ababc", 5));
  EXPECT_EQ(text + 4, QIV_Strnstr(text, "c", 1));
  EXPECT_EQ(nullptr, QIV_Strnstr(text, "ABC", 3));
  EXPECT_EQ(nullptr, QIV_Strnstr(text, "bb", 2));
}

TEST(StringSearchTest, StrnstrWithALengthAboveTheTextGivesNull) {
  EXPECT_EQ(nullptr, QIV_Strnstr("abc", "abcd", 4));
  // The bytes up to the NUL would match.
  EXPECT_EQ(nullptr, QIV_Strnstr("abc", "abc", 4));
  EXPECT_EQ(nullptr, QIV_Strnstr("", "a", 1));
  EXPECT_EQ(nullptr, QIV_Strnstr("abc", "a", INT_MAX));
}

TEST(StringSearchTest, StrnstrOfNoBytesGivesTheText) {
  const char* const text = "abc";
  EXPECT_EQ(text, QIV_Strnstr(text, "x", 0));
  const char* const empty = "";
  EXPECT_EQ(empty, QIV_Strnstr(empty, "", 0));
}

TEST(StringSearchTest, StrnstrReadsTheBytesNoFartherThanTheirNul) {
  const FencedBytes bytes(std::string("c\0", 2));
  EXPECT_EQ(nullptr, QIV_Strnstr("abcabc", bytes.data(), 5));
  EXPECT_EQ(nullptr, QIV_Strnstr("abc", bytes.data(), 2)) << "the NUL of the text is not in it";
}

TEST(StringSearchTest, StrnstrTakesBytesWithoutNul) {
  const char* const text = "xxabc";
  const FencedBytes bytes("abc");
  EXPECT_EQ(text + 2, QIV_Strnstr(text, bytes.data(), 3));
}

TEST(StringSearchTest, StrnstrRefusesNullAndANegativeLength) {
  EXPECT_EQ(nullptr, QIV_Strnstr(nullptr, "a", 1));
  EXPECT_EQ(nullptr, QIV_Strnstr("a", nullptr, 1));
  EXPECT_EQ(nullptr, QIV_Strnstr("a", nullptr, 0));
  EXPECT_EQ(nullptr, QIV_Strnstr("a", "a", -1));
}

TEST(StringSearchTest, StrcasestrFindsTheFirstWhateverTheCase) {
  const char* const text = "xABaBc";
  EXPECT_EQ(text + 3, QIV_Strcasestr(text, "AbC"));
  EXPECT_EQ(text + 1, QIV_Strcasestr(text, "ab"));
  EXPECT_EQ(text + 5, QIV_Strcasestr(text, "C"));
  EXPECT_EQ(text, QIV_Strcasestr(text, "XabABC"));
  EXPECT_EQ(nullptr, QIV_Strcasestr(text, "abcd"));
  EXPECT_EQ(nullptr, QIV_Strcasestr(text, "z"));
}

TEST(StringSearchTest, StrcasestrOfAnEmptyTextGivesTheText) {
  const char* const text = "abc";
  EXPECT_EQ(text, QIV_Strcasestr(text, ""));
  const char* const empty = "";
  EXPECT_EQ(empty, QIV_Strcasestr(empty, ""));
  EXPECT_EQ(nullptr, QIV_Strcasestr(empty, "a"));
}

TEST(StringSearchTest, StrcasestrRefusesNull) {
  EXPECT_EQ(nullptr, QIV_Strcasestr(nullptr, "a"));
  EXPECT_EQ(nullptr, QIV_Strcasestr("a", nullptr));
  EXPECT_EQ(nullptr, QIV_Strcasestr(nullptr, ""));
}

}  // namespace
