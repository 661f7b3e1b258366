// Areas: chunks, newest first, in which allocating moves an offset.
#include <algorithm>
#include <cstring>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "core/stg_internal.h"
#include "core/stg_rooms.h"
#include "core/stg_watch.h"
#include "msg/ks_print.h"
#include "msg/ks_trace.h"
#include "stg.h"
#include "stg_msg.h"

using namespace ks;

struct stg_area {
  unsigned char *free;  // next free byte of the newest chunk, in place of its `used`
  unsigned char *end;   // so far stg_alloc may go from `free` on without looking closer
  StgChunk *chunks;     // newest first
  uint32_t first;       // nominal size of the first chunk
  uint32_t base;        // nominal size of later chunks while nothing grows
  uint32_t des;         // nominal sizes of the chunks, added up
  float gf;             // growth factor, 0 for none
  stg_area *next;       // in order of creation
  bool zero;            // free space is filled with 0
  bool incr;            // stg_set_incr was called
  stg_area **link;      // what points at this area
  StgRooms older;       // all chunks but the newest

  // An area is open when `free` and `end` lie in its newest chunk, and closed, with both NULL, while
  // its chunks are worked on. A fault may leave it in either state. Both with signals held.
  void close() {
    if (free != nullptr) chunks->used = static_cast<uint32_t>(free - chunks->data);
    free = end = nullptr;
  }

  // For a memory checker no allocation goes unlooked at.
  void open() {
    if (chunks == nullptr) return;
    free = end = chunks->data + chunks->used;
    if (!stg_watched()) end = chunks->data + chunks->filled;
  }

  unsigned char fill() const { return zero ? 0 : 0xFF; }
};

namespace {

constexpr uint32_t kLargestNominal = 102400;
constexpr double kLargeRequest = 0.7;  // of the nominal size: a larger one extends its chunk
constexpr uint32_t kFillStep = 4096;
constexpr size_t kLargestRequest = UINT32_MAX - kLargestNominal - kStgUnit;

stg_area *stg_area_head = nullptr;
stg_area **stg_area_tail = &stg_area_head;  // where the next area is linked

stg_area &checked(stg_area_t area) {
  KS_ASSERT(area != STG_AREA_NULL && area != STG_AREA_HEAP);
  return *area;
}

uint32_t nominal_size(const stg_area &area) {
  const StgChunk *newest = area.chunks;
  double nominal = area.base;
  if (newest == nullptr) {
    nominal = area.first;
  } else if (area.gf > 0 && !(newest->next == nullptr && area.incr)) {
    nominal = double{area.gf} * newest->size;
  }
  return static_cast<uint32_t>(std::min<double>(nominal, kLargestNominal));
}

void fill_to(const stg_area &area, StgChunk *chunk, uint32_t end) {
  memset(chunk->data + chunk->filled, area.fill(), end - chunk->filled);
  chunk->filled = end;
}

// All of the chunk is free. Where each allocation is looked at, it must show its fill from now on.
void free_all(const stg_area &area, StgChunk *chunk) {
  chunk->used = 0;
  chunk->filled = 0;
  if (imsg_desired_verbosity < 1 && !stg_watched()) return;
  stg_watch_used(chunk->data, chunk->size, false);
  fill_to(area, chunk, chunk->size);
  stg_watch_free(chunk->data, chunk->size);
}

// What an allocation has done, to be told when signals may come again. A signal routine may allocate in
// the same area: each allocation is one stretch with signals held, and nothing is printed in it.
struct Allocation {
  void *block;                  // NULL without storage
  const unsigned char *damage;  // in the free space that was handed out, or NULL
  uint32_t chunk_size;          // of a chunk that was wanted; 0 for none
  const StgChunk *record;       // of that chunk
  const void *data;

