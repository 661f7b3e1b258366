// The output buffer, and composing prefix and message in it.
#include <cstdlib>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "ks_stream.h"
#include "strutl.h"

using namespace ks;

namespace {

constexpr int32_t kFirstSize = 16384;
constexpr int32_t kLargestSize = 1 << 30;

struct {
  char *text;    // from malloc, grows and is never given back; one byte longer than size
  int32_t size;  // 0 until the first message
} output;

// The buffer that there was stays in place when a larger one cannot be had: the assertion itself is
// printed through it.
void set_size(int32_t size) {
  char *out_buf_p = nullptr;
  if (size <= kLargestSize) {
    signals_held([&] {
      out_buf_p = static_cast<char *>(realloc(output.text, static_cast<size_t>(size) + 1));
      if (out_buf_p != nullptr) output = {out_buf_p, size};
    });
  }
  KS_ASSERT(out_buf_p != NULL);
}

void need_buffer() {
  if (output.text == nullptr) set_size(kFirstSize);
}

void grow() { set_size(output.size + output.size / 2); }

int expand_prefix(int type, const char *format, const PrefixNames &names) {
  const size_t size = static_cast<size_t>(output.size);
  if (*format == '\0') {
    *output.text = '\0';
    return 0;
  }
  if (type == IMSG_TYPE_TRACE) {
    return strutl_snprintf(output.text, size, format, names.stamp, imsg_get_app_name(),
                           names.subsys);
  }
  return strutl_snprintf(output.text, size, format, imsg_get_app_name(), names.subsys);
}

// Past the module's own printing, which has just failed.
void trace_lost_prefix() {
  char line[64];
  const int length =
      strutl_snprintf(line, sizeof line, "prefix consumed entire buffer. (sz: %d).\n", output.size);
  if (length > 0) write_to_stream(stderr, line, static_cast<size_t>(length));
}

}  // namespace

OutputText ks::compose_prefix(int type, const char *prefix_format, const PrefixNames &names) {
  need_buffer();
  for (;;) {
    const int length = expand_prefix(type, prefix_format, names);
    if (length < 0) {
      if (tracing("ks/imsg", 1)) trace_lost_prefix();
      return {nullptr, 0};
    }
    if (length < output.size) return {output.text, static_cast<size_t>(length)};
    grow();
  }
}

void ks::imsg_print_sharedv_util(char **result_pp, int type, const char *prefix_format,
                                 const PrefixNames &names, const void *table, int number,
                                 va_list args) {
  KS_ASSERT(result_pp != NULL);
  KS_ASSERT(prefix_format != NULL);
  *result_pp = nullptr;
  const OutputText prefix = compose_prefix(type, prefix_format, names);
  if (prefix.text == nullptr) return;
  for (;;) {
    const int32_t room = output.size - static_cast<int32_t>(prefix.prefix_length);
    va_list again;
    va_copy(again, args);
    const int length = imsg_vsnprintf_taggable(2, output.text + prefix.prefix_length,
                                               static_cast<size_t>(room), table, number, again);
    va_end(again);
    if (length >= 0 && length < room) break;
    // Also after -1: a wrong number is reported at each step until no larger buffer can be had.
    // It has to be loud and fatal.
    grow();
  }
  *result_pp = output.text;
}
