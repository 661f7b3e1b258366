// What the formatters of dates share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace [[gnu::visibility("hidden")]] ks {

// Whether a time lies within the year that ends now.
bool is_recent(int32_t time);

// strftime; a text that does not fit becomes an empty one.
void write_time(char *target, size_t size, const char *format, const struct tm &time);

}  // namespace ks
