// What the sources of the message module share.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "imsg.h"
#include "ks_trace.h"

namespace [[gnu::visibility("hidden")]] ks {

inline constexpr int kLastMessageType = IMSG_TYPE_LOG_ONLY;
inline constexpr int kVerbosityUnread = 32767;

// Module state that more than one source reads.
extern bool imsg_initialized;
extern bool imsg_output_ok_flag;  // plain output bears the application's name and "Ok: "
extern FILE *real_stdout;         // streams behind plain output and behind the other types
extern FILE *real_stderr;
extern const char *imsg_daemon_log_name;  // the daemon's log; NULL where this is no daemon

inline void need_imsg() {
  if (!imsg_initialized) imsg_initialize();
}

// The texts of the settings go to their defaults.
void reset_names();

// Writes the local time of day as HH:MM:SS.mmm into the `ts_sz` bytes at `ts`.
void format_time_stamp(char *ts, size_t ts_sz);

// The arguments of a prefix's format.
struct PrefixNames {
  const char *stamp;  // of a trace message
  const char *subsys;
};

// The process's one buffer, in which each printed message is composed.
struct OutputText {
  char *text;            // NULL when composing failed
  size_t prefix_length;  // bytes of it that are prefix
};

// Expands a prefix into the output buffer.
OutputText compose_prefix(int type, const char *prefix_format, const PrefixNames &names);

// Expands prefix and message into the output buffer and points `*result_pp` at them, or at NULL
// when the prefix cannot be formatted. The text lives until the next composing.
void imsg_print_sharedv_util(char **result_pp, int type, const char *prefix_format,
                             const PrefixNames &names, const void *table, int number, va_list args);

// Hands a finished text to the procedure of its type.
void deliver(int type, const char *text);

// imsg_fputs with a stamp in front, which is written as it is. Both go out in one write where they
// fit, so that several processes may share a log.
int write_entry(const char *stamp, const char *text, FILE *stream);

// What a mark in a text can switch on: each of these letters, with the bit of its place.
inline constexpr char kStyleLetters[] = {'B', 'I', 'U'};

// Looks at the terminal behind stdout, once in a process.
void need_terminal();

// Whether that terminal can show styles to this process.
bool terminal_has_styles();

// Whether the terminal was looked at from the background, where it may stop a process that writes.
bool terminal_may_stop_us();

// Gives `put` the bytes that switch off the terminal's attributes that are not in `wanted` and then
// on those that are. Signals are held meanwhile.
void put_styles(unsigned wanted, int (*put)(int));

}  // namespace ks
