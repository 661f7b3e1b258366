/* fileutl.h: files and directories: 64-bit wrappers of the system's calls, listing, walking a tree.
 *
 * Sizes and offsets have 64 bits on every platform, whatever the including program is compiled for.
 * A path is NUL-terminated bytes; a name may hold any byte but '/' and NUL.
 * Result styles differ and are said with each call: 0 for success unless a comment says otherwise,
 * and errno tells why after a failure. A signal whose routine returns makes no call fail.
 * Paths in working buffers end at a stated limit; what does not fit fails with ENAMETOOLONG.
 *
 * A walk visits a directory and, if asked to, all that is below it, and calls a chain of callbacks
 * for each object. Nothing but the callbacks can end it early: what cannot be read is printed and
 * marked in the result. Callbacks may walk again, and may raise a fault: the walk then releases what
 * it has open. They must not throw C++ exceptions.
 */
#ifndef KS_FILEUTL_H
#define KS_FILEUTL_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>

#include "ks_api.h"
#include "list.h"
#include "stg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The platform's stat record with 64-bit fields, under the one name that does not change with
 * _FILE_OFFSET_BITS. A C program that looks inside compiles with -D_LARGEFILE64_SOURCE, which is
 * among the flags of pkg-config and CMake; C++ compilers do so by themselves. */
typedef struct stat64 fileutl_stat_t;

/* An open directory, and the entry that it stands at. */
typedef struct fileutl_dir fileutl_dir_t;
typedef struct fileutl_dirent {
  uint64_t d_ino;
  uint16_t d_reclen; /* d_namlen plus 14 */
  uint16_t d_namlen; /* bytes of the name, without the NUL */
  char d_name[256];
} fileutl_dirent_t;

/* fileutl_stat fills `record` for the object at `path`: with `follow` not 0 for what a symbolic
 * link leads to, else for the link itself.
 * Result: 0; after a failure -1 with errno, and the record's link count is 0. So a link count that
 * is not 0 and the wanted type in the mode tell the kind of an object, without a look at the
 * result. */
KS_API int fileutl_stat(const char *path, int follow, fileutl_stat_t *record);

/* fileutl_exists tells whether fileutl_stat succeeds. Result: 1 or 0; 1 for a symbolic link that
 * leads nowhere when it is not followed. */
KS_API int fileutl_exists(const char *path, int follow);

/* What fileutl_statfs tells of a file system: 48 bytes on every platform. Blocks are counted in
 * fragments. */
typedef struct fileutl_statfs_record {
  uint32_t block_size;
  uint32_t fragment_size;
  uint64_t total_blocks;
  uint64_t free_blocks;
  uint64_t available_blocks; /* of the free ones, those that are not reserved for root */
  uint64_t total_files;
  uint64_t free_files;
} fileutl_statfs_record_t;

/* fileutl_statfs copies as much of a fileutl_statfs_record_t as `size` bytes hold to `buffer`, for
 * the file system that `path` is on. Result: 0, or -1 with errno and nothing written. */
KS_API int fileutl_statfs(const char *path, void *buffer, size_t size);

/* fileutl_readlink stores the target of a symbolic link, with a NUL, in the `size` bytes at
 * `buffer`. Result: the bytes stored, the NUL counted; -1 with errno, ENAMETOOLONG when the target
 * and its NUL do not fit: the buffer then holds bytes that are no text. */
KS_API int fileutl_readlink(const char *path, char *buffer, size_t size);

/* fileutl_rename is rename(2). Result: 0, or 1 with errno. */
KS_API int fileutl_rename(const char *old_path, const char *new_path);

/* fileutl_rename_unique renames `path` to `path` with `suffix`, which may be NULL, behind it; where
 * that name is taken, ".1", ".2" and so on follow, until one is free. The new name has at most 1023
 * bytes and goes to the `size` bytes at `buffer`. Somebody who takes the name in the meantime loses
 * the file.
 * Result: 0 with errno 0; 1 with errno. When it is only `buffer` that is too small (ENAMETOOLONG),
 * the file has its new name, and the buffer as much of that as fits. */
KS_API int fileutl_rename_unique(const char *path, const char *suffix, size_t size, char *buffer);

/* fileutl_chk_large_file_overflow tells whether a size, given by its two words, reaches 2 GB.
 * Result: 0 if it does not; else 1, after an error message that names the file, unless `name` is
 * NULL or empty. */
KS_API int fileutl_chk_large_file_overflow(uint32_t low, uint32_t high, const char *name);

/* fileutl_opendir opens a directory for reading. Result: the handle, which goes back by
 * fileutl_closedir; NULL with errno, after an error message when storage is exhausted. */
KS_API fileutl_dir_t *fileutl_opendir(const char *path);

