// Printing: a message with its prefix, composed in one buffer and delivered.
#include "imsg.h"

#include <cstdlib>
#include <ctime>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "date.h"
#include "imsg_internal.h"
#include "imsg_msg.h"
#include "ks_print.h"
#include "strutl.h"
#include "text/ks_zone.h"

namespace ks {
bool imsg_initialized = false;
FILE *real_stdout = nullptr;
FILE *real_stderr = nullptr;
const char *imsg_daemon_log_name = nullptr;
}  // namespace ks

using namespace ks;

namespace {

bool imsg_io_interleave_flag = false;  // flush around prompts

bool environment_has(const char *name) {
  const char *value = getenv(name);
  return value != nullptr && *value != '\0';
}

}  // namespace

void ks::format_time_stamp(char *ts, size_t ts_sz) {
  struct timeval now;
  date_get_timeval(&now);
  struct tm local = {};
  local_time(now.tv_sec, &local);
  char clock[16];
  signals_held([&] {  // libc loads the words of a locale under a lock
    strftime(clock, sizeof clock, "%H:%M:%S", &local);
  });
  const size_t ts_count = static_cast<size_t>(
      strutl_snprintf(ts, ts_sz, "%s.%.3d", clock, static_cast<int>(now.tv_usec / 1000)));
  KS_ASSERT(ts_count <= ts_sz);
}

void imsg_initialize() {
  if (imsg_initialized) return;
  real_stdout = stdout;
  real_stderr = stderr;
  reset_names();
  if (environment_has("PRINT_SUBSYS")) imsg_output_subsys(1);
  if (environment_has("PRINT_SUBSYS_OK")) {
    imsg_output_subsys(1);
    imsg_output_ok_flag = true;
  }
  if (environment_has("IMSG_IO_INTERLEAVE")) imsg_io_interleave_flag = true;
  imsg_initialized = true;
}

int imsg_print(int type, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_print_sharedv(type, nullptr, table, number, args);
  va_end(args);
  return result;
}

int imsg_print_shared(int type, const char *subsys, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_print_sharedv(type, subsys, table, number, args);
  va_end(args);
  return result;
}

int imsg_print_sharedv(int type, const char *subsys, const void *table, int number, va_list args) {
  need_imsg();
  // Always without the subsystem's name: printed lines never show it, and scripts read them so.
  const char *prefix_format = imsg_prefix_format(type, 0);
  PrefixNames names = {"", ""};
  if (number != -1) {
    if (table == nullptr) {
      print<IMSG_MSG_BAD_NUMBER>(IMSG_TYPE_ERROR, "print_sharedv", 0L, number);
      return 0;
    }
    names.subsys = subsys != nullptr ? subsys : static_cast<const imsg_table_t *>(table)->subsys;
  }
  char stamp[32];
  if (type == IMSG_TYPE_TRACE) {
    format_time_stamp(stamp, sizeof stamp);
    names.stamp = stamp;
  }
  char *text;
  imsg_print_sharedv_util(&text, type, prefix_format, names, table, number, args);
  if (text != nullptr) deliver(type, text);
  return 0;
}
