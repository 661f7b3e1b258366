// The example server as its user sees it: what it watches, and when it runs the command.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/capability.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/system_calls.h"
#include "watchd_server.h"

namespace fs = std::filesystem;
using ks_test::Outcome;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Outcome watchd(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), kWatchd);
  return ks_test::run_program(arguments);
}

TEST(WatchdUsage, WrongUseTellsItAndEndsWithTwo) {
  const struct {
    std::vector<std::string> arguments;
    std::string complaint;
  } cases[] = {
      {{}, ""},
      {{"-do", "true"}, ""},
      {{"/tmp"}, ""},
      {{"-quiet", "1", "/tmp"}, ""},
      {{"-do"}, "Bad value for option \"-do\"\n"},
      {{"-do", "", "/tmp"}, "Bad value for option \"-do\"\n"},
      {{"-x", "1", "-do", "true", "/tmp"}, "Unknown option \"-x\"\n"},
      {{"-quiet", "soon", "-do", "true", "/tmp"}, "Bad value for option \"-quiet\"\n"},
      {{"-quiet", "-1", "-do", "true", "/tmp"}, "Bad value for option \"-quiet\"\n"},
      {{"-quiet", "nan", "-do", "true", "/tmp"}, "Bad value for option \"-quiet\"\n"},
      {{"-quiet", "86400.1", "-do", "true", "/tmp"}, "Bad value for option \"-quiet\"\n"},
      {{"-jobs", "0", "-do", "true", "/tmp"}, "Bad value for option \"-jobs\"\n"},
      {{"-jobs", "101", "-do", "true", "/tmp"}, "Bad value for option \"-jobs\"\n"},
      {{"-jobs", "3x", "-do", "true", "/tmp"}, "Bad value for option \"-jobs\"\n"},
  };
  for (const auto &[arguments, complaint] : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Outcome outcome = watchd(arguments);
    EXPECT_THAT(outcome.err, StartsWith((complaint.empty() ? "" : "watchd: Error: " + complaint) +
                                        "watchd: Error: usage: watchd [-quiet SECONDS] "));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.end(), "exit 2");
  }
}

// A superuser's programs read everything, unless this is taken from them.
void drop_the_power_to_read_everything() {
  prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
  prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
}

