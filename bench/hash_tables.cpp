// The two kinds of hash table beside the platform's: text keys beside hsearch_r(3), 32-bit keys
// beside std::unordered_map. Each figure is one table made, filled, searched for every key and
// destroyed, per key.
#include <qiv/hash.h>
#include <search.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "compare.h"

namespace {

constexpr unsigned int kKeys = 10000;
constexpr unsigned int kCapacity = 2 * kKeys;
constexpr int kTables = 20;

void Require(bool condition) {
  if (!condition) std::abort();
}

template <class Use>
auto NanosecondsPerKey(Use use) {
  return [use] {
    const qiv::bench::Timer timer;
    for (int i = 0; i < kTables; ++i) use();
    return timer.Nanoseconds() / kTables / kKeys;
  };
}

void UseTextTable(const std::vector<std::string>& names) {
  struct QIV_HSEARCH_DATA* table = nullptr;
  Require(QIV_SimpleHashCreate(kCapacity, &table) == 0);
  for (unsigned int i = 0; i < kKeys; ++i) {
    const QIV_HSEARCH_ITEM item = {names[i].c_str(), i};
    Require(QIV_SimpleHashEnter(&item, table) == 0);
  }
  for (unsigned int i = 0; i < kKeys; ++i) {
    unsigned int data = 0;
    Require(QIV_SimpleHashFind(names[i].c_str(), &data, table) == 0 && data == i);
  }
  QIV_SimpleHashDestroy(table);
}

void UsePlatformTextTable(std::vector<std::string>& names) {
  hsearch_data table = {};
  ENTRY* found = nullptr;
  Require(hcreate_r(kCapacity, &table) != 0);
  for (std::uintptr_t i = 0; i < kKeys; ++i) {
    const ENTRY entry = {names[i].data(), reinterpret_cast<void*>(i)};
    Require(hsearch_r(entry, ENTER, &found, &table) != 0);
  }
  for (std::uintptr_t i = 0; i < kKeys; ++i) {
    Require(hsearch_r({names[i].data(), nullptr}, FIND, &found, &table) != 0);
    Require(found->data == reinterpret_cast<void*>(i));
  }
  hdestroy_r(&table);
}

void UseIntTable(const std::vector<unsigned int>& keys) {
  struct QIV_HSEARCH_INTDATA* table = nullptr;
  Require(QIV_SimpleIntHashCreate(kCapacity, &table) == 0);
  for (const unsigned int key : keys) {
    const QIV_HSEARCH_INTITEM item = {key, key / 2};
    Require(QIV_SimpleIntHashEnter(&item, table) == 0);
  }
  for (const unsigned int key : keys) {
    unsigned int data = 0;
    Require(QIV_SimpleIntHashFind(key, &data, table) == 0 && data == key / 2);
  }
  QIV_SimpleIntHashDestroy(table);
}

void UsePlatformIntTable(const std::vector<unsigned int>& keys) {
  std::unordered_map<unsigned int, unsigned int> table(kCapacity);
  for (const unsigned int key : keys) table.emplace(key, key / 2);
  for (const unsigned int key : keys) {
    const auto found = table.find(key);
    Require(found != table.end() && found->second == key / 2);
  }
}

}  // namespace

int main() {
  std::mt19937 random(1);
  std::vector<std::string> names;
  std::vector<unsigned int> keys;
  for (unsigned int i = 0; i < kKeys; ++i) {
    // Both hashes are made of the first 8 characters.
    names.push_back(std::to_string(random()) + "/entry");
    keys.push_back(static_cast<unsigned int>(random()));
  }
  qiv::bench::PrintHead("10000 keys entered and found, ns per key");
  qiv::bench::Compare("text keys, hsearch_r(3)", NanosecondsPerKey([&] { UseTextTable(names); }),
                      NanosecondsPerKey([&] { UsePlatformTextTable(names); }));
  qiv::bench::Compare("32-bit keys, std::unordered_map",
                      NanosecondsPerKey([&] { UseIntTable(keys); }),
                      NanosecondsPerKey([&] { UsePlatformIntTable(keys); }));
  return 0;
}
