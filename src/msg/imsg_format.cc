// Text in the form of a message, into the caller's buffer.
#include <cstdint>
#include <cstdio>

#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_arguments.h"
#include "imsg_internal.h"
#include "imsg_msg.h"
#include "ks_print.h"
#include "strutl.h"

using namespace ks;

namespace {

// The format of a message, or NULL after an error message.
const char *message_format(const void *table, int number) {
  if (number == -1) {
    if (table == nullptr) print<IMSG_MSG_NULL_MESSAGE>(IMSG_TYPE_ERROR, "vsprintf/NOMSG");
    return static_cast<const char *>(table);
  }
  const imsg_table_t *messages = static_cast<const imsg_table_t *>(table);
  if (messages == nullptr || number < 0 || number >= messages->count) {
    print<IMSG_MSG_BAD_NUMBER>(IMSG_TYPE_ERROR, "vsprintf",
                               static_cast<long>(reinterpret_cast<intptr_t>(table)), number);
    return nullptr;
  }
  return safe_format(messages->texts[number], cat_extractmsg(messages, number));
}

}  // namespace

int imsg_vsnprintf(char *dest, size_t size, const void *table, int number, va_list args) {
  const char *format = message_format(table, number);
  if (format == nullptr) return -1;
  need_imsg();
  if (size != 0) return strutl_vsnprintf(dest, size, format, args);
  int result = -1;
  signals_held([&] { result = vsprintf(dest, format, args); });
  return result;
}

int imsg_vsprintf(char *dest, const void *table, int number, va_list args) {
  return imsg_vsnprintf(dest, 0, table, number, args);
}

int imsg_sprintf(char *dest, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsprintf(dest, table, number, args);
  va_end(args);
  return result;
}

int imsg_vsnprintf_taggable(int, char *dest, size_t size, const void *table, int number,
                            va_list args) {
  return imsg_vsnprintf(dest, size, table, number, args);
}

int imsg_snprintf_taggable(int mode, char *dest, size_t size, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf_taggable(mode, dest, size, table, number, args);
  va_end(args);
  return result;
}

int imsg_snprintf(char *dest, size_t size, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf_taggable(2, dest, size, table, number, args);
  va_end(args);
  return result;
}

int imsg_snprintf_type(char *dest, size_t size, int type, const void *table, int number, ...) {
  need_imsg();
  const char *prefix_format = imsg_prefix_format(type, 0);
  char stamp[32] = "";
  if (type == IMSG_TYPE_TRACE) format_time_stamp(stamp, sizeof stamp);
  const OutputText prefix = compose_prefix(type, prefix_format, {stamp, ""});
  if (prefix.text == nullptr) return -1;
  if (strutl_cpy_buf(dest, prefix.text, size) != 0) {
    print<IMSG_MSG_BUFFER_TOO_SMALL>(IMSG_TYPE_ERROR);
    return -1;
  }
  va_list args;
  va_start(args, number);
  const int result =
      imsg_vsnprintf(dest + prefix.prefix_length, size - prefix.prefix_length, table, number, args);
  va_end(args);
  return result;
}
