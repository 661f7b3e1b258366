// Writing a text to a stream that is no terminal: marks vanish, a daemon's log is quoted, and all of
// it is in the stream in one piece.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "imsg.h"
#include "msg/imsg_internal.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/locale.h"
#include "support/random.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::use_locale;

namespace {

// A stream in memory.
class Sink {
 public:
  Sink() : stream_(open_memstream(&bytes_, &size_)) {}
  ~Sink() {
    fclose(stream_);
    free(bytes_);
  }
  Sink(const Sink &) = delete;
  Sink &operator=(const Sink &) = delete;

  FILE *stream() const { return stream_; }
  std::string contents() const { return std::string(bytes_, size_); }

 private:
  char *bytes_ = nullptr;
  size_t size_ = 0;
  FILE *stream_;
};

// What a text becomes in a stream that is no terminal.
std::string written(std::string_view text) {
  const Sink sink;
  const ExactText exact(text);
  EXPECT_EQ(imsg_fputs(exact, sink.stream()), 0);
  return sink.contents();
}

std::string stripped(std::string_view text) {
  const ExactText source(text);
  const ExactText dest("", text.size() + 1);
  imsg_strip_style_chars(dest, source);
  return dest.get();
}

std::string stripped_in_place(std::string_view text) {
  const ExactText exact(text);
  imsg_strip_style_chars(exact, exact);
  return exact.get();
}

struct Case {
  std::string_view text;
  std::string_view plain;
};

constexpr Case kMarked[] = {
    {"", ""},
    {"no mark", "no mark"},
    {"a \1\1"
     "1Bword\1\1"
     "0B b",
     "a word b"},
    {"\1\1"
     "1B\1\1"
     "0B\1\1"
     "1I\1\1"
     "0I\1\1"
     "1U\1\1"
     "0U",
     ""},
    {"\1\1"
     "1Bx",
     "x"},
    {"x\1\1"
     "0U",
     "x"},
    {"\1", "\1"},
    {"a\1b", "a\1b"},
    {"\1\1", "\1\1"},
    {"\1\1"
     "1",
     "\1\1"
     "1"},
    {"\1\1"
     "0",
     "\1\1"
     "0"},
    {"\1\1B", "\1\1B"},
    {"\1\1"
     "2B",
     "\1\1"
     "2B"},
    {"\1\1"
     "1b",
     "\1\1"
     "1b"},
    {"\1\1"
     "1A",
     "\1\1"
     "1A"},
    {"\1\1"
     "1\1",
     "\1\1"
     "1\1"},
    {"\1"
     "1B",
     "\1"
     "1B"},
    {"\1\1\1"
     "1B",
     "\1"},
    {"\1\1\1\1"
     "1B",
     "\1\1"},
    {"\1\1"
     "1\1\1"
     "1B",
     "\1\1"
     "1"},
    {"\1\1\1\1"
     "1B"
     "1B",
     "\1\1"
     "1B"},  // what comes together is no mark
    {"\1\1"
     "1BB",
     "B"},
    {"\1\1"
     "11B",
     "\1\1"
     "11B"},
    {"\2\1\1"
     "1B\2",
     "\2\2"},
    {"\xC3\xA4\1\1"
     "1B\xC3\xA4\1\1"
     "0B",
     "\xC3\xA4\xC3\xA4"},
    {"\xC3\1\1"
     "1Bx",
     "\xC3x"},  // behind a cut character
    {"\xFF\1\1"
     "1Bx\xE3\x81",
     "\xFFx\xE3\x81"},
};

TEST(ImsgFputs, MarksVanishAndOtherBytesStay) {
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    for (const Case &marked : kMarked) {
      EXPECT_EQ(written(marked.text), marked.plain)
          << locale << ": " << testing::PrintToString(marked.text);
    }
  }
}

TEST(ImsgStripStyleChars, DropsMarksAndNothingElse) {
  for (const Case &marked : kMarked) {
    EXPECT_EQ(stripped(marked.text), marked.plain) << testing::PrintToString(marked.text);
    EXPECT_EQ(stripped_in_place(marked.text), marked.plain) << testing::PrintToString(marked.text);
  }
}

