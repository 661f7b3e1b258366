// Which arguments a printf format reads: a catalog's text may be another version's.
#pragma once

namespace [[gnu::visibility("hidden")]] ks {

// The format to use for a message of a table: `translation`, from a catalog, where it reads no
// argument but those that `own`, the table's text, reads, each as the type that it has there; else
// `own`. The answer for a pair is remembered by the texts' addresses.
const char *safe_format(const char *own, const char *translation);

// To be called when a catalog is closed: another text may come to stand at the same address.
void forget_safe_formats();

}  // namespace ks
