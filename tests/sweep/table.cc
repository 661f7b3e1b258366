#include "sweep/table.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

namespace ks_test {
namespace {

struct NamedModule {
  std::string_view name;
  const SweepModule &module;
};

constexpr NamedModule kModules[] = {
    {"pfm", kSweepPfm},   {"stg", kSweepStg},         {"list", kSweepList},
    {"hash", kSweepHash}, {"imsg", kSweepImsg},       {"strutl", kSweepStrutl},
    {"date", kSweepDate}, {"fileutl", kSweepFileutl}, {"ks_product", kSweepKsProduct},
    {"rt", kSweepRt},     {"rt_proc", kSweepRtProc},  {"sysutl", kSweepSysutl},
};

// What the table says of a function.
struct Entry {
  bool exported = false;
  int rows = 0;
  int exemptions = 0;
  bool reasoned = true;
};

// Message tables begin with an underscore, comments with a '#'.
void read_exports(std::map<std::string, Entry, std::less<>> &entries) {
  std::ifstream list(NORVAKS_SOURCE_DIR "/src/exports.list");
  for (std::string line; std::getline(list, line);) {
    if (!line.empty() && line[0] >= 'a' && line[0] <= 'z') entries[line].exported = true;
  }
}

const char *fault_in(const Entry &entry) {
  if (!entry.exported) return "is in the table, but not exported";
  if (entry.rows == 0 && entry.exemptions == 0) return "has neither a row nor an exemption";
  if (entry.rows > 0 && entry.exemptions > 0) return "has both rows and an exemption";
  if (entry.exemptions > 1) return "is exempted twice";
  if (!entry.reasoned) return "is exempted without a reason";
  return nullptr;
}

}  // namespace

std::vector<const SweepRow *> rows_of(const std::vector<std::string_view> &functions) {
  std::vector<const SweepRow *> chosen;
  std::vector<bool> found(functions.size(), false);
  for (const NamedModule &named : kModules) {
    for (const SweepRow &row : named.module.rows) {
      bool wanted = functions.empty();
      for (size_t i = 0; i < functions.size(); ++i) {
        if (functions[i] == row.function || functions[i] == named.name) wanted = found[i] = true;
      }
      if (wanted) chosen.push_back(&row);
    }
  }
  for (size_t i = 0; i < functions.size(); ++i) {
    if (found[i]) continue;
    fprintf(stderr, "no row for %.*s\n", static_cast<int>(functions[i].size()),
            functions[i].data());
    exit(2);
  }
  return chosen;
}

bool table_is_whole() {
  std::map<std::string, Entry, std::less<>> entries;
  read_exports(entries);
  for (const NamedModule &named : kModules) {
    for (const SweepRow &row : named.module.rows) ++entries[std::string(row.function)].rows;
    for (const SweepExemption &exemption : named.module.exemptions) {
      Entry &entry = entries[std::string(exemption.function)];
      ++entry.exemptions;
      if (exemption.reason.empty()) entry.reasoned = false;
    }
  }
  bool whole = true;
  for (const auto &[function, entry] : entries) {
    const char *fault = fault_in(entry);
    if (fault == nullptr) continue;
    printf("%s %s\n", function.c_str(), fault);
    whole = false;
  }
  return whole;
}

}  // namespace ks_test
