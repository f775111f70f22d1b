#include "sys/exe_path.h"

#include <qiv/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>

#include "sys/file_fixture.h"

namespace {

class ExePathTest : public qiv::test::FileFixture {
 protected:
  std::string MakeLink(std::size_t length) const {
    std::string target;
    while (target.size() < length) target += static_cast<char>('a' + target.size() % 26);
    EXPECT_EQ(0, symlink(target.c_str(), In("link").c_str()));
    return target;
  }
};

TEST_F(ExePathTest, PathOfTheProgramIsCopiedWithoutANul) {
  const std::string expected = std::filesystem::read_symlink("/proc/self/exe").string();
  ASSERT_LE(expected.size(), 260u);
  char buffer[300];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(0, QIV_GetCurExePath(buffer, sizeof buffer));
  EXPECT_EQ(expected + "x", std::string(buffer, expected.size() + 1)) << "kept: no NUL";
}

TEST_F(ExePathTest, NullBufferIsEinval) {
  errno = 0;
  EXPECT_EQ(-1, QIV_GetCurExePath(nullptr, 300));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(ExePathTest, PathThatDoesNotFitIsEnomem) {
  for (const int size : {4, 1, 0, -1, INT_MIN}) {
    char buffer[8] = "kept";
    errno = 0;
    EXPECT_EQ(-1, QIV_GetCurExePath(buffer, size)) << size;
    EXPECT_EQ(ENOMEM, errno) << size;
    EXPECT_STREQ("kept", buffer) << size;
  }
}

TEST_F(ExePathTest, TextMayFillTheBuffer) {
  const std::string target = MakeLink(20);
  char buffer[32] = {};
  EXPECT_EQ(-1, qiv::CopyLinkText(In("link").c_str(), buffer, 19));
  EXPECT_STREQ("", buffer);
  EXPECT_EQ(0, qiv::CopyLinkText(In("link").c_str(), buffer, 20));
  EXPECT_EQ(target, buffer);
}

TEST_F(ExePathTest, LongTextIsKeptCutAfter260Bytes) {
  const std::string target = MakeLink(400);
  char buffer[500];
  std::memset(buffer, 0, sizeof buffer);
  EXPECT_EQ(0, qiv::CopyLinkText(In("link").c_str(), buffer, 260));
  EXPECT_EQ(target.substr(0, 260), buffer);
  std::memset(buffer, 0, sizeof buffer);
  EXPECT_EQ(0, qiv::CopyLinkText(In("link").c_str(), buffer, sizeof buffer));
  EXPECT_EQ(target.substr(0, 260), buffer);
  EXPECT_EQ(-1, qiv::CopyLinkText(In("link").c_str(), buffer, 259));
}

TEST_F(ExePathTest, LinkThatCannotBeReadIsEnomem) {
  char buffer[32] = "kept";
  errno = 0;
  EXPECT_EQ(-1, qiv::CopyLinkText(In("missing").c_str(), buffer, sizeof buffer));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_STREQ("kept", buffer);
}

}  // namespace
