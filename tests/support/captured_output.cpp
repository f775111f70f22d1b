#include "support/captured_output.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace qiv::test {

CapturedOutput::CapturedOutput(int descriptor) : m_descriptor(descriptor) {
  std::fflush(nullptr);
  std::FILE* const file = std::tmpfile();
  if (file == nullptr) throw std::runtime_error("no temporary file");
  m_file = dup(fileno(file));
  std::fclose(file);
  m_saved = dup(descriptor);
  dup2(m_file, descriptor);
}

CapturedOutput::~CapturedOutput() {
  Restore();
  if (m_file != -1) close(m_file);
}

std::string CapturedOutput::Stop() {
  Restore();
  const off_t size = lseek(m_file, 0, SEEK_END);
  std::string text(static_cast<std::size_t>(size), '\0');
  lseek(m_file, 0, SEEK_SET);
  const ssize_t got = read(m_file, &text[0], text.size());
  text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  close(m_file);
  m_file = -1;
  return text;
}

void CapturedOutput::Restore() {
  if (m_saved == -1) return;
  std::fflush(nullptr);
  dup2(m_saved, m_descriptor);
  close(m_saved);
  m_saved = -1;
}

}  // namespace qiv::test
