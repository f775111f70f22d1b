/* Replaces a settings file as a whole: readers see the old content or the new, never a part. */
#define _POSIX_C_SOURCE 200809L
#include <qiv/file.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int WriteAll(int file, const char* data, unsigned int length) {
  while (length > 0) {
    int written; /* may be less than asked */
    if (QIV_WriteFile(file, data, length, &written) != QIV_OK) return QIV_ERROR;
    data += written;
    length -= (unsigned int)written;
  }
  return QIV_OK;
}

/* Writes the new content beside the file, waits for the disk, and gives it the file's name. */
static int Save(const char* path, const char* text) {
  char beside[128];
  int result;
  int file;
  const int length = snprintf(beside, sizeof beside, "%s.new", path);
  if (length < 0 || (size_t)length >= sizeof beside) return QIV_ERROR;
  file = QIV_OpenFile(beside, QIV_OPEN_WRITE | QIV_OPEN_CREATE | QIV_OPEN_TRUNCATE,
                      QIV_PERM_OWNER_WRITE | QIV_PERM_GROUP_READ); /* 0640; the owner may read */
  if (file == -1) return QIV_ERROR;
  result = WriteAll(file, text, (unsigned int)strlen(text));
  if (result == QIV_OK) result = fsync(file); /* the system's calls have results: check both */
  if (close(file) != 0) result = QIV_ERROR;
  if (result == QIV_OK) result = QIV_RenameFile(beside, path);
  if (result != QIV_OK) QIV_DeleteFile(beside);
  return result;
}

static int Load(const char* path, char* text, unsigned int size) {
  int count = -1;
  const int file = QIV_OpenFile(path, QIV_OPEN_READ, 0);
  if (QIV_ReadFile(file, text, size - 1, &count) == QIV_OK) text[count] = '\0';
  QIV_CloseFile(file);
  return count;
}

static int List(const char* path) {
  QIV_FILE_FIND_INFO entry;
  int files = 0;
  const QIV_HANDLE directory = QIV_OpenDir(path);
  while (QIV_FindFileInDir(directory, &entry) == QIV_OK) {
    if (entry.dwType != QIV_FILE_TYPE_REGULAR) continue; /* "." and ".." are entries too */
    printf("%s: %lld bytes, permissions 0x%x\n", entry.szName, entry.llSize, entry.dwPermissions);
    ++files;
  }
  QIV_CloseDir(directory);
  return files;
}

int main(void) {
  char directory[] = "/tmp/qiv_file_guide_XXXXXX";
  char path[64];
  char text[64] = "";
  int isRight;
  if (mkdtemp(directory) == NULL) return 1;
  snprintf(path, sizeof path, "%s/settings.txt", directory);
  isRight = Save(path, "colour=red\n") == QIV_OK && Save(path, "colour=blue\n") == QIV_OK;
  isRight = Load(path, text, sizeof text) == 12 && isRight;
  printf("%s", text);
  isRight = List(directory) == 1 && strcmp(text, "colour=blue\n") == 0 && isRight;
  isRight = QIV_DeleteFile(path) == QIV_OK && QIV_RemoveDir(directory) == QIV_OK && isRight;
  return isRight ? 0 : 1;
}
