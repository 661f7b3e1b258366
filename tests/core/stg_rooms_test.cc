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
  ~Chunks() { rooms.drop_tree(); }

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

  void remove_newest() {
    newest = newest->next;
    rooms.remove_newest();
    chunks.pop_back();
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
    const uint32_t choice = some.chunks.empty() ? 0 : random() % 16;
    if (choice < 4) {
      some.add(random() % 500 * 8);
    } else if (choice == 4) {
      some.remove_newest();
    } else if (choice == 5 && random() % 16 == 0) {
      some.rooms.drop_tree();
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

TEST(StgRooms, WithoutItsTreeKnowsTheSameChunks) {
  Chunks some;
  for (int i = 0; i < 40; ++i) some.add(i == 7 ? 16 : 8);
  some.rooms.drop_tree();
  EXPECT_EQ(some.rooms.tree, nullptr);
  EXPECT_EQ(some.rooms.count, 40u);
  EXPECT_EQ(some.ask(16), 7);
  while (some.chunks.size() > 7) some.remove_newest();
  EXPECT_EQ(some.rooms.count, 7u);
  EXPECT_EQ(some.ask(16), -1);
}

}  // namespace
