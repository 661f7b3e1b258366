// The operating system's answers. Look-ups go through the machine's files alone, never through a
// network; what is remembered is asked for cold.
#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netdb.h>
#include <nss.h>
#include <pwd.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

#include "imsg.h"
#include "pfm.h"
#include "support/own_system.h"
#include "sweep/answers.h"
#include "sweep/scratch.h"
#include "sysutl.h"

using namespace ks_test;

namespace {

struct State {
  const char *name;  // an answer, the library's
  uint32_t number;
  unsigned char id[SYSUTL_HOSTID_SIZE];
  char buffer[SYSUTL_PLATFORM_SIZE];
  int fds[2] = {-1, -1};
  int result;
  FILE *stream;
  rlimit limit;
  int printed;
};
State state;

// Look-ups.
// A system of the row's own with a host, two users and their groups, looked up in files.
void use_files() {
  warm_messages();
  utsname system;
  must(uname(&system) == 0, "the host's name");
  enter_own_system();
  put_file("/etc/hosts", std::string("127.0.0.1 localhost\n127.0.1.1 ") + system.nodename + "\n");
  put_file("/etc/passwd", "root:x:0:0:root:/:/bin/sh\ndaemon:x:1:1:daemon:/:/bin/sh\n");
  put_file("/etc/group", "root:x:0:\ndaemon:x:1:\n");
  for (const char *database : {"hosts", "passwd", "group"}) {
    must(__nss_configure_lookup(database, "files") == 0, "choosing where names are looked up");
  }
}

// A name of this process's own.
void use_domain() {
  must(unshare(CLONE_NEWUTS) == 0 && setdomainname("example", 7) == 0, "setting the NIS domain");
}

template <const char *(*kAsk)()>
bool ask_name() {
  state.name = kAsk();
  return state.name != nullptr;
}

// The real user is the one that the password file says; nobody has logged in on a terminal.
const char *check_login_name(bool done) {
  if (!done) return nullptr;
  return strcmp(state.name, getpwuid(getuid())->pw_name) == 0 ? nullptr : "another user";
}

// The number stands for a name that could not be looked up, and only for that once.
bool ask_group_name() {
  state.name = sysutl_mygroupname();
  return state.name != nullptr && strcmp(state.name, std::to_string(getegid()).c_str()) != 0;
}

const char *check_group_name(bool done) {
  if (!done) return nullptr;
  return strcmp(state.name, getgrgid(getegid())->gr_name) == 0 ? nullptr : "another group";
}

std::string full_name_of(const char *user) {
  const std::string field = getpwnam(user)->pw_gecos;
  return field.substr(0, field.find(','));
}

const char *check_full_name(bool done) {
  return done && state.name != full_name_of("daemon") ? "another name" : nullptr;
}

const char *check_my_full_name(bool done) {
  return done && state.name != full_name_of(getpwuid(getuid())->pw_name) ? "another name" : nullptr;
}

// "UnknownHost" stands for a name that the system did not give, or that could not be kept.
bool ask_host_name() {
  state.name = sysutl_myhostname();
  return strcmp(state.name, "UnknownHost") != 0;
}

const char *check_host_name(bool done) {
  utsname system;
  if (!done || uname(&system) != 0) return nullptr;
  return strcmp(state.name, system.nodename) == 0 ? nullptr : "another name";
}

Answer is_loopback(const hostent *host) {
  if (host == nullptr) return Answer::kTold;
  in_addr address;
  memcpy(&address, host->h_addr_list[0], sizeof address);
  return right_if(host->h_addrtype == AF_INET && address.s_addr == htonl(INADDR_LOOPBACK));
}

// What gethostid says; 0 when the machine has no number or the system did not tell it.
bool ask_host_id() {
  state.number = sysutl_myhostid();
  return state.number != 0;
}

const char *check_host_id(bool done) {
  return done && state.number != static_cast<uint32_t>(gethostid()) ? "another number" : nullptr;
}

bool is_zero_id() {
  return std::all_of(std::begin(state.id), std::end(state.id), [](int byte) { return byte == 0; });
}

bool begins_with(uint32_t number) {
  return state.id[0] == ((number & 0xFF) | 0x80) && state.id[3] == number >> 24;
}

// Descriptors. What the kernel stores in `fds` is the row's at once.
void close_fds() {
  for (int &fd : state.fds) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
}

template <int kReadSide>
bool make_pipe() {
  return sysutl_pipe(kReadSide, state.fds) == 0;
}

template <int kReadSide>
const char *check_pipe(bool done) {
  if (!done) return state.fds[0] == -1 && state.fds[1] == -1 ? nullptr : "not -1 in both";
  char byte;
  if (write(state.fds[1], "x", 1) != 1 || read(state.fds[0], &byte, 1) != 1) return "no pipe";
  const bool read_end = (fcntl(state.fds[0], F_GETFD) & FD_CLOEXEC) != 0;
  const bool write_end = (fcntl(state.fds[1], F_GETFD) & FD_CLOEXEC) != 0;
  return read_end == (kReadSide != 0) && write_end != read_end ? nullptr : "other flags";
}

void open_one() {
  close_fds();
  state.fds[0] = dup(STDIN_FILENO);
}

bool close_one() {
  pfm_inhibit();
  state.result = sysutl_pipe_close(state.fds[0]);
  state.fds[1] = state.fds[0];
  if (state.result == 0) state.fds[0] = -1;
  pfm_enable();
  return state.result == 0;
}

const char *check_closed(bool done) {
  const bool open = fcntl(state.fds[1], F_GETFD) >= 0;
  state.fds[1] = -1;
  return done && open ? "still open" : nullptr;
}

// Three bytes wait in the first socket.
void make_sockets() {
  close_fds();
  must(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, state.fds) == 0, "making sockets");
  must(write(state.fds[1], "abc", 3) == 3, "filling a socket");
}

