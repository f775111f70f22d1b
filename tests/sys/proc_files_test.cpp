#include "sys/proc_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/leak_check.h"
#include "support/text_stream.h"

namespace {

using qiv::test::TextStream;

class ProcFilesTest : public qiv::test::LeakCheckedTest {};

TEST_F(ProcFilesTest, FileIsClosedByExecAndAtTheEndOfTheScope) {
  const qiv::ProcFile file("/proc/stat");
  ASSERT_NE(nullptr, file.Get());
  EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(file.Get()), F_GETFD) & FD_CLOEXEC);
}

TEST_F(ProcFilesTest, FileThatCannotBeOpenedIsNull) {
  EXPECT_EQ(nullptr, qiv::ProcFile("/proc/no-such-file").Get());
}

TEST_F(ProcFilesTest, LinesAreReadOfAnyLengthAndWithoutAnEnd) {
  const std::string longLine(100000, 'x');
  const TextStream stream("a\n\n" + longLine + "\nlast");
  ASSERT_NE(nullptr, stream.Get());
  qiv::LineReader lines(stream.Get());
  for (const std::string& expected : {std::string("a\n"), std::string("\n"), longLine + "\n"}) {
    EXPECT_EQ(expected, lines.Next());
  }
  EXPECT_STREQ("last", lines.Next());
  EXPECT_EQ(nullptr, lines.Next());
  EXPECT_EQ(nullptr, lines.Next());
}

}  // namespace