TEST(ImsgFputs, AnIncompleteMarkAtAnyPlaceStays) {
  constexpr std::string_view mark =
      "\1\1"
      "1U";
  for (size_t length = 0; length < mark.size(); ++length) {
    const std::string text = "x" + std::string(mark.substr(0, length));
    EXPECT_EQ(written(text), text);
    EXPECT_EQ(stripped(text), text);
  }
}

TEST(ImsgFputs, ALongTextIsWhole) {
  for (size_t length : {4094u, 4095u, 4096u, 4097u, 8191u, 8192u, 8193u, 100000u}) {
    const std::string part(length, 'x');
    EXPECT_EQ(written(part), part) << length;
    EXPECT_EQ(written("y\1\1"
                      "1B" +
                      part +
                      "\1\1"
                      "0B" +
                      part),
              "y" + part + part)
        << length;
    EXPECT_EQ(written(part + "\1"), part + "\1") << length;
  }
}

TEST(ImsgFputs, APrintedMessageLosesItsMarksToo) {
  EXPECT_EQ(in_child([] { imsg_print(IMSG_TYPE_ERROR, _ks_ks_msg_table, 8); }).err,
            "noname: Error: This product is not installed correctly.\n");
}

// Daemons. The process is one while it has a log, and its real stdout another stream than stdout.
class Daemon {
 public:
  explicit Daemon(FILE *real_stdout) {
    imsg_initialize();
    ks::imsg_daemon_log_name = "/var/log/daemon";
    ks::real_stdout = real_stdout;
  }
  ~Daemon() {
    ks::imsg_daemon_log_name = nullptr;
    ks::real_stdout = stdout;
  }
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;
};

std::string logged(std::string_view text) {
  const Sink sink;
  const Daemon daemon(sink.stream());
  const ExactText exact(text);
  EXPECT_EQ(imsg_fputs(exact, sink.stream()), 0);
  return sink.contents();
}

constexpr Case kLogged[] = {
    {"", ""},
    {"a|b\nc\n", "a||b|c\n"},
    {"a\n", "a\n"},
    {"\n", "\n"},
    {"\n\n", "|\n"},
    {"\n\n\n", "||\n"},
    {"|", "||"},
    {"||\n", "||||\n"},
    {"a\nb", "a|b"},
    {"a\n\1\1"
     "0B",
     "a|"},  // a mark behind it: not the last character
    {"\1\1"
     "1Ba|b\1\1"
     "0B\n",
     "a||b\n"},
    {"a\1|b", "a\1||b"},
    {"\xC3\xA4|\n\xC3\xA4\n", "\xC3\xA4|||\xC3\xA4\n"},
};

TEST(DaemonLog, KeepsATextOnOneLine) {
  for (const char *locale : {"C", "C.UTF-8"}) {
    use_locale(locale);
    for (const Case &text : kLogged) {
      EXPECT_EQ(logged(text.text), text.plain) << testing::PrintToString(text.text);
    }
  }
}

// In this encoding the byte '|' also ends characters: 0x83 0x7C is one.
TEST(DaemonLog, DoublesCharactersAndNotTheBytesInThem) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(logged("\x83||\x83|\n\n"), "\x83|||\x83||\n");
  EXPECT_EQ(logged("\x83\n\n"), "\x83|\n");  // a cut character
  EXPECT_EQ(logged("\xFD|\n"), "\xFD||\n");  // no character
  EXPECT_EQ(logged("\x81\1\1"
                   "1B|"),
            "\x81||");  // the mark is no part of a character
}

TEST(DaemonLog, OtherStreamsGetTheTextAsItIs) {
  const Sink log;
  const Daemon daemon(log.stream());
  EXPECT_EQ(written("a|b\nc\n"), "a|b\nc\n");
}

TEST(DaemonLog, WithoutANameThereIsNoDaemon) {
  const Sink log;
  const Daemon daemon(log.stream());
  ks::imsg_daemon_log_name = nullptr;
  EXPECT_EQ(imsg_fputs("a|b\nc\n", log.stream()), 0);
  EXPECT_EQ(log.contents(), "a|b\nc\n");
}

TEST(DaemonLog, TheProcesssStdoutIsNotQuoted) {
  EXPECT_EQ(in_child([] {
              imsg_initialize();
              ks::imsg_daemon_log_name = "/var/log/daemon";
              imsg_fputs("a|b\nc\n", stdout);
            }).out,
            "a|b\nc\n");
}

