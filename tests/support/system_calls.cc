#include "support/system_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace ks_test {

void fail_system_call(long number, int argument, unsigned bits, int error) {
  // The low half of the argument: both ABIs are little-endian.
  const auto where = static_cast<uint32_t>(offsetof(seccomp_data, args)) +
                     static_cast<uint32_t>(argument) * uint32_t{sizeof(uint64_t)};
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 4),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, where),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, bits),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, bits, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {std::size(steps), steps};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    perror("seccomp");
    _exit(127);
  }
}

}  // namespace ks_test
