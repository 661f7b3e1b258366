/* imsg.h: messages: printing, text in the form of a message, and tracing.
 *
 * A message is named by a table and an index (imsg_table.h). Its text is a printf format, taken
 * from the catalog of the user's language or else from the table. Wherever a call takes (table,
 * number), number -1 means that `table` is itself a printf format: imsg_print(type, "%s\n", -1,
 * text). A catalog's text that reads other arguments than the table's is another version's and is
 * not used.
 *
 * The type of a message decides its prefix and its stream. Printing never ends the process and
 * never raises by itself; each text brings its own newline.
 *
 * One thread per process; a text in a static buffer lives until the next call of this module. Any
 * function here that prints may be left by a fault, when a signal's routine raises. None is fit for
 * a signal routine unless the flow it interrupted was outside the module.
 */
#ifndef KS_IMSG_H
#define KS_IMSG_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "imsg_table.h"
#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Message types. An odd type continues a message that the even one before it began. */
enum {
  IMSG_TYPE_OK = 0, /* plain output: stdout, no prefix */
  IMSG_TYPE_OK_CONT = 1,
  IMSG_TYPE_BOX = 2, /* output that a front end shows in a box: stdout, no prefix */
  IMSG_TYPE_BOX_CONT = 3,
  IMSG_TYPE_WARNING = 4, /* stderr, "<application>: Warning: " */
  IMSG_TYPE_WARNING_CONT = 5,
  IMSG_TYPE_ERROR = 6, /* stderr, "<application>: Error: " */
  IMSG_TYPE_ERROR_CONT = 7,
  IMSG_TYPE_TRACE = 8, /* stderr, ">>> HH:MM:SS.mmm (<application>): " */
  IMSG_TYPE_TRACE_CONT = 9,
  IMSG_TYPE_LOG_ONLY = 10 /* dropped unless a log is open */
};

/* A standard descriptor that is closed when the library is loaded is taken there and then by
 * /dev/null, opened the wrong way round: for writing as 0, for reading as 1 and 2. So no file that
 * the program opens gets its number and with it the messages, and reading and printing there fail
 * with EBADF as they would without. What the program closes itself later stays closed. */

/* imsg_print prints one message. A type above 10 prints as an error with the prefix "System
 * message: ". A number that the table does not have ends the process after error messages that say
 * so. Result: 0, of no meaning: a message that could not be written whole sets the indicator of its
 * stream, and a program whose output matters asks ferror(stdout) before it ends with 0. A signal
 * whose routine returns cuts no message. */
KS_API int imsg_print(int type, const void *table, int number, ...);

/* The same with the subsystem's name given, for modules that share a table; NULL means the
 * table's. */
KS_API int imsg_print_shared(int type, const char *subsys, const void *table, int number, ...);
KS_API int imsg_print_sharedv(int type, const char *subsys, const void *table, int number,
                              va_list args);

/* imsg_snprintf formats a message, without a prefix, into the `size` bytes at `dest`; size 0 means
 * no limit. Where a message may be tagged, which this call and the taggable ones allow, `dest` has
 * one byte more than `size`.
 * Result: the bytes that the whole text needs without its NUL, as snprintf, or -1 after an error
 * message when there is no such text. */
KS_API int imsg_snprintf(char *dest, size_t size, const void *table, int number, ...);

/* The same, never tagged: with a limit and an argument list, and without a limit. */
KS_API int imsg_vsnprintf(char *dest, size_t size, const void *table, int number, va_list args);
KS_API int imsg_vsprintf(char *dest, const void *table, int number, va_list args);
KS_API int imsg_sprintf(char *dest, const void *table, int number, ...);

/* The same with the tagging mode given: 1 never, 2 when tagging is enabled, 3 always. */
KS_API int imsg_vsnprintf_taggable(int mode, char *dest, size_t size, const void *table, int number,
                                   va_list args);
KS_API int imsg_snprintf_taggable(int mode, char *dest, size_t size, const void *table, int number,
                                  ...);

/* imsg_snprintf_type puts the prefix of a type in front. Result: the bytes that the text needs, the
 * prefix not counted, or -1; -1 after an error message when `dest` cannot hold the prefix. */
KS_API int imsg_snprintf_type(char *dest, size_t size, int type, const void *table, int number,
                              ...);

