// Taking a text apart at delimiters.
#include <array>
#include <cstdint>
#include <cstring>

#include "strutl.h"
#include "text/strutl_internal.h"

using ks::Encoding;

namespace {

char *cursor = nullptr;  // where the next token is looked for; NULL behind the last one

// The bytes of a text and its NUL.
class ByteSet {
 public:
  explicit ByteSet(const char *members) {
    for (; *members != '\0'; ++members) word(*members) |= bit(*members);
  }
  bool contains(char byte) const { return (word(byte) & bit(byte)) != 0; }

 private:
  static uint64_t bit(char byte) { return uint64_t{1} << (static_cast<unsigned char>(byte) % 64); }
  uint64_t &word(char byte) { return words_[static_cast<unsigned char>(byte) / 64]; }
  const uint64_t &word(char byte) const { return words_[static_cast<unsigned char>(byte) / 64]; }

  std::array<uint64_t, 4> words_ = {1};
};

// Where the first byte of the set, or the NUL, stands. Tokens are short: only a long one is worth
// what strcspn takes to begin.
char *find_byte(char *at, const ByteSet &set, const char *members) {
  for (const char *const near = at + 16; at != near; ++at) {
    if (set.contains(*at)) return at;
  }
  return at + strcspn(at, members);
}

char *token_end(char *token, const ByteSet &set, const char *delimiters) {
  const Encoding encoding;
  if (encoding.all_begin_characters(delimiters)) return find_byte(token, set, delimiters);
  while (!set.contains(*token)) token += encoding.step(token);
  return token;
}

}  // namespace

char *strutl_tokenize(char *string, const char *delimiters) {
  if (string != nullptr) cursor = string;
  if (cursor == nullptr) return nullptr;
  const ByteSet set(delimiters);
  char *token = cursor;
  while (*token != '\0' && set.contains(*token)) ++token;
  if (*token == '\0') {
    cursor = nullptr;
    return nullptr;
  }
  char *end = token_end(token, set, delimiters);
  if (*end != '\0') *end++ = '\0';
  cursor = end;
  return token;
}
