// Functions that are no cancellation points, on a thread that is to be cancelled.
#include <pthread.h>
#include <qiv/file.h>

#include <string>

#include "support/run_in_thread.h"
#include "sys/file_fixture.h"

namespace {

using qiv::test::RunInThread;

class FileCancellationTest : public qiv::test::FileFixture {};

/** Runs `call` on a thread that is to be cancelled; its result. */
template <class Call>
int ResultWhenCancelled(Call call) {
  return RunInThread([&] {
           int ignored = 0;
           pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
           pthread_cancel(pthread_self());
           pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
           const int result = call();
           pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
           return result;
         })
      .Get();
}

TEST_F(FileCancellationTest, CancelledThreadCopiesAndGoesOn) {
  const std::string source = MakeFile("source", "text");
  const std::string target = In("target");
  EXPECT_EQ(0,
            ResultWhenCancelled([&] { return QIV_CopyFile(source.c_str(), target.c_str(), 0); }));
  EXPECT_EQ("text", qiv::test::ReadTextFile(target));
}

TEST_F(FileCancellationTest, CancelledThreadListsADirectoryAndGoesOn) {
  const std::string& path = DirectoryPath();
  QIV_HANDLE directory = nullptr;
  _FILE_FIND_INFO info = {};
  EXPECT_EQ(1, ResultWhenCancelled([&] {
              directory = QIV_OpenDir(path.c_str());
              return directory != nullptr ? 1 : 0;
            }));
  EXPECT_EQ(0, ResultWhenCancelled([&] { return QIV_FindFileInDir(directory, &info); }));
  EXPECT_EQ(256u, info.dwType);
  EXPECT_EQ(0, ResultWhenCancelled([&] { return QIV_CloseDir(directory); }));
}

TEST_F(FileCancellationTest, CancelledThreadLearnsThePathOfTheProgramAndGoesOn) {
  char path[261] = "";
  EXPECT_EQ(0, ResultWhenCancelled([&] { return QIV_GetCurExePath(path, sizeof path); }));
  EXPECT_EQ('/', path[0]);
}

}  // namespace
