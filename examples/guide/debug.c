/* Sends the diagnostics of a program, and those of the library, to a file for some time. */
#define _XOPEN_SOURCE 700
#include <errno.h>
#include <fcntl.h>
#include <qiv/debug.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* A failure path: errno is the caller's to look at, and the message leaves it alone. */
static int OpenSettings(const char* path) {
  const int file = open(path, O_RDONLY);
  if (file == -1) QIV_OutputDebug("cannot open %s: %s", path, strerror(errno));
  return file;
}

/* Makes standard error lead to another file; gives what it led to before. */
static int Redirect(int file) {
  const int before = dup(STDERR_FILENO);
  return before != -1 && dup2(file, STDERR_FILENO) != -1 ? before : -1;
}

int main(void) {
  char path[] = "/tmp/qiv_debug_guide_XXXXXX";
  char text[256] = "";
  int before, error;
  ssize_t length;
  const int file = mkstemp(path);
  if (file == -1) return 1;
  unlink(path); /* it lives as long as the descriptor */
  before = Redirect(file);
  if (before == -1) return 1;

  QIV_OutputDebug("reading the settings, attempt %d", 1);
  if (OpenSettings("/nowhere/settings.txt") != -1) return 1;
  error = errno;
  QIV_OutputDebugString("going on without settings\n"); /* adds no line feed */

  dup2(before, STDERR_FILENO);
  close(before);
  length = pread(file, text, sizeof text - 1, 0);
  close(file);
  if (length <= 0) return 1;
  printf("%s", text);
  printf("errno is still ENOENT: %s\n", error == ENOENT ? "yes" : "no");
  return error == ENOENT && strstr(text, "settings.txt: No such file") != NULL ? 0 : 1;
}
