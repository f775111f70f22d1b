// Lists a directory with the type, permissions, size and time of each entry, and copies its regular
// files into another directory when one is given.
//
// usage: directory_copy DIRECTORY [TARGET]
//
// TARGET is created when it is missing; files that it holds already are left alone. Ends with 1
// when TARGET could not be created or a file not copied. Empty files are not: QIV_CopyFile()
// refuses them.
#include <qiv/file.h>
#include <qiv/library.h>
#include <qiv/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* TypeName(const QIV_FILE_FIND_INFO& info) {
  switch (info.dwType) {
    case QIV_FILE_TYPE_REGULAR:
      return "file";
    case QIV_FILE_TYPE_DIRECTORY:
      return "directory";
    case QIV_FILE_TYPE_PIPE:
      return "pipe";
    case QIV_FILE_TYPE_SOCKET:
      return "socket";
    case QIV_FILE_TYPE_CHARACTER_DEVICE:
    case QIV_FILE_TYPE_BLOCK_DEVICE:
      return "device";
    case 0:
      return "unknown";  // a symbolic link that leads nowhere, for example
    default:
      return "other";
  }
}

/** In UTC, to the second. */
std::string TimeText(QIV_TIME_T time) {
  QIV_TIME_EXP_T parts;
  char text[32] = "";
  size_t length = 0;
  if (QIV_ExpTimeFromTimeGMT(time, &parts) != QIV_OK) return "?";
  QIV_StrFmtTime(text, &length, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return std::string(text, length);
}

bool ReadEntries(const char* path, std::vector<QIV_FILE_FIND_INFO>* entries) {
  QIV_HANDLE directory = QIV_OpenDir(path);
  if (directory == nullptr) return false;
  QIV_FILE_FIND_INFO info;
  while (QIV_FindFileInDir(directory, &info) == QIV_OK) entries->push_back(info);
  QIV_CloseDir(directory);
  std::sort(entries->begin(), entries->end(),
            [](const QIV_FILE_FIND_INFO& a, const QIV_FILE_FIND_INFO& b) {
              return std::strcmp(a.szName, b.szName) < 0;
            });
  return true;
}

void Print(const QIV_FILE_FIND_INFO& info) {
  std::printf("%-9s %04x %12lld  %s  %s\n", TypeName(info), info.dwPermissions, info.llSize,
              TimeText(info.llModifyTime).c_str(), info.szName);
}

/** False when there is no such directory afterwards. */
bool MakeTarget(const std::string& path) {
  if (QIV_MakeDir(path.c_str()) == QIV_OK) return true;
  if (QIV_AccessFile((path + "/.").c_str(), F_OK) == 0) return true;  // it was there already
  std::fprintf(stderr, "directory_copy: cannot make the directory '%s'\n", path.c_str());
  return false;
}

/** False when a file that should be in the target is not. */
bool CopyInto(const std::string& source, const std::string& target,
              const QIV_FILE_FIND_INFO& info) {
  if (info.dwType != QIV_FILE_TYPE_REGULAR || info.llSize == 0) return true;
  const std::string from = source + "/" + info.szName;
  const std::string to = target + "/" + info.szName;
  if (QIV_AccessFile(to.c_str(), F_OK) == 0) return true;
  if (QIV_CopyFile(from.c_str(), to.c_str(), 1) == QIV_OK) return true;
  std::fprintf(stderr, "directory_copy: cannot copy '%s'\n", from.c_str());
  return false;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2 && argumentCount != 3) {
    std::fprintf(stderr, "usage: directory_copy DIRECTORY [TARGET]\n");
    return 2;
  }
  if (QIV_Init() != QIV_OK) return 1;
  std::vector<QIV_FILE_FIND_INFO> entries;
  bool all = ReadEntries(arguments[1], &entries);
  if (!all) std::fprintf(stderr, "directory_copy: cannot read '%s'\n", arguments[1]);
  const bool isCopying = argumentCount == 3 && MakeTarget(arguments[2]);
  if (argumentCount == 3 && !isCopying) all = false;
  for (const QIV_FILE_FIND_INFO& info : entries) {
    Print(info);
    if (isCopying) all = CopyInto(arguments[1], arguments[2], info) && all;
  }
  QIV_Fini();
  return all && std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
