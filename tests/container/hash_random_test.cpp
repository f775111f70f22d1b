// Random operations on both kinds of table against a second, plainer implementation of the rules.
#include <gtest/gtest.h>
#include <qiv/hash.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/test_limit.h"

namespace {

constexpr unsigned int kSeed = 20261121;
constexpr int kOperations = 100000;
constexpr int kOperationsPerTable = 400;
constexpr unsigned int kAllOnes = 0xFFFFFFFF;

/** What both kinds have in common; a subclass tells the numbers of its keys. */
class Model {
 public:
  explicit Model(unsigned int size) : m_slots(size + 1) {}
  virtual ~Model() = default;

  struct Entry {
    std::size_t key;  // which of the test's keys
    unsigned int data;
  };

  int Enter(std::size_t key, unsigned int data) {
    std::size_t last = Size();
    const std::optional<std::size_t> at = SlotOf(key, &last);
    if (at) return m_slots[*at]->data == data ? 0 : -1;
    if (m_filled == Size()) return -1;
    m_filled += 1;
    // An entry that can never be found leaves its slot free.
    if (IsFindable(key)) m_slots[last] = Entry{key, data};
    return 0;
  }

  int Find(std::size_t key, unsigned int* data) const {
    std::size_t last = 0;
    const std::optional<std::size_t> at = SlotOf(key, &last);
    *data = at ? m_slots[*at]->data : 0;
    return at ? 0 : -1;
  }

  int Remove(std::size_t key) {
    const std::vector<std::size_t> chain = OccupiedChain(HomeOf(key));
    if (chain.empty()) return -1;
    const std::size_t tail = chain.back();
    const Entry tailEntry = *m_slots[tail];
    std::size_t last = 0;
    const std::optional<std::size_t> at = SlotOf(key, &last);
    if (!at) return -1;
    if (*at != tail) {
      m_slots[*at].reset();
      if (Enter(tailEntry.key, tailEntry.data) != 0) return -1;
    }
    m_slots[tail].reset();
    m_filled -= 1;
    return 0;
  }

  std::size_t Filled() const { return m_filled; }
  const std::optional<Entry>& At(std::size_t slot) const { return m_slots[slot]; }

 protected:
  virtual std::uint32_t NumberOf(std::size_t key) const = 0;
  virtual bool IsFindable(std::size_t key) const = 0;

  std::size_t HomeOf(std::size_t key) const {
    const std::size_t remainder = NumberOf(key) % Size();
    return remainder == 0 ? 1 : remainder;
  }

 private:
  std::size_t Size() const { return m_slots.size() - 1; }

  /** Every slot that a search from `home` can look at, in order. */
  std::vector<std::size_t> Sequence(std::size_t home) const {
    std::vector<std::size_t> sequence = {home};
    if (Size() == 1) return {1, 0};
    const std::size_t step = 1 + home % (Size() - 2);
    std::size_t at = home;
    for (;;) {
      at = at <= step ? at + Size() - step : at - step;
      if (at == home) return sequence;
      sequence.push_back(at);
    }
  }

  std::vector<std::size_t> OccupiedChain(std::size_t home) const {
    std::vector<std::size_t> chain;
    for (const std::size_t slot : Sequence(home)) {
      if (!m_slots[slot]) break;
      chain.push_back(slot);
    }
    return chain;
  }

  std::optional<std::size_t> SlotOf(std::size_t key, std::size_t* last) const {
    for (const std::size_t slot : Sequence(HomeOf(key))) {
      *last = slot;
      if (!m_slots[slot]) return std::nullopt;
      if (m_slots[slot]->key == key) return slot;
    }
    return std::nullopt;
  }

  std::vector<std::optional<Entry>> m_slots;
  std::size_t m_filled = 0;
};

class IntModel : public Model {
 public:
  IntModel(unsigned int size, const std::vector<unsigned int>& keys) : Model(size), m_keys(keys) {}

 protected:
  std::uint32_t NumberOf(std::size_t key) const override { return m_keys[key]; }
  bool IsFindable(std::size_t key) const override { return m_keys[key] != kAllOnes; }

 private:
  const std::vector<unsigned int>& m_keys;
};

class TextModel : public Model {
 public:
  TextModel(unsigned int size, const std::deque<std::string>& keys) : Model(size), m_keys(keys) {}

 protected:
  std::uint32_t NumberOf(std::size_t key) const override {
    const std::string& text = m_keys[key];
    auto number = static_cast<std::uint32_t>(text.size());
    for (std::size_t i = text.size(); i-- > 0;) {
      number = number * 16 + static_cast<unsigned char>(text[i]);
    }
    return number;
  }
  bool IsFindable(std::size_t /*key*/) const override { return true; }

