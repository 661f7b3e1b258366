// The process's groups.
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "proc/sysutl_internal.h"
#include "stg.h"
#include "strutl.h"
#include "sysutl.h"

using namespace ks;

namespace {

struct State {
  char *group_name;  // NULL: none known
  gid_t gid;         // the effective group that it is for
};
constinit State state = {};

constexpr gid_t kNoGroup = static_cast<gid_t>(-1);  // no process has it

constexpr size_t kNumberSize = 12;  // bytes of any int in decimal

const char *ask_group_name(gid_t gid) {
  char *copy = nullptr;
  signals_held([&] {
    std::array<char, kNumberSize> number;
    strutl_snprintf(number.data(), number.size(), "%d", static_cast<int>(gid));
    const group *entry = ask_for_entry([&] { return getgrgid(gid); });
    const bool certain = entry != nullptr || !may_be_found_later();
    copy = stg_strdup(entry != nullptr ? entry->gr_name : number.data());
    if (copy == nullptr) return;
    stg_free(state.group_name);
    state = {copy, certain ? gid : kNoGroup};
  });
  return copy;
}

// The first `wanted` of the `present` groups, which the system hands out only all at once. 0 or an
// errno value.
int store_first_groups(int wanted, int present, gid_t *groups) {
  int error = 0;
  signals_held([&] {
    gid_t *all = static_cast<gid_t *>(stg_malloc(static_cast<size_t>(present) * sizeof(gid_t)));
    if (all == nullptr || getgroups(present, all) < 0) {
      error = errno;
    } else {
      std::copy_n(all, wanted, groups);
    }
    stg_free(all);
  });
  return error;
}

}  // namespace

const char *sysutl_mygroupname() {
  const gid_t gid = getegid();
  if (state.group_name != nullptr && state.gid == gid) return state.group_name;
  return ask_group_name(gid);
}

int sysutl_initgroups(const char *name, gid_t gid) {
  int result = -1;
  signals_held([&] { result = retry_eintr([&] { return initgroups(name, gid); }); });
  return result != 0 ? 1 : 0;
}

int sysutl_getgroups(int max, int *count, gid_t *groups) {
  if (max < 0) return EINVAL;
  const int present = getgroups(0, nullptr);
  if (present < 0) return errno;
  if (max == 0) {
    *count = present;
    return 0;
  }
  const int wanted = std::min({max, int{SYSUTL_GETGROUPS_MAX}, present});
  const int error = store_first_groups(wanted, present, groups);
  if (error == 0) *count = wanted;
  return error;
}

int sysutl_init_security() { return 0; }
