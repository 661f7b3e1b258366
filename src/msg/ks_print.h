// Printing from inside the library: the message's name alone, checked by the compiler.
//
// A row's name carries its table and the types that its directives take (the generated
// <module>_msg.h), so a wrong table, a missing argument, or %d with a size does not compile. On two
// ABIs nothing else would catch that.
#pragma once

#include <type_traits>

#include "imsg.h"

namespace ks {

// The letter by which the generator names the type that a printf directive takes; 0 for none.
template <class T>
constexpr char directive_letter() {
  using U = std::decay_t<T>;
  if (std::is_same_v<U, int>) return 'i';
  if (std::is_same_v<U, unsigned>) return 'u';
  if (std::is_same_v<U, long>) return 'l';
  if (std::is_same_v<U, unsigned long>) return 'L';
  if (std::is_same_v<U, double>) return 'f';
  if (std::is_same_v<U, const char *> || std::is_same_v<U, char *>) return 's';
  return 0;
}

template <class... Args>
constexpr bool arguments_match(const char *letters) {
  [[maybe_unused]] int at = 0;
  return (true && ... && (letters[at] != '\0' && letters[at++] == directive_letter<Args>())) &&
         letters[at] == '\0';
}

// imsg_print of the row `Message` with its arguments.
template <auto Message, class... Args>
inline void print(int type, Args... args) {
  static_assert(arguments_match<Args...>(ks_message_arguments(Message)),
                "the arguments do not fit the message's directives");
  imsg_print(type, ks_message_table(Message), Message, args...);
}

}  // namespace ks
