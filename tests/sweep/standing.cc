#include "sweep/standing.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <iconv.h>
#include <netdb.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "imsg.h"
#include "pfm.h"
#include "support/blocks.h"
#include "support/landing.h"
#include "support/signals.h"

namespace fs = std::filesystem;

namespace ks_test {
namespace {

// "pipe:[4711]": the number tells nothing.
std::string without_number(std::string target) {
  const size_t bracket = target.find(":[");
  return bracket == std::string::npos ? target : target.substr(0, bracket);
}

void list_descriptors(std::set<std::string> &facts) {
  DIR *const folder = opendir("/proc/self/fd");
  while (const dirent *entry = readdir(folder)) {
    const int fd = atoi(entry->d_name);
    if (entry->d_name[0] == '.' || fd == dirfd(folder)) continue;
    char target[4096] = {};
    if (readlinkat(dirfd(folder), entry->d_name, target, sizeof target - 1) < 0) continue;
    facts.insert("descriptor " + std::to_string(fd) + ": " + without_number(target));
  }
  closedir(folder);
}

void list_files(const std::string &folder, std::set<std::string> &facts) {
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; entry != end && !error;
       entry.increment(error)) {
    const fs::file_status status = entry->symlink_status(error);
    std::string fact = "file " + fs::path(entry->path()).lexically_relative(folder).string();
    if (fs::is_directory(status)) fact += '/';
    if (fs::is_regular_file(status))
      fact += ", " + std::to_string(entry->file_size(error)) + " bytes";
    facts.insert(fact);
  }
}

void list_signals(std::set<std::string> &facts) {
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (sigismember(&blocked, sig) == 1) facts.insert("blocked signal " + std::to_string(sig));
    const struct sigaction action = system_action(sig);
    if (action.sa_handler == SIG_DFL) continue;
    facts.insert((action.sa_handler == SIG_IGN ? "ignored signal " : "caught signal ") +
                 std::to_string(sig));
  }
  itimerval timer = {};
  getitimer(ITIMER_REAL, &timer);
  if (timer.it_value.tv_sec != 0 || timer.it_value.tv_usec != 0) facts.insert("a running timer");
}

void list_holds(std::set<std::string> &facts) {
  if (pfm_inhibit_count() != 0) facts.insert("signals held back");
  if (pfm_inhibit_suspend_count() != 0) facts.insert("SIGTSTP held back");
  if (pfm_blocked_count() != 0) facts.insert("a deferred signal");
  if (innermost_record() != nullptr) facts.insert("a cleanup record");
}

void list_rest(std::set<std::string> &facts) {
  siginfo_t info = {};
  if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0) facts.insert("a child");
  const mode_t mask = umask(0);
  umask(mask);
  facts.insert("umask " + std::to_string(mask));
  facts.insert(std::string("locale ") + setlocale(LC_ALL, nullptr));
}

std::set<std::string> lines(const std::string &text) {
  std::set<std::string> all;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) all.insert(line);
  return all;
}

// "0x1234 5": so many blocks, and the address behind the call that made them.
bool is_about_blocks(const std::string &line) { return line.starts_with("0x"); }
std::string caller_in(const std::string &line) { return line.substr(0, line.find(' ')); }
int count_in(const std::string &line) { return atoi(line.c_str() + line.find(' ')); }

FILE *scratch = nullptr;

// Each takes a lock of libc's, or more than one.
struct Probe {
  const char *name;
  bool (*works)();
};

bool print_to_stream() {
  char line[16] = {};
  rewind(scratch);
  if (fprintf(scratch, "%d\n", 42) != 3 || fflush(scratch) != 0) return false;
  rewind(scratch);
  return getc(scratch) == '4' && fgets(line, sizeof line, scratch) != nullptr &&
         strcmp(line, "2\n") == 0;
}

// As a stream's lock may be taken more than once by its holder, only another thread sees it.
bool lock_streams() {
  // libc's list of open streams; named here, it would be a copy of its first state.
  auto *const list = static_cast<FILE **>(dlsym(RTLD_DEFAULT, "_IO_list_all"));
  for (FILE *stream = *list; stream != nullptr; stream = stream->_chain) {
    if (ftrylockfile(stream) != 0) return false;
    funlockfile(stream);
  }
  return true;
}

bool open_stream() {
  FILE *const stream = fopen("/dev/null", "r");
  return stream != nullptr && fclose(stream) == 0;
}

bool allocate() {
  bool works = true;
  void *blocks[32] = {};
  for (size_t i = 0; i < std::size(blocks); ++i)
    works &= (blocks[i] = malloc(1 + (i << 8))) != nullptr;
  for (void *block : blocks) free(block);
  return works;
}