/* fileutl_readdir returns the next entry, in the order of the directory, "." and ".." included.
 * With `fold` not 0 its name is in lower case where the file system does not tell cases apart; here
 * all do.
 * Result: the entry, in the handle, until the next call; NULL with errno 0 at the end; NULL with
 * errno when reading fails, ENAMETOOLONG for a name of 256 bytes or more. */
KS_API fileutl_dirent_t *fileutl_readdir(fileutl_dir_t *dir, int fold);

/* fileutl_closedir closes a directory and frees the handle. Result: 0; 1 with errno when the system
 * could not close it: then the handle is not freed, and can only be closed again in vain. */
KS_API int fileutl_closedir(fileutl_dir_t *dir);

/* fileutl_read_whole_dir stores an array of all names in a directory, "." and ".." included, in the
 * order of the directory, in `*names`. Array and names are in `area`; with STG_AREA_HEAP each goes
 * back by stg_free.
 * Result: the number of names; -1 with errno when the directory could not be opened, read to its end
 * or closed or, after the error has been printed, storage is exhausted: then there is no name left,
 * and `*names` is the bare array, or NULL. May be left by a fault, and then has released what is on
 * the heap. */
KS_API int fileutl_read_whole_dir(const char *path, stg_area_t area, char ***names);

/* fileutl_lockfd locks `length` bytes from byte offset `start` on of the file behind a descriptor
 * for writing, against other processes, and does not wait; a length of 0 reaches to any end of the
 * file. fileutl_unlockfd gives the lock back. The process loses it when it closes any descriptor of
 * that file. Result: 0 or an errno value, EAGAIN or EACCES when another process has the lock. */
KS_API int fileutl_lockfd(int fd, int64_t start, int64_t length);
KS_API int fileutl_unlockfd(int fd, int64_t start, int64_t length);

/* Walk flags. */
enum {
  FILEUTL_WALK_STOP_ON_ERROR = 1, /* end at the first failure of a callback */
  FILEUTL_WALK_RECURSE = 2,       /* go into directories */
  FILEUTL_WALK_FOLLOW_ROOT = 4,   /* follow a symbolic link at the root only */
  FILEUTL_WALK_FOLLOW_ALL = 8,    /* follow symbolic links everywhere */
  FILEUTL_WALK_QUIET = 16,        /* print nothing about what cannot be read */
  FILEUTL_WALK_TRACE = 32         /* for callbacks: print what they do */
};

/* When a directory's callback runs; either or both. Other objects get every callback once. */
enum {
  FILEUTL_WALK_BEFORE = 1, /* before what is in the directory */
  FILEUTL_WALK_AFTER = 2   /* behind it */
};

/* A callback's result: bits, of which all but these two are its status. */
enum {
  FILEUTL_WALK_SKIP = 1,   /* leave out the rest of this object; at the root the walk ends */
  FILEUTL_WALK_STOP = 2,   /* end the walk */
  FILEUTL_WALK_FAILED = -4 /* the status of a failure; no other is one, also no negative one */
};

/* A walk's callback gets its record's argument; the path of the object; the path of the root, as it
 * was given; the directory of the object relative to the root, empty for what is right in the root;
 * the object's name; its stat record; the phase, 2 for the call on the root behind its contents and
 * 1 for all others; and the depth, 0 at the root. At the root itself `directory` and `name` are
 * NULL. All texts and the record live until it returns. */
typedef int (*fileutl_walk_function_t)(void *argument, const char *path, const char *root,
                                       const char *directory, const char *name,
                                       const fileutl_stat_t *record, int phase, int depth);

/* A chain of callbacks, the caller's, in the order in which they are called. */
typedef struct fileutl_walk_callback {
  struct fileutl_walk_callback *next; /* NULL behind the last */
  int when;                           /* FILEUTL_WALK_BEFORE, FILEUTL_WALK_AFTER */
  fileutl_walk_function_t function;
  void *argument;
} fileutl_walk_callback_t;

/* What a walk does to a tree that is not made of the system's files. The functions do what
 * fileutl_stat, fileutl_opendir, fileutl_readdir and fileutl_closedir do; a directory's handle is
 * never looked into. A NULL of read_directory is the end, whatever errno says.
 * They run as callbacks do, with signals deliverable. What open_directory gives is closed once, also
 * when a fault leaves the walk; close_directory then runs with signals held back. Only a fault in the
 * very instant of handing over, right behind the one call or right before the other, loses a handle,
 * unless the operations are those of this header. */
typedef struct fileutl_walk_ops {
  int (*stat_object)(const char *path, int follow, fileutl_stat_t *record);
  fileutl_dir_t *(*open_directory)(const char *path);
  fileutl_dirent_t *(*read_directory)(fileutl_dir_t *dir, int fold);
  int (*close_directory)(fileutl_dir_t *dir);
} fileutl_walk_ops_t;