  bool is_chunk_made() const { return data != nullptr; }
};

// A new newest chunk, which has room for the request, or NULL.
StgChunk *stg_new_chunk(stg_area &area, uint32_t request, Allocation &made) {
  const bool is_first = area.chunks == nullptr;
  const uint32_t nominal = nominal_size(area);
  const bool large = request > kLargeRequest * nominal;
  made.chunk_size = static_cast<uint32_t>(stg_round_up(large ? nominal + request : nominal));

  StgChunk *chunk = static_cast<StgChunk *>(stg_take(sizeof(StgChunk)));
  made.record = chunk;
  if (chunk == nullptr) return nullptr;
  void *data = stg_take(made.chunk_size);
  made.data = data;
  if (data == nullptr) {
    stg_give_back(chunk);
    return nullptr;
  }
  *chunk = {0, 0, area.chunks, made.chunk_size, static_cast<unsigned char *>(data), 0};
  if (!is_first || !area.incr) area.des += nominal;
  free_all(area, chunk);
  if (!is_first) area.older.append(area.chunks);
  area.chunks = chunk;
  return chunk;
}

// The newest chunk when it has room, else the oldest that has: dumps and the addresses that programs
// see go by this order.
StgChunk *pick_chunk(stg_area &area, uint32_t bytes, Allocation &made) {
  StgChunk *newest = area.chunks;
  if (newest != nullptr) {
    if (newest->room() >= bytes) return newest;
    if (StgChunk *older = area.older.oldest_with(bytes, newest->next)) return older;
  }
  return stg_new_chunk(area, bytes, made);
}

// The free space must still hold its fill, as far as the settings ask. Result: the first byte that
// does not, or NULL.
const unsigned char *check_fill(const stg_area &area, StgChunk *chunk, uint32_t bytes) {
  fill_to(area, chunk, chunk->size);
  unsigned char *free_space = chunk->data + chunk->used;
  const size_t length = tracing("ks/stg", 2) ? chunk->room() : bytes;
  stg_watch_used(free_space, length, true);
  const unsigned char *damage = stg_first_difference(free_space, length, area.fill());
  stg_watch_free(free_space, length);
  return damage;
}

// Allocation by all the rules, in a closed area.
Allocation alloc_in(stg_area &area, uint32_t bytes, size_t size) {
  Allocation made = {};
  StgChunk *chunk = pick_chunk(area, bytes, made);
  if (chunk == nullptr) return made;
  if (tracing("ks/stg", 1)) made.damage = check_fill(area, chunk, bytes);
  if (bytes > chunk->filled - chunk->used) {
    fill_to(area, chunk, chunk->used + std::min(chunk->room(), std::max(bytes, kFillStep)));
  }
  made.block = chunk->data + chunk->used;
  chunk->used += bytes;
  if (chunk != area.chunks) area.older.update(chunk);
  stg_watch_used(made.block, size, area.zero);
  return made;
}

void tell_of_chunk(const stg_area &area, const Allocation &made) {
  stg_tell_taken(made.record, sizeof(StgChunk));
  if (made.record == nullptr) return;
  stg_tell_taken(made.data, made.chunk_size);
  if (!made.is_chunk_made()) {
    stg_tell_given_back(made.record, nullptr);
  } else if (tracing("ks/stg", 4)) {
    print<STG_MSG_CHUNK_CREATED>(IMSG_TYPE_TRACE, address(&area), address(made.record),
                                 made.chunk_size);
  }
}

[[gnu::cold, gnu::noinline]] void tell(const stg_area &area, const Allocation &made,
                                       uint32_t bytes) {
  if (made.chunk_size != 0) tell_of_chunk(area, made);
  if (made.damage != nullptr) {
    print<STG_MSG_AREA_CORRUPTED>(IMSG_TYPE_ERROR, address(&area), address(made.damage));
  }
  if (made.block != nullptr && tracing("ks/stg", 5)) {
    print<STG_MSG_AREA_ALLOCATED>(IMSG_TYPE_TRACE, address(&area), address(made.block), bytes);
  }
}

// What is not the usual case of stg_alloc.
[[gnu::noinline]] void *alloc_closely(stg_area_t handle, size_t size) {
  if (handle == STG_AREA_HEAP) return stg_malloc(size);
  stg_area &area = checked(handle);
  if (size > kLargestRequest) return stg_exhausted();
  const uint32_t bytes = static_cast<uint32_t>(stg_round_up(size));
  Allocation made;
  signals_held([&] {
    area.close();
    made = alloc_in(area, bytes, size);
    area.open();
  });
  if (made.block == nullptr || imsg_desired_verbosity >= 1) tell(area, made, bytes);
  return made.block;
}

// A chunk that has been given back, to be told as an allocation is.
struct GoneChunk {
  StgChunk *record;  // NULL for none
  const void *data;
  const unsigned char *record_damage;
  const unsigned char *data_damage;
};

// Gives back the newest chunk of a closed area.
GoneChunk drop_newest(stg_area &area) {
  StgChunk *chunk = area.chunks;
  if (chunk == nullptr) return {};
  area.chunks = chunk->next;
  if (area.chunks != nullptr) area.older.remove_newest();
  stg_watch_used(chunk->data, chunk->size, false);
  GoneChunk gone = {chunk, chunk->data, nullptr, nullptr};
  gone.data_damage = stg_give_back(chunk->data);
  gone.record_damage = stg_give_back(chunk);
  return gone;
}

void tell(const stg_area &area, const GoneChunk &gone) {
  if (tracing("ks/stg", 4)) {
    print<STG_MSG_CHUNK_FREED>(IMSG_TYPE_TRACE, address(&area), address(gone.record));
  }
  stg_tell_given_back(gone.data, gone.data_damage);
  stg_tell_given_back(gone.record, gone.record_damage);
}

// Drops one chunk, unless it is the last and to be kept. The list is whole behind each: a fault
// between two leaves an area that can be used, freed or deleted like any other.
bool drop_one(stg_area &area, bool keep_first) {
  GoneChunk gone = {};
  signals_held([&] {
    area.close();
    if (area.chunks != nullptr && (area.chunks->next != nullptr || !keep_first)) {
      gone = drop_newest(area);
    }
  });
  if (gone.record == nullptr) return false;
  tell(area, gone);
  return true;
}

void reuse_first(stg_area &area) {
  free_all(area, area.chunks);
  area.des = area.incr ? 0 : area.first;
}

}  // namespace

