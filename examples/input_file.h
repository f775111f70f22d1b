// A file that is read at any place by several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace echo {

class InputFile {
 public:
  // Throws std::system_error when the file cannot be opened, std::runtime_error when it is not a
  // regular file.
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  std::uint64_t Size() const { return m_size; }

  // Fills `out`; false when the file does not hold that many bytes any more or cannot be read.
  bool Read(std::uint64_t offset, char* out, std::size_t length) const noexcept;

 private:
  int m_descriptor;
  std::uint64_t m_size = 0;
};

}  // namespace echo
