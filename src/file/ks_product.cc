// Where the product is installed.
#include "ks_product.h"

#include <cstdlib>

#include "core/ks_frame.h"
#include "ks_msg.h"
#include "msg/ks_print.h"
#include "stg.h"
#include "strutl.h"

using namespace ks;

namespace {

constexpr const char *kHomeVariables[] = {"TALLOWBAYHOME", "NORVAHOME"};
constexpr const char kDefaultHome[] = "/opt/quillons/tallowbay";
constexpr size_t kSize = KS_PRODUCT_DIR_SIZE;

const char *product_home = nullptr;  // a copy in a heap block, from the first call on

const char *find_home() {
  for (const char *name : kHomeVariables) {
    if (const char *value = getenv(name); value != nullptr) return value;
  }
  return kDefaultHome;
}

const char *home() {
  if (product_home != nullptr) return product_home;
  bool copied = false;
  signals_held([&] {
    const char *found = find_home();
    const char *copy = stg_strdup(found);
    copied = copy != nullptr;
    product_home = copied ? copy : found;
  });
  if (!copied) print<KS_MSG_NO_STORAGE>(IMSG_TYPE_WARNING);
  return product_home;
}

}  // namespace

char *ks_product_dir(char *buf, const char *sub) {
  const int count = sub != nullptr ? 3 : 1;
  strutl_concat(buf, kSize, count, home(), "/", sub);
  return buf;
}

char *ks_product_tool_dir(char *buf, const char *tool) {
  const int count = tool != nullptr ? 4 : 2;
  strutl_concat(buf, kSize, count, home(), "/bin", "/", tool);
  return buf;
}

char *ks_product_tool_dir_quoted(char *buf, const char *tool) {
  return ks_product_tool_dir(buf, tool);
}
