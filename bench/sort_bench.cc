// ks_qsort beside libc's sort, with the same comparison. A name is "<workload>/<subject>"; the subject
// "norvaks" is held against the others of the same workload (bench/bars.tsv).
#include <benchmark/benchmark.h>
#include <norvaks/sort.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

// The first four bytes of a record are its key.
int compare_keys(const void *first, const void *second, void *) {
  uint32_t one, other;
  memcpy(&one, first, sizeof one);
  memcpy(&other, second, sizeof other);
  return (one > other) - (one < other);
}

using Keys = std::vector<uint32_t>;
using Shape = Keys (*)(size_t count, std::mt19937 &random);

Keys ascending(size_t count, std::mt19937 &) {
  Keys keys(count);
  std::iota(keys.begin(), keys.end(), 0);
  return keys;
}

Keys shuffled(size_t count, std::mt19937 &random) {
  Keys keys = ascending(count, random);
  std::shuffle(keys.begin(), keys.end(), random);
  return keys;
}

// Parted around the middle one already, and each half shuffled.
Keys parted(size_t count, std::mt19937 &random) {
  Keys keys = ascending(count, random);
  const auto mid = keys.begin() + static_cast<ptrdiff_t>(count / 2);
  std::shuffle(keys.begin(), mid, random);
  std::shuffle(mid + 1, keys.end(), random);
  return keys;
}

Keys sixteen_different(size_t count, std::mt19937 &random) {
  Keys keys = shuffled(count, random);
  for (uint32_t &key : keys) key %= 16;
  return keys;
}

std::vector<unsigned char> records_of(const Keys &keys, size_t size) {
  std::vector<unsigned char> records(keys.size() * size);
  for (size_t i = 0; i < keys.size(); ++i) memcpy(&records[i * size], &keys[i], sizeof keys[i]);
  return records;
}

// Sorts one array after the other, so many that the processor can't learn a small one by heart.
template <class Sort>
void run(benchmark::State &state, Shape shape, size_t count, size_t size, Sort &&sort) {
  std::mt19937 random(1);
  std::vector<std::vector<unsigned char>> arrays;
  for (size_t total = 0; total < 20000; total += count) {
    arrays.push_back(records_of(shape(count, random), size));
  }
  std::vector<unsigned char> work;
  size_t turn = 0;
  for (auto _ : state) {
    state.PauseTiming();
    work = arrays[turn++ % arrays.size()];
    state.ResumeTiming();
    sort(work.data(), count, size);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

struct Workload {
  const char *name;
  Shape shape;
  size_t count;
};

constexpr Workload kWorkloads[] = {
    {"random", shuffled, 100000},
    {"sorted", ascending, 100000},
    {"parted", parted, 2000},
    {"16 different keys", sixteen_different, 100000},
};

void register_benchmarks() {
  for (const Workload &workload : kWorkloads) {
    for (const size_t size : {8U, 13U, 64U}) {
      const std::string name = std::to_string(workload.count) + " records of " +
                               std::to_string(size) + " bytes, " + workload.name + "/";
      benchmark::RegisterBenchmark((name + "norvaks").c_str(), [=](benchmark::State &state) {
        run(state, workload.shape, workload.count, size, [](void *base, size_t n, size_t bytes) {
          ks_qsort(base, n, bytes, compare_keys, nullptr);
        });
      });
      benchmark::RegisterBenchmark((name + "qsort_r").c_str(), [=](benchmark::State &state) {
        run(state, workload.shape, workload.count, size, [](void *base, size_t n, size_t bytes) {
          qsort_r(base, n, bytes, compare_keys, nullptr);
        });
      });
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  register_benchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
