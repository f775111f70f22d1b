#include <gtest/gtest.h>
#include <qiv/hash.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "container/hash_fixture.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"

namespace qiv::test {
namespace {

class HashTest : public LeakCheckedTest {};

TEST_F(HashTest, CreateRoundsUpToTheNextSizeThatPassesTheTest) {
  struct Row {
    unsigned int n;
    unsigned int size;
  };
  constexpr Row kRows[] = {{0, 1},   {1, 1},   {2, 5},   {3, 5},     {4, 5},     {5, 5},
                           {6, 7},   {7, 7},   {8, 11},  {9, 11},    {11, 11},   {12, 13},
                           {15, 17}, {25, 29}, {49, 53}, {120, 127}, {121, 127}, {10000, 10007}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.n);
    EXPECT_EQ(row.size, NewTextTable(row.n)->size);
    EXPECT_EQ(row.size, NewIntTable(row.n)->size);
  }
}

TEST_F(HashTest, CreateGivesAnEmptyTextTableWhoseZeroedSlotsFollowTheHeader) {
  const TextTable table = NewTextTable(8);
  EXPECT_EQ(0u, table->filled);
  EXPECT_EQ(static_cast<void*>(table.get() + 1), table->table);
  for (unsigned int i = 0; i <= 11; ++i) EXPECT_TRUE(IsZero(table->table[i])) << "slot " << i;
}

TEST_F(HashTest, CreateGivesAnEmptyIntTableWhoseZeroedSlotsFollowTheHeader) {
  const IntTable table = NewIntTable(8);
  EXPECT_EQ(0u, table->filled);
  EXPECT_EQ(static_cast<void*>(table.get() + 1), table->table);
  for (unsigned int i = 0; i <= 11; ++i) EXPECT_TRUE(IsZero(table->table[i])) << "slot " << i;
}

TEST_F(HashTest, CreateFailsWhenNoThirtyTwoBitSizeIsLargeEnough) {
  TextHeader* text = nullptr;
  IntHeader* ints = nullptr;
  for (const unsigned int n : {4294967292U, 4294967293U, UINT_MAX}) {
    errno = 0;
    EXPECT_EQ(-1, QIV_SimpleHashCreate(n, &text));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(-1, QIV_SimpleIntHashCreate(n, &ints));
  }
  EXPECT_EQ(nullptr, text);
  EXPECT_EQ(nullptr, ints);
}

TEST_F(HashTest, CreateFailsWhenMemoryIsShortAndLeavesTheVariable) {
  TextHeader* text = &QIV_HSEARCH_DATA;
  IntHeader* ints = &QIV_HSEARCH_INTDATA;
  // 4294967291 is the largest size; where its slots do not fit in memory's address space nothing
  // is allocated at all.
  for (const unsigned int n : {8U, 4294967291U}) {
    const FailingAllocation failing(1, FailingFor::kEver);
    EXPECT_EQ(-1, QIV_SimpleHashCreate(n, &text));
    EXPECT_EQ(-1, QIV_SimpleIntHashCreate(n, &ints));
  }
  EXPECT_EQ(&QIV_HSEARCH_DATA, text);
  EXPECT_EQ(&QIV_HSEARCH_INTDATA, ints);
}

TEST_F(HashTest, NullArgumentsAreRefused) {
  const TextTable text = NewTextTable(5);
  const IntTable ints = NewIntTable(5);
  const QIV_HSEARCH_ITEM item = {"key", 1};
  const QIV_HSEARCH_ITEM withoutKey = {nullptr, 1};
  const QIV_HSEARCH_INTITEM intItem = {1, 1};
  unsigned int data = 77;
  EXPECT_EQ(-1, QIV_SimpleHashCreate(5, nullptr));
  EXPECT_EQ(-1, QIV_SimpleHashEnter(nullptr, text.get()));
  EXPECT_EQ(-1, QIV_SimpleHashEnter(&withoutKey, text.get()));
  EXPECT_EQ(-1, QIV_SimpleHashEnter(&item, nullptr));
  EXPECT_EQ(-1, QIV_SimpleHashFind(nullptr, &data, text.get()));
  EXPECT_EQ(0u, data);
  EXPECT_EQ(-1, QIV_SimpleHashFind("key", nullptr, text.get()));
  EXPECT_EQ(-1, QIV_SimpleHashFind("key", &data, nullptr));
  EXPECT_EQ(-1, QIV_SimpleHashRemove(nullptr, text.get()));
  EXPECT_EQ(-1, QIV_SimpleHashRemove("key", nullptr));
  EXPECT_EQ(-1, QIV_SimpleHashDestroy(nullptr));
  EXPECT_EQ(-1, QIV_SimpleIntHashCreate(5, nullptr));
  EXPECT_EQ(-1, QIV_SimpleIntHashEnter(nullptr, ints.get()));
  EXPECT_EQ(-1, QIV_SimpleIntHashEnter(&intItem, nullptr));
  EXPECT_EQ(-1, QIV_SimpleIntHashFind(1, nullptr, ints.get()));
  EXPECT_EQ(-1, QIV_SimpleIntHashFind(1, &data, nullptr));
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(1, nullptr));
  EXPECT_EQ(-1, QIV_SimpleIntHashDestroy(nullptr));
  EXPECT_EQ(0u, text->filled);
  EXPECT_EQ(0u, ints->filled);
}

