// Text. Where characters are stepped through it is in Shift_JIS, of which libc loads its tables when
// the first character is met, and whose second byte may be a backslash: "\x95\\" is one character.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <cwchar>
#include <string>

#include "imsg.h"
#include "list.h"
#include "pfm.h"
#include "stg.h"
#include "strutl.h"
#include "support/locale.h"
#include "sweep/answers.h"
#include "sweep/scratch.h"

using namespace ks_test;

namespace {

struct State {
  std::string contents;  // of the file, as they should be
  FILE *stream;
  int truncated;

  stg_area_t area;
  char *text;  // made by the call, on the heap or in the area
  wchar_t *wide;
  const char *expected;

  char buffer[256];
  int fifo;
  list_t *list;
};
State state;

void use_shift_jis() {
  warm_messages();  // in the old encoding, which leaves the new one's tables alone
  use_locale("ja_JP.SJIS");
}

// Where libc could not load its tables it takes bytes for characters from then on, and tells nobody.
bool is_shift_jis_known() {
  mbstate_t fresh = {};
  return mbrlen("\x95\\", 2, &fresh) == 2;
}

template <const char *(*kCheck)(bool)>
const char *check_in_shift_jis(bool done) {
  return is_shift_jis_known() ? kCheck(done) : nullptr;
}

template <auto kAsk>
bool ask_in_shift_jis() {
  return ask<kAsk>() || !is_shift_jis_known();
}

template <auto kAsk>
constexpr SweepRow in_shift_jis(std::string_view function,
                                std::string_view about = "in Shift_JIS") {
  return {function, about, use_shift_jis, ask_in_shift_jis<kAsk>, check_in_shift_jis<check_answer>,
          nullptr,  true};
}

bool is(const char *text, const char *expected) { return strcmp(text, expected) == 0; }

char *fill_buffer(const char *text) { return strcpy(state.buffer, text); }

int format(char *target, size_t size, const char *format, ...) KS_PRINTF(3, 4);
int format(char *target, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = strutl_vsnprintf(target, size, format, args);
  va_end(args);
  return length;
}

constexpr strutl_flag_item_t kFlags[] = {{"\x95\\", 1}, {"bold", 2}};
constexpr const char *kSlashes[] = {"//"};

// New texts. `kMake` makes one in an area and says in state.expected what it should be; a block of
// the heap is stored before signals come in, and what is in an area belongs to that.
template <auto kMake>
bool make_on_heap() {
  pfm_inhibit();
  state.text = kMake(STG_AREA_HEAP);
  pfm_enable();
  return state.text != nullptr;
}

template <auto kMake>
bool make_in_area() {
  state.text = kMake(state.area);
  return state.text != nullptr;
}

const char *check_text(bool done) {
  if (!done) return nullptr;
  return is(state.text, state.expected) ? nullptr : "another text";
}

void free_text() {
  stg_free(state.text);
  state.text = nullptr;
}

void make_area() { state.area = stg_create_area(100); }

void empty_area() {
  stg_free_area(state.area, 0);
  state.text = nullptr;
}

template <auto kMake, auto kPrepare = [] {}>
constexpr SweepRow on_heap(std::string_view function, std::string_view about, bool cold = false) {
  constexpr auto prepare = [] {
    warm_messages();
    kPrepare();
  };
  const auto check = cold ? check_in_shift_jis<check_text> : check_text;
  return {function, about, prepare, make_on_heap<kMake>, check, free_text, cold};
}

template <auto kMake, auto kPrepare = [] {}>
constexpr SweepRow in_area(std::string_view function, std::string_view about, bool cold = false) {
  constexpr auto prepare = [] {
    warm_messages();
    make_area();
    kPrepare();
  };
  const auto check = cold ? check_in_shift_jis<check_text> : check_text;
  return {function, about, prepare, make_in_area<kMake>, check, empty_area, cold};
}

constexpr auto kJoin = [](stg_area_t area) {
  state.expected = "one, two";
  return strutl_concat_area(area, 3, "one", ", ", "two");
};

constexpr auto kNarrow = [](stg_area_t area) {
  state.expected = "a\x95\\";
  return strutl_cvt_wide_str_to_str(L"a\u8868", area);
};

constexpr auto kUnescape = [](stg_area_t) {
  state.expected = "\x95\\\n";
  char *text;
  strutl_cstr_to_str("\x95\\\\n", 0, &text);
  return text;
};

// Wide texts, with the same owners.
bool widen_in(stg_area_t area) {
  state.wide = strutl_cvt_str_to_wide_str("a\x95\\", area);
  return state.wide != nullptr;
}

bool widen_on_heap() {
  pfm_inhibit();
  const bool done = widen_in(STG_AREA_HEAP);
  pfm_enable();
  return done;
}

const char *check_wide(bool done) {
  return done && wcscmp(state.wide, L"a\u8868") != 0 ? "another text" : nullptr;
}

void free_wide() {
  stg_free(state.wide);
  state.wide = nullptr;
}

// Files. The contents are more than what a growing buffer begins with.
constexpr char kFile[] = "file";
constexpr size_t kFileSize = 10000;

void make_contents() {
  while (state.contents.size() < kFileSize) {
    state.contents += "line " + std::to_string(state.contents.size()) + "\n";
  }
  state.expected = state.contents.c_str();
}

constexpr auto make_file = [] {
  make_contents();
  put_scratch(kFile, state.contents);
};

constexpr auto kRead = [](stg_area_t area) { return strutl_read(area, kFile, 0, 0, 0); };

constexpr auto make_empty_file = [] {
  put_scratch(kFile, "");
  state.expected = "";
};

constexpr auto kReadMissing = [](stg_area_t area) {
  state.expected = "";
  return strutl_read(area, kFile, 0, 0, 1);
};

// A FIFO with something in it, whose size is 0 for the system.
void fill_fifo() {
  char left[64];
  while (read(state.fifo, left, sizeof left) > 0) {
  }
  if (write(state.fifo, "text", 4) != 4) abort();
}

void make_fifo() {
  warm_messages();
  mkfifo(kFile, 0600);
  state.fifo = open(kFile, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  fill_fifo();
}

bool read_fifo() {
  pfm_inhibit();
  state.text = kRead(STG_AREA_HEAP);
  pfm_enable();
  return state.text == nullptr;
}

// A stream of the file, which each round reads from its start.
constexpr auto make_stream = [] {
  make_file();
  state.stream = fopen(kFile, "re");
};

constexpr auto kReadStream = [](stg_area_t area) {
  return strutl_read_fp(area, 0, state.stream, 0, &state.truncated);
};

template <void (*kRelease)()>
constexpr SweepRow of_stream(SweepRow row) {
  row.undo = [] {
    kRelease();
    rewind(state.stream);
  };
  return row;
}

bool write_file() { return strutl_write(state.expected, kFile, 0, 0) == 0; }

const char *check_written(bool done) {
  return done && scratch_contents(kFile) != state.contents ? "another file" : nullptr;
}

void make_longer_file() {
  make_contents();
  put_scratch(kFile, state.contents + state.contents);
}

void remove_file() { unlink(kFile); }

// Printed texts, taken by a procedure.
void make_list() {
  warm_messages();
  state.list = list_create(STG_AREA_HEAP, 0);
  for (const char *text : {"one", "two"}) list_append(state.list, const_cast<char *>(text));
  constexpr imsg_out_fn_t note = [](void *, const char *text) {
    strutl_concat(state.buffer, sizeof state.buffer, 2, state.buffer, text);
  };
  imsg_redirect_output(note, nullptr, note, nullptr);
}

template <void (*kPrint)(list_t *)>
bool print_list() {
  fill_buffer("");
  kPrint(state.list);
  return is(state.buffer, "one\ntwo\n\n");
}

constexpr SweepRow kRows[] = {
    in_shift_jis<[] {
      size_t at;
      size_t member;
      return strutl_find_char_from("a\x95\\b|", 0, "\\|", &at, &member) == 1 && at == 4 &&
             member == 1;
    }>("strutl_find_char_from"),
    in_shift_jis<[] { return strutl_strrpbrk("a\x95\\b", "\\|") == nullptr; }>("strutl_strrpbrk"),
    in_shift_jis<[] {
      size_t at;
      return strutl_find_char("a\x95\\b\\", 0, '\\', &at) == 1 && at == 4;
    }>("strutl_find_char"),
    in_shift_jis<[] {
      size_t at;
      return strutl_find_str("a\x95\\b\\", 0, "\\", &at) == 1 && at == 4;
    }>("strutl_find_str"),
    in_shift_jis<[] {
      size_t at;
      return strutl_find_str_range("a\x95\\b\\", 0, 4, "\\", &at) == 0 && at == 4;
    }>("strutl_find_str_range"),
    in_shift_jis<[] {
      size_t at;
      return strutl_right_char("b\\a\x95\\", 9, '\\', &at) == 1 && at == 1;
    }>("strutl_right_char"),
    in_shift_jis<[] {
      size_t at;
      return strutl_find_end_delim("\x95\\(b)\\", 0, '(', '\\', &at) == 0 &&
             strutl_find_end_delim("\x95\\b\\", 0, '(', '\\', &at) == 1 && at == 3;
    }>("strutl_find_end_delim"),
    in_shift_jis<[] {
      size_t at;
      return strutl_find_last_char("a\x95\\", 0, -1, &at) == 1 && at == 1;
    }>("strutl_find_last_char"),
    in_shift_jis<[] { return strutl_match_last_char("a\x95\\", '\\') == 0; }>(
        "strutl_match_last_char"),
    in_shift_jis<[] {
      size_t length;
      return strutl_match_prefix("a\x95\\", "a\x95[", &length) == 1 && length == 1;
    }>("strutl_match_prefix"),
    in_shift_jis<[] {
      const char *first = strutl_tokenize(fill_buffer("\x95\\a\\b"), "\\");
      if (first == nullptr || !is(first, "\x95\\a")) return false;
      const char *second = strutl_tokenize(nullptr, "\\");
      return second != nullptr && is(second, "b") && strutl_tokenize(nullptr, "\\") == nullptr;
    }>("strutl_tokenize"),
    in_shift_jis<[] { return strutl_mblen("\x95\\", 2) == 2; }>("strutl_mblen"),
    in_shift_jis<[] {
      const char *tail;
      return is(strutl_mb_char_from_str("\x95\\b", &tail), "\x95\\") && is(tail, "b");
    }>("strutl_mb_char_from_str"),
    in_shift_jis<[] { return strutl_mb_strlen("a\x95\\b") == 3; }>("strutl_mb_strlen"),
    in_shift_jis<[] {
      const char *found = strutl_mb_strchr("\x95\\b\\c", "\\", 1);
      return found != nullptr && is(found, "\\c");
    }>("strutl_mb_strchr"),
    in_shift_jis<[] {
      size_t length;
      return strutl_test_char("\x82\x60", 2, STRUTL_CLASS_UPPER, &length) == 1 && length == 2;
    }>("strutl_test_char"),
    in_shift_jis<[] {
      return strutl_cvt_case_char("\x82\x81", 2, 1, state.buffer) == 2 &&
             memcmp(state.buffer, "\x82\x60", 2) == 0;
    }>("strutl_cvt_case_char"),
    in_shift_jis<[] {
      return strutl_cvt_case_string("a\x82\x81", 1, sizeof state.buffer, state.buffer) == 1 &&
             is(state.buffer, "A\x82\x60");
    }>("strutl_cvt_case_string"),
    // Without storage the texts are compared as they are.
    in_shift_jis<[] {
      return strutl_stricoll("a\x82\x60", "A\x82\x81") == 0 ? Answer::kRight : Answer::kTold;
    }>("strutl_stricoll"),
    in_shift_jis<[] {
      const char *tail;
      return strutl_wide_char_from_str("\x95\\b", &tail) == L'\u8868' && is(tail, "b");
    }>("strutl_wide_char_from_str"),
    in_shift_jis<[] {
      const char *tail;
      return strutl_wide_char_from_str("\xff", &tail) == L'\0';
    }>("strutl_wide_char_from_str", "no character"),
    {"strutl_cvt_str_to_wide_str", "on the heap", use_shift_jis, widen_on_heap,
     check_in_shift_jis<check_wide>, free_wide, true},
    {"strutl_cvt_str_to_wide_str", "in an area",
     [] {
       use_shift_jis();
       make_area();
     },
     [] { return widen_in(state.area); }, check_in_shift_jis<check_wide>, empty_area, true},
    on_heap<kNarrow, use_shift_jis>("strutl_cvt_wide_str_to_str", "on the heap", true),
    in_area<kNarrow, use_shift_jis>("strutl_cvt_wide_str_to_str", "in an area", true),
    in_shift_jis<[] {
      return strutl_snprintf(state.buffer, sizeof state.buffer, "%ls|%d", L"\u8868", 7) == 4 &&
             is(state.buffer, "\x95\\|7");
    }>("strutl_snprintf"),
    // So many digits that libc allocates for them.
    answer_row<[] {
      const int length = strutl_snprintf(state.buffer, 4, "%.9000f", 1.5);
      if (length < 0) return Answer::kTold;
      return right_if(length == 9002 && is(state.buffer, "1.5"));
    }>("strutl_snprintf", "many digits"),
    in_shift_jis<[] {
      return format(state.buffer, sizeof state.buffer, "%ls|%d", L"\u8868", 7) == 4 &&
             is(state.buffer, "\x95\\|7");
    }>("strutl_vsnprintf"),
    on_heap<[](stg_area_t) {
      state.expected = "one, two";
      return strutl_concat_heap(3, "one", ", ", "two");
    }>("strutl_concat_heap", ""),
    on_heap<kJoin>("strutl_concat_area", "on the heap"),
    in_area<kJoin>("strutl_concat_area", "in an area"),
    on_heap<kUnescape, use_shift_jis>("strutl_cstr_to_str", "", true),
    answer_row<[] {
      return strutl_replace_substr(fill_buffer("abc"), 1, 4, 1, "xyz") == 1 &&
             is(state.buffer, "abc");
    }>("strutl_replace_substr", "too small"),
    in_shift_jis<[] {
      return strutl_find_replace_substr(fill_buffer("a\x95\\b\\"), 6, "\\", "/") == 1 &&
             is(state.buffer, "a\x95\\b/");
    }>("strutl_find_replace_substr"),
    in_shift_jis<[] {
      int changed;
      return strutl_xlate_pname_sep("\x95\\a\\b", "\\", '/', state.buffer, sizeof state.buffer,
                                    &changed) == 0 &&
             changed == 1 && is(state.buffer, "\x95\\a/b");
    }>("strutl_xlate_pname_sep"),
    in_shift_jis<[] {
      return strutl_xlate_chars_to_strings(state.buffer, "\x95\\\\", "\\", kSlashes) == 4 &&
             is(state.buffer, "\x95\\//");
    }>("strutl_xlate_chars_to_strings"),
    answer_row<[] {
      return is(strutl_flags_to_str(0x12, "+", kFlags, std::size(kFlags)), "bold UNKNOWN(0x10)");
    }>("strutl_flags_to_str"),
    in_shift_jis<[] {
      const char *bad = "";
      const uint32_t flags =
          strutl_flags_from_str("\x95\\ BOLD", 0, nullptr, kFlags, std::size(kFlags), &bad);
      if (bad != nullptr) return is(bad, "BOLD") && flags == 0 ? Answer::kTold : Answer::kWrong;
      return right_if(flags == 3);
    }>("strutl_flags_from_str"),
    in_shift_jis<[] { return strutl_is_ok_name("\x95\\", "-", nullptr) == 1; }>(
        "strutl_is_ok_name"),
    answer_row<[] {
      char word[32];
      return strutl_extract_head("secret", word, sizeof word) == 0 &&
             strutl_extract_tail(word, state.buffer, sizeof state.buffer) == 0 &&
             is(state.buffer, "secret");
    }>("strutl_extract_head"),
    {"strutl_write", "", warm<make_contents>, write_file, check_written, remove_file},
    {"strutl_write", "over a longer one", warm<make_longer_file>, write_file, check_written,
     make_longer_file},
    on_heap<kRead, make_file>("strutl_read", "on the heap"),
    in_area<kRead, make_file>("strutl_read", "in an area"),
    on_heap<kRead, make_empty_file>("strutl_read", "empty"),
    on_heap<kReadMissing>("strutl_read", "missing, as empty"),
    answer_row<[] { return kRead(STG_AREA_HEAP) == nullptr; }>("strutl_read", "missing"),
    answer_row<read_fifo>("strutl_read", "a FIFO", make_fifo,
                          [] {
                            free_text();
                            fill_fifo();
                          }),
    of_stream<free_text>(on_heap<kReadStream, make_stream>("strutl_read_fp", "on the heap")),
    of_stream<empty_area>(in_area<kReadStream, make_stream>("strutl_read_fp", "in an area")),
    answer_row<print_list<strutl_list_print>>("strutl_list_print", "", make_list),
    answer_row<print_list<strutl_list_trace_print>>("strutl_list_trace_print", "", make_list),
};

constexpr std::string_view kBytesOnly = "works on the caller's bytes alone";
constexpr std::string_view kNumber = "reads a number without libc's storage or locks";

constexpr SweepExemption kExemptions[] = {
    {"strutl_cpy_buf", kBytesOnly},
    {"strutl_cmp_ignore_whitespace", kBytesOnly},
    {"strutl_str_in_list", kBytesOnly},
    {"strutl_get_sys_char_type", "one word of the locale"},
    {"strutl_wide_strlen", kBytesOnly},
    {"strutl_cvt_sjis_to_euc", kBytesOnly},
    {"strutl_utf16to8", kBytesOnly},
    {"strutl_utf8to16", kBytesOnly},
    {"strutl_ncpy", kBytesOnly},
    {"strutl_ncpy_buf", kBytesOnly},
    {"strutl_ccpy_buf", kBytesOnly},
    {"strutl_cpy_and_advance", kBytesOnly},
    {"strutl_prepend", kBytesOnly},
    {"strutl_concat", kBytesOnly},
    {"strutl_strip_whitespace", kBytesOnly},
    {"strutl_slide_tail", kBytesOnly},
    {"strutl_strtol", kNumber},
    {"strutl_strtoul", kNumber},
    {"strutl_strtod", kNumber},
    {"strutl_strtol_extended", kNumber},
    {"strutl_strtoul_extended", kNumber},
    {"strutl_strtod_extended", kNumber},
    {"strutl_u32tostr", "writes its static text anew in each call"},
    {"strutl_kstr_to_long", kNumber},
    {"strutl_kstr_or_str_to_long", kNumber},
    {"strutl_process_long_param", kNumber},
    {"strutl_str_to_hash32", kBytesOnly},
    {"strutl_extract_tail", kBytesOnly},
};

}  // namespace

const SweepModule ks_test::kSweepStrutl = {kRows, kExemptions};