 private:
  const std::deque<std::string>& m_keys;
};

/** Distinct keys: small ones, which collide, then any, and the one that is never found. */
std::vector<unsigned int> IntKeys(std::size_t count, std::mt19937& random) {
  std::vector<unsigned int> keys = {kAllOnes};
  for (unsigned int i = 0; keys.size() < count; ++i) {
    keys.push_back(i % 3 == 0 ? (static_cast<unsigned int>(random()) & ~0xFFFU) | i : i);
  }
  return keys;
}

std::deque<std::string> TextKeys(std::size_t count, std::mt19937& random) {
  std::deque<std::string> keys = {""};
  while (keys.size() < count) {
    std::string text = std::to_string(keys.size()) + ":";  // no other text begins like this
    const std::size_t length = text.size() + random() % 12;
    while (text.size() < length) text += static_cast<char>(1 + random() % 255);
    keys.push_back(text);
  }
  return keys;
}

class IntTable {
 public:
  IntTable(unsigned int n, const std::vector<unsigned int>& keys) : m_keys(keys) {
    EXPECT_EQ(0, QIV_SimpleIntHashCreate(n, &m_table));
  }
  ~IntTable() { QIV_SimpleIntHashDestroy(m_table); }
  IntTable(const IntTable&) = delete;
  IntTable& operator=(const IntTable&) = delete;

  int Enter(std::size_t key, unsigned int data) {
    const QIV_HSEARCH_INTITEM item = {m_keys[key], data};
    return QIV_SimpleIntHashEnter(&item, m_table);
  }
  int Find(std::size_t key, unsigned int* data) const {
    return QIV_SimpleIntHashFind(m_keys[key], data, m_table);
  }
  int Remove(std::size_t key) { return QIV_SimpleIntHashRemove(m_keys[key], m_table); }
  std::size_t Filled() const { return m_table->filled; }
  unsigned int Size() const { return m_table->size; }

  bool SlotHolds(std::size_t slot, const std::optional<Model::Entry>& entry) const {
    const QIV_HSEARCH_INTSLOT& stored = m_table->table[slot];
    if (!entry) return stored.used == 0;
    const unsigned int key = m_keys[entry->key];
    return stored.used == ~key && stored.key == key && stored.data == entry->data;
  }

 private:
  const std::vector<unsigned int>& m_keys;
  struct QIV_HSEARCH_INTDATA* m_table = nullptr;
};

class TextTable {
 public:
  TextTable(unsigned int n, const std::deque<std::string>& keys) : m_keys(keys) {
    EXPECT_EQ(0, QIV_SimpleHashCreate(n, &m_table));
  }
  ~TextTable() { QIV_SimpleHashDestroy(m_table); }
  TextTable(const TextTable&) = delete;
  TextTable& operator=(const TextTable&) = delete;

  int Enter(std::size_t key, unsigned int data) {
    const QIV_HSEARCH_ITEM item = {m_keys[key].c_str(), data};
    return QIV_SimpleHashEnter(&item, m_table);
  }
  int Find(std::size_t key, unsigned int* data) const {
    const std::string copy = m_keys[key];
    return QIV_SimpleHashFind(copy.c_str(), data, m_table);
  }
  int Remove(std::size_t key) { return QIV_SimpleHashRemove(m_keys[key].c_str(), m_table); }
  std::size_t Filled() const { return m_table->filled; }
  unsigned int Size() const { return m_table->size; }

  bool SlotHolds(std::size_t slot, const std::optional<Model::Entry>& entry) const {
    const QIV_HSEARCH_SLOT& stored = m_table->table[slot];
    if (!entry) return stored.used == 0 && stored.key == nullptr && stored.data == 0;
    return stored.used != 0 && stored.key == m_keys[entry->key].c_str() &&
           stored.data == entry->data;
  }

 private:
  const std::deque<std::string>& m_keys;
  struct QIV_HSEARCH_DATA* m_table = nullptr;
};

/** One operation on both; false when they differ in its result or in what they hold afterwards. */
template <class Table>
bool AgreeOnOneOperation(Table& table, Model& model, std::size_t keys, std::mt19937& random) {
  const std::size_t key = random() % keys;
  const auto data = static_cast<unsigned int>(random() % 2);
  switch (random() % 8) {
    case 0:
    case 1: {
      unsigned int found = 77;
      unsigned int expected = 88;
      if (table.Find(key, &found) != model.Find(key, &expected) || found != expected) return false;
      break;
    }
    case 2:
    case 3:
    case 4:
      if (table.Remove(key) != model.Remove(key)) return false;
      break;
    default:
      if (table.Enter(key, data) != model.Enter(key, data)) return false;
      break;
  }
  if (table.Filled() != model.Filled()) return false;
  for (std::size_t slot = 0; slot <= table.Size(); ++slot) {
    if (!table.SlotHolds(slot, model.At(slot))) return false;
  }
  return true;
}

template <class Table, class TableModel, class Keys>
void CompareWithModel(Keys makeKeys) {
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  const int operations = qiv::test::ScaledLoad(kOperations);
  for (int done = 0; done < operations; done += kOperationsPerTable) {
    const auto n = static_cast<unsigned int>(random() % 60);
    const auto keys = makeKeys(2 + n + random() % (n + 1), random);
    Table table(n, keys);
    TableModel model(table.Size(), keys);
    for (int i = 0; i < kOperationsPerTable; ++i) {
      ASSERT_TRUE(AgreeOnOneOperation(table, model, keys.size(), random))
          << "operation " << done + i << ", table of size " << table.Size();
    }
  }
}

TEST(HashRandomTest, IntTableAgreesWithTheModel) { CompareWithModel<IntTable, IntModel>(IntKeys); }

TEST(HashRandomTest, TextTableAgreesWithTheModel) {
  CompareWithModel<TextTable, TextModel>(TextKeys);
}

}  // namespace
