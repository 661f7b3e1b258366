/* strutl.h: text utilities.
 *
 * Text is NUL-terminated bytes in the encoding of the locale. Where MB_CUR_MAX is above 1, searches
 * step by whole characters, so that a byte inside a character is never taken for a separator; a
 * sequence that is no character counts as one character of one byte.
 * A bounded call terminates its target, cuts without a word, and tells so by its result.
 * Where a comment does not say that a call prints or allocates, it does neither; none raises by
 * itself. An answer never depends on a text seen earlier: conversions start from a fresh state.
 * "Static text" lives until the next call of the same function. Texts must not be NULL where nothing
 * else is said.
 */
#ifndef KS_STRUTL_H
#define KS_STRUTL_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "ks_api.h"
#include "list.h"
#include "stg.h"

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

/* strutl_find_char finds the first character of `string`, from byte offset `start` on, that is the
 * one-byte character `character`. `start` must not lie beyond the string's end, here and in all
 * searches; a `position` may be NULL.
 * Result: 1 with its byte offset in the string in `*position`; 0 with the offset of the NUL. The NUL
 * itself is never found. */
KS_API int strutl_find_char(const char *string, size_t start, char character, size_t *position);

/* strutl_find_str finds the first character, from byte offset `start` on, at which the bytes of
 * `needle` stand; an empty needle stands at `start`. strutl_find_str_range looks only at characters
 * that begin before byte offset `limit`, 0 for no limit; what it finds may run past that.
 * Result: 1 with the byte offset in `*position`; 0 with the offset at which the search ended. */
KS_API int strutl_find_str(const char *string, size_t start, const char *needle, size_t *position);
KS_API int strutl_find_str_range(const char *string, size_t start, size_t limit, const char *needle,
                                 size_t *position);

/* strutl_right_char finds the last one-byte character `character` in the first `length` bytes of
 * `string`, or in all of it when it is shorter.
 * Result: 1 with its byte offset in `*position`; 0 with `*position` left alone. */
KS_API int strutl_right_char(const char *string, size_t length, char character, size_t *position);

/* strutl_find_end_delim finds the `close` that ends what an `open` right before byte offset `start`
 * began: pairs in between are passed over. Both are one-byte characters; when they are the same, the
 * first is the end.
 * Result: 1 with its byte offset in `*position`; 0 with `*position` left alone. */
KS_API int strutl_find_end_delim(const char *string, size_t start, char open, char close,
                                 size_t *position);

/* strutl_find_last_char finds the last character that begins between the byte offsets `start` and
 * `end`, both included; -1 stands for the string's end.
 * Result: 1 with its byte offset in `*position`; 0 with 0 there when `end` is below `start` or the
 * string ends at `start`. */
KS_API int strutl_find_last_char(const char *string, size_t start, ptrdiff_t end, size_t *position);

/* strutl_match_last_char tells whether the last character of `string` is the one-byte character
 * `character`. Result: 1 or 0; 0 for an empty string. */
KS_API int strutl_match_last_char(const char *string, char character);

/* strutl_match_prefix compares two strings character by character. Result: 0 when they are equal,
 * else 1; in both cases `*length`, unless it is NULL, gets the bytes that they have in common before
 * the first character that differs. */
KS_API int strutl_match_prefix(const char *first, const char *second, size_t *length);

/* strutl_cmp_ignore_whitespace compares two strings; white space at either end does not count, and a
 * run of it elsewhere is one blank. White space is what isspace says of a byte.
 * Result: 0 when they are equal, else 1. */
KS_API int strutl_cmp_ignore_whitespace(const char *first, const char *second);

/* strutl_str_in_list tells whether an element of a list of strings equals `string`.
 * Result: 1 or 0; 0 for a NULL list. */
KS_API int strutl_str_in_list(const list_t *list, const char *string);

/* strutl_tokenize takes a text apart, as strtok: the first call gives the text, the later ones NULL.
 * Bytes that stand in `delimiters` are skipped; the token goes up to the next character whose first
 * byte stands there, and that byte is overwritten with a NUL. The place reached is kept in one
 * static cursor, so only one text can be taken apart at a time; the set may change between calls.
 * Result: the token, in the caller's text, or NULL when there are no more. */
KS_API char *strutl_tokenize(char *string, const char *delimiters);

/* strutl_mblen returns the bytes of the character at `bytes`, of which `limit` may be looked at: 0
 * at a NUL, else at least 1, since a sequence that is no character, or is cut by the limit, counts
 * as one byte; never negative. The first byte is looked at whatever the limit. */
KS_API int strutl_mblen(const char *bytes, size_t limit);

