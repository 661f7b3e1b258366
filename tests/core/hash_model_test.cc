// The three families against a model of their order, under random calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "core/hash_internal.h"
#include "core/hash_support.h"
#include "hash.h"

using hash_test::below;
using hash_test::model_hash;

namespace {

constexpr uint32_t kPrimes[] = {1, 2, 3, 7, 17, 31, 61, 127, 257, 509, 1021, 2053};
constexpr uint32_t kKeys = 900;  // different ones

// What a table must do, in the simplest way. An entry is known by the number of its key.
class Model {
 public:
  Model(uint32_t buckets, std::vector<uint32_t> hashes)
      : buckets_(buckets), hashes_(std::move(hashes)) {}

  void set_limit(uint32_t limit) { limit_ = limit; }

  bool holds(uint32_t key) const { return data_.count(key) != 0; }
  uint32_t &data(uint32_t key) { return data_.at(key); }

  void enter(uint32_t key) {
    uint32_t left_over = 0;
    if (!freed_.empty()) {
      left_over = freed_.back();
      freed_.pop_back();
    }
    data_[key] = left_over;
    order_.push_back(key);
    buckets_[hashes_[key] % buckets_.size()].push_front(key);
    if (limit_ != 0 && data_.size() > limit_ * buckets_.size()) grow();
  }

  void take_out(uint32_t key) {
    freed_.push_back(data_.at(key));
    data_.erase(key);
    order_.remove(key);
    buckets_[hashes_[key] % buckets_.size()].remove(key);
  }

  size_t bucket_count() const { return buckets_.size(); }
  std::vector<uint32_t> in_order() const { return {order_.begin(), order_.end()}; }

  std::vector<uint32_t> by_buckets() const {
    std::vector<uint32_t> keys;
    for (const auto &chain : buckets_) keys.insert(keys.end(), chain.begin(), chain.end());
    return keys;
  }

 private:
  void grow() {
    const std::vector<uint32_t> keys = by_buckets();
    const size_t count = *std::find_if(std::begin(kPrimes), std::end(kPrimes),
                                       [&](uint32_t prime) { return prime > buckets_.size(); });
    buckets_.assign(count, {});
    for (const uint32_t key : keys) buckets_[hashes_[key] % count].push_front(key);
  }

