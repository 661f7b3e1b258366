// The two ways to abort.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "core/ks_frame.h"
#include "msg/ks_print.h"
#include "pfm.h"
#include "pfm_msg.h"

namespace {

// Printing asserts and asserting prints: while an assertion is being printed, a second one writes
// its line straight to descriptor 2.
bool printing_assertion = false;

void write_assertion(const char *expression_text, const char *file, int line) {
  char text[1024];
  const int length = snprintf(text, sizeof text, _pfm_ks_msg_table->texts[PFM_MSG_ASSERT_FAILED],
                              expression_text, file, line);
  if (length <= 0) return;
  const size_t bytes =
      static_cast<size_t>(length) < sizeof text ? static_cast<size_t>(length) : sizeof text - 1;
  if (write(STDERR_FILENO, text, bytes) < 0) return;  // nowhere to say it
}

// No signal's routine may raise out of an abort that is on its way.
void hold_signals_for_good() {
  ++ks::pfm_inh_count;
  ks::order_for_signals();
}

}  // namespace

void pfm_panic(const char *file, int line) {
  hold_signals_for_good();
  ks::print<PFM_MSG_ABORT>(IMSG_TYPE_ERROR, file, line);
  abort();
}

void pfm_assert_fail(const char *expression_text, const char *file, int line) {
  hold_signals_for_good();
  if (printing_assertion) {
    write_assertion(expression_text, file, line);
  } else {
    printing_assertion = true;
    ks::print<PFM_MSG_ASSERT_FAILED>(IMSG_TYPE_ERROR, expression_text, file, line);
  }
  abort();
}
