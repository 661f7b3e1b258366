#include "support/folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace ks_test {

Folder::Folder() : path_(testing::TempDir() + "norvaks-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    perror(path_.c_str());
    abort();
  }
}

Folder::~Folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string Folder::write(std::string_view name, std::string_view contents) const {
  const std::string target = path(name);
  fs::create_directories(fs::path(target).parent_path());
  std::ofstream(target + "~", std::ios::binary) << contents;
  fs::rename(target + "~", target);
  return target;
}

std::string Folder::read(std::string_view name) const {
  std::ostringstream contents;
  contents << std::ifstream(path(name), std::ios::binary).rdbuf();
  return contents.str();
}

}  // namespace ks_test
