// Hash tables beside APR's and GLib's. All grow by themselves and copy text keys on entry, and all
// figures are of one key out of 100,000; keys are looked up in another order than they were entered
// in.
#include <apr_general.h>
#include <apr_hash.h>
#include <apr_pools.h>
#include <apr_strings.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>
#include <norvaks/hash.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kCount = 100000;
constexpr uint32_t kSizeHint = 16;  // where APR begins

template <class Key>
struct Keys {
  std::vector<Key> entered;  // in the order of entry
  std::vector<Key> present;  // the same in the order of look-up
  std::vector<Key> absent;
};

std::vector<uint32_t> different_numbers(size_t count) {
  std::mt19937 random(20240229);
  std::vector<uint32_t> numbers;
  while (numbers.size() < count) {
    while (numbers.size() < count) numbers.push_back(static_cast<uint32_t>(random() >> 1));
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  }
  std::shuffle(numbers.begin(), numbers.end(), random);
  return numbers;
}

// A path of about 40 bytes.
const char *path(uint32_t number) {
  const std::string name = "/project/source/" + std::to_string(number % 1000) + "/module-" +
                           std::to_string(number) + ".cc";
  return strdup(name.c_str());  // for the whole run
}

template <class Key, class Make>
Keys<Key> make_keys(Make make) {
  Keys<Key> keys;
  const std::vector<uint32_t> numbers = different_numbers(2 * kCount);
  for (uint32_t i = 0; i < kCount; ++i) {
    keys.entered.push_back(make(numbers[i]));
    keys.absent.push_back(make(numbers[kCount + i]));
  }
  keys.present = keys.entered;
  std::shuffle(keys.present.begin(), keys.present.end(), std::mt19937(7));
  return keys;
}

// The subjects: each makes a table, enters a key with a number as its value, looks a key up (0 for
// none), and adds up the values of a scan.

struct NorvaksTable {
  hash_ht_t table;
  void release() { hash_delete_ht(&table); }
};

uintptr_t &value_in(void *data) { return *static_cast<uintptr_t *>(data); }

struct NorvaksText : NorvaksTable {
  using Key = const char *;
  void make() {
    table = hash_str_create(kSizeHint, sizeof(uintptr_t), 1);
    hash_set_dynamic(table, 1);
  }
  void enter(Key key, uintptr_t value) {
    Key stored;
    void *data;
    hash_str_enter(table, key, &stored, &data);
    value_in(data) = value;
  }
  uintptr_t look_up(Key key) {
    Key stored;
    void *data;
    return hash_str_lookup(table, key, &stored, &data) != 0 ? value_in(data) : 0;
  }
  uintptr_t scan() {
    uintptr_t sum = 0;
    Key stored;
    void *data;
    hash_scan_t *scan = nullptr;
    while (hash_str_next(table, &scan, &stored, &data) != 0) {
      benchmark::DoNotOptimize(stored);
      sum += value_in(data);
    }
    return sum;
  }
};

struct NorvaksInteger : NorvaksTable {
  using Key = intptr_t;
  void make() {
    table = hash_int_create(kSizeHint, sizeof(uintptr_t));
    hash_set_dynamic(table, 1);
  }
  void enter(Key key, uintptr_t value) {
    Key *stored;
    void *data;
    hash_int_enter(table, key, &stored, &data);
    value_in(data) = value;
  }
  uintptr_t look_up(Key key) {
    Key *stored;
    void *data;
    return hash_int_lookup(table, key, &stored, &data) != 0 ? value_in(data) : 0;
  }
  uintptr_t scan() {
    uintptr_t sum = 0;
    Key *stored;
    void *data;
    hash_scan_t *scan = nullptr;
    while (hash_int_next(table, &scan, &stored, &data) != 0) {
      benchmark::DoNotOptimize(*stored);
      sum += value_in(data);
    }
    return sum;
  }
};

struct AprTable {
  apr_pool_t *pool;
  apr_hash_t *table;
  void make() {
    apr_pool_create(&pool, nullptr);
    table = apr_hash_make(pool);
  }
  void release() { apr_pool_destroy(pool); }
  uintptr_t scan() {
    uintptr_t sum = 0;
    for (apr_hash_index_t *at = apr_hash_first(nullptr, table); at; at = apr_hash_next(at)) {
      const void *stored;
      void *value;
      apr_hash_this(at, &stored, nullptr, &value);
      benchmark::DoNotOptimize(stored);
      sum += reinterpret_cast<uintptr_t>(value);
    }
    return sum;
  }
};

struct AprText : AprTable {
  using Key = const char *;
  void enter(Key key, uintptr_t value) {
    apr_hash_set(table, apr_pstrdup(pool, key), APR_HASH_KEY_STRING,
                 reinterpret_cast<void *>(value));
  }
  uintptr_t look_up(Key key) {
    return reinterpret_cast<uintptr_t>(apr_hash_get(table, key, APR_HASH_KEY_STRING));
  }
};

