#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>

#include <functional>
#include <string>
#include <vector>

#include "imsg.h"
#include "pfm.h"
#include "stg.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/random.h"
#include "support/signals.h"

#if !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 0
#endif

using ks_test::fail_call;
using ks_test::in_child;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

unsigned char *bytes(void *block) { return static_cast<unsigned char *>(block); }

void check_storage(int verbosity) {
  imsg_set_trace_subsys("ks/stg");
  imsg_set_trace_verbosity(verbosity);
}

std::string hex(const void *address) {
  char text[32];
  snprintf(text, sizeof text, "0x%08lX", reinterpret_cast<unsigned long>(address));
  return text;
}

// What a dump says of an area and of its chunks, newest first.
struct Dump {
  unsigned long allocd, used, first, base, des;
  int chunks;
  std::string gf;
  std::vector<unsigned long> sizes, in_use;
};

Dump dump(stg_area_t area) {
  const std::string text = in_child([&] { stg_dump_area(area); }).out;
  Dump found = {};
  unsigned long address = 0;
  char gf[32] = "";
  size_t at = text.find('\n') + 1;
  EXPECT_EQ(
      sscanf(text.c_str(),
             "(stg) area 0x%lX: allocd=%lu used=%lu #chks=%d 1st=%lu base=%lu des=%lu gf=%31s",
             &address, &found.allocd, &found.used, &found.chunks, &found.first, &found.base,
             &found.des, gf),
      8)
      << text;
  EXPECT_EQ(address, reinterpret_cast<unsigned long>(area));
  found.gf = gf;
  for (; at < text.size(); at = text.find('\n', at) + 1) {
    unsigned long chunk = 0, size = 0, used = 0;
    EXPECT_EQ(
        sscanf(text.c_str() + at, "(stg)   chunk 0x%lX: size=%lu avail=%lu", &chunk, &size, &used),
        3)
        << text;
    found.sizes.push_back(size);
    found.in_use.push_back(used);
  }
  return found;
}

class Area : public testing::Test {
 protected:
  void create(uint32_t size) { area = stg_create_area(size); }
  ~Area() override {
    if (area != STG_AREA_NULL) stg_delete_area(&area);
  }
  stg_area_t area = STG_AREA_NULL;
};

TEST_F(Area, HasNoChunkBeforeTheFirstAllocation) {
  create(1000);
  const Dump empty = dump(area);
  EXPECT_EQ(empty.chunks, 0);
  EXPECT_EQ(empty.allocd, 0u);
  EXPECT_EQ(empty.first, 1000u);
  EXPECT_EQ(empty.base, 1000u);
  EXPECT_EQ(empty.des, 0u);
  EXPECT_EQ(empty.gf, "0.00");
}

TEST_F(Area, HandsOutConsecutiveMultiplesOfEight) {
  create(1000);
  unsigned char *first = bytes(stg_alloc(area, 1));
  EXPECT_EQ(bytes(stg_alloc(area, 8)), first + 8);
  EXPECT_EQ(bytes(stg_alloc(area, 9)), first + 16);
  EXPECT_EQ(bytes(stg_alloc(area, 1)), first + 32);
  EXPECT_EQ(dump(area).used, 40u);
}

TEST_F(Area, SizeZeroGivesTheFreePositionAndMakesTheFirstChunk) {
  create(1000);
  void *position = stg_alloc(area, 0);
  ASSERT_NE(position, nullptr);
  EXPECT_EQ(stg_alloc(area, 0), position);
  EXPECT_EQ(stg_alloc(area, 5), position);
  EXPECT_EQ(bytes(stg_alloc(area, 0)), bytes(position) + 8);
  EXPECT_THAT(dump(area).sizes, ElementsAre(1000));
}

TEST_F(Area, GrowsFromTheSizeOfTheNewestChunkRoundedUp) {
  create(1000);
  stg_set_growth(area, 1.5);
  for (unsigned long size : {1000u, 1504u, 2256u, 3384u}) {
    for (unsigned long left = size; left > 0; left -= 8) ASSERT_NE(stg_alloc(area, 8), nullptr);
  }
  const Dump full = dump(area);
  EXPECT_THAT(full.sizes, ElementsAre(3384, 2256, 1504, 1000));
  EXPECT_EQ(full.des, 1000u + 1500 + 2256 + 3384);
  EXPECT_EQ(full.allocd, 1000u + 1504 + 2256 + 3384);
  EXPECT_EQ(full.gf, "1.50");
}

