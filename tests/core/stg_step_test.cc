// A signal at every single instruction of an allocation, whose routine allocates in the same area.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "pfm.h"
#include "stg.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks_test::kStepBegin;
using ks_test::kStepEnd;
using ks_test::send_signal;

namespace {

constexpr size_t kBytes = 24;

struct Owned {
  unsigned char *bytes;
  unsigned char mark;

  bool is_whole() const {
    for (size_t i = 0; i < kBytes; ++i) {
      if (bytes[i] != mark) return false;
    }
    return true;
  }
};

stg_area_t area;
Owned owned[512];
size_t count;
int arrived;

// Each owner marks all of its block, so that one which was handed out twice shows.
void take() {
  pfm_inhibit();
  unsigned char *bytes = static_cast<unsigned char *>(stg_alloc(area, kBytes));
  owned[count] = {bytes, static_cast<unsigned char>(count + 1)};
  memset(bytes, owned[count].mark, kBytes);
  ++count;
  pfm_enable();
}

void take_in_routine(int) {
  ++arrived;
  take();
}

void check(bool condition, const char *text) {
  if (condition) return;
  dprintf(STDOUT_FILENO, "not so: %s; arrived %d, blocks %zu", text, arrived, count);
  _exit(1);
}

// What the routine is to meet: both roads of stg_alloc, unheld.
void allocate(size_t blocks) {
  for (size_t i = 0; i < blocks; ++i) {
    void *block = stg_alloc(area, kBytes);
    check(block != nullptr, "there is storage");
    pfm_inhibit();
    owned[count] = {static_cast<unsigned char *>(block), static_cast<unsigned char>(count + 1)};
    memset(block, owned[count].mark, kBytes);
    ++count;
    pfm_enable();
  }
}

struct Case {
  const char *name;
  uint32_t area_size;
  size_t before;  // blocks allocated before the stretch
  size_t within;
};

void PrintTo(const Case &stretch, std::ostream *out) { *out << stretch.name; }

// Not inlined: the places that are learnt in one round are looked for in the others.
[[gnu::noinline]] void run_round(const Case &stretch) {
  count = 0;
  arrived = 0;
  area = stg_create_area(stretch.area_size);
  allocate(stretch.before);
  send_signal(kStepBegin);
  allocate(stretch.within);
  send_signal(kStepEnd);
}

void check_round(const Case &stretch) {
  check(arrived == 1, "the signal came once");
  check(count == stretch.before + stretch.within + 1, "every block is there");
  for (size_t i = 0; i < count; ++i) check(owned[i].is_whole(), "no two blocks overlap");
  stg_delete_area(&area);
}

class StgStep : public testing::TestWithParam<Case> {};

TEST_P(StgStep, ARoutineMayAllocateInTheSameAreaAtEveryInstruction) {
  const Case stretch = GetParam();
  const ks_test::Steps steps = ks_test::step_through(
      [&] {
        pfm_signal(SIGUSR2, take_in_routine);
        run_round(stretch);  // binds what the stretch calls
        stg_delete_area(&area);
        ks_test::be_traced();
        run_round(stretch);  // to learn the places
        for (;;) {
          run_round(stretch);
          check_round(stretch);
        }
      },
      SIGUSR2);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 20u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

INSTANTIATE_TEST_SUITE_P(Of, StgStep,
                         testing::Values(Case{"RoomInTheNewestChunk", 1000, 1, 3},
                                         Case{"ANewChunk", 120, 5, 2},
                                         Case{"TheFirstChunk", 120, 0, 1},
                                         Case{"ManyChunks", 48, 60, 3}),
                         [](const auto &param) { return std::string(param.param.name); });

}  // namespace
