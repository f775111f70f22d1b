// A directory of its own for a test, removed with all that is in it.
#ifndef QIV_TESTS_SUPPORT_TEMPORARY_DIRECTORY_H
#define QIV_TESTS_SUPPORT_TEMPORARY_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace qiv::test {

class TemporaryDirectory {
 public:
  TemporaryDirectory() : m_path((std::filesystem::temp_directory_path() / "qiv-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("no temporary directory");
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /** Without "/" at its end. */
  const std::string& Path() const { return m_path; }

  /** The path of an entry. */
  std::string operator/(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

inline void WriteTextFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/** Empty when there is no such file. */
inline std::string ReadTextFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace qiv::test

#endif
