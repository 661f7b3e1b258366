// Texts in the user's language: two message catalogs, kept open.
#include <nl_types.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/ks_frame.h"
#include "date.h"
#include "imsg.h"
#include "imsg_arguments.h"

using namespace ks;

namespace {

constexpr int kSlots = 2;
const nl_catd kClosed = reinterpret_cast<nl_catd>(-1);

struct Slot {
  nl_catd catalog;           // kClosed when not open; with a name it has been tried and failed
  char *name;                // library that the slot stands for, from malloc; NULL for none
  struct timeval last_used;  // of an open catalog
};

Slot mcats[kSlots];
int curcat_idx = -1;     // slot of the last message
int nextreuse_idx = -1;  // next slot to be reused; -1 before the first call

bool stands_for(const Slot &slot, const char *library) {
  return slot.name != nullptr && strcmp(slot.name, library) == 0;
}

void close_all_slots() {
  for (Slot &slot : mcats) slot = {kClosed, nullptr, {}};
  curcat_idx = -1;
  nextreuse_idx = 0;
}

int find_slot(const char *library) {
  for (int i = 0; i < kSlots; ++i) {
    if (stands_for(mcats[i], library)) return i;
  }
  return -1;
}

// A slot that needs no closing: one never used, or else one whose catalog would not open.
int find_candidate() {
  int candidate = -1;
  for (int i = 0; i < kSlots; ++i) {
    if (mcats[i].name == nullptr || (candidate == -1 && mcats[i].catalog == kClosed)) candidate = i;
  }
  return candidate;
}

bool earlier(const struct timeval &a, const struct timeval &b) {
  return std::pair(a.tv_sec, a.tv_usec) < std::pair(b.tv_sec, b.tv_usec);
}

int least_recently_used() {
  int oldest = 0;
  for (int i = 1; i < kSlots; ++i) {
    if (earlier(mcats[i].last_used, mcats[oldest].last_used)) oldest = i;
  }
  return oldest;
}

int choose_slot() {
  const int candidate = find_candidate();
  if (candidate == -1) return least_recently_used();
  const int chosen = mcats[nextreuse_idx].catalog == kClosed ? nextreuse_idx : candidate;
  nextreuse_idx = (nextreuse_idx + 1) % kSlots;
  return chosen;
}

nl_catd open_over_signals(const char *library) {
  nl_catd catalog;
  do {
    errno = 0;
    catalog = catopen(library, 0);
  } while (catalog == kClosed && errno == EINTR);
  return catalog;
}

// A catalog that will not open is remembered by its name, and not tried again while it keeps it.
// Without storage for the name nothing is opened, and the next message tries again.
void open_catalog(Slot &slot, const char *library) {
  signals_held([&] {
    if (slot.catalog != kClosed) {
      catclose(slot.catalog);
      forget_safe_formats();
    }
    free(slot.name);
    slot = {kClosed, strdup(library), {}};
    if (slot.name != nullptr) slot.catalog = open_over_signals(library);
  });
}

Slot &slot_of(const char *library) {
  if (nextreuse_idx == -1) close_all_slots();
  if (curcat_idx != -1 && stands_for(mcats[curcat_idx], library)) return mcats[curcat_idx];
  curcat_idx = find_slot(library);
  if (curcat_idx == -1) {
    curcat_idx = choose_slot();
    open_catalog(mcats[curcat_idx], library);
  }
  return mcats[curcat_idx];
}

}  // namespace

const char *cat_extractmsg(const imsg_table_t *table, int index) {
  Slot &slot = slot_of(table->library);
  if (slot.catalog == kClosed) return table->texts[index];
  date_get_timeval(&slot.last_used);
  return catgets(slot.catalog, table->set, table->catnums[index], table->texts[index]);
}
