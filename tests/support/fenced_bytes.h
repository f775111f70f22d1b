// Bytes directly in front of memory that may not be touched: a read or write behind them ends the
// program, in every build.
#ifndef QIV_TESTS_SUPPORT_FENCED_BYTES_H
#define QIV_TESTS_SUPPORT_FENCED_BYTES_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace qiv::test {

class FencedBytes {
 public:
  explicit FencedBytes(const std::string& bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t room = (bytes.size() + page - 1) / page * page;
    m_size = room + page;
    m_memory = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m_memory == MAP_FAILED) throw std::runtime_error("no memory to map");
    char* const fence = static_cast<char*>(m_memory) + room;
    if (mprotect(fence, page, PROT_NONE) != 0) {
      munmap(m_memory, m_size);
      throw std::runtime_error("no fence behind the bytes");
    }
    m_data = fence - bytes.size();
    bytes.copy(m_data, bytes.size());
  }
  ~FencedBytes() { munmap(m_memory, m_size); }
  FencedBytes(const FencedBytes&) = delete;
  FencedBytes& operator=(const FencedBytes&) = delete;

  [[nodiscard]] const char* data() const { return m_data; }

 private:
  std::size_t m_size = 0;
  void* m_memory = nullptr;
  char* m_data = nullptr;
};

}  // namespace qiv::test

#endif
