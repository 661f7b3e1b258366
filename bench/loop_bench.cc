// The event loop beside libevent and libuv.
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <norvaks/rt.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <uv.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

constexpr int kTimers = 100000;      // armed at ascending times, spread over kSpread, and fired
constexpr int kOutstanding = 10000;  // cancelled and armed again in turn
constexpr long kSpreadMs = 10;
constexpr unsigned kTimeoutSeconds = 300;
constexpr int kIdle = 500;  // descriptors that never get ready
constexpr int kTrips = 1000;

void check(bool ok, const char *what) {
  if (ok) return;
  perror(what);
  abort();
}

// Until the last timer is due. Sleeping takes no processor time.
void sleep_until_due() {
  const timespec spread = {0, (kSpreadMs + 1) * 1000000};
  nanosleep(&spread, nullptr);
}

timeval spread_timeout(int timer) {
  return {0, static_cast<suseconds_t>(timer * kSpreadMs * 1000 / kTimers)};
}

event_base *new_base(const char *avoided_methods = "", int flags = 0) {
  event_config *config = event_config_new();
  for (const char *method : {"epoll", "poll"}) {
    if (*avoided_methods != '\0') event_config_avoid_method(config, method);
  }
  event_config_set_flag(config, flags);
  event_base *base = event_base_new_with_config(config);
  event_config_free(config);
  check(base != nullptr, "event_base_new_with_config");
  return base;
}

int fired = 0;

void count_last(void *) {
  if (++fired == kTimers) rt_shutdown();
}

void timers(benchmark::State &state) {
  for (auto _ : state) {
    fired = 0;
    for (int i = 0; i < kTimers; ++i) {
      const timeval timeout = spread_timeout(i);
      rt_sched_rel(count_last, nullptr, &timeout);
    }
    sleep_until_due();
    rt_run();
  }
}

void timers_libevent(benchmark::State &state) {
  event_base *base = new_base();
  std::vector<event> events(kTimers);
  for (event &each : events)
    event_assign(
        &each, base, -1, 0, [](int, short, void *) { ++fired; }, nullptr);
  for (auto _ : state) {
    fired = 0;
    for (int i = 0; i < kTimers; ++i) {
      const timeval timeout = spread_timeout(i);
      event_add(&events[static_cast<size_t>(i)], &timeout);
    }
    sleep_until_due();
    event_base_dispatch(base);
    if (fired != kTimers) state.SkipWithError("timers left");
  }
  event_base_free(base);
}

void timers_libuv(benchmark::State &state) {
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_timer_t> handles(kTimers);
  for (uv_timer_t &each : handles) uv_timer_init(&loop, &each);
  for (auto _ : state) {
    fired = 0;
    uv_update_time(&loop);
    for (int i = 0; i < kTimers; ++i) {
      uv_timer_start(
          &handles[static_cast<size_t>(i)], [](uv_timer_t *) { ++fired; },
          static_cast<uint64_t>(i) * kSpreadMs / kTimers, 0);
    }
    sleep_until_due();
    uv_run(&loop, UV_RUN_DEFAULT);
    if (fired != kTimers) state.SkipWithError("timers left");
  }
  uv_loop_close(&loop);
}

void nothing(void *) {}

void rearm(benchmark::State &state) {
  std::vector<rt_event *> events(kOutstanding);
  for (rt_event *&each : events) each = rt_sched(nothing, nullptr, kTimeoutSeconds);
  size_t at = 0;
  for (auto _ : state) {
    rt_unsched(events[at]);
    events[at] = rt_sched(nothing, nullptr, kTimeoutSeconds);
    if (++at == kOutstanding) at = 0;
  }
  for (rt_event *each : events) rt_unsched(each);
}

