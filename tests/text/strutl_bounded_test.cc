#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "strutl.h"
#include "support/faults.h"
#include "support/locale.h"

using ks_test::use_locale;

namespace {

struct Hit {
  int found;
  size_t position;
  size_t set_offset;
  bool operator==(const Hit &) const = default;
};

constexpr size_t kUntouched = 777;
constexpr Hit kNone = {0, kUntouched, kUntouched};

// Exact-size copies on the heap, so that the address sanitizer sees any byte too far.
Hit find(const std::string &string, size_t start, const std::string &set) {
  char *text = strdup(string.c_str());
  char *members = strdup(set.c_str());
  Hit hit = kNone;
  hit.found = strutl_find_char_from(text, start, members, &hit.position, &hit.set_offset);
  free(text);
  free(members);
  return hit;
}

// Offset of the last character of the set, or -1.
long last(const std::string &string, const std::string &set) {
  char *text = strdup(string.c_str());
  const char *hit = strutl_strrpbrk(text, set.c_str());
  const long offset = hit != nullptr ? hit - text : -1;
  free(text);
  return offset;
}

void PrintTo(const Hit &hit, std::ostream *out) {
  *out << hit.found << " at " << hit.position << ", " << hit.set_offset << " in the set";
}

TEST(StrutlCpyBuf, CopiesWhatFits) {
  char target[4] = "zzz";
  EXPECT_EQ(strutl_cpy_buf(target, "abc", sizeof target), 0);
  EXPECT_STREQ(target, "abc");
}

TEST(StrutlCpyBuf, CutsAndTerminatesWithoutTouchingMore) {
  char target[6] = "zzzzz";
  EXPECT_EQ(strutl_cpy_buf(target, "abcdef", 4), 1);
  EXPECT_EQ(std::string(target, 6), std::string("abc\0z\0", 6));
}

TEST(StrutlCpyBuf, SizeOneGivesAnEmptyText) {
  char target[2] = "z";
  EXPECT_EQ(strutl_cpy_buf(target, "abc", 1), 1);
  EXPECT_STREQ(target, "");
  target[0] = 'z';
  EXPECT_EQ(strutl_cpy_buf(target, "", 1), 0);
  EXPECT_STREQ(target, "");
}

TEST(StrutlCpyBuf, SizeZeroWritesNothing) {
  char target[2] = "z";
  EXPECT_EQ(strutl_cpy_buf(target, "abc", 0), 1);
  EXPECT_EQ(strutl_cpy_buf(target, "", 0), 1);
  EXPECT_STREQ(target, "z");
}

TEST(StrutlCpyBuf, MayCutAMultibyteCharacter) {
  use_locale("C.UTF-8");
  char target[3];
  EXPECT_EQ(strutl_cpy_buf(target, "aäb", sizeof target), 1);
  EXPECT_STREQ(target, "a\xc3");
}

TEST(StrutlCpyBuf, ReadsNothingBehindTheSourcesEnd) {
  char *source = strdup("abc");
  char target[64];
  EXPECT_EQ(strutl_cpy_buf(target, source, sizeof target), 0);
  EXPECT_STREQ(target, "abc");
  free(source);
}

TEST(StrutlFindCharFrom, FindsTheFirstCharacterOfTheSetInTheString) {
  EXPECT_EQ(find("key=value;x", 0, ";="), (Hit{1, 3, 1}));
  EXPECT_EQ(find("key=value;x", 4, ";="), (Hit{1, 9, 0}));
  EXPECT_EQ(find("key", 0, "k"), (Hit{1, 0, 0}));
}

TEST(StrutlFindCharFrom, NoHitLeavesTheOutputsAlone) {
  EXPECT_EQ(find("key", 0, ";="), kNone);
  EXPECT_EQ(find("key=", 4, "="), kNone);
  EXPECT_EQ(find("", 0, "="), kNone);
  EXPECT_EQ(find("key", 0, ""), kNone);
}

TEST(StrutlFindCharFrom, OutputsMayBeLeftOut) {
  EXPECT_EQ(strutl_find_char_from("a/b", 0, "/", nullptr, nullptr), 1);
}

TEST(StrutlFindCharFrom, SameResultsInUtf8) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find("key=value;x", 4, ";="), (Hit{1, 9, 0}));
  EXPECT_EQ(find("key", 0, ";="), kNone);
}