/* fileutl_walk_tree calls the chain for the object at `path` and, with FILEUTL_WALK_RECURSE, for
 * all below it, in the order of the directories. Before it starts, sysutl_nfs_flush runs on the
 * path. A symbolic link that is not followed is no directory. Of a directory, first the callbacks
 * with FILEUTL_WALK_BEFORE run, then come its contents, then the callbacks with FILEUTL_WALK_AFTER.
 * Result: the callbacks' status bits, 0 if all went well; FILEUTL_WALK_FAILED if an object or
 *   directory cannot be read, or not to its end, also with a path of more than 4096 bytes, after an
 *   error message. An object that cannot be read never keeps a walk from the rest of its directory,
 *   whatever FILEUTL_WALK_STOP_ON_ERROR says; that directory then counts as a failure.
 * While the tree changes, an object that has gone is such a failure. Unless links are followed
 * everywhere, each directory is reached from the one above and never through a link, even one that
 * has just been put in its place; the paths that callbacks get are texts and give no such promise. */
KS_API int fileutl_walk_tree(const char *path, const fileutl_walk_callback_t *chain, int flags);

/* fileutl_walk_tree_any is the same on any tree that offers the four operations, by paths alone. */
KS_API int fileutl_walk_tree_any(const char *path, const fileutl_walk_callback_t *chain,
                                 const fileutl_walk_ops_t *ops, int flags);

/* fileutl_rm removes what is at `path`: directories with their contents if `flags`, those of a
 * walk, have FILEUTL_WALK_RECURSE. What cannot be removed is an error message, unless quiet, and
 * the rest goes on; with FILEUTL_WALK_TRACE each object is printed first. Result: that of the walk.
 * Promised, unless links are followed everywhere: below the root, only what is in directories that
 *   were reached without passing a link is removed, whatever is swapped for a link meanwhile, and a
 *   link itself goes, not what it leads to. Not promised: that the directories in `path` itself
 *   stay the same, nor that a directory moved out of the tree meanwhile keeps its contents. */
KS_API int fileutl_rm(const char *path, int flags);

/* fileutl_fgets_or_timeout reads a line as fgets into the `size` bytes at `buffer`, once the
 * stream's descriptor is readable; what the stream holds already is not seen. It waits for
 * `timeout`, NULL for ever, and all of it again after a signal.
 * Result: 0 with a line; 0 with `*eof` or `*timed_out` 1 and an empty buffer; 1 on a failure, also
 *   when signals interrupted the reading 100 times, for a descriptor that select cannot take and for
 *   a size of 0. Prints an error if select reports anything else.
 * Where a signal interrupts a line that has come in part, it goes on behind that part. If the rest
 *   does not come in time, or not at all, the buffer has the part; so too after a fault, by which the
 *   call may be left. The stream is locked at no time. */
KS_API int fileutl_fgets_or_timeout(FILE *stream, const struct timeval *timeout, size_t size,
                                    char *buffer, int *eof, int *timed_out);

/* fileutl_patt_list_match tells whether a path matches a list of patterns. A pattern is held
 * against as many components at the path's end as it has itself. It is equal to them, or has one
 * '%' that stands for any bytes in its last component; the texts before and behind the '%' may
 * overlap in the path. A NULL list matches nothing.
 * Result: 1 or 0; `*exact` is 1 if the pattern that matches has no '%', else 0. A NULL `name` or
 *   `exact` is an assertion. */
KS_API int fileutl_patt_list_match(const list_t *list, const char *name, int *exact);

/* fileutl_patt_list_matched_cell stores the element that matches, the first one in the list, in
 * `*match_cursor_p` as well; without a match NULL, with a NULL list nothing. */
KS_API int fileutl_patt_list_matched_cell(const list_t *list, const char *name,
                                          list_element_t **match_cursor_p, int *exact);

/* fileutl_mkpath makes the directories that lead to `path` and, with `make_last` not 0, one at
 * `path` itself, all with `mode`. Result: 0; 1 with errno, EEXIST if the last one is there already,
 * ENAMETOOLONG for a directory part above 1023 bytes or a leaf above 255. */
KS_API int fileutl_mkpath(const char *path, mode_t mode, int make_last);

/* fileutl_strip_leaf cuts a path in its last component, which goes to `leaf`, and what stands
 * before that, to `directory`. Slashes behind the leaf and between the two are in neither; the
 * directory part of "/a" is "/", that of "a" is empty, and the root and the empty path have an
 * empty leaf. Neither buffer is in the path.
 * Result: 0; 1 with ENAMETOOLONG when a part does not fit, and was cut. */
KS_API int fileutl_strip_leaf(const char *path, size_t directory_size, char *directory,
                              size_t leaf_size, char *leaf);

/* fileutl_find_pname_sep_left returns the first '/' of a path, or NULL. */
KS_API char *fileutl_find_pname_sep_left(const char *path);

/* fileutl_pname_equal tells whether two paths are the same, byte for byte. Result: 1 or 0. */
KS_API int fileutl_pname_equal(const char *first, const char *second);

#ifdef __cplusplus
}
#endif

#endif
