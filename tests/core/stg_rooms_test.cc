#include "core/stg_rooms.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include <vector>

#include "support/faults.h"
#include "support/random.h"

using ks::StgChunk;
using ks::StgRooms;

namespace {

// A list of chunks as an area has it, newest first, with the rooms told of.
class Chunks {
 public:
  ~Chunks() { rooms.clear(); }

  void add(uint32_t room) {
    chunks.push_back(std::make_unique<StgChunk>());
    StgChunk *chunk = chunks.back().get();
    *chunk = {0, 0, newest, room, nullptr, 0};
    newest = chunk;
    rooms.append(chunk);
  }

  void use(size_t number, uint32_t bytes) {
    chunks[number]->used += bytes;
    rooms.update(chunks[number].get());
  }

  // Number of the oldest chunk with room by a plain walk, and by the rooms; -1 for none.
  long walk(uint32_t room) const {
    for (size_t i = 0; i < chunks.size(); ++i) {
      if (chunks[i]->room() >= room) return static_cast<long>(i);
    }
    return -1;
  }
  long ask(uint32_t room) const {
    const StgChunk *found = rooms.oldest_with(room, newest);
    for (size_t i = 0; i < chunks.size(); ++i) {
      if (chunks[i].get() == found) return static_cast<long>(i);
    }
    return -1;
  }

  std::vector<std::unique_ptr<StgChunk>> chunks;
  StgChunk *newest = nullptr;
  StgRooms rooms = {};
};

TEST(StgRooms, AnswersLikeAWalkOverAllChunks) {
  ks_test::Random random(20261121);
  Chunks some;
  for (int step = 0; step < 3000; ++step) {
    if (some.chunks.empty() || random() % 4 == 0) {
      some.add(random() % 500 * 8);
    } else {
      const size_t number = random() % some.chunks.size();
      const uint32_t room = some.chunks[number]->room();
      if (room > 0) some.use(number, random() % (room / 8 + 1) * 8);
    }
    const uint32_t wanted = random() % 500 * 8;
    ASSERT_EQ(some.ask(wanted), some.walk(wanted)) << "step " << step << ", room " << wanted;
  }
  EXPECT_NE(some.rooms.tree, nullptr);
}

TEST(StgRooms, AnswersWithoutStorageAndTriesAgain) {
  Chunks some;
  for (int i = 0; i < 16; ++i) some.add(8);
  ks_test::fail_call("calloc", 0, ENOMEM, 3);
  for (int i = 0; i < 3; ++i) some.add(16);
  EXPECT_EQ(some.rooms.tree, nullptr);
  EXPECT_EQ(some.ask(16), 16);
  EXPECT_EQ(some.ask(8), 0);
  some.add(24);
  EXPECT_NE(some.rooms.tree, nullptr);
  EXPECT_EQ(some.ask(24), 19);
}

TEST(StgRooms, KnowsNoChunkAfterClearing) {
  Chunks some;
  for (int i = 0; i < 40; ++i) some.add(8);
  some.rooms.clear();
  EXPECT_EQ(some.rooms.oldest_with(8, nullptr), nullptr);
  EXPECT_EQ(some.rooms.count, 0u);
}

}  // namespace
