// Stepping, searching and converting text beside libc. A name is "<workload>/<subject>"; the subject
// "norvaks" is held against the others of the same workload (bench/bars.tsv). A peer that steps
// does so with mblen or mbtowc, as a program must that knows nothing of the encoding.
#include <benchmark/benchmark.h>
#include <norvaks/strutl.h>

#include <cctype>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <string>

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kMegabyte = 1 << 20;
constexpr char kDelimiters[] = " ,;";
constexpr char kPresent[] = "the end\n";  // the last of a long text
constexpr char kAbsent[] = "the end?";

const std::string kPath = "/home/projects/tallow/source/library/text/characters.cc";

std::string repeat(const std::string &piece, size_t bytes) {
  std::string text;
  while (text.size() + piece.size() <= bytes) text += piece;
  return text;
}

// No '?' stands in any of them: a search for it goes through the whole text.
const std::string kAsciiLine =
    "The library steps by whole characters; a separator, found inside one, is none at all. ";
const std::string kMixedLine =
    "Größe der Datei: zwölf Zeichen, Übersicht; путь к файлу 日本語の名前 naïve café, plain words ";

const std::string kAscii4K = repeat(kAsciiLine, kPage);
const std::string kMixed4K = repeat(kMixedLine, kPage);
const std::string kAscii1M = repeat(kAsciiLine, kMegabyte) + kPresent;
const std::string kMixed1M = repeat(kMixedLine, kMegabyte) + kPresent;

void use_utf8(const benchmark::State &) {
  if (setlocale(LC_ALL, "C.UTF-8") == nullptr) abort();
}
void use_single_byte(const benchmark::State &) { setlocale(LC_ALL, "C"); }

size_t step(const char *at) {
  const int size = mblen(at, MB_CUR_MAX);
  return size > 1 ? static_cast<size_t>(size) : 1;
}

// Runs `body` with the text, as one that the compiler knows nothing about.
template <class Body>
void over(benchmark::State &state, const std::string &text, Body &&body) {
  for (auto _ : state) {
    const char *string = text.c_str();
    benchmark::DoNotOptimize(string);
    benchmark::DoNotOptimize(body(string));
  }
}

size_t count_mblen(const char *text) {
  size_t count = 0;
  for (; *text != '\0'; text += step(text)) ++count;
  return count;
}

size_t find_char(const char *text) {
  size_t position;
  strutl_find_char(text, 0, '?', &position);
  return position;
}
size_t find_char_mblen(const char *text) {
  const char *at = text;
  while (*at != '\0' && *at != '?') at += step(at);
  return static_cast<size_t>(at - text);
}
const char *find_char_libc(const char *text) { return strchr(text, '?'); }

template <const char *kNeedle>
size_t find_str(const char *text) {
  size_t position;
  strutl_find_str(text, 0, kNeedle, &position);
  return position;
}
size_t find_str_mblen(const char *text) {
  const char *at = text;
  while (*at != '\0' && strncmp(at, kPresent, sizeof kPresent - 1) != 0) at += step(at);
  return static_cast<size_t>(at - text);
}
const char *find_str_libc(const char *text) { return strstr(text, kPresent); }
size_t find_no_str_libc(const char *text) {
  const char *hit = strstr(text, kAbsent);
  return hit != nullptr ? static_cast<size_t>(hit - text) : strlen(text);
}

// What the tokenizers write to.
char scratch[2 * kMegabyte];

template <char *Tokenize(char *, const char *)>
size_t tokenize(const char *text) {
  strcpy(scratch, text);
  size_t tokens = 0;
  for (char *at = Tokenize(scratch, kDelimiters); at != nullptr;
       at = Tokenize(nullptr, kDelimiters)) {
    ++tokens;
  }
  return tokens;
}
size_t tokenize_mblen(const char *text) {
  strcpy(scratch, text);
  size_t tokens = 0;
  char *at = scratch;
  while (*(at += strspn(at, kDelimiters)) != '\0') {
    ++tokens;
    while (*at != '\0' && strchr(kDelimiters, *at) == nullptr) at += step(at);
    if (*at != '\0') *at++ = '\0';
  }
  return tokens;
}

int convert(const char *text) { return strutl_cvt_case_string(text, 1, sizeof scratch, scratch); }
size_t convert_mbtowc(const char *text) {
  char *out = scratch;
  int size;
  for (wchar_t wide; (size = mbtowc(&wide, text, MB_CUR_MAX)) > 0; text += size) {
    out += wctomb(out, static_cast<wchar_t>(towupper(static_cast<wint_t>(wide))));
  }
  *out = '\0';
  return static_cast<size_t>(out - scratch);
}
size_t convert_toupper(const char *text) {
  size_t at = 0;
  for (; text[at] != '\0'; ++at) {
    scratch[at] = static_cast<char>(toupper(static_cast<unsigned char>(text[at])));
  }
  scratch[at] = '\0';
  return at;
}

template <class Body>
void add(const std::string &workload, const char *subject, const std::string &text, Body *body,
         void (*use_locale)(const benchmark::State &)) {
  benchmark::RegisterBenchmark((workload + "/" + subject).c_str(), [&text,
                                                                    body](benchmark::State &state) {
    over(state, text, body);
  })->Setup(use_locale);
}

void add_short_texts(const std::string &name, const std::string &text) {
  add("count, " + name, "norvaks", text, strutl_mb_strlen, use_utf8);
  add("count, " + name, "mblen loop", text, count_mblen, use_utf8);
  add("count, " + name, "strlen", text, strlen, use_utf8);
  add("find a character, " + name, "norvaks", text, find_char, use_utf8);
  add("find a character, " + name, "mblen loop", text, find_char_mblen, use_utf8);
  add("find a character, " + name, "strchr", text, find_char_libc, use_utf8);
}

void add_long_texts_utf8(const std::string &name, const std::string &text) {
  add("find a string, " + name, "norvaks", text, find_str<kPresent>, use_utf8);
  add("find a string, " + name, "mblen loop", text, find_str_mblen, use_utf8);
  add("tokenize, " + name, "norvaks", text, tokenize<strutl_tokenize>, use_utf8);
  add("tokenize, " + name, "mblen loop", text, tokenize_mblen, use_utf8);
  add("upper case, " + name, "norvaks", text, convert, use_utf8);
  add("upper case, " + name, "mbtowc loop", text, convert_mbtowc, use_utf8);
}

void add_long_texts_single_byte(const std::string &name, const std::string &text) {
  add("find a string, " + name, "norvaks", text, find_str<kPresent>, use_single_byte);
  add("find a string, " + name, "strstr", text, find_str_libc, use_single_byte);
  add("find no string, " + name, "norvaks", text, find_str<kAbsent>, use_single_byte);
  add("find no string, " + name, "strstr, strlen", text, find_no_str_libc, use_single_byte);
  add("tokenize, " + name, "norvaks", text, tokenize<strutl_tokenize>, use_single_byte);
  add("tokenize, " + name, "strtok", text, tokenize<strtok>, use_single_byte);
  add("upper case, " + name, "norvaks", text, convert, use_single_byte);
  add("upper case, " + name, "toupper loop", text, convert_toupper, use_single_byte);
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  add_short_texts("55 B path", kPath);
  add_short_texts("4 KB ASCII", kAscii4K);
  add_short_texts("4 KB mixed", kMixed4K);
  add_long_texts_utf8("1 MB ASCII in UTF-8", kAscii1M);
  add_long_texts_utf8("1 MB mixed in UTF-8", kMixed1M);
  add_long_texts_single_byte("1 MB single-byte", kAscii1M);
  benchmark::RunSpecifiedBenchmarks();
}
