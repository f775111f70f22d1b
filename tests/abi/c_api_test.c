/* A C99 program that links nothing but the library and calls something of every family. */
#include <qiv/error.h>
#include <qiv/library.h>
#include <qiv/mutex.h>
#include <stdio.h>
#include <string.h>

static int g_failures = 0;

#define CHECK(condition)                                                        \
  do {                                                                          \
    if (!(condition)) {                                                         \
      fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      ++g_failures;                                                             \
    }                                                                           \
  } while (0)

static void UseLibrary(void) {
  CHECK(QIV_GetQIVVersion() == 0x0101000Cu);
  CHECK(strncmp(pVersion, "version: ", 9) == 0);
  CHECK(QIV_GetAf_Inner(QIV_AF_PREFERRED) == g_Af);
}

static void UseLastError(void) {
  CHECK(QIV_SetLastError(0xFFFFFFFFu) == QIV_OK);
  CHECK(QIV_GetLastError() == 0xFFFFFFFFu);
  CHECK(QIV_GetSystemErrorString(0) != NULL);
}

static void UseMutex(void) {
  pthread_mutex_t mutex;
  CHECK(QIV_MutexCreate(&mutex, -1) == QIV_OK);
  CHECK(QIV_MutexLock(&mutex) == QIV_OK);
  CHECK(QIV_MutexTryLock(&mutex) == QIV_OK);
  CHECK(QIV_MutexUnlock(&mutex) == QIV_OK);
  CHECK(QIV_MutexUnlock(&mutex) == QIV_OK);
  CHECK(QIV_MutexDestroy(&mutex) == QIV_OK);
}

int main(void) {
  CHECK(QIV_Init() == QIV_OK);
  UseLibrary();
  UseLastError();
  UseMutex();
  CHECK(QIV_Fini() == 0);
  return g_failures == 0 ? 0 : 1;
}
