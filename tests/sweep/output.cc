#include "sweep/output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "imsg.h"

namespace ks_test {
namespace {

struct {
  size_t used;
  char bytes[1 << 16];
} messages;

FILE *sweep_stdout;
FILE *own_stdout;
int terminal = -1;  // the other end of the terminal that is the row's stdout

void keep_message(void *, const char *text) {
  const size_t bytes = std::min(strlen(text), sizeof messages.bytes - messages.used);
  memcpy(messages.bytes + messages.used, text, bytes);
  messages.used += bytes;
}

int file_in_memory() {
  const int fd = memfd_create("caught", MFD_CLOEXEC);
  if (fd < 0) {
    perror("memfd_create");
    abort();
  }
  return fd;
}

void start_imsg() {
  take_stdout();
  imsg_initialize();
  give_stdout_back();
}

void catch_stderr() {
  const int file = file_in_memory();
  if (dup2(file, STDERR_FILENO) < 0 || close(file) != 0) abort();
}

// All that has come to the terminal since the last call.
std::string shown() {
  std::string text;
  char bytes[4096];
  ssize_t count;
  while ((count = read(terminal, bytes, sizeof bytes)) > 0) {
    text.append(bytes, static_cast<size_t>(count));
  }
  return text;
}

std::string contents(int fd) {
  char bytes[1 << 16];
  const ssize_t count = pread(fd, bytes, sizeof bytes, 0);
  return std::string(bytes, count > 0 ? static_cast<size_t>(count) : 0);
}

void empty(FILE *stream) {
  fflush(stream);
  clearerr(stream);
  if (ftruncate(fileno(stream), 0) != 0 || lseek(fileno(stream), 0, SEEK_SET) != 0) abort();
}

}  // namespace

void catch_messages() {
  imsg_out_fn_t procs[IMSG_TYPE_COUNT];
  std::fill(std::begin(procs), std::end(procs), keep_message);
  imsg_set_redirect_procs(procs, IMSG_TYPE_COUNT, nullptr);
  imsg_suppress_prefix(1);
  imsg_print(IMSG_TYPE_ERROR, "%s", -1, "");  // what the first message makes, stays
}

std::string_view caught_messages() { return {messages.bytes, messages.used}; }

void forget_messages() { messages.used = 0; }

void catch_streams(bool start_library) {
  sweep_stdout = stdout;
  own_stdout = fdopen(file_in_memory(), "w");
  if (own_stdout == nullptr) abort();
  catch_stderr();
  if (start_library) start_imsg();
}

void catch_terminal(const char *term) {
  setenv("TERM", term, 1);
  fflush(stdout);
  own_stdout = stdout;
  sweep_stdout = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
  terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (sweep_stdout == nullptr || grantpt(terminal) != 0 || unlockpt(terminal) != 0) abort();
  const int user = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios attributes;
  if (tcgetattr(user, &attributes) != 0) abort();
  cfmakeraw(&attributes);
  if (tcsetattr(user, TCSANOW, &attributes) != 0 || dup2(user, STDOUT_FILENO) < 0) abort();
  close(user);
  catch_stderr();
  start_imsg();
}

FILE *row_stdout() { return own_stdout; }

void take_stdout() { stdout = own_stdout; }

void give_stdout_back() { stdout = sweep_stdout; }

std::string caught_out() { return terminal >= 0 ? shown() : contents(fileno(own_stdout)); }

std::string caught_err() { return contents(STDERR_FILENO); }

void forget_streams() {
  give_stdout_back();
  empty(stderr);
  if (terminal < 0) return empty(own_stdout);
  fflush(own_stdout);
  clearerr(own_stdout);
  shown();
}

}  // namespace ks_test