TEST_F(Area, ALargeRequestExtendsItsChunk) {
  create(1000);
  stg_alloc(area, 800);
  EXPECT_THAT(dump(area).sizes, ElementsAre(1800));
  EXPECT_EQ(dump(area).des, 1000u);
}

TEST_F(Area, SevenTenthsExactlyIsNotLarge) {
  create(1000);
  stg_alloc(area, 696);  // below 700
  EXPECT_THAT(dump(area).sizes, ElementsAre(1000));
  stg_delete_area(&area);
  create(1120);
  stg_alloc(area, 784);  // 0.7 times 1120
  EXPECT_THAT(dump(area).sizes, ElementsAre(1120));
  stg_delete_area(&area);
  create(1120);
  stg_alloc(area, 785);  // 792 when rounded
  EXPECT_THAT(dump(area).sizes, ElementsAre(1912));
}

TEST_F(Area, NominalSizesAreCapped) {
  create(500000);
  stg_alloc(area, 8);
  EXPECT_THAT(dump(area).sizes, ElementsAre(102400));
  stg_alloc(area, 102400);
  EXPECT_THAT(dump(area).sizes, ElementsAre(204800, 102400));
  EXPECT_EQ(dump(area).des, 204800u);
  EXPECT_EQ(dump(area).first, 500000u);
}

TEST_F(Area, GrowthIsCappedToo) {
  create(100000);
  stg_set_growth(area, 10);
  stg_alloc(area, 8);
  stg_alloc(area, 69000);
  stg_alloc(area, 69000);
  EXPECT_THAT(dump(area).sizes, ElementsAre(102400, 100000));
}

TEST_F(Area, ASizeThatIsNoMultipleOfEightIsRoundedUp) {
  create(1001);
  stg_alloc(area, 8);
  EXPECT_THAT(dump(area).sizes, ElementsAre(1008));
  EXPECT_EQ(dump(area).des, 1001u);
}

TEST_F(Area, IncrementSetsAllLaterChunks) {
  create(1000);
  stg_set_incr(area, 4096);
  for (int i = 0; i < 3; ++i) stg_alloc(area, 600), stg_alloc(area, 2600);
  const Dump found = dump(area);
  EXPECT_THAT(found.sizes, ElementsAre(4096, 4096, 4096, 1000));
  EXPECT_EQ(found.base, 4096u);
  EXPECT_EQ(found.des, 3u * 4096);  // without the first chunk
}

TEST_F(Area, WithBothTheIncrementIsTheSecondChunkAndThenGrowthGoesOn) {
  create(1000);
  stg_set_incr(area, 4096);
  stg_set_growth(area, 1.5);
  stg_alloc(area, 600);
  stg_alloc(area, 2600);
  stg_alloc(area, 2600);
  EXPECT_THAT(dump(area).sizes, ElementsAre(6144, 4096, 1000));
}

TEST_F(Area, AFactorThatIsNotAboveOneChangesNothing) {
  create(1000);
  stg_set_growth(area, 1.0);
  stg_set_growth(area, 0.5);
  stg_set_growth(area, -2);
  EXPECT_EQ(dump(area).gf, "0.00");
  stg_set_growth(area, 2);
  stg_set_growth(area, 1.0);
  EXPECT_EQ(dump(area).gf, "2.00");
}

TEST_F(Area, KeepsTakingTheOldestChunkWithRoomNotTheFirst) {
  create(1000);
  unsigned char *oldest = bytes(stg_alloc(area, 600));  // 400 left
  unsigned char *middle = bytes(stg_alloc(area, 608));  // 392 left
  unsigned char *newest = bytes(stg_alloc(area, 616));  // 384 left
  EXPECT_EQ(bytes(stg_alloc(area, 384)), newest + 616);
  EXPECT_EQ(bytes(stg_alloc(area, 100)), oldest + 600);
  EXPECT_EQ(bytes(stg_alloc(area, 320)), middle + 608);
  EXPECT_EQ(bytes(stg_alloc(area, 80)), oldest + 704);
}

