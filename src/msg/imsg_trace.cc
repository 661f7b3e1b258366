// Tracing: which messages of type 8 are wanted.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_internal.h"

namespace ks {
int imsg_desired_verbosity = kVerbosityUnread;
}  // namespace ks

using namespace ks;

namespace {

// Names with colons between them, or "*". The caller's or the environment's own text, not a copy.
const char *imsg_desired_tsubsys = nullptr;

// Whether `name` is one of the names of `list`, whole.
bool list_has(const char *list, const char *name) {
  const size_t length = strlen(name);
  for (const char *hit = strstr(list, name); hit != nullptr; hit = strstr(hit + 1, name)) {
    const bool begins = hit == list || hit[-1] == ':';
    if (begins && (hit[length] == '\0' || hit[length] == ':')) return true;
    if (*hit == '\0') return false;
  }
  return false;
}

}  // namespace

int imsg_get_desired_verbosity() { return imsg_desired_verbosity; }

int imsg_get_verbosity_ev() {
  const char *value = getenv("TRACE_VERBOSITY");
  int level = 0;
  if (value == nullptr) return 0;
  bool is_number = false;
  signals_held([&] { is_number = sscanf(value, "%d", &level) == 1; });
  return is_number ? level : 0;
}

void imsg_set_trace_verbosity(int level) { imsg_desired_verbosity = level; }
void imsg_set_trace_subsys(const char *text) { imsg_desired_tsubsys = text; }
void imsg_reset_verbosity() { imsg_desired_verbosity = kVerbosityUnread; }

int imsg_should_trace(const char *subsys, int level) {
  if (imsg_desired_verbosity < level) return 0;
  if (imsg_desired_verbosity == kVerbosityUnread) {
    imsg_desired_verbosity = imsg_get_verbosity_ev();
    if (imsg_desired_tsubsys == nullptr) imsg_desired_tsubsys = getenv("TRACE_SUBSYS");
    if (imsg_desired_verbosity < level) return 0;
  }
  if (imsg_desired_tsubsys == nullptr || *imsg_desired_tsubsys == '\0') return 0;
  if (strcmp(imsg_desired_tsubsys, "*") == 0) return 1;
  return list_has(imsg_desired_tsubsys, subsys);
}

int imsg_should_trace_subsys(const char *subsys) { return imsg_should_trace(subsys, 0); }