TEST_F(HashTest, ExportedHeadersAreZeroAndRefused) {
  const QIV_HSEARCH_ITEM item = {"key", 1};
  const QIV_HSEARCH_INTITEM intItem = {1, 1};
  unsigned int data = 77;
  EXPECT_EQ(nullptr, QIV_HSEARCH_DATA.table);
  EXPECT_EQ(nullptr, QIV_HSEARCH_INTDATA.table);
  EXPECT_EQ(0u, QIV_HSEARCH_DATA.size + QIV_HSEARCH_DATA.filled);
  EXPECT_EQ(0u, QIV_HSEARCH_INTDATA.size + QIV_HSEARCH_INTDATA.filled);
  EXPECT_EQ(-1, QIV_SimpleHashEnter(&item, &QIV_HSEARCH_DATA));
  EXPECT_EQ(-1, QIV_SimpleHashFind("key", &data, &QIV_HSEARCH_DATA));
  EXPECT_EQ(-1, QIV_SimpleHashRemove("key", &QIV_HSEARCH_DATA));
  EXPECT_EQ(-1, QIV_SimpleHashDestroy(&QIV_HSEARCH_DATA));
  EXPECT_EQ(-1, QIV_SimpleIntHashEnter(&intItem, &QIV_HSEARCH_INTDATA));
  EXPECT_EQ(-1, QIV_SimpleIntHashFind(1, &data, &QIV_HSEARCH_INTDATA));
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(1, &QIV_HSEARCH_INTDATA));
  EXPECT_EQ(-1, QIV_SimpleIntHashDestroy(&QIV_HSEARCH_INTDATA));
}

TEST_F(HashTest, ExportedHeaderWorksAsACopyOfATablesHeader) {
  const IntTable table = NewIntTable(5);
  ASSERT_EQ(0, Enter(table, 3, 30));
  QIV_HSEARCH_INTDATA = *table;
  unsigned int data = 0;
  EXPECT_EQ(0, QIV_SimpleIntHashFind(3, &data, &QIV_HSEARCH_INTDATA));
  EXPECT_EQ(30u, data);
  EXPECT_EQ(-1, QIV_SimpleIntHashDestroy(&QIV_HSEARCH_INTDATA));
  QIV_HSEARCH_INTDATA = IntHeader();
}

TEST_F(HashTest, DestroyFreesTheTable) {
  TextHeader* text = nullptr;
  IntHeader* ints = nullptr;
  ASSERT_EQ(0, QIV_SimpleHashCreate(5, &text));
  ASSERT_EQ(0, QIV_SimpleIntHashCreate(5, &ints));
  EXPECT_EQ(0, QIV_SimpleHashDestroy(text));
  EXPECT_EQ(0, QIV_SimpleIntHashDestroy(ints));
}