TEST(StrutlFindCharFrom, ComparesWholeMultibyteCharacters) {
  use_locale("C.UTF-8");
  // ä is c3 a4 and ö is c3 b6: they share a byte.
  EXPECT_EQ(find("xö", 0, "ä"), kNone);
  EXPECT_EQ(find("xöä", 0, "-ä"), (Hit{1, 3, 1}));
  EXPECT_EQ(find("xöä", 0, "äö"), (Hit{1, 1, 2}));
}

TEST(StrutlFindCharFrom, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  // 0x95 0x5C is one character, whose second byte is that of the backslash.
  EXPECT_EQ(find("\x95\x5c", 0, "\\"), kNone);
  EXPECT_EQ(find("\x95\x5c\\", 0, "\\"), (Hit{1, 2, 0}));
  EXPECT_EQ(find("a\\", 0, "\x95\x5c\\"), (Hit{1, 1, 2}));
}

TEST(StrutlFindCharFrom, AnInvalidSequenceIsOneByteLong) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find("\xc3/", 0, "/"), (Hit{1, 1, 0}));
  EXPECT_EQ(find("\xff\xfe/", 0, "\xfe"), (Hit{1, 1, 0}));
  EXPECT_EQ(find("a\xe2\x82", 0, "/"), kNone);
}

TEST(StrutlFindCharFrom, ACutSequenceDoesNotChangeTheNextAnswer) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find("\xe2\x82", 0, "/"), kNone);
  EXPECT_EQ(find("\xac/", 0, "/"), (Hit{1, 1, 0}));
}

TEST(StrutlStrrpbrk, FindsTheLast) {
  EXPECT_EQ(last("a/b/c", "/"), 3);
  EXPECT_EQ(last("a/b.c", "./"), 3);
  EXPECT_EQ(last("/abc", "/"), 0);
  EXPECT_EQ(last("abc/", "/"), 3);
}

TEST(StrutlStrrpbrk, NoHitGivesNull) {
  EXPECT_EQ(last("abc", "/"), -1);
  EXPECT_EQ(last("", "/"), -1);
  EXPECT_EQ(last("abc", ""), -1);
}

TEST(StrutlStrrpbrk, SameResultsInUtf8) {
  use_locale("C.UTF-8");
  EXPECT_EQ(last("a/b/c", "/"), 3);
  EXPECT_EQ(last("äöäx", "ä"), 4);
  EXPECT_EQ(last("abc", "/"), -1);
  EXPECT_EQ(last("", "/"), -1);
}

TEST(StrutlStrrpbrk, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(last("a\\b\x95\x5c", "\\"), 1);
  EXPECT_EQ(last("\x95\x5c", "\\"), -1);
}

TEST(StrutlSnprintf, ResultIsWhatTheWholeTextNeeds) {
  char target[8];
  EXPECT_EQ(strutl_snprintf(target, sizeof target, "%d-%s", 7, "abc"), 5);
  EXPECT_STREQ(target, "7-abc");
  EXPECT_EQ(strutl_snprintf(target, 4, "%s", "abcd"), 4);
  EXPECT_STREQ(target, "abc");
  EXPECT_EQ(strutl_snprintf(target, 4, "%s", "abcdef"), 6);
  EXPECT_STREQ(target, "abc");
}

TEST(StrutlSnprintf, SizeZeroTouchesNothing) {
  char target[2] = "z";
  EXPECT_EQ(strutl_snprintf(target + 1, 0, "%s", "abc"), 3);
  EXPECT_STREQ(target, "z");
}

TEST(StrutlSnprintf, FailureIsPassedOn) {
  char target[8] = "before";
  ks_test::fail_call("vsnprintf", 0, EOVERFLOW);
  EXPECT_EQ(strutl_snprintf(target, sizeof target, "%d", 1), -1);
  EXPECT_STREQ(target, "before");
}

}  // namespace