void rearm_libevent(benchmark::State &state, int flags) {
  event_base *base = new_base("", flags);
  std::vector<event> events(kOutstanding);
  const timeval timeout = {kTimeoutSeconds, 0};
  for (event &each : events) {
    event_assign(
        &each, base, -1, 0, [](int, short, void *) {}, nullptr);
    event_add(&each, &timeout);
  }
  size_t at = 0;
  for (auto _ : state) {
    event_del(&events[at]);
    event_add(&events[at], &timeout);
    if (++at == kOutstanding) at = 0;
  }
  for (event &each : events) event_del(&each);
  event_base_free(base);
}

void rearm_libevent_coarse(benchmark::State &state) { rearm_libevent(state, 0); }
void rearm_libevent_precise(benchmark::State &state) {
  rearm_libevent(state, EVENT_BASE_FLAG_PRECISE_TIMER);
}

void rearm_libuv(benchmark::State &state) {
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_timer_t> handles(kOutstanding);
  const auto idle = [](uv_timer_t *) {};
  for (uv_timer_t &each : handles) {
    uv_timer_init(&loop, &each);
    uv_timer_start(&each, idle, kTimeoutSeconds * 1000, 0);
  }
  size_t at = 0;
  for (auto _ : state) {
    uv_timer_stop(&handles[at]);
    uv_timer_start(&handles[at], idle, kTimeoutSeconds * 1000, 0);
    if (++at == kOutstanding) at = 0;
  }
  for (uv_timer_t &each : handles) uv_timer_stop(&each);
  uv_run(&loop, UV_RUN_NOWAIT);
  uv_loop_close(&loop);
}

// A pair of sockets and a byte that the handler of one end takes and sends back into the other, and
// descriptors that stay silent.
struct Table {
  int ends[2];
  int idle[kIdle];
  int idle_count;
  int trips;

  explicit Table(int count) : idle_count(count), trips(0) {
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair");
    for (int i = 0; i < idle_count; ++i) check((idle[i] = eventfd(0, EFD_CLOEXEC)) >= 0, "eventfd");
  }
  ~Table() {
    for (int i = 0; i < idle_count; ++i) close(idle[i]);
    for (int end : ends) close(end);
  }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  void serve() { check(write(ends[1], "x", 1) == 1, "write"); }

  // Result: whether all trips are done.
  bool play() {
    char byte;
    check(read(ends[0], &byte, 1) == 1, "read");
    if (++trips % kTrips == 0) return true;
    serve();
    return false;
  }
};

void ignore_fd(int, void *) {}

void play(int, void *table) {
  if (static_cast<Table *>(table)->play()) rt_shutdown();
}

void ping_pong(benchmark::State &state) {
  Table table(static_cast<int>(state.range(0)));
  for (int i = 0; i < table.idle_count; ++i)
    rt_handle_fd(RT_FD_READ, ignore_fd, table.idle[i], nullptr);
  rt_handle_fd(RT_FD_READ, play, table.ends[0], &table);
  for (auto _ : state) {
    table.serve();
    rt_run();
  }
  rt_unhandle_fd(RT_FD_READ, table.ends[0]);
  for (int i = 0; i < table.idle_count; ++i) rt_unhandle_fd(RT_FD_READ, table.idle[i]);
}

struct LibeventTable {
  Table *table;
  event_base *base;
};

void ping_pong_libevent(benchmark::State &state) {
  Table table(static_cast<int>(state.range(0)));
  LibeventTable with_base = {&table, new_base("epoll poll")};
  std::vector<event *> events;
  for (int i = 0; i < table.idle_count; ++i) {
    events.push_back(event_new(
        with_base.base, table.idle[i], EV_READ | EV_PERSIST, [](int, short, void *) {}, nullptr));
  }
  events.push_back(event_new(
      with_base.base, table.ends[0], EV_READ | EV_PERSIST,
      [](int, short, void *arg) {
        auto *served = static_cast<LibeventTable *>(arg);
        if (served->table->play()) event_base_loopbreak(served->base);
      },
      &with_base));
  for (event *each : events) event_add(each, nullptr);
  for (auto _ : state) {
    table.serve();
    event_base_dispatch(with_base.base);
  }
  for (event *each : events) event_free(each);
  event_base_free(with_base.base);
}

