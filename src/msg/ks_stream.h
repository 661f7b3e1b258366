// Output to a stdio stream of which nothing may be lost. stdio gives up at the first signal, without
// a word of how much is out, and drops what it could not write; so what goes to a descriptor is
// written here, past stdio.
#pragma once

#include <cstddef>
#include <cstdio>

namespace [[gnu::visibility("hidden")]] ks {

// Writes what `stream` holds and then all of `bytes`, in one write where that fits. False when
// something could not be written; the stream's error indicator is set then, and what the stream held
// and is not out stays in it. A fault may leave it: nothing that the stream held is lost or doubled.
// A stream without a descriptor gets the bytes through stdio, with signals held.
bool write_to_stream(FILE *stream, const char *bytes, size_t size);

}  // namespace ks