TEST(DaemonLog, IsWhereMessagesGo) {
  const Sink log;
  const Daemon daemon(log.stream());
  ks::real_stderr = log.stream();
  imsg_print(IMSG_TYPE_OK_CONT, "one|\ntwo\n", -1);
  imsg_print(IMSG_TYPE_ERROR_CONT, "three\n", -1);
  ks::real_stderr = stderr;
  EXPECT_EQ(log.contents(), "one|||two\nthree\n");
}

// An independent model, character by character.

bool is_mark(const std::string &text, size_t at) {
  const std::string four = text.substr(at, 4);
  for (const char *letter : {"B", "I", "U"}) {
    for (const char *on : {"0", "1"}) {
      if (four == std::string("\1\1") + on + letter) return true;
    }
  }
  return false;
}

std::string model(const std::string &text, bool daemon) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    if (is_mark(text, at)) {
      at += 4;
      continue;
    }
    if (mblen(nullptr, 0) != 0) abort();  // a fresh state; none of the encodings has shifts
    const size_t left = text.size() + 1 - at;
    const int size = std::max(1, mblen(text.c_str() + at, std::min(left, size_t{MB_CUR_MAX})));
    const std::string character = text.substr(at, static_cast<size_t>(size));
    at += character.size();
    if (daemon && character == "|") {
      out += "||";
    } else if (daemon && character == "\n" && at < text.size()) {
      out += "|";
    } else {
      out += character;
    }
  }
  return out;
}

TEST(ImsgFputs, WritesWhatAModelOfItSays) {
  constexpr uint32_t kSeed = 20240506;
  constexpr std::string_view kPieces[] = {"\1",
                                          "\1\1",
                                          "0",
                                          "1",
                                          "B",
                                          "I",
                                          "U",
                                          "|",
                                          "\n",
                                          "a",
                                          "\x83",
                                          "\x83|",
                                          "\xC3",
                                          "\xA4",
                                          "\xE3\x81",
                                          "\x81",
                                          "\1\1"
                                          "1B",
                                          "\1\1"
                                          "0I",
                                          "\xC3\xA4",
                                          "\xF0\x9F\x98\x80"};
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    ks_test::Random random(kSeed);
    for (int round = 0; round < 4000; ++round) {
      std::string text;
      for (uint32_t count = random() % 12; count > 0; --count) {
        text += kPieces[random() % std::size(kPieces)];
      }
      ASSERT_EQ(written(text), model(text, false))
          << locale << " seed " << kSeed << ": " << testing::PrintToString(text);
      ASSERT_EQ(logged(text), model(text, true))
          << locale << " seed " << kSeed << ": " << testing::PrintToString(text);
    }
  }
}

// Failures, and how a text reaches the kernel.

TEST(ImsgFputs, ATextThatCannotBeWrittenGivesMinusOne) {
  for (int mode : {_IOFBF, _IOLBF, _IONBF}) {
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setvbuf(full, nullptr, mode, BUFSIZ);
    EXPECT_EQ(imsg_fputs("text\n", full), -1) << mode;
    EXPECT_EQ(imsg_fputs("\1\1"
                         "1Btext\1\1"
                         "0B\n",
                         full),
              -1)
        << mode;
    EXPECT_EQ(imsg_fputs(std::string(100000, 'x').c_str(), full), -1) << mode;
    fclose(full);
  }
}

TEST(ImsgFputs, AStreamThatCannotBeWrittenToGivesMinusOne) {
  FILE *readable = fopen("/dev/null", "r");
  ASSERT_NE(readable, nullptr);
  EXPECT_EQ(imsg_fputs("text", readable), -1);
  fclose(readable);
  FILE *closed = fopen("/dev/null", "w");
  ASSERT_NE(closed, nullptr);
  const int fd = dup(fileno(closed));
  close(fileno(closed));
  EXPECT_EQ(imsg_fputs("text", closed), -1);
  dup2(fd, fileno(closed));  // for the closing
  close(fd);
  fclose(closed);
}

