#include <gtest/gtest.h>
#include <qiv/hash.h>

#include <vector>

#include "container/hash_fixture.h"
#include "support/leak_check.h"

namespace qiv::test {
namespace {

class HashRemoveTest : public LeakCheckedTest {};

TEST_F(HashRemoveTest, OfAMissingKeyFailsAndChangesNothing) {
  const IntTable table = NewIntTable(5);
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(1, table.get()));
  ASSERT_EQ(0, Enter(table, 1, 10));
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(6, table.get()));
  EXPECT_EQ(1u, table->filled);
  EXPECT_EQ((Found{0, 10}), Find(table, 1));
}

TEST_F(HashRemoveTest, OfTheLastOfAChainClearsItsSlot) {
  const TextTable text = NewTextTable(5);
  ASSERT_EQ(0, Enter(text, "key", 1));
  EXPECT_EQ(0, QIV_SimpleHashRemove("key", text.get()));
  EXPECT_EQ(kMissing, Find(text, "key"));
  EXPECT_EQ(0u, text->filled);
  EXPECT_TRUE(IsZero(text->table[HomeOf("key", 5)]));
}

TEST_F(HashRemoveTest, MovesTheLastOfTheChainAndKeepsTheCountTooHigh) {
  const IntTable table = NewIntTable(5);
  for (const unsigned int key : {1U, 6U, 11U}) ASSERT_EQ(0, Enter(table, key, key));
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(1, table.get()));
  EXPECT_EQ((std::vector<unsigned int>{0, 11, 0, 0, 6, 0}), KeysInSlots(table));
  EXPECT_EQ(3u, table->filled);
}

/** A table of size 5 in which 6 went from slot 1 to 4, and so 4 from its home to slot 2, which the
 *  chain of 1 passes. */
IntTable TableWhoseChainsCross() {
  IntTable table = NewIntTable(5);
  for (const unsigned int key : {1U, 6U, 4U}) EXPECT_EQ(0, Enter(table, key, key));
  EXPECT_EQ((std::vector<unsigned int>{0, 1, 4, 0, 6, 0}), KeysInSlots(table));
  return table;
}

TEST_F(HashRemoveTest, LosesEntriesWhereChainsCross) {
  const IntTable table = TableWhoseChainsCross();
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(1, table.get()));
  EXPECT_EQ((std::vector<unsigned int>{0, 0, 0, 0, 6, 0}), KeysInSlots(table));
  EXPECT_EQ(kMissing, Find(table, 4));
  EXPECT_EQ(kMissing, Find(table, 6));  // its home slot is empty now
  EXPECT_EQ(2u, table->filled);
}

TEST_F(HashRemoveTest, OfAnEntryThatGotLostAndWasEnteredAgainBringsTheOlderOneBack) {
  const IntTable table = TableWhoseChainsCross();
  ASSERT_EQ(0, QIV_SimpleIntHashRemove(1, table.get()));
  ASSERT_EQ(kMissing, Find(table, 6));
  EXPECT_EQ(0, Enter(table, 6, 99));
  EXPECT_EQ((Found{0, 99}), Find(table, 6));
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(6, table.get()));
  EXPECT_EQ((Found{0, 6}), Find(table, 6));
}

TEST_F(HashRemoveTest, InAFullTableLosesTheLastOfTheChainWhenThatIsFoundWhereItStands) {
  const IntTable table = NewIntTable(5);
  for (const unsigned int key : {5U, 2U, 3U, 4U, 6U}) ASSERT_EQ(0, Enter(table, key, key));
  ASSERT_EQ((std::vector<unsigned int>{0, 5, 2, 3, 4, 6}), KeysInSlots(table));
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(3, table.get()));
  EXPECT_EQ(4u, table->filled);
  EXPECT_EQ(kMissing, Find(table, 4));
}

TEST_F(HashRemoveTest, InAFullTableTakesTheKeyOutAndFails) {
  const IntTable table = FullIntTable();
  EXPECT_EQ(-1, QIV_SimpleIntHashRemove(6, table.get()));
  EXPECT_EQ((std::vector<unsigned int>{0, 1, 11, 21, 0, 16}), KeysInSlots(table));
  EXPECT_EQ(5u, table->filled);
}

TEST_F(HashRemoveTest, OfTheLastOfAChainSucceedsInAFullTable) {
  const IntTable table = FullIntTable();
  EXPECT_EQ(0, QIV_SimpleIntHashRemove(21, table.get()));
  EXPECT_EQ((std::vector<unsigned int>{0, 1, 11, 0, 6, 16}), KeysInSlots(table));
  EXPECT_EQ(4u, table->filled);
}

}  // namespace
}  // namespace qiv::test
