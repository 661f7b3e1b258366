// Dates written as ISO tokens, against localtime and strftime, in a zone from TZ and in the system's.
#include <benchmark/benchmark.h>
#include <norvaks/date.h>

#include <cstdlib>
#include <ctime>

namespace {

constexpr const char *kZone = "Asia/Kolkata";
constexpr time_t kFirst = 1142418030;  // 2006-03-15T10:20:30Z

// A moment of its own for each turn, over some months.
class Moments {
 public:
  time_t next() { return kFirst + (step_++ % 1000) * 9973; }

 private:
  time_t step_ = 0;
};

void use_zone(const char *zone) {
  if (zone != nullptr) {
    setenv("TZ", zone, 1);
  } else {
    unsetenv("TZ");
  }
}

void token(benchmark::State &state, const char *zone) {
  use_zone(zone);
  Moments moments;
  for (auto _ : state) {
    char *text = date_fmt_token_general(static_cast<int32_t>(moments.next()), DATE_KIND_DATE_TIME,
                                        DATE_STYLE_ISO, 0, 0);
    benchmark::DoNotOptimize(text);
    free(text);
  }
}

void with_strftime(benchmark::State &state, const char *zone) {
  use_zone(zone);
  Moments moments;
  char text[64];
  for (auto _ : state) {
    const time_t moment = moments.next();
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", localtime(&moment));
    benchmark::DoNotOptimize(text);
  }
}

BENCHMARK_CAPTURE(token, zone, kZone)->Name("write an ISO date, TZ set/norvaks");
BENCHMARK_CAPTURE(with_strftime, zone, kZone)
    ->Name("write an ISO date, TZ set/localtime and strftime");
BENCHMARK_CAPTURE(token, no_zone, nullptr)->Name("write an ISO date, TZ not set/norvaks");
BENCHMARK_CAPTURE(with_strftime, no_zone, nullptr)
    ->Name("write an ISO date, TZ not set/localtime and strftime");

}  // namespace

BENCHMARK_MAIN();
