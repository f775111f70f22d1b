// A mailbox with room for eight letters: a writer waits for room, readers wait for a letter.
#include <qiv/condition.h>
#include <qiv/mutex.h>
#include <qiv/thread.h>
#include <qiv/time.h>
#include <stdio.h>

enum { kNormal = 0 };  // the type of mutex: not recursive
enum { kNothing = -1, kLastLetter = 0, kRoom = 8, kLetters = 1000, kReaders = 2 };

static pthread_mutex_t g_mutex;  // guards the ring of letters
static pthread_cond_t g_letterCame, g_roomCame;
static int g_ring[kRoom];
static int g_first, g_count;

static void Put(int letter) {
  QIV_MutexLock(&g_mutex);
  while (g_count == kRoom) QIV_CondWait(&g_roomCame, &g_mutex);
  g_ring[(g_first + g_count) % kRoom] = letter;
  ++g_count;
  QIV_CondSignal(&g_letterCame);  // one letter, one reader
  QIV_MutexUnlock(&g_mutex);
}

// A letter, or kNothing when none came within the time.
static int Take(unsigned int ms) {
  const qiv_int64 end = QIV_GetTimeTick64() + ms;
  qiv_int64 left = ms;
  int letter = kNothing;
  QIV_MutexLock(&g_mutex);
  while (g_count == 0 && left > 0) {
    QIV_CondTimedWait(&g_letterCame, &g_mutex, (unsigned int)left);
    left = end - QIV_GetTimeTick64();
  }
  if (g_count > 0) {
    letter = g_ring[g_first];
    g_first = (g_first + 1) % kRoom;
    --g_count;
    QIV_CondSignal(&g_roomCame);
  }
  QIV_MutexUnlock(&g_mutex);
  return letter;
}

static void* AddUpLetters(void* sum) {
  int letter;
  while ((letter = Take(60000)) > kLastLetter) *(long*)sum += letter;
  return NULL;
}

int main(void) {
  unsigned int readers[kReaders];
  long sums[kReaders] = {0, 0};
  int isRight, i;
  int started = 0;
  QIV_MutexCreate(&g_mutex, kNormal);
  if (QIV_CondCreate(&g_letterCame) != 0 || QIV_CondCreate(&g_roomCame) != 0) return 1;
  isRight = Take(20) == kNothing;
  printf("nothing within 20 ms in an empty box: %s\n", isRight ? "right" : "wrong");
  for (i = 0; i < kReaders; ++i) {
    readers[started] = QIV_Thread_Create(AddUpLetters, &sums[i], 0, 0, 0, 0);
    if (readers[started] != QIV_INVALID_ID) ++started;
  }
  if (started == 0) return 1;  // nobody would ever make room
  for (i = 1; i <= kLetters; ++i) Put(i);
  for (i = 0; i < started; ++i) Put(kLastLetter);
  for (i = 0; i < started; ++i) isRight = QIV_Thread_Wait(readers[i]) == QIV_OK && isRight;
  printf("%d letters, sum %ld\n", kLetters, sums[0] + sums[1]);
  QIV_CondDestroy(&g_roomCame);
  QIV_CondDestroy(&g_letterCame);
  QIV_MutexDestroy(&g_mutex);
  return isRight && sums[0] + sums[1] == 500500 ? 0 : 1;
}
