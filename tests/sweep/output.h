// What a row prints, kept where its check can look at it. Descriptor 1, on which the sweep itself
// reports, stays as it is.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace ks_test {

// From now on messages of all types go to memory instead of their streams, without prefixes.
void catch_messages();

// The text of the messages since the last forget_messages.
std::string_view caught_messages();
void forget_messages();

// Opens files in memory: one in place of descriptor 2, and one with a stream that the library takes
// for its stdout, unless it is not to be started yet.
void catch_streams(bool start_library = true);

// The same with a terminal of TERM's kind `term` for stdout and descriptor 1. What has come to it is
// read by caught_out.
void catch_terminal(const char *term);

// That stream. What uses the variable `stdout` finds it there between take_stdout and
// give_stdout_back.
FILE *row_stdout();
void take_stdout();
void give_stdout_back();

// What has come to the files since the last forget_streams, which gives stdout back, too.
std::string caught_out();
std::string caught_err();
void forget_streams();

}  // namespace ks_test
