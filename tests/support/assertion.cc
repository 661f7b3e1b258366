#include "support/assertion.h"

namespace ks_test {
namespace {

std::string literally(std::string_view text) {
  std::string pattern;
  for (char c : text) {
    if (std::string_view("\\^$.[]|()*+?{}").find(c) != std::string_view::npos) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

}  // namespace

std::string assertion_line(std::string_view condition, std::string_view file) {
  return "PFM_ASSERT:\\(" + literally(condition) + "\\) failed: '" + literally(file) + "':[0-9]+\n";
}

}  // namespace ks_test
