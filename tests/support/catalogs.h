// Message catalogs for tests, and the environment in which catopen finds them.
#pragma once

#include <string>
#include <string_view>

#include "support/folder.h"

namespace ks_test {

// Catalogs in a folder that goes away with the object. While it lives, NLSPATH names the folder.
class Catalogs {
 public:
  Catalogs();
  ~Catalogs();

  // Compiles `source`, in the language of gencat(1), to the catalog of `library` in `language`;
  // strings in it stand between double quotes, in UTF-8. A catalog that is there is replaced by a
  // new file.
  void add(std::string_view library, std::string_view source,
           std::string_view language = "de") const;

  // A file of any contents in a catalog's place, and the contents of a catalog.
  void put(std::string_view library, std::string_view bytes) const;
  std::string bytes(std::string_view library) const;

 private:
  Folder folder_;
};

// LANG, by which catopen finds catalogs; the Catalogs of a test are in "de" where nothing else is
// said.
void speak(const char *language);

}  // namespace ks_test
