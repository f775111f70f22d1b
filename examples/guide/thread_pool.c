// Checksums on a pool: what no worker is free to take, the submitter does itself.
#include <qiv/qiv.h>
#include <stdio.h>
#include <string.h>

enum { kItems = 64, kBytes = 4096 };
enum { kWorkers = 2, kMaxWorkers = 4 };

typedef struct {
  unsigned char bytes[kBytes];
  unsigned int sum;
} Block;

static Block g_blocks[kItems];

static void* AddUp(void* argument) {
  Block* const block = argument;
  int i;
  block->sum = 0;
  for (i = 0; i < kBytes; ++i) block->sum += block->bytes[i];
  return NULL;  // dropped
}

static int AddUpAll(void) {
  QIV_HANDLE pool = QIV_ThreadPool_Create(kWorkers, kMaxWorkers);
  int isTaken = 1;
  int i;
  if (pool == NULL) return 0;
  for (i = 0; i < kItems / 2; ++i) {
    // No queue: refused while all workers are busy, so the submitter slows down to their pace.
    if (QIV_ThreadPool_Work(pool, AddUp, &g_blocks[i]) != QIV_OK) AddUp(&g_blocks[i]);
  }
  for (; i < kItems; ++i) {
    const int wait = 1;  // or else: wait for a worker
    isTaken = QIV_ThreadPool_WorkEx(pool, AddUp, &g_blocks[i], wait) == QIV_OK && isTaken;
  }
  // Every item that was taken is done when this returns.
  return QIV_ThreadPool_Destroy(pool) == QIV_OK && isTaken;
}

int main(void) {
  unsigned int total = 0;
  int isRight;
  int i;
  for (i = 0; i < kItems; ++i) memset(g_blocks[i].bytes, i, kBytes);
  if (QIV_Init() != QIV_OK) return 1;
  isRight = AddUpAll();
  QIV_Fini();
  for (i = 0; i < kItems; ++i) {
    if (g_blocks[i].sum != (unsigned int)i * kBytes) isRight = 0;
    total += g_blocks[i].sum;
  }
  printf("%d blocks, sum %u\n", kItems, total);
  return isRight ? 0 : 1;
}
