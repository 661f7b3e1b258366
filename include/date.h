/* date.h: dates and the clock.
 *
 * A time at this boundary is seconds since the epoch in 32 bits with a sign; a negative one is
 * never valid. date_get_timeval is the one source of the time of day for the whole library.
 * Users write dates in two languages: the older one, "24-NOV-2006.10:00" or "yesterday", whose
 * words come from the message catalog, and ISO 8601, also cut short, as in "--11-24T10:15". What a
 * text leaves out comes from now in the user's zone, by TZ, on the side that the caller asks for.
 * The readers print nothing and store the time only on success; the text may be NULL, and fails.
 * Their result is 0 for success and 1 for failure, but for date_numeric_str_to_time, which has it
 * the other way round.
 */
#ifndef KS_DATE_H
#define KS_DATE_H

#include <stdint.h>
#include <sys/time.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Where a date that leaves out its year, month or week lies. With any other number it is the one
 * that the present year, month or week gives; a name of a weekday then still means the past. */
enum {
  DATE_TO_PAST = 0,  /* the last one up to today */
  DATE_TO_FUTURE = 1 /* the next one from today on */
};

/* date_str_to_time2 reads a date in either language, the older one first; date_str_to_time does so
 * toward the past. Case and blanks around the older one do not matter. A text that fails is
 * best answered with date_usage_date_time.
 * Result: 0 with the time in `*time`, or 1. */
KS_API int date_str_to_time(const char *text, int32_t *time);
KS_API int date_str_to_time2(const char *text, int direction, int32_t *time);

/* date_str_to_time_legacy reads the older language alone: "<date>.<time>", "<date>", "<time>",
 * "now" or "none", which is time 0. A date is "24-nov", "24-nov-06", "24-nov-2006", a weekday,
 * "today" or "yesterday"; a time is "10:15" or "10:15:30", then "UTC", an offset, or neither.
 * In leap days it counts every fourth year, and a date without a month word is in January. With a
 * zone the result may be negative.
 * Result: 0 with the time in `*time`, or 1; it fails for 1024 bytes or more. */
KS_API int date_str_to_time_legacy(const char *text, int direction, int32_t *time);

/* date_parse_iso_date reads ISO 8601 alone: a date with or without hyphens, "T" and a time, and "Z"
 * or an offset; each may be cut short. There are no fractions of a second, and no weeks but in
 * "-W-3", a day of the week. Years of two digits up to 50 are after 2000.
 * Result: 0 with the time in `*time`, or 1. */
KS_API int date_parse_iso_date(const char *text, int direction, int32_t *time);

/* The numeric styles. */
enum {
  DATE_NUMERIC_SECONDS = 0,      /* yymmdd.HHMMSS */
  DATE_NUMERIC_LONG_SECONDS = 1, /* yyyymmdd.HHMMSS */
  DATE_NUMERIC_MINUTES = 2,      /* yymmdd.HHMM */
  DATE_NUMERIC_LONG_MINUTES = 3, /* yyyymmdd.HHMM */
  DATE_NUMERIC_DATE = 4,         /* yymmdd */
  DATE_NUMERIC_LONG_DATE = 5,    /* yyyymmdd */
  DATE_NUMERIC_DECIMAL = 6,      /* seconds since the epoch */
  DATE_NUMERIC_HEXADECIMAL = 7,
  DATE_NUMERIC_COLON = 8 /* yymmdd.HH:MM */
};

/* date_numeric_str_to_time reads a text in one of the numeric styles, in the user's zone. Years of
 * two digits up to 69 are after 2000, which differs from the other readers. What follows is not
 * looked at.
 * Result: 1 with the time in `*time`, or 0. NULL for `time` fails, and so does another style. */
KS_API int date_numeric_str_to_time(int style, const char *text, int32_t *time);

/* date_usage_date_time returns the usage text of the older language, for people: three lines in
 * their language. A static buffer, filled by the first call. */
KS_API const char *date_usage_date_time(void);

/* date_init loads the words of dates from the catalog, once in a process. Every reader does it
 * first; a program calls it to fix their language. */
