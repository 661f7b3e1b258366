// Locales for tests: the system's "C" and "C.UTF-8", and the double-byte "ja_JP.SJIS" that the build
// makes for the tests, in which bytes like '\\' and '|' occur inside characters.
#pragma once

namespace ks_test {

// Sets the whole locale, or fails the test.
void use_locale(const char *name);

}  // namespace ks_test
