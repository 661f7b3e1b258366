/* ks_api.h: the attributes that the declarations of all public headers bear.
 *
 * KS_API marks an exported name, KS_NORETURN a function that never comes back, and
 * KS_PRINTF(at, first) a function whose argument number `at` is a printf format for the arguments
 * from number `first` on (0 for an argument list), so that the compiler checks them.
 */
#ifndef KS_API_H
#define KS_API_H

#if defined __i386__ && defined _TIME_BITS && _TIME_BITS == 64
#error "_TIME_BITS=64 makes struct timeval and stat other records than libnorvaks has on i386"
#endif

#define KS_API __attribute__((__visibility__("default")))
#define KS_NORETURN __attribute__((__noreturn__))
#define KS_PRINTF(at, first) __attribute__((__format__(__printf__, at, first)))

#endif
