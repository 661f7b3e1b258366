// Names that the process gives the module: the application's, and two that are only kept.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "strutl.h"

using namespace ks;

namespace {

// A name that is its default until the program sets it.
struct Name {
  const char *const fallback;
  const char *value;  // the fallback, or a copy from malloc

  // NULL gives back the default. Without storage for the copy the value stays as it was.
  void set(const char *name) {
    signals_held([&] {
      const char *copy = name != nullptr ? strdup(name) : fallback;
      if (copy == nullptr) return;
      if (value != fallback) free(const_cast<char *>(value));
      value = copy;
    });
  }
};

Name app_name = {"noname", nullptr};
Name message_home = {"/opt/quillons/tallowbay", nullptr};
Name errnum_file_name = {"errnum.imsg", nullptr};

}  // namespace

void ks::reset_names() {
  for (Name *name : {&app_name, &message_home, &errnum_file_name}) name->value = name->fallback;
}

void imsg_set_app_name(const char *path) {
  need_imsg();
  const char *separator = path != nullptr ? strutl_strrpbrk(path, "/") : nullptr;
  app_name.set(separator != nullptr ? separator + 1 : path);
}

const char *imsg_get_app_name() {
  need_imsg();
  return app_name.value;
}

void imsg_set_message_home(const char *path) {
  need_imsg();
  message_home.set(path);
}

int imsg_set_errnum_file(const char *name) {
  need_imsg();
  if (name != nullptr) {
    const int result = access(name, R_OK);
    if (result != 0) return result;
  }
  errnum_file_name.set(name);
  return 0;
}