void ping_pong_libuv(benchmark::State &state) {
  Table table(static_cast<int>(state.range(0)));
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_poll_t> polls(static_cast<size_t>(table.idle_count) + 1);
  for (int i = 0; i < table.idle_count; ++i) {
    uv_poll_init(&loop, &polls[static_cast<size_t>(i)], table.idle[i]);
    uv_poll_start(&polls[static_cast<size_t>(i)], UV_READABLE, [](uv_poll_t *, int, int) {});
  }
  uv_poll_init(&loop, &polls.back(), table.ends[0]);
  polls.back().data = &table;
  uv_poll_start(&polls.back(), UV_READABLE, [](uv_poll_t *poll, int, int) {
    if (static_cast<Table *>(poll->data)->play()) uv_stop(poll->loop);
  });
  for (auto _ : state) {
    table.serve();
    uv_run(&loop, UV_RUN_DEFAULT);
  }
  for (uv_poll_t &each : polls) uv_close(reinterpret_cast<uv_handle_t *>(&each), nullptr);
  uv_run(&loop, UV_RUN_DEFAULT);
  uv_loop_close(&loop);
}

void reaped(pid_t, int status, void *, rt_proc_t *) {
  check(status == 0, "/bin/true");
  rt_shutdown();
}

void child(benchmark::State &state) {
  // Takes SIGCHLD back from the other library, which leaves it at its default.
  pfm_signal(SIGCHLD, SIG_DFL);
  check(rt_proc_initialize() == 0, "rt_proc_initialize");
  for (auto _ : state) {
    if (rt_proc_fork(reaped, nullptr) == 0) {
      execl("/bin/true", "true", nullptr);
      _exit(127);
    }
    rt_run();
  }
}

void child_libuv(benchmark::State &state) {
  uv_loop_t loop;
  uv_loop_init(&loop);
  char name[] = "/bin/true";
  char *arguments[] = {name, nullptr};
  uv_process_options_t options = {};
  options.file = name;
  options.args = arguments;
  options.exit_cb = [](uv_process_t *process, int64_t status, int) {
    check(status == 0, "/bin/true");
    uv_close(reinterpret_cast<uv_handle_t *>(process), nullptr);
  };
  for (auto _ : state) {
    uv_process_t process;
    check(uv_spawn(&loop, &process, &options) == 0, "uv_spawn");
    uv_run(&loop, UV_RUN_DEFAULT);
  }
  uv_loop_close(&loop);
}

}  // namespace

BENCHMARK(timers)->Name("arm and fire 100000 timers/norvaks");
BENCHMARK(timers_libevent)->Name("arm and fire 100000 timers/libevent");
BENCHMARK(timers_libuv)->Name("arm and fire 100000 timers/libuv");
BENCHMARK(rearm)->Name("cancel and re-arm a timer/norvaks");
BENCHMARK(rearm_libevent_coarse)->Name("cancel and re-arm a timer/libevent");
BENCHMARK(rearm_libevent_precise)->Name("cancel and re-arm a timer/libevent, microseconds");
BENCHMARK(rearm_libuv)->Name("cancel and re-arm a timer/libuv");
BENCHMARK(ping_pong)->Name("ping-pong, 1 descriptor/norvaks")->Arg(0);
BENCHMARK(ping_pong_libevent)->Name("ping-pong, 1 descriptor/libevent, select")->Arg(0);
BENCHMARK(ping_pong_libuv)->Name("ping-pong, 1 descriptor/libuv")->Arg(0);
BENCHMARK(ping_pong)->Name("ping-pong, 500 idle/norvaks")->Arg(kIdle);
BENCHMARK(ping_pong_libevent)->Name("ping-pong, 500 idle/libevent, select")->Arg(kIdle);
BENCHMARK(child)->Name("a child/norvaks")->UseRealTime()->Iterations(500);
BENCHMARK(child_libuv)->Name("a child/libuv")->UseRealTime()->Iterations(500);

BENCHMARK_MAIN();
