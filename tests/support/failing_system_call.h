// Makes a system call of the calling thread fail, for as long as the thread lives: to be used in a
// thread of its own.
#ifndef QIV_TESTS_SUPPORT_FAILING_SYSTEM_CALL_H
#define QIV_TESTS_SUPPORT_FAILING_SYSTEM_CALL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace qiv::test {

struct FailingSystemCall {
  int number;             // __NR_...
  unsigned int argument;  // the argument, from 0, that is compared
  unsigned int mask;      // with these of its lower 32 bits
  unsigned int value;     // equal to this: the call is not carried out
  unsigned int error;     // errno of its failure; 0 is a success that does nothing
};

/** False where the system installs no filters. */
inline bool Install(const FailingSystemCall& call) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
                "the lower half of an argument is first");
  const auto argument = static_cast<std::uint32_t>(offsetof(seccomp_data, args) +
                                                   call.argument * sizeof(std::uint64_t));
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call.number), 0, 4),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, call.mask),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.value, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | call.error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {static_cast<unsigned short>(std::size(program)), program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace qiv::test

#endif
