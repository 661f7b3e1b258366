// The two ways to abort.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/pfm_internal.h"
#include "msg/ks_print.h"
#include "pfm.h"
#include "pfm_msg.h"

using namespace ks;

namespace {

// Printing asserts and asserting prints: while the reason of an abort is being printed, a second
// abort writes its line straight to descriptor 2.
bool printing_reason = false;

void write_line(pfm_msg message, const char *expression_text, const char *file, int line) {
  char text[1024];
  const char *format = _pfm_ks_msg_table->texts[message];
  const int length = expression_text != nullptr
                         ? snprintf(text, sizeof text, format, expression_text, file, line)
                         : snprintf(text, sizeof text, format, file, line);
  if (length <= 0) return;
  const size_t bytes =
      static_cast<size_t>(length) < sizeof text ? static_cast<size_t>(length) : sizeof text - 1;
  if (write(STDERR_FILENO, text, bytes) < 0) return;  // nowhere to say it
}

// The counts of held and deferred signals.
struct Counts {
  int32_t inhibited;
  int32_t suspended;
  int32_t pending;
};

// Result: the counts before.
Counts exchange_counts(Counts counts) {
  return {std::exchange(pfm_inh_count, counts.inhibited),
          std::exchange(pfm_inh_susp_count, counts.suspended),
          std::exchange(pfm_pending_count, counts.pending)};
}

// False when a fault of the output procedure's own has left the print: this frame absorbs it.
bool print_line(pfm_msg message, const char *expression_text, const char *file, int line) {
  pfm_cleanup_rec_t rec;
  rec.magic = 0;
  rec.status = sigsetjmp(rec.env, 1);
  if (int status = pfm_cleanup_start(&rec, 0); status != 0) {
    status < 0 ? static_cast<void>(pfm_cleanup_rls(&rec)) : pfm_enable();
    return false;
  }
  if (message == PFM_MSG_ABORT) {
    print<PFM_MSG_ABORT>(IMSG_TYPE_ERROR, file, line);
  } else {
    print<PFM_MSG_ASSERT_FAILED>(IMSG_TYPE_ERROR, expression_text, file, line);
  }
  pfm_cleanup_rls(&rec);
  return true;
}

// Signals are blocked by the system and not held by the count, since the print may go to an output
// procedure that waits, wherever the abort has come from; and what is already deferred is put aside,
// since its routines could raise out of the print.
void tell(pfm_msg message, const char *expression_text, const char *file, int line) {
  if (printing_reason) return write_line(message, expression_text, file, line);
  printing_reason = true;
  const Counts counts = exchange_counts({});
  if (!print_line(message, expression_text, file, line)) {
    write_line(message, expression_text, file, line);
  }
  exchange_counts(counts);
  printing_reason = false;
}

[[noreturn]] void abort_for(pfm_msg message, const char *expression_text, const char *file,
                            int line) {
  pfm_init();  // which unblocks signals
  sigprocmask(SIG_BLOCK, &all_async_signals, nullptr);
  tell(message, expression_text, file, line);
  pfm_aborting = true;
  abort();
}

}  // namespace

void pfm_panic(const char *file, int line) { abort_for(PFM_MSG_ABORT, nullptr, file, line); }

void pfm_assert_fail(const char *expression_text, const char *file, int line) {
  abort_for(PFM_MSG_ASSERT_FAILED, expression_text, file, line);
}
