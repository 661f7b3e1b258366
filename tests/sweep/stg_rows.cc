// Rows of storage: heap blocks and areas.
#include "stg.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "imsg.h"
#include "pfm.h"
#include "sweep/output.h"
#include "sweep/row.h"

namespace ks_test {
namespace {

constexpr size_t kBlock = 600;  // two of them do not fit into a chunk of 1000 bytes
constexpr uint32_t kChunk = 1000;

struct {
  stg_area_t area;
  char *base[64];     // a block in each chunk of the area, filled by its number
  int chunks;         // so many
  char *block;        // what the call has made or shall release
  const char *wrong;  // found when the last call was undone
} own;

// The settings of tracing do not change while the row's process lives.
void prepare_messages(bool traced) {
  catch_messages();
  imsg_set_trace_verbosity(traced ? 5 : 0);
  imsg_set_trace_subsys("*");
}

bool is_filled(const char *block, size_t size, int byte) {
  for (size_t at = 0; at < size; ++at) {
    if (block[at] != static_cast<char>(byte)) return false;
  }
  return true;
}

// Heap blocks

void drop_block() {
  stg_free(own.block);
  own.block = nullptr;
}

void renew_block() {
  drop_block();
  own.block = static_cast<char *>(stg_malloc(40));
  memset(own.block, 7, 40);
}

bool keep(void *block) {
  own.block = static_cast<char *>(block);
  return block != nullptr;
}

bool get_block() {
  pfm_inhibit();
  const bool done = keep(stg_malloc(40));
  pfm_enable();
  return done;
}

bool get_block_by_handle() {
  pfm_inhibit();
  const bool done = keep(stg_alloc(STG_AREA_HEAP, 40));
  pfm_enable();
  return done;
}

const char *block_is_there(bool done) {
  if (done != (own.block != nullptr)) return "the result is not that of the call";
  if (done) memset(own.block, 7, 40);
  const bool told = caught_messages().find("No more memory available.\n") != std::string_view::npos;
  return done || told ? nullptr : "the want of storage was not told";
}

bool grow_block() {
  pfm_inhibit();
  void *block = stg_realloc(own.block, 4000);
  if (block != nullptr) own.block = static_cast<char *>(block);
  pfm_enable();
  return block != nullptr;
}

const char *block_has_its_bytes(bool) {
  return is_filled(own.block, 40, 7) ? nullptr : "the bytes of the block have changed";
}

bool free_block() {
  pfm_inhibit();
  stg_free(own.block);
  own.block = nullptr;
  pfm_enable();
  return true;
}

const char *nothing_is_told(bool) {
  return caught_messages().find("overwritten") == std::string_view::npos ? nullptr
                                                                         : "a guard is damaged";
}

bool copy_text() {
  pfm_inhibit();
  const bool done = keep(stg_strdup("a text of some length"));
  pfm_enable();
  return done;
}

const char *text_is_there(bool done) {
  if (done && strcmp(own.block, "a text of some length") != 0) return "the copy is another text";
  return done == (own.block != nullptr) ? nullptr : "the result is not that of the call";
}

template <bool kTraced>
void prepare_heap() {
  prepare_messages(kTraced);
}

template <bool kTraced>
void prepare_block() {
  prepare_messages(kTraced);
  renew_block();
}

void undo_block() {
  forget_messages();
  drop_block();
}

// Areas

// Whether the area's dump has these figures.
bool area_has(const char *figures) {
  forget_messages();
  stg_dump_area(own.area);
  return caught_messages().find(figures) != std::string_view::npos;
}

// Brings the area, which is empty, to `chunks` chunks with a block in each.
void fill_area(int chunks) {
  for (own.chunks = 0; own.chunks < chunks; ++own.chunks) {
    own.base[own.chunks] = static_cast<char *>(stg_alloc(own.area, kBlock));
    memset(own.base[own.chunks], own.chunks, kBlock);
  }
}

void make_area(int chunks) {
  own.area = stg_create_area(kChunk);
  fill_area(chunks);
}

// What is wrong with an area that a call on it may have left half-way.
const char *damage() {
  for (int at = 0; at < own.chunks; ++at) {
    if (!is_filled(own.base[at], kBlock, at)) return "a block has changed";
  }
  char *block = static_cast<char *>(stg_alloc(own.area, kBlock));
  if (block == nullptr) return "the area gives nothing more";
  memset(block, 99, kBlock);
  for (int at = 0; at < own.chunks; ++at) {
    if (!is_filled(own.base[at], kBlock, at)) return "a new block lies on another";
  }
  return nullptr;
}

struct AllocCase {
  const char *about;
  int chunks;
  size_t request;
  const char *figures;
  bool traced;
};

constexpr AllocCase alloc_cases[] = {
    {"first chunk", 0, kBlock, "allocd=1000 used=600 #chks=1 ", false},
    {"room", 1, 40, "allocd=1000 used=640 #chks=1 ", false},
    {"all room", 1, 400, "allocd=1000 used=1000 #chks=1 ", false},
    {"new chunk", 1, kBlock, "allocd=2000 used=1200 #chks=2 ", false},
    {"large", 1, 9000, "allocd=11000 used=9600 #chks=2 ", false},
    {"many chunks", 40, kBlock, "allocd=41000 used=24600 #chks=41 ", false},
    {"the chunk that is one too many for a walk", 16, kBlock, "allocd=17000 used=10200 #chks=17 ",
     false},
    {"room, traced", 1, 40, "allocd=1000 used=640 #chks=1 ", true},
    {"new chunk, traced", 1, kBlock, "allocd=2000 used=1200 #chks=2 ", true},
    {"many chunks, traced", 40, kBlock, "allocd=41000 used=24600 #chks=41 ", true},
};

template <size_t kCase>
void prepare_alloc() {
  prepare_messages(alloc_cases[kCase].traced);
  make_area(alloc_cases[kCase].chunks);
}

template <size_t kCase>
bool alloc() {
  return keep(stg_alloc(own.area, alloc_cases[kCase].request));
}

template <size_t kCase>
const char *check_alloc(bool done) {
  if (own.wrong != nullptr) return own.wrong;
  if (!done) return damage();
  memset(own.block, 99, alloc_cases[kCase].request);
  if (!area_has(alloc_cases[kCase].figures)) return "the area has other figures";
  return damage();
}

template <size_t kCase>
void undo_alloc() {
  own.wrong = damage();
  own.block = nullptr;
  forget_messages();
  stg_free_area(own.area, 0);
  fill_area(alloc_cases[kCase].chunks);
}

template <size_t kCase>
constexpr SweepRow alloc_row() {
  return {"stg_alloc",  alloc_cases[kCase].about, prepare_alloc<kCase>,
          alloc<kCase>, check_alloc<kCase>,       undo_alloc<kCase>};
}

// In an area of 20 chunks only the oldest has room for 104 bytes.
void prepare_old_room() {
  prepare_messages(false);
  make_area(20);
  for (int at = 0; at < 19; ++at) stg_alloc(own.area, 400);
  stg_alloc(own.area, 296);
}

bool alloc_old_room() { return keep(stg_alloc(own.area, 104)); }

const char *old_room_was_taken(bool done) {
  if (own.wrong != nullptr) return own.wrong;
  if (!done) return "there was room";
  memset(own.block, 99, 104);
  return area_has("allocd=20000 used=20000 #chks=20 ") ? damage() : "the area has other figures";
}

void undo_old_room() {
  own.wrong = damage();
  stg_delete_area(&own.area);
  prepare_old_room();
}

bool copy_into_area() { return keep(stg_area_strdup(own.area, "a text of some length")); }

const char *text_is_in_area(bool done) {
  if (own.wrong != nullptr) return own.wrong;
  if (done && strcmp(own.block, "a text of some length") != 0) return "the copy is another text";
  return damage();
}

bool create_area() {
  pfm_inhibit();
  own.area = stg_create_area(kChunk);
  pfm_enable();
  return own.area != STG_AREA_NULL;
}

const char *area_is_there(bool done) {
  if (done != (own.area != STG_AREA_NULL)) return "the result is not that of the call";
  own.chunks = 0;
  return done ? damage() : nullptr;
}

// What a cleanup branch does.
void drop_area() {
  forget_messages();
  if (own.area != STG_AREA_NULL) stg_delete_area(&own.area);
}

struct ReleaseCase {
  const char *about;
  int chunks;
  int keep_first;
  const char *figures;  // behind stg_free_area
  bool traced;
};

constexpr ReleaseCase release_cases[] = {
    {"1 chunk", 1, 0, "allocd=0 used=0 #chks=0 ", false},
    {"1 chunk, the first kept", 1, 1, "allocd=1000 used=0 #chks=1 ", false},
    {"40 chunks", 40, 0, "allocd=0 used=0 #chks=0 ", false},
    {"40 chunks, the first kept", 40, 1, "allocd=1000 used=0 #chks=1 ", false},
    {"1 chunk, the first kept, traced", 1, 1, "allocd=1000 used=0 #chks=1 ", true},
    {"40 chunks, traced", 40, 0, "allocd=0 used=0 #chks=0 ", true},
};

template <size_t kCase>
void prepare_release() {
  prepare_messages(release_cases[kCase].traced);
  make_area(release_cases[kCase].chunks);
}

template <size_t kCase>
bool free_area() {
  stg_free_area(own.area, release_cases[kCase].keep_first);
  return true;
}

template <size_t kCase>
const char *check_free_area(bool) {
  if (!area_has(release_cases[kCase].figures)) return "the area has other figures";
  own.chunks = 0;
  return damage();
}

template <size_t kCase>
void undo_free_area() {
  forget_messages();
  stg_free_area(own.area, 0);
  fill_area(release_cases[kCase].chunks);
}

template <size_t kCase>
constexpr SweepRow free_area_row() {
  return {"stg_free_area",  release_cases[kCase].about, prepare_release<kCase>,
          free_area<kCase>, check_free_area<kCase>,     undo_free_area<kCase>};
}

bool delete_area() {
  stg_delete_area(&own.area);
  return true;
}

// No area is left that stg_dump would tell of.
const char *area_is_gone(bool) {
  if (own.area != STG_AREA_NULL) return "the handle is still there";
  forget_messages();
  stg_dump();
  return caught_messages().empty() ? nullptr : "an area is left";
}

template <int kChunks>
void renew_area() {
  drop_area();
  make_area(kChunks);
}

template <int kChunks, bool kTraced>
void prepare_area() {
  prepare_messages(kTraced);
  make_area(kChunks);
}

// Settings

bool set_increment() {
  stg_set_incr(own.area, 3000);
  return true;
}

const char *increment_is_set(bool) {
  stg_alloc(own.area, kBlock);
  return area_has("allocd=4000 used=1200 #chks=2 1st=1000 base=3000 ") ? damage() : "other figures";
}

bool set_growth() {
  stg_set_growth(own.area, 2.0);
  return true;
}

const char *growth_is_set(bool) {
  stg_alloc(own.area, kBlock);
  return area_has("allocd=3000 used=1200 #chks=2 1st=1000 base=1000 des=3000 gf=2.00")
             ? damage()
             : "other figures";
}

bool set_zero() {
  stg_set_zero(own.area);
  return true;
}

const char *later_chunks_are_zero(bool) {
  own.block = static_cast<char *>(stg_alloc(own.area, kBlock));
  return is_filled(own.block, kBlock, 0) ? damage() : "a later chunk is not cleared";
}

// Dumps

bool dump_area() {
  stg_dump_area(own.area);
  return true;
}

bool dump_all() {
  stg_dump();
  return true;
}

const char *dump_is_whole(bool) {
  char line[256];
  char expected[512] = "";
  const std::string_view text = caught_messages();
  unsigned long chunk = 0;
  const size_t at = text.find("chunk 0x");
  if (at == std::string_view::npos || sscanf(text.data() + at, "chunk 0x%lX", &chunk) != 1) {
    return "no chunk is shown";
  }
  snprintf(line, sizeof line,
           "(stg) area 0x%08lX: allocd=1000 used=600 #chks=1 1st=1000 base=1000 des=1000 gf=0.00\n",
           reinterpret_cast<unsigned long>(own.area));
  strcat(expected, line);
  snprintf(line, sizeof line,
           "(stg)   chunk 0x%08lX: size=1000 avail=600 data=0x%08lX prev=0x00000000\n", chunk,
           reinterpret_cast<unsigned long>(own.base[0]));
  strcat(expected, line);
  return text == expected ? damage() : "the dump is another";
}

constexpr SweepRow rows[] = {
    {"stg_malloc", "", prepare_heap<false>, get_block, block_is_there, undo_block},
    {"stg_malloc", "traced", prepare_heap<true>, get_block, block_is_there, undo_block},
    {"stg_realloc", "", prepare_block<false>, grow_block, block_has_its_bytes, renew_block},
    {"stg_realloc", "traced", prepare_block<true>, grow_block, block_has_its_bytes, renew_block},
    {"stg_free", "", prepare_block<false>, free_block, nothing_is_told, renew_block},
    {"stg_free", "traced", prepare_block<true>, free_block, nothing_is_told, renew_block},
    {"stg_strdup", "", prepare_heap<false>, copy_text, text_is_there, undo_block},
    {"stg_alloc", "heap", prepare_heap<false>, get_block_by_handle, block_is_there, undo_block},
    alloc_row<0>(),
    alloc_row<1>(),
    alloc_row<2>(),
    alloc_row<3>(),
    alloc_row<4>(),
    alloc_row<5>(),
    alloc_row<6>(),
    alloc_row<7>(),
    alloc_row<8>(),
    alloc_row<9>(),
    {"stg_alloc", "old room", prepare_old_room, alloc_old_room, old_room_was_taken, undo_old_room},
    {"stg_area_strdup", "", prepare_alloc<1>, copy_into_area, text_is_in_area, undo_alloc<1>},
    {"stg_create_area", "", prepare_heap<false>, create_area, area_is_there, drop_area},
    {"stg_create_area", "traced", prepare_heap<true>, create_area, area_is_there, drop_area},
    free_area_row<0>(),
    free_area_row<1>(),
    free_area_row<2>(),
    free_area_row<3>(),
    free_area_row<4>(),
    free_area_row<5>(),
    {"stg_delete_area", "empty", prepare_area<0, false>, delete_area, area_is_gone, renew_area<0>},
    {"stg_delete_area", "1 chunk", prepare_area<1, false>, delete_area, area_is_gone,
     renew_area<1>},
    {"stg_delete_area", "40 chunks", prepare_area<40, false>, delete_area, area_is_gone,
     renew_area<40>},
    {"stg_delete_area", "2 chunks, traced", prepare_area<2, true>, delete_area, area_is_gone,
     renew_area<2>},
    {"stg_set_incr", "", prepare_area<1, false>, set_increment, increment_is_set, renew_area<1>},
    {"stg_set_growth", "", prepare_area<1, false>, set_growth, growth_is_set, renew_area<1>},
    {"stg_set_zero", "", prepare_area<1, false>, set_zero, later_chunks_are_zero, renew_area<1>},
    {"stg_dump_area", "", prepare_area<1, false>, dump_area, dump_is_whole, renew_area<1>},
    {"stg_dump", "", prepare_area<1, false>, dump_all, dump_is_whole, renew_area<1>},
};

}  // namespace

const SweepModule kSweepStg = {rows, {}};

}  // namespace ks_test
