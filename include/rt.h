/* rt.h: the event loop of a server: timed events, descriptors, children and signals.
 *
 * A program registers callbacks and calls rt_run, which sleeps in one select until something is due
 * and returns after rt_shutdown. Each turn does one thing: it fires the earliest overdue event, or
 * it waits, and then calls the handlers of the descriptors that are ready. Overdue events go before
 * descriptors, so an event that keeps scheduling itself for now starves them. The death of a child
 * and the arrival of a signal become timed events for now; their callbacks run in the loop like any
 * other and may call anything.
 *
 * Callbacks run with signals deliverable and must not throw C++ exceptions. A fault that one raises
 * leaves rt_run; the loop is then as before and rt_run may be called again. A callback may schedule,
 * cancel, register and unregister whatever it likes, also itself. rt_run and rt_poll are called with
 * nothing held back by pfm_inhibit. Of all functions here rt_sched_int, rt_unsched and rt_shutdown
 * are fit for a signal routine. Time is that of the wall clock: setting it moves all events.
 */
#ifndef KS_RT_H
#define KS_RT_H

#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

#include "ks_api.h"
#include "pfm.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*rt_callback_t)(void *arg);
typedef void (*rt_fd_callback_t)(int fd, void *arg);
typedef void (*rt_fd_set_callback_t)(fd_set *ready, void *arg);

/* A timed event. Its address is its handle; its fields are the loop's. Only rt_sched_int's callers
 * provide the storage, which must be all zero, or have been an event before, where rt_unsched may
 * meet it. */
struct rt_event {
  struct rt_event *next;
  struct rt_event *previous;
  int32_t seconds; /* when it fires, on the wall clock */
  int32_t microseconds;
  rt_callback_t callback;
  void *argument;
  uint16_t magic;        /* tells whether it is scheduled */
  uint16_t caller_owned; /* 1: storage of rt_sched_int */
};

/* rt_sched has `callback` called with `arg` in `seconds` seconds, rt_sched_rel after `timeout`, and
 * rt_sched_abs at `abs_time`. Events of equal time fire in the order in which they were scheduled.
 * A moment beyond 32 bits of seconds stands for the last one that fits. A timeout that is negative
 * or not below the present seconds since the epoch is an assertion.
 * Result: the event, which is the loop's and stays a valid handle until it has fired or been
 *   cancelled; or NULL when storage is exhausted, which has been printed. May be left by a fault. */
KS_API struct rt_event *rt_sched(rt_callback_t callback, void *arg, uint32_t seconds);
KS_API struct rt_event *rt_sched_rel(rt_callback_t callback, void *arg,
                                     const struct timeval *timeout);
KS_API struct rt_event *rt_sched_abs(rt_callback_t callback, void *arg,
                                     const struct timeval *abs_time);

/* rt_sched_int is rt_sched with the event in the caller's storage, which must stay until it has
 * fired or been cancelled and must not hold a scheduled event. `max_event_size` is the storage's size
 * in bytes; less than sizeof(struct rt_event) is an assertion. Allocates nothing.
 * Result: the event, at `event_storage`. */
KS_API struct rt_event *rt_sched_int(rt_callback_t callback, void *arg, uint32_t seconds,
                                     void *event_storage, uint32_t max_event_size);

/* rt_unsched cancels an event. Result: 1; or 0 when it has fired (its callback may be running) or
 * been cancelled, which a handle tells until the loop uses its record again. */
KS_API int rt_unsched(struct rt_event *event);

/* rt_resched cancels an event and schedules its callback and argument anew, in `seconds` seconds. The
 * new event is in storage of the loop, also when the old one was in the caller's.
 * Result: the new event; NULL when the old one was not scheduled any more, or without storage. */
KS_API struct rt_event *rt_resched(struct rt_event *event, uint32_t seconds);

/* What a descriptor is watched for. A connection to accept reads, one to be made writes: they count
 * as the classes for reading and writing. For RT_FD_CLOSE nothing is ever watched. */
enum {
  RT_FD_READ = 0,
  RT_FD_WRITE = 1,
  RT_FD_EXCEPT = 2,
  RT_FD_ACCEPT = 3,
  RT_FD_CONNECT = 4,
  RT_FD_CLOSE = 5
};

/* rt_handle_fd has `callback` called with `fd` and `arg` in every turn in which the descriptor is
 * ready, until rt_unhandle_fd; the one registered last is looked at first. One handler for a
 * descriptor and direction: a second one is an assertion. A descriptor must be unregistered before it
 * is closed: waiting for a closed one ends in an assertion.
 * Result: 1, for RT_FD_CLOSE too, for which nothing happens. 0 for a descriptor that
 *   rt_fd_validate_max_fd refuses, for a negative one (errno EBADF), and when storage is exhausted,
 *   which has been printed. A class above RT_FD_CLOSE is a panic. */
KS_API int rt_handle_fd(int fd_class, rt_fd_callback_t callback, int fd, void *arg);

/* rt_unhandle_fd takes the handler of a descriptor off. Called by a callback, it holds at once.
 * Result: 1, for RT_FD_CLOSE too; 0 when there was none. A class above RT_FD_CLOSE is a panic. */
KS_API int rt_unhandle_fd(int fd_class, int fd);

