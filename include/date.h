/* date.h: dates and the clock.
 *
 * A time at this boundary is seconds since the epoch in 32 bits with a sign; a negative one is
 * never valid. date_get_timeval is the one source of the time of day for the whole library.
 */
#ifndef KS_DATE_H
#define KS_DATE_H

#include <sys/time.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* date_get_timeval fills `*now` with the present time: seconds since the epoch, and microseconds
 * from 0 to 999999. It always succeeds: where gettimeofday fails or answers microseconds that make
 * no sense, the seconds come from time(2) and the microseconds are 0.
 * Neither allocates nor prints nor raises; fit for a signal routine. */
KS_API void date_get_timeval(struct timeval *now);

#ifdef __cplusplus
}
#endif

#endif
