// Routing: each type of message has a procedure that takes the finished text.
#include <cstdio>
#include <cstdlib>

#include <algorithm>

#include "core/ks_frame.h"
#include "date.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "imsg_msg.h"
#include "ks_print.h"
#include "strutl.h"

using namespace ks;

namespace {

void out_adapter(void *info, const char *text);
void err_adapter(void *info, const char *text);
void box_adapter(void *info, const char *text);

// Procedures by type, with the info word of those that are not the library's own.
constinit imsg_out_fn_t imsg_out_fns[IMSG_TYPE_COUNT] = {
    imsg_append_proc_default, imsg_append_proc_default, imsg_append_proc_default,
    imsg_append_proc_default, imsg_append_proc_default, imsg_append_proc_default,
    imsg_append_proc_default, imsg_append_proc_default, imsg_append_proc_default,
    imsg_append_proc_default, imsg_append_proc_suppress};
void *imsg_redirect_info_p = nullptr;

// Destinations of the older interface, which come to their turn through the adapters.
struct {
  imsg_window_t out, err, box;
} imsg_old_redirect_output_dests = {{imsg_append_proc_default, nullptr}, {}, {}};

int imsg_cur_imsg_type = IMSG_TYPE_OK;  // of the message being delivered

// IMSG_DUP_OUTPUT: what goes elsewhere is also written to its stream.
bool imsg_dup_output = false;
bool dup_output_read = false;

bool dup_output() {
  if (!dup_output_read) {
    const char *value = getenv("IMSG_DUP_OUTPUT");
    int number = 0;
    signals_held([&] {
      imsg_dup_output = value != nullptr && sscanf(value, "%d", &number) == 1 && number != 0;
      dup_output_read = true;
    });
  }
  return imsg_dup_output;
}

// Box output without a box goes the way of plain output, an unknown type that of an error.
int routed_as(int type) {
  if (type < 0 || type > kLastMessageType) return IMSG_TYPE_ERROR;
  const bool is_box = type == IMSG_TYPE_BOX || type == IMSG_TYPE_BOX_CONT;
  if (is_box && imsg_out_fns[type] == imsg_append_proc_default) {
    return type - IMSG_TYPE_BOX + IMSG_TYPE_OK;
  }
  return type;
}

void imsg_dispatch_out_fn(imsg_out_fn_t proc, int type, void *argument, const char *text) {
  imsg_cur_imsg_type = type;
  if (proc == nullptr || proc == imsg_append_proc_default) {
    imsg_append_proc_default(nullptr, text);
    return;
  }
  // The user's wish counts for whatever is not the default, suppressed output too.
  if (dup_output()) imsg_append_proc_default(nullptr, text);
  if (proc != IMSG_OUT_NOTHING && proc != imsg_append_proc_suppress) proc(argument, text);
}

// The finer type is lost: programs of the older interface know three kinds of output.
void dispatch_old(const imsg_window_t &destination, int type, const char *text) {
  imsg_dispatch_out_fn(destination.proc, type, destination.arg, text);
}
void out_adapter(void *, const char *text) {
  dispatch_old(imsg_old_redirect_output_dests.out, IMSG_TYPE_OK, text);
}
void err_adapter(void *, const char *text) {
  dispatch_old(imsg_old_redirect_output_dests.err, IMSG_TYPE_ERROR, text);
}
void box_adapter(void *, const char *text) {
  dispatch_old(imsg_old_redirect_output_dests.box, IMSG_TYPE_BOX, text);
}

// Sets the entries from `first` to `last`; a procedure that needs its own info word goes behind the
// adapter.
void redirect_types(int first, int last, imsg_out_fn_t proc, imsg_out_fn_t adapter) {
  const bool as_it_is = proc == imsg_append_proc_default || proc == imsg_append_proc_suppress;
  std::fill(imsg_out_fns + first, imsg_out_fns + last + 1, as_it_is ? proc : adapter);
}

// Whether the messages of this process bear the time: its log is read without their senders.
bool bears_time() { return imsg_daemon_log_name != nullptr && imsg_cur_imsg_type % 2 == 0; }

// Puts the time with a blank behind it into the `size` bytes at `stamp`. False, and nothing put, when
// it cannot be formatted.
bool format_entry_time(char *stamp, size_t size) {
  struct timeval now;
  date_get_timeval(&now);
  *stamp = '\0';
  signals_held([&] {
    char *token = date_fmt_token_general(static_cast<int32_t>(now.tv_sec), 0, 2, 0, 0);
    if (token != nullptr) strutl_snprintf(stamp, size, "%s ", token);
    free(token);
  });
  return *stamp != '\0';
}

// Called after the text has been written, because the report reuses its buffer. The flag stops it
// from reporting on itself.
void report_missing_time() {
  static bool reporting = false;
  if (reporting) return;
  protect(
      [] {
        reporting = true;
        print<IMSG_MSG_NULL_MESSAGE>(IMSG_TYPE_ERROR,
                                     "imsg_print_time: date_fmt_token_general failed");
      },
      [] { reporting = false; });
  reporting = false;
}

// How many entries a caller's count means; below zero std::copy_n copies none.
int table_entries(int count) { return std::min<int>(count, IMSG_TYPE_COUNT); }

}  // namespace