/* cat_extractmsg returns the text of a message in the user's language: from the catalog that the
 * table names, found by catopen(3) with NLSPATH and LANG, or else the table's own. Two catalogs
 * stay open. The index is not checked, nor what the text reads as a format. The text lives until
 * the catalog is closed, at the soonest when texts of two other catalogs have been asked for. */
KS_API const char *cat_extractmsg(const imsg_table_t *table, int index);

/* imsg_strerror returns the system's text for an errno value; a value that is not above 0 gives the
 * number in decimal. Lives until the next call. */
KS_API const char *imsg_strerror(int errnum);

/* imsg_strerror_gethost returns the text of an h_errno value in the user's language; a value that
 * is none of the resolver's goes to imsg_strerror. */
KS_API const char *imsg_strerror_gethost(int h_errno_value);

/* imsg_prefix_format returns the printf format of a type's prefix. Its arguments are the time stamp
 * for IMSG_TYPE_TRACE, then the application's name, then with `with_subsys` the subsystem's. A
 * static buffer that lives until the next call; empty while prefixes are suppressed. */
KS_API const char *imsg_prefix_format(int type, int with_subsys);

/* imsg_suppress_prefix turns all prefixes off or on. imsg_output_subsys sets the wish for the
 * subsystem's name in prefixes, which printed lines do not heed. Result: the flag before. */
KS_API int imsg_suppress_prefix(int flag);
KS_API int imsg_output_subsys(int flag);

/* imsg_set_app_name keeps what follows the last "/" of `path` as the application's name, best
 * called with argv[0]; NULL gives back "noname". imsg_get_app_name returns it; it lives until the
 * next imsg_set_app_name. */
KS_API void imsg_set_app_name(const char *path);
KS_API const char *imsg_get_app_name(void);

/* Two settings that the library only keeps: the folder of messages, and the file of error numbers.
 * NULL gives back the default. Copies are kept.
 * imsg_set_errnum_file: 0, or what access(2) said, -1 with errno, when the file cannot be read;
 * then nothing has changed. */
KS_API void imsg_set_message_home(const char *path);
KS_API int imsg_set_errnum_file(const char *name);

/* A trace line is guarded so that it costs one comparison while tracing is off:
 *
 *     if (imsg_get_desired_verbosity() >= 3 && imsg_should_trace("my/subsys", 3))
 *       imsg_print(IMSG_TYPE_TRACE, my_msg_table, MY_MSG_STEP, step);
 *
 * The user sets TRACE_VERBOSITY to a number and TRACE_SUBSYS to "*" or to names with colons between
 * them. Both are read at the first imsg_should_trace. */
KS_API int imsg_get_desired_verbosity(void);

/* Result: 1 when a message of this level (from 0, small is important) of this subsystem is wanted,
 * else 0. imsg_should_trace_subsys asks for level 0. */
KS_API int imsg_should_trace(const char *subsys, int level);
KS_API int imsg_should_trace_subsys(const char *subsys);

/* Result: the number in TRACE_VERBOSITY, 0 when there is none. */
KS_API int imsg_get_verbosity_ev(void);

/* Set what the environment would set. The text is kept by pointer, not copied: it must outlive its
 * use. With a verbosity set, and no text, TRACE_SUBSYS is not read and nothing is traced. */
KS_API void imsg_set_trace_verbosity(int level);
KS_API void imsg_set_trace_subsys(const char *text);

/* imsg_reset_verbosity forgets the verbosity: the next imsg_should_trace reads it again. */
KS_API void imsg_reset_verbosity(void);

/* Routing. Each type of message has an output procedure, which a front end may replace by its own:
 * called with an info word and the finished text, which lives until the call returns. At the start
 * all types have imsg_append_proc_default, but IMSG_TYPE_LOG_ONLY, which is suppressed. Box types
 * whose procedure is the default go the way of plain output. While a log is open it takes all
 * messages. A procedure must not throw; it may raise, and a message it prints must be of a type that
 * does not come back to it. */
typedef void (*imsg_out_fn_t)(void *info, const char *text);

enum { IMSG_TYPE_COUNT = 11 };

/* A procedure that is NULL leaves the message to its stream, and this one drops it. Where the user
 * has set IMSG_DUP_OUTPUT to a number other than 0, what goes to another procedure than the default
 * is also written to its stream, even what is dropped; the variable is read when that first
 * happens. */
