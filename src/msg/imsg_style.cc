// Writing a text: style marks become the terminal's attributes or vanish, and in a daemon's log a
// text stays one line.
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iterator>

#include "imsg.h"
#include "imsg_internal.h"
#include "ks_stream.h"
#include "strutl.h"

using namespace ks;

namespace {

constexpr char kMarkByte = '\x01';
constexpr size_t kMarkSize = 4;  // the byte twice, '0' or '1', the attribute's letter

FILE *imsg_curr_stream = nullptr;  // imsg_fputs writes to it, and with it imsg_putchar

// What is to be written to imsg_curr_stream, gathered so that a stream without a buffer gets it in
// large pieces too. Static for tputs, whose routine has no argument but the byte.
struct {
  size_t used;
  char bytes[4096];
} gathered;

bool write_piece(const char *bytes, size_t size) {
  return write_to_stream(imsg_curr_stream, bytes, size);
}

bool write_gathered() {
  const size_t used = gathered.used;
  gathered.used = 0;
  return write_piece(gathered.bytes, used);
}

bool gather(const char *bytes, size_t size) {
  if (size > sizeof gathered.bytes - gathered.used && !write_gathered()) return false;
  if (size > sizeof gathered.bytes) return write_piece(bytes, size);
  memcpy(gathered.bytes + gathered.used, bytes, size);
  gathered.used += size;
  return true;
}

// The end of a text, which for most texts is all of it. Also of an empty one: what the stream holds
// goes out with it.
bool write_rest(const char *bytes, size_t size) {
  if (gathered.used == 0) return write_piece(bytes, size);
  return gather(bytes, size) && write_gathered();
}

// For tputs, during which signals are held, so nothing is written here.
int gather_byte(int byte) {
  if (gathered.used == sizeof gathered.bytes) return EOF;
  gathered.bytes[gathered.used++] = static_cast<char>(byte);
  return byte;
}

// The bit of the attribute that the mark at `text` switches; 0 where there is no mark.
unsigned marked_style(const char *text) {
  if (text[0] != kMarkByte || text[1] != kMarkByte) return 0;
  if (text[2] != '0' && text[2] != '1') return 0;
  for (size_t at = 0; at < std::size(kStyleLetters); ++at) {
    if (text[3] == kStyleLetters[at]) return 1u << at;
  }
  return 0;
}

// A daemon's log is one line a message; the process's own stdout is no log.
bool is_quoted(const FILE *stream) {
  return imsg_daemon_log_name != nullptr && stream == real_stdout && stream != stdout;
}

// What styles a text has so far. Whether the stream shows them is asked once in a text, so that what
// is switched on is switched off again.
struct Styles {
  unsigned on = 0;
  bool asked = false;
  bool shown = false;

  bool are_shown() {
    if (!asked) shown = terminal_has_styles() && isatty(fileno(imsg_curr_stream)) == 1;
    asked = true;
    return shown;
  }
};

// Does what the mark at `mark` says where the stream shows it.
bool switch_style(Styles &styles, const char *mark) {
  const unsigned style = marked_style(mark);
  const unsigned wanted = mark[2] == '1' ? styles.on | style : styles.on & ~style;
  if (wanted == styles.on || !styles.are_shown()) return true;
  // Room for more than the bytes of any terminal's styles.
  if (gathered.used > sizeof gathered.bytes / 2 && !write_gathered()) return false;
  put_styles(wanted, gather_byte);
  styles.on = wanted;
  return true;
}

// The first character that may not go out as it is, or the text's end.
const char *next_special(const char *text, bool quoted) {
  size_t position;
  if (quoted) {
    const bool found = strutl_find_char_from(text, 0, "\x01\n|", &position, nullptr);
    return text + (found ? position : strlen(text));
  }
  // Without the byte there is no such character, whatever the encoding; most texts end here.
  const char *hit = strchrnul(text, kMarkByte);
  if (*hit == '\0') return hit;
  strutl_find_char(text, 0, kMarkByte, &position);
  return text + position;
}

// Of one character, which is not at the end of its text.
bool gather_character(const char *at, bool quoted) {
  if (quoted && *at == '|') return gather("||", 2);
  if (quoted && *at == '\n' && at[1] != '\0') return gather("|", 1);
  return gather(at, 1);
}

bool write_styled(const char *text, bool quoted) {
  Styles styles;
  for (const char *at = text;;) {
    const char *special = next_special(at, quoted);
    const size_t plain = static_cast<size_t>(special - at);
    if (*special == '\0') return write_rest(at, plain);
    if (!gather(at, plain)) return false;
    at = special;
    if (marked_style(at) != 0) {
      if (!switch_style(styles, at)) return false;
      at += kMarkSize;
    } else {
      if (!gather_character(at, quoted)) return false;
      ++at;
    }
  }
}

// A fault may have left an earlier text unfinished, so gathering starts anew.
int write_text(const char *stamp, const char *text, FILE *stream) {
  imsg_curr_stream = stream;
  gathered.used = 0;
  return gather(stamp, strlen(stamp)) && write_styled(text, is_quoted(stream)) ? 0 : -1;
}

// With SIGTTOU blocked a terminal takes the text of a process in the background and does not stop
// it. A fault that leaves the write restores the mask with its jump.
int write_unstopped(const char *stamp, const char *text, FILE *stream) {
  sigset_t mask;
  sigset_t ttou;
  sigemptyset(&ttou);
  sigaddset(&ttou, SIGTTOU);
  sigprocmask(SIG_BLOCK, &ttou, &mask);
  const int result = write_text(stamp, text, stream);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  return result;
}

}  // namespace

int ks::write_entry(const char *stamp, const char *text, FILE *stream) {
  need_imsg();
  need_terminal();
  return terminal_may_stop_us() ? write_unstopped(stamp, text, stream)
                                : write_text(stamp, text, stream);
}

int imsg_fputs(const char *text, FILE *stream) { return write_entry("", text, stream); }

int imsg_putchar(int character) {
  const unsigned char byte = static_cast<unsigned char>(character);
  FILE *stream = imsg_curr_stream != nullptr ? imsg_curr_stream : stdout;
  return write_to_stream(stream, reinterpret_cast<const char *>(&byte), 1) ? byte : EOF;
}

void imsg_strip_style_chars(char *dest, const char *source) {
  while (*source != '\0') {
    if (marked_style(source) != 0) {
      source += kMarkSize;
    } else {
      *dest++ = *source++;
    }
  }
  *dest = '\0';
}
