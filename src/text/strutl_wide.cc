// Wide strings: vectors of 32-bit characters that end with a zero.
#include <cerrno>
#include <cstdlib>
#include <cwchar>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "msg/ks_print.h"
#include "stg.h"
#include "strutl.h"
#include "strutl_msg.h"
#include "text/strutl_internal.h"

using namespace ks;

static_assert(sizeof(wchar_t) == 4);

namespace {

// Storage for `count` items of `size` bytes, or NULL after a message.
void *alloc_items(stg_area_t area, size_t count, size_t size) {
  void *block = nullptr;
  if (count <= SIZE_MAX / size) {
    block = stg_alloc(area, count * size);
  } else {
    errno = ENOMEM;
  }
  if (block == nullptr) print<STRUTL_MSG_NO_MEMORY>(IMSG_TYPE_ERROR);
  return block;
}

}  // namespace

wchar_t strutl_wide_char_from_str(const char *string, const char **s_tail) {
  const char *character = strutl_mb_char_from_str(string, s_tail);
  wchar_t wide;
  if (to_wide(&wide, character, MB_CUR_MAX) >= 0) return wide;
  print<STRUTL_MSG_INVALID_CHARACTER>(IMSG_TYPE_ERROR, character);
  return L'\0';
}

size_t strutl_wide_strlen(const wchar_t *ws) {
  KS_ASSERT(ws != NULL);
  return wcslen(ws);
}

wchar_t *strutl_cvt_str_to_wide_str(const char *string, stg_area_t area) {
  KS_ASSERT(area != STG_AREA_NULL);
  if (string == nullptr) {
    print<STRUTL_MSG_NULL_STRING>(IMSG_TYPE_ERROR);
    return nullptr;
  }
  const size_t length = strutl_mb_strlen(string);
  wchar_t *wide = static_cast<wchar_t *>(alloc_items(area, length + 1, sizeof(wchar_t)));
  if (wide == nullptr) return nullptr;
  size_t converted = 0;
  signals_held([&] { converted = mbstowcs(wide, string, length + 1); });
  if (converted != length) {
    print<STRUTL_MSG_WIDE_CONVERSION_FAILED>(IMSG_TYPE_ERROR, string);
    wide[0] = L'\0';
  }
  return wide;
}

char *strutl_cvt_wide_str_to_str(const wchar_t *wide, stg_area_t area) {
  KS_ASSERT(area != STG_AREA_NULL);
  if (wide == nullptr) {
    print<STRUTL_MSG_NULL_STRING>(IMSG_TYPE_ERROR);
    return nullptr;
  }
  size_t measured = 0;
  signals_held([&] { measured = wcstombs(nullptr, wide, 0); });
  const bool convertible = measured != static_cast<size_t>(-1);
  const size_t length = convertible ? measured : 0;
  char *string = static_cast<char *>(alloc_items(area, length + 1, sizeof(char)));
  if (string == nullptr) return nullptr;
  string[0] = '\0';
  size_t converted = 0;
  if (convertible) signals_held([&] { converted = wcstombs(string, wide, length + 1); });
  if (!convertible || converted != length) {
    print<STRUTL_MSG_NARROW_CONVERSION_FAILED>(IMSG_TYPE_ERROR);
    string[0] = '\0';
  }
  return string;
}
