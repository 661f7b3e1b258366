#include "watchd_server.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

testing::AssertionResult eventually(const std::function<bool()> &holds) {
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return testing::AssertionFailure();
    std::this_thread::sleep_for(2ms);
  }
  return testing::AssertionSuccess();
}

Gate::Gate(const std::string &path) : path_(path) {
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  fd_ = open(path.c_str(), O_RDWR | O_CLOEXEC);  // open for reading too: nobody waits for a writer
}

Gate::~Gate() { close(fd_); }

void Gate::let_pass(int count) {
  for (int i = 0; i < count; ++i) EXPECT_EQ(write(fd_, "\n", 1), 1);
}

WatchdTest::WatchdTest() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // what commands leave behind becomes this process's child
  fs::create_directory(folder.path("in"));
}

WatchdTest::~WatchdTest() {
  EXPECT_FALSE(child.has_value()) << "it still runs, and has printed\n" << printed();
  // What died with its command may have come here, too.
  EXPECT_TRUE(eventually([] { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }))
      << "a process is left behind";
}

void WatchdTest::launch(const std::vector<std::string> &options,
                        const std::vector<std::string> &environment,
                        const std::function<void()> &before_exec) {
  std::vector<std::string> arguments = {kWatchd};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(folder.path("in"));
  const std::string log = folder.write("log", "");
  child.emplace([&] {
    const int fd = open(log.c_str(), O_WRONLY | O_APPEND);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);  // what the test itself was started with
    before_exec();
    ks_test::program(arguments, environment)();
  });
}

void WatchdTest::start(const std::vector<std::string> &options,
                       const std::vector<std::string> &environment,
                       const std::function<void()> &before_exec) {
  launch(options, environment, before_exec);
  ASSERT_TRUE(prints(folder.path("in")));
}

void WatchdTest::send(int sig) const { kill(pid(), sig); }

std::string WatchdTest::finish() {
  const std::string end = child->finish().end();
  child.reset();
  return end;
}

std::string WatchdTest::stop() {
  send(SIGTERM);
  return finish();
}

size_t WatchdTest::times_printed(const std::string &text) const {
  const std::string all = printed();
  size_t count = 0;
  for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
  return count;
}

testing::AssertionResult WatchdTest::prints(const std::string &text, size_t times) const {
  if (eventually([&] { return times_printed(text) >= times; })) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "not printed: " << text << "\nprinted:\n" << printed();
}

testing::AssertionResult WatchdTest::reports(const std::string &text) const {
  size_t reports = times_printed("Report: ");
  const bool found = eventually([&] {
    send(SIGUSR1);
    if (!prints("Report: ", ++reports)) return false;
    const std::string all = printed();
    return all.find(text, all.rfind("Report: ")) != std::string::npos;
  });
  if (found) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "not reported: " << text << "\nprinted:\n" << printed();
}

std::string WatchdTest::children() const {
  const std::string process = std::to_string(pid());
  std::ostringstream text;
  text << std::ifstream("/proc/" + process + "/task/" + process + "/children").rdbuf();
  return text.str();
}

size_t WatchdTest::descriptors() const {
  size_t count = 0;
  for ([[maybe_unused]] const auto &entry :
       fs::directory_iterator("/proc/" + std::to_string(pid()) + "/fd")) {
    ++count;
  }
  return count;
}

std::string WatchdTest::put(const std::string &name, const std::string &contents) const {
  fs::rename(folder.write("whole", contents), in(name));
  return in(name);
}

void WatchdTest::append(const std::string &path, const std::string &text) const {
  std::ofstream(path, std::ios::app | std::ios::binary) << text;
}
