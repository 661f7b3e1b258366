// What the file primitives share: the directory handle, and the walk as its own callbacks see it.
#pragma once

#include <sys/types.h>

#include <climits>
#include <cstddef>

#include "fileutl.h"

// The system's records are read in blocks of this size, without libc's stream: a handle can be used
// again for another directory, and opening one costs a single system call.
struct fileutl_dir {
  static constexpr size_t kBlockSize = 32768;

  int case_sensitive;  // 1; else names are folded for those who ask
  int fd;              // -1 when closed
  size_t next;         // offset in `block` of the next record
  size_t filled;       // bytes in `block`
  mode_t entry_type;   // of `entry`, as in a mode; 0 where the directory does not tell
  fileutl_dirent_t entry;
  alignas(uint64_t) char block[kBlockSize];
};

namespace [[gnu::visibility("hidden")]] ks {

// Where an object is for a system call: a name in an open directory, or a path and AT_FDCWD.
struct FilePlace {
  int fd;
  const char *name;
};

// Both: 0, or -1 with errno.
int fileutl_stat_at(FilePlace place, bool follow, fileutl_stat_t *record);
int fileutl_open_at(fileutl_dir *dir, FilePlace place, bool follow);

// fileutl_closedir for a handle that nobody else knows: it goes back also when closing fails.
int fileutl_close_own(fileutl_dir *dir);

// An open directory of a walk. On the heap, not on the stack: after a fault those of the frames
// that were left must still be there.
struct WalkLevel {
  WalkLevel *outer;    // that of the directory above, or, when idle, the next idle one
  fileutl_dir_t *dir;  // `own`, or what the walk's operations gave; NULL while it is not open
  fileutl_dir own;
};

inline constexpr size_t kWalkPathSize = 4097;

// One walk, on the stack of the call that makes it. Going down only lengthens its texts, so a step
// needs no storage but the level's, and levels are used again.
struct Walk {
  const fileutl_walk_callback_t *chain;
  const fileutl_walk_ops_t *ops;  // NULL: the system's own files
  int flags;
  bool by_descriptor;  // objects are named from the directory they are in
  // NULL, or what is tried on an entry that the directory tells to be no directory, to save its
  // stat and the callbacks. Where it gives false the entry is visited as any other.
  bool (*shortcut)(FilePlace place);
  WalkLevel *innermost;
  WalkLevel *idle;
  char root[kWalkPathSize];
  char path[kWalkPathSize + NAME_MAX + 1];  // a path too long is still printed whole
  char directory[kWalkPathSize];            // of the objects of the innermost level
};

// Walks; `walk` is filled here, but for the shortcut. The result is that of fileutl_walk_tree.
int run_walk(Walk &walk, const char *path, const fileutl_walk_callback_t *chain,
             const fileutl_walk_ops_t *ops, int flags);

// Where the object is that a callback was called for, by the name that it got.
FilePlace walk_place(const Walk &walk, const char *name);

// Prints why something could not be done to a path, by errno, unless the walk is quiet.
void walk_report(const Walk &walk, const char *path);

}  // namespace ks