void ks::deliver(int type, const char *text) {
  const int routed = routed_as(type);
  imsg_dispatch_out_fn(imsg_out_fns[routed], routed, imsg_redirect_info_p, text);
}

void imsg_append_proc_default(void *, const char *text) {
  need_imsg();
  FILE *stream = imsg_cur_imsg_type <= IMSG_TYPE_BOX_CONT ? real_stdout : real_stderr;
  char stamp[64] = "";  // continuations get none, so they line up behind their first line
  const bool has_time = !bears_time() || format_entry_time(stamp, sizeof stamp);
  write_entry(stamp, text, stream);
  if (!has_time) report_missing_time();
}

void imsg_append_proc_suppress(void *, const char *) {}

void imsg_set_redirect_procs(const imsg_out_fn_t *procs, int count, void *info) {
  std::copy_n(procs, table_entries(count), imsg_out_fns);
  imsg_redirect_info_p = info;
}

void imsg_get_redirect_procs(int count, imsg_out_fn_t *procs, void **info) {
  std::copy_n(imsg_out_fns, table_entries(count), procs);
  *info = imsg_redirect_info_p;
}

void imsg_redirect_output(imsg_out_fn_t out_proc, void *out_arg, imsg_out_fn_t err_proc,
                          void *err_arg) {
  imsg_old_redirect_output_dests.out = {out_proc, out_arg};
  imsg_old_redirect_output_dests.err = {err_proc, err_arg};
  redirect_types(IMSG_TYPE_OK, IMSG_TYPE_OK_CONT, out_proc, out_adapter);
  redirect_types(IMSG_TYPE_WARNING, IMSG_TYPE_TRACE_CONT, err_proc, err_adapter);
}

void imsg_use_window(const imsg_window_t *pair) {
  imsg_redirect_output(pair->proc, pair->arg, pair->proc, pair->arg);
}

void imsg_set_output_box(const imsg_window_t *pair) {
  imsg_old_redirect_output_dests.box = *pair;
  redirect_types(IMSG_TYPE_BOX, IMSG_TYPE_BOX_CONT, pair->proc, box_adapter);
}

void imsg_get_redirect_info(imsg_out_fn_t *out_proc, void **out_arg, imsg_out_fn_t *err_proc,
                            void **err_arg) {
  const auto &dests = imsg_old_redirect_output_dests;
  if (out_proc != nullptr) *out_proc = dests.out.proc;
  if (out_arg != nullptr) *out_arg = dests.out.arg;
  if (err_proc != nullptr) *err_proc = dests.err.proc;
  if (err_arg != nullptr) *err_arg = dests.err.arg;
}

int imsg_in_gui() { return imsg_out_fns[IMSG_TYPE_OK] != imsg_append_proc_default; }
