// The file target of the log service: files of limited size, with numbers.
//
// The members about files are guarded by fileMutex, which is held while a file is written. Nothing
// else is locked under it.
#include <fcntl.h>
#include <qiv/debug.h>
#include <qiv/file.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "log/log_service.h"

using namespace qiv::log;

namespace {

constexpr unsigned int kDefaultFileBytes = 2097152;
constexpr std::size_t kLongestDirectory = 256;
constexpr char kDefaultDirectory[] = "./qivlog/";
constexpr unsigned int kCycle = 100;

constexpr int kWriteCreateTruncate = 22;
constexpr int kOwnerReadWrite = 8192;

constexpr char kWorkingSuffix[] = "_w";
constexpr char kFinalSuffix[] = "";

/** The path of a log file; longer than any directory that is taken. */
class FileName {
 public:
  FileName(const char* directory, unsigned int index, const char* suffix) noexcept {
    std::snprintf(m_text, sizeof m_text, "%s%s%d%s%s", directory, "qiv_log_",
                  static_cast<int>(index + 1), suffix, ".log");
  }
  const char* Text() const noexcept { return m_text; }

 private:
  char m_text[320];
};

/** The position is left at the end of the file, where the next text goes; -1 when there is none. */
long long SeekEnd(int file) {
  qiv_int64 end = -1;
  QIV_FileSeek(file, 0, SEEK_END, &end);
  return end;
}

// What the system does not take is lost: nobody waits for the result, and a disk that is full may
// have room again for the next batch.
void Write(int file, const char* text, unsigned int length) {
  while (length > 0) {
    int written = 0;
    if (QIV_WriteFile(file, text, length, &written) != 0 || written <= 0) return;
    text += written;
    length -= static_cast<unsigned int>(written);
  }
}

/** Takes the directory as the caller wrote it; `to` has room for the longest one. */
void CopyDirectory(char* to, const char* directory) {
  std::size_t length = std::strlen(directory);
  for (std::size_t at = 0; at < length; ++at) to[at] = directory[at] == '\\' ? '/' : directory[at];
  if (length == 0 || to[length - 1] != '/') to[length++] = '/';
  to[length] = '\0';
}

}  // namespace

int LogService::SwitchFileService(bool on, const char* dir, unsigned int maxSize,
                                  bool cyclic) noexcept {
  const qiv::base::NoCancellation noCancellation;
  const qiv::base::ScopedLock lock(fileMutex);
  const int result = on ? StartWriteFile(dir, maxSize) : StopWriteFile();
  bCyclic = on ? cyclic : true;
  return result;
}

int LogService::StartWriteFile(const char* dir, unsigned int maxSize) noexcept {
  const qiv::base::NoCancellation noCancellation;
  const qiv::base::ScopedLock lock(fileMutex);
  if (dir != nullptr && std::strlen(dir) > kLongestDirectory) return kBadArgument;
  CopyDirectory(szLogDir, dir != nullptr ? dir : kDefaultDirectory);
  nMaxFileSize = maxSize != 0 ? maxSize : kDefaultFileBytes;
  QIV_MakeDir(szLogDir);
  bFileOut.store(true, std::memory_order_relaxed);
  return kSuccess;
}

int LogService::StopWriteFile() noexcept {
  const qiv::base::NoCancellation noCancellation;
  const qiv::base::ScopedLock lock(fileMutex);
  if (!bFileOut.load(std::memory_order_relaxed)) return kSuccess;
  bFileOut.store(false, std::memory_order_relaxed);
  CloseFile();
  szLogDir[0] = '\0';
  nMaxFileSize = 0;
  return kSuccess;
}

int LogService::InputDataToFile(const char* text, unsigned int length) noexcept {
  const qiv::base::NoCancellation noCancellation;
  const qiv::base::ScopedLock lock(fileMutex);
  if (!bFileOut.load(std::memory_order_relaxed)) return kSuccess;
  if (text == nullptr) return kBadArgument;
  if (!MakeRoom(SeekEnd(hLogFile), length)) return kNoFile;
  Write(hLogFile, text, length);
  return kSuccess;
}

// Lines that follow each other into one file are moved together, over the NUL between them, and
// written at once: the memory of a batch belongs to the writer.
void LogService::AppendToFiles(const _LOG* lines, unsigned int count) noexcept {
  const qiv::base::ScopedLock lock(fileMutex);
  if (!bFileOut.load(std::memory_order_relaxed)) return;
  long long end = SeekEnd(hLogFile);
  char* run = nullptr;
  unsigned int runLength = 0;
  for (unsigned int at = 0; at < count; ++at) {
    const unsigned int length = lines[at].length - 1;
    if (hLogFile == -1 || IsFull(end, length)) {
      Write(hLogFile, run, runLength);
      runLength = 0;
      // The file may be shorter than reckoned: a full disk has not taken everything.
      if (!MakeRoom(SeekEnd(hLogFile), length)) continue;
      end = SeekEnd(hLogFile);
    }
    if (runLength == 0) run = lines[at].text;
    std::memmove(run + runLength, lines[at].text, length);
    runLength += length;
    end += length;
  }
  Write(hLogFile, run, runLength);
}

bool LogService::IsFull(long long end, unsigned int length) const noexcept {
  return hLogFile != -1 && static_cast<long long>(nMaxFileSize) < end + length;
}

/** Opens the file that takes a text of this length; false when there is none. */
bool LogService::MakeRoom(long long end, unsigned int length) noexcept {
  if (IsFull(end, length) && !FinishFile()) return false;
  return hLogFile != -1 || OpenFile();
}

bool LogService::FinishFile() noexcept {
  CloseFile();
  const FileName working(szLogDir, nFileIndex, kWorkingSuffix);
  const FileName finished(szLogDir, nFileIndex, kFinalSuffix);
  if (QIV_RenameFile(working.Text(), finished.Text()) != 0) return false;
  nFileIndex = bCyclic ? (nFileIndex + 1) % kCycle : nFileIndex + 1;
  return true;
}

bool LogService::OpenFile() noexcept {
  QIV_DeleteFile(FileName(szLogDir, nFileIndex, kFinalSuffix).Text());
  const FileName name(szLogDir, nFileIndex, kWorkingSuffix);
  hLogFile = QIV_OpenFile(name.Text(), kWriteCreateTruncate, kOwnerReadWrite);
  if (hLogFile == -1) {
    QIV_OutputDebug("LogService OpenFile[%s] failed", name.Text());
    return false;
  }
  fcntl(hLogFile, F_SETFD, FD_CLOEXEC);
  return true;
}

void LogService::CloseFile() noexcept {
  // Forgotten first: a child made by fork() in between must not close it once more.
  QIV_CloseFile(std::exchange(hLogFile, -1));
}
