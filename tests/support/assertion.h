// The line that a failed assertion leaves behind.
#pragma once

#include <string>
#include <string_view>

namespace ks_test {

// An extended regular expression for the whole line, without the prefix of an error; only the
// number of the source line is open.
std::string assertion_line(std::string_view condition, std::string_view file);

}  // namespace ks_test
