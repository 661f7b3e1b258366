#include "core/stg_rooms.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

using namespace ks;

namespace {

constexpr uint32_t kFewChunks = 16;  // so many are walked

}  // namespace

// Makes the tree, with room for twice the `count` chunks of the list. Without storage there is none,
// and the next chunk tries again.
void StgRooms::build(StgChunk *newest) {
  const uint32_t leaves = std::bit_ceil(count) * 2;
  drop_tree();
  chunks = static_cast<StgChunk **>(calloc(leaves, sizeof *chunks + 2 * sizeof *tree));
  if (chunks == nullptr) return;
  tree = reinterpret_cast<uint32_t *>(chunks + leaves);
  capacity = leaves;
  uint32_t index = count;
  for (StgChunk *chunk = newest; chunk != nullptr; chunk = chunk->next) {
    chunk->index = --index;
    chunks[index] = chunk;
    tree[capacity + index] = chunk->room();
  }
  for (uint32_t node = capacity - 1; node > 0; --node) {
    tree[node] = std::max(tree[2 * node], tree[2 * node + 1]);
  }
}

void StgRooms::append(StgChunk *newest) {
  ++count;
  if (count <= kFewChunks) return;
  if (tree == nullptr || count > capacity) return build(newest);
  newest->index = count - 1;
  chunks[newest->index] = newest;
  update(newest);
}

void StgRooms::update(const StgChunk *chunk) {
  if (tree != nullptr) set_room(chunk->index, chunk->room());
}

void StgRooms::remove_newest() {
  --count;
  if (tree != nullptr) set_room(count, 0);
}

void StgRooms::set_room(uint32_t index, uint32_t room) {
  uint32_t node = capacity + index;
  tree[node] = room;
  while (node > 1) {
    node /= 2;
    const uint32_t largest = std::max(tree[2 * node], tree[2 * node + 1]);
    if (tree[node] == largest) return;
    tree[node] = largest;
  }
}

StgChunk *StgRooms::oldest_with(uint32_t room, StgChunk *newest) const {
  if (tree == nullptr) {
    StgChunk *oldest = nullptr;
    for (StgChunk *chunk = newest; chunk != nullptr; chunk = chunk->next) {
      if (chunk->room() >= room) oldest = chunk;
    }
    return oldest;
  }
  if (tree[1] < room) return nullptr;
  uint32_t node = 1;
  while (node < capacity) {
    node *= 2;
    if (tree[node] < room) ++node;
  }
  return chunks[node - capacity];
}

void StgRooms::drop_tree() {
  free(chunks);
  chunks = nullptr;
  tree = nullptr;
  capacity = 0;
}
