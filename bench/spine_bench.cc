// The spine beside libc. A name is "<workload>/<subject>"; the subject "norvaks" is held against
// the others of the same workload (bench/bars.tsv). What is printed goes to stdout, which is a
// file.
#include <benchmark/benchmark.h>
#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>

#include "bench_msg.h"

namespace {

void empty_stdout(const benchmark::State &) {
  fflush(stdout);
  if (ftruncate(STDOUT_FILENO, 0) != 0) perror("ftruncate");
  lseek(STDOUT_FILENO, 0, SEEK_SET);
}

// The same text under a name for which there is no catalog.
const imsg_table_t kNoCatalog = {
    "none", "bench", 1, 1, bench_msg_table->texts, bench_msg_table->catnums};

void print(benchmark::State &state, const imsg_table_t *table) {
  for (auto _ : state) {
    imsg_print(IMSG_TYPE_OK, table, BENCH_MSG_TWO_ARGUMENTS, "name.txt", 42);
  }
}

void print_without_catalog(benchmark::State &state) {
  print(state, &kNoCatalog);
}
void print_with_catalog(benchmark::State &state) {
  print(state, bench_msg_table);
}

void print_libc(benchmark::State &state) {
  for (auto _ : state) {
    fprintf(stdout, "Unable to open the file \"%s\" for reading: error %d.\n", "name.txt", 42);
    fflush(stdout);
  }
}

void frame(benchmark::State &state) {
  for (auto _ : state) {
    pfm_cleanup_rec_t rec;
    if (PFM_CLEANUP_START(&rec, 0) != 0) break;
    pfm_cleanup_rls(&rec);
  }
}

void frame_libc(benchmark::State &state) {
  for (auto _ : state) {
    sigjmp_buf env;
    if (sigsetjmp(env, 1) != 0) break;
    benchmark::DoNotOptimize(env);
  }
}

void inhibit(benchmark::State &state) {
  for (auto _ : state) {
    pfm_inhibit();
    pfm_enable();
  }
}

}  // namespace

BENCHMARK(print_without_catalog)->Name("print, no catalog/norvaks")->Setup(empty_stdout);
BENCHMARK(print_libc)->Name("print, no catalog/fprintf and fflush")->Setup(empty_stdout);
BENCHMARK(print_with_catalog)->Name("print, catalog/norvaks")->Setup(empty_stdout);
BENCHMARK(print_libc)->Name("print, catalog/fprintf and fflush")->Setup(empty_stdout);
BENCHMARK(frame)->Name("arm and release a record/norvaks");
BENCHMARK(frame_libc)->Name("arm and release a record/sigsetjmp(env, 1)");
BENCHMARK(inhibit)->Name("inhibit and enable/norvaks");

BENCHMARK_MAIN();
