// The walk held against a slow model of it, call by call, on trees and with answers made at random.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fileutl.h"
#include "support/folder.h"
#include "support/random.h"
#include "file/files.h"
#include "file/walking.h"

using ks_test::Folder;
using ks_test::Random;
using ks_test::WalkCall;
using ks_test::Walker;

namespace {

constexpr uint32_t kSeed = 20261121;

enum { kStopOnError = 1, kRecurse = 2, kFollowRoot = 4, kFollowAll = 8, kQuiet = 16 };

// The walk by the words of its description, with whole paths throughout.
class Model {
 public:
  Model(const std::vector<int> &whens, Walker::Answer answer, int flags)
      : whens_(whens), answer_(std::move(answer)), flags_(flags) {}

  int walk(const std::string &root) {
    root_ = root;
    struct stat record;
    if ((flags_ & (kFollowRoot | kFollowAll) ? stat : lstat)(root.c_str(), &record) != 0) {
      report(root);
      return -4;
    }
    int status = 0;
    const bool directory = S_ISDIR(record.st_mode);
    for (size_t i = 0; i < whens_.size(); ++i) {
      if (directory && !(whens_[i] & 1)) continue;
      const int result = call(i, root, "NULL", "NULL", record, 1, 0);
      status |= result & ~3;
      if ((result & 3) || failed()) return status;
    }
    if (!directory) return status;
    if (flags_ & kRecurse) {
      const int result = recurse("", 1);
      status |= result & ~3;
      if ((result & 2) || failed()) return status;
    }
    for (size_t i = 0; i < whens_.size(); ++i) {
      if (!(whens_[i] & 2)) continue;
      const int result = call(i, root, "NULL", "NULL", record, 2, 0);
      status |= result & ~3;
      if ((result & 3) || failed()) break;
    }
    return status;
  }

  const std::vector<WalkCall> &calls() const { return calls_; }
  const std::string &messages() const { return messages_; }

 private:
  // Whether there has been a failure that ends the walk; in the directory where an object cannot be
  // read it does not do so yet.
  bool failed() const { return failures_ > 0 && (flags_ & kStopOnError); }

  // All bits set but perhaps the low two.
  static bool is_failure(int result) { return result >= -4 && result <= -1; }

  static std::string joined(const std::string &first, const std::string &second) {
    if (second.empty()) return first;
    return first.ends_with('/') ? first + second : first + "/" + second;
  }

  void report(const std::string &path) {
    const int error = errno;
    ++failures_;
    if (!(flags_ & kQuiet)) messages_ += ks_test::error_line(path + ": " + strerror(error));
  }

  int call(size_t number, const std::string &path, const std::string &directory,
           const std::string &name, const struct stat &record, int phase, int depth) {
    calls_.push_back({static_cast<int>(number), path, root_, directory, name,
                      record.st_mode & S_IFMT, phase, depth});
    const int result = answer_(calls_.back());
    if (is_failure(result)) ++failures_;
    return result;
  }

  int recurse(const std::string &relative, int depth) {
    const std::string directory = joined(root_, relative);
    DIR *stream = opendir(directory.c_str());
    if (stream == nullptr) {
      report(directory);
      return -4;
    }
    int status = 0;
    while (const struct dirent *entry = readdir(stream)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      const std::string path = joined(directory, name);
      struct stat record;
      if ((flags_ & kFollowAll ? stat : lstat)(path.c_str(), &record) != 0) {
        report(path);
        status = -4;
        continue;
      }
      const int failures_before = failures_;
      const int result = object(relative, name, path, record, depth);
      status |= result;
      if (result & 2 || (failures_ > failures_before && failed())) break;
    }
    closedir(stream);
    return status;
  }

  // One entry of a directory; the result has bit 2 when the walk is to end.
  int object(const std::string &relative, const std::string &name, const std::string &path,
             const struct stat &record, int depth) {
    const bool directory = S_ISDIR(record.st_mode);
    int status = 0;
    for (size_t i = 0; i < whens_.size(); ++i) {
      if (directory && !(whens_[i] & 1)) continue;
      const int result = call(i, path, relative, name, record, 1, depth);
      status |= result & ~1;
      if (result & 3 || (is_failure(result) && failed())) return status;
    }
    if (!directory) return status;
    const int failures_before = failures_;
    const int inside = recurse(relative.empty() ? name : relative + "/" + name, depth + 1);
    status |= inside;
    if (inside & 2 || (failures_ > failures_before && failed())) return status;
    for (size_t i = 0; i < whens_.size(); ++i) {
      if (!(whens_[i] & 2)) continue;
      const int result = call(i, path, relative, name, record, 1, depth);
      status |= result & ~1;
      if (result & 3 || (is_failure(result) && failed())) break;
    }
    return status;
  }

