// Readers of the kernel's text files, which take a stream so that any text can be read, and how
// their figures enter the records.
#ifndef QIV_SYS_PROC_FILES_H
#define QIV_SYS_PROC_FILES_H

#include <qiv/system.h>

#include <cstddef>
#include <cstdio>

namespace qiv {

/** A file open for reading; no child process inherits it. */
class ProcFile {
 public:
  explicit ProcFile(const char* path) noexcept;
  ~ProcFile();
  ProcFile(const ProcFile&) = delete;
  ProcFile& operator=(const ProcFile&) = delete;

  /** Null when the file could not be opened. */
  std::FILE* Get() const noexcept { return m_stream; }

 private:
  std::FILE* m_stream;
};

/** Reads a stream line by line. */
class LineReader {
 public:
  explicit LineReader(std::FILE* stream) noexcept : m_stream(stream) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /** The next line with its end, valid until the next call; null at the end or without memory. */
  const char* Next() noexcept;

 private:
  std::FILE* m_stream;
  char* m_line = nullptr;
  std::size_t m_capacity = 0;
};

/**
 * Reads a decimal number at `*cursor`, blanks in front of it skipped, and moves `*cursor` behind
 * it. A number beyond 64 bits gives the largest one. False, and nothing moved, when there is none.
 */
bool ScanNumber(const char** cursor, qiv_uint64* number) noexcept;

/**
 * Reads `count` processor lines of /proc/stat, behind the line of all processors.
 *
 * @return false when the file ends before; records read so far are filled
 */
bool ReadProcessors(std::FILE* stat, unsigned int count, QIV_CPU_STAT_T* out) noexcept;

/**
 * Reads /proc/meminfo into a zeroed record.
 *
 * @return false when the file lacks the total memory, the swap space or the free swap space
 */
bool ReadMemory(std::FILE* meminfo, QIV_MEMORY_STATUS_T* out) noexcept;

struct InterfaceCounters {
  qiv_uint64 recvBytes;
  qiv_uint64 recvPackets;
  qiv_uint64 sendBytes;
  qiv_uint64 sendPackets;
};

/**
 * Reads one interface's line of /proc/net/dev.
 *
 * @return false when no line names it, or its line lacks numbers; `out` is then untouched
 */
bool ReadInterface(std::FILE* dev, const char* name, InterfaceCounters* out) noexcept;

/** Stores a speed in Mbit/s, and the bit rate that follows from it modulo the field's width. */
void PutLinkSpeed(unsigned int mbps, QIV_NETFLOW_T* out) noexcept;
void PutLinkSpeed(unsigned int mbps, QIV_NETFLOW_EX_T* out) noexcept;

/** Stores the counters; the 32-bit record takes those above 2147483647 as 2147483647. */
void PutCounters(const InterfaceCounters& counters, QIV_NETFLOW_T* out) noexcept;
void PutCounters(const InterfaceCounters& counters, QIV_NETFLOW_EX_T* out) noexcept;

}  // namespace qiv

#endif
