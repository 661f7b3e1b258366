#include "sweep/scratch.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "stg.h"
#include "strutl.h"
#include "sweep/output.h"

namespace ks_test {

void put_scratch(const char *name, std::string_view contents) {
  std::ofstream(name, std::ios::binary) << contents;
}

std::string scratch_contents(const char *name) {
  std::ostringstream contents;
  contents << std::ifstream(name, std::ios::binary).rdbuf();
  return contents.str();
}

void warm_messages() {
  catch_messages();
  if (strutl_write("", "missing/file", 0, 0) != 1 || caught_messages().empty()) abort();
  forget_messages();
  stg_free(stg_malloc(1));
}

}  // namespace ks_test
