// Files and directories, in the row's scratch folder. What a call has changed there is put back by
// `undo`, which begins from whatever a fault has left.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fileutl.h"
#include "imsg.h"
#include "pfm.h"
#include "stg.h"
#include "sweep/answers.h"
#include "sweep/scratch.h"

using namespace ks_test;
namespace fs = std::filesystem;

namespace {

constexpr int kManyNames = 600;  // more than one array of names holds

struct State {
  fileutl_dir_t *dir;
  fileutl_stat_t record;
  char buffer[256];
  int fd;     // of the directory, or of a file that is locked
  int other;  // another description of it, which sees the lock

  stg_area_t area;
  char **names;
  int count;

  // The paths that a walk's callbacks have seen.
  std::array<char[64], 64> seen;
  size_t seen_count;
  int walk_result;

  FILE *stream;
  int pipe_end;  // where the stream's text is put
  int eof;
  int timed_out;
};
State state;

void make_file() {
  warm_messages();
  put_scratch("file", "text");
}

void make_file_and_link() {
  make_file();
  if (symlink("file", "link") != 0) abort();
}

// Names.
void make_taken_names() {
  make_file();
  put_scratch("file.old", "old");
  put_scratch("file.old.1", "older");
}

void undo_rename() {
  (void)rename("new", "file");
  (void)rename("file.old.2", "file");
}

const char *check_renamed(bool done) {
  if (!done) return nullptr;
  return scratch_contents("new") == "text" && !fs::exists("file") ? nullptr : "not renamed";
}

const char *check_renamed_unique(bool done) {
  if (scratch_contents("file.old") != "old" || scratch_contents("file.old.1") != "older") {
    return "took a name that was taken";
  }
  if (!done) return nullptr;
  if (strcmp(state.buffer, "file.old.2") != 0) return "another name";
  return scratch_contents("file.old.2") == "text" && !fs::exists("file") ? nullptr : "not renamed";
}

// Single directories: the scratch folder, with two files.
void make_two_files() {
  warm_messages();
  put_scratch("one", "");
  put_scratch("two", "");
}

bool open_folder() {
  pfm_inhibit();
  state.dir = fileutl_opendir(".");
  pfm_enable();
  return state.dir != nullptr;
}

// ".", "..", "one" and "two".
Answer read_folder() {
  int count = 0;
  errno = 0;
  while (fileutl_readdir(state.dir, 0) != nullptr) ++count;
  if (count == 4) return Answer::kRight;
  return errno != 0 ? Answer::kTold : Answer::kWrong;
}

const char *check_folder(bool done) {
  return done && read_folder() != Answer::kRight ? "not the folder" : nullptr;
}

void close_folder() {
  if (state.dir != nullptr) (void)fileutl_closedir(state.dir);
  state.dir = nullptr;
}

// The handle's descriptor is the lowest that was free.
void open_again() {
  close_folder();
  state.fd = dup(STDIN_FILENO);
  close(state.fd);
  open_folder();
}

void open_two_files() {
  make_two_files();
  open_again();
}

// A handle that could not be closed stays the caller's for ever. In the sweep it goes back, so that it
// is not taken for a block that was lost.
bool close_once() {
  pfm_inhibit();
  const int result = fileutl_closedir(state.dir);
  if (result != 0) stg_free(state.dir);
  state.dir = nullptr;
  pfm_enable();
  return result == 0;
}

const char *check_closed(bool done) {
  return done && fcntl(state.fd, F_GETFD) >= 0 ? "still open" : nullptr;
}

// All names of a directory.
void make_many_files() {
  warm_messages();
  state.area = stg_create_area(1000);
  if (mkdir("many", 0700) != 0) abort();
  for (int i = 0; i < kManyNames; ++i) {
    put_scratch(("many/name" + std::to_string(i)).c_str(), "");
  }
}

// The row knows how many there are, so nothing is lost where a fault comes behind the return.
template <bool kOnHeap>
bool read_many() {
  state.count = kManyNames + 2;
  state.count = fileutl_read_whole_dir("many", kOnHeap ? STG_AREA_HEAP : state.area, &state.names);
  return state.count >= 0;
}

const char *check_many(bool done) {
  if (!done) return nullptr;
  std::vector<std::string> names(state.names, state.names + state.count);
  std::vector<std::string> expected = {".", ".."};
  for (int i = 0; i < kManyNames; ++i) expected.push_back("name" + std::to_string(i));
  std::sort(names.begin(), names.end());
  std::sort(expected.begin(), expected.end());
  return names == expected ? nullptr : "other names";
}

void free_many() {
  for (int i = 0; state.names != nullptr && i < state.count; ++i) stg_free(state.names[i]);
  stg_free(state.names);
  state.names = nullptr;
}

void empty_area() {
  stg_free_area(state.area, 0);
  state.names = nullptr;
}

// Locks, which another description of the file sees.
bool is_locked() {
  struct flock64 lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(state.other, F_OFD_GETLK, &lock) != 0) abort();
  return lock.l_type != F_UNLCK;
}

