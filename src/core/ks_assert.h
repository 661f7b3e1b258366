// The one assertion of the library, always compiled in.
//
// The condition's own source text is what the user sees, so it is written with the names that must
// appear and never passes through a second macro. KS_ASSERT_TEXT is for a text that is not C++ or
// that the formatter would change.
#pragma once

#include "pfm.h"

#define KS_ASSERT(condition) KS_ASSERT_TEXT(condition, #condition)
#define KS_ASSERT_TEXT(condition, text) \
  ((condition) ? (void)0 : pfm_assert_fail((text), __FILE__, __LINE__))