// The rules of the allocator, told slowly: a chunk is found by a walk over all of them.
class Model {
 public:
  Model(uint32_t first, uint32_t incr, float gf) : first_(first), incr_(incr), gf_(gf) {}

  // Number of the chunk (0 is the oldest) and offset of the next allocation.
  std::pair<size_t, uint32_t> alloc(uint32_t size) {
    const uint32_t bytes = (size + 7) / 8 * 8;
    size_t chosen = sizes_.size();
    if (!sizes_.empty() && sizes_.back() - used_.back() >= bytes) {
      chosen = sizes_.size() - 1;
    } else {
      for (size_t i = sizes_.size(); i-- > 0;) {
        if (sizes_[i] - used_[i] >= bytes) chosen = i;
      }
    }
    if (chosen == sizes_.size()) add_chunk(bytes);
    const uint32_t offset = used_[chosen];
    used_[chosen] += bytes;
    return {chosen, offset};
  }

  size_t chunks() const { return sizes_.size(); }

 private:
  void add_chunk(uint32_t request) {
    double nominal = first_;
    if (!sizes_.empty()) {
      const bool second_by_increment = sizes_.size() == 1 && incr_ != 0;
      nominal = incr_ != 0 ? incr_ : first_;
      if (gf_ > 0 && !second_by_increment) nominal = std::floor(double{gf_} * sizes_.back());
    }
    uint32_t size = nominal > 102400 ? 102400 : static_cast<uint32_t>(nominal);
    if (request > 0.7 * size) size += request;
    sizes_.push_back((size + 7) / 8 * 8);
    used_.push_back(0);
  }

  uint32_t first_, incr_;
  float gf_;
  std::vector<uint32_t> sizes_, used_;
};

TEST(AreaModel, ChunksAndOffsetsAreThoseOfAPlainWalk) {
  size_t most_chunks = 0;
  for (unsigned seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ks_test::Random random(seed);
    const uint32_t first = 16 + random() % 2000;
    const uint32_t incr = random() % 3 == 0 ? 64 + random() % 3000 : 0;
    const float gf = random() % 3 == 0 ? 1.0f + static_cast<float>(random() % 100 + 1) / 50.0f : 0;
    const uint32_t largest = 1 + random() % 1500;
    stg_area_t area = stg_create_area(first);
    if (incr != 0) stg_set_incr(area, incr);
    if (gf > 0) stg_set_growth(area, double{gf});
    Model model(first, incr, gf);
    std::vector<unsigned char *> chunk_data;
    for (int i = 0; i < 600; ++i) {
      const uint32_t size = random() % 4 == 0 ? random() % largest : random() % 64;
      const auto [chunk, offset] = model.alloc(size);
      unsigned char *block = bytes(stg_alloc(area, size));
      if (chunk == chunk_data.size()) chunk_data.push_back(block - offset);
      ASSERT_EQ(block, chunk_data[chunk] + offset) << "allocation " << i << " of " << size;
      memset(block, static_cast<int>(i), size);
    }
    most_chunks = std::max(most_chunks, model.chunks());
    stg_delete_area(&area);
  }
  EXPECT_GT(most_chunks, 100u);  // far past the chunks that are walked
}

TEST(AreaModel, TheSameWithoutStorageForTheHelp) {
  fail_call("calloc", 0, ENOMEM, 1 << 30);
  stg_area_t area = stg_create_area(256);
  Model model(256, 0, 0);
  ks_test::Random random(7);
  std::vector<unsigned char *> chunk_data;
  for (int i = 0; i < 2000; ++i) {
    const uint32_t size = random() % 170;
    const auto [chunk, offset] = model.alloc(size);
    unsigned char *block = bytes(stg_alloc(area, size));
    if (chunk == chunk_data.size()) chunk_data.push_back(block - offset);
    ASSERT_EQ(block, chunk_data[chunk] + offset) << i;
  }
  EXPECT_GT(ks_test::count_calls("calloc"), 0);
  stg_delete_area(&area);
}

TEST_F(Area, StorageIsFilledWithOnesOrZeros) {
  create(64);
  if (!__SANITIZE_ADDRESS__) {
    unsigned char *block = bytes(stg_alloc(area, 64));
    EXPECT_EQ(std::count(block, block + 64, 0xFF), 64);
  }
  stg_delete_area(&area);
  create(64);
  stg_set_zero(area);
  unsigned char *block = bytes(stg_alloc(area, 64));
  EXPECT_EQ(std::count(block, block + 64, 0), 64);
}