// A flag of the first socket that a call sets, and `undo` clears.
template <int kGet, int kSet, int kFlag>
const char *check_flag(bool done) {
  return ((fcntl(state.fds[0], kGet) & kFlag) != 0) == done ? nullptr : "not as told";
}

template <int kGet, int kSet, int kFlag>
void clear_flag() {
  fcntl(state.fds[0], kSet, fcntl(state.fds[0], kGet) & ~kFlag);
}

template <auto kCall, int kGet, int kSet, int kFlag>
constexpr SweepRow flag_row(std::string_view function) {
  constexpr auto prepare = [] {
    warm<make_sockets>();
    clear_flag<kGet, kSet, kFlag>();
  };
  SweepRow row = {function,
                  "",
                  prepare,
                  [] { return kCall(state.fds[0], 1) == 0; },
                  check_flag<kGet, kSet, kFlag>,
                  clear_flag<kGet, kSet, kFlag>};
  row.anew = true;
  return row;
}

// SIGIO.
void end_interrupting() {
  const int off = 0;
  fcntl(state.fds[0], F_SETOWN, 0);
  ioctl(state.fds[0], FIOASYNC, &off);
}

void make_interrupting() {
  const int on = 1;
  fcntl(state.fds[0], F_SETOWN, getpid());
  ioctl(state.fds[0], FIOASYNC, &on);
}

void make_interrupting_sockets() {
  signal(SIGIO, SIG_IGN);
  make_sockets();
  make_interrupting();
}

template <bool kOn>
const char *check_interrupting(bool done) {
  if (!done) return nullptr;
  const bool on = (fcntl(state.fds[0], F_GETFL) & O_ASYNC) != 0;
  const bool mine = fcntl(state.fds[0], F_GETOWN) == getpid();
  return on == kOn && mine == kOn ? nullptr : "not as told";
}

// A stream with a text that is not in its file yet.
void fill_stream() {
  if (state.stream != nullptr) fclose(state.stream);
  state.stream = fopen("file", "we");
  fputs("text", state.stream);
}

const char *check_file(bool done) {
  return done && scratch_contents("file") != "text" ? "not in the file" : nullptr;
}

// Groups.
constexpr gid_t kGroups[] = {1001, 1002, 1003};

void set_groups() { must(setgroups(std::size(kGroups), kGroups) == 0, "setting the groups"); }

void use_files_and_groups() {
  use_files();
  set_groups();
}

