// Random traffic through the tracked pool against a plain model of it, and under threads.
#include <gtest/gtest.h>
#include <qiv/memory_pool_ex.h>

#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "memory/spare_nodes.h"
#include "memory/tracked_pool_model.h"
#include "support/eventually.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"

namespace qiv::test {
namespace {

class MemoryPoolExRandomTest : public LeakCheckedTest {};

struct Allocation {
  char* pointer;
  unsigned int size;
  unsigned char fill;
};

bool IsWhole(const Allocation& allocation) {
  for (unsigned int i = 0; i < allocation.size; ++i) {
    if (static_cast<unsigned char>(allocation.pointer[i]) != allocation.fill) return false;
  }
  return true;
}

Allocation TakeOut(std::vector<Allocation>& allocations, std::size_t index) {
  std::swap(allocations[index], allocations.back());
  const Allocation taken = allocations.back();
  allocations.pop_back();
  return taken;
}

struct Traffic {
  unsigned int initial;
  unsigned int maximum;
  unsigned int chunkSize;
  unsigned int largest;
  std::size_t mostLive;
};

void RunAgainstModel(const Traffic& traffic, unsigned int seed) {
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  QIV_MemoryPoolEx pool(traffic.initial, traffic.maximum, -1, 0, traffic.chunkSize);
  TrackedPoolModel model(traffic.initial, traffic.maximum, traffic.chunkSize);
  std::vector<Allocation> live;
  const int operations = ScaledLoad(100000);
  for (int i = 0; i < operations; ++i) {
    const bool frees = !live.empty() && (live.size() >= traffic.mostLive || random() % 2 == 0);
    if (frees) {
      const bool isLatest = random() % 4 == 0;
      const Allocation freed = TakeOut(live, isLatest ? live.size() - 1 : random() % live.size());
      ASSERT_TRUE(IsWhole(freed)) << i;
      pool.Free(freed.pointer);
      model.Free(freed.pointer);
    } else {
      const unsigned int size = 1 + static_cast<unsigned int>(random() % traffic.largest);
      const auto fill = static_cast<unsigned char>(random());
      char* const pointer = static_cast<char*>(pool.Alloc(size));
      ASSERT_TRUE(model.Alloc(size, pointer)) << i << ": " << size;
      if (pointer != nullptr) {
        std::memset(pointer, fill, size);
        live.push_back({pointer, size, fill});
      }
    }
    ASSERT_EQ(model.Size(), pool.Size()) << i;
    ASSERT_EQ(model.IdleSize(), pool.IdleSize()) << i;
  }
  for (const Allocation& allocation : live) {
    ASSERT_TRUE(IsWhole(allocation));
    pool.Free(allocation.pointer);
    model.Free(allocation.pointer);
  }
  EXPECT_EQ(model.IdleSize(), pool.IdleSize());
  EXPECT_EQ(pool.Size(), pool.IdleSize());
}

TEST_F(MemoryPoolExRandomTest, SmallRequestsDoWhatTheModelDoes) {
  RunAgainstModel({1, 40, 256, 64, 200}, 1);
}

TEST_F(MemoryPoolExRandomTest, LargeRequestsAndExhaustionDoWhatTheModelDoes) {
  RunAgainstModel({2, 6, 128, 140, 30}, 2);
}

TEST_F(MemoryPoolExRandomTest, NewSeedDoesWhatTheModelDoes) {
  RunAgainstModel({3, 20, 512, 300, 60}, std::random_device()());
}

int UsePool(QIV_MemoryPoolEx& pool, unsigned int seed, int rounds) {
  std::mt19937 random(seed);
  std::vector<Allocation> live;
  int broken = 0;
  for (int round = 0; round < rounds; ++round) {
    if (live.size() >= 20 || (!live.empty() && random() % 2 == 0)) {
      const Allocation freed = TakeOut(live, random() % live.size());
      if (!IsWhole(freed)) ++broken;
      pool.Free(freed.pointer);
      continue;
    }
    const unsigned int size = 1 + static_cast<unsigned int>(random() % 100);
    const auto fill = static_cast<unsigned char>(seed);
    char* const pointer = static_cast<char*>(pool.Alloc(size));
    if (pointer == nullptr) continue;
    std::memset(pointer, fill, size);
    live.push_back({pointer, size, fill});
  }
  for (const Allocation& allocation : live) pool.Free(allocation.pointer);
  return broken;
}

TEST_F(MemoryPoolExRandomTest, ThreadsShareAPoolWhileItGivesChunksBack) {
  QIV_MemoryPoolEx pool(1, 30, 0, 0, 256);
  const int rounds = ScaledLoad(50000);
  std::vector<ThreadResult<int>> users;
  for (unsigned int seed = 1; seed <= 4; ++seed) {
    users.push_back(RunInThread([&pool, seed, rounds] { return UsePool(pool, seed, rounds); }));
  }
  for (ThreadResult<int>& user : users) EXPECT_EQ(0, user.Get());
  EXPECT_TRUE(Eventually([&] { return pool.Size() == pool.IdleSize() && pool.Size() <= 512; }));
}

TEST(SpareNodesTest, KeyThatIsThereGetsTheNewValue) {
  std::map<void*, int*> map;
  std::multimap<void*, int*> spares;
  int values[2] = {};
  memory::AddSpareNode(spares);
  memory::AddSpareNode(spares);
  EXPECT_TRUE(memory::EnterWithSpareNode(map, spares, values, &values[0]));
  EXPECT_FALSE(memory::EnterWithSpareNode(map, spares, values, &values[1]));
  EXPECT_EQ(&values[1], map[values]);
}

}  // namespace
}  // namespace qiv::test
