// The identity of the library.
#include "libnorvaks.h"

#include "imsg.h"
#include "libnorvaks_version.h"

namespace {

constexpr const char *kFormat = "%-*s %s (%s)\n";
constexpr int kNameWidth = 33;

}  // namespace

void libnorvaks_print_verid() {
  imsg_print(IMSG_TYPE_OK, kFormat, -1, kNameWidth, "libnorvaks", NORVAKS_VERSION,
             NORVAKS_BUILD_DATE);
}

int libnorvaks_sprintf_verid(char *dest) {
  return imsg_sprintf(dest, kFormat, -1, kNameWidth, "libnorvaks", NORVAKS_VERSION,
                      NORVAKS_BUILD_DATE);
}
