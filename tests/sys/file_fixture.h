// Tests that work on files: a directory of their own, and modes that no umask changes.
#ifndef QIV_TESTS_SYS_FILE_FIXTURE_H
#define QIV_TESTS_SYS_FILE_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/file.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "support/leak_check.h"
#include "support/temporary_directory.h"

namespace qiv::test {

class FileFixture : public LeakCheckedTest {
 protected:
  FileFixture() : m_savedMask(umask(0)) {}
  ~FileFixture() override { umask(m_savedMask); }

  std::string In(const std::string& name) const { return m_directory / name; }
  const std::string& DirectoryPath() const { return m_directory.Path(); }

  /** A file with this content; its path. */
  std::string MakeFile(const std::string& name, const std::string& text) const {
    WriteTextFile(In(name), text);
    return In(name);
  }

  /** Type and permissions; 0 when there is nothing of this name. */
  static mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
  }

  static bool Exists(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
  }

 private:
  TemporaryDirectory m_directory;
  mode_t m_savedMask;
};

}  // namespace qiv::test

#endif