/* strutl_mb_char_from_str returns the first character of `string` as a text, and stores where the
 * next one begins in `*s_tail`, which must not be NULL (an assertion). With a NULL or empty string
 * the text is empty and `*s_tail` is left alone. A static buffer that lives until the next call. */
KS_API const char *strutl_mb_char_from_str(const char *string, const char **s_tail);

/* strutl_mb_strlen counts the characters of a string, which must not be NULL (an assertion). */
KS_API size_t strutl_mb_strlen(const char *s);

/* strutl_mb_strchr finds the character that is given by its `length` bytes. With a length of 1 it
 * also finds a longer character that begins with that byte; with 0 it finds nothing.
 * Result: a pointer into `string`, or NULL. */
KS_API char *strutl_mb_strchr(const char *string, const char *character, size_t length);

/* Character classes, to be combined with "|". */
enum {
  STRUTL_CLASS_ALPHA = 0x001,
  STRUTL_CLASS_UPPER = 0x002,
  STRUTL_CLASS_LOWER = 0x004,
  STRUTL_CLASS_DIGIT = 0x008,
  STRUTL_CLASS_XDIGIT = 0x010,
  STRUTL_CLASS_ALNUM = 0x020,
  STRUTL_CLASS_SPACE = 0x040,
  STRUTL_CLASS_PUNCT = 0x080,
  STRUTL_CLASS_PRINT = 0x100,
  STRUTL_CLASS_GRAPH = 0x200
};

/* strutl_test_char tells whether the character at `bytes`, of which `limit` may be looked at, is in
 * all of `classes`; a sequence that is no character is judged by its first byte, which is looked at
 * whatever the limit.
 * Result: 1 or 0. `*length`, unless it is NULL, gets the character's bytes in both cases: 0 at a
 * NUL, and 1 for a sequence that is no character. */
KS_API int strutl_test_char(const char *bytes, size_t limit, uint32_t classes, size_t *length);

/* strutl_cvt_case_char puts the other case of the character of `length` bytes at `bytes` to `out`,
 * which may be `bytes` and has room for MB_CUR_MAX bytes and for `length`: the upper case when
 * `to_upper` is not 0, else the lower. What has no other case, and what is no character, is copied.
 * Result: the bytes put, which may be more or fewer than `length`; 0 for a length of 0. */
KS_API size_t strutl_cvt_case_char(const char *bytes, size_t length, int to_upper, char *out);

/* strutl_cvt_case_string does so with each character of `string`, into the `size` bytes at `buffer`,
 * which must not overlap it. The result may be longer than the string.
 * Result: 1 when all of it fitted with its NUL, else 0 with as many whole characters as fit. The
 * buffer is terminated in both cases; with a size of 0 nothing is written. */
KS_API int strutl_cvt_case_string(const char *string, int to_upper, size_t size, char *buffer);

/* strutl_stricoll compares two strings as strcoll does, in lower case. Where there is no storage for
 * the copies that this takes, which is printed as an error, they are compared as they are.
 * Result: below 0, 0 or above 0. */
KS_API int strutl_stricoll(const char *first, const char *second);

/* strutl_get_sys_char_type: 1 where each character of the locale is one byte, else 2. */
KS_API int strutl_get_sys_char_type(void);

/* strutl_wide_char_from_str returns the first character of `string` as a wide character and stores
 * where the next one begins, as strutl_mb_char_from_str does, with the same assertion.
 * Result: 0 for a NULL or empty string, and for what is no character, which is printed as an error. */
KS_API wchar_t strutl_wide_char_from_str(const char *string, const char **s_tail);

/* strutl_wide_strlen counts the characters of a wide string, which must not be NULL (an
 * assertion). */
KS_API size_t strutl_wide_strlen(const wchar_t *ws);

/* strutl_cvt_str_to_wide_str and strutl_cvt_wide_str_to_str convert a string into a new one, in
 * `area` or on the heap with STG_AREA_HEAP; STG_AREA_NULL is an assertion.
 * Result: the new string. NULL after an error message for a NULL string or without storage; an empty
 *   string after an error message when some character cannot be converted. */
KS_API wchar_t *strutl_cvt_str_to_wide_str(const char *string, stg_area_t area);
KS_API char *strutl_cvt_wide_str_to_str(const wchar_t *wide, stg_area_t area);

/* strutl_cvt_sjis_to_euc maps a double-byte character of Shift-JIS to EUC-JP by arithmetic alone: of
 * bytes that are no such character it makes something without meaning.
 * Result: the two bytes as one number, the first one in front; each is stored as well, unless the
 * pointer is NULL. */
