#include <gtest/gtest.h>
#include <qiv/system.h>
#include <uuid/uuid.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

const QIV_UUID_T kSample = {
    0x0123ABCDu, 0x0045u, 0xFEDCu, {0x00, 0x01, 0x7F, 0x80, 0xAA, 0xBB, 0xCC, 0x0D}};

TEST(UuidTest, NullIsRefused) {
  char text[64] = "unchanged";
  EXPECT_EQ(-1, QIV_GetUUID(nullptr));
  EXPECT_EQ(-1, QIV_StringFromUUID(nullptr, text, sizeof text));
  EXPECT_EQ(-1, QIV_StringFromUUID(&kSample, nullptr, 64));
  EXPECT_STREQ("unchanged", text);
}

TEST(UuidTest, GeneratedIdentifiersAreWellFormedAndDiffer) {
  QIV_UUID_T first = {};
  QIV_UUID_T second = {};
  ASSERT_EQ(0, QIV_GetUUID(&first));
  ASSERT_EQ(0, QIV_GetUUID(&second));
  EXPECT_NE(0, std::memcmp(&first, &second, sizeof first));
  uuid_t bytes;
  std::memcpy(bytes, &first, sizeof bytes);
  EXPECT_EQ(UUID_VARIANT_DCE, uuid_variant(bytes));
}

struct SizeRow {
  const char* name;
  int size;
  int result;
  const char* text;
};

TEST(UuidTest, TextDependsOnTheSize) {
  const SizeRow rows[] = {
      {"exact", 37, 0, "0123ABCD-0045-FEDC-0001-7F80AABBCC0D"},
      {"larger", 64, 0, "0123ABCD-0045-FEDC-0001-7F80AABBCC0D"},
      {"kept: last digit cut off", 36, 0, "0123ABCD-0045-FEDC-0001-7F80AABBCC0"},
      {"too small", 35, -1, "unchanged"},
      {"zero", 0, -1, "unchanged"},
      {"negative", INT_MIN, -1, "unchanged"},
  };
  for (const SizeRow& row : rows) {
    char text[64] = "unchanged";
    EXPECT_EQ(row.result, QIV_StringFromUUID(&kSample, text, row.size)) << row.name;
    EXPECT_STREQ(row.text, text) << row.name;
  }
}

TEST(UuidTest, FirstGroupsAreIntegersOfTheProcessor) {
  QIV_UUID_T id = {};
  const unsigned char bytes[16] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                                   0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x00};
  std::memcpy(&id, bytes, sizeof id);
  unsigned int data1 = 0;
  std::memcpy(&data1, bytes, sizeof data1);
  char text[37];
  ASSERT_EQ(0, QIV_StringFromUUID(&id, text, sizeof text));
  char group[9];
  std::snprintf(group, sizeof group, "%08X", data1);
  EXPECT_EQ(std::string(group), std::string(text, 8));
  EXPECT_STREQ("99AA-BBCCDDEEFF00", text + 19);
}

}  // namespace
