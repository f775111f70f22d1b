// Finds memory that a program forgets to give back: the pool that lends it tells what is missing
// when it ends.
//
// Orders are read into records of a pool. One path, that of an order that cannot be read, leaves
// without returning its record. The pool's report names the size of the lost block, the thread that
// borrowed it and the time; the pool checks too, whenever a record comes back, that nobody has
// written beyond its ends.
#include <qiv/memory_pool.h>

#include <cstdio>

namespace {

struct Order {
  char article[32];
  unsigned int count;
  unsigned int pricePerPiece;
};

/** The price of an order, or 0 for one that cannot be read. */
unsigned int PriceOf(QIV_HANDLE pool, const char* line) {
  auto* const order = static_cast<Order*>(QIV_MemoryPool_Alloc(pool));
  if (order == nullptr) return 0;
  const int fields =
      std::sscanf(line, "%31s %u %u", order->article, &order->count, &order->pricePerPiece);
  if (fields != 3) return 0;  // the bug: the record is not returned
  const unsigned int price = order->count * order->pricePerPiece;
  QIV_MemoryPool_Free(pool, order);
  return price;
}

}  // namespace

int main() {
  constexpr unsigned int kInitialRecords = 2;
  constexpr unsigned int kMostRecords = 16;
  constexpr int kCheckBoundary = 1;
  constexpr long long kNeverGiveBack = -1;
  constexpr int kOneThread = 1;
  QIV_HANDLE pool = QIV_MemoryPool_Create(sizeof(Order), kInitialRecords, kMostRecords,
                                          kCheckBoundary, kNeverGiveBack, kOneThread);
  if (pool == nullptr) {
    std::fprintf(stderr, "leak_hunt: no memory\n");
    return 1;
  }
  unsigned int total = 0;
  for (const char* line : {"bolts 200 3", "nuts 180 2", "washers many 1", "screws 40 5"}) {
    const unsigned int price = PriceOf(pool, line);
    std::printf("%s: %u\n", line, price);
    total += price;
  }
  std::printf("total: %u\n", total);
  std::printf("still lent: %u bytes\n", QIV_MemoryPool_Size(pool) - QIV_MemoryPool_IdleSize(pool));
  QIV_MemoryPool_Destroy(pool);  // reports the record that "washers many 1" has lost
  return 0;
}
