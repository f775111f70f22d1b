// Both kinds of hash table behind functions of one name.
#ifndef QIV_TESTS_CONTAINER_HASH_FIXTURE_H
#define QIV_TESTS_CONTAINER_HASH_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/hash.h>

#include <array>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace qiv::test {

// The types are hidden by the variables of the same names.
using TextHeader = struct QIV_HSEARCH_DATA;
using IntHeader = struct QIV_HSEARCH_INTDATA;

struct DestroyTable {
  void operator()(TextHeader* table) const { QIV_SimpleHashDestroy(table); }
  void operator()(IntHeader* table) const { QIV_SimpleIntHashDestroy(table); }
};

using TextTable = std::unique_ptr<TextHeader, DestroyTable>;
using IntTable = std::unique_ptr<IntHeader, DestroyTable>;

inline TextTable NewTextTable(unsigned int n) {
  TextHeader* table = nullptr;
  EXPECT_EQ(0, QIV_SimpleHashCreate(n, &table));
  return TextTable(table);
}

inline IntTable NewIntTable(unsigned int n) {
  IntHeader* table = nullptr;
  EXPECT_EQ(0, QIV_SimpleIntHashCreate(n, &table));
  return IntTable(table);
}

inline int Enter(const TextTable& table, const char* key, unsigned int data) {
  const QIV_HSEARCH_ITEM item = {key, data};
  return QIV_SimpleHashEnter(&item, table.get());
}

inline int Enter(const IntTable& table, unsigned int key, unsigned int data) {
  const QIV_HSEARCH_INTITEM item = {key, data};
  return QIV_SimpleIntHashEnter(&item, table.get());
}

struct Found {
  int result;
  unsigned int data;
};

inline bool operator==(const Found& a, const Found& b) {
  return a.result == b.result && a.data == b.data;
}

inline void PrintTo(const Found& found, std::ostream* out) {
  *out << found.result << " with data " << found.data;
}

constexpr Found kMissing = {-1, 0};

inline Found Find(const TextTable& table, const char* key) {
  Found found = {0, 77};
  found.result = QIV_SimpleHashFind(key, &found.data, table.get());
  return found;
}

inline Found Find(const IntTable& table, unsigned int key) {
  Found found = {0, 77};
  found.result = QIV_SimpleIntHashFind(key, &found.data, table.get());
  return found;
}

inline bool IsZero(const QIV_HSEARCH_SLOT& slot) {
  return slot.used == 0 && slot.key == nullptr && slot.data == 0;
}

inline bool IsZero(const QIV_HSEARCH_INTSLOT& slot) {
  return slot.used == 0 && slot.key == 0 && slot.data == 0;
}

/** The keys of slots 0 to `size`, with 0 for an empty one. */
inline std::vector<unsigned int> KeysInSlots(const IntTable& table) {
  std::vector<unsigned int> keys;
  for (unsigned int i = 0; i <= table->size; ++i) {
    keys.push_back(table->table[i].used == 0 ? 0 : table->table[i].key);
  }
  return keys;
}

/** All of home slot 1 in a table of size 5, whose chain is 1, 4, 2, 5, 3. */
constexpr std::array<unsigned int, 5> kOneChain = {1, 6, 11, 16, 21};

inline IntTable FullIntTable() {
  IntTable table = NewIntTable(5);
  for (const unsigned int key : kOneChain) EXPECT_EQ(0, Enter(table, key, key + 100));
  return table;
}

/** The slot of a text, by the rule that the header's comment leaves out. */
inline unsigned int HomeOf(const std::string& key, unsigned int size) {
  std::uint64_t hash = key.size();
  for (auto c = key.rbegin(); c != key.rend(); ++c) {
    hash = (hash * 16 + static_cast<unsigned char>(*c)) & 0xFFFFFFFF;
  }
  const auto remainder = static_cast<unsigned int>(hash % size);
  return remainder == 0 ? 1 : remainder;
}

}  // namespace qiv::test

#endif