#define IMSG_OUT_NOTHING ((imsg_out_fn_t)(intptr_t)-1)

/* imsg_append_proc_default writes a text to the stream of the message that is being delivered,
 * stdout for plain and box output and stderr for the others, by imsg_fputs; the info word is not
 * used. A procedure may call it for a copy. imsg_append_proc_suppress does nothing. */
KS_API void imsg_append_proc_default(void *info, const char *text);
KS_API void imsg_append_proc_suppress(void *info, const char *text);

/* imsg_set_redirect_procs sets the procedures of the types from 0 on to the `count` ones at `procs`,
 * of which at most 11 count and with a negative count none, and the info word that all of them get.
 * imsg_get_redirect_procs reads as many and the info word, so that they can be put back. */
KS_API void imsg_set_redirect_procs(const imsg_out_fn_t *procs, int count, void *info);
KS_API void imsg_get_redirect_procs(int count, imsg_out_fn_t *procs, void **info);

/* imsg_redirect_output sets one procedure for plain output and one for warnings, errors and traces,
 * each with its own info word. The default and the suppressing procedure are set as such; under any
 * other value the types of a group become one, 0 or 6, for imsg_append_proc_default. Box output and
 * IMSG_TYPE_LOG_ONLY stay as they are. */
KS_API void imsg_redirect_output(imsg_out_fn_t out_proc, void *out_arg, imsg_out_fn_t err_proc,
                                 void *err_arg);

/* A procedure with its info word. */
typedef struct imsg_window {
  imsg_out_fn_t proc;
  void *arg;
} imsg_window_t;

/* imsg_use_window is imsg_redirect_output with the pair for both groups; imsg_set_output_box sets
 * the pair for the box types, which become type 2. Only its contents are kept; it is not NULL. */
KS_API void imsg_use_window(const imsg_window_t *pair);
KS_API void imsg_set_output_box(const imsg_window_t *pair);

/* imsg_get_redirect_info reads what imsg_redirect_output was last given, through those of its
 * arguments that are not NULL; before any call, the default procedure and otherwise 0. */
KS_API void imsg_get_redirect_info(imsg_out_fn_t *out_proc, void **out_arg, imsg_out_fn_t *err_proc,
                                   void **err_arg);

/* Result of imsg_in_gui: 1 when the procedure of IMSG_TYPE_OK is another than
 * imsg_append_proc_default, which means that a front end has taken the output; else 0. */
KS_API int imsg_in_gui(void);

/* Style marks: four bytes in a text, "\001\001" with '1' or '0' for on or off and 'B' for bold, 'I'
 * for stand-out or 'U' for underline. On a terminal they become its attributes, elsewhere they
 * vanish. Other bytes 0x01 are characters.
 *
 * imsg_fputs writes a text with its marks worked out and flushes the stream. The first call looks at
 * the terminal that stdout is, by TERM: without it, with NORVA_NO_BOLD, or in the background there
 * are no styles, and in the background a terminal does not stop the call.
 * What the stream holds goes out first. A signal whose routine returns cuts nothing.
 * Result: 0, or -1 with errno and ferror(stream) set when not all of it could be written, as to a
 * full pipe that does not wait (EAGAIN). Prints no message. */
KS_API int imsg_fputs(const char *text, FILE *stream);

/* imsg_putchar writes a byte to the stream that imsg_fputs was last called with, stdout before any
 * call, for tputs(3), and flushes the stream. Result: the byte, or EOF. */
KS_API int imsg_putchar(int character);

/* imsg_strip_style_chars copies a text without its style marks; `dest` has room for `source` whole,
 * or is `source`. */
KS_API void imsg_strip_style_chars(char *dest, const char *source);

/* imsg_reset_term gives the terminal back the attributes that it had at the first imsg_fputs; that
 * runs by itself when the process ends by pfm_exit or exit. Nothing happens where the terminal was
 * not looked at. */
KS_API void imsg_reset_term(void);

/* Two routines for SIGTTOU. The first raises PFM_STATUS_TTOU: the terminal's refusal of a process in
 * the background comes as a fault. The second does nothing and stands for a routine not yet known. */
KS_API void imsg_sigttou_handler(int sig);
KS_API void imsg_null_sigttou_handler(int sig);

/* imsg_initialize starts the module; every call that needs it does so by itself. */
KS_API void imsg_initialize(void);

#ifdef __cplusplus
}
#endif

#endif