TEST_F(HashTest, EnteringTwiceCountsOnceAndKeepsTheFirstData) {
  const TextTable text = NewTextTable(8);
  const IntTable ints = NewIntTable(8);
  EXPECT_EQ(0, Enter(text, "key", 1));
  EXPECT_EQ(0, Enter(text, "key", 1));
  EXPECT_EQ(-1, Enter(text, "key", 2));
  EXPECT_EQ(1u, text->filled);
  EXPECT_EQ((Found{0, 1}), Find(text, "key"));
  EXPECT_EQ(0, Enter(ints, 9, 1));
  EXPECT_EQ(0, Enter(ints, 9, 1));
  EXPECT_EQ(-1, Enter(ints, 9, 2));
  EXPECT_EQ(1u, ints->filled);
  EXPECT_EQ((Found{0, 1}), Find(ints, 9));
}

TEST_F(HashTest, FindOfAMissingKeyStoresZeroAndFails) {
  const TextTable text = NewTextTable(8);
  const IntTable ints = NewIntTable(8);
  EXPECT_EQ(kMissing, Find(text, "key"));
  EXPECT_EQ(kMissing, Find(ints, 0));
  ASSERT_EQ(0, Enter(ints, 1, 5));
  EXPECT_EQ(kMissing, Find(ints, 12));  // the same home slot
}

/** Fills a table with keys[0] and so on, and tries one key more. */
template <class Table, class Key>
void ExpectRoomForItsSize(const Table& table, const std::vector<Key>& keys) {
  const unsigned int size = table->size;
  for (unsigned int i = 0; i < size; ++i) EXPECT_EQ(0, Enter(table, keys[i], i));
  EXPECT_EQ(-1, Enter(table, keys[size], 0));
  EXPECT_EQ(kMissing, Find(table, keys[size]));
  EXPECT_EQ(size, table->filled);
}

/** Whether keys[0] and so on are the entries of a full table. */
template <class Table, class Key>
void ExpectFullOf(const Table& table, const std::vector<Key>& keys) {
  for (unsigned int i = 0; i < table->size; ++i) {
    EXPECT_EQ((Found{0, i}), Find(table, keys[i]));
    EXPECT_EQ(0, Enter(table, keys[i], i)) << "a known key is still accepted";
  }
  EXPECT_TRUE(IsZero(table->table[0]));
}

TEST_F(HashTest, TextTableTakesAsManyEntriesAsItsSizeAndNoMore) {
  std::vector<std::string> names;
  for (int i = 0; i <= 53; ++i) names.push_back("name " + std::to_string(i));
  std::vector<const char*> keys;
  keys.reserve(names.size());
  for (const std::string& name : names) keys.push_back(name.c_str());
  for (const unsigned int n : {1U, 5U, 11U, 53U}) {
    const TextTable table = NewTextTable(n);
    ExpectRoomForItsSize(table, keys);
    ExpectFullOf(table, keys);
  }
}

TEST_F(HashTest, IntTableTakesAsManyEntriesAsItsSizeAndNoMore) {
  std::vector<unsigned int> keys;
  for (unsigned int i = 0; i <= 53; ++i) keys.push_back(3 * i);
  for (const unsigned int n : {1U, 5U, 11U, 53U}) {
    const IntTable table = NewIntTable(n);
    ExpectRoomForItsSize(table, keys);
    ExpectFullOf(table, keys);
  }
}