KS_API int strutl_cvt_sjis_to_euc(unsigned char first, unsigned char second,
                                  unsigned char *euc_first, unsigned char *euc_second);

/* Results of the UTF conversions, in which a UTF-16 value stands in a word of 32 bits. */
enum {
  STRUTL_UTF_DONE = 0,
  STRUTL_UTF_SOURCE_ENDED = 1, /* the source ends inside a sequence */
  STRUTL_UTF_TARGET_FULL = 3
};

/* strutl_utf16to8 converts `source_length` words. `target` has one byte more than `target_size`, for
 * the NUL that always ends it. Half a surrogate pair is converted by itself, to three bytes; a value
 * above 0x1FFFFF gives the two bytes FF BD.
 * Result: a status; on a full target, what fits stands there in whole characters. */
KS_API int strutl_utf16to8(char *target, const uint32_t *source, size_t source_length,
                           size_t target_size);

/* strutl_utf8to16 converts `source_length` bytes. `target` has one word more than `target_length`,
 * for the zero word that always ends it. Nothing is checked: a first byte takes the bytes behind it
 * that it announces, whatever they are, and values above 0x10FFFF become 0xFFFD. A first byte that
 * announces four or five is never passed: 0xFFFD comes out until the target is full.
 * Result: a status; `*consumed`, unless it is NULL, gets the bytes of the source that went in. */
KS_API int strutl_utf8to16(uint32_t *target, const char *source, size_t source_length,
                           size_t target_length, size_t *consumed);

/* strutl_ncpy copies exactly `count` bytes, NULs included, to `target`, and a NUL behind them: it
 * knows no bound, so the target must have room for count + 1 bytes. Result: the target. */
KS_API char *strutl_ncpy(char *target, const char *source, size_t count);

/* strutl_ncpy_buf copies `count` bytes, NULs included, into the `size` bytes at `target`, or as
 * many as leave room for a NUL, and terminates. Result: 0 when all fitted, 1 when the text was cut;
 * with a size of 0 nothing is written and the result is 1. */
KS_API int strutl_ncpy_buf(char *target, const char *source, size_t count, size_t size);

/* strutl_ccpy_buf is strutl_cpy_buf of what stands before the first byte that is in `stop_set`.
 * Result: 0 when all of that fitted, 1 when it was cut. `*stop`, unless NULL, is the offset in the
 * source of the first byte that was not copied. With a size of 0 nothing is written, not even
 * `*stop`, and the result is 1. */
KS_API int strutl_ccpy_buf(char *target, const char *source, size_t size, const char *stop_set,
                           size_t *stop);

/* strutl_cpy_and_advance is strncpy to `*target`, which then moves on by `count`. It knows no bound
 * but the count, fills up with NULs, and does not terminate a text of that length or more. */
KS_API void strutl_cpy_and_advance(char **target, const char *source, size_t count);

/* strutl_prepend writes a text into `buffer`, without its NUL, so that it ends before the byte at
 * `position`: for texts that are built from their end. Result: where it begins. When there is no
 * room in front of the position, nothing is written and the result is negative. */
KS_API ptrdiff_t strutl_prepend(char *buffer, ptrdiff_t position, const char *text);

/* strutl_concat joins the `count` strings that follow in the `size` bytes at `target`; with none
 * the target becomes empty. When the first of them is the target itself its text stays and is
 * joined on to; none of the others may be the target.
 * Result: 0, or 1 when not all fitted: what did is kept, and terminated. With a size of 0 nothing
 * is written and the result is 1. */
KS_API int strutl_concat(char *target, size_t size, int count, ...);

/* strutl_concat_heap and strutl_concat_area join the `count` strings that follow, at most 32, in a
 * new heap block, which goes back by stg_free, or in `area`; none gives an empty text.
 * Result: the text; NULL with more than 32 strings, or, after the error has been printed, when
 * storage is exhausted. */
KS_API char *strutl_concat_heap(int count, ...);
KS_API char *strutl_concat_area(stg_area_t area, int count, ...);

/* strutl_strip_whitespace takes blanks and tabs off the front, with `leading` not 0, and off the
 * end, with `trailing` not 0. Result: where the text now ends if any were cut off its end, else
 * NULL. A text of nothing else becomes empty; with `trailing` that counts as a cut at its end. */
KS_API char *strutl_strip_whitespace(char *string, int leading, int trailing);

/* strutl_slide_tail moves the text from byte offset `position` on, with its NUL, by `distance`
 * bytes, to the left when negative. It knows no bound to the right: the buffer must have the room.
 * The tail begins at the text's end at the latest, and does not move to the left of its start. */