const char *check_groups(bool done) {
  if (!done) return nullptr;
  std::array<gid_t, 64> expected, groups;
  int count = expected.size();
  getgrouplist("daemon", 1004, expected.data(), &count);
  const int present = getgroups(groups.size(), groups.data());
  if (present != count) return "not as many groups";
  return std::is_permutation(groups.begin(), groups.begin() + count, expected.begin())
             ? nullptr
             : "other groups";
}

void take_traces() {
  warm_messages();
  imsg_set_trace_subsys("ks");
  imsg_set_trace_verbosity(9);
  constexpr imsg_out_fn_t note = [](void *, const char *) { ++state.printed; };
  imsg_redirect_output(note, nullptr, note, nullptr);
}

// The limit on descriptors.
void note_limit() {
  must(getrlimit(RLIMIT_NOFILE, &state.limit) == 0, "asking for the limit");
  state.limit.rlim_cur = 512;
  must(setrlimit(RLIMIT_NOFILE, &state.limit) == 0, "setting the limit");
}

// Folders: the lock's file is gone behind each call, unless that told that it could not remove it.
const char *check_empty_folder(bool done) {
  return !done || std::filesystem::is_empty(".") ? nullptr : "a file is left";
}

void empty_folder() {
  for (const auto &entry : std::filesystem::directory_iterator(".")) unlink(entry.path().c_str());
}

