// What tests of files share.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "support/faults.h"
#include "support/signals.h"

namespace ks_test {

// What `body` writes to descriptor 2.
template <class Body>
std::string printed_by(Body &&body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

inline std::string error_line(const std::string &text) { return "noname: Error: " + text + "\n"; }

inline ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(descriptors, std::filesystem::directory_iterator());
}

// For a child: permissions do not bind root.
inline void become_nobody() {
  if (setgid(65534) != 0 || setuid(65534) != 0) _exit(99);
}

// Has two paths exchanged in the middle of the call number `nth` from now on of `call`, which
// faults.h knows: as if another process did it right then.
class Exchange {
 public:
  Exchange(const char *call, int nth, const std::string &first, const std::string &second) {
    first_ = first;
    second_ = second;
    set_system_handler(SIGUSR1, [](int) {
      if (renameat2(AT_FDCWD, first_.c_str(), AT_FDCWD, second_.c_str(), RENAME_EXCHANGE) != 0) {
        abort();
      }
      done_ = true;
    });
    signal_in_call(call, nth, SIGUSR1);
  }
  ~Exchange() { EXPECT_TRUE(done_); }
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

 private:
  static inline std::string first_, second_;
  static inline bool done_ = false;
};

}  // namespace ks_test