bool convert() {
  mbstate_t state = {};
  wchar_t wide;
  return mbrtowc(&wide, "a", 1, &state) == 1 && wide == L'a' && btowc('a') == L'a' &&
         setlocale(LC_ALL, nullptr) != nullptr;
}

bool load_conversion() {
  const iconv_t conversion = iconv_open("UTF-8", "LATIN1");
  return conversion != reinterpret_cast<iconv_t>(-1) && iconv_close(conversion) == 0;
}

bool tell_time() {
  const time_t moment = 86400;
  tm parts;
  char text[32];
  tzset();
  return localtime_r(&moment, &parts) != nullptr && mktime(&parts) == moment &&
         strftime(text, sizeof text, "%c", &parts) > 0;
}

bool name_user() {
  (void)getpwnam("root");  // whether there is such a user is none of ours
  (void)getgrnam("root");
  (void)gethostbyname("127.0.0.1");
  return true;
}

bool find_symbol() { return dlsym(RTLD_DEFAULT, "printf") != nullptr; }

bool list_folder() {
  DIR *const folder = opendir("/");
  return folder != nullptr && readdir(folder) != nullptr && closedir(folder) == 0;
}

bool change_environment() {
  return setenv("SWEEP_PROBE", "1", 1) == 0 && unsetenv("SWEEP_PROBE") == 0;
}

bool draw_number() { return random() >= 0 && rand() >= 0; }

bool register_exit_hook() {
  return atexit([] {}) == 0;
}

constexpr Probe kProbes[] = {
    {"malloc and free", allocate},
    {"a print to a stream and reading it", print_to_stream},
    {"taking the lock of each stream", lock_streams},
    {"opening a stream", open_stream},
    {"conversion of a character", convert},
    {"iconv_open", load_conversion},
    {"localtime_r, mktime and strftime", tell_time},
    {"getpwnam, getgrnam and gethostbyname", name_user},
    {"dlsym", find_symbol},
    {"opendir", list_folder},
    {"setenv", change_environment},
    {"random", draw_number},
    {"atexit", register_exit_hook},
};

struct Probing {
  void (*tell)(const char *step);
  const char *failed;
};

void *run_probes(void *argument) {
  auto *const probing = static_cast<Probing *>(argument);
  for (const Probe &each : kProbes) {
    probing->tell(each.name);
    if (!each.works()) {
      probing->failed = each.name;
      break;
    }
  }
  return nullptr;
}

}  // namespace

std::string standing(const std::string &folder) {
  std::set<std::string> facts;
  list_holds(facts);
  list_signals(facts);
  list_descriptors(facts);
  list_files(folder, facts);
  list_rest(facts);
  char at[4096];
  facts.insert(getcwd(at, sizeof at) != nullptr && folder == at ? "in the folder"
                                                                : "in another folder");
  std::string text = held_blocks();
  for (const std::string &fact : facts) text += fact + "\n";
  return text;
}

// Fewer blocks than before are caches that have not been filled.
std::string difference(const std::string &before, const std::string &after) {
  const std::set<std::string> old_lines = lines(before);
  const std::set<std::string> new_lines = lines(after);
  std::map<std::string, int> old_blocks;
  for (const std::string &line : old_lines) {
    if (is_about_blocks(line)) old_blocks[caller_in(line)] = count_in(line);
  }
  std::string text;
  for (const std::string &line : new_lines) {
    if (is_about_blocks(line)) {
      const int more = count_in(line) - old_blocks[caller_in(line)];
      if (more > 0)
        text += "left: " + std::to_string(more) + " blocks of " + caller_in(line) + "\n";
    } else if (!old_lines.contains(line)) {
      text += "left: " + line + "\n";
    }
  }
  for (const std::string &line : old_lines) {
    if (!is_about_blocks(line) && !new_lines.contains(line)) text += "gone: " + line + "\n";
  }
  return text;
}

void prepare_probes() {
  scratch = fdopen(memfd_create("scratch", MFD_CLOEXEC), "w+");
  if (scratch == nullptr) {
    perror("memfd_create");
    abort();
  }
}

const char *probe(void (*tell)(const char *step)) {
  Probing probing = {tell, nullptr};
  pthread_t thread;
  tell("starting a thread");
  if (pthread_create(&thread, nullptr, run_probes, &probing) != 0) return "no thread starts";
  pthread_join(thread, nullptr);
  if (probing.failed != nullptr) return probing.failed;
  tell("a print by the library");
  rewind(scratch);
  return imsg_fputs("probe\n", scratch) == 0 ? nullptr : "a print by the library";
}

}  // namespace ks_test