constexpr SweepRow kRows[] = {
    {"sysutl_myhostname", "", use_files, ask_host_name, check_host_name, nullptr, true},
    answer_row<[] {
      char **aliases = sysutl_hostname_aliases("localhost");
      return aliases != nullptr ? Answer::kRight : Answer::kTold;
    }>("sysutl_hostname_aliases", "", use_files),
    cold(answer_row<[] { return is_loopback(sysutl_host_addr("localhost")); }>("sysutl_host_addr",
                                                                               "", use_files)),
    answer_row<[] { return is_loopback(sysutl_host_addr("127.0.0.1")); }>("sysutl_host_addr",
                                                                          "with dots"),
    cold(answer_row<[] {
      char *name = nullptr;
      if (sysutl_get_host_domain_name(&name) != 0) return Answer::kTold;
      return right_if(strcmp(name, "example") == 0);
    }>("sysutl_get_host_domain_name", "", warm<use_domain>)),
    {"sysutl_myhostid", "", use_files, ask_host_id, check_host_id, nullptr, true},
    cold(answer_row<[] {
      const int result = sysutl_my_ieee_hostid(state.id);
      return right_if(result == (is_zero_id() ? 1 : 0));
    }>("sysutl_my_ieee_hostid")),
    cold(answer_row<[] {
      const int result = sysutl_my_stable_hostid(state.id);
      if (result != 0) return right_if(is_zero_id());
      // The answer is worked out once, and 0 is the number that could not be had.
      return right_if(begins_with(sysutl_myhostid()) || begins_with(0));
    }>("sysutl_my_stable_hostid", "", use_files)),
    answer_row<[] {
      utsname system;
      sysutl_platform_description(state.buffer);
      if (strcmp(state.buffer, "i386") == 0) return Answer::kTold;
      return right_if(uname(&system) != 0 || strstr(state.buffer, system.release) != nullptr);
    }>("sysutl_platform_description"),
    cold({"sysutl_myloginname", "", use_files, ask_name<sysutl_myloginname>, check_login_name,
          nullptr}),
    cold({"sysutl_mygroupname", "", use_files, ask_group_name, check_group_name, nullptr}),
    {"sysutl_user_to_fullname", "", use_files,
     [] {
       sysutl_user_to_fullname("root");
       state.name = sysutl_user_to_fullname("daemon");
       return state.name != nullptr;
     },
     check_full_name, nullptr},
    cold({"sysutl_myfullname", "", use_files, ask_name<sysutl_myfullname>, check_my_full_name,
          nullptr}),
    {"sysutl_initgroups", "", use_files_and_groups,
     [] { return sysutl_initgroups("daemon", 1004) == 0; }, check_groups, set_groups},
    answer_row<[] {
      std::array<gid_t, SYSUTL_GETGROUPS_MAX> groups;
      int count = 0;
      if (sysutl_getgroups(groups.size(), &count, groups.data()) != 0) return Answer::kTold;
      return right_if(count == std::ssize(kGroups) &&
                      std::is_permutation(kGroups, kGroups + count, groups.begin()));
    }>("sysutl_getgroups", "", warm<set_groups>),
    answer_row<[] { return sysutl_fsync(state.fds[0]) == 0 ? Answer::kRight : Answer::kTold; }>(
        "sysutl_fsync", "",
        [] { state.fds[0] = open("file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600); }),
    anew({"sysutl_fsync_fptr", "", warm<fill_stream>,
          [] { return sysutl_fsync_fptr(state.stream) == 0; }, check_file, fill_stream}),
    {"sysutl_pipe", "the read end closes", warm_messages, make_pipe<1>, check_pipe<1>, close_fds},
    {"sysutl_pipe", "the write end closes", warm_messages, make_pipe<0>, check_pipe<0>, close_fds},
    {"sysutl_pipe_close", "", warm<open_one>, close_one, check_closed, open_one},
    flag_row<sysutl_set_cloexec_file, F_GETFD, F_SETFD, FD_CLOEXEC>("sysutl_set_cloexec_file"),
    flag_row<sysutl_set_socket_nonblocking, F_GETFL, F_SETFL, O_NONBLOCK>(
        "sysutl_set_socket_nonblocking"),
    anew({"sysutl_set_socket_interrupting", "", warm<make_sockets>,
          [] { return sysutl_set_socket_interrupting(state.fds[0]) == 0; },
          check_interrupting<true>, end_interrupting}),
    anew({"sysutl_clear_socket_interrupting", "", warm<make_interrupting_sockets>,
          [] { return sysutl_clear_socket_interrupting(state.fds[0]) == 0; },
          check_interrupting<false>, make_interrupting}),
    answer_row<[] {
      int count = 0;
      if (sysutl_socket_bytes_ready(state.fds[0], &count) != 0) return Answer::kTold;
      return right_if(count == 3);
    }>("sysutl_socket_bytes_ready", "", warm<make_sockets>),
    {"sysutl_get_max_fds", "", warm<note_limit>,
     [] {
       state.result = sysutl_get_max_fds();
       return true;
     },
     [](bool) -> const char * {
       return state.result == sysconf(_SC_OPEN_MAX) ? nullptr : "not the limit that holds";
     },
     [] { setrlimit(RLIMIT_NOFILE, &state.limit); }},
    answer_row<[] {
      std::array<unsigned char, SYSUTL_RANDOM_BYTES_MAX> bytes = {};
      if (sysutl_get_random_bytes(bytes.data(), bytes.size()) != 0) return Answer::kTold;
      return right_if(bytes != std::array<unsigned char, SYSUTL_RANDOM_BYTES_MAX>{});
    }>("sysutl_get_random_bytes", "", take_traces),
    answer_row<[] {
      state.printed = 0;
      unsigned char byte;
      return sysutl_get_random_bytes(&byte, SYSUTL_RANDOM_BYTES_MAX + 1) == 1 && state.printed == 1;
    }>("sysutl_get_random_bytes", "too many, traced", take_traces),
    {"sysutl_nfs_lock", "", warm_messages, [] { return sysutl_nfs_lock(".") == 0; },
     check_empty_folder, empty_folder},
    {"sysutl_nfs_flush", "", warm_messages, [] { return sysutl_nfs_flush(nullptr) == 0; },
     check_empty_folder, empty_folder},
    {"sysutl_nfs_flush", "of what is missing", warm_messages,
     [] { return sysutl_nfs_flush("missing") == 0; }, check_empty_folder, empty_folder},
};

constexpr SweepExemption kExemptions[] = {
    {"sysutl_init_security", "does nothing"},
    {"sysutl_fd_set_popcount", "counts bits of the caller's set"},
    {"sysutl_sock_port_uniquifier",
     "asks the clock alone, which the system answers without a call"},
    {"sysutl_get_proc_fds", "one number that is kept"},
};

}  // namespace

const SweepModule ks_test::kSweepSysutl = {kRows, kExemptions};
