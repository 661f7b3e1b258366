/* sysutl.h: the operating system's small answers: who am I, what is this machine called, which
 * numbers stand behind a name; and the little things one does to descriptors.
 *
 * Look-ups go through the naming services and can be slow, so most answers are remembered. A
 * returned text or record is static: it lives until the next call of the same function where nothing
 * else is said, and is never the caller's to free. What comes from the resolver lives until any
 * function asks it again.
 * Where a result is 0 or 1, 0 is success. Texts, buffers and places for results must not be NULL
 * where nothing else is said. Only the functions that say so print.
 * Signals are held back while a name is looked up and a remembered answer changes, so a signal
 * routine never meets one half made; the fault of a signal that arrived meanwhile may leave the call
 * when its work is done.
 */
#ifndef KS_SYSUTL_H
#define KS_SYSUTL_H

#include <netdb.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/select.h>
#include <sys/types.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  SYSUTL_HOSTID_SIZE = 6,       /* bytes that identify a host */
  SYSUTL_PLATFORM_SIZE = 200,   /* bytes that hold any platform description */
  SYSUTL_GETGROUPS_MAX = 32,    /* groups that sysutl_getgroups stores at most */
  SYSUTL_RANDOM_BYTES_MAX = 32, /* bytes that sysutl_get_random_bytes gives at most */
  SYSUTL_SELECT_FDS = 1024      /* descriptors that select can tell apart */
};

/* sysutl_myhostname returns this machine's name, "UnknownHost" when it has none. The first answer
 * is kept as long as the process lives, as is the pointer. */
KS_API const char *sysutl_myhostname(void);

/* sysutl_hostname_aliases looks a host up by name. Result: its other names, a NULL behind the last,
 * or NULL when it is not known; the resolver's. */
KS_API char **sysutl_hostname_aliases(const char *name);

/* sysutl_host_addr looks a host up by name. An address with dots is not looked up: the record then
 * has the text itself, cut to 1023 bytes, as the name, no aliases, and that one address. The
 * all-ones address is taken for a name.
 * Result: the record, static or the resolver's; NULL when the host is not known. */
KS_API struct hostent *sysutl_host_addr(const char *name);

/* sysutl_get_host_domain_name stores the machine's NIS domain in `*name`; the text is the name
 * service's. Result: 0, or the name service's error number when none is set. */
KS_API int sysutl_get_host_domain_name(char **name);

/* sysutl_myhostid returns the number that gethostid(3) has for this machine; asked only once, as
 * soon as the answer is not 0. */
KS_API uint32_t sysutl_myhostid(void);

/* Both give the SYSUTL_HOSTID_SIZE bytes at `id` what identifies this machine, worked out once: the
 * same bytes and result come back ever after.
 * sysutl_my_ieee_hostid: the Ethernet address of the first network card that has one. Result: 0; 1
 *   with zeros when there is no such card, after an error message, or its address is all zero.
 * sysutl_my_stable_hostid: sysutl_myhostid, lowest byte first, and a hash of sysutl_myhostname; no
 *   card's, and the top bit of the first byte, which is set, tells. Result: 0; 1 when all are 0. */
KS_API int sysutl_my_ieee_hostid(unsigned char *id);
KS_API int sysutl_my_stable_hostid(unsigned char *id);

/* sysutl_platform_description writes system, release and machine to `buffer`, which has
 * SYSUTL_PLATFORM_SIZE bytes: "Linux 6.1.0 (x86_64)"; "i386" when the system does not tell. */
KS_API void sysutl_platform_description(char *buffer);

/* sysutl_myloginname returns the login name of the real user: the one that logged in on the terminal
 * when it has the same user id, else that of the password entry. It is asked for again when the user
 * id has changed, and names returned before live on.
 * Result: the name; NULL when there is none or, after an error message, no storage. */
KS_API const char *sysutl_myloginname(void);

/* sysutl_mygroupname returns the name of the effective group, its number in decimal when it has
 * none; remembered until the group id changes. Result: NULL only without storage, after an error
 * message. */
KS_API const char *sysutl_mygroupname(void);

/* sysutl_user_to_fullname returns what the password entry of the user says before its first comma,
 * of at most 256 bytes, with the user's name for the first "&". The last name asked for is
 * remembered with its answer.
 * Result: NULL when there is no such user or, after an error message, no storage. */
KS_API const char *sysutl_user_to_fullname(const char *name);

