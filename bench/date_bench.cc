// Dates read from text, in a zone from TZ and in the system's: ISO texts against GLib, those of the
// older language against strptime and mktime, which get the date itself for a word.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <norvaks/date.h>

#include <cstdlib>
#include <ctime>

namespace {

constexpr const char *kZone = "Asia/Kolkata";

void use_zone(const char *zone) {
  if (zone != nullptr) {
    setenv("TZ", zone, 1);
  } else {
    unsetenv("TZ");
  }
}

void read(benchmark::State &state, const char *zone, const char *text) {
  use_zone(zone);
  for (auto _ : state) {
    int32_t time = 0;
    benchmark::DoNotOptimize(text);
    if (date_str_to_time2(text, DATE_TO_PAST, &time) != 0) return state.SkipWithError("refused");
    benchmark::DoNotOptimize(time);
  }
}

void read_with_strptime(benchmark::State &state, const char *zone, const char *text,
                        const char *format) {
  use_zone(zone);
  for (auto _ : state) {
    struct tm fields = {};
    fields.tm_isdst = -1;
    benchmark::DoNotOptimize(text);
    if (strptime(text, format, &fields) == nullptr) return state.SkipWithError("refused");
    benchmark::DoNotOptimize(mktime(&fields));
  }
}

// The zone is asked for with each date, as the library does, which sees a TZ that changes.
void read_with_glib(benchmark::State &state, const char *zone, const char *text) {
  use_zone(zone);
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    GTimeZone *const local = g_time_zone_new_local();
    GDateTime *const date = g_date_time_new_from_iso8601(text, local);
    if (date == nullptr) return state.SkipWithError("refused");
    benchmark::DoNotOptimize(g_date_time_to_unix(date));
    g_date_time_unref(date);
    g_time_zone_unref(local);
  }
}

#define READ(name, text, peer, peer_name, ...)                                                 \
  BENCHMARK_CAPTURE(read, name, kZone, text)->Name("read " text ", TZ set/norvaks");           \
  BENCHMARK_CAPTURE(peer, name, kZone, __VA_ARGS__)->Name("read " text ", TZ set/" peer_name); \
  BENCHMARK_CAPTURE(read, name##_anywhere, nullptr, text)                                      \
      ->Name("read " text ", TZ not set/norvaks");                                             \
  BENCHMARK_CAPTURE(peer, name##_anywhere, nullptr, __VA_ARGS__)                               \
      ->Name("read " text ", TZ not set/" peer_name)

READ(day_and_time, "24-NOV-2026.10:00", read_with_strptime, "strptime and mktime",
     "24-NOV-2026.10:00", "%d-%b-%Y.%H:%M");
READ(word, "yesterday", read_with_strptime, "strptime and mktime", "23-NOV-2026", "%d-%b-%Y");
READ(zoned, "20261124T101500Z", read_with_glib, "GLib", "20261124T101500Z");
READ(no_year, "--11-24T10:15", read_with_glib, "GLib", "2026-11-24T10:15:00");

}  // namespace

BENCHMARK_MAIN();