void unlock() { (void)fileutl_unlockfd(state.fd, 0, 0); }
void lock() { (void)fileutl_lockfd(state.fd, 0, 0); }

void open_lock_file() {
  make_file();
  state.fd = open("file", O_RDWR | O_CLOEXEC);
  state.other = open("file", O_RDWR | O_CLOEXEC);
}

void open_and_lock() {
  open_lock_file();
  lock();
}

// A tree of three levels, with a link to one of its directories.
constexpr const char *kTreeFiles[] = {"a", "b/c", "b/d/e", "b/d/f", "g/h", "g/i", "z"};
constexpr char kTree[] = "tree";

void make_tree() {
  fs::create_directories("tree/b/d");
  fs::create_directories("tree/g");
  for (const char *file : kTreeFiles) put_scratch((std::string("tree/") + file).c_str(), file);
  if (!fs::is_symlink("tree/link")) fs::create_symlink("g", "tree/link");
}

constexpr char kWholeTree[] =
    "tree tree/a tree/b tree/b/c tree/b/d tree/b/d/e tree/b/d/f tree/g tree/g/h tree/g/i "
    "tree/link tree/z";
constexpr char kTreeWithLinks[] =
    "tree tree/a tree/b tree/b/c tree/b/d tree/b/d/e tree/b/d/f tree/g tree/g/h tree/g/i "
    "tree/link tree/link/h tree/link/i tree/z";
// Each directory once more when all that it holds has been seen.
constexpr char kThereAndBack[] =
    "tree tree tree/a tree/b tree/b tree/b/c tree/b/d tree/b/d tree/b/d/e tree/b/d/f tree/g tree/g "
    "tree/g/h tree/g/i tree/link tree/z";

// The file by which an NFS client is made to look anew at a directory: where the system does not
// remove it, it stays, and a walk finds it.
bool is_lock_file(const fs::path &path) {
  return path.filename().string().starts_with(".nfs_lock_file.");
}

void remove_lock_files() {
  for (const auto &entry : fs::directory_iterator(kTree)) {
    if (is_lock_file(entry.path())) fs::remove(entry.path());
  }
}

int note_object(void *, const char *path, const char *, const char *, const char *,
                const fileutl_stat_t *, int, int) {
  if (is_lock_file(path)) return 0;
  strcpy(state.seen[state.seen_count], path);
  ++state.seen_count;
  return 0;
}

constexpr fileutl_walk_callback_t kNote = {nullptr, FILEUTL_WALK_BEFORE, note_object, nullptr};
constexpr fileutl_walk_callback_t kNoteTwice = {nullptr, FILEUTL_WALK_BEFORE | FILEUTL_WALK_AFTER,
                                                note_object, nullptr};
// The same tree, made of nothing but these paths.
struct OwnObject {
  std::string_view path;
  mode_t mode;
};
constexpr OwnObject kOwnObjects[] = {
    {"tree", S_IFDIR},     {"tree/a", S_IFREG},     {"tree/b", S_IFDIR},     {"tree/b/c", S_IFREG},
    {"tree/b/d", S_IFDIR}, {"tree/b/d/e", S_IFREG}, {"tree/b/d/f", S_IFREG}, {"tree/g", S_IFDIR},
    {"tree/g/h", S_IFREG}, {"tree/g/i", S_IFREG},   {"tree/link", S_IFLNK},  {"tree/z", S_IFREG},
};

// A handle is the place of one of these.
struct OwnDirectory {
  bool open;
  char path[64];
  size_t next;  // of the objects
  fileutl_dirent_t entry;
};
OwnDirectory own_directories[8];

OwnDirectory *own_directory(fileutl_dir_t *dir) { return reinterpret_cast<OwnDirectory *>(dir); }

int stat_own(const char *path, int, fileutl_stat_t *record) {
  for (const OwnObject &object : kOwnObjects) {
    if (object.path != path) continue;
    *record = {};
    record->st_mode = object.mode;
    record->st_nlink = 1;
    return 0;
  }
  return -1;
}

fileutl_dir_t *open_own(const char *path) {
  const auto free = std::ranges::find(own_directories, false, &OwnDirectory::open);
  if (free == std::end(own_directories)) return nullptr;
  *free = {true, "", 0, {}};
  strcpy(free->path, path);
  return reinterpret_cast<fileutl_dir_t *>(&*free);
}

