// Fields of many lines, each in memory of its exact size: one chunk serves them all.
#include <qiv/memory_pool_ex.h>
#include <stdio.h>
#include <string.h>

enum { kMostFields = 8, kLines = 1000, kChunkSize = 1024 };

static const long long kNeverGiveBack = -1;
static const int kOneThread = 1;

// A copy of `length` characters with a NUL. Texts need no alignment, and the pool gives none.
static char* CopyOf(QIV_HANDLE pool, const char* text, size_t length) {
  char* const copy = QIV_MemoryPoolEx_Alloc(pool, (unsigned int)length + 1);
  if (copy == NULL) return NULL;
  memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

// The number of fields, which commas part; -1 when there are too many or memory is short.
static int Split(QIV_HANDLE pool, const char* line, char** fields) {
  int count = 0;
  for (;;) {
    const size_t length = strcspn(line, ",");
    if (count == kMostFields) return -1;
    fields[count] = CopyOf(pool, line, length);
    if (fields[count++] == NULL) return -1;
    if (line[length] == '\0') return count;
    line += length + 1;
  }
}

int main(void) {
  QIV_HANDLE pool = QIV_MemoryPoolEx_Create(1, 4, kNeverGiveBack, kOneThread, kChunkSize);
  if (pool == NULL) return 1;
  unsigned int fieldsRead = 0;
  int isRight = 1;
  for (unsigned int i = 0; i < kLines && isRight; ++i) {
    char line[64];
    char* fields[kMostFields];
    snprintf(line, sizeof line, "order %u,bolts,200,3", i);
    const int count = Split(pool, line, fields);
    isRight = count == 4 && strcmp(fields[1], "bolts") == 0 && strcmp(fields[3], "3") == 0;
    // With the last one the whole chunk is free again.
    for (int k = 0; k < count; ++k) QIV_MemoryPoolEx_Free(pool, fields[k]);
    fieldsRead += count > 0 ? (unsigned int)count : 0;
  }
  printf("%u fields of %d lines, in %u bytes of which %u are free\n", fieldsRead, kLines,
         QIV_MemoryPoolEx_Size(pool), QIV_MemoryPoolEx_IdleSize(pool));
  isRight = isRight && QIV_MemoryPoolEx_Size(pool) == kChunkSize &&
            QIV_MemoryPoolEx_IdleSize(pool) == kChunkSize;
  QIV_MemoryPoolEx_Destroy(pool);
  return isRight ? 0 : 1;
}
