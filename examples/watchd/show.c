#include "show.h"

#include <string.h>

#include <norvaks/strutl.h>

static size_t show_byte(char *at, unsigned char byte) {
  at[0] = '\\';
  at[1] = (char)('0' + (byte >> 6));
  at[2] = (char)('0' + (byte >> 3 & 7));
  at[3] = (char)('0' + (byte & 7));
  return 4;
}

const char *show(char *shown, const char *text, size_t length) {
  const char *end = text + (length < SHOW_LONGEST ? length : SHOW_LONGEST);
  char *at = shown;
  for (size_t size; text < end; text += size) {
    if (*text == '\t' || strutl_test_char(text, (size_t)(end - text), STRUTL_CLASS_PRINT, &size)) {
      if (*text == '\t') size = 1;
      memcpy(at, text, size);
      at += size;
    } else {
      size = 1;
      at += show_byte(at, (unsigned char)*text);
    }
  }
  *at = '\0';
  return shown;
}

const char *show_string(char *shown, const char *text) { return show(shown, text, strlen(text)); }
