/* pfm.h: faults, signals held back, and the end of the process.
 *
 * A fault is a plain non-zero status that jumps, by siglongjmp, to the innermost cleanup record.
 * The owner of a resource arms a record, and where a fault lands there it releases what it holds
 * and raises on. With no record left the process ends through pfm_exit. Faults are for what comes
 * from outside the call chain, above all a signal that asks the process to stop; a function that
 * merely fails says so by its result.
 *
 * Signals are held back by a counter, without a system call: between pfm_inhibit and pfm_enable
 * they are noted, and delivered in ascending order when the count is back at zero. While it is
 * zero, a signal's routine may raise at any instruction.
 *
 * One thread per process. A wrong call ends in pfm_assert_fail. The module starts itself at the
 * first call that needs it. Routines and hooks given to it must not throw C++ exceptions.
 */
#ifndef KS_PFM_H
#define KS_PFM_H

#include <setjmp.h>
#include <stdint.h>
#include <sys/select.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses of the library itself, besides signal numbers. */
enum {
  PFM_STATUS_QUIT = 4,           /* SIGINT, SIGHUP or SIGTERM told the process to stop */
  PFM_STATUS_TTOU = 22,          /* SIGTTOU stopped a write to the terminal */
  PFM_STATUS_SELECT_WAKE = 23792 /* the wait's own; nothing raises it */
};

/* A cleanup record: a local of the function that it protects. Only `env` and `status` are the
 * caller's to fill, and PFM_CLEANUP_START does so. */
typedef struct pfm_cleanup_rec {
  uint32_t magic;               /* tells whether the record is armed */
  struct pfm_cleanup_rec *prev; /* next record outward */
  jmp_buf env;      /* filled by sigsetjmp(env, 1); a sigjmp_buf, under its name in strict C */
  int32_t inh;      /* pfm_inhibit_count() when armed */
  int32_t inh_susp; /* pfm_inhibit_suspend_count() when armed */
  int32_t status;   /* what sigsetjmp returned */
} pfm_cleanup_rec_t;

/* A signal routine; SIG_DFL and SIG_IGN are accepted wherever one is. */
typedef void (*pfm_signal_t)(int sig);

/* An exit hook, called with the exit status and the argument it was registered with; and the
 * routine that ends the process after the hooks. */
typedef void (*pfm_exit_hook_t)(int status, void *argument);
typedef void (*pfm_exit_routine_t)(int status);

/* PFM_CLEANUP_START arms a record and marks the place where a fault lands:
 *
 *     pfm_cleanup_rec_t rec;
 *     char *volatile text = NULL;    // volatile, and empty before the record is armed
 *     int status = PFM_CLEANUP_START(&rec, 0);
 *     if (status != 0) {             // a fault has landed; signals are held back here
 *       free(text);
 *       pfm_raise(status);           // it goes on outward
 *     }
 *     ... the body; the function must not return from here on without ...
 *     pfm_cleanup_rls(&rec);
 *
 * The value is 0 when the record has been armed and the fault's status when it lands. Every local
 * that the cleanup branch reads is volatile: others may have lost their value. sigsetjmp is POSIX:
 * with -std=c11 it takes -D_DEFAULT_SOURCE, which is among the flags of pkg-config and CMake. */
#if defined sigsetjmp || defined __cplusplus
#define PFM_CLEANUP_START(rec, inhibit) \
  ((rec)->status = sigsetjmp((rec)->env, 1), pfm_cleanup_start((rec), (inhibit)))
#else
#define PFM_CLEANUP_START(rec, inhibit)                                                       \
  (_Pragma("GCC error \"PFM_CLEANUP_START needs sigsetjmp: compile with -D_DEFAULT_SOURCE\"") \
       pfm_cleanup_start((rec), (inhibit)))
#endif

/* pfm_cleanup_start is the step behind sigsetjmp, whose result must stand in `rec->status`.
 * Status 0: arms the record, with signals held back for the body when `inhibit` is not 0. Result 0.
 * Positive: a fault landed. The record is off the chain and signals are held back exactly once more
 *   than when it was armed. Result: the status. The cleanup branch ends by pfm_raise(status), by
 *   pfm_cleanup_reset, or by pfm_enable to absorb the fault and go on without the record.
 * Negative: result the status, and nothing else: the record stays armed, so that raising the same
 *   status again lands here again.
 * A record that is armed already, an inner record that was never released, and a body that enabled
 * more often than it inhibited are assertions. */
KS_API int pfm_cleanup_start(pfm_cleanup_rec_t *rec, int inhibit);

