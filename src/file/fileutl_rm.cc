// Removing a tree.
#include <fcntl.h>
#include <unistd.h>

#include "file/fileutl_internal.h"
#include "imsg.h"

using namespace ks;

namespace {

// The walk is the argument. From the directory that the walk has open, a name cannot lead out of
// the tree, whatever the path has become.
int remove_object(void *argument, const char *path, const char *, const char *, const char *name,
                  const fileutl_stat_t *record, int, int) {
  const Walk &walk = *static_cast<const Walk *>(argument);
  if ((walk.flags & FILEUTL_WALK_TRACE) != 0) {
    imsg_print(IMSG_TYPE_OK, "unlink( %s )\n", -1, path);
  }
  const FilePlace place = walk_place(walk, name);
  const int flags = S_ISDIR(record->st_mode) ? AT_REMOVEDIR : 0;
  if (unlinkat(place.fd, place.name, flags) == 0) return 0;
  walk_report(walk, path);
  return FILEUTL_WALK_FAILED;
}

}  // namespace

int fileutl_rm(const char *path, int flags) {
  Walk walk;
  walk.types_suffice = (flags & FILEUTL_WALK_TRACE) == 0;  // what has gone is not traced
  const fileutl_walk_callback_t chain = {nullptr, FILEUTL_WALK_AFTER, remove_object, &walk};
  return run_walk(walk, path, &chain, nullptr, flags);
}
