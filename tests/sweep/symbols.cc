#include "sweep/symbols.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <vector>

#include "support/child.h"

namespace ks_test {
namespace {

extern "C" const char __executable_start;

std::string hexadecimal(Address number) {
  char text[32];
  snprintf(text, sizeof text, "%#zx", static_cast<size_t>(number));
  return text;
}

Symbol in_library(Address place, const Dl_info &info) {
  if (info.dli_sname == nullptr) {
    const std::string file = info.dli_fname;
    const auto base = reinterpret_cast<Address>(info.dli_fbase);
    const std::string name = file.substr(file.rfind('/') + 1);
    return {name, name + "+" + hexadecimal(place - base)};
  }
  const auto begin = reinterpret_cast<Address>(info.dli_saddr);
  return {info.dli_sname, std::string(info.dli_sname) + "+" + hexadecimal(place - begin)};
}

// addr2line prints for each the address, and two lines, the function and the file with the line, for
// each function that is inlined there, the innermost first.
void in_program(const std::vector<Address> &places, Address base,
                std::map<Address, Symbol> &symbols) {
  char program[4096] = {};
  if (readlink("/proc/self/exe", program, sizeof program - 1) < 0) return;
  std::vector<std::string> argv = {"addr2line", "-a", "-i", "-f", "-C", "-e", program};
  for (const Address place : places) argv.push_back(hexadecimal(place - base));
  std::istringstream out(run_program(argv).out);
  auto place = places.begin();
  Symbol *symbol = nullptr;
  for (std::string line; std::getline(out, line);) {
    if (line.starts_with("0x")) {
      symbol = &symbols[*place++];
      continue;
    }
    symbol->function = line.substr(0, line.find('('));
    std::getline(out, line);
    if (symbol->place.empty()) symbol->place = line.substr(0, line.find(" (disc"));
  }
}

}  // namespace

std::map<Address, Symbol> find_symbols(const std::set<Address> &places) {
  const auto base = reinterpret_cast<Address>(&__executable_start);
  std::map<Address, Symbol> symbols;
  std::vector<Address> own;
  for (const Address place : places) {
    Dl_info info = {};
    if (dladdr(reinterpret_cast<void *>(place), &info) == 0) {
      symbols[place] = {"?", hexadecimal(place)};
    } else if (reinterpret_cast<Address>(info.dli_fbase) == base) {
      own.push_back(place);
    } else {
      symbols[place] = in_library(place, info);
    }
  }
  if (!own.empty()) in_program(own, base, symbols);
  return symbols;
}

}  // namespace ks_test