/* pfm_cleanup_rls takes the innermost record off the chain. Every normal way out of a protected
 * function calls it exactly once. Result 0. */
KS_API int pfm_cleanup_rls(pfm_cleanup_rec_t *rec);

/* pfm_cleanup_reset puts a record that a fault has taken off back on the chain and ends the
 * cleanup branch's hold on signals, so that the same record guards what follows. Result 0. */
KS_API int pfm_cleanup_reset(pfm_cleanup_rec_t *rec);

/* pfm_raise jumps to the innermost record, at once and from any depth of pfm_inhibit; without one
 * it ends the process by pfm_exit(status). `status` must not be 0. Fit for a signal routine. */
KS_API KS_NORETURN void pfm_raise(int status);

/* pfm_raise_deferred raises at once when nothing is held back. Otherwise it returns, and the fault
 * comes with the last pfm_enable as if SIGINT had arrived: the status is dropped by design, and the
 * frames see what the routine for SIGINT raises. */
KS_API void pfm_raise_deferred(int status);

/* pfm_inhibit and pfm_enable bracket a stretch that no signal routine may interrupt; they nest. The
 * last pfm_enable delivers what has arrived meanwhile, so it may be left by a fault. Signals of the
 * same number are merged. */
KS_API void pfm_inhibit(void);
KS_API void pfm_enable(void);

/* The same for SIGTSTP alone, on a count of its own. */
KS_API void pfm_inhibit_suspend(void);
KS_API void pfm_enable_suspend(void);

/* The two counts, and the number of different signals that wait for delivery. */
KS_API int32_t pfm_inhibit_count(void);
KS_API int32_t pfm_inhibit_suspend_count(void);
KS_API int32_t pfm_blocked_count(void);

/* pfm_signal makes `routine` the routine of signal `sig` (1 to 64), or SIG_DFL or SIG_IGN its
 * disposition, and unblocks the signal. System calls that it interrupts end with EINTR. While the
 * routine runs, all asynchronous signals are blocked; it may raise.
 * Result: the routine before; SIG_ERR with errno EINVAL, and nothing changed, when there is no such
 *   signal number, when nobody can catch the signal (SIGKILL, SIGSTOP and those that libc keeps to
 *   itself), or when the routine is SIG_ERR.
 * A routine that somebody else had installed before the module started stays installed with the
 * system when another routine takes its place here: set SIG_DFL first to take the signal over. */
KS_API pfm_signal_t pfm_signal(int sig, pfm_signal_t routine);

/* pfm_select_inhibited is select(2) for a caller that holds signals back exactly once: a signal
 * that arrives, or that is already waiting for delivery, ends the wait, and is delivered by the
 * caller's pfm_enable. No signal can slip in unseen between the test and the sleep. Result: as
 * select: the number of ready descriptors, 0 at the timeout, or -1 with errno, which is EINTR for a
 * signal. May be left by a fault. */
KS_API int pfm_select_inhibited(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                                struct timeval *timeout);

/* pfm_on_exit has `routine` called with the exit status and `argument` when the process ends by
 * pfm_exit or exit (which gives status 0). The last hook registered runs first, each runs once. */
KS_API void pfm_on_exit(pfm_exit_hook_t routine, void *argument);

/* pfm_set_exit replaces what pfm_exit calls last; at the start it is exit(3). The routine must not
 * return. Result: the previous one. */
KS_API pfm_exit_routine_t pfm_set_exit(pfm_exit_routine_t routine);

/* pfm_exit runs the exit hooks and then the exit routine. A hook may call pfm_exit itself: the
 * hooks that are left then run. */
KS_API void pfm_exit(int status);

/* pfm_panic prints "***ABORT***" with the place as an error message and aborts. No signal comes while
 * it prints, and a routine for SIGABRT runs behind it, also where signals are held. */
KS_API KS_NORETURN void pfm_panic(const char *file, int line);

/* pfm_assert_fail prints the text of a condition that did not hold, with the place, as an error
 * message and aborts. Where printing itself is what failed, the line goes to descriptor 2. */
KS_API KS_NORETURN void pfm_assert_fail(const char *expression_text, const char *file, int line);

/* pfm_init starts the module: it takes SIGINT, SIGHUP and SIGTERM over unless they are ignored,
 * to raise PFM_STATUS_QUIT, sets SIGCHLD to its default, takes SIGTSTP over, and registers the exit
 * hooks with atexit. A second call does nothing. */
KS_API void pfm_init(void);

#ifdef __cplusplus
}
#endif

#endif
