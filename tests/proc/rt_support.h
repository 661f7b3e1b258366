// What tests of the event loop need: descriptors that are ready at will, a sleep in simulated time,
// and what callbacks have noted.
#pragma once

#include <gtest/gtest.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "rt.h"

namespace ks_test {

// A descriptor that becomes ready for its class when a test says so: RT_FD_READ, RT_FD_WRITE or
// RT_FD_EXCEPT. It gets the number `fd` where one is given, which may be beyond the system's limit.
class Source {
 public:
  explicit Source(int fd_class, int fd = -1);
  ~Source();
  Source(const Source &) = delete;
  Source &operator=(const Source &) = delete;

  int fd() const { return fd_; }
  void set_ready(bool ready);

 private:
  int fd_class_;
  int fd_;
  int other_end_;
  bool ready_ = false;
};

// Three sources that are ready to be read, with numbers that tests can name, and a simulated clock.
class ReadySources : public testing::Test {
 protected:
  explicit ReadySources(int third_fd);

  Source a_{RT_FD_READ, 50};
  Source b_{RT_FD_READ, 51};
  Source c_;
};

// One wait of the loop, as select got it.
struct Wait {
  int nfds;
  bool writing;     // there is a set for writing,
  bool exceptions;  // and one for exceptions
  long seconds;     // of the timeout; -1 where there is none
  long microseconds;
  bool operator==(const Wait &) const = default;
};
void PrintTo(const Wait &wait, std::ostream *out);

// The clock stands at this time now, and goes on only while the loop sleeps, which takes no time. A
// sleep without end calls rt_shutdown and is interrupted, so that rt_run runs until all is done.
void simulate_time(long seconds, long microseconds);

// The waits since the last call.
std::vector<Wait> take_waits();

// What has been noted since the last call, in order.
void note(const std::string &text);
std::vector<std::string> take_notes();

// What one poll calls.
std::vector<std::string> notes_of_a_poll();

// A C string as callbacks get it.
inline void *arg(const char *text) { return const_cast<char *>(text); }

// An event at that time which notes its name.
rt_event *sched_at(const char *name, long seconds, long microseconds = 0);

// Callbacks that note their argument, a C string. A descriptor's number is noted as "arg 5", and those
// of a set as "arg 5 6".
void note_event(void *arg);
void note_fd(int fd, void *arg);
void note_set(fd_set *ready, void *arg);

// A handler that notes as note_fd does and stops being one for RT_FD_READ or RT_FD_WRITE; so each runs
// once.
void note_and_leave_read(int fd, void *arg);
void note_and_leave_write(int fd, void *arg);

void shut_down(void *);

}  // namespace ks_test