TEST(ImsgFputs, AnEmptyTextFlushesWhatWaits) {
  const Outcome outcome = in_child([] {
    fputs("before", stdout);
    if (imsg_fputs("", stdout) != 0) _exit(1);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "before");
}

TEST(ImsgFputs, AFailureDoesNotSpoilTheNextText) {
  FILE *full = fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  setvbuf(full, nullptr, _IONBF, 0);
  EXPECT_EQ(imsg_fputs("lost\1", full), -1);
  EXPECT_EQ(written("kept"), "kept");
  fclose(full);
}

// Write calls of this process so far.
int write_calls() {
  char text[512];
  const int fd = open("/proc/self/io", O_RDONLY | O_CLOEXEC);
  const ssize_t size = read(fd, text, sizeof text - 1);
  close(fd);
  if (size <= 0) return -1;
  text[size] = '\0';
  const char *calls = strstr(text, "syscw: ");
  return calls != nullptr ? atoi(calls + strlen("syscw: ")) : -1;
}

TEST(ImsgFputs, ATextIsOneWriteHoweverTheStreamIsBuffered) {
  ASSERT_GE(write_calls(), 0);
  for (int mode : {_IOFBF, _IOLBF, _IONBF}) {
    FILE *stream = tmpfile();
    ASSERT_NE(stream, nullptr);
    setvbuf(stream, nullptr, mode, BUFSIZ);
    for (const char *text : {"one\ntwo\n",
                             "one \1\1"
                             "1Btwo\1\1"
                             "0B\nthree\1\n"}) {
      const int before = write_calls();
      EXPECT_EQ(imsg_fputs(text, stream), 0);
      EXPECT_EQ(write_calls() - before, 1) << mode;
    }
    const int before = write_calls();
    EXPECT_EQ(imsg_fputs("", stream), 0);
    EXPECT_EQ(write_calls() - before, 0) << mode;
    fclose(stream);
  }
}

TEST(ImsgFputs, WhatWaitsInTheUsersBufferGoesFirstAndInTheSameWrite) {
  char buffer[256] = "";  // libc writes past a smaller one
  FILE *stream = tmpfile();
  ASSERT_NE(stream, nullptr);
  setvbuf(stream, buffer, _IOFBF, sizeof buffer);
  fputs("before ", stream);
  const int before = write_calls();
  EXPECT_EQ(imsg_fputs("text", stream), 0);
  EXPECT_EQ(write_calls() - before, 1);
  EXPECT_EQ(std::string_view(buffer, 11), "before text");
  fclose(stream);
}

TEST(ImsgFputs, TheErrorIndicatorStaysAndIsNotTakenForAFailureOfThisText) {
  FILE *stream = fopen("/dev/full", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(imsg_fputs("lost", stream), -1);
  const int full = dup(fileno(stream));
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(null, fileno(stream));
  clearerr(stream);
  EXPECT_EQ(imsg_fputs("text", stream), 0);
  EXPECT_EQ(ferror(stream), 0);
  dup2(full, fileno(stream));
  EXPECT_EQ(imsg_fputs("lost", stream), -1);
  EXPECT_NE(ferror(stream), 0);
  dup2(null, fileno(stream));
  EXPECT_EQ(imsg_fputs("text", stream), 0);
  EXPECT_NE(ferror(stream), 0) << "of the text before";
  close(full);
  close(null);
  fclose(stream);
}

// imsg_putchar.

TEST(ImsgPutchar, WritesToTheStreamOfTheLastText) {
  const Sink sink;
  imsg_fputs("text", sink.stream());
  EXPECT_EQ(imsg_putchar('!'), '!');
  EXPECT_EQ(imsg_putchar(0xE4), 0xE4);
  fflush(sink.stream());
  EXPECT_EQ(sink.contents(), "text!\xE4");
}

TEST(ImsgPutchar, WritesToStdoutBeforeAnyText) {
  const Outcome outcome = in_child([] {
    const int result = imsg_putchar('x');
    fflush(stdout);
    _exit(result);
  });
  EXPECT_EQ(outcome.out, "x");
  EXPECT_EQ(outcome.end(), "exit 120");
}

TEST(ImsgPutchar, SaysThatItFailed) {
  FILE *full = fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  setvbuf(full, nullptr, _IONBF, 0);
  imsg_fputs("", full);
  EXPECT_EQ(imsg_putchar('x'), EOF);
  fclose(full);
}

}  // namespace