KS_API void strutl_slide_tail(char *string, size_t position, ptrdiff_t distance);

/* strutl_replace_substr replaces `old_length` bytes from byte offset `position` on by `text`, which
 * lies outside the string. Only the bytes that are there are replaced. Result: 0, or 1 when the
 * text grows and does not fit the `size` bytes at `string`: that prints an error and changes
 * nothing. */
KS_API int strutl_replace_substr(char *string, size_t position, size_t size, size_t old_length,
                                 const char *text);

/* strutl_find_replace_substr replaces the first `old_text` in `string`, if there is one, as
 * strutl_replace_substr does. Result: 1 if a replacement was made, else 0. */
KS_API int strutl_find_replace_substr(char *string, size_t size, const char *old_text,
                                      const char *new_text);

/* strutl_xlate_pname_sep turns each character of `source` that is in `separators` into `separator`.
 * When that changes anything the new text stands in `target`, of `size` bytes, which may be the
 * source, and `*changed` is 1; otherwise the target is not written and `*changed` is 0.
 * Result: 0, or 1 when the target is too small: it then holds as much of the source as fits. */
KS_API int strutl_xlate_pname_sep(const char *source, const char *separators, char separator,
                                  char *target, size_t size, int *changed);

/* strutl_xlate_chars_to_strings copies `source` to `target` with each character that is in
 * `characters` replaced by the string in `strings` whose index is the character's byte offset in
 * `characters`. It knows no bound: the target must have room for the result, of which the length is
 * returned. */
KS_API size_t strutl_xlate_chars_to_strings(char *target, const char *source,
                                            const char *characters, const char *const *strings);

/* strutl_strtol, strutl_strtoul and strutl_strtod read the whole text as strtol, strtoul and strtod
 * do. Result: 0; 1 for a text without digits, a value out of range or text behind the number.
 * `*value` is in any case what the system's function gives. errno is cleared and may be set. */
KS_API int strutl_strtol(const char *text, int base, long *value);
KS_API int strutl_strtoul(const char *text, int base, unsigned long *value);
KS_API int strutl_strtod(const char *text, double *value);

/* strutl_strtol_extended, strutl_strtoul_extended and strutl_strtod_extended are the same, but text
 * may follow: `*end` is where the number ends. */
KS_API int strutl_strtol_extended(const char *text, int base, long *value, char **end);
KS_API int strutl_strtoul_extended(const char *text, int base, unsigned long *value, char **end);
KS_API int strutl_strtod_extended(const char *text, double *value, char **end);

/* strutl_u32tostr writes a value in a base from 2 to 36, with lower-case letters. A negative
 * `width` gives as many digits as it takes, any other that many of its last digits, filled up with
 * zeros, at most 32. Result: static text; NULL with another base. */
KS_API const char *strutl_u32tostr(uint32_t value, int base, int width);

/* strutl_kstr_to_long reads a size, a floating-point number of bytes or with k, m or g (or K, M, G)
 * behind it of so many times 1024, and gives it in kilobytes; strutl_kstr_or_str_to_long gives it
 * in bytes. The fraction is dropped, but a number other than 0 never gives 0: it gives 1.
 * Result: 0; 1 for no number, other text behind it or a size out of range: `*value` is kept. */
KS_API int strutl_kstr_to_long(const char *text, long *value);
KS_API int strutl_kstr_or_str_to_long(const char *text, long *value);

/* strutl_process_long_param reads a decimal parameter. Result: `otherwise` when the text is NULL or
 * not a number and nothing else; else the number, or the bound that it passes. */
KS_API long strutl_process_long_param(const char *text, long otherwise, long minimum, long maximum);

/* strutl_cstr_to_str undoes backslash escapes: \" \' \? \\ \a \b \f \n \r \t \v, \x with one or two
 * hexadecimal digits, \1 to \377 in octal, and \0, which is a NUL by itself whatever follows. Two
 * double quotes in a row vanish. With `quoted` not 0 the text must stand between double quotes.
 * Result: 0 with the new text in `*out`, a heap block that goes back by stg_free; 1 with NULL there
 * for a NULL or malformed text or, after the error has been printed, when storage is exhausted. */
KS_API int strutl_cstr_to_str(const char *text, int quoted, char **out);

/* strutl_str_to_hash32 hashes a text: for each of its bytes the hash, which begins as `seed`, is
 * rotated left by 5 bits and the byte, 0 to 255, added. The values may be stored. */
KS_API uint32_t strutl_str_to_hash32(uint32_t seed, const char *string);

