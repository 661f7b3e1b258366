#include "support/catalogs.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/child.h"

namespace ks_test {
namespace {

std::string place(std::string_view language, std::string_view library) {
  return std::string(language) + "/" + std::string(library) + ".cat";
}

}  // namespace

Catalogs::Catalogs() { setenv("NLSPATH", folder_.path("%L/%N.cat").c_str(), 1); }

Catalogs::~Catalogs() { unsetenv("NLSPATH"); }

void Catalogs::add(std::string_view library, std::string_view source,
                   std::string_view language) const {
  const std::string head = "$ codeset=UTF-8\n$quote \"\n";
  const std::string input = folder_.write("source", head + std::string(source));
  const std::string output = folder_.path("compiled");
  const Outcome gencat = run_program({"gencat", "--new", "-o", output, input}, {"LC_ALL=C.UTF-8"});
  ASSERT_EQ(gencat.end() + gencat.err, "exit 0") << "gencat failed on\n" << source;
  folder_.write(place(language, library), folder_.read("compiled"));
}

void Catalogs::put(std::string_view library, std::string_view bytes) const {
  folder_.write(place("de", library), bytes);
}

std::string Catalogs::bytes(std::string_view library) const {
  return folder_.read(place("de", library));
}

void speak(const char *language) { setenv("LANG", language, 1); }

}  // namespace ks_test
