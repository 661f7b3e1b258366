/* Text that others made, such as the name of a file or what a command printed, fit for one line. */
#ifndef SHOW_H
#define SHOW_H

#include <stddef.h>

/* The longest text that is shown whole, as long as the longest path, and room for it with every byte
 * written as four. */
enum { SHOW_LONGEST = 4096, SHOW_SIZE = 4 * SHOW_LONGEST + 1 };

/* Writes `length` bytes of `text`, at most SHOW_LONGEST of them, to `shown`, which has SHOW_SIZE
 * bytes: tabs and what is printable in the user's locale as it is, every other byte as a backslash
 * and three octal digits. Result: `shown`. */
const char *show(char *shown, const char *text, size_t length);

/* The same for a whole string. */
const char *show_string(char *shown, const char *text);

#endif
