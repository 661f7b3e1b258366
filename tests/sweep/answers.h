// Rows that one lambda makes up: it asks a function and tells whether the answer was right.
#pragma once

#include <concepts>

#include "sweep/row.h"
#include "sweep/scratch.h"

namespace ks_test {

enum class Answer {
  kWrong,
  kRight,
  kTold  // the function said, as its header does, that it could not
};

constexpr Answer right_if(bool right) { return right ? Answer::kRight : Answer::kWrong; }

// What the last question of this process got.
inline constinit Answer last_answer = Answer::kWrong;

// `kAsk` gives an Answer, or a bool where the function has no way to fail.
template <auto kAsk>
bool ask() {
  last_answer = Answer::kWrong;
  if constexpr (std::same_as<decltype(kAsk()), bool>) {
    last_answer = right_if(kAsk());
  } else {
    last_answer = kAsk();
  }
  return last_answer != Answer::kTold;
}

inline const char *check_answer(bool) {
  return last_answer == Answer::kWrong ? "not the right answer" : nullptr;
}

template <auto kAsk>
constexpr SweepRow answer_row(std::string_view function, std::string_view about = "",
                              void (*prepare)() = warm_messages, void (*undo)() = nullptr) {
  return {function, about, prepare, ask<kAsk>, check_answer, undo};
}

// `kPrepare`, with messages warm.
template <void (*kPrepare)()>
void warm() {
  warm_messages();
  kPrepare();
}

// The same row of the first use in a process, and of a process that prepares it itself.
constexpr SweepRow cold(SweepRow row) {
  row.cold = true;
  return row;
}

constexpr SweepRow anew(SweepRow row) {
  row.anew = true;
  return row;
}

}  // namespace ks_test
