// The whole table: all modules' shares.
#pragma once

#include <string_view>
#include <vector>

#include "sweep/row.h"

namespace ks_test {

// The rows of `functions`, in the order of the table; all rows where none is named. A module's name,
// such as "list", stands for all of its functions. A name that has no row ends the program.
std::vector<const SweepRow *> rows_of(const std::vector<std::string_view> &functions);

// Holds the table against src/exports.list: each exported function has rows or an exemption with a
// reason, none both, and nothing else is named. Prints what is not so; result: whether all is.
bool table_is_whole();

}  // namespace ks_test
