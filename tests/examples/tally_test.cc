// The example tool as its user sees it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "support/child.h"
#include "support/folder.h"
#include "support/system_calls.h"
#include "support/terminal.h"

using ks_test::Child;
using ks_test::Folder;
using ks_test::Outcome;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

namespace {

const std::string kTally = NORVAKS_BUILD_DIR "/bin/tally";

Outcome tally(std::vector<std::string> arguments, std::vector<std::string> environment = {}) {
  arguments.insert(arguments.begin(), kTally);
  return ks_test::run_program(arguments, environment);
}

std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> result;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
    result.push_back(text.substr(at, end - at));
  }
  return result;
}

std::vector<std::string> language(const std::string &locale) {
  // LC_ALL is for the system's own texts; the catalogs go by LANG.
  return {"LC_ALL=C", "LANG=" + locale,
          "NLSPATH=" NORVAKS_BUILD_DIR "/share/norvaks/nls/%l/%N.cat:" NORVAKS_BUILD_DIR
          "/share/tally/nls/%l/%N.cat"};
}

TEST(Tally, CountsLinesAndBytesOfTheFilesNamed) {
  Folder folder;
  const std::string one = folder.write("one", "a\nb\n");
  const std::string two = folder.write("two", std::string(100, 'x') + "\nno newline at the end");
  const std::string none = folder.write("none", "");
  const Outcome outcome = tally({one, two, none});
  EXPECT_EQ(outcome.out, "2   4  " + one + "\n" + "1 122  " + two + "\n" + "0   0  " + none + "\n" +
                             "3 126  in folder " + folder.path() + "\n3 126  in all, 3 files\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Tally, CountsAWholeTreeWithoutFollowingLinks) {
  Folder folder;
  folder.write("a", "1\n");
  folder.write("sub/b", "1\n2\n");
  folder.write("sub/deep/c", "");
  std::filesystem::create_symlink(folder.path("a"), folder.path("sub/link"));
  std::filesystem::create_directory_symlink(folder.path(), folder.path("sub/loop"));
  mkfifo(folder.path("sub/pipe").c_str(), 0600);
  const Outcome outcome = tally({folder.path()});
  EXPECT_THAT(
      lines(outcome.out),
      UnorderedElementsAre("1 2  " + folder.path("a"), "2 4  " + folder.path("sub/b"),
                           "0 0  " + folder.path("sub/deep/c"), "1 2  in folder " + folder.path(),
                           "2 4  in folder " + folder.path("sub"),
                           "0 0  in folder " + folder.path("sub/deep"), "3 6  in all, 3 files"));
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Tally, SumsUpFoldersSortedByPath) {
  Folder folder;
  std::vector<std::string> expected;
  for (char name = 'a'; name <= 'z'; ++name) {
    const std::string sub = std::string("sub/") + name;
    folder.write(sub + "/one", "1\n");
    folder.write(sub + "/two", "12\n");
    expected.push_back(" 2   5  in folder " + folder.path(sub));
  }
  const std::vector<std::string> printed = lines(tally({folder.path()}).out);
  ASSERT_EQ(printed.size(), 26u * 2 + 26 + 1);
  EXPECT_EQ(std::vector(printed.begin() + 52, printed.end() - 1), expected);
  EXPECT_EQ(printed.back(), "52 130  in all, 52 files");
}

// On a terminal with these styles the total of a folder shows the folder's name in bold; the other
// tests, whose output is a file, see the bare name.
TEST(Tally, FoldersStandOutOnATerminal) {
  Folder folder;
  const std::string file = folder.write("f", "1\n");
  const Outcome outcome =
      ks_test::on_terminal(ks_test::program({kTally, file}, {"TERM=xterm-256color"}));
  EXPECT_EQ(outcome.out, "1 2  " + file + "\n1 2  in folder \x1b[27m\x1b[24m\x1b[1m" +
                             folder.path() + "\x1b(B\x1b[m\x1b[27m\x1b[24m\n" +
                             "1 2  in all, 1 files\n");
}

TEST(Tally, FilesWithoutAFolderInTheirNameLieInTheCurrentOne) {
  Folder folder;
  folder.write("f", "1\n");
  const Outcome outcome = ks_test::run_program({"env", "-C", folder.path(), kTally, "f"});
  EXPECT_EQ(outcome.out, "1 2  f\n1 2  in folder .\n1 2  in all, 1 files\n");
}

TEST(Tally, ReportsWhatItCannotOpenOrReadAndCountsTheOthers) {
  Folder folder;
  const std::string good = folder.write("good", "1\n");
  const std::string missing = folder.path("missing");
  // Reading a process's memory at address 0 fails.
  const Outcome outcome = tally({missing, "/proc/self/mem", good});
  EXPECT_EQ(outcome.out,
            "1 2  " + good + "\n1 2  in folder " + folder.path() + "\n1 2  in all, 1 files\n");
  EXPECT_EQ(outcome.err,
            "tally: Error: " + missing +
                ": No such file or directory\n"
                "tally: Error: Unable to read \"/proc/self/mem\": Input/output error\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

// Without the capabilities by which root reads everything.
TEST(Tally, GoesOnPastFoldersThatItMayNotRead) {
  Folder folder;
  folder.write("a/f", "1\n");
  folder.write("closed/f", "1\n");
  folder.write("z/f", "1\n");
  std::filesystem::permissions(folder.path("closed"), std::filesystem::perms::none);
  const Outcome outcome = ks_test::run_program(
      {"setpriv", "--bounding-set=-dac_override,-dac_read_search", kTally, folder.path()});
  EXPECT_EQ(lines(outcome.out).back(), "2 4  in all, 2 files");
  EXPECT_EQ(outcome.err, "tally: Error: " + folder.path("closed") + ": Permission denied\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(Tally, FollowsLinksBelowFoldersOnRequest) {
  Folder folder;
  Folder elsewhere;
  elsewhere.write("far/g", "1\n2\n");
  folder.write("f", "1\n");
  std::filesystem::create_symlink(elsewhere.path("far/g"), folder.path("file"));
  std::filesystem::create_directory_symlink(elsewhere.path("far"), folder.path("sub"));
  EXPECT_EQ(lines(tally({folder.path()}).out).back(), "1 2  in all, 1 files");
  EXPECT_EQ(lines(tally({"-follow", folder.path()}).out).back(), "5 10  in all, 3 files");
}

TEST(Tally, LinksThatAreNamedAreFollowed) {
  Folder folder;
  folder.write("real/f", "1\n");
  std::filesystem::create_directory_symlink(folder.path("real"), folder.path("named"));
  EXPECT_EQ(lines(tally({folder.path("named")}).out).back(), "1 2  in all, 1 files");
}

TEST(Tally, FollowedLoopsEndInTheSystemsError) {
  Folder folder;
  folder.write("f", "1\n");
  std::filesystem::create_directory_symlink(folder.path(), folder.path("loop"));
  const Outcome outcome = tally({"-follow", folder.path()});
  EXPECT_THAT(outcome.err, HasSubstr("loop: Too many levels of symbolic links\n"));
  EXPECT_EQ(outcome.end(), "exit 1");
}

void change_at(const std::string &path, time_t when) {
  const timespec times[] = {{when, 0}, {when, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(Tally, CountsWhatHasChangedSinceADateAndShowsTheDate) {
  Folder folder;
  const std::string before = folder.write("before", "1\n");
  const std::string then = folder.write("then", "1\n2\n");
  const std::string after = folder.write("after", "1\n2\n3\n");
  constexpr time_t kDate = 1784109600;  // 15 July 2026, 10:00 UTC
  change_at(before, kDate - 1);
  change_at(then, kDate);
  change_at(after, kDate + 1);
  for (const char *date : {"15-jul-2026.10:00", "20260715T100000Z", "2026-07-15T12:00+02"}) {
    const Outcome outcome = tally({"-since", date, folder.path()}, {"TZ=UTC"});
    EXPECT_EQ(lines(outcome.out).front(), "Files that have changed since 2026-07-15T10:00:00Z")
        << date;
    EXPECT_EQ(lines(outcome.out).back(), "5 10  in all, 2 files") << date;
    EXPECT_EQ(outcome.end(), "exit 0") << date;
  }
}

TEST(Tally, TellsHowDatesAreWritten) {
  const Outcome outcome = tally({"-since", "someday", "/etc/passwd"});
  EXPECT_THAT(outcome.err, testing::StartsWith("tally: Error: No date: \"someday\"\n"
                                               "<date-time> = <date>.<time> | <date> | <time>"));
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "exit 2");
}

TEST(Tally, TellsItsUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {}, {"-follow"}, {"-since"}, {"-since", "today"}, {"-unknown", "/etc/passwd"}};
  for (const auto &arguments : wrong) {
    const Outcome outcome = tally(arguments);
    EXPECT_EQ(outcome.err,
              "tally: Error: usage: tally [-since DATE] [-follow] FILE-OR-FOLDER...\n");
    EXPECT_EQ(outcome.end(), "exit 2");
  }
}

TEST(Tally, SpeaksGermanAndJapanese) {
  Folder folder;
  const std::string file = folder.write("f", "1\n");
  const std::string bad = "/proc/self/mem";
  const Outcome german = tally({file, bad}, language("de_DE.UTF-8"));
  EXPECT_EQ(lines(german.out).back(), "1 2  insgesamt, 1 Dateien");
  EXPECT_EQ(german.err,
            "tally: Fehler: \"" + bad + "\" kann nicht gelesen werden: Input/output error\n");
  const Outcome japanese = tally({file, bad}, language("ja_JP.UTF-8"));
  EXPECT_EQ(lines(japanese.out).back(), "1 2  合計、1 ファイル");
  EXPECT_EQ(japanese.err, "tally: エラー: \"" + bad + "\" を読み込めません: Input/output error\n");
  const Outcome english = tally({file}, language("fr_FR.UTF-8"));
  EXPECT_EQ(lines(english.out).back(), "1 2  in all, 1 files");
}

TEST(Tally, TracesWhenTheEnvironmentAsksForIt) {
  Folder folder;
  const std::string file = folder.write("f", "1\n");
  const Outcome traced = tally({file}, {"TRACE_VERBOSITY=1", "TRACE_SUBSYS=tally"});
  EXPECT_THAT(traced.err,
              MatchesRegex(">>> [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9][0-9][0-9] \\(tally\\): "
                           "counting \"" +
                           file + "\"\n"));
  EXPECT_EQ(tally({file}, {"TRACE_VERBOSITY=0", "TRACE_SUBSYS=tally"}).err, "");
  EXPECT_EQ(tally({file}, {"TRACE_VERBOSITY=1", "TRACE_SUBSYS=other"}).err, "");
}

TEST(Tally, SaysThatItHasNoPlaceForItsTemporaryFile) {
  Folder folder;
  const Outcome outcome = tally({"/etc/passwd"}, {"TMPDIR=" + folder.path("missing")});
  EXPECT_THAT(outcome.err, HasSubstr("tally: Error: Unable to make the temporary file"));
  EXPECT_EQ(outcome.end(), "exit 1");
}

// With a folder of its own for its temporary file.
class TallyTemporary : public testing::Test {
 protected:
  TallyTemporary() { std::filesystem::create_directory(folder.path("tmp")); }

  bool has_temporary_file() const { return !std::filesystem::is_empty(folder.path("tmp")); }

  // The body of a child that counts `file`.
  std::function<void()> counting() const {
    return ks_test::program({kTally, file}, {"TMPDIR=" + folder.path("tmp")});
  }

  Folder folder;
  const std::string file = folder.write("file", "1\n");
};

TEST_F(TallyTemporary, AFailingSystemCallIsToldAndTheFileRemoved) {
  const struct {
    long number;
    int argument;
    unsigned bits;
    std::string says;
  } calls[] = {
      {SYS_openat, 2, O_CREAT | O_EXCL, "Unable to make the temporary file"},
      {SYS_read, 2, 65536, "Unable to read \"" + file + "\": "},
      {SYS_pwrite64, 0, 0, "Unable to record \"" + file + "\": "},
      {SYS_pread64, 2, 4096, "Unable to read \"" + folder.path("tmp/tally.")},
  };
  for (const auto &call : calls) {
    const Outcome outcome = ks_test::in_child([&] {
      ks_test::fail_system_call(call.number, call.argument, call.bits, ENOSPC);
      counting()();
    });
    EXPECT_THAT(outcome.err, testing::StartsWith("tally: Error: " + call.says));
    EXPECT_THAT(outcome.err, testing::EndsWith(": No space left on device\n"));
    EXPECT_EQ(outcome.end(), "exit 1") << call.says;
    EXPECT_FALSE(has_temporary_file()) << call.says;
  }
}

TEST_F(TallyTemporary, TellsWhenItCannotBeRemoved) {
  const Outcome outcome = ks_test::in_child([&] {
    ks_test::fail_system_call(SYS_unlink, 0, 0, EPERM);
    counting()();
  });
  EXPECT_THAT(outcome.err,
              testing::StartsWith("tally: Error: Unable to remove \"" + folder.path("tmp/tally.")));
  EXPECT_EQ(lines(outcome.out).back(), "1 2  in all, 1 files");
  EXPECT_EQ(outcome.end(), "exit 1");
}

// As when the disk is full. What is printed goes to a pipe, for which the limit does not count.
TEST_F(TallyTemporary, WhenItMayNotGrowWhatDoesNotFitIsToldAndLeftOut) {
  constexpr size_t kLimit = 1000;
  std::vector<std::string> arguments = {kTally};
  size_t fitting = 0;
  for (size_t i = 0, size = 0; i < 50; ++i) {
    const std::string path = folder.write("f" + std::to_string(i), "1\n");
    arguments.push_back(path);
    size += 2 * sizeof(unsigned long long) + path.size() + 1;
    if (size <= kLimit) ++fitting;
  }
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Child child([&] {
    const rlimit limit = {kLimit, kLimit};
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    setrlimit(RLIMIT_FSIZE, &limit);
    ks_test::program(arguments, {"TMPDIR=" + folder.path("tmp")})();
  });
  close(ends[1]);
  std::string printed;
  char block[4096];
  for (ssize_t got; (got = read(ends[0], block, sizeof block)) > 0;) {
    printed.append(block, static_cast<size_t>(got));
  }
  close(ends[0]);
  EXPECT_EQ(child.finish().end(), "exit 1");
  EXPECT_THAT(printed, HasSubstr("Error: Unable to record \"" + folder.path("f49") +
                                 "\": File too large\n"));
  EXPECT_THAT(printed, testing::EndsWith(" in all, " + std::to_string(fitting) + " files\n"));
  EXPECT_FALSE(has_temporary_file());
}

TEST_F(TallyTemporary, OutputThatCannotBeWrittenIsTold) {
  const std::function<void()> outputs[] = {
      [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); },
      [] { close(STDOUT_FILENO); },
      [] {
        int ends[2];
        if (pipe(ends) == 0) dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);  // nobody reads
        close(ends[1]);
      },
  };
  for (const auto &output : outputs) {
    const Outcome outcome = ks_test::in_child([&] {
      output();
      counting()();
    });
    EXPECT_EQ(outcome.err, "tally: Error: Unable to write all of the output\n");
    EXPECT_EQ(outcome.end(), "exit 1");
    EXPECT_FALSE(has_temporary_file());
  }
}

TEST_F(TallyTemporary, WithoutAStreamForErrorsTheyAreNotTakenForRecords) {
  const Outcome outcome =
      ks_test::run_program({"sh", "-c", "$0 $1/missing $1 2>&-; echo $?", kTally, file},
                           {"TMPDIR=" + folder.path("tmp")});
  EXPECT_EQ(outcome.out,
            "1 2  " + file + "\n1 2  in folder " + folder.path() + "\n1 2  in all, 1 files\n1\n");
}

#ifndef __SANITIZE_ADDRESS__  // it needs all the storage that there is, and cannot be traced

// Whatever storage there is, the report is whole or there is a message and another status.
TEST_F(TallyTemporary, WithoutStorageItTellsSo) {
  for (int i = 0; i < 400; ++i)
    folder.write("d/" + std::string(200, 'd') + std::to_string(i) + "/f", "1\n");
  const auto run = ks_test::program({kTally, folder.path("d")}, {"TMPDIR=" + folder.path("tmp")});
  const std::string whole = ks_test::in_child(run).out;
  EXPECT_EQ(lines(whole).back(), "400 800  in all, 400 files");
  int told = 0, good = 0;
  for (rlim_t kilobytes = 2048; good < 3; kilobytes += 16) {
    const Outcome outcome = ks_test::in_child([&] {
      const rlimit limit = {kilobytes * 1024, kilobytes * 1024};
      setrlimit(RLIMIT_AS, &limit);
      run();
    });
    if (outcome.end() == "exit 0") {
      ++good;
      EXPECT_EQ(outcome.out, whole) << kilobytes;
    } else if (outcome.end() == "exit 1") {
      ++told;
      EXPECT_THAT(outcome.err, HasSubstr("tally: Error: ")) << kilobytes;
    }
    EXPECT_FALSE(has_temporary_file()) << kilobytes;
  }
  EXPECT_GT(told, 3);  // its own storage ended, and not only that of the program's loading
}

// Has SIGTERM come in front of or behind a system call of the program, the number `at` of all such
// places. Result: whether there was one.
bool interrupt_at(int at, const std::function<void()> &run, Outcome *outcome) {
  Child child([&] {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    run();
  });
  int places = 0;
  for (siginfo_t event;
       waitid(P_PID, static_cast<id_t>(child.pid()), &event, WEXITED | WSTOPPED | WNOWAIT) == 0 &&
       event.si_code == CLD_TRAPPED;) {
    int status = 0;
    waitpid(child.pid(), &status, 0);
    long sig = WSTOPSIG(status);
    if (sig == SIGTRAP) {
      if (places++ == at) kill(child.pid(), SIGTERM);
      sig = 0;
    }
    ptrace(PTRACE_SYSCALL, child.pid(), nullptr, sig);
  }
  *outcome = child.finish();
  return places > at;
}

TEST_F(TallyTemporary, NoInterruptLeavesItBehind) {
  Outcome outcome;
  int interrupted = 0;
  for (int at = 0; interrupt_at(at, counting(), &outcome); ++at) {
    EXPECT_THAT(outcome.end(), testing::AnyOf("signal 15", "exit 4", "exit 0")) << at;
    EXPECT_FALSE(has_temporary_file()) << at;
    interrupted += outcome.end() == "exit 4";
  }
  EXPECT_GT(interrupted, 20);  // behind the start of the program, where the signal just ends it
}

#endif

// A tally in the middle of its run: it has counted one file and waits on a pipe. Its temporary
// files lie in `folder.path("tmp")`.
class TallyInMidRun : public testing::Test {
 protected:
  TallyInMidRun() {
    folder.write("tmp/keep", "");
    mkfifo(pipe.c_str(), 0600);
  }

  Child start() {
    const auto run = ks_test::program({kTally, file, pipe}, {"TMPDIR=" + folder.path("tmp")});
    Child child([&] {
      setpgid(0, 0);  // whose parent is in another group: else the system may drop a stop
      run();
    });
    writer = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);  // returns when the tool has opened it too
    EXPECT_EQ(temporary_files(), 1);
    return child;
  }

  int temporary_files() const {
    int count = -1;  // the file that keeps the folder
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator(folder.path("tmp"))) {
      ++count;
    }
    return count;
  }

  Folder folder;
  const std::string file = folder.write("file", "1\n");
  const std::string pipe = folder.path("pipe");
  int writer = -1;
};

TEST_F(TallyInMidRun, AnInterruptUnwindsRemovesItsFileRunsTheHooksAndEndsWithFour) {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
    Child child = start();
    kill(child.pid(), sig);
    const Outcome outcome = child.finish();
    close(writer);
    EXPECT_EQ(outcome.end(), "exit 4") << sig;
    EXPECT_EQ(outcome.out, "") << sig;
    EXPECT_EQ(outcome.err, "tally: Warning: Interrupted after 1 files.\n") << sig;
    EXPECT_EQ(temporary_files(), 0) << sig;
  }
}

TEST_F(TallyInMidRun, StopsAndGoesOn) {
  Child child = start();
  for (int round = 0; round < 2; ++round) {
    int status = 0;
    kill(child.pid(), SIGTSTP);
    ASSERT_EQ(waitpid(child.pid(), &status, WUNTRACED), child.pid());
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(WSTOPSIG(status), SIGTSTP);
    kill(child.pid(), SIGCONT);
    ASSERT_EQ(waitpid(child.pid(), &status, WCONTINUED), child.pid());
    ASSERT_TRUE(WIFCONTINUED(status));
  }
  ASSERT_EQ(write(writer, "x\ny\n", 4), 4);
  close(writer);
  const Outcome outcome = child.finish();
  EXPECT_EQ(lines(outcome.out).back(), "3 6  in all, 2 files");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(temporary_files(), 0);
}

}  // namespace