fileutl_dirent_t *read_own(fileutl_dir_t *dir, int) {
  OwnDirectory &own = *own_directory(dir);
  const std::string_view parent = own.path;
  while (own.next < std::size(kOwnObjects)) {
    const std::string_view path = kOwnObjects[own.next++].path;
    if (path.size() <= parent.size() || path.rfind('/') != parent.size()) continue;
    if (!path.starts_with(parent)) continue;
    strcpy(own.entry.d_name, path.data() + parent.size() + 1);
    return &own.entry;
  }
  return nullptr;
}

int close_own(fileutl_dir_t *dir) {
  own_directory(dir)->open = false;
  return 0;
}

constexpr fileutl_walk_ops_t kOwnTree = {stat_own, open_own, read_own, close_own};

template <const fileutl_walk_callback_t &kChain, const fileutl_walk_ops_t *kOps, int kFlags>
bool walk() {
  state.seen_count = 0;
  const int flags = FILEUTL_WALK_RECURSE | kFlags;
  state.walk_result = kOps == nullptr ? fileutl_walk_tree(kTree, &kChain, flags)
                                      : fileutl_walk_tree_any(kTree, &kChain, kOps, flags);
  return state.walk_result != FILEUTL_WALK_FAILED;
}

template <const auto &kExpected>
const char *check_walk(bool done) {
  for (const OwnDirectory &own : own_directories) {
    if (own.open) return "a directory is left open";
  }
  if (!done) return nullptr;
  if (state.walk_result != 0) return "another result";
  std::vector<std::string> seen(state.seen.begin(), state.seen.begin() + state.seen_count);
  std::sort(seen.begin(), seen.end());
  std::string names;
  for (const std::string &name : seen) names += (names.empty() ? "" : " ") + name;
  return names == kExpected ? nullptr : "other objects";
}

template <const auto &kExpected, const fileutl_walk_callback_t &kChain,
          const fileutl_walk_ops_t *kOps = nullptr, int kFlags = 0>
constexpr SweepRow walk_row(std::string_view about) {
  return {kOps == nullptr ? "fileutl_walk_tree" : "fileutl_walk_tree_any",
          about,
          warm<make_tree>,
          walk<kChain, kOps, kFlags>,
          check_walk<kExpected>,
          remove_lock_files};
}

template <int kFlags>
bool remove_tree() {
  return fileutl_rm(kTree, FILEUTL_WALK_RECURSE | kFlags) == 0;
}

const char *check_no_tree(bool done) {
  return done && fs::exists(fs::symlink_status(kTree)) ? "something is left" : nullptr;
}

// What is printed about each of the twelve objects.
void take_trace() {
  warm<make_tree>();
  state.seen_count = 0;
  constexpr imsg_out_fn_t note = [](void *, const char *text) {
    const std::string_view line(text);
    const bool is_object = line.find(".nfs_lock_file.") == line.npos;
    if (line.starts_with("unlink( ") && is_object) ++state.seen_count;
  };
  imsg_redirect_output(note, nullptr, note, nullptr);
}

bool remove_traced() {
  state.seen_count = 0;
  return remove_tree<FILEUTL_WALK_TRACE>();
}

const char *check_traced(bool done) {
  if (done && state.seen_count != 12) return "not every object was printed";
  return check_no_tree(done);
}

// Lines of a pipe, of which the row keeps the other end where the text is not to end.
void open_pipe(const char *text) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) abort();
  state.stream = fdopen(fds[0], "r");
  state.pipe_end = fds[1];
  if (write(state.pipe_end, text, strlen(text)) < 0) abort();
}

void close_pipe() {
  fclose(state.stream);
  if (state.pipe_end >= 0) close(state.pipe_end);
  state.pipe_end = -1;
}

template <const auto &kText, bool kEnds>
void renew_pipe() {
  if (state.stream != nullptr) close_pipe();
  open_pipe(kText);
  if (!kEnds) return;
  close(state.pipe_end);
  state.pipe_end = -1;
}

template <const auto &kLine, int kEof, int kTimedOut>
bool read_line() {
  const timeval timeout = {kTimedOut != 0 ? 0 : 10, 1000};
  const int result = fileutl_fgets_or_timeout(state.stream, &timeout, sizeof state.buffer,
                                              state.buffer, &state.eof, &state.timed_out);
  return result == 0;
}

template <const auto &kLine, int kEof, int kTimedOut>
const char *check_line(bool done) {
  if (!done) {
    const bool is_part = std::string_view(kLine).starts_with(state.buffer);
    return is_part ? nullptr : "another text than a part of the line";
  }
  if (state.eof != kEof || state.timed_out != kTimedOut) return "not as the pipe ends";
  return strcmp(state.buffer, kLine) == 0 ? nullptr : "another line";
}

constexpr char kTwoLines[] = "one\ntwo\n";
constexpr char kFirstLine[] = "one\n";
constexpr char kPart[] = "on";
constexpr char kEmpty[] = "";