stg_area_t stg_create_area(uint32_t size) {
  stg_area *area = nullptr;
  signals_held([&] {
    area = static_cast<stg_area *>(stg_take(sizeof(stg_area)));
    if (area == nullptr) return;
    *area = {};
    area->first = area->base = size;
    area->link = stg_area_tail;
    *stg_area_tail = area;
    stg_area_tail = &area->next;
  });
  stg_tell_taken(area, sizeof(stg_area));
  if (area == nullptr) return STG_AREA_NULL;
  if (tracing("ks/stg", 4)) print<STG_MSG_AREA_CREATED>(IMSG_TYPE_TRACE, address(area));
  return area;
}

void *stg_alloc(stg_area_t area, size_t size) {
  // The usual case: room in the newest chunk, filled ahead, and nobody looks.
  if (address(area) > address(STG_AREA_HEAP) && imsg_desired_verbosity < 1) {
    unsigned char *block = nullptr;
    signals_held([&] {
      if (size >= static_cast<size_t>(area->end - area->free)) return;
      block = area->free;
      area->free += stg_round_up(size);
    });
    if (block != nullptr) return block;
  }
  return alloc_closely(area, size);
}

char *stg_area_strdup(stg_area_t area, const char *text) {
  if (text == nullptr) return nullptr;
  const size_t bytes = strlen(text) + 1;
  void *copy = stg_alloc(area, bytes);
  return copy != nullptr ? stg_copy_text(copy, text, bytes) : nullptr;
}

void stg_set_incr(stg_area_t area, uint32_t size) {
  checked(area).base = size;
  area->incr = true;
}

void stg_set_growth(stg_area_t area, double factor) {
  stg_area &grown = checked(area);
  if (factor > 1.0) grown.gf = static_cast<float>(factor);
}

void stg_set_zero(stg_area_t handle) {
  stg_area &area = checked(handle);
  signals_held([&] {
    for (StgChunk *chunk = area.chunks; chunk != nullptr; chunk = chunk->next) {
      fill_to(area, chunk, chunk->size);  // what there is keeps its fill
    }
    area.zero = true;
  });
}

void stg_free_area(stg_area_t handle, int keep_first) {
  stg_area &area = checked(handle);
  if (tracing("ks/stg", 4)) print<STG_MSG_AREA_CLEARED>(IMSG_TYPE_TRACE, address(&area));
  signals_held([&] { area.older.drop_tree(); });
  while (drop_one(area, keep_first != 0)) {
  }
  signals_held([&] {
    area.des = 0;
    if (area.chunks != nullptr) reuse_first(area);
    area.open();
  });
}

void stg_delete_area(stg_area_t *handle) {
  stg_area &area = checked(*handle);
  if (tracing("ks/stg", 4)) print<STG_MSG_AREA_DELETED>(IMSG_TYPE_TRACE, address(&area));
  stg_free_area(&area, 0);
  const unsigned char *damage = nullptr;
  signals_held([&] {
    area.close();
    while (drop_newest(area).record != nullptr) {  // made by a signal routine meanwhile
    }
    area.older.drop_tree();
    *area.link = area.next;
    (area.next != nullptr ? area.next->link : stg_area_tail) = area.link;
    damage = stg_give_back(&area);
    *handle = STG_AREA_NULL;
  });
  stg_tell_given_back(&area, damage);
}

// The labels of the message stand over other values than they name; readers of dumps know them so.
void stg_dump_area(stg_area_t handle) {
  stg_area &area = checked(handle);
  signals_held([&] { area.close(); });
  unsigned long size = 0;
  unsigned long used = 0;
  int count = 0;
  for (const StgChunk *chunk = area.chunks; chunk != nullptr; chunk = chunk->next) {
    size += chunk->size;
    used += chunk->used;
    ++count;
  }
  print<STG_MSG_AREA_DUMP>(
      IMSG_TYPE_OK, address(&area), size, used, count, static_cast<unsigned long>(area.first),
      static_cast<unsigned long>(area.base), static_cast<unsigned long>(area.des), double{area.gf});
  for (const StgChunk *chunk = area.chunks; chunk != nullptr; chunk = chunk->next) {
    print<STG_MSG_CHUNK_DUMP>(IMSG_TYPE_OK, address(chunk), static_cast<unsigned long>(chunk->size),
                              static_cast<unsigned long>(chunk->used), address(chunk->data),
                              address(chunk->next));
  }
  signals_held([&] { area.open(); });
}

void stg_dump() {
  for (stg_area *area = stg_area_head; area != nullptr; area = area->next) stg_dump_area(area);
}
