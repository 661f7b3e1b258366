// Which chunks of an area still have room. The oldest one with at least so many bytes is found in
// logarithmic time, so that the cost of an allocation does not grow with the number of full chunks.
#pragma once

#include <cstdint>

namespace [[gnu::visibility("hidden")]] ks {

// A chunk of an area, from stg_malloc, as its data are. What is free holds the fill of the area by
// the time it is handed out or looked at: the fill goes ahead of the allocations in steps, so that
// what is never used is never written.
struct StgChunk {
  uint32_t used;
  uint32_t filled;  // so far the data are in use or hold the fill; from `used` to `size`
  StgChunk *next;   // next older
  uint32_t size;
  unsigned char *data;
  uint32_t index;  // place among the chunks of an StgRooms

  uint32_t room() const { return size - used; }
};

// A tree over chunks in the order of their age, in which each node holds the largest room below it.
// It is only a help: with few chunks, or when there was no storage for it, there is none, and the
// chunks themselves are walked. All calls are made with signals held.
struct StgRooms {
  StgChunk **chunks;  // by age, the oldest first; from malloc, with the tree behind
  uint32_t *tree;     // node 1 is the root, leaf i is node capacity + i; NULL for none
  uint32_t capacity;  // leaves, a power of two
  uint32_t count;     // chunks told of

  // Tells that `newest`, which heads a list of chunks told of before, is about to become an older
  // chunk.
  void append(StgChunk *newest);

  // Tells that the room of a chunk has changed.
  void update(const StgChunk *chunk);

  // The oldest chunk of the list `newest` with at least `room` bytes, or NULL.
  StgChunk *oldest_with(uint32_t room, StgChunk *newest) const;

  // Tells that the newest of the chunks told of is none of them any more.
  void remove_newest();

  // Gives the tree back. The next chunk told of makes a new one.
  void drop_tree();

 private:
  void build(StgChunk *newest);
  void set_room(uint32_t index, uint32_t room);
};

}  // namespace ks
