// What rows stand on: files, in the empty folder of their own that they run in, and messages.
#pragma once

#include <string>
#include <string_view>

namespace ks_test {

// Makes the file `name` anew.
void put_scratch(const char *name, std::string_view contents);

// What is in the file; empty when there is none.
std::string scratch_contents(const char *name);

// Messages go to memory from now on, and what printing and storage make at their first use is made:
// it is no matter of rows that allocate, and only print when something fails.
void warm_messages();

}  // namespace ks_test
