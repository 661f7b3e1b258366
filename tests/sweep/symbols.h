// Names of places in code, for people.
#pragma once

#include <map>
#include <set>
#include <string>

#include "sweep/tracee.h"

namespace ks_test {

struct Symbol {
  std::string function;
  std::string place;  // "src/core/list.cc:91" or "malloc+0x12"
};

// Of the program's own code by its debugging information, of libraries by their exported names.
std::map<Address, Symbol> find_symbols(const std::set<Address> &places);

}  // namespace ks_test