KS_API void date_init(void);

/* date_get_timeval fills `*now` with the present time: seconds since the epoch, and microseconds
 * from 0 to 999999. It always succeeds: where gettimeofday fails or answers microseconds that make
 * no sense, the seconds come from time(2) and the microseconds are 0.
 * Neither allocates nor prints nor raises; fit for a signal routine. */
KS_API void date_get_timeval(struct timeval *now);

/* What the fmt functions answer is static text unless said otherwise: each has its own, which lives
 * until its next call. They write moments in the user's zone, by TZ, and in the words of its locale. */

/* date_fmt_long_date_time, date_fmt_short_date_time, date_fmt_short_date and date_fmt_short_time
 * write a time as strftime's "%c", "%x %X", "%x" and "%H:%M:%S"; negative ones too. A text of more
 * than 127 bytes, 31 of a short date, comes out empty.
 * Result: static text; NULL when there is no storage for it, after a message. */
KS_API const char *date_fmt_long_date_time(int32_t time);
KS_API const char *date_fmt_short_date_time(int32_t time);
KS_API const char *date_fmt_short_date(int32_t time);
KS_API const char *date_fmt_short_time(int32_t time);

/* date_fmt_ls_date_time writes a time as listings of folders do: "Mar 15 10:20" for a recent one,
 * which is not in the future and later than date_one_year_ago of now, else "Mar 15  2006".
 * Result as above. */
KS_API const char *date_fmt_ls_date_time(int32_t time);

/* date_one_year_ago returns the time that is 366 days before `time` if a leap day of the user's zone
 * lies between, else 365. Years that end in March of a leap year count as without one. */
KS_API int32_t date_one_year_ago(int32_t time);

/* How a token writes a date. */
enum {
  DATE_STYLE_DEFAULT = 0, /* as date_fmt_get_default_date_style says; an argument only */
  DATE_STYLE_CLASSIC = 1, /* 15-Mar-06.10:20:30, the month in the locale's words */
  DATE_STYLE_ISO = 2      /* 2006-03-15T10:20:30+05:30 */
};

/* What a token holds. */
enum {
  DATE_KIND_DATE_TIME = 0,
  DATE_KIND_DATE = 1,
  DATE_KIND_SHORT = 2 /* month, day and time of a recent time, of others the date with its year */
};

/* date_fmt_get_default_date_style returns the style that stands for DATE_STYLE_DEFAULT: ISO, or
 * classic where TLBAY_ISO_DATE_FMT is "0", which is looked at once in a process.
 * date_fmt_set_default_style sets it, to classic or ISO, and returns the one before. */
KS_API int date_fmt_get_default_date_style(void);
KS_API int date_fmt_set_default_style(int style);

/* date_fmt_token_general writes a time as one word without blanks. With `utc` not 0 it is in UTC,
 * and says so with "Z" or, in classic style, "UTC"; else a full ISO date and time ends in the
 * offset from UTC, which is also "Z" where it is 0. `pname` changes nothing.
 * Result: a text of the system's malloc, to be given to free; NULL for a negative time or without
 * memory, with no message. Another kind or style than those above gives some token. */
KS_API char *date_fmt_token_general(int32_t time, int kind, int style, int utc, int pname);

/* These write a token in the default style: full; date only; short; full in UTC; full.
 * Result: static text; NULL where date_fmt_token_general gives NULL, and the text before lives on. */
KS_API const char *date_fmt_token_date_time(int32_t time);
KS_API const char *date_fmt_token_date(int32_t time);
KS_API const char *date_fmt_token_short_date_time(int32_t time);
KS_API const char *date_fmt_token_utc(int32_t time);
KS_API const char *date_fmt_token_date_time_pname(int32_t time);

/* date_fmt_token_numeric writes a time, in the user's zone, in one of the numeric styles, in digits
 * that date_numeric_str_to_time reads back. Result: static text; empty with another style. */
KS_API const char *date_fmt_token_numeric(int style, int32_t time);

#ifdef __cplusplus
}
#endif

#endif
