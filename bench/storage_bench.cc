// Areas and heap blocks beside other allocators.
#include <apr_general.h>
#include <apr_pools.h>
#include <apr_strings.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <norvaks/imsg.h>
#include <norvaks/stg.h>
#include <talloc.h>

#include <cstdlib>
#include <memory_resource>
#include <random>
#include <vector>

namespace {

// Sizes of the first chunk: one that many chunks follow, and one that a short lifetime fits in.
constexpr uint32_t kSmallArea = 8000;
constexpr uint32_t kFittingArea = 32000;

const std::vector<uint32_t> &block_sizes() {
  static const std::vector<uint32_t> sizes = [] {
    std::minstd_rand random(1);
    std::vector<uint32_t> made(1000000);
    for (uint32_t &size : made) size = static_cast<uint32_t>(8 + random() % 249);
    return made;
  }();
  return sizes;
}

// Storage is allocated to be written to.
void use(void *block) { *static_cast<volatile char *>(block) = 1; }

// `areas` lifetimes in turn of `blocks` allocations each.
template <class Lifetime, size_t areas, size_t blocks>
void allocate(benchmark::State &state) {
  const std::vector<uint32_t> &sizes = block_sizes();
  for (auto _ : state) {
    for (size_t area = 0; area < areas; ++area) {
      Lifetime lifetime(areas == 1 ? kSmallArea : kFittingArea);
      for (size_t i = 0; i < blocks; ++i) use(lifetime.alloc(sizes[i]));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(areas * blocks));
}

struct Area {
  stg_area_t area;
  explicit Area(uint32_t size) : area(stg_create_area(size)) {}
  ~Area() { stg_delete_area(&area); }
  void *alloc(size_t size) { return stg_alloc(area, size); }
};

struct AprPool {
  apr_pool_t *pool = nullptr;
  explicit AprPool(uint32_t = 0) { apr_pool_create(&pool, nullptr); }
  ~AprPool() { apr_pool_destroy(pool); }
  void *alloc(size_t size) { return apr_palloc(pool, size); }
};

struct TallocPool {
  void *pool;
  explicit TallocPool(uint32_t size) : pool(talloc_pool(nullptr, size)) {}
  ~TallocPool() { talloc_free(pool); }
  void *alloc(size_t size) { return talloc_size(pool, size); }
};

struct Monotonic {
  std::pmr::monotonic_buffer_resource resource;
  explicit Monotonic(uint32_t size) : resource(size) {}
  void *alloc(size_t size) { return resource.allocate(size, 8); }
};

// An area with so many full chunks, and allocations in new ones.
template <int chunks>
void allocate_behind_full_chunks(benchmark::State &state) {
  stg_area_t area = stg_create_area(1000);
  for (int i = 0; i < chunks * 125; ++i) stg_alloc(area, 8);
  const std::vector<uint32_t> &sizes = block_sizes();
  for (auto _ : state) {
    for (size_t i = 0; i < 10000; ++i) use(stg_alloc(area, sizes[i]));
  }
  stg_delete_area(&area);
}

constexpr const char *kText = "a text of 24 characters.";
constexpr int kCopies = 200000;

void copy_texts(benchmark::State &state) {
  for (auto _ : state) {
    stg_area_t area = stg_create_area(32000);
    for (int i = 0; i < kCopies; ++i) use(stg_area_strdup(area, kText));
    stg_delete_area(&area);
  }
}

void copy_texts_apr(benchmark::State &state) {
  for (auto _ : state) {
    AprPool pool;
    for (int i = 0; i < kCopies; ++i) use(apr_pstrdup(pool.pool, kText));
  }
}

template <void *allocate_block(size_t), void free_block(void *)>
void heap(benchmark::State &state) {
  const std::vector<uint32_t> &sizes = block_sizes();
  size_t at = 0;
  for (auto _ : state) {
    void *block = allocate_block(sizes[at]);
    benchmark::DoNotOptimize(block);
    free_block(block);
    at = (at + 1) % 1000;
  }
}

}  // namespace

#define AREA_BENCHMARKS(workload, areas, blocks)                                   \
  BENCHMARK((allocate<Area, areas, blocks>))->Name(workload "/norvaks");           \
  BENCHMARK((allocate<AprPool, areas, blocks>))->Name(workload "/apr_palloc");     \
  BENCHMARK((allocate<TallocPool, areas, blocks>))->Name(workload "/talloc pool"); \
  BENCHMARK((allocate<Monotonic, areas, blocks>))->Name(workload "/pmr monotonic")

AREA_BENCHMARKS("1e6 blocks, one area", 1, 1000000);
AREA_BENCHMARKS("200 blocks, 2000 areas", 2000, 200);
BENCHMARK(allocate_behind_full_chunks<100000>)->Name("blocks behind full chunks/norvaks");
BENCHMARK(allocate_behind_full_chunks<100>)->Name("blocks behind full chunks/100 full chunks");
BENCHMARK(copy_texts)->Name("copies of 24-byte texts/norvaks");
BENCHMARK(copy_texts_apr)->Name("copies of 24-byte texts/apr_pstrdup");
BENCHMARK((heap<stg_malloc, stg_free>))->Name("allocate and free a block/norvaks");
BENCHMARK((heap<malloc, free>))->Name("allocate and free a block/malloc and free");

// libc's allocator keeps what is freed: it would else give large lifetimes back to the system and
// fetch them again page by page, which would measure the system.
int main(int argc, char **argv) {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  imsg_set_trace_verbosity(0);
  apr_initialize();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  apr_terminate();
  return 0;
}
