/* procutl.h: small questions about processes.
 *
 * Neither function prints or raises; both are fit for a signal routine.
 */
#ifndef KS_PROCUTL_H
#define KS_PROCUTL_H

#include <sys/types.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* procutl_exists: 1 when there is a process `pid`, also one of another user or one that has died and
 * was not waited for; else 0. */
KS_API int procutl_exists(pid_t pid);

/* procutl_terminate sends SIGTERM to the process `pid`. Zero and negative numbers mean groups of
 * processes, as with kill(2). Result: 0, or 1 with errno. */
KS_API int procutl_terminate(pid_t pid);

#ifdef __cplusplus
}
#endif

#endif