/* rt_handle_fd_set has `callback` called with those descriptors of a whole set that are ready, in
 * every turn in which there are any; the set that it gets is valid during the call, until that waits
 * itself. `fd_set_fds` stays the caller's, who may change it at any time: it is read at each wait.
 * Descriptors that have a handler of their own go to that, and of two sets the one registered last
 * takes what they share. The same set twice in a class is an assertion; any class but RT_FD_READ,
 * RT_FD_WRITE and RT_FD_EXCEPT is a panic.
 * Result: 1, or 0 when storage is exhausted, which has been printed. */
KS_API int rt_handle_fd_set(int fd_class, rt_fd_set_callback_t callback, fd_set *fd_set_fds,
                            void *arg);

/* rt_unhandle_fd_set takes the handler of a set off. Result: 1, or 0 when there was none. */
KS_API int rt_unhandle_fd_set(int fd_class, fd_set *fd_set_fds);

/* rt_fd_validate_max_fd: 1 for a descriptor of 1024 or less; otherwise an error is printed, and the
 * result is 0. */
KS_API int rt_fd_validate_max_fd(int fd);

/* rt_run turns until rt_shutdown is called, which may have been before. Registered descriptors and
 * scheduled events survive it, and it may be entered again.
 * rt_poll does one wait that doesn't sleep: it calls the handlers of the descriptors that are ready,
 * but fires no events and doesn't look at rt_shutdown. A handler may call it.
 * rt_shutdown has rt_run return when the turn is over. */
KS_API void rt_run(void);
KS_API void rt_poll(void);
KS_API void rt_shutdown(void);

/* rt_init sets the loop's limits, and rt_async to 0; events and handlers stay. The loop and the
 * registration of handlers start it themselves. */
KS_API void rt_init(void);

/* While it is not 0, the loop neither waits nor looks at descriptors, and leaves one more pfm_inhibit
 * standing at each attempt. For a program that embeds the loop in its own; it sets the variable after
 * rt_init. */
extern KS_API int rt_async;

/* Children. The record of one is the loop's; a callback gets it with the status of waitpid(2), and it
 * is gone when the callback returns. While children are followed, SIGCHLD is the loop's, and every
 * child of the process is reaped, also one that it was not told of: a program that waits for a child
 * itself holds signals back meanwhile. */
typedef struct rt_proc rt_proc_t;
typedef void (*rt_proc_callback_t)(pid_t pid, int status, void *arg, rt_proc_t *record);

/* rt_proc_initialize takes SIGCHLD over. Every other rt_proc function does so at first use, where a
 * conflict is an assertion. Result: 0; or -1 after an error has been printed because SIGCHLD had a
 * routine already, which it has lost. A second call finds the loop's own routine. */
KS_API int rt_proc_initialize(void);

/* rt_proc_fork is fork(2) of a child whose death has `callback` called with `arg` in the loop; the
 * callback may be NULL. The new process follows none of the parent's children, and signals that waited
 * for delivery in the parent do not come in it. It has the parent's cleanup records and exit hooks: one
 * that becomes another program ends by _exit where that fails, since pfm_exit would run the hooks.
 * Result: as fork's. Where the child could not be recorded it has got SIGTERM, which has been
 *   printed, the result is -1, and one pfm_inhibit is left standing. May be left by a fault. */
KS_API pid_t rt_proc_fork(rt_proc_callback_t callback, void *arg);

/* rt_proc_birth_announcement follows a child that was started by other means. Signals are held back
 * by the caller from before its start: else it may have died and been reaped before.
 * Result: 0; or 1 when storage is exhausted: the child has got SIGTERM, and that has been printed. */
KS_API int rt_proc_birth_announcement(pid_t pid, rt_proc_callback_t callback, void *arg);

/* rt_proc_disown drops the callback of a child, which is still reaped. Result: 0, or -1 when no such
 * child is followed. */
KS_API int rt_proc_disown(pid_t pid);

/* rt_proc_killall sends SIGTERM to each living child that is followed, the youngest first, and does
 * not wait. Result: 0, or -1 when there was none. */
KS_API int rt_proc_killall(void);

/* rt_proc_any_procs: 1 while a child lives, or has died and its callback has not been called; else
 * 0. rt_proc_alive: 1 while the child `pid` is followed and its death is not known. */
KS_API int rt_proc_any_procs(void);
KS_API int rt_proc_alive(pid_t pid);

/* rt_handle_signal has `callback` called with `sig` and `arg` in the loop when the signal arrives.
 * Signals that arrive before the callback runs are one call, at the time of the last.
 * Result: 1; 0 when the signal has a callback already, when nobody can catch it or there is no such
 *   signal (errno EINVAL), and when storage is exhausted, which has been printed. */
typedef void (*rt_signal_callback_t)(int sig, void *arg);
KS_API int rt_handle_signal(int sig, rt_signal_callback_t callback, void *arg);

/* rt_unhandle_signal gives a signal back to the routine that it had, and stores whether a callback was
 * due and is cancelled by this, 1 or 0. Result: 1; 0 when the signal had no callback, and nothing is
 * stored. */
KS_API int rt_unhandle_signal(int sig, int *was_pending);

#ifdef __cplusplus
}
#endif

#endif
