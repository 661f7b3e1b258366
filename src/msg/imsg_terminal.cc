// The terminal behind stdout: the bytes of its styles, and its attributes for the end.
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "ks_product.h"

#include <curses.h>
#include <term.h>

using namespace ks;

namespace {

bool looked_at_terminal = false;
bool has_styles = false;             // `styles` holds the terminal's bytes
bool in_background = false;          // seen when the terminal was looked at
bool imsg_tty_info_fetched = false;  // imsg_termios holds the attributes to go back to
termios imsg_termios;

// The names of what a style needs, and the terminal's bytes for it, which are terminfo's. A style
// without its exit bytes has no enter bytes either.
struct Style {
  const char *exit_capability;
  const char *enter_capability;
  const char *exit;
  const char *enter;
};
constinit Style styles[] = {
    {"sgr0", "bold", nullptr, nullptr},  // B
    {"rmso", "smso", nullptr, nullptr},  // I
    {"rmul", "smul", nullptr, nullptr},  // U
};
static_assert(std::size(styles) == std::size(kStyleLetters));

// Runs `body` with `routine` as SIGTTOU's. This frame absorbs the fault by which the terminal
// refuses a process in the background, so its protocol is spelled out. Result: whether the body
// came to its end.
bool with_sigttou_routine(pfm_signal_t routine, void (*body)()) {
  volatile pfm_signal_t old_routine = imsg_null_sigttou_handler;
  pfm_cleanup_rec_t rec;
  rec.magic = 0;
  rec.status = sigsetjmp(rec.env, 1);
  const int status = pfm_cleanup_start(&rec, 0);
  if (status != 0) {
    if (status < 0) pfm_cleanup_rls(&rec);  // still armed: it would land here again, for ever
    if (old_routine != imsg_null_sigttou_handler) pfm_signal(SIGTTOU, old_routine);
    if (status != PFM_STATUS_TTOU) pfm_raise(status);
    pfm_enable();
    return false;
  }
  signals_held([&] { old_routine = pfm_signal(SIGTTOU, routine); });
  body();
  pfm_inhibit();
  pfm_signal(SIGTTOU, old_routine);
  old_routine = imsg_null_sigttou_handler;
  pfm_enable();
  pfm_cleanup_rls(&rec);
  return true;
}

const char *capability(const char *name) {
  const char *bytes = tigetstr(const_cast<char *>(name));
  return bytes != reinterpret_cast<const char *>(intptr_t{-1}) ? bytes : nullptr;  // -1: no string
}

void read_styles() {
  for (Style &style : styles) {
    style.exit = capability(style.exit_capability);
    if (style.exit != nullptr) style.enter = capability(style.enter_capability);
  }
  has_styles = true;
}

void reset_at_exit(int, void *) { imsg_reset_term(); }

void keep_attributes() {
  if (tcgetattr(STDOUT_FILENO, &imsg_termios) == 0) imsg_tty_info_fetched = true;
  pfm_on_exit(reset_at_exit, nullptr);
}

// Nothing else here writes to the terminal, so nothing else would tell.
void refuse_background() {
  const pid_t foreground = tcgetpgrp(STDOUT_FILENO);
  if (foreground > 0 && foreground != getpgrp()) pfm_raise(PFM_STATUS_TTOU);
}

void read_description(const char *term) {
  signals_held([&] {  // terminfo allocates
    int found = 0;
    setupterm(const_cast<char *>(term), STDOUT_FILENO, &found);
    if (found > 0) read_styles();
  });
}

void set_up_terminal() {
  const char *term = getenv("TERM");
  const bool styled = term != nullptr && !ks_no_bold();
  if (styled) keep_attributes();
  refuse_background();
  if (styled) read_description(term);
}

void restore_attributes() {
  if (!imsg_tty_info_fetched) return;
  retry_eintr([] { return tcsetattr(STDOUT_FILENO, TCSADRAIN, &imsg_termios); });
}

}  // namespace

void ks::need_terminal() {
  if (looked_at_terminal) return;
  looked_at_terminal = true;
  if (isatty(fileno(real_stdout)) != 1) return;
  if (with_sigttou_routine(imsg_sigttou_handler, set_up_terminal)) return;
  in_background = true;
  has_styles = false;
}

bool ks::terminal_has_styles() { return has_styles; }

bool ks::terminal_may_stop_us() { return in_background; }

void ks::put_styles(unsigned wanted, int (*put)(int)) {
  signals_held([&] {  // tputs keeps its routine in a variable of its own
    for (size_t at = 0; at < std::size(styles); ++at) {
      if ((wanted >> at & 1) == 0 && styles[at].exit != nullptr) tputs(styles[at].exit, 1, put);
    }
    for (size_t at = 0; at < std::size(styles); ++at) {
      if ((wanted >> at & 1) != 0 && styles[at].enter != nullptr) tputs(styles[at].enter, 1, put);
    }
  });
}

// SIGTTOU is ignored meanwhile: the terminal comes back from a process in the background too.
void imsg_reset_term() {
  while (!with_sigttou_routine(SIG_IGN, restore_attributes)) {
  }
}

void imsg_sigttou_handler(int) { pfm_raise(PFM_STATUS_TTOU); }

void imsg_null_sigttou_handler(int) {}
