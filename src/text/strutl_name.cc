// What may be a name.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "strutl.h"
#include "text/strutl_internal.h"

namespace {

bool is_in(const char *set, const char *character, size_t size) {
  return set != nullptr && strutl_mb_strchr(set, character, size) != nullptr;
}

// Punctuation beyond ASCII is part of words in many languages.
bool is_ascii_punctuation(const char *character, size_t size) {
  const unsigned char byte = static_cast<unsigned char>(*character);
  return size == 1 && byte < 0x80 && ispunct(byte) != 0;
}

bool is_good(const char *character, size_t size, wint_t wide) {
  return iswcntrl(wide) == 0 && iswspace(wide) == 0 && iswprint(wide) != 0 &&
         !is_ascii_punctuation(character, size);
}

}  // namespace

int strutl_is_ok_name(const char *name, const char *forbidden_first, const char *extra_allowed) {
  if (name == nullptr || name[0] == '\0') return 0;
  size_t size;
  for (const char *at = name; *at != '\0'; at += size) {
    wchar_t wide;
    const int length = ks::to_wide(&wide, at, MB_CUR_MAX);
    if (length < 0) return 0;
    size = static_cast<size_t>(length);
    if (at == name && is_in(forbidden_first, at, size)) return 0;
    if (!is_good(at, size, static_cast<wint_t>(wide)) && !is_in(extra_allowed, at, size)) return 0;
  }
  return 1;
}
