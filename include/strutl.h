/* strutl.h: text utilities.
 *
 * Text is NUL-terminated bytes in the encoding of the locale. Where MB_CUR_MAX is above 1, searches
 * step by whole characters, so that a byte inside a character is never taken for a separator; a
 * sequence that is no character counts as one character of one byte.
 * A bounded call terminates its target, cuts without a word, and tells so by its result.
 * Nothing in this header allocates, prints or raises.
 */
#ifndef KS_STRUTL_H
#define KS_STRUTL_H

#include <stdarg.h>
#include <stddef.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* strutl_cpy_buf copies `source` into the `size` bytes at `target`. What does not fit is cut, also
 * in the middle of a multibyte character.
 * Result: 0 when all of it fitted, 1 when it was cut. The target is terminated in both cases; with
 * a size of 0 nothing is written and the result is 1. */
KS_API int strutl_cpy_buf(char *target, const char *source, size_t size);

/* strutl_find_char_from looks in `string`, from byte offset `start` on, for the first character
 * that stands in `set`. `start` must not lie beyond the string's end. Result: 1 with the byte
 * offset of the hit in the string in `*position` and the byte offset of the same character in the
 * set in `*set_offset`, each unless it is NULL; 0 when there is none, with both left alone. */
KS_API int strutl_find_char_from(const char *string, size_t start, const char *set,
                                 size_t *position, size_t *set_offset);

/* strutl_strrpbrk finds the last character of `string` that stands in `set`.
 * Result: a pointer into `string`, or NULL when there is none. */
KS_API char *strutl_strrpbrk(const char *string, const char *set);

/* strutl_snprintf and strutl_vsnprintf are snprintf and vsnprintf, in one place so that all bounded
 * formatting of the library goes one way.
 * Result: the bytes that the whole text needs, without its NUL, so a result not below `size` tells
 * that it was cut; negative when the text could not be formatted. With a size above 0 the target is
 * terminated whenever the result is not negative. */
KS_API int strutl_snprintf(char *target, size_t size, const char *format, ...) KS_PRINTF(3, 4);
KS_API int strutl_vsnprintf(char *target, size_t size, const char *format, va_list args)
    KS_PRINTF(3, 0);

#ifdef __cplusplus
}
#endif

#endif
