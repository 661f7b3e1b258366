#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <random>
#include <string>

#include "strutl.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::use_locale;

namespace {

using namespace std::string_literals;

enum Quoting { PLAIN, QUOTED };

// What the text stands for, in `length` bytes; no value when it is refused.
std::optional<std::string> read(const std::string &text, Quoting quoting, size_t length) {
  ExactText copy(text);
  char *result = copy;
  if (strutl_cstr_to_str(copy, quoting == QUOTED, &result) != 0) {
    EXPECT_EQ(result, nullptr) << text;
    return std::nullopt;
  }
  const std::string bytes(result, length);
  EXPECT_EQ(result[length], '\0') << text;
  stg_free(result);
  return bytes;
}

// Holds for both forms.
void expect_read(const std::string &text, const std::string &expected) {
  EXPECT_EQ(read(text, PLAIN, expected.size()), expected) << text;
  EXPECT_EQ(read('"' + text + '"', QUOTED, expected.size()), expected) << text;
}

void expect_refused(const std::string &text) {
  EXPECT_EQ(read(text, PLAIN, 0), std::nullopt) << text;
  EXPECT_EQ(read('"' + text + '"', QUOTED, 0), std::nullopt) << text;
}

TEST(StrutlCstrToStr, PlainCharactersStay) {
  expect_read("", "");
  expect_read("abc", "abc");
  expect_read("a b\t'?\x01", "a b\t'?\x01");
}

TEST(StrutlCstrToStr, LettersStandForControlCharacters) {
  expect_read(R"(\a\b\f\n\r\t\v)", "\x07\x08\x0c\x0a\x0d\x09\x0b");
  expect_read(R"(\"\'\?\\)", "\"'?\\");
}

TEST(StrutlCstrToStr, OtherLettersAreRefused) {
  const std::string known = "\"'?\\abfnrtvx0123456789";
  for (int byte = 1; byte < 256; ++byte) {
    const char letter = static_cast<char>(byte);
    if (known.find(letter) == std::string::npos) expect_refused("\\"s + letter);
  }
  expect_refused("\\8");
  expect_refused("\\9");
}

TEST(StrutlCstrToStr, HexadecimalTakesOneOrTwoDigits) {
  expect_read(R"(\x41)", "A");
  expect_read(R"(\xfF)", "\xff");
  expect_read(R"(\x7g)", "\x07g");
  expect_read(R"(\x412)", "A2");
  expect_read(R"(\x9)", "\t");
  expect_refused(R"(\x)");
  expect_refused(R"(\xg)");
  expect_refused(R"(\x-1)");
  expect_refused(R"(\x 1)");
  expect_refused(R"(\X41)");
}

TEST(StrutlCstrToStr, HexadecimalZeroIsANulInside) {
  expect_read(R"(a\x0b\x00c)", "a\x0b\0c"s);
  expect_read(R"(a\x0g)", "a\0g"s);
  expect_read(R"(\x0x)", "\0x"s);
}

TEST(StrutlCstrToStr, OctalTakesUpToThreeDigits) {
  expect_read(R"(\1)", "\x01");
  expect_read(R"(\12)", "\n");
  expect_read(R"(\101)", "A");
  expect_read(R"(\1012)", "A2");
  expect_read(R"(\377)", "\xff");
  expect_read(R"(\7a)",
              "\x07"
              "a");
}

TEST(StrutlCstrToStr, OctalMustBeValidAndFitAByte) {
  expect_refused(R"(\400)");
  expect_refused(R"(\777)");
  expect_refused(R"(\18)");
  expect_refused(R"(\129)");
  expect_refused(R"(\8)");
  expect_refused(R"(\999)");
}

TEST(StrutlCstrToStr, KeepsZeroAsANulByItself) {
  expect_read(R"(\0)", "\0"s);
  expect_read(R"(\012)",
              "\0"
              "12"s);
  expect_read(R"(a\0b)", "a\0b"s);
}

TEST(StrutlCstrToStr, TwoQuotesJoinLiterals) {
  expect_read("a\"\"b", "ab");
  expect_read("\"\"", "");
  expect_read("\"\"\"\"", "");
  expect_read("a\\\"\"\"b", "a\"b");
}

TEST(StrutlCstrToStr, ASingleQuoteIsRefused) {
  expect_refused("\"");
  expect_refused("a\"b");
  expect_refused("\"\"\"");
  expect_refused("a\"");
}

TEST(StrutlCstrToStr, ABackslashAtTheEndIsRefused) {
  expect_refused("\\");
  expect_refused("abc\\");
  expect_refused("a\\\\\\");
}

TEST(StrutlCstrToStr, QuotedTextStandsBetweenQuotes) {
  for (const char *text : {"", "\"", "abc", "\"abc", "abc\"", "'abc'"}) {
    EXPECT_EQ(read(text, QUOTED, 0), std::nullopt) << text;
  }
  EXPECT_EQ(read("\"\"", QUOTED, 0), "");
}

TEST(StrutlCstrToStr, NullIsRefused) {
  char *result = const_cast<char *>("x");
  EXPECT_EQ(strutl_cstr_to_str(nullptr, 0, &result), 1);
  EXPECT_EQ(result, nullptr);
}

TEST(StrutlCstrToStr, AByteInsideACharacterIsNoEscape) {
  use_locale("ja_JP.SJIS");
  expect_read("\x95\x5cn\\n", "\x95\x5cn\n");
  expect_read("\x95\x5c", "\x95\x5c");
  expect_refused("\\\x95\x5c");
}

TEST(StrutlCstrToStr, InvalidSequencesStay) {
  use_locale("C.UTF-8");
  expect_read("ä\xff\\n", "ä\xff\n");
  expect_read("\xe2\x82", "\xe2\x82");
  expect_read("\xc3\"\"b",
              "\xc3"
              "b");
  use_locale("ja_JP.SJIS");
  expect_read("\x95", "\x95");
  expect_read("\x95\"\"b",
              "\x95"
              "b");
}

TEST(StrutlCstrToStr, ExhaustedStorageIsReported) {
  const Outcome outcome = in_child([] {
    char *result = const_cast<char *>("x");
    ks_test::fail_call("malloc", 0, ENOMEM);
    if (strutl_cstr_to_str("abc", 0, &result) == 1 && result == nullptr) puts("refused");
    fflush(stdout);
  });
  EXPECT_EQ(outcome.out, "refused\n");
  EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
}

// The rules over again, for single-byte text: cuts the first element off `text` and gives its byte,
// or nothing for a joint.
bool model_element(std::string &text, std::string &result) {
  const auto starts = [&](const char *what) { return text.rfind(what, 0) == 0; };
  const auto take = [&](size_t count, const std::string &bytes) {
    text.erase(0, count);
    result += bytes;
    return true;
  };
  if (starts("\"\"")) return take(2, "");
  if (starts("\"")) return false;
  if (!starts("\\")) return take(1, text.substr(0, 1));
  if (starts("\\0")) return take(2, "\0"s);
  if (starts("\\x")) {
    size_t digits = 0;
    while (digits < 2 && 2 + digits < text.size() && isxdigit(text[2 + digits])) ++digits;
    if (digits == 0) return false;
    const int value = std::stoi(text.substr(2, digits), nullptr, 16);
    return take(2 + digits, std::string(1, static_cast<char>(value)));
  }
  size_t digits = 0;
  while (digits < 3 && 1 + digits < text.size() && isdigit(text[1 + digits])) ++digits;
  if (digits > 0) {
    const std::string number = text.substr(1, digits);
    if (number.find_first_of("89") != std::string::npos) return false;
    const int value = std::stoi(number, nullptr, 8);
    return value <= 255 && take(1 + digits, std::string(1, static_cast<char>(value)));
  }
  for (const char *pair :
       {"\"\"", "''", "??", "\\\\", "a\a", "b\b", "f\f", "n\n", "r\r", "t\t", "v\v"}) {
    if (text.size() > 1 && text[1] == pair[0]) return take(2, std::string(1, pair[1]));
  }
  return false;
}

std::optional<std::string> model(std::string text, Quoting quoting) {
  if (quoting == QUOTED) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::nullopt;
    text = text.substr(1, text.size() - 2);
  }
  std::string result;
  while (!text.empty()) {
    if (!model_element(text, result)) return std::nullopt;
  }
  return result;
}

