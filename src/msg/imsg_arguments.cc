#include "imsg_arguments.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "core/ks_frame.h"

using namespace ks;

namespace {

constexpr int kMostArguments = 32;
constexpr int kLargestNumber = 9999;  // widths and precisions; no message has larger ones

// The type that a directive takes, as printf is passed it.
enum class Type : char {
  kNone,  // nothing reads the argument
  kInt,
  kUnsigned,
  kLong,
  kUnsignedLong,
  kLongLong,
  kUnsignedLongLong,
  kMax,
  kUnsignedMax,
  kSize,
  kSignedSize,
  kDifference,
  kUnsignedDifference,
  kDouble,
  kLongDouble,
  kText,
  kWideText,
  kWideCharacter,
  kPointer,
  kUnknown
};

enum class Length : char { kNone, kShort, kLong, kLongLong, kLongDouble, kMax, kSize, kDifference };

// The types of the arguments that a format reads.
class Arguments {
 public:
  // False when the format cannot be relied upon: a directive that is not complete or not known or
  // that stores (%n), directives with and without numbers, or one argument as two types.
  bool read(const char *format) {
    at_ = format;
    while ((at_ = strchr(at_, '%')) != nullptr) {
      ++at_;
      if (!directive()) return false;
    }
    return true;
  }

  // Whether all that `this` reads is read by `other` as the same type.
  bool are_among(const Arguments &other) const {
    for (int at = 0; at < kMostArguments; ++at) {
      if (types_[at] != Type::kNone && types_[at] != other.types_[at]) return false;
    }
    return true;
  }

  // Whether printf comes safely past the arguments of `other` that `this` does not read but has
  // later ones: it takes them for int.
  bool skips_safely(const Arguments &other) const {
    int last = kMostArguments;
    while (last > 0 && types_[last - 1] == Type::kNone) --last;
    return std::none_of(types_, types_ + last, [&](const Type &type) {
      return type == Type::kNone && !passes_as_int(other.types_[&type - types_]);
    });
  }

 private:
  // printf finds the argument behind one that it takes for an int where that one takes as much room,
  // which no floating-point one does. (A checking printf would end the process; the library formats
  // messages with the plain one.)
  static bool passes_as_int(Type type) {
    switch (type) {
      case Type::kNone:
      case Type::kDouble:
      case Type::kLongDouble:
        return false;
      case Type::kLongLong:
      case Type::kUnsignedLongLong:
      case Type::kMax:
      case Type::kUnsignedMax:
        return sizeof(void *) == sizeof(long long);
      default:
        return true;
    }
  }

  bool directive() {
    if (*at_ == '%') return ++at_, true;
    int place = 0;
    const char *begin = at_;
    if (!number(&place)) return false;
    if (place != 0 && *at_ == '$') {
      ++at_;
    } else {
      at_ = begin;
      place = 0;
    }
    at_ += strspn(at_, "-+ #0'I");
    if (!width()) return false;
    if (*at_ == '.') {
      ++at_;
      if (!width()) return false;
    }
    const Length length = length_modifier();
    if (*at_ == '\0') return false;
    const char conversion = *at_++;
    if (conversion == 'm') return place == 0 && length == Length::kNone;
    return argument(place, type_of(length, conversion));
  }

  // Digits; none are 0.
  bool number(int *value) {
    for (*value = 0; *at_ >= '0' && *at_ <= '9'; ++at_) {
      *value = *value * 10 + (*at_ - '0');
      if (*value > kLargestNumber) return false;
    }
    return true;
  }

  // A width or precision: digits, or a star that reads an argument.
  bool width() {
    int value = 0;
    if (*at_ != '*') return number(&value);
    ++at_;
    if (!number(&value)) return false;
    if (value == 0) return at_[-1] == '*' && argument(0, Type::kInt);
    return *at_++ == '$' && argument(value, Type::kInt);
  }

