// Files: walking and removing a tree of 20000 files in 1000 directories, and reading a whole text,
// beside what the systems offer for that. A name is "<workload>/<subject>"; the subject "norvaks" is
// held against the others of the same workload (bench/bars.tsv).
#include <benchmark/benchmark.h>
#include <norvaks/fileutl.h>
#include <norvaks/strutl.h>

#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr int kDirectories = 1000;
constexpr int kFilesInEach = 20;
constexpr int kObjects = 1 + kDirectories * (1 + kFilesInEach);
constexpr size_t kTextBytes = 100 << 20;

[[noreturn]] void fail(const char *what) {
  perror(what);
  exit(1);
}

// A folder in memory, so that no disk is measured; it goes away with the program.
class Folder {
 public:
  Folder() : path_("/dev/shm/norvaks-bench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) fail("mkdtemp");
  }
  ~Folder() { fs::remove_all(path_); }

  std::string in(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Ten directories with a hundred less one in each.
void make_tree(const std::string &root) {
  for (int i = 0; i < kDirectories; ++i) {
    const std::string group = root + "/group" + std::to_string(i % 10);
    const std::string directory = i < 10 ? group : group + "/directory" + std::to_string(i);
    fs::create_directories(directory);
    for (int file = 0; file < kFilesInEach; ++file) {
      const int fd = open((directory + "/source" + std::to_string(file) + ".c").c_str(),
                          O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
      if (fd < 0) fail("open");
      close(fd);
    }
  }
}

void make_text(const std::string &path) {
  std::string line(79, 'x');
  line += '\n';
  FILE *stream = fopen(path.c_str(), "w");
  if (stream == nullptr) fail("fopen");
  for (size_t written = 0; written < kTextBytes; written += line.size()) {
    fwrite(line.data(), 1, line.size(), stream);
  }
  fclose(stream);
}

void expect(bool holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "%s: wrong\n", what);
  exit(1);
}

int count_object(void *counter, const char *, const char *, const char *, const char *,
                 const fileutl_stat_t *, int, int) {
  ++*static_cast<int *>(counter);
  return 0;
}

void walk(benchmark::State &state, const std::string &tree) {
  for (auto _ : state) {
    int count = 0;
    const fileutl_walk_callback_t chain = {nullptr, FILEUTL_WALK_BEFORE, count_object, &count};
    fileutl_walk_tree(tree.c_str(), &chain, FILEUTL_WALK_RECURSE);
    expect(count == kObjects, "walk");
  }
}

int nftw_count;

void walk_nftw(benchmark::State &state, const std::string &tree) {
  for (auto _ : state) {
    nftw_count = 0;
    nftw(
        tree.c_str(),
        [](const char *, const struct stat *, int, FTW *) {
          ++nftw_count;
          return 0;
        },
        100, FTW_PHYS);
    expect(nftw_count == kObjects, "nftw");
  }
}

void walk_iterator(benchmark::State &state, const std::string &tree) {
  for (auto _ : state) {
    int count = 1;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(tree)) {
      struct stat record;
      count += lstat(entry.path().c_str(), &record) == 0;
    }
    expect(count == kObjects, "recursive_directory_iterator");
  }
}

void remove_by_rm(const std::string &tree) {
  std::string path = tree;
  char rm[] = "rm", flags[] = "-rf";
  char *argv[] = {rm, flags, path.data(), nullptr};
  pid_t pid;
  int status = 0;
  if (posix_spawnp(&pid, rm, nullptr, nullptr, argv, environ) != 0) fail("rm");
  waitpid(pid, &status, 0);
}

template <class Remove>
void remove_tree(benchmark::State &state, const std::string &tree, Remove &&remove) {
  for (auto _ : state) {
    state.PauseTiming();
    make_tree(tree);
    state.ResumeTiming();
    remove(tree);
    expect(!fs::exists(tree), "remove");
  }
}

void read_text(benchmark::State &state, const std::string &path) {
  for (auto _ : state) {
    char *text = strutl_read(STG_AREA_HEAP, path.c_str(), 0, 0, 0);
    expect(text != nullptr && text[kTextBytes - 1] == '\n', "strutl_read");
    stg_free(text);
  }
}

void read_fread(benchmark::State &state, const std::string &path) {
  for (auto _ : state) {
    FILE *stream = fopen(path.c_str(), "r");
    char *text = static_cast<char *>(malloc(kTextBytes + 1));
    const size_t count = fread(text, 1, kTextBytes, stream);
    expect(count == kTextBytes && text[kTextBytes - 1] == '\n', "fread");
    free(text);
    fclose(stream);
  }
}

void register_benchmarks(const Folder &folder) {
  const std::string tree = folder.in("tree"), text = folder.in("text");
  const std::string walk_name = "walk 20000 files/", read_name = "read a text of 100 MB/";
  make_tree(tree);
  make_text(text);
  const auto add = [](const std::string &name, auto body) {
    return benchmark::RegisterBenchmark(name.c_str(), body);
  };
  add(walk_name + "norvaks", [=](benchmark::State &state) { walk(state, tree); });
  add(walk_name + "nftw", [=](benchmark::State &state) { walk_nftw(state, tree); });
  add(walk_name + "recursive_directory_iterator",
      [=](benchmark::State &state) { walk_iterator(state, tree); });
  add(read_name + "norvaks", [=](benchmark::State &state) { read_text(state, text); });
  add(read_name + "fread", [=](benchmark::State &state) { read_fread(state, text); });
  // By the clock: the other process's time is not ours.
  const std::string removed = folder.in("removed");
  add("remove 20000 files/norvaks", [=](benchmark::State &state) {
    remove_tree(state, removed,
                [](const std::string &path) { fileutl_rm(path.c_str(), FILEUTL_WALK_RECURSE); });
  })->UseRealTime();
  add("remove 20000 files/rm -rf", [=](benchmark::State &state) {
    remove_tree(state, removed, remove_by_rm);
  })->UseRealTime();
}

}  // namespace

int main(int argc, char **argv) {
  const Folder folder;
  register_benchmarks(folder);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