TEST_F(HashTest, TableOfSizeOneTakesOneEntryAndGivesItBack) {
  const IntTable table = NewIntTable(0);
  EXPECT_EQ(0, Enter(table, 4, 40));
  EXPECT_EQ(-1, Enter(table, 5, 50));
  EXPECT_EQ(kMissing, Find(table, 5));
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(5, table.get()));
  EXPECT_EQ((Found{0, 40}), Find(table, 4));
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(4, table.get()));
  EXPECT_EQ(0u, table->filled);
  EXPECT_EQ(0, Enter(table, 5, 50));
  EXPECT_EQ((std::vector<unsigned int>{0, 5}), KeysInSlots(table));
}

TEST_F(HashTest, CollidingKeysFollowTheSecondHash) {
  const IntTable table = FullIntTable();
  EXPECT_EQ((std::vector<unsigned int>{0, 1, 11, 21, 6, 16}), KeysInSlots(table));
}

TEST_F(HashTest, KeyOfRemainderZeroStartsAtSlotOne) {
  const IntTable table = NewIntTable(5);
  ASSERT_EQ(0, Enter(table, 10, 1));
  EXPECT_EQ((std::vector<unsigned int>{0, 10, 0, 0, 0, 0}), KeysInSlots(table));
  EXPECT_EQ(~10U, table->table[1].used);
}

TEST_F(HashTest, TextsStandWhereTheirHashSays) {
  // The last one has a character above 127 and shifts bits out at the top.
  for (const char* key : {"", "a", "ab", "ba", "\xE9", "a longer text, \xFF and more"}) {
    SCOPED_TRACE(key);
    const TextTable table = NewTextTable(101);
    ASSERT_EQ(0, Enter(table, key, 5));
    const unsigned int home = HomeOf(key, 101);
    EXPECT_EQ(home, table->table[home].used);
    EXPECT_EQ(key, table->table[home].key);
    EXPECT_EQ(5u, table->table[home].data);
  }
}

TEST_F(HashTest, TextKeysAreComparedByContentAndNotCopied) {
  const TextTable table = NewTextTable(5);
  std::array<char, 4> stored = {'k', 'e', 'y', '\0'};
  ASSERT_EQ(0, Enter(table, stored.data(), 1));
  EXPECT_EQ((Found{0, 1}), Find(table, "key"));
  EXPECT_EQ(-1, Enter(table, "key", 2));
  stored[0] = 'K';
  EXPECT_EQ(kMissing, Find(table, "key"));
}

TEST_F(HashTest, IntKeyOfAllOnesIsNeverFound) {
  const IntTable table = NewIntTable(5);
  EXPECT_EQ(0, Enter(table, UINT_MAX, 1));
  EXPECT_EQ(kMissing, Find(table, UINT_MAX));
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(UINT_MAX, table.get()));
  EXPECT_EQ(1u, table->filled);
}

TEST_F(HashTest, IntKeyOfAllOnesCountsEachTimeUntilTheTableIsFull) {
  const IntTable table = NewIntTable(5);
  for (unsigned int i = 0; i < 5; ++i) EXPECT_EQ(0, Enter(table, UINT_MAX, i));
  EXPECT_EQ(5u, table->filled);
  EXPECT_EQ(-1, Enter(table, UINT_MAX, 1));
  EXPECT_EQ(-1, Enter(table, 3, 1));
}

TEST_F(HashTest, SlotOfTheIntKeyOfAllOnesIsTakenByTheNextKey) {
  const IntTable table = NewIntTable(5);
  ASSERT_EQ(0, Enter(table, UINT_MAX, 1));  // the remainder is 0: slot 1
  EXPECT_EQ(0, Enter(table, 6, 60));
  EXPECT_EQ((std::vector<unsigned int>{0, 6, 0, 0, 0, 0}), KeysInSlots(table));
  EXPECT_EQ(2u, table->filled);
}

TEST_F(HashTest, IntKeyZeroIsAKeyLikeOthers) {
  const IntTable table = NewIntTable(5);
  ASSERT_EQ(0, Enter(table, 0, 9));
  EXPECT_EQ((Found{0, 9}), Find(table, 0));
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(0, table.get()));
  EXPECT_EQ(kMissing, Find(table, 0));
}

}  // namespace
}  // namespace qiv::test
