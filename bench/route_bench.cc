// Routing and styles beside libc. A name is "<workload>/<subject>"; the subject "norvaks" is held
// against the others of the same workload (bench/bars.tsv). Texts go to /dev/null, which takes them
// at once: what is measured is the way there.
#include <benchmark/benchmark.h>
#include <norvaks/imsg.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kSize = 1 << 20;

FILE *null_stream() {
  static FILE *const stream = fopen("/dev/null", "w");
  return stream;
}

// 1 MB of lines, ASCII with a character of three bytes in each.
const char *plain_text() {
  static char text[kSize + 1];
  if (text[0] == '\0') {
    constexpr char kLine[] = "The quick brown fox jumps over the lazy dog at \xE2\x82\xAC 42.\n";
    for (size_t at = 0; at < kSize; ++at) text[at] = kLine[at % (sizeof kLine - 1)];
  }
  return text;
}

// The same with bold on and off in each 100 bytes.
const char *marked_text() {
  static char text[kSize + 1];
  if (text[0] == '\0') {
    memcpy(text, plain_text(), kSize);
    for (size_t at = 0; at + 100 <= kSize; at += 100) {
      memcpy(text + at,
             "\1\1"
             "1B",
             4);
      memcpy(text + at + 50,
             "\1\1"
             "0B",
             4);
    }
  }
  return text;
}

void write_norvaks(benchmark::State &state, const char *text) {
  FILE *stream = null_stream();
  for (auto _ : state) {
    if (imsg_fputs(text, stream) != 0) abort();
  }
}
void write_plain(benchmark::State &state) { write_norvaks(state, plain_text()); }
void write_marked(benchmark::State &state) { write_norvaks(state, marked_text()); }

void write_libc(benchmark::State &state) {
  FILE *stream = null_stream();
  const char *text = plain_text();
  for (auto _ : state) {
    if (fputs(text, stream) == EOF || fflush(stream) != 0) abort();
  }
}

void write_by_character(benchmark::State &state) {
  FILE *stream = null_stream();
  const char *text = marked_text();
  for (auto _ : state) {
    for (const char *at = text; *at != '\0'; ++at) putc_unlocked(*at, stream);
    fflush(stream);
  }
}

void use_utf8(const benchmark::State &) { setlocale(LC_ALL, "C.UTF-8"); }

}  // namespace

BENCHMARK(write_plain)->Name("write 1 MB without marks/norvaks")->Setup(use_utf8);
BENCHMARK(write_libc)->Name("write 1 MB without marks/fputs and fflush")->Setup(use_utf8);
BENCHMARK(write_marked)->Name("write 1 MB with marks/norvaks")->Setup(use_utf8);
BENCHMARK(write_by_character)
    ->Name("write 1 MB with marks/putc_unlocked, marks kept")
    ->Setup(use_utf8);

BENCHMARK_MAIN();
