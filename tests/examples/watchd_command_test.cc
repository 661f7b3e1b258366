// The example server as its user sees it: the commands that it runs, and how it ends.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "watchd_server.h"

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

class WatchdCommandTest : public WatchdTest {
 protected:
  // A limit of the server's from now on. Result: the one before.
  rlim_t limit(__rlimit_resource resource, rlim_t soft) const {
    rlimit now = {};
    EXPECT_EQ(prlimit(pid(), resource, nullptr, &now), 0);
    const rlimit changed = {soft, now.rlim_max};
    EXPECT_EQ(prlimit(pid(), resource, &changed, nullptr), 0);
    return now.rlim_cur;
  }

  // Whether `first` was printed, and `second` behind it.
  bool printed_in_order(const std::string &first, const std::string &second) const {
    const std::string all = printed();
    const size_t at = all.find(first);
    return at != std::string::npos && all.find(second, at) != std::string::npos;
  }
};

TEST_F(WatchdCommandTest, AFileThatChangesWhileItsCommandRunsRunsAgainAfterwards) {
  const std::string lock = folder.path("lock");
  start({"-quiet", "0.02", "-do",
         "work() { mkdir " + lock + " || echo TWICE; " + gate.wait() + "; rmdir " + lock +
             "; }; work"},
        {"TRACE_VERBOSITY=1", "TRACE_SUBSYS=watchd"});
  put("file");
  EXPECT_TRUE(prints("started"));
  for (int round = 0; round < 3; ++round) {
    const size_t changes = times_printed("has changed");
    append(in("file"), "2");
    EXPECT_TRUE(prints("has changed", changes + 1));
    EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 1, runs 1,"));
  }
  gate.let_pass();
  EXPECT_TRUE(prints("started", 2));
  gate.let_pass();
  EXPECT_TRUE(prints("finished", 2));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0, runs 2,"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_FALSE(has_printed("TWICE"));
}