  Length length_modifier() {
    switch (*at_) {
      case 'h':
        at_ += at_[1] == 'h' ? 2 : 1;
        return Length::kShort;
      case 'l':
        if (*++at_ != 'l') return Length::kLong;
        ++at_;
        return Length::kLongLong;
      case 'q':
        ++at_;
        return Length::kLongLong;
      case 'L':
        ++at_;
        return Length::kLongDouble;
      case 'j':
        ++at_;
        return Length::kMax;
      case 'z':
        ++at_;
        return Length::kSize;
      case 't':
        ++at_;
        return Length::kDifference;
      default:
        return Length::kNone;
    }
  }

  static Type type_of(Length length, char conversion) {
    switch (conversion) {
      case 'd':
      case 'i':
        return integer(length, true);
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        return integer(length, false);
      case 'a':
      case 'A':
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
        if (length == Length::kLongDouble) return Type::kLongDouble;
        return length == Length::kNone || length == Length::kLong ? Type::kDouble : Type::kUnknown;
      case 'c':
        if (length == Length::kLong) return Type::kWideCharacter;
        return length == Length::kNone ? Type::kInt : Type::kUnknown;
      case 's':
        if (length == Length::kLong) return Type::kWideText;
        return length == Length::kNone ? Type::kText : Type::kUnknown;
      case 'C':
        return length == Length::kNone ? Type::kWideCharacter : Type::kUnknown;
      case 'S':
        return length == Length::kNone ? Type::kWideText : Type::kUnknown;
      case 'p':
        return length == Length::kNone ? Type::kPointer : Type::kUnknown;
      default:
        return Type::kUnknown;
    }
  }

  static Type integer(Length length, bool is_signed) {
    switch (length) {
      case Length::kLong:
        return is_signed ? Type::kLong : Type::kUnsignedLong;
      case Length::kLongLong:
      case Length::kLongDouble:  // libc takes it for the same
        return is_signed ? Type::kLongLong : Type::kUnsignedLongLong;
      case Length::kMax:
        return is_signed ? Type::kMax : Type::kUnsignedMax;
      case Length::kSize:
        return is_signed ? Type::kSignedSize : Type::kSize;
      case Length::kDifference:
        return is_signed ? Type::kDifference : Type::kUnsignedDifference;
      default:
        return is_signed ? Type::kInt : Type::kUnsigned;
    }
  }

  // Notes an argument, the one at `place` or with 0 the next one.
  bool argument(int place, Type type) {
    const bool numbered = place != 0;
    if (type == Type::kUnknown || (count_ != 0 && numbered != numbered_)) return false;
    numbered_ = numbered;
    ++count_;
    const int index = (numbered ? place : count_) - 1;
    if (index >= kMostArguments) return false;
    if (types_[index] != Type::kNone && types_[index] != type) return false;
    types_[index] = type;
    return true;
  }

  const char *at_ = nullptr;  // read next
  int count_ = 0;             // arguments so far
  bool numbered_ = false;     // of those so far
  Type types_[kMostArguments] = {};
};

bool is_safe(const char *own, const char *translation) {
  if (strcmp(own, translation) == 0) return true;
  Arguments wanted;
  Arguments read;
  if (!read.read(translation)) return false;
  if (!wanted.read(own)) return false;
  return read.are_among(wanted) && read.skips_safely(wanted);
}

// Answers by the addresses of both texts; where two pairs meet, the later one stays.
struct Answer {
  const char *own;  // NULL for none
  const char *translation;
  bool safe;
};
constinit Answer answers[256] = {};

Answer &place_of(const char *own, const char *translation) {
  const uintptr_t mixed =
      reinterpret_cast<uintptr_t>(own) * 31 + reinterpret_cast<uintptr_t>(translation);
  return answers[(mixed ^ mixed >> 8) % std::size(answers)];
}

}  // namespace

const char *ks::safe_format(const char *own, const char *translation) {
  if (translation == own) return own;
  Answer &answer = place_of(own, translation);
  if (answer.own != own || answer.translation != translation) {
    signals_held([&] { answer = {own, translation, is_safe(own, translation)}; });
  }
  return answer.safe ? translation : own;
}

void ks::forget_safe_formats() { std::fill(std::begin(answers), std::end(answers), Answer{}); }