  std::vector<int> whens_;
  Walker::Answer answer_;
  int flags_;
  std::string root_;
  std::vector<WalkCall> calls_;
  std::string messages_;
  int failures_ = 0;  // of callbacks, and of the walk itself
};

// Up to six objects in a directory, and so on below: files, fifos, directories, and links to files,
// to directories without links, to nothing and to themselves.
void plant(Random &random, const std::string &directory, int depth) {
  const unsigned objects = random() / 16 % 7;
  for (unsigned i = 0; i < objects; ++i) {
    static const char *const kNames[] = {"n", "\xff", "a b", "line\nbreak", ".h", "..."};
    const std::string path = directory + "/" + kNames[random() / 16 % 6] + std::to_string(i);
    switch (random() / 16 % 8) {
      case 0:
      case 1:
        ASSERT_EQ(mknod(path.c_str(), S_IFREG | 0644, 0), 0);
        break;
      case 2:
        ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
        break;
      case 3: {
        static const char *const kTargets[] = {"/leaf", "/leaf/file", "/absent", "SELF"};
        const std::string target = kTargets[random() / 16 % 4];
        const std::string top = directory.substr(0, directory.find("/tree"));
        ASSERT_EQ(symlink((target == "SELF" ? path : top + target).c_str(), path.c_str()), 0);
        break;
      }
      default:
        ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
        if (depth < 4) plant(random, path, depth + 1);
        break;
    }
  }
}

// An answer that depends on the seed and on what is called for, not on where the tree happens to
// be: walk and model get the same, and so does the next run. Most are 0.
Walker::Answer answers(uint32_t seed) {
  return [seed](const WalkCall &call) {
    uint32_t hash = seed;
    for (const char c : call.path.substr(call.root.size()) + ":" + std::to_string(call.callback) +
                            ":" + std::to_string(call.phase)) {
      hash = (hash ^ static_cast<unsigned char>(c)) * 16777619;
    }
    static const int kResults[] = {1, 1, 1, 2, 3, -4, -4, -3, -2, -1, -5, -8, -8, -12, 4, 8, 9, 16};
    Random random(hash % 1000000 + 1);
    random.discard(3);
    if (random() / 16 % 10 != 0) return 0;
    return kResults[random() / 16 % std::size(kResults)];
  };
}

// The operations of a walk, by way of the library's own.
constexpr fileutl_walk_ops_t kOperations = {fileutl_stat, fileutl_opendir, fileutl_readdir,
                                            fileutl_closedir};

TEST(FileutlWalkModel, AllFlagsOverTreesAndAnswersMadeAtRandom) {
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  Random random(kSeed);
  for (int turn = 0; turn < 24; ++turn) {
    const Folder folder;
    folder.write("leaf/file", "");
    folder.write("leaf/inner/file", "");
    ASSERT_EQ(mkdir(folder.path("tree").c_str(), 0755), 0);
    plant(random, folder.path("tree"), 0);
    ASSERT_EQ(symlink("tree", folder.path("link").c_str()), 0);
    static const char *const kRoots[] = {"tree", "tree/", "link", "link/", "tree//", "absent"};
    const std::string root = folder.path(kRoots[turn % 6]);
    std::vector<int> whens;
    for (unsigned i = random() / 16 % 4; i > 0; --i) {
      whens.push_back(static_cast<int>(random() / 16 % 4));
    }
    const Walker::Answer answer =
        turn % 3 == 0 ? Walker::Answer([](const WalkCall &) { return 0; }) : answers(random());
    for (int flags = 0; flags < 64; ++flags) {
      Model model(whens, answer, flags);
      const int expected = model.walk(root);
      for (const bool by_operations : {false, true}) {
        Walker walker(whens, answer);
        int status = -1;
        const std::string messages = ks_test::printed_by([&] {
          status = by_operations
                       ? fileutl_walk_tree_any(root.c_str(), walker.chain(), &kOperations, flags)
                       : fileutl_walk_tree(root.c_str(), walker.chain(), flags);
        });
        ASSERT_EQ(walker.calls(), model.calls()) << root << " flags " << flags;
        ASSERT_EQ(status, expected) << root << " flags " << flags;
        ASSERT_EQ(messages, model.messages()) << root << " flags " << flags;
      }
    }
  }
}

}  // namespace