/* sysutl_myfullname returns the full name of sysutl_myloginname, or that name itself when it has
 * none; remembered until the login name changes. Result: NULL without a login name or storage. */
KS_API const char *sysutl_myfullname(void);

/* sysutl_initgroups gives the process the groups of user `name`, and `gid`. Result: 0, or 1 with
 * errno. */
KS_API int sysutl_initgroups(const char *name, gid_t gid);

/* sysutl_getgroups stores the process's supplementary groups, the first `max` of them and never
 * more than SYSUTL_GETGROUPS_MAX, with their number in `*count`. With `max` 0 it stores no group,
 * and in `*count` how many there are; `groups` may then be NULL.
 * Result: 0 or an errno value, EINVAL for a negative `max`; then nothing has been stored. */
KS_API int sysutl_getgroups(int max, int *count, gid_t *groups);

/* sysutl_init_security does nothing. Result: 0. */
KS_API int sysutl_init_security(void);

/* Both bring what was written to the disk; sysutl_fsync_fptr empties the stream's buffer first.
 * Result: 0; what fsync or fflush said, with errno, when that failed. */
KS_API int sysutl_fsync(int fd);
KS_API int sysutl_fsync_fptr(FILE *stream);

/* sysutl_pipe makes a pipe, its read end in fds[0] and its write end in fds[1], one of which closes
 * when a program is executed: the read end with `read_side` not 0, the write end with 0.
 * Result: 0, or 1 with -1 in both. */
KS_API int sysutl_pipe(int read_side, int *fds);

/* sysutl_pipe_close closes a descriptor. Result: 0, or 1 with errno. */
KS_API int sysutl_pipe_close(int fd);

/* Both set, or with `on` 0 clear, one flag of a descriptor and leave the others: that it closes when
 * a program is executed; that no call on it waits. Result: 0, or 1 with errno. */
KS_API int sysutl_set_cloexec_file(int fd, int on);
KS_API int sysutl_set_socket_nonblocking(int fd, int on);

/* sysutl_set_socket_interrupting has SIGIO sent to this process when input arrives;
 * sysutl_clear_socket_interrupting ends that. Result: 0, or 1 with errno. */
KS_API int sysutl_set_socket_interrupting(int fd);
KS_API int sysutl_clear_socket_interrupting(int fd);

/* sysutl_socket_bytes_ready stores in `*count` how many bytes can be read at once. Result: 0, or 1
 * with errno. */
KS_API int sysutl_socket_bytes_ready(int fd, int *count);

/* sysutl_fd_set_popcount counts the descriptors in the words of `set` that hold the first `nbits`,
 * 32 in a word: a last word that is asked for in part counts as a whole. */
KS_API int sysutl_fd_set_popcount(const fd_set *set, int nbits);

/* sysutl_sock_port_uniquifier returns a number that differs from one moment to the next: the
 * microseconds since the epoch, in 32 bits. */
KS_API uint32_t sysutl_sock_port_uniquifier(void);

/* sysutl_get_max_fds sets the soft limit on descriptors to SYSUTL_SELECT_FDS, or to the hard limit
 * when that is lower. Result: the limit that holds now.
 * sysutl_get_proc_fds stores in `*limit`, and returns, the soft limit that it found: the one the
 * process started with, also after further calls; 0 before the first. A limit beyond an int is
 * INT_MAX. */
KS_API int sysutl_get_max_fds(void);
KS_API int sysutl_get_proc_fds(int *limit);

/* sysutl_get_random_bytes fills `count` bytes at `buffer`, no more than SYSUTL_RANDOM_BYTES_MAX, from
 * /dev/urandom. Result: 0, or 1 with some of them filled at most. */
KS_API int sysutl_get_random_bytes(void *buffer, uint32_t count);

/* sysutl_nfs_lock makes an NFS client notice the present state of a directory: it makes, locks and
 * removes a file in there, whose name begins with ".nfs_lock_file". Result: 0, or -1 with errno. */
KS_API int sysutl_nfs_lock(const char *directory);

/* sysutl_nfs_flush does that to the directory `path`, NULL for the current one. Of a path that does
 * not exist the parent is flushed instead, twice; where that does not exist either, the first one
 * above that does, and the result is still -1.
 * Result: that of sysutl_nfs_lock; -1 with errno when the path cannot be reached, after an error
 * message when that is for the current directory; the link count of what is no directory. */
KS_API int sysutl_nfs_flush(const char *path);

#ifdef __cplusplus
}
#endif

#endif
