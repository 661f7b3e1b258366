#include "sweep/system_calls.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <cerrno>

namespace ks_test {
namespace {

struct Known {
  long number;
  const char *name;
  Failing failing;
};

#define CALL(name, how) \
  { SYS_##name, #name, Failing::how }

constexpr Known kKnown[] = {
    // No errors with arguments that are right, which libc's are.
    CALL(rt_sigprocmask, kNever),
    CALL(rt_sigaction, kNever),
    CALL(rt_sigpending, kNever),
    CALL(getpid, kNever),
    CALL(getppid, kNever),
    CALL(getpgrp, kNever),
    CALL(gettid, kNever),
    CALL(getuid, kNever),
    CALL(geteuid, kNever),
    CALL(getgid, kNever),
    CALL(getegid, kNever),
    CALL(umask, kNever),
    CALL(time, kNever),
    CALL(times, kNever),
    CALL(gettimeofday, kNever),
    CALL(clock_gettime, kNever),
    CALL(getitimer, kNever),
    CALL(setitimer, kNever),
    CALL(alarm, kNever),
    CALL(sched_yield, kNever),
    CALL(set_robust_list, kNever),
    CALL(set_tid_address, kNever),
    CALL(rseq, kNever),
    CALL(uname, kNever),
    CALL(prlimit64, kNever),
    // Its errors speak of the process that it is for, and are none of those that are tried.
    CALL(kill, kNever),
    // A signal to the process itself; to another it is tested like the rest.
    CALL(tgkill, kNever),
    // These do not return.
    CALL(exit, kNever),
    CALL(exit_group, kNever),
    CALL(rt_sigreturn, kNever),
    // Behind these there is nothing that could be done but to end.
    CALL(munmap, kNever),
    CALL(madvise, kNever),
    CALL(futex, kNever),
#ifdef __i386__
    CALL(sigreturn, kNever),
    CALL(getuid32, kNever),
    CALL(geteuid32, kNever),
    CALL(getgid32, kNever),
    CALL(getegid32, kNever),
    CALL(clock_gettime64, kNever),
    CALL(set_thread_area, kNever),
    CALL(mmap2, kStorage),
    CALL(_newselect, kInterruptible),
    CALL(waitpid, kBySignal),
    CALL(socketcall, kInterruptible),
    CALL(ppoll_time64, kInterruptible),
    CALL(pselect6_time64, kBySignal),
    CALL(clock_nanosleep_time64, kInterruptible),
    CALL(_llseek, kWithError),
    CALL(stat64, kWithError),
    CALL(lstat64, kWithError),
    CALL(fstat64, kWithError),
    CALL(fstatat64, kWithError),
    CALL(getgroups32, kWithError),
    CALL(ftruncate64, kWithError),
    CALL(statfs64, kWithError),
    CALL(ugetrlimit, kNever),
    CALL(chown32, kWithError),
    CALL(fchown32, kWithError),
    CALL(setgroups32, kWithError),
#else
    CALL(arch_prctl, kNever),
    CALL(accept, kInterruptible),
    CALL(newfstatat, kWithError),
    CALL(getrlimit, kNever),
#endif
    CALL(brk, kStorage),
    CALL(mmap, kStorage),
    CALL(mremap, kStorage),
    CALL(mprotect, kStorage),
    CALL(read, kInterruptible),
    CALL(pread64, kInterruptible),
    CALL(readv, kInterruptible),
    CALL(write, kInterruptible),
    CALL(pwrite64, kInterruptible),
    CALL(writev, kInterruptible),
    CALL(open, kInterruptible),
    CALL(openat, kInterruptible),
    CALL(creat, kInterruptible),
    CALL(fsync, kInterruptible),
    CALL(fdatasync, kInterruptible),
    CALL(flock, kInterruptible),
    // A signal is all that can come between these and their answer. The loop asserts that of its wait.
    CALL(wait4, kBySignal),
    CALL(pselect6, kBySignal),
    CALL(waitid, kInterruptible),
    CALL(select, kInterruptible),
    CALL(poll, kInterruptible),
    CALL(ppoll, kInterruptible),
    CALL(nanosleep, kInterruptible),
    CALL(clock_nanosleep, kInterruptible),
    CALL(pause, kInterruptible),
    CALL(connect, kInterruptible),
    CALL(accept4, kInterruptible),
    CALL(sendto, kInterruptible),
    CALL(recvfrom, kInterruptible),
    CALL(sendmsg, kInterruptible),
    CALL(recvmsg, kInterruptible),
    CALL(getrandom, kInterruptible),
    CALL(ftruncate, kInterruptible),
    CALL(fallocate, kInterruptible),
    CALL(close, kDone),
    CALL(fcntl, kWithError),
#ifdef __i386__
    CALL(fcntl64, kWithError),
#endif
    CALL(ioctl, kWithError),
    CALL(lseek, kWithError),
    CALL(stat, kWithError),
    CALL(lstat, kWithError),
    CALL(fstat, kWithError),
    CALL(statx, kWithError),
    CALL(statfs, kWithError),
    CALL(access, kWithError),
    CALL(faccessat, kWithError),
    CALL(faccessat2, kWithError),
    CALL(readlink, kWithError),
    CALL(readlinkat, kWithError),
    CALL(getdents, kWithError),
    CALL(getdents64, kWithError),
    CALL(getcwd, kWithError),
    CALL(chdir, kWithError),
    CALL(fchdir, kWithError),
    CALL(mkdir, kWithError),
    CALL(mkdirat, kWithError),
    CALL(rmdir, kWithError),
    CALL(unlink, kWithError),
    CALL(unlinkat, kWithError),
    CALL(rename, kWithError),
    CALL(renameat, kWithError),
    CALL(renameat2, kWithError),
    CALL(link, kWithError),
    CALL(linkat, kWithError),
    CALL(symlink, kWithError),
    CALL(chmod, kWithError),
    CALL(fchmod, kWithError),
    CALL(utimensat, kWithError),
    CALL(dup, kWithError),
    CALL(dup2, kWithError),
    CALL(dup3, kWithError),
    CALL(pipe, kWithError),
    CALL(pipe2, kWithError),
    CALL(socket, kWithError),
    CALL(bind, kWithError),
    CALL(listen, kWithError),
    CALL(getsockname, kWithError),
    CALL(setsockopt, kWithError),
    CALL(getsockopt, kWithError),
    CALL(fork, kWithError),
    CALL(vfork, kWithError),
    CALL(clone, kWithError),
    CALL(clone3, kWithError),
    CALL(execve, kWithError),
    CALL(setpgid, kWithError),
    CALL(getpgid, kWithError),
    CALL(setsid, kWithError),
    CALL(getsid, kWithError),
    CALL(sysinfo, kWithError),
    CALL(getgroups, kWithError),
    CALL(setgroups, kWithError),
    CALL(sched_getaffinity, kWithError),
    CALL(memfd_create, kWithError),
    CALL(fadvise64, kWithError),
    CALL(prctl, kWithError),
};

#undef CALL

const Known *find(long number) {
  for (const Known &each : kKnown) {
    if (each.number == number) return &each;
  }
  return nullptr;
}

bool waits_for_lock(long number, long request) {
#ifdef __i386__
  if (number == SYS_fcntl64) return request == F_SETLKW || request == F_SETLKW64;
#endif
  return number == SYS_fcntl && request == F_SETLKW;
}

}  // namespace

Failing failing(long number, long second_argument) {
  if (waits_for_lock(number, second_argument)) return Failing::kInterruptible;
  const Known *const known = find(number);
  return known != nullptr ? known->failing : Failing::kWithError;
}

std::span<const int> errors_of(Failing how) {
  static constexpr int kStorage[] = {ENOMEM};
  static constexpr int kErrors[] = {EINTR, EIO, ENOSPC, EMFILE, EACCES};
  switch (how) {
    case Failing::kNever:
      return {};
    case Failing::kStorage:
      return kStorage;
    case Failing::kBySignal:
      return std::span(kErrors).first(1);
    default:
      return kErrors;
  }
}

bool fail_call(Tracee &tracee, int error) {
  switch (failing(tracee.call(), tracee.argument(1))) {
    case Failing::kDone:
      break;
    case Failing::kStorage:
      if (tracee.call() == SYS_brk) {  // which answers with the end that is, not with an error
        const long wanted = tracee.argument(0);  // libc looks at it again behind the call
        tracee.set_argument(0);
        const bool finished = tracee.finish_call();
        tracee.set_argument(wanted);
        return finished;
      }
      [[fallthrough]];
    default:
      tracee.set_call(-1);
  }
  if (!tracee.finish_call()) return false;
  tracee.set_result(-error);
  return true;
}

std::string name_of_call(long number) {
  const Known *const known = find(number);
  return known != nullptr ? known->name : "number " + std::to_string(number);
}

}  // namespace ks_test