TEST(StrutlCstrToStr, AnyTextFollowsTheModel) {
  constexpr unsigned kSeed = 20261;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  const std::string alphabet = "\\\\\\\\\"\"'?abfnrtvx0123456789AFg \xff\x95\xc3\x80";
  int accepted = 0;
  for (int round = 0; round < 100000; ++round) {
    const Quoting quoting = random() % 2 ? QUOTED : PLAIN;
    std::string text(random() % 12, ' ');
    for (char &byte : text) byte = alphabet[random() % alphabet.size()];
    if (quoting == QUOTED && random() % 8 != 0) text = '"' + text + '"';
    const std::optional<std::string> expected = model(text, quoting);
    accepted += expected.has_value();
    ASSERT_EQ(read(text, quoting, expected ? expected->size() : 0), expected) << text;
  }
  EXPECT_GT(accepted, 10000);
}

TEST(StrutlCstrToStr, AnyBytesAreSafeInMultibyteLocales) {
  constexpr unsigned kSeed = 20262;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (const char *locale : {"C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    for (int round = 0; round < 50000; ++round) {
      std::string text(random() % 12, ' ');
      for (char &byte : text) byte = "\"\\n\x95\x5c\xe2\x82\xac\x81\x40"[random() % 10];
      ExactText copy(text);
      char *result;
      const int refused = strutl_cstr_to_str(copy, static_cast<int>(random() % 2), &result);
      ASSERT_EQ(refused, result == nullptr) << text;
      if (!refused) {
        ASSERT_LE(strlen(result), text.size());
      }
      stg_free(result);
    }
  }
}

}  // namespace
