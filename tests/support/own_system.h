// A system of a test's own: what the machine is called, who its users are, which network it has.
// Nothing of it can be seen from outside, and it goes away with the test.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "support/child.h"

namespace ks_test {

// Runs `body` in a child process; expectations that fail there, fail the test.
Outcome expect_in_child(const std::function<void()> &body);

// The same with mounts, host name, NIS domain and network of its own: the folder /etc is empty, and
// of network interfaces there is only "lo", which is down. Needs root, and fails without.
Outcome in_own_system(const std::function<void()> &body);

// Moves the present process into such a system for good.
void enter_own_system();

// For use in there. The folder `path` becomes an empty one in memory, with mount(8)'s `options`;
// and a file of such a folder is made or made anew.
void mount_empty(const char *path, const char *options = "");
void put_file(const char *path, std::string_view contents);

// `path` shows the file `source` from now on.
void bind_file(const char *source, const char *path);

// Ends the child, and with it the test, where what prepares it fails.
void must(bool works, std::string_view what);

// How many descriptors below FD_SETSIZE are open; works when there is none left.
int count_descriptors();

}  // namespace ks_test
