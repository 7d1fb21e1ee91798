// Watch lists against a model, walks that change their list, no system allocation when steady.
#include "impl/var_watchers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <vector>

static long g_new_calls = 0;

// Out of line, so that the compiler does not pair the inlined free() with new.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++g_new_calls;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace zelk {
namespace {

// Random watches, releases and nested walk guards; the object moves now and then, as in the solver.
template <class W>
void compare_with_model(int key_count, bool at_back) {
  std::mt19937 rng(key_count);
  std::vector<W> owner(1);
  std::vector<int> keys;  // the model: the keys in order, and each list front to back
  std::map<int, std::list<std::pair<watch_handle_t, unsigned int>>> lists;
  std::optional<typename W::for_each_cleaner> outer, inner;
  const auto drop_empty_keys = [&] {  // from the last to the first, the last moving into place
    for (std::size_t k = keys.size(); k-- > 0;)
      if (lists[keys[k]].empty()) keys[k] = keys.back(), keys.pop_back();
  };
  for (int step = 0; step < 30000; ++step) {
    W& watchers = owner[0];
    const int key = int(rng() % unsigned(key_count)), op = int(rng() % 20), c = int(rng() % 8);
    auto& list = lists[key];
    if (op < 9) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
      list.emplace(at_back ? list.end() : list.begin(), watchers.allocate_watch(key, unsigned(c)), c);
    } else if (op < 15 && !list.empty()) {
      auto it = std::next(list.begin(), std::ptrdiff_t(rng() % list.size()));
      watchers.deallocate_watch(key, it->first);
      list.erase(it);
      if (!outer) drop_empty_keys();
    } else if (op == 15) {
      const unsigned int m = 2 + rng() % 4, r = rng() % m;
      watchers.deallocate_watches([&](const auto& w) { return w.constraint % m == r; });
      for (auto& [k, l] : lists) l.remove_if([&](const auto& w) { return w.second % m == r; });
      if (!outer) drop_empty_keys();
    } else if (op == 16) {  // a null handle, or a key without entry
      EXPECT_THROW(watchers.deallocate_watch(rng() % 2 ? key : key_count, watch_handle_t()),
                   std::out_of_range);
    } else if (op == 17) {
      (outer ? inner : outer).emplace(watchers);  // the inner guard is passive
    } else if (op == 18 && (inner || outer)) {
      if (!inner) drop_empty_keys();
      (inner ? inner : outer).reset();
    } else if (op == 19 && !outer && rng() % 8 == 0) {
      owner.push_back(std::move(owner[0]));  // moves the watcher object, twice
      owner.erase(owner.begin());
    }
    SCOPED_TRACE("step " + std::to_string(step));
    ASSERT_TRUE(owner[0].iterating() == bool(outer) && owner[0].num_keys() == keys.size());
    std::size_t count = 0;
    for (std::size_t k = 0; k < keys.size(); ++k) {  // each handle is the node at its place
      const auto& actual = owner[0].key_at(k).watchers;
      ASSERT_TRUE(owner[0].key_at(k).key == keys[k] && actual.size() == lists[keys[k]].size());
      auto it = actual.begin();
      for (const auto& [handle, c] : lists[keys[k]])
        ASSERT_TRUE(handle.position() == it && it++->constraint == c) << "key " << keys[k];
      count += actual.size();
    }
    ASSERT_EQ(owner[0].count_all_watches(), count);
  }
}

TEST(var_watchers, random_watches_releases_and_guards_match_a_model) {
  compare_with_model<var_value_watchers>(32, true);
  compare_with_model<var_event_watchers>(4, false);
}

// A walk as the propagation loop's: from the back, the next position taken before the activation.
TEST(var_watchers, walk_survives_changes_of_the_walked_list) {
  var_value_watchers values;
  std::vector<watch_handle_t> handle(6);
  for (unsigned int c = 1; c <= 5; ++c) handle[c] = values.allocate_watch(8, c);
  std::vector<unsigned int> seen, left;
  var_value_watchers::for_each_cleaner guard(values);
  auto it = std::prev(values.key_at(0).watchers.end());
  for (bool last = false; !last;) {
    last = it == values.key_at(0).watchers.begin();
    const auto next = last ? it : std::prev(it);
    const unsigned int c = it->constraint;
    seen.push_back(c);
    if (c != 2 && c != 5) values.deallocate_watch(8, handle[c]);  // its own watch or others'
    if (c == 3) (void)values.allocate_watch(8, 6);  // at the back, behind the walk
    for (int v = 20; c == 3 && v < 30; ++v) (void)values.allocate_watch(v, 3);
    it = next;
  }
  for (const auto& w : values.find_key_watchers(8)->watchers) left.push_back(w.constraint);
  EXPECT_EQ(seen, (std::vector<unsigned int>{5, 4, 3, 2, 1}));
  EXPECT_EQ(left, (std::vector<unsigned int>{2, 5, 6}));
}

TEST(var_watchers, steady_state_never_calls_the_system_allocator) {
  std::vector<var_value_watchers> values(3);
  std::vector<var_event_watchers> events(3);
  std::mt19937 rng(9);
  long calls = 0;
  for (int round = 0; round < 200; ++round) {
    if (round == 100) calls = g_new_calls;  // by now the pool and every key vector have their size
    for (unsigned int i = 0; i < 300; ++i)
      (void)(rng() % 2 ? values[i % 3].allocate_watch(int(rng() % 32), i)
                       : events[i % 3].allocate_watch(int(rng() % 4), i));
    for (auto& w : values) w.deallocate_watches(var_value_watchers::cond_always_true());
    for (auto& w : events) w.deallocate_watches(var_event_watchers::cond_always_true());
  }
  EXPECT_EQ(g_new_calls, calls);
}

}  // namespace
}  // namespace zelk
