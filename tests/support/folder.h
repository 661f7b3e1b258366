// A temporary folder for the files of a test.
#pragma once

#include <string>
#include <string_view>

namespace ks_test {

// Goes away with all that is in it when the object does.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  const std::string &path() const { return path_; }
  std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes a file and returns its path. `name` may name folders, which are made. A file of that
  // name is replaced by a new one: who has the old one open keeps it.
  std::string write(std::string_view name, std::string_view contents) const;

  // Contents of a file; empty when there is none.
  std::string read(std::string_view name) const;

 private:
  std::string path_;
};

}  // namespace ks_test
