#include "sys/proc_files.h"

#include <cerrno>
#include <cstdlib>

namespace qiv {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

ProcFile::ProcFile(const char* path) noexcept : m_stream(std::fopen(path, "re")) {}

ProcFile::~ProcFile() {
  if (m_stream != nullptr) std::fclose(m_stream);
}

LineReader::~LineReader() { std::free(m_line); }

const char* LineReader::Next() noexcept {
  return getline(&m_line, &m_capacity, m_stream) == -1 ? nullptr : m_line;
}

bool ScanNumber(const char** cursor, qiv_uint64* number) noexcept {
  const char* at = *cursor;
  while (IsBlank(*at)) ++at;
  if (!IsDigit(*at)) return false;
  const int savedErrno = errno;
  char* end = nullptr;
  *number = std::strtoull(at, &end, 10);
  errno = savedErrno;
  *cursor = end;
  return true;
}

}  // namespace qiv