TEST_F(WatchdCommandTest, AFileRemovedWhileItsCommandRunsIsForgottenUnlessItComesBack) {
  start({"-quiet", "0.02", "-do", gate.wait() + "; :"});
  put("gone");
  put("back");
  EXPECT_TRUE(prints("started", 2));
  fs::remove(in("gone"));
  fs::remove(in("back"));
  put("back", "new");
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 2,"));
  gate.let_pass(2);
  EXPECT_TRUE(prints("finished", 2));
  EXPECT_TRUE(prints(in("back") + ": started", 2));
  gate.let_pass();
  EXPECT_TRUE(prints("finished", 3));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0, runs 3,"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, NoMoreThanTheGivenNumberRunAtATimeAndTheOthersQueueInOrder) {
  start({"-quiet", "0.02", "-jobs", "2", "-do", gate.wait() + "; :"});
  for (const char *name : {"a", "b"}) put(name);
  EXPECT_TRUE(reports("commands running 2"));
  for (const char *name : {"c", "d", "e", "f"}) {
    put(name);
    EXPECT_TRUE(reports("files waiting 0, files queued " + std::to_string(*name - 'b')));
  }
  fs::remove(in("d"));
  EXPECT_TRUE(reports("files queued 3, commands running 2, runs 2,"));
  gate.let_pass();
  EXPECT_TRUE(prints(in("c") + ": started"));
  EXPECT_TRUE(reports("files queued 2, commands running 2, runs 3,"));
  append(in("e"), "2");  // it is not quiet any more, and takes its place anew
  EXPECT_TRUE(reports("files waiting 0, files queued 2,"));
  gate.let_pass(4);
  EXPECT_TRUE(prints("finished", 5));
  EXPECT_TRUE(printed_in_order(in("f") + ": started", in("e") + ": started"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_FALSE(has_printed(in("d") + ": started"));
}

TEST_F(WatchdCommandTest, PrintsTheOutputLineByLineAlsoALastLineWithoutItsEnd) {
  start({"-quiet", "0.02", "-do",
         R"(printf 'a\n\nto stderr\n' >&2; printf 'tab\tnul\0esc\033[2Jpercent %%s\nlast'; :)"});
  put("file");
  EXPECT_TRUE(prints("finished"));
  EXPECT_EQ(stop(), "exit 0");
  const std::string mark = in("file") + ": | ";
  EXPECT_THAT(printed(), HasSubstr(mark + "a\n" + mark + "\n" + mark + "to stderr\n" + mark +
                                   "tab\tnul\\000esc\\033[2Jpercent %s\n" + mark + "last\n" +
                                   in("file") + ": finished"));
}

TEST_F(WatchdCommandTest, PrintsLongLinesInPieces) {
  start({"-quiet", "0.02", "-do", "cat"});
  const std::string mark = in("file") + ": | ";
  put("file",
      std::string(4096, 'a') + std::string(4095, 'b') + "\n" + std::string(4096, '\1') + "end\n");
  EXPECT_TRUE(prints("finished"));
  EXPECT_EQ(stop(), "exit 0");
  std::string escaped;
  for (int i = 0; i < 4096; ++i) escaped += "\\001";
  EXPECT_THAT(printed(),
              HasSubstr(mark + std::string(4096, 'a') + "\n" + mark + std::string(4095, 'b') +
                        "\n" + mark + escaped + "\n" + mark + "end\n" + in("file") + ": finished"));
}

TEST_F(WatchdCommandTest, ACommandThatDiesFirstIsFinishedWhenItsOutputEnds) {
  start({"-quiet", "0.02", "-do", "(" + gate.wait() + "; echo late) & echo early; :"});
  put("file");
  EXPECT_TRUE(prints("early"));
  EXPECT_TRUE(eventually([&] { return children().empty(); }));
  EXPECT_TRUE(reports("commands running 1"));
  EXPECT_FALSE(has_printed("finished"));
  gate.let_pass();
  EXPECT_TRUE(prints("| late\n" + in("file") + ": finished with status 0\n"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, ACommandThatClosesItsOutputIsFinishedWhenItDies) {
  start({"-quiet", "0.02", "-do", "exec >/dev/null 2>&1; " + gate.wait() + "; exit 3;"});
  const size_t before = descriptors();
  put("file");
  EXPECT_TRUE(prints("started"));
  EXPECT_TRUE(eventually([&] { return descriptors() == before; }));
  EXPECT_TRUE(reports("commands running 1"));
  EXPECT_FALSE(has_printed("finished"));
  gate.let_pass();
  EXPECT_TRUE(prints("watchd: Warning: " + in("file") + ": finished with status 3\n"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, FailuresAreWarnedOfAndCounted) {
  start({"-quiet", "0.02", "-do", "sh"});
  put("status", "exit 7\n");
  put("signal", "kill -9 $$\n");
  put("missing", "exec /no/such/program 2>/dev/null\n");
  put("good", "exit 0\n");
  EXPECT_TRUE(prints(": finished with status 0\n"));
  EXPECT_TRUE(prints("watchd: Warning: " + in("status") + ": finished with status 7\n"));
  EXPECT_TRUE(prints("watchd: Warning: " + in("missing") + ": finished with status 127\n"));
  EXPECT_TRUE(prints(in("signal") + ": "));
  EXPECT_TRUE(reports("commands running 0, runs 4, failures 3\n"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, ACommandKilledByASignalIsWarnedOf) {
  start({"-quiet", "0.02", "-do", "kill -9 $$; :"});
  put("file", "");
  EXPECT_TRUE(prints("watchd: Warning: " + in("file") + ": ended by signal 9\n"));
  EXPECT_TRUE(reports("runs 1, failures 1\n"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, CommandsBeginWithDefaultSignalsAndTheStandardStreamsAlone) {
  start({"-quiet", "0.02", "-do",
         "cat /proc/self/status; readlink /proc/self/fd/0; echo "
         "/proc/self/fd/*; :"},
        {}, [] {
          signal(SIGPIPE, SIG_IGN);
          signal(SIGHUP, SIG_IGN);
          sigset_t blocked;
          sigemptyset(&blocked);
          sigaddset(&blocked, SIGUSR2);
          sigprocmask(SIG_BLOCK, &blocked, nullptr);
          close(STDIN_FILENO);
        });
  put("file");
  EXPECT_TRUE(prints("finished"));
  for (const char *set : {"Blk", "Ign", "Cgt"}) {
    EXPECT_TRUE(has_printed("Sig" + std::string(set) + ":\t0000000000000000\n")) << printed();
  }
  EXPECT_TRUE(has_printed("| /dev/null\n"));
  // The shell has 3 open while it reads the folder.
  EXPECT_TRUE(has_printed("| /proc/self/fd/0 /proc/self/fd/1 /proc/self/fd/2 /proc/self/fd/3\n"))
      << printed();
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, ManyRunsLeaveNoDescriptorAndNoChildBehind) {
  constexpr int kFiles = 50;
  start({"-quiet", "0", "-do", "true"});
  const size_t before = descriptors();
  for (size_t round = 1; round <= 10; ++round) {
    for (int i = 0; i < kFiles; ++i) put(std::to_string(i));
    EXPECT_TRUE(prints("finished with status 0\n", round * kFiles));
  }
  EXPECT_TRUE(reports("commands running 0, runs 500, failures 0\n"));
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(children(), "");
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdCommandTest, ACommandThatCannotBeStartedIsAFailureAndReadingAgainTriesAgain) {
  start({"-quiet", "0.02", "-do", "true"});
  const rlim_t before = limit(RLIMIT_NOFILE, descriptors() + 1);
  put("file");
  EXPECT_TRUE(prints("watchd: Error: " + in("file") +
                     ": unable to start the command: Too many open files\n"));
  EXPECT_TRUE(reports("commands running 0, runs 0, failures 1\n"));
  limit(RLIMIT_NOFILE, before);
  send(SIGHUP);
  EXPECT_TRUE(prints(in("file") + ": finished with status 0\n"));
  EXPECT_EQ(stop(), "exit 0");
}

#ifndef __SANITIZE_ADDRESS__  // it ends a process that has no storage

TEST_F(WatchdCommandTest, WithoutStorageItGoesOnAndReadingAgainMakesUpForIt) {
  start({"-quiet", "0", "-do", "true"});
  put("before");
  EXPECT_TRUE(prints("finished"));
  const rlim_t before = limit(RLIMIT_AS, 1);
  int files = 0;
  const auto name = [](int file) { return std::string(200, 'n') + std::to_string(file); };
  EXPECT_TRUE(eventually([&] {
    for (int i = 0; i < 100 && files < 20000; ++i) put(name(files++));
    return has_printed("watchd: Error: Unable to follow \"" + in(std::string(200, 'n')));
  }));
  EXPECT_TRUE(has_printed("watchd: Error: No more memory available.\n"));
  limit(RLIMIT_AS, before);
  send(SIGHUP);
  EXPECT_TRUE(prints("Reading the directories again"));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0,"));
  for (int file = 0; file < files; ++file) {
    EXPECT_TRUE(has_printed(in(name(file)) + ": started\n")) << file;
  }
  EXPECT_EQ(stop(), "exit 0");
}

#endif

TEST_F(WatchdCommandTest, LosesNoLineWhenSignalsComeWhileItsOutputIsFull) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  launch({"-quiet", "0.02", "-do", "seq 1 9000; :"}, {}, [&] { dup2(ends[1], STDOUT_FILENO); });
  close(ends[1]);
  char block[4096];
  ASSERT_GT(read(ends[0], block, sizeof block), 0);  // it watches
  put("file");
  int held = 0;
  EXPECT_TRUE(eventually([&] { return ioctl(ends[0], FIONREAD, &held) == 0 && held > 65000; }));
  for (int i = 0; i < 5; ++i) send(SIGUSR1);
  std::string all;
  while (all.find("finished") == std::string::npos) {
    const ssize_t got = read(ends[0], block, sizeof block);
    ASSERT_GT(got, 0);
    all.append(block, static_cast<size_t>(got));
  }
  EXPECT_EQ(stop(), "exit 0");
  size_t at = 0;
  for (int i = 1; i <= 9000; ++i) {
    at = all.find(in("file") + ": | " + std::to_string(i) + "\n", at);
    ASSERT_NE(at, std::string::npos) << i;
  }
  close(ends[0]);
}

TEST_F(WatchdCommandTest, LeavesWhenItsCommandsHaveEndedAndTheirOutputIsRead) {
  start({"-quiet", "0.02", "-do",
         "trap 'echo bye; exit 5' TERM; echo ready; " + gate.wait() + "; :"});
  put("file");
  EXPECT_TRUE(prints("ready"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_THAT(printed(), EndsWith("Leaving, commands running: 1\n" + in("file") +
                                  ": | bye\nwatchd: Warning: " + in("file") +
                                  ": finished with status 5\nGoodbye: runs 1, failures 1\n"));
}

TEST_F(WatchdCommandTest, AnInterruptLeavesAsTermDoesAndWithTheWholeGroupOfACommand) {
  start({"-quiet", "0.02", "-do", "echo ready; sleep 60; :"});
  put("file");
  EXPECT_TRUE(prints("ready"));
  EXPECT_TRUE(eventually([&] { return !children().empty(); }));
  send(SIGINT);
  EXPECT_EQ(finish(), "exit 0");
  EXPECT_TRUE(has_printed("watchd: Warning: " + in("file") + ": ended by signal 15\n"));
}

TEST_F(WatchdCommandTest, StartsNothingWhileItLeavesAndKillsAtTheSecondTerm) {
  start({"-quiet", "0.1", "-jobs", "1", "-do",
         "trap '' TERM; echo ready; while :; do " + gate.wait() + "; done; :"});
  put("file");
  EXPECT_TRUE(prints("ready"));
  put("queued");
  EXPECT_TRUE(reports("files queued 1"));
  put("waiting");
  EXPECT_TRUE(reports("files waiting 1"));
  send(SIGTERM);
  EXPECT_TRUE(prints("Leaving, commands running: 1\n"));
  put("late");
  send(SIGHUP);
  EXPECT_TRUE(prints("Reading the directories again"));
  EXPECT_TRUE(reports("files waiting 0, files queued 2, commands running 1"));
  EXPECT_FALSE(has_printed("ended"));
  send(SIGTERM);
  EXPECT_EQ(finish(), "exit 0");
  EXPECT_THAT(printed(),
              EndsWith("Killing what still runs, commands running: 1\nwatchd: Warning: " +
                       in("file") + ": ended by signal 9\nGoodbye: runs 1, failures 1\n"));
  EXPECT_EQ(times_printed("started"), 1u);
}

TEST_F(WatchdCommandTest, TheSecondTermDoesNotWaitForOutputThatOthersHoldOpen) {
  start({"-quiet", "0.02", "-do", "(" + gate.wait() + ") & printf partly; exit 0;"});
  put("file");
  EXPECT_TRUE(prints("started"));
  EXPECT_TRUE(eventually([&] { return children().empty(); }));
  send(SIGTERM);
  EXPECT_TRUE(prints("Leaving, commands running: 1\n"));
  EXPECT_FALSE(has_printed("Goodbye"));
  send(SIGTERM);
  EXPECT_EQ(finish(), "exit 0");
  EXPECT_THAT(printed(), EndsWith("running: 1\n" + in("file") + ": | partly\n" + in("file") +
                                  ": finished with status 0\nGoodbye: runs 1, failures 0\n"));
  gate.let_pass();
}

#ifndef __SANITIZE_ADDRESS__

TEST(WatchdStorage, ValgrindFindsNothingWrongAndNothingLost) {
  ks_test::Folder folder;
  folder.write("in/old", "");
  ks_test::Child child(
      ks_test::program({"sh", "-c",
                        "exec valgrind -q --suppressions=" NORVAKS_SOURCE_DIR
                        "/tests/support/valgrind.supp --error-exitcode=9 --leak-check=full "
                        "--show-leak-kinds=definite,indirect "
                        "--errors-for-leak-kinds=definite,indirect $0 -quiet 0.05 -do cat $1 "
                        ">$2 2>&1",
                        kWatchd, folder.path("in"), folder.path("log")}));
  const auto prints = [&](const std::string &text) {
    return eventually([&] { return folder.read("log").find(text) != std::string::npos; });
  };
  EXPECT_TRUE(prints("Watching"));
  folder.write("in/one", "1\n");
  folder.write("in/two", "2");
  EXPECT_TRUE(prints("one: finished") && prints("two: finished"));
  kill(child.pid(), SIGHUP);
  EXPECT_TRUE(prints("again"));
  folder.write("in/waits", "");
  kill(child.pid(), SIGTERM);
  EXPECT_EQ(child.finish().end(), "exit 0");
  EXPECT_THAT(folder.read("log"), EndsWith("Goodbye: runs 2, failures 0\n"));
}

#endif

}  // namespace
