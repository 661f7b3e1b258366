// A text in exactly the bytes it is given, on the heap, so that the address sanitizer sees any byte
// too far.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

namespace ks_test {

class ExactText {
 public:
  // With room for the bytes and a NUL.
  explicit ExactText(std::string_view bytes) : ExactText(bytes, bytes.size() + 1) {}

  // With room for `size` bytes: those of the text, a NUL if there is room, and 'z' behind.
  ExactText(std::string_view bytes, size_t size) : size_(size), data_(new char[size]) {
    memset(data_, 'z', size);
    memcpy(data_, bytes.data(), bytes.size());
    if (bytes.size() < size) data_[bytes.size()] = '\0';
  }
  ~ExactText() { delete[] data_; }
  ExactText(const ExactText &) = delete;
  ExactText &operator=(const ExactText &) = delete;

  char *get() const { return data_; }
  operator char *() const { return data_; }

  // All of its bytes.
  std::string bytes() const { return std::string(data_, size_); }

 private:
  size_t size_;
  char *data_;
};

}  // namespace ks_test
