/* libnorvaks.h: which library this is.
 *
 * The identity is one line of text: the library's name in a field of 33 bytes, its version, and in
 * parentheses the date on which it was built.
 */
#ifndef KS_LIBNORVAKS_H
#define KS_LIBNORVAKS_H

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* libnorvaks_print_verid prints the identity as plain output (IMSG_TYPE_OK of imsg.h). */
KS_API void libnorvaks_print_verid(void);

/* libnorvaks_sprintf_verid writes the identity, its newline and a NUL into `dest`, which the caller
 * owns; 128 bytes are enough.
 * Result: the bytes written without the NUL. */
KS_API int libnorvaks_sprintf_verid(char *dest);

#ifdef __cplusplus
}
#endif

#endif