TEST_F(Area, ClearingReleasesAllChunks) {
  create(1000);
  stg_set_growth(area, 1.5);
  stg_alloc(area, 600);
  stg_alloc(area, 600);
  stg_free_area(area, 0);
  const Dump empty = dump(area);
  EXPECT_EQ(empty.chunks, 0);
  EXPECT_EQ(empty.des, 0u);
  stg_alloc(area, 8);
  EXPECT_THAT(dump(area).sizes, ElementsAre(1000));
}

TEST_F(Area, ClearingMayKeepTheFirstChunkRefilled) {
  create(1000);
  stg_set_growth(area, 1.5);
  unsigned char *first = bytes(stg_alloc(area, 600));
  memset(first, 'x', 600);
  stg_alloc(area, 600);
  stg_alloc(area, 1400);
  stg_free_area(area, 1);
  const Dump kept = dump(area);
  EXPECT_THAT(kept.sizes, ElementsAre(1000));
  EXPECT_EQ(kept.used, 0u);
  EXPECT_EQ(kept.des, 1000u);
  check_storage(2);
  EXPECT_EQ(bytes(stg_alloc(area, 8)), first);
  imsg_set_trace_verbosity(0);
  stg_alloc(area, 1000);  // growth goes on from the kept chunk
  EXPECT_THAT(dump(area).sizes, ElementsAre(1504, 1000));
}

TEST_F(Area, ClearingAnEmptyAreaWithKeepFirst) {
  create(1000);
  stg_free_area(area, 1);
  EXPECT_EQ(dump(area).chunks, 0);
}

TEST_F(Area, KeptChunkCountsAsNothingDesiredAfterAnIncrement) {
  create(1000);
  stg_set_incr(area, 2000);
  stg_alloc(area, 8);
  stg_free_area(area, 1);
  EXPECT_EQ(dump(area).des, 0u);
}

TEST_F(Area, DeletingSetsTheHandleToNull) {
  create(1000);
  stg_alloc(area, 8);
  stg_delete_area(&area);
  EXPECT_EQ(area, STG_AREA_NULL);
}

TEST_F(Area, CopiesTexts) {
  create(1000);
  char *copy = stg_area_strdup(area, "abc");
  EXPECT_STREQ(copy, "abc");
  EXPECT_EQ(stg_area_strdup(area, "") - copy, 8);
  EXPECT_EQ(stg_area_strdup(area, nullptr), nullptr);
}

TEST(AreaHeap, TheHeapHandleAllocatesHeapBlocks) {
  void *block = stg_alloc(STG_AREA_HEAP, 10);
  ASSERT_NE(block, nullptr);
  memset(block, 'x', 10);
  stg_free(block);
  char *copy = stg_area_strdup(STG_AREA_HEAP, "abc");
  EXPECT_STREQ(copy, "abc");
  stg_free(copy);
}

