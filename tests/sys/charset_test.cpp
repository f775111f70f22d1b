#include <gtest/gtest.h>
#include <iconv.h>
#include <qiv/system.h>

#include <string>

#include "support/failing_allocation.h"

namespace {

// Not every C library knows EUC-CN; without it every result is empty.
bool PlatformHasEucCn() {
  iconv_t handle = iconv_open("UTF-8", "EUC-CN");
  if (handle == iconv_t(-1)) return false;
  iconv_close(handle);
  return true;
}

std::string OnThisPlatform(const std::string& expected) {
  return PlatformHasEucCn() ? expected : std::string();
}

struct TextRow {
  const char* name;
  std::string utf8;
  std::string eucCn;
};

TEST(CharsetTest, TextsAreConvertedBothWays) {
  const TextRow rows[] = {
      {"empty", "", ""},
      {"plain", "abc 123", "abc 123"},
      {"two characters", "\xE4\xB8\xAD\xE5\x9B\xBD", "\xD6\xD0\xB9\xFA"},
      {"mixed",
       "a\xE4\xB8\xAD"
       "b",
       "a\xD6\xD0"
       "b"},
  };
  for (const TextRow& row : rows) {
    EXPECT_EQ(OnThisPlatform(row.eucCn), QIV_UTF82A(row.utf8.c_str())) << row.name;
    EXPECT_EQ(OnThisPlatform(row.utf8), QIV_A2UTF8(row.eucCn.c_str())) << row.name;
  }
}

TEST(CharsetTest, LongTextThatGrowsByHalfIsConvertedWhole) {
  std::string eucCn;
  std::string utf8;
  for (int i = 0; i < 10000; ++i) {
    eucCn += "\xD6\xD0";
    utf8 += "\xE4\xB8\xAD";
  }
  EXPECT_EQ(OnThisPlatform(utf8), QIV_A2UTF8(eucCn.c_str()));
  EXPECT_EQ(OnThisPlatform(eucCn), QIV_UTF82A(utf8.c_str()));
}

TEST(CharsetTest, ShortMemoryGivesAnEmptyText) {
  const std::string text(1000, 'a');
  const bool reachesTheBuffer = PlatformHasEucCn();
  for (std::string (*convert)(const char*) : {QIV_UTF82A, QIV_A2UTF8}) {
    const qiv::test::FailingAllocation failing(1);
    EXPECT_EQ("", convert(text.c_str()));
    EXPECT_EQ(reachesTheBuffer, failing.Happened());
  }
}

TEST(CharsetTest, NullGivesAnEmptyText) {
  EXPECT_EQ("", QIV_UTF82A(nullptr));
  EXPECT_EQ("", QIV_A2UTF8(nullptr));
}

TEST(CharsetTest, TextThatCannotBeConvertedGivesAnEmptyText) {
  EXPECT_EQ("", QIV_UTF82A("good\xFF"
                           "bad"))
      << "not UTF-8";
  EXPECT_EQ("", QIV_UTF82A("good\xE4\xB8")) << "cut-off UTF-8";
  EXPECT_EQ("", QIV_UTF82A("good\xF0\x9F\x98\x80")) << "no such character in EUC-CN";
  EXPECT_EQ("", QIV_A2UTF8("good\xFF\xFF")) << "not EUC-CN";
  EXPECT_EQ("", QIV_A2UTF8("good\xD6")) << "cut-off EUC-CN";
}

}  // namespace