struct AprInteger : AprTable {
  using Key = intptr_t;
  void enter(const Key &key, uintptr_t value) {
    apr_hash_set(table, &key, sizeof key, reinterpret_cast<void *>(value));
  }
  uintptr_t look_up(const Key &key) {
    return reinterpret_cast<uintptr_t>(apr_hash_get(table, &key, sizeof key));
  }
};

struct GlibTable {
  GHashTable *table;
  void release() { g_hash_table_destroy(table); }
  uintptr_t scan() {
    uintptr_t sum = 0;
    GHashTableIter at;
    g_hash_table_iter_init(&at, table);
    gpointer stored;
    gpointer value;
    while (g_hash_table_iter_next(&at, &stored, &value)) {
      benchmark::DoNotOptimize(stored);
      sum += reinterpret_cast<uintptr_t>(value);
    }
    return sum;
  }
};

struct GlibText : GlibTable {
  using Key = const char *;
  void make() { table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr); }
  void enter(Key key, uintptr_t value) {
    g_hash_table_insert(table, g_strdup(key), reinterpret_cast<gpointer>(value));
  }
  uintptr_t look_up(Key key) {
    return reinterpret_cast<uintptr_t>(g_hash_table_lookup(table, key));
  }
};

struct GlibInteger : GlibTable {
  using Key = intptr_t;
  void make() { table = g_hash_table_new(g_direct_hash, g_direct_equal); }
  void enter(Key key, uintptr_t value) {
    g_hash_table_insert(table, reinterpret_cast<gpointer>(key), reinterpret_cast<gpointer>(value));
  }
  uintptr_t look_up(Key key) {
    return reinterpret_cast<uintptr_t>(
        g_hash_table_lookup(table, reinterpret_cast<gconstpointer>(key)));
  }
};

template <class Key>
const Keys<Key> &keys();

template <>
const Keys<const char *> &keys() {
  static const Keys<const char *> made = make_keys<const char *>(path);
  return made;
}

template <>
const Keys<intptr_t> &keys() {
  static const Keys<intptr_t> made =
      make_keys<intptr_t>([](uint32_t number) { return static_cast<intptr_t>(number); });
  return made;
}

template <class Subject>
void fill(Subject &subject) {
  subject.make();
  uintptr_t value = 0;
  for (const auto &key : keys<typename Subject::Key>().entered) subject.enter(key, ++value);
}

template <class Subject>
void enter(benchmark::State &state) {
  keys<typename Subject::Key>();
  while (state.KeepRunningBatch(kCount)) {
    Subject subject;
    fill(subject);
    state.PauseTiming();
    subject.release();
    state.ResumeTiming();
  }
}

constexpr uintptr_t kSum = uintptr_t{kCount} / 2 * (kCount + 1);

// `pass` goes once through all keys and returns the sum of the values.
template <class Subject, class Pass>
void passes(benchmark::State &state, uintptr_t expected, Pass pass) {
  Subject subject;
  fill(subject);
  while (state.KeepRunningBatch(kCount)) {
    if (pass(subject) != expected) state.SkipWithError("wrong sum");
  }
  subject.release();
}

template <class Subject>
uintptr_t look_up_all(Subject &subject, const std::vector<typename Subject::Key> &wanted) {
  uintptr_t sum = 0;
  for (const auto &key : wanted) sum += subject.look_up(key);
  return sum;
}

template <class Subject>
void look_up_present(benchmark::State &state) {
  passes<Subject>(state, kSum, [](Subject &subject) {
    return look_up_all(subject, keys<typename Subject::Key>().present);
  });
}

template <class Subject>
void look_up_absent(benchmark::State &state) {
  passes<Subject>(state, 0, [](Subject &subject) {
    return look_up_all(subject, keys<typename Subject::Key>().absent);
  });
}

template <class Subject>
void scan(benchmark::State &state) {
  passes<Subject>(state, kSum, [](Subject &subject) { return subject.scan(); });
}

template <class Subject>
void add(const std::string &kind, const std::string &name) {
  const auto add_one = [&](const char *what, void (*run)(benchmark::State &)) {
    benchmark::RegisterBenchmark((what + kind + "/" + name).c_str(), run);
  };
  add_one("hash: enter ", enter<Subject>);
  add_one("hash: look up present ", look_up_present<Subject>);
  add_one("hash: look up absent ", look_up_absent<Subject>);
  add_one("hash: scan ", scan<Subject>);
}

}  // namespace

int main(int argc, char **argv) {
  // What is released stays with the process, so that no subject pays for getting pages anew.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  apr_initialize();
  add<NorvaksText>("string keys", "norvaks");
  add<AprText>("string keys", "apr_hash");
  add<GlibText>("string keys", "GHashTable");
  add<NorvaksInteger>("integer keys", "norvaks");
  add<AprInteger>("integer keys", "apr_hash");
  add<GlibInteger>("integer keys", "GHashTable");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  apr_terminate();
}