/* A flag word's bits, or groups of bits, by name. */
typedef struct strutl_flag_item {
  const char *name;
  uint32_t bits;
} strutl_flag_item_t;

/* strutl_flags_to_str names the flags: each row, in order, of which any bit is set, with
 * `separator` (a blank when NULL or empty) between the names, and " UNKNOWN(0x...)" for bits that
 * no row has. What goes beyond 1023 bytes is cut. Result: static text. */
KS_API const char *strutl_flags_to_str(uint32_t flags, const char *separator,
                                       const strutl_flag_item_t *table, size_t count);

/* strutl_flags_from_str reads names that stand between separators (blanks when `separator` is NULL
 * or empty), the first 1023 bytes of the text; without `case_sensitive` they compare as with
 * strutl_stricoll, which may allocate. Empty words are skipped.
 * Result: the bits of all rows that were named, and NULL in `*bad_word`; 0 when a word is no row's
 * name, with `*bad_word` pointing at the first such word in `text`. */
KS_API uint32_t strutl_flags_from_str(const char *text, int case_sensitive, const char *separator,
                                      const strutl_flag_item_t *table, size_t count,
                                      const char **bad_word);

/* strutl_is_ok_name judges a name that a user made up. Its characters must be printable, neither
 * white space nor ASCII punctuation, or else stand in `extra_allowed`; the first must not stand in
 * `forbidden_first`. Either set may be NULL. Result: 1, or 0, also for a NULL or empty name and for
 * one with a sequence that is no character. */
KS_API int strutl_is_ok_name(const char *name, const char *forbidden_first,
                             const char *extra_allowed);

/* strutl_extract_head obscures a text, differently at different times, as a word of ASCII letters,
 * digits, '-' and '_'; strutl_extract_tail gives the text back. This hides, it does not protect. An
 * empty text gives an empty one. A word takes (4 * length + 2) / 3 + 1 characters and a NUL.
 * Result: 0; 1 when the `size` bytes at `target`, outside the text, are too few, and from the tail
 * for a text that the head never makes. The target is then an empty text, if its size is not 0. */
KS_API int strutl_extract_head(const char *text, char *target, size_t size);
KS_API int strutl_extract_tail(const char *text, char *target, size_t size);

/* strutl_write makes `text` the whole of the file at `path`; a NULL text leaves it alone. Signals are
 * held back meanwhile. `reserved` is not used. Result: 0; 1 with errno when the file cannot be opened
 * or written, after an error message unless `quiet` is not 0. It may then hold a part of the text. */
KS_API int strutl_write(const char *text, const char *path, int reserved, int quiet);

/* strutl_read returns the file at `path` as a text in `area`, with STG_AREA_HEAP to go back by
 * stg_free; a NUL in the file ends the text. `reserved` is not used. Signals are held back but while
 * it waits for what is no plain file; a fault that leaves it then releases what it has made.
 * Result: the text, empty for a missing file if `missing_is_empty` is not 0; NULL with errno, after
 *   an error message unless `quiet` is not 0, when it cannot be read, has 2 GB or more, or grows
 *   meanwhile (both EFBIG), and always when storage is exhausted. A file that has a size of 0 and
 *   contents, such as those that the kernel makes up, counts as one that grows. */
KS_API char *strutl_read(stg_area_t area, const char *path, int reserved, int quiet,
                         int missing_is_empty);

/* strutl_read_fp reads a stream up to its end as a text in `area`, like strutl_read, into a buffer of
 * `size` bytes; 0 stands for one that grows by 8192 bytes, of which each leaves the old one behind in
 * an area. Signals are held back but while it waits for input, where a fault may leave it: what it
 * has read is gone then. The stream stays open, and is locked at no time.
 * Result: the text. `*truncated` is 1 when the buffer was full, with `size` - 1 bytes of the stream,
 *   before the end was met, also if nothing more would have come; else 0. NULL with errno, after an
 *   error message unless `quiet` is not 0, when reading fails; after one in any case, which is a
 *   warning when a heap buffer cannot grow, when storage is exhausted. */
KS_API char *strutl_read_fp(stg_area_t area, uint32_t size, FILE *stream, int quiet,
                            int *truncated);

/* A list_t of list.h. */
struct list;

/* strutl_list_print prints the strings of a list, one a line, and an empty line behind them, as
 * output; strutl_list_trace_print prints them as a trace, also while nothing is traced. A NULL list
 * prints nothing. */
KS_API void strutl_list_print(struct list *list);
KS_API void strutl_list_trace_print(struct list *list);

#ifdef __cplusplus
}
#endif

#endif
