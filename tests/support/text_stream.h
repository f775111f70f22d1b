// A stream that reads a given text.
#ifndef QIV_TESTS_SUPPORT_TEXT_STREAM_H
#define QIV_TESTS_SUPPORT_TEXT_STREAM_H

#include <cstdio>
#include <string>

namespace qiv::test {

/** The text stands in a temporary file: not every fmemopen() takes an empty one. */
class TextStream {
 public:
  explicit TextStream(const std::string& text) : m_stream(std::tmpfile()) {
    if (m_stream == nullptr) return;
    std::fwrite(text.data(), 1, text.size(), m_stream);
    std::rewind(m_stream);
  }
  ~TextStream() {
    if (m_stream != nullptr) std::fclose(m_stream);
  }
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;

  /** Null when the system has no room for temporary files. */
  std::FILE* Get() const { return m_stream; }

 private:
  std::FILE* m_stream;
};

}  // namespace qiv::test

#endif