TEST(AreaHandles, WrongHandlesAreAssertions) {
  const std::string text =
      "noname: Error: PFM_ASSERT:\\(area != STG_AREA_NULL && area != STG_AREA_HEAP\\) failed: "
      "'src/core/stg_area.cc':[0-9]+\n";
  stg_area_t null = STG_AREA_NULL;
  stg_area_t heap = STG_AREA_HEAP;
  const std::vector<std::function<void()>> calls = {
      [] { stg_alloc(STG_AREA_NULL, 8); },     [] { stg_set_zero(STG_AREA_NULL); },
      [] { stg_set_incr(STG_AREA_HEAP, 8); },  [] { stg_set_growth(STG_AREA_NULL, 2); },
      [] { stg_free_area(STG_AREA_HEAP, 0); }, [] { stg_dump_area(STG_AREA_NULL); },
      [&] { stg_delete_area(&null); },         [&] { stg_delete_area(&heap); }};
  for (const auto &call : calls) {
    const ks_test::Outcome outcome = in_child(call);
    EXPECT_THAT(outcome.err, MatchesRegex(text));
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

TEST(AreaExhaustion, PrintsSetsErrnoAndGivesNull) {
  const ks_test::Outcome outcome = in_child([] {
    fail_call("malloc", 0, ENOMEM);
    errno = 0;
    if (stg_create_area(100) != STG_AREA_NULL || errno != ENOMEM) _exit(1);
    stg_area_t area = stg_create_area(100);
    for (int nth : {0, 1}) {  // the chunk's record, its data
      fail_call("malloc", nth, ENOMEM);
      errno = 0;
      if (stg_alloc(area, 8) != nullptr || errno != ENOMEM) _exit(2);
    }
    if (stg_alloc(area, 8) == nullptr) _exit(3);
    stg_delete_area(&area);
  });
  EXPECT_EQ(outcome.err,
            "noname: Error: No more memory available.\n"
            "noname: Error: No more memory available.\n"
            "noname: Error: No more memory available.\n");
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(AreaExhaustion, ARequestThatNoChunkCanHoldIsRefused) {
  const ks_test::Outcome outcome = in_child([] {
    stg_area_t area = stg_create_area(100);
    for (size_t size : {size_t{UINT32_MAX}, SIZE_MAX, SIZE_MAX - 7, size_t{UINT32_MAX - 7}}) {
      errno = 0;
      if (stg_alloc(area, size) != nullptr || errno != ENOMEM) _exit(1);
    }
    stg_delete_area(&area);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err, HasSubstr("noname: Error: No more memory available.\n"));
}

TEST(AreaChecks, AWriteIntoFreeSpaceIsReportedAtTheNextAllocation) {
  if (__SANITIZE_ADDRESS__) return;  // there it is caught when it happens: stg_watch_test
  const ks_test::Outcome outcome = in_child([] {
    check_storage(1);
    stg_area_t area = stg_create_area(1000);
    unsigned char *block = bytes(stg_alloc(area, 8));
    block[10] = 0x41;
    printf("noname: Error: Storage area %s: corrupted at %s.\n", hex(area).c_str(),
           hex(block + 10).c_str());
    fflush(stdout);
    stg_alloc(area, 16);
    stg_alloc(area, 16);
  });
  EXPECT_EQ(outcome.err, outcome.out);
}

TEST(AreaChecks, LevelOneLooksAtTheRequestLevelTwoAtTheWholeRest) {
  if (__SANITIZE_ADDRESS__) return;
  for (int level : {1, 2}) {
    const ks_test::Outcome outcome = in_child([&] {
      check_storage(level);
      stg_area_t area = stg_create_area(1000);
      stg_set_zero(area);
      bytes(stg_alloc(area, 8))[500] = 0x41;
      stg_alloc(area, 8);
    });
    EXPECT_EQ(outcome.err.empty(), level == 1) << outcome.err;
  }
}

TEST(AreaTrace, TellsOfAreasAndChunksAtFourAndOfAllocationsAtFive) {
  const ks_test::Outcome outcome = in_child([] {
    check_storage(4);
    stg_area_t area = stg_create_area(1000);
    stg_alloc(area, 8);
    stg_free_area(area, 1);
    check_storage(5);
    imsg_suppress_prefix(1);
    stg_alloc(area, 9);
    check_storage(4);
    stg_delete_area(&area);
  });
  const std::string at = "0x[0-9A-F]+";
  const std::string prefix = ">>> ..:..:..\\.... \\(noname\\): ";
  EXPECT_THAT(outcome.err,
              MatchesRegex(prefix + "\\(stg\\) Area " + at + ": created area\\.\n" +  //
                           prefix + "\\(stg\\) Area " + at + ": created chunk " + at +
                           " \\(size 1000\\)\\.\n" +  //
                           prefix + "\\(stg\\) Area " + at + ": clearing area\\.\n" +
                           "\\(stg\\) Area " + at + ": allocated " + at + " \\(size 16\\)\\.\n" +
                           "\\(stg\\) Area " + at + ": deleting area\\.\n" +  //
                           "\\(stg\\) Area " + at + ": clearing area\\.\n" +  //
                           "\\(stg\\) Area " + at + ": freeing chunk " + at + "\\.\n"));
}

TEST(AreaDump, ShowsAreasOldestFirstAndTheirChunksNewestFirst) {
  const ks_test::Outcome outcome = in_child([] {
    stg_area_t areas[3];
    for (uint32_t i = 0; i < 3; ++i) areas[i] = stg_create_area(100 + i);
    stg_delete_area(&areas[1]);
    stg_alloc(areas[2], 8);
    stg_alloc(areas[2], 100);
    fprintf(stderr, "(stg) area %s: allocd=0 used=0 #chks=0 1st=100 base=100 des=0 gf=0.00\n",
            hex(areas[0]).c_str());
    fprintf(stderr, "(stg) area %s: allocd=312 used=112 #chks=2 1st=102 base=102 des=204 gf=0.00\n",
            hex(areas[2]).c_str());
    stg_dump();
  });
  EXPECT_THAT(outcome.out, testing::StartsWith(outcome.err));
  EXPECT_THAT(outcome.out.substr(outcome.err.size()),
              MatchesRegex("\\(stg\\)   chunk 0x[0-9A-F]+: size=208 avail=104 data=0x[0-9A-F]+ "
                           "prev=0x[0-9A-F]+\n"
                           "\\(stg\\)   chunk 0x[0-9A-F]+: size=104 avail=8 data=0x[0-9A-F]+ "
                           "prev=0x00000000\n"));
}

TEST(AreaDump, DeletedAreasLeaveTheList) {
  const ks_test::Outcome outcome = in_child([] {
    stg_area_t areas[3];
    for (stg_area_t &area : areas) area = stg_create_area(100);
    for (int i : {2, 0, 1}) stg_delete_area(&areas[i]);
    stg_dump();
    stg_area_t last = stg_create_area(7);
    stg_dump();
    stg_delete_area(&last);
  });
  EXPECT_THAT(outcome.out, MatchesRegex("[^\n]* 1st=7 [^\n]*\n"));
}

// Fills an area whose chunks each hold two blocks of 24 bytes.
void fill_chunks(stg_area_t area, int chunks) {
  for (int i = 0; i < 2 * chunks; ++i) memset(stg_alloc(area, 24), 'x', 24);
}

// Runs `body`, with a fault that comes in the middle of the nth call of free. Result: whether the
// fault has left it, and then `cleanup` has run.
template <class Body, class Cleanup>
bool left_in_free(int nth, Body body, Cleanup cleanup) {
  constexpr int kNever = 1 << 30;
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("free", nth, SIGUSR1);
  const bool left = ks_test::land(body, cleanup).status != 0;
  ks_test::signal_in_call("free", kNever, SIGUSR1);
  return left;
}

constexpr int kManyChunks = 40;  // enough to be looked up in a tree

TEST_F(Area, CanBeUsedAfterAFaultHasLeftItsClearing) {
  for (int keep_first : {0, 1}) {
    bool left = true;
    for (int nth = 0; left; ++nth) {
      create(48);
      fill_chunks(area, kManyChunks);
      left = left_in_free(
          nth, [&] { stg_free_area(area, keep_first); }, [] {});
      EXPECT_TRUE(left || dump(area).chunks == keep_first) << nth;
      fill_chunks(area, kManyChunks);
      stg_free_area(area, 1);
      EXPECT_EQ(dump(area).chunks, 1) << nth;
      fill_chunks(area, kManyChunks);
      EXPECT_EQ(dump(area).chunks, kManyChunks) << nth;
      stg_delete_area(&area);
      ASSERT_LT(nth, 4 * kManyChunks);
    }
  }
}

TEST_F(Area, MayBeDeletedByTheCleanupOfItsDeletion) {
  bool left = true;
  for (int nth = 0; left; ++nth) {
    stg_area_t before = stg_create_area(1001);
    create(48);
    stg_area_t behind = stg_create_area(1002);
    fill_chunks(area, kManyChunks);
    left = left_in_free(
        nth, [&] { stg_delete_area(&area); },
        [&] {
          if (area != STG_AREA_NULL) stg_delete_area(&area);
        });
    EXPECT_EQ(area, STG_AREA_NULL);
    const std::string all = in_child(stg_dump).out;
    EXPECT_THAT(all, MatchesRegex("\\(stg\\) area 0x[0-9A-F]+: [^\n]* 1st=1001 [^\n]*\n"
                                  "\\(stg\\) area 0x[0-9A-F]+: [^\n]* 1st=1002 [^\n]*\n"))
        << nth;
    stg_delete_area(&before);
    stg_delete_area(&behind);
    ASSERT_LT(nth, 4 * kManyChunks);
  }
}

}  // namespace