template <const auto &kText, bool kEnds, const auto &kLine, int kEof = 0, int kTimedOut = 0>
constexpr SweepRow line_row(std::string_view about) {
  return anew({"fileutl_fgets_or_timeout", about, warm<renew_pipe<kText, kEnds>>,
               read_line<kLine, kEof, kTimedOut>, check_line<kLine, kEof, kTimedOut>,
               renew_pipe<kText, kEnds>});
}

constexpr SweepRow kRows[] = {
    answer_row<[] {
      if (fileutl_stat("link", 1, &state.record) != 0) return Answer::kTold;
      return right_if(state.record.st_size == 4);
    }>("fileutl_stat", "followed", make_file_and_link),
    answer_row<[] {
      if (fileutl_stat("link", 0, &state.record) != 0) return Answer::kTold;
      return right_if(S_ISLNK(state.record.st_mode));
    }>("fileutl_stat", "a link", make_file_and_link),
    answer_row<[] { return fileutl_exists("file", 0) == 1 ? Answer::kRight : Answer::kTold; }>(
        "fileutl_exists", "", make_file),
    answer_row<[] {
      fileutl_statfs_record_t record;
      if (fileutl_statfs(".", &record, sizeof record) != 0) return Answer::kTold;
      return right_if(record.block_size > 0);
    }>("fileutl_statfs"),
    answer_row<[] {
      const int bytes = fileutl_readlink("link", state.buffer, sizeof state.buffer);
      if (bytes < 0) return Answer::kTold;
      return right_if(bytes == 5 && strcmp(state.buffer, "file") == 0);
    }>("fileutl_readlink", "", make_file_and_link),
    {"fileutl_rename", "", make_file, [] { return fileutl_rename("file", "new") == 0; },
     check_renamed, undo_rename},
    {"fileutl_rename_unique", "", make_taken_names,
     [] { return fileutl_rename_unique("file", ".old", sizeof state.buffer, state.buffer) == 0; },
     check_renamed_unique, undo_rename},
    answer_row<[] { return fileutl_chk_large_file_overflow(0, 1, "file") == 1; }>(
        "fileutl_chk_large_file_overflow"),
    {"fileutl_opendir", "", make_two_files, open_folder, check_folder, close_folder},
    anew(answer_row<read_folder>("fileutl_readdir", "", open_two_files, open_again)),
    {"fileutl_closedir", "", open_two_files, close_once, check_closed, open_again},
    {"fileutl_read_whole_dir", "on the heap", make_many_files, read_many<true>, check_many,
     free_many},
    {"fileutl_read_whole_dir", "in an area", make_many_files, read_many<false>, check_many,
     empty_area},
    anew({"fileutl_lockfd", "", open_lock_file, [] { return fileutl_lockfd(state.fd, 0, 0) == 0; },
          [](bool done) { return is_locked() == done ? nullptr : "the lock is not as told"; },
          unlock}),
    anew({"fileutl_unlockfd", "", open_and_lock,
          [] { return fileutl_unlockfd(state.fd, 0, 0) == 0; },
          [](bool done) { return is_locked() != done ? nullptr : "the lock is not as told"; },
          lock}),
    walk_row<kWholeTree, kNote>(""),
    walk_row<kThereAndBack, kNoteTwice>("there and back"),
    walk_row<kTreeWithLinks, kNote, nullptr, FILEUTL_WALK_FOLLOW_ALL>("with links followed"),
    walk_row<kWholeTree, kNote, &kOwnTree>(""),
    {"fileutl_rm", "", warm<make_tree>, remove_tree<0>, check_no_tree, make_tree},
    {"fileutl_rm", "traced", take_trace, remove_traced, check_traced, make_tree},
    line_row<kTwoLines, false, kFirstLine>("a line"),
    line_row<kPart, true, kPart>("a part"),
    line_row<kEmpty, false, kEmpty, 0, 1>("no line in time"),
    line_row<kEmpty, true, kEmpty, 1>("the end"),
    {"fileutl_mkpath", "", warm_messages, [] { return fileutl_mkpath("x/y/z", 0700, 1) == 0; },
     [](bool done) { return !done || fs::is_directory("x/y/z") ? nullptr : "no directory"; },
     [] { fs::remove_all("x"); }},
};

constexpr std::string_view kBytesOnly = "works on the caller's texts alone";

constexpr SweepExemption kExemptions[] = {
    {"fileutl_patt_list_match", kBytesOnly}, {"fileutl_patt_list_matched_cell", kBytesOnly},
    {"fileutl_strip_leaf", kBytesOnly},      {"fileutl_find_pname_sep_left", kBytesOnly},
    {"fileutl_pname_equal", kBytesOnly},
};

}  // namespace

const SweepModule ks_test::kSweepFileutl = {kRows, kExemptions};
