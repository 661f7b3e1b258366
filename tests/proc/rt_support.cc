#include "proc/rt_support.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <utility>

#include "date.h"
#include "support/faults.h"

namespace ks_test {
namespace {

constexpr size_t kPipeBytes = 4096;  // the smallest pipe there is: full with one write

std::vector<std::string> notes;
std::vector<Wait> waits;

void must(bool condition, const char *what) {
  if (condition) return;
  perror(what);
  abort();
}

int move_to(int from, int to) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, static_cast<rlim_t>(to) + 1);
  must(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
  must(fcntl(to, F_GETFD) == -1, "a descriptor of that number is in use");
  must(dup2(from, to) == to, "dup2");
  close(from);
  return to;
}

// Both ends of a pseudo-terminal whose master tells by an exceptional condition what the other side
// does.
void open_terminal(int &master, int &slave) {
  master = posix_openpt(O_RDWR | O_NOCTTY);
  must(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "posix_openpt");
  slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  int on = 1;
  must(slave >= 0 && ioctl(master, TIOCPKT, &on) == 0, "ptsname");
}

int simulated_select(int nfds, fd_set *reading, fd_set *writing, fd_set *exceptions,
                     timeval *timeout) {
  must(waits.size() < 10000, "the loop comes to no end");
  waits.push_back({nfds, writing != nullptr, exceptions != nullptr,
                   timeout != nullptr ? timeout->tv_sec : -1,
                   timeout != nullptr ? timeout->tv_usec : 0});
  timeval no_time = {};
  const int ready = system_select(nfds, reading, writing, exceptions, &no_time);
  if (ready != 0) return ready;
  if (timeout == nullptr) {
    rt_shutdown();
    errno = EINTR;
    return -1;
  }
  timeval now;
  date_get_timeval(&now);
  timeradd(&now, timeout, &now);
  if (!timerisset(timeout)) ++now.tv_usec;
  set_clock(now.tv_sec, now.tv_usec);
  return 0;
}

}  // namespace

Source::Source(int fd_class, int fd) : fd_class_(fd_class) {
  int ends[2];
  if (fd_class == RT_FD_EXCEPT) {
    open_terminal(ends[0], ends[1]);
  } else {
    must(pipe2(ends, O_NONBLOCK) == 0, "pipe2");
    must(fcntl(ends[0], F_SETPIPE_SZ, kPipeBytes) == static_cast<int>(kPipeBytes), "F_SETPIPE_SZ");
    if (fd_class == RT_FD_WRITE) std::swap(ends[0], ends[1]);
  }
  fd_ = fd < 0 ? ends[0] : move_to(ends[0], fd);
  other_end_ = ends[1];
  if (fd_class != RT_FD_WRITE) return;
  ready_ = true;
  set_ready(false);
}

Source::~Source() {
  close(fd_);
  close(other_end_);
}

void Source::set_ready(bool ready) {
  if (ready == ready_) return;
  ready_ = ready;
  char block[kPipeBytes] = {};
  switch (fd_class_) {
    case RT_FD_READ:
      must((ready ? write(other_end_, block, 1) : read(fd_, block, 1)) == 1, "pipe");
      break;
    case RT_FD_WRITE:
      must((ready ? read(other_end_, block, kPipeBytes) : write(fd_, block, kPipeBytes)) ==
               static_cast<ssize_t>(kPipeBytes),
           "pipe");
      break;
    case RT_FD_EXCEPT:
      must(ready ? tcflush(other_end_, TCIFLUSH) == 0 : read(fd_, block, 1) == 1, "terminal");
      break;
  }
}

void PrintTo(const Wait &wait, std::ostream *out) {
  *out << "nfds " << wait.nfds << (wait.writing ? ", writing" : "")
       << (wait.exceptions ? ", exceptions" : "") << ", " << wait.seconds << " s "
       << wait.microseconds << " us";
}

ReadySources::ReadySources(int third_fd) : c_(RT_FD_READ, third_fd) {
  simulate_time(1000, 0);
  for (Source *source : {&a_, &b_, &c_}) source->set_ready(true);
}

void simulate_time(long seconds, long microseconds) {
  set_clock(seconds, microseconds);
  answer_select(simulated_select);
}

std::vector<Wait> take_waits() { return std::exchange(waits, {}); }

void note(const std::string &text) { notes.push_back(text); }

std::vector<std::string> take_notes() { return std::exchange(notes, {}); }

std::vector<std::string> notes_of_a_poll() {
  rt_poll();
  return take_notes();
}

rt_event *sched_at(const char *name, long seconds, long microseconds) {
  const timeval time = {seconds, static_cast<suseconds_t>(microseconds)};
  return rt_sched_abs(note_event, arg(name), &time);
}

void note_event(void *arg) { note(static_cast<const char *>(arg)); }

void note_fd(int fd, void *arg) {
  note(static_cast<const char *>(arg) + (" " + std::to_string(fd)));
}

void note_set(fd_set *ready, void *arg) {
  std::string text = static_cast<const char *>(arg);
  for (int fd = 0; fd < FD_SETSIZE; ++fd) {
    if (FD_ISSET(fd, ready)) text += " " + std::to_string(fd);
  }
  note(text);
}

void note_and_leave_read(int fd, void *arg) {
  note_fd(fd, arg);
  rt_unhandle_fd(RT_FD_READ, fd);
}

void note_and_leave_write(int fd, void *arg) {
  note_fd(fd, arg);
  rt_unhandle_fd(RT_FD_WRITE, fd);
}

void shut_down(void *) { rt_shutdown(); }

}  // namespace ks_test
