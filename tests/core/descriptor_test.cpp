#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>

#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::base::Descriptor;

class DescriptorTest : public qiv::test::LeakCheckedTest {};

int OpenNumber() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool IsClosed(int number) { return fcntl(number, F_GETFD) == -1 && errno == EBADF; }

TEST_F(DescriptorTest, IsClosedAtTheEndOfItsScope) {
  const int number = OpenNumber();
  {
    const Descriptor descriptor(number);
    EXPECT_TRUE(descriptor.IsOpen());
    EXPECT_FALSE(IsClosed(number));
  }
  EXPECT_TRUE(IsClosed(number));
}

TEST_F(DescriptorTest, IsClosedOnceOnly) {
  Descriptor descriptor(OpenNumber());
  const int number = descriptor.Get();
  EXPECT_TRUE(descriptor.Close());
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_TRUE(IsClosed(number));
  EXPECT_FALSE(descriptor.Close());
}

TEST_F(DescriptorTest, NoneIsNotClosed) {
  errno = 0;
  {
    const Descriptor none(-1);
    EXPECT_FALSE(none.IsOpen());
  }
  EXPECT_EQ(0, errno);
}

// Without the guard the process ends: nothing can be unwound from a close that may not throw.
TEST_F(DescriptorTest, ThreadThatIsToBeCancelledClosesAndGoesOn) {
  const bool closed = qiv::test::RunInThread([] {
                        const int number = OpenNumber();
                        {
                          const Descriptor atTheEnd(number);
                          Descriptor early(OpenNumber());
                          pthread_cancel(pthread_self());
                          early.Close();
                        }
                        int ignored = 0;
                        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
                        return IsClosed(number);
                      }).Get();
  EXPECT_TRUE(closed);
}

}  // namespace
