// Removing a tree.
#include <fcntl.h>
#include <unistd.h>

#include "core/ks_retry.h"
#include "file/fileutl_internal.h"
#include "imsg.h"

using namespace ks;

namespace {

// 0, or -1 with errno.
int remove_at(FilePlace place, int flags) {
  return retry_eintr([&] { return unlinkat(place.fd, place.name, flags); });
}

bool removed_at_once(FilePlace place) { return remove_at(place, 0) == 0; }

// Where a stat record has 32 bits for a time, an object may have one that does not fit, and is then
// told and not removed, which only a stat finds out.
constexpr bool kEveryTimeFits = sizeof(time_t) > 4;

// The walk is the argument. From the directory that the walk has open, a name cannot lead out of
// the tree, whatever the path has become.
int remove_object(void *argument, const char *path, const char *, const char *, const char *name,
                  const fileutl_stat_t *record, int, int) {
  const Walk &walk = *static_cast<const Walk *>(argument);
  if ((walk.flags & FILEUTL_WALK_TRACE) != 0) {
    imsg_print(IMSG_TYPE_OK, "unlink( %s )\n", -1, path);
  }
  const int flags = S_ISDIR(record->st_mode) ? AT_REMOVEDIR : 0;
  if (remove_at(walk_place(walk, name), flags) == 0) return 0;
  walk_report(walk, path);
  return FILEUTL_WALK_FAILED;
}

}  // namespace

int fileutl_rm(const char *path, int flags) {
  Walk walk;
  // A trace comes before the removal, so the shortcut, which does not know of it, is not taken.
  const bool traced = (flags & FILEUTL_WALK_TRACE) != 0;
  walk.shortcut = kEveryTimeFits && !traced ? removed_at_once : nullptr;
  const fileutl_walk_callback_t chain = {nullptr, FILEUTL_WALK_AFTER, remove_object, &walk};
  return run_walk(walk, path, &chain, nullptr, flags);
}
