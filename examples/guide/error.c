// A function that fails for several reasons: -1 as the result, the reason in the last error.
#include <qiv/error.h>
#include <qiv/library.h>
#include <qiv/thread.h>
#include <stdio.h>
#include <stdlib.h>

// The program's own codes; 0 stays "no error".
enum { kNoFile = 1, kNotANumber = 2 };

static const char kMissingFile[] = "/no/such/folder/limit.txt";

// Reads a limit from a file. -1 on a failure; QIV_GetLastError() tells which.
static int ReadLimit(const char* path) {
  char line[32] = "";
  char* end = line;
  long limit = 0;
  FILE* const file = fopen(path, "r");
  if (file == NULL) {
    const int reason = QIV_GetSystemLastError();  // before anything else changes it
    printf("%s: %s\n", path, QIV_GetSystemErrorString(reason));
    QIV_SetLastError(kNoFile);
    return -1;
  }
  if (fgets(line, sizeof(line), file) != NULL) limit = strtol(line, &end, 10);
  fclose(file);
  if (end == line || limit < 0 || limit > 1000) {
    QIV_SetLastError(kNotANumber);
    return -1;
  }
  return (int)limit;
}

// Another thread has a last error of its own.
static void* Look(void* found) {
  *(unsigned int*)found = QIV_GetLastError();
  return NULL;
}

int main(void) {
  unsigned int mine = 0;
  unsigned int others = 99;
  unsigned int thread = QIV_INVALID_ID;
  if (QIV_Init() != QIV_OK) return 1;

  // Cleared first: a success leaves the last error as it is.
  QIV_SetLastError(0);
  if (ReadLimit(kMissingFile) == -1) mine = QIV_GetLastError();
  thread = QIV_Thread_Create(Look, &others, 0, 0, 0, 0);
  if (thread == QIV_INVALID_ID || QIV_Thread_Wait(thread) != QIV_OK) return 1;
  printf("last error: %u here, %u in another thread\n", mine, others);

  QIV_SetLastError(0);
  if (ReadLimit("/dev/null") == -1) mine = mine * 10 + QIV_GetLastError();
  printf("last error: %u here\n", QIV_GetLastError());
  QIV_Fini();
  return mine == kNoFile * 10 + kNotANumber && others == 0 ? 0 : 1;
}
