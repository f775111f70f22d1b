// An event that cannot be signalled at its creation: a filter makes writes fail in a child process.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <qiv/event.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "support/leak_check.h"

namespace {

/** From here on write() fails with ENOSPC, but for the standard descriptors. */
bool LetWritesFail() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_write, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, STDERR_FILENO, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSPC),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {sizeof(program) / sizeof(program[0]), program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

[[noreturn]] void CreateWithoutWrites() {
  if (!LetWritesFail()) std::_Exit(3);
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  if (QIV_CreateEvent(1) != nullptr) std::_Exit(1);
  if (qiv::test::CountEntries("/proc/self/fd") != descriptors) std::_Exit(2);
  std::_Exit(0);
}

TEST(EventCreateTest, AnEventThatCannotBeSignalledIsGivenUpWithItsDescriptors) {
  EXPECT_EXIT(CreateWithoutWrites(), ::testing::ExitedWithCode(0),
              "zelmar !!!! QIV_WritePipe_Inter return QIV_FALSE errno = 28\n"
              "zelmar !!! QIV_CreateEvent return error 28 0\n\n");
}

}  // namespace