TEST(WatchdUsage, DirectoriesThatCannotBeWatchedAreAllReportedAndEndItWithOne) {
  ks_test::Folder folder;
  const std::string file = folder.write("file", ""), missing = folder.path("missing");
  const std::string closed = folder.path("closed");
  mkdir(closed.c_str(), 0);
  const Outcome outcome = ks_test::in_child([&] {
    drop_the_power_to_read_everything();
    ks_test::program({kWatchd, "-do", "true", folder.path(), file, missing, closed})();
  });
  EXPECT_EQ(outcome.out, "Watching \"" + folder.path() + "\"\n");
  EXPECT_EQ(outcome.err, "watchd: Error: Unable to watch \"" + file +
                             "\": Not a directory\n"
                             "watchd: Error: Unable to watch \"" +
                             missing +
                             "\": No such file or directory\n"
                             "watchd: Error: Unable to watch \"" +
                             closed + "\": Permission denied\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(WatchdUsage, ADirectoryWhoseReadingFailsIsToldAndEndsIt) {
  ks_test::Folder folder;
  const Outcome outcome = ks_test::in_child([&] {
    ks_test::fail_system_call(SYS_getdents64, 0, 0, EIO);
    ks_test::program({kWatchd, "-do", "true", folder.path()})();
  });
  EXPECT_EQ(outcome.err,
            "watchd: Error: Unable to read \"" + folder.path() + "\": Input/output error\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(WatchdUsage, ADirectoryIsWatchedUnderOneName) {
  ks_test::Folder folder;
  const Outcome outcome = watchd({"-do", "true", folder.path(), folder.path() + "/."});
  EXPECT_EQ(outcome.err,
            "watchd: Error: \"" + folder.path() + "/.\" is watched already, under another name\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(WatchdUsage, ADescriptorTooLargeForTheLoopEndsIt) {
  ks_test::Folder folder;
  const Outcome outcome = ks_test::in_child([&] {
    const rlimit enough = {2000, 2000};
    setrlimit(RLIMIT_NOFILE, &enough);
    for (int fd = 3; fd <= 1024; ++fd) dup2(STDOUT_FILENO, fd);
    ks_test::program({kWatchd, "-do", "true", folder.path()})();
  });
  EXPECT_EQ(outcome.err,
            "watchd: Error: File descriptor (1025) too large for rt\n"
            "watchd: Error: Unable to watch \"" +
                folder.path() + "\": Too many open files\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST_F(WatchdTest, RunsTheCommandForAFileThatHasChangedAndIsQuiet) {
  start({"-quiet", "0.05", "-do", "cat"});
  const std::string file = put("file", "one\ntwo\n");
  EXPECT_TRUE(prints("finished"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_EQ(printed(), "Watching \"" + folder.path("in") + "\"\n" + file + ": started\n" + file +
                           ": | one\n" + file + ": | two\n" + file +
                           ": finished with status 0\n"
                           "Leaving, commands running: 0\nGoodbye: runs 1, failures 0\n");
}

TEST_F(WatchdTest, WatchesSeveralDirectories) {
  fs::create_directory(folder.path("more"));
  start({"-quiet", "0.02", "-do", "cat", folder.path("more") + "/"});
  put("a", "1\n");
  folder.write("more/b", "2\n");
  EXPECT_TRUE(prints(in("a") + ": | 1\n"));
  EXPECT_TRUE(prints(folder.path("more/b") + ": | 2\n"));
  EXPECT_TRUE(reports("directories watched 2 of 2"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdTest, AChangeStartsTheQuietTimeAnew) {
  // A run is as long as the quiet time behind the last change, however often the file changed.
  start({"-quiet", "0.4", "-do", "age() { stat -c %.Y \"$1\"; date +%s.%N; }; age"});
  for (int i = 0; i < 8; ++i) {
    append(in("file"), "x");
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
  }
  EXPECT_TRUE(prints("finished"));
  EXPECT_EQ(stop(), "exit 0");
  const std::string all = printed(), mark = in("file") + ": | ";
  const size_t changed = all.find(mark), now = all.find(mark, changed + 1);
  ASSERT_NE(now, std::string::npos);
  EXPECT_GE(atof(&all[now + mark.size()]) - atof(&all[changed + mark.size()]), 0.39);
}

TEST_F(WatchdTest, DoesNothingForFilesThatHaveNotChanged) {
  folder.write("in/old", "");
  start({"-quiet", "0", "-do", "true"});
  send(SIGHUP);
  EXPECT_TRUE(prints("Reading the directories again"));
  put("new", "");
  EXPECT_TRUE(prints(in("new") + ": finished"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_FALSE(has_printed("old"));
}

TEST_F(WatchdTest, OnlyRegularFilesCount) {
  start({"-quiet", "0.02", "-do", "true"});
  folder.write("target", "");
  fs::create_directory(in("directory"));
  fs::create_symlink(folder.path("target"), in("link"));
  mkfifo(in("pipe").c_str(), 0600);
  put("file", "");
  EXPECT_TRUE(prints("finished"));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0, runs 1,"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdTest, FilesRemovedBeforeTheyAreQuietAreForgotten) {
  start({"-quiet", "86400", "-do", "true"});
  put("deleted", "");
  put("moved", "");
  put("stays", "");
  EXPECT_TRUE(reports("files waiting 3,"));
  fs::remove(in("deleted"));
  fs::rename(in("moved"), folder.path("elsewhere"));
  EXPECT_TRUE(reports("files waiting 1,"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_THAT(printed(), EndsWith("Goodbye: runs 0, failures 0\n"));
}

TEST_F(WatchdTest, NamesAreShownInOneLineAndGivenAsTheyAre) {
  start({"-quiet", "0.02", "-do", "cat"}, {"LC_ALL=C.UTF-8"});
  put("ä\n\033[1m\xff\\$(x) \"'", "right\n");
  EXPECT_TRUE(prints("in/ä\\012\\033[1m\\377\\$(x) \"': | right\n"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdTest, WhatTheLocaleCannotPrintIsShownAsNumbers) {
  start({"-quiet", "0.02", "-do", "true"}, {"LC_ALL=C"});
  put("ä", "");
  EXPECT_TRUE(prints("in/\\303\\244: finished"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdTest, AFileWhosePathIsTooLongIsReported) {
  std::string deep = folder.path();
  while (deep.size() < 3900) deep += "/" + std::string(100, 'd');
  fs::create_directories(deep);
  const int fd = open(deep.c_str(), O_DIRECTORY | O_CLOEXEC);
  const std::string name(200, 'n');
  start({"-quiet", "0.02", "-do", "true", deep});
  close(openat(fd, name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  EXPECT_TRUE(prints("watchd: Error: Unable to follow \"" + deep));
  EXPECT_TRUE(prints("\": File name too long\n"));
  put("file", "");
  EXPECT_TRUE(prints("finished"));
  EXPECT_EQ(stop(), "exit 0");
  unlinkat(fd, name.c_str(), 0);
  close(fd);
}

TEST_F(WatchdTest, ReadingAgainFindsWhatNobodyTold) {
  const std::string old = folder.write("in/old", "");
  folder.write("in/untouched", "");
  start({"-quiet", "0", "-do", "true"});
  EXPECT_TRUE(reports("directories watched 1 of 1"));  // by then it knows the files
  // Setting the times of a file is no change that a watch tells of.
  const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, old.c_str(), times, 0), 0);
  send(SIGHUP);
  EXPECT_TRUE(prints(old + ": finished"));
  send(SIGHUP);
  EXPECT_TRUE(prints("Reading the directories again", 2));
  put("last", "");
  EXPECT_TRUE(prints(in("last") + ": finished"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_EQ(times_printed("started"), 2u) << printed();
}

TEST_F(WatchdTest, ADirectoryThatCameBackIsWatchedAgain) {
  folder.write("in/file", "");
  start({"-quiet", "0.02", "-do", "cat"});
  fs::remove_all(folder.path("in"));
  EXPECT_TRUE(prints("watchd: Warning: Directory \"" + folder.path("in") + "\" is gone\n"));
  EXPECT_TRUE(reports("directories watched 0 of 1"));
  send(SIGHUP);
  EXPECT_TRUE(prints("watchd: Error: Unable to watch \"" + folder.path("in") +
                     "\": No such file or directory\n"));
  fs::create_directory(folder.path("in"));
  put("file", "made while it was not watched\n");
  send(SIGHUP);
  EXPECT_TRUE(prints("Watching \"" + folder.path("in") + "\"\n", 2));
  EXPECT_TRUE(prints("file: | made while it was not watched\n"));
  put("file", "watched\n");
  EXPECT_TRUE(prints("file: | watched\n"));
  EXPECT_TRUE(reports("directories watched 1 of 1"));
  EXPECT_EQ(stop(), "exit 0");
}

TEST_F(WatchdTest, ADirectoryThatWasMovedAwayIsNotFollowed) {
  folder.write("in/same", "");
  folder.write("in/file", "");
  start({"-quiet", "0.02", "-do", "true"});
  fs::rename(folder.path("in"), folder.path("away"));
  EXPECT_TRUE(prints("is gone\n"));
  folder.write("away/file", "changed");
  folder.write("away/file2", "new");
  fs::rename(folder.path("away"), folder.path("in"));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0, runs 0,"));
  send(SIGHUP);
  EXPECT_TRUE(prints("finished", 2));
  EXPECT_TRUE(has_printed(in("file") + ": finished"));
  EXPECT_TRUE(has_printed(in("file2") + ": finished"));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0, runs 2,"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_FALSE(has_printed("same"));
}

TEST_F(WatchdTest, ADirectoryReplacedUnseenIsWatchedInItsNewPlace) {
  start({"-quiet", "0.02", "-do", "true"});
  send(SIGSTOP);
  fs::rename(folder.path("in"), folder.path("away"));
  fs::create_directory(folder.path("in"));
  send(SIGHUP);
  send(SIGCONT);
  EXPECT_TRUE(prints("Watching", 2));
  folder.write("away/file", "");
  put("file", "");
  EXPECT_TRUE(prints("finished"));
  EXPECT_TRUE(reports("directories watched 1 of 1, files waiting 0,"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_EQ(times_printed("started"), 1u) << printed();
}

TEST_F(WatchdTest, WhatWasLostWhenChangesCameTooFastIsFoundByReadingAgain) {
  int limit = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
  ASSERT_GT(limit, 0);
  const std::string vanishes = folder.write("in/vanishes", "");
  std::string here = in("a"), there = in("b");
  start({"-quiet", "0", "-do", "true"});
  append(here, "");
  EXPECT_TRUE(prints(here + ": finished"));
  send(SIGSTOP);
  for (int i = 0; i < limit / 2 + 1; ++i) {  // two events each
    ASSERT_EQ(rename(here.c_str(), there.c_str()), 0);
    swap(here, there);
  }
  fs::remove(vanishes);
  put("last", "");
  send(SIGCONT);
  EXPECT_TRUE(prints("watchd: Warning: Changes came too fast; reading the directories again\n"));
  EXPECT_TRUE(prints(in("last") + ": finished"));
  EXPECT_TRUE(reports("files waiting 0, files queued 0, commands running 0,"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_FALSE(has_printed("vanishes"));
}

TEST_F(WatchdTest, TracesWhenTheEnvironmentAsksForIt) {
  start({"-quiet", "86400", "-do", "true"}, {"TRACE_VERBOSITY=1", "TRACE_SUBSYS=watchd"});
  put("file");
  EXPECT_TRUE(prints("(watchd): \"" + in("file") + "\" has changed\n"));
  EXPECT_EQ(stop(), "exit 0");
}

std::vector<std::string> language(const std::string &locale) {
  return {"LC_ALL=C.UTF-8", "LANG=" + locale,
          "NLSPATH=" NORVAKS_BUILD_DIR "/share/norvaks/nls/%l/%N.cat:" NORVAKS_BUILD_DIR
          "/share/watchd/nls/%l/%N.cat"};
}

TEST_F(WatchdTest, SpeaksGerman) {
  start({"-quiet", "0.02", "-do", "echo Hallo; exit 3;"}, language("de_DE.UTF-8"));
  put("file", "");
  EXPECT_TRUE(prints("beendet"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_EQ(printed(), "\"" + folder.path("in") + "\" wird beobachtet\n" + in("file") +
                           ": gestartet\n" + in("file") +
                           ": | Hallo\nwatchd: Warnung: " + in("file") +
                           ": mit Status 3 beendet\n"
                           "Das Programm wird beendet, laufende Befehle: 0\n"
                           "Auf Wiedersehen: Läufe 1, Fehlschläge 1\n");
}

TEST_F(WatchdTest, SpeaksJapanese) {
  start({"-quiet", "0.02", "-do", "echo"}, language("ja_JP.UTF-8"));
  put("file", "");
  EXPECT_TRUE(prints(in("file") + ": ステータス 0 で終了\n"));
  EXPECT_EQ(stop(), "exit 0");
  EXPECT_THAT(printed(), EndsWith("さようなら: 実行回数 1、失敗 0\n"));
}

TEST_F(WatchdTest, GoesOnWhereItsOutputIsLostAndTellsAtTheEnd) {
  const std::function<void()> outputs[] = {
      [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); },
      [] {
        int ends[2];
        if (pipe(ends) == 0) dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);  // nobody reads
        close(ends[1]);
      },
  };
  for (size_t round = 0; round < std::size(outputs); ++round) {
    const std::string seen = folder.path("seen" + std::to_string(round));
    launch({"-quiet", "0", "-do", "touch " + seen + "; :"}, {}, outputs[round]);
    EXPECT_TRUE(eventually([&] {
      append(in("file"), "x");  // which is seen once it watches
      return fs::exists(seen);
    }));
    EXPECT_EQ(stop(), "exit 1");
    // A command that still ran is told, too, since SIGTERM has ended it.
    EXPECT_THAT(printed(), EndsWith("watchd: Error: Unable to write all of the output\n"));
  }
}

TEST_F(WatchdTest, WaitsWithoutWorking) {
  start({"-quiet", "86400", "-do", "true"});
  put("file");
  EXPECT_TRUE(reports("files waiting 1,"));
  const auto switches = [&] {
    const std::string status = "/proc/" + std::to_string(pid()) + "/status";
    std::ifstream lines(status);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("voluntary_ctxt_switches:")) return atoi(&line[24]);
    }
    return -1;
  };
  const int before = switches();
  ASSERT_GT(before, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LE(switches(), before + 1);  // it may not have slept yet when it was looked at
  EXPECT_EQ(stop(), "exit 0");
}

}  // namespace