  std::vector<std::list<uint32_t>> buckets_;
  std::vector<uint32_t> hashes_;  // by key
  std::list<uint32_t> order_;
  std::map<uint32_t, uint32_t> data_;
  std::vector<uint32_t> freed_;  // data of freed entries
  uint32_t limit_ = 0;
};

// A family: the keys by number, and its calls with the outputs as a number again.
struct Integers {
  using Stored = intptr_t *;
  std::vector<intptr_t> keys;
  explicit Integers(std::mt19937 &random) {
    while (keys.size() < kKeys) {
      const intptr_t key = static_cast<intptr_t>(below(4000, random)) - 2000;
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    }
  }
  hash_ht_t create(uint32_t size_hint) const { return hash_int_create(size_hint, 4); }
  uint32_t hash(uint32_t key) const {
    return static_cast<uint32_t>(keys[key] < 0 ? (keys[key] - 3) / 4 : keys[key] / 4);
  }
  bool is(Stored stored, uint32_t key) const { return *stored == keys[key]; }
  intptr_t operator[](uint32_t key) const { return keys[key]; }
  static constexpr auto enter = hash_int_enter;
  static constexpr auto look_up = hash_int_lookup;
  static constexpr auto take_out = hash_int_free;
  static constexpr auto next = hash_int_next;
  static constexpr auto next_in_order = hash_int_next_in_order;
};

std::vector<std::string> different_texts(std::mt19937 &random, uint32_t least, uint32_t most) {
  std::vector<std::string> texts;
  while (texts.size() < kKeys) {
    std::string text(least + below(most - least + 1, random), '\0');
    for (char &byte : text) byte = static_cast<char>(1 + below(255, random));
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(text);
  }
  return texts;
}

struct Texts {
  using Stored = const char *;
  std::vector<std::string> keys;
  explicit Texts(std::mt19937 &random) : keys(different_texts(random, 0, 12)) {}
  hash_ht_t create(uint32_t size_hint) const { return hash_str_create(size_hint, 4, 0); }
  uint32_t hash(uint32_t key) const { return model_hash(keys[key], true); }
  bool is(Stored stored, uint32_t key) const { return stored == keys[key]; }
  const char *operator[](uint32_t key) const { return keys[key].c_str(); }
  static constexpr auto enter = hash_str_enter;
  static constexpr auto look_up = hash_str_lookup;
  static constexpr auto take_out = hash_str_free;
  static constexpr auto next = hash_str_next;
  static constexpr auto next_in_order = hash_str_next_in_order;
};

struct Blocks {
  using Stored = const void *;
  std::vector<std::string> keys;
  explicit Blocks(std::mt19937 &random) : keys(different_texts(random, 5, 5)) {}
  hash_ht_t create(uint32_t size_hint) const { return hash_flen_create(size_hint, 4, 1, 5); }
  uint32_t hash(uint32_t key) const { return model_hash(keys[key], false); }
  bool is(Stored stored, uint32_t key) const { return memcmp(stored, keys[key].data(), 5) == 0; }
  const void *operator[](uint32_t key) const { return keys[key].data(); }
  static constexpr auto enter = hash_flen_enter;
  static constexpr auto look_up = hash_flen_lookup;
  static constexpr auto take_out = hash_flen_free;
  static constexpr auto next = hash_flen_next;
  static constexpr auto next_in_order = hash_flen_next_in_order;
};

uint32_t &value(void *data) { return *static_cast<uint32_t *>(data); }

template <class Family, class Next>
void expect_scan(const Family &family, hash_ht_t ht, Next next, Model &model,
                 const std::vector<uint32_t> &expected) {
  hash_scan_t *scan = nullptr;
  typename Family::Stored stored;
  void *data;
  for (const uint32_t key : expected) {
    ASSERT_EQ(next(ht, &scan, &stored, &data), 1);
    ASSERT_TRUE(family.is(stored, key));
    ASSERT_EQ(value(data), model.data(key));
  }
  ASSERT_EQ(next(ht, &scan, &stored, &data), 0);
}

template <class Family>
void expect_equal(const Family &family, hash_ht_t ht, bool ordered, Model &model) {
  ASSERT_EQ(ht->bucket_count, model.bucket_count());
  ASSERT_EQ(ht->cells, model.in_order().size());
  expect_scan(family, ht, Family::next, model, model.by_buckets());
  if (ordered) expect_scan(family, ht, Family::next_in_order, model, model.in_order());
}

// One random call on both sides.
template <class Family>
void step(const Family &family, std::mt19937 &random, hash_ht_t ht, Model &model) {
  const uint32_t key = below(kKeys, random);
  const bool held = model.holds(key);
  typename Family::Stored stored;
  void *data;
  switch (below(8, random)) {
    case 0:
    case 1:
      ASSERT_EQ(Family::look_up(ht, family[key], &stored, &data), held);
      if (held) {
        ASSERT_EQ(value(data), model.data(key));
      }
      break;
    case 2:
    case 3:
    case 4:
      ASSERT_EQ(Family::take_out(ht, family[key], &stored, &data), held);
      if (held) {
        ASSERT_EQ(value(data), model.data(key));
        model.take_out(key);
      }
      break;
    default:
      ASSERT_EQ(Family::enter(ht, family[key], &stored, &data), held);
      if (!held) model.enter(key);
      ASSERT_TRUE(family.is(stored, key));
      ASSERT_EQ(value(data), model.data(key));
      value(data) = model.data(key) = static_cast<uint32_t>(random());
  }
}

template <class Family>
void run(uint32_t seed, bool ordered) {
  SCOPED_TRACE(testing::Message() << "seed " << seed << (ordered ? ", ordered" : ""));
  std::mt19937 random(seed);
  const Family family(random);
  std::vector<uint32_t> hashes;
  for (uint32_t key = 0; key < kKeys; ++key) hashes.push_back(family.hash(key));
  const uint32_t buckets = kPrimes[below(6, random)];
  Model model(buckets, hashes);
  hash_ht_t ht = family.create(buckets);
  if (ordered) hash_set_order(ht);
  for (int i = 0; i < 8000 && !testing::Test::HasFatalFailure(); ++i) {
    if (i % 2000 == 500) {
      const uint32_t limit = below(4, random);
      hash_set_dynamic(ht, limit);
      model.set_limit(limit);
    }
    step(family, random, ht, model);
    if (i % 50 == 0) expect_equal(family, ht, ordered, model);
  }
  hash_delete_ht(&ht);
}

template <class Family>
void run_all() {
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    run<Family>(seed, false);
    run<Family>(seed, true);
  }
}

TEST(HashModel, IntegerKeysBehaveAlike) { run_all<Integers>(); }

TEST(HashModel, TextKeysBehaveAlike) { run_all<Texts>(); }

TEST(HashModel, KeysOfFixedLengthBehaveAlike) { run_all<Blocks>(); }

}  // namespace
