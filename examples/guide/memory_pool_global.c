// One limit for the buffers of a whole program: a request beyond it is refused, not the program.
#include <qiv/library.h>
#include <qiv/memory_pool_global.h>
#include <stdio.h>

static const unsigned int kLimit = 20u << 20;
static const unsigned int kSmall = 200;
static const unsigned int kLarge = 10u << 20;

static int PrintUse(const char* when) {
  const unsigned int size = QIV_MemoryPoolGlobal_Size();
  printf("%s: %u bytes, %u of them free\n", when, size, QIV_MemoryPoolGlobal_IdleSize());
  return size <= kLimit;
}

// Two small buffers and two of 10 MiB: the pool of the large ones has a single chunk.
static int UseBuffers(void) {
  void* const request = QIV_MemoryPoolGlobal_Alloc(kSmall);
  void* const reply = QIV_MemoryPoolGlobal_Alloc(kSmall);
  void* const image = QIV_MemoryPoolGlobal_Alloc(kLarge);
  void* const another = QIV_MemoryPoolGlobal_Alloc(kLarge);
  int isRight = PrintUse("in use  ");
  printf("first image: %s, second image: %s\n", image != NULL ? "loaded" : "refused",
         another != NULL ? "loaded" : "refused");
  isRight = isRight && request != NULL && reply != NULL && image != NULL && another == NULL;

  QIV_MemoryPoolGlobal_Free(image);
  QIV_MemoryPoolGlobal_Free(reply);
  QIV_MemoryPoolGlobal_Free(request);
  isRight = PrintUse("given up") && isRight;
  return isRight && QIV_MemoryPoolGlobal_IdleSize() == QIV_MemoryPoolGlobal_Size();
}

int main(void) {
  if (QIV_Init() != QIV_OK) return 1;
  int isRight = 0;
  if (QIV_MemoryPoolGlobal_Init(kLimit) == 1) {
    isRight = PrintUse("at start") && UseBuffers();
  }
  QIV_Fini();  // ends the allocator, too
  return isRight && QIV_MemoryPoolGlobal_Size() == 0 ? 0 : 1;
}
