/* Logs to files of limited size, stops the service, and looks at what it has written. */
#define _POSIX_C_SOURCE 200809L
#include <qiv/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define LOG(level, ...) WriteLog(level, __FILE__, __LINE__, __VA_ARGS__)

enum { kJobs = 100, kFileBytes = 4096 };

/* Counts the lines of a file, or gives -1 when there is none, and deletes it. */
static int TakeFile(const char* directory, int number, const char* suffix) {
  char path[128];
  int lines = 0, character;
  FILE* file;
  snprintf(path, sizeof path, "%s/qiv_log_%d%s.log", directory, number, suffix);
  file = fopen(path, "rb");
  if (file == NULL) return -1;
  while ((character = getc(file)) != EOF) lines += character == '\n';
  printf("%s: %d lines, %s\n", strrchr(path, '/') + 1, lines,
         ftell(file) <= kFileBytes ? "within its limit" : "too large");
  fclose(file);
  unlink(path);
  return lines;
}

int main(void) {
  char directory[] = "/tmp/qiv_log_guide_XXXXXX";
  int refused = 0, lines = 0, number, found, i;
  if (mkdtemp(directory) == NULL) return 1;
  EnableTarget(LOG_TARGET_FILE, directory, kFileBytes, 0);
  for (i = 1; i <= kJobs; ++i) {
    if (LOG(LOG_INF, "job %03d is done", i) != 0) ++refused; /* -4: the ring was full */
  }
  AdjustLogLevel(LOG_ERR);
  if (LOG(LOG_INF, "not of interest any more") != -3) ++refused;
  if (LOG(LOG_ERR, "the last line") != 0) ++refused;
  StopLogService(false); /* waits until the queued lines are written */

  for (number = 1; (found = TakeFile(directory, number, "")) != -1; ++number) lines += found;
  if ((found = TakeFile(directory, number, "_w")) != -1) lines += found;
  printf("%d lines in all\n", lines);
  rmdir(directory);
  return refused == 0 && lines == kJobs + 1 ? 0 : 1;
}
