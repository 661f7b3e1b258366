// A watchd that runs over a folder, for the tests of it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/folder.h"

inline const std::string kWatchd = NORVAKS_BUILD_DIR "/bin/watchd";

// Waits until `holds`, or fails after a time that no healthy run needs.
testing::AssertionResult eventually(const std::function<bool()> &holds);

// A pipe at which commands wait: `read x < PATH` returns when one is let pass, and also when the
// test dies.
class Gate {
 public:
  explicit Gate(const std::string &path);
  ~Gate();
  Gate(const Gate &) = delete;
  Gate &operator=(const Gate &) = delete;

  void let_pass(int count = 1);
  std::string wait() const { return "read x < " + path_; }

 private:
  std::string path_;
  int fd_;
};

// The server's folder is `in`; what it prints to both streams goes to one file, in order. At the
// end of a test the server must have left, and no process of its commands may be there.
class WatchdTest : public testing::Test {
 protected:
  WatchdTest();
  ~WatchdTest() override;

  // Starts it on `in`; start also waits until it watches. `before_exec` runs in its process.
  void launch(const std::vector<std::string> &options, const std::vector<std::string> &environment,
              const std::function<void()> &before_exec);
  void start(
      const std::vector<std::string> &options, const std::vector<std::string> &environment = {},
      const std::function<void()> &before_exec = [] {});

  void send(int sig) const;
  pid_t pid() const { return child->pid(); }

  // Sends SIGTERM, and waits for the end. Result: how it ended.
  std::string stop();
  std::string finish();

  std::string printed() const { return folder.read("log"); }
  size_t times_printed(const std::string &text) const;
  bool has_printed(const std::string &text) const { return times_printed(text) > 0; }
  testing::AssertionResult prints(const std::string &text, size_t times = 1) const;

  // Has it report until the report contains `text`.
  testing::AssertionResult reports(const std::string &text) const;

  // The names, in /proc, of its children and of its open descriptors.
  std::string children() const;
  size_t descriptors() const;

  std::string in(const std::string &name) const { return folder.path("in/" + name); }

  // Puts a file there whole: one change. Result: its path.
  std::string put(const std::string &name, const std::string &contents = "") const;

  // Changes a file in place.
  void append(const std::string &path, const std::string &text) const;

  ks_test::Folder folder;
  Gate gate{folder.path("gate")};
  std::optional<ks_test::Child> child;
};
