// Rows of messages, catalogs and the library's identity.
#include "imsg.h"

#include <fcntl.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "imsg_msg.h"
#include "imsg_table.h"
#include "libnorvaks.h"
#include "pfm.h"
#include "stg_msg.h"
#include "support/locale.h"
#include "support/terminal.h"
#include "sweep/output.h"
#include "sweep/panic.h"
#include "sweep/row.h"

namespace ks_test {
namespace {

struct {
  char text[256];     // what the call has formatted
  const char *given;  // the text that it returned
  int number;         // likewise
  int error;          // errno of a write that failed
} own;

// Twice the size of the buffer in which a message is composed at first.
constexpr size_t kLong = 40000;
char long_text[kLong + 1];

void speak_german() {
  setenv("NLSPATH", NORVAKS_BUILD_DIR "/share/norvaks/nls/%L/%N.cat", 1);
  setenv("LANG", "de", 1);
}

// Printing. A message that could not be written leaves the stream's error indicator, and whatever
// else is told of it must not be EINTR: a signal costs no byte.

struct PrintCase {
  const char *about;
  int type;
  const void *table;
  int number;
  const char *out;
  const char *err;
};

constexpr char kFormat[] = "%s\n";

constexpr PrintCase print_cases[] = {
    {"plain", IMSG_TYPE_OK, kFormat, -1, "text\n", ""},
    {"box", IMSG_TYPE_BOX, kFormat, -1, "text\n", ""},
    {"warning", IMSG_TYPE_WARNING, kFormat, -1, "", "noname: Warning: text\n"},
    {"continued", IMSG_TYPE_ERROR_CONT, kFormat, -1, "", "text\n"},
    {"of a table", IMSG_TYPE_ERROR, _stg_ks_msg_table, STG_MSG_NO_MEMORY, "",
     "noname: Error: No more memory available.\n"},
    {"trace", IMSG_TYPE_TRACE, kFormat, -1, "", ">>> #:#:#.# (noname): text\n"},
    {"log only", IMSG_TYPE_LOG_ONLY, kFormat, -1, "", ""},
    {"unknown type", 12, kFormat, -1, "",
     "noname: Error: Unknown message type 12 in file src/msg/imsg_prefix.cc at line #\n"
     "System message: text\n"},
};

constexpr const char *kGerman = "noname: Fehler: Kein Speicher mehr verf\xC3\xBCgbar.\n";

void prepare_streams() { catch_streams(); }

void prepare_streams_in_german() {
  speak_german();
  catch_streams();
}

bool all_written() {
  if (!ferror(row_stdout()) && !ferror(stderr)) return true;
  own.error = errno;
  return false;
}

template <size_t kCase>
bool print() {
  constexpr PrintCase printed = print_cases[kCase];
  own.error = 0;
  imsg_print(printed.type, printed.table, printed.number, "text");
  return all_written();
}

bool print_shared() {
  own.error = 0;
  imsg_print_shared(IMSG_TYPE_ERROR, "my/subsys", _stg_ks_msg_table, STG_MSG_NO_MEMORY);
  return all_written();
}

int print_list(int type, ...) {
  va_list args;
  va_start(args, type);
  const int result = imsg_print_sharedv(type, nullptr, kFormat, -1, args);
  va_end(args);
  return result;
}

bool print_sharedv() {
  own.error = 0;
  print_list(IMSG_TYPE_WARNING, "text");
  return all_written();
}

// Digits are as the clock and the source have them.
std::string without_numbers(const std::string &text) {
  std::string result;
  bool in_number = false;
  const bool keeps = text.starts_with("noname: Error: Unknown");
  const size_t kept = keeps ? text.find(" in file") : 0;
  for (size_t at = 0; at < text.size(); ++at) {
    const bool digit = text[at] >= '0' && text[at] <= '9' && at >= kept;
    if (!digit) result += text[at];
    if (digit && !in_number) result += '#';
    in_number = digit;
  }
  return result;
}

const char *is_printed(bool done, const std::string &out, const std::string &err) {
  if (!done) return own.error == EINTR ? "a signal has cost text" : nullptr;
  if (caught_out() != out) return "the text on stdout is another";
  return without_numbers(caught_err()) == err ? nullptr : "the text on stderr is another";
}

template <size_t kCase>
const char *check_print(bool done) {
  return is_printed(done, print_cases[kCase].out, print_cases[kCase].err);
}

const char *no_memory_is_printed(bool done) { return check_print<4>(done); }
const char *warning_is_printed(bool done) { return check_print<2>(done); }
const char *german_is_printed(bool done) { return is_printed(done, "", kGerman); }

template <size_t kCase>
constexpr SweepRow print_row() {
  return {"imsg_print", print_cases[kCase].about, prepare_streams,
          print<kCase>, check_print<kCase>,       forget_streams};
}

void prepare_long() {
  catch_streams();
  memset(long_text, 'x', kLong);
}

bool print_long() {
  own.error = 0;
  imsg_print(IMSG_TYPE_OK, "%s", -1, long_text);
  return all_written();
}

const char *long_is_printed(bool done) { return is_printed(done, long_text, ""); }

// The first message of a process, with all that it starts.
template <bool kGermanSpoken>
void prepare_first() {
  if (kGermanSpoken) speak_german();
  catch_streams(false);
}

bool print_first() {
  own.error = 0;
  take_stdout();
  imsg_print(IMSG_TYPE_OK, "%s\n", -1, "text");
  imsg_print(IMSG_TYPE_ERROR, _stg_ks_msg_table, STG_MSG_NO_MEMORY);
  give_stdout_back();
  return all_written();
}

const char *first_is_printed(bool done) { return is_printed(done, "text\n", print_cases[4].err); }

// Where the catalog cannot be opened it is not tried again, and where there is no storage for a word,
// it stays the table's.
const char *first_german_is_printed(bool done) {
  const char *wrong = is_printed(done, "text\n", kGerman);
  for (const char *mixed : {print_cases[4].err, "noname: Fehler: No more memory available.\n",
                            "noname: Error: Kein Speicher mehr verf\xC3\xBCgbar.\n"}) {
    if (wrong != nullptr) wrong = is_printed(done, "text\n", mixed);
  }
  return wrong;
}

// Text in a buffer

template <int (*kFormatInto)(char *, const void *, int, ...)>
bool format_text() {
  own.number = kFormatInto(own.text, "<%s %d>", -1, "text", 7);
  return own.number >= 0;
}

int into_limited(char *dest, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf(dest, sizeof own.text, table, number, args);
  va_end(args);
  return result;
}

int into_unlimited(char *dest, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsprintf(dest, table, number, args);
  va_end(args);
  return result;
}

int into_taggable(char *dest, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf_taggable(2, dest, sizeof own.text - 1, table, number, args);
  va_end(args);
  return result;
}

bool format_snprintf() {
  own.number = imsg_snprintf(own.text, sizeof own.text - 1, "<%s %d>", -1, "text", 7);
  return own.number >= 0;
}

bool format_snprintf_taggable() {
  own.number = imsg_snprintf_taggable(1, own.text, sizeof own.text, "<%s %d>", -1, "text", 7);
  return own.number >= 0;
}

// The prefix does not count.
bool format_typed() {
  own.number =
      imsg_snprintf_type(own.text, sizeof own.text, IMSG_TYPE_WARNING, "<%s %d>", -1, "text", 7);
  return own.number >= 0;
}

const char *has_text(const char *text, int number) {
  if (strcmp(own.text, text) != 0) return "the text is another";
  return own.number == number ? nullptr : "the result is another";
}

const char *is_formatted(bool done) { return done ? has_text("<text 7>", 8) : nullptr; }
const char *is_typed(bool done) {
  return done ? has_text("noname: Warning: <text 7>", 8) : nullptr;
}

void forget_text() {
  memset(own.text, 'z', sizeof own.text);
  own.given = nullptr;
  forget_messages();
}

void prepare_text() {
  catch_messages();
  imsg_suppress_prefix(0);
}

// In a multibyte locale, whose tables the first conversion loads.
template <bool kShiftJis>
void prepare_multibyte() {
  use_locale(kShiftJis ? "ja_JP.SJIS" : "C.UTF-8");
  catch_streams();
}

// The second byte of the Shift_JIS character is a backslash.
template <bool kShiftJis>
constexpr const char *kCharacter = kShiftJis ? "\x83\x5C" : "\xC3\xA4";

template <bool kShiftJis>
bool format_multibyte() {
  own.number = imsg_snprintf(own.text, sizeof own.text - 1, "<%s>", -1, kCharacter<kShiftJis>);
  return own.number >= 0;
}

template <bool kShiftJis>
const char *multibyte_is_formatted(bool) {
  return has_text(kShiftJis ? "<\x83\x5C>" : "<\xC3\xA4>", 4);
}

// Texts that are returned

void prepare_german() {
  speak_german();
  catch_messages();
}

bool extract() {
  own.given = cat_extractmsg(_imsg_ks_msg_table, IMSG_MSG_HOST_NOT_FOUND);
  return own.given != nullptr;
}

// Without storage or without its catalog it is the table's.
const char *is_extracted(bool) {
  const bool german = strcmp(own.given, "Host nicht gefunden") == 0;
  return german || strcmp(own.given, "Host not found") == 0 ? nullptr : "the text is another";
}

// Texts of two other libraries, without catalogs, were asked for before: a slot is given up.
bool extract_third() {
  imsg_table_t other = *_imsg_ks_msg_table;
  for (const char *library : {"none_such", "nor_this"}) {
    other.library = library;
    cat_extractmsg(&other, 0);
  }
  return extract();
}

template <int kError>
bool name_error() {
  own.given = imsg_strerror(kError);
  return true;
}

const char *error_is_named(bool) {
  return strcmp(own.given, "No such file or directory") == 0 ? nullptr : "the text is another";
}

// The system has no room for a text of its own making, and says so.
const char *unknown_error_is_named(bool) {
  return strncmp(own.given, "Unknown error", 13) == 0 ? nullptr : "the text is another";
}

const char *number_is_named(bool) {
  return strcmp(own.given, "-5") == 0 ? nullptr : "the text is another";
}

bool name_host_error() {
  own.given = imsg_strerror_gethost(HOST_NOT_FOUND);
  return true;
}

bool format_prefix() {
  own.given = imsg_prefix_format(IMSG_TYPE_ERROR, 1);
  return true;
}

const char *prefix_is_formatted(bool) {
  return strcmp(own.given, "%s/%s: Error: ") == 0 ? nullptr : "the format is another";
}

const char *german_prefix_is_formatted(bool done) {
  if (strcmp(own.given, "%s/%s: Fehler: ") == 0) return nullptr;
  return prefix_is_formatted(done);
}

// Names

void name_noname() { imsg_set_app_name("old"); }

bool set_name() {
  imsg_set_app_name("/a/folder/name");
  return strcmp(imsg_get_app_name(), "name") == 0;
}

const char *name_is_whole(bool done) {
  return strcmp(imsg_get_app_name(), done ? "name" : "old") == 0 ? nullptr : "the name is another";
}

bool set_message_home() {
  imsg_set_message_home("/a/folder");
  return true;
}

const char *is_kept(bool) { return nullptr; }  // nothing shows it

void prepare_errnum_file() { close(open("numbers", O_WRONLY | O_CREAT | O_CLOEXEC, 0600)); }

bool set_errnum_file() { return imsg_set_errnum_file("numbers") == 0; }

void reset_names() {
  imsg_set_message_home(nullptr);
  imsg_set_errnum_file(nullptr);
}

// Traces

void prepare_traces() {
  setenv("TRACE_VERBOSITY", "3", 1);
  setenv("TRACE_SUBSYS", "my/one:my/two", 1);
}

bool read_settings() {
  own.number = imsg_should_trace("my/two", 3);
  return true;
}

bool read_settings_of_subsys() {
  own.number = imsg_should_trace_subsys("my/two");
  return true;
}

const char *is_traced(bool) {
  if (own.number != 1) return "the trace is not wanted";
  if (imsg_get_desired_verbosity() != 3) return "the verbosity is another";
  return imsg_should_trace("my/three", 0) == 0 ? nullptr : "another trace is wanted";
}

bool read_verbosity() {
  own.number = imsg_get_verbosity_ev();
  return true;
}

const char *verbosity_is_read(bool) { return own.number == 3 ? nullptr : "the number is another"; }

// Routing

void take_text(void *info, const char *text) {
  snprintf(static_cast<char *>(info), sizeof own.text, "%s", text);
}

const char *is_taken(const char *text) {
  return strcmp(own.text, text) == 0 ? nullptr : "the procedure got another text";
}

bool set_procs() {
  const imsg_out_fn_t procs[] = {take_text, take_text};
  imsg_set_redirect_procs(procs, 2, own.text);
  return true;
}

bool redirect() {
  imsg_redirect_output(take_text, own.text, take_text, own.text);
  return true;
}

bool use_window() {
  const imsg_window_t window = {take_text, own.text};
  imsg_use_window(&window);
  return true;
}

bool set_box() {
  const imsg_window_t window = {take_text, own.text};
  imsg_set_output_box(&window);
  return true;
}

template <int kType>
const char *goes_to_procedure(bool) {
  imsg_print(kType, "%s\n", -1, "text");
  return is_taken("text\n");
}

void route_as_at_start() {
  const imsg_window_t box = {imsg_append_proc_default, nullptr};
  imsg_redirect_output(imsg_append_proc_default, nullptr, imsg_append_proc_default, nullptr);
  imsg_set_output_box(&box);
  memset(own.text, 0, sizeof own.text);
}

void prepare_procedure() {
  catch_streams();
  redirect();
}

bool print_to_procedure() {
  own.error = 0;
  imsg_print(IMSG_TYPE_OK, "%s\n", -1, "text");
  return all_written();
}

const char *is_printed_to_procedure(bool done) {
  return caught_out().empty() && done ? is_taken("text\n") : "stdout got something";
}

void forget_procedure() {
  memset(own.text, 0, sizeof own.text);
  forget_streams();
}

void prepare_doubled() {
  setenv("IMSG_DUP_OUTPUT", "1", 1);
  catch_streams();
  set_procs();
}

const char *is_printed_to_both(bool done) {
  if (const char *wrong = is_printed(done, "text\n", "")) return wrong;
  return is_taken("text\n");
}

// The stream is that of the message being delivered.
void prepare_passing_on() {
  const imsg_out_fn_t procs[] = {
      [](void *, const char *text) { imsg_append_proc_default(nullptr, text); }};
  catch_streams();
  imsg_set_redirect_procs(procs, 1, nullptr);
}

// Streams and styles

constexpr char kStyled[] =
    "a \1\1"
    "1Bword\1\1"
    "0B b\n";

template <const char *kText>
bool put_text() {
  errno = 0;
  const bool done = imsg_fputs(kText, row_stdout()) == 0;
  own.error = errno;
  return done;
}

constexpr char kPlain[] = "text\n";

const char *plain_is_put(bool done) { return is_printed(done, kPlain, ""); }
const char *styles_vanish(bool done) { return is_printed(done, "a word b\n", ""); }

template <bool kShiftJis>
constexpr char kStyledCharacter[] =
    "\x83\x5C\1\1"
    "1B\x83\x5C\n";
template <>
constexpr char kStyledCharacter<false>[] =
    "\xC3\xA4\1\1"
    "1B\xC3\xA4\n";

template <bool kShiftJis>
const char *multibyte_is_put(bool done) {
  return is_printed(done, kShiftJis ? "\x83\x5C\x83\x5C\n" : "\xC3\xA4\xC3\xA4\n", "");
}

void prepare_unbuffered() {
  prepare_long();
  setvbuf(row_stdout(), nullptr, _IONBF, 0);
}

const char *long_is_put(bool done) { return is_printed(done, long_text, ""); }

void prepare_lines() {
  catch_streams();
  setvbuf(row_stdout(), nullptr, _IOLBF, 4096);
}

void prepare_terminal() { catch_terminal("xterm-256color"); }

constexpr const char *kShown = "a \x1b[27m\x1b[24m\x1b[1mword\x1b(B\x1b[m\x1b[27m\x1b[24m b\n";

// A terminal that the system tells nothing of has no styles.
const char *styles_are_shown(bool done) {
  if (!done) return is_printed(done, kShown, "");
  const std::string out = caught_out();
  return out == kShown || out == "a word b\n" ? nullptr : "the text on the terminal is another";
}

bool put_character() {
  errno = 0;
  const bool done = imsg_putchar('x') == 'x';
  own.error = errno;
  return done;
}

const char *character_is_put(bool done) { return is_printed(done, "x", ""); }

void choose_stream() {
  forget_streams();
  imsg_fputs("", row_stdout());
}

void prepare_character() {
  catch_streams();
  setvbuf(row_stdout(), nullptr, _IONBF, 0);
  choose_stream();
}

void prepare_reset() {
  prepare_terminal();
  imsg_fputs("", row_stdout());
  set_echo(true);
}

bool reset_terminal() {
  errno = 0;
  imsg_reset_term();
  own.error = errno;
  return true;
}

// The system's refusal cannot be told.
const char *attributes_are_back(bool) {
  const bool refused = own.error != 0 && own.error != EINTR;
  return refused || !echoes() ? nullptr : "the attributes are not those of before";
}

void echo_again() {
  set_echo(true);
  forget_streams();
}

bool refuse_background() {
  return ends_in(PFM_STATUS_TTOU, [] { imsg_sigttou_handler(SIGTTOU); });
}

// The start, and the library's identity

bool initialize() {
  imsg_initialize();
  return true;
}

const char *is_started(bool) {
  return strcmp(imsg_get_app_name(), "noname") == 0 ? nullptr : "there are no names";
}

// The name in 33 bytes, the version and the day.
const char *identity() {
  static char text[128];
  libnorvaks_sprintf_verid(text);
  return text;
}

bool print_identity() {
  own.error = 0;
  libnorvaks_print_verid();
  return all_written();
}

bool format_identity() {
  own.number = libnorvaks_sprintf_verid(own.text);
  return own.number > 0;
}

const char *identity_is_printed(bool done) { return is_printed(done, identity(), ""); }

const char *identity_is_formatted(bool) {
  if (own.number != static_cast<int>(strlen(own.text))) return "the length is another";
  return strncmp(own.text, "libnorvaks                        ", 34) == 0 &&
                 own.text[own.number - 1] == '\n'
             ? nullptr
             : "the text is another";
}

// Without storage for the text there is nothing to print it with: that is an assertion.
constexpr SweepRow panicking(SweepRow row) {
  row.panics = true;
  return row;
}

constexpr SweepRow rows[] = {
    print_row<0>(),
    print_row<1>(),
    print_row<2>(),
    print_row<3>(),
    print_row<4>(),
    print_row<5>(),
    print_row<6>(),
    print_row<7>(),
    {"imsg_print", "German", prepare_streams_in_german, print<4>, german_is_printed,
     forget_streams},
    panicking({"imsg_print", "the first", prepare_first<false>, print_first, first_is_printed,
               forget_streams, true}),
    panicking({"imsg_print", "the first, German", prepare_first<true>, print_first,
               first_german_is_printed, forget_streams, true}),
    panicking({"imsg_print", "the first long one", prepare_long, print_long, long_is_printed,
               forget_streams, true}),
    {"imsg_print", "to a procedure", prepare_procedure, print_to_procedure, is_printed_to_procedure,
     forget_procedure},
    {"imsg_print", "to a procedure and stdout", prepare_doubled, print_to_procedure,
     is_printed_to_both, forget_procedure},
    {"imsg_print_shared", "", prepare_streams, print_shared, no_memory_is_printed, forget_streams},
    {"imsg_print_sharedv", "", prepare_streams, print_sharedv, warning_is_printed, forget_streams},
    {"imsg_snprintf", "", prepare_text, format_snprintf, is_formatted, forget_text},
    {"imsg_snprintf", "Shift_JIS", prepare_multibyte<true>, format_multibyte<true>,
     multibyte_is_formatted<true>, forget_text, true},
    {"imsg_snprintf", "UTF-8", prepare_multibyte<false>, format_multibyte<false>,
     multibyte_is_formatted<false>, forget_text, true},
    {"imsg_vsnprintf", "", prepare_text, format_text<into_limited>, is_formatted, forget_text},
    {"imsg_vsprintf", "", prepare_text, format_text<into_unlimited>, is_formatted, forget_text},
    {"imsg_sprintf", "", prepare_text, format_text<imsg_sprintf>, is_formatted, forget_text},
    {"imsg_vsnprintf_taggable", "", prepare_text, format_text<into_taggable>, is_formatted,
     forget_text},
    {"imsg_snprintf_taggable", "", prepare_text, format_snprintf_taggable, is_formatted,
     forget_text},
    {"imsg_snprintf_type", "", prepare_text, format_typed, is_typed, forget_text},
    {"cat_extractmsg", "", prepare_german, extract, is_extracted, forget_text},
    {"cat_extractmsg", "the first", prepare_german, extract, is_extracted, forget_text, true},
    {"cat_extractmsg", "a third catalog", prepare_german, extract_third, is_extracted, forget_text},
    {"imsg_strerror", "", prepare_text, name_error<ENOENT>, error_is_named, forget_text},
    {"imsg_strerror", "unknown", prepare_text, name_error<9999>, unknown_error_is_named,
     forget_text},
    {"imsg_strerror", "below zero", prepare_text, name_error<-5>, number_is_named, forget_text},
    {"imsg_strerror_gethost", "", prepare_german, name_host_error, is_extracted, forget_text},
    {"imsg_prefix_format", "", nullptr, format_prefix, prefix_is_formatted, forget_text},
    {"imsg_prefix_format", "the first, German", speak_german, format_prefix,
     german_prefix_is_formatted, forget_text, true},
    {"imsg_suppress_prefix", "", nullptr, [] { return imsg_suppress_prefix(1) >= 0; },
     [](bool) {
       return *imsg_prefix_format(IMSG_TYPE_ERROR, 0) == '\0' ? nullptr : "there is one";
     },
     [] { imsg_suppress_prefix(0); }},
    {"imsg_output_subsys", "", nullptr, [] { return imsg_output_subsys(1) >= 0; },
     [](bool) { return imsg_output_subsys(1) == 1 ? nullptr : "the flag is not set"; },
     [] { imsg_output_subsys(0); }},
    {"imsg_set_app_name", "", name_noname, set_name, name_is_whole, name_noname},
    {"imsg_set_message_home", "", nullptr, set_message_home, is_kept, reset_names},
    {"imsg_set_errnum_file", "", prepare_errnum_file, set_errnum_file, is_kept, reset_names},
    {"imsg_should_trace", "", prepare_traces, read_settings, is_traced, imsg_reset_verbosity},
    {"imsg_should_trace_subsys", "", prepare_traces, read_settings_of_subsys, is_traced,
     imsg_reset_verbosity},
    {"imsg_get_verbosity_ev", "", prepare_traces, read_verbosity, verbosity_is_read,
     imsg_reset_verbosity},
    {"imsg_set_redirect_procs", "", nullptr, set_procs, goes_to_procedure<IMSG_TYPE_OK>,
     route_as_at_start},
    {"imsg_redirect_output", "", nullptr, redirect, goes_to_procedure<IMSG_TYPE_ERROR_CONT>,
     route_as_at_start},
    {"imsg_use_window", "", nullptr, use_window, goes_to_procedure<IMSG_TYPE_OK>,
     route_as_at_start},
    {"imsg_set_output_box", "", nullptr, set_box, goes_to_procedure<IMSG_TYPE_BOX>,
     route_as_at_start},
    {"imsg_append_proc_default", "", prepare_passing_on, print<0>, check_print<0>, forget_streams},
    {"imsg_fputs", "", prepare_streams, put_text<kPlain>, plain_is_put, forget_streams},
    {"imsg_fputs", "the first", prepare_streams, put_text<kPlain>, plain_is_put, forget_streams,
     true},
    {"imsg_fputs", "line by line", prepare_lines, put_text<kPlain>, plain_is_put, forget_streams},
    {"imsg_fputs", "long", prepare_long, put_text<long_text>, long_is_put, forget_streams},
    {"imsg_fputs", "long, without a buffer", prepare_unbuffered, put_text<long_text>, long_is_put,
     forget_streams},
    {"imsg_fputs", "styles to a file", prepare_streams, put_text<kStyled>, styles_vanish,
     forget_streams},
    {"imsg_fputs", "Shift_JIS", prepare_multibyte<true>, put_text<kStyledCharacter<true>>,
     multibyte_is_put<true>, forget_streams, true},
    {"imsg_fputs", "UTF-8", prepare_multibyte<false>, put_text<kStyledCharacter<false>>,
     multibyte_is_put<false>, forget_streams, true},
    {"imsg_fputs", "styles on a terminal", prepare_terminal, put_text<kStyled>, styles_are_shown,
     forget_streams},
    panicking({"imsg_fputs", "the first on a terminal", prepare_terminal, put_text<kStyled>,
               styles_are_shown, forget_streams, true}),
    {"imsg_putchar", "", prepare_character, put_character, character_is_put, choose_stream},
    {"imsg_reset_term", "", prepare_reset, reset_terminal, attributes_are_back, echo_again},
    {"imsg_sigttou_handler", "", nullptr, refuse_background, is_kept, nullptr},
    {"imsg_initialize", "", nullptr, initialize, is_started, nullptr, true},
    {"libnorvaks_print_verid", "", prepare_streams, print_identity, identity_is_printed,
     forget_streams},
    {"libnorvaks_sprintf_verid", "", prepare_text, format_identity, identity_is_formatted,
     forget_text},
};

constexpr SweepExemption exemptions[] = {
    {"imsg_append_proc_suppress", "does nothing"},
    {"imsg_get_app_name", "reads; starts the module as imsg_initialize does"},
    {"imsg_get_desired_verbosity", "reads"},
    {"imsg_get_redirect_info", "reads"},
    {"imsg_get_redirect_procs", "reads"},
    {"imsg_in_gui", "reads"},
    {"imsg_null_sigttou_handler", "does nothing"},
    {"imsg_reset_verbosity", "one store"},
    {"imsg_set_trace_subsys", "one store"},
    {"imsg_set_trace_verbosity", "one store"},
    {"imsg_strip_style_chars", "writes into the caller's buffer alone, without a call"},
};

}  // namespace

const SweepModule kSweepImsg = {rows, exemptions};

}  // namespace ks_test
