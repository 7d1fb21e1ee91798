// Watch lists: order of watchers, handles that survive other keys coming and
// going, walks that change the list they walk, deferred removal of emptied keys,
// release by predicate, the error for unknown watches, and a steady state that
// never reaches the system allocator.
//
// The global operator new is replaced in this binary to count its calls.
#include "impl/var_watchers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "impl/watch_types.h"

namespace {
long g_new_calls = 0;
}

// Out of line, so that the compiler does not pair the inlined free() with new.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++g_new_calls;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  ++g_new_calls;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace zelk {
namespace {

// The constraints of one key's list, front to back.
template <class W>
std::vector<unsigned int> constraints_of(const W& watchers, int key) {
  std::vector<unsigned int> result;
  if (const var_watchers_base::key_watchers* kw = watchers.find_key_watchers(key))
    for (const var_watchers_base::watcher_info_type& w : kw->watchers) result.push_back(w.constraint);
  return result;
}

// A walk as the propagation loop does it: under a guard, from the back of the list,
// through the key index rather than a kept pointer, and taking the next position
// before the activation, which may release the present watcher or allocate others.
template <class W>
void walk(W& watchers, int key, const std::function<void(unsigned int)>& activate) {
  typename W::for_each_cleaner guard(watchers);
  std::size_t k = 0;
  while (k < watchers.num_keys() && watchers.key_at(k).key != key) ++k;
  if (k == watchers.num_keys() || watchers.key_at(k).watchers.empty()) return;
  auto it = std::prev(watchers.key_at(k).watchers.end());
  for (;;) {
    const bool last = it == watchers.key_at(k).watchers.begin();
    const auto next = last ? it : std::prev(it);
    activate(it->constraint);
    if (last) break;
    it = next;
  }
}

TEST(var_watchers, insertion_side_sets_the_walk_order) {
  var_event_watchers events;
  var_value_watchers values;
  for (unsigned int c = 1; c <= 3; ++c) {
    (void)events.allocate_watch(watch_types::LOWER_BOUND_WATCH, c);
    (void)values.allocate_watch(17, c);
  }
  // Walks go from the back: event watchers oldest first, value watchers newest first.
  EXPECT_EQ(constraints_of(events, watch_types::LOWER_BOUND_WATCH), (std::vector<unsigned int>{3, 2, 1}));
  EXPECT_EQ(constraints_of(values, 17), (std::vector<unsigned int>{1, 2, 3}));
  std::vector<unsigned int> seen;
  walk(events, watch_types::LOWER_BOUND_WATCH, [&](unsigned int c) { seen.push_back(c); });
  walk(values, 17, [&](unsigned int c) { seen.push_back(c); });
  EXPECT_EQ(seen, (std::vector<unsigned int>{1, 2, 3, 3, 2, 1}));
  EXPECT_EQ(events.count_all_watches(), 3u);
  EXPECT_TRUE(values.watches(17));
  EXPECT_FALSE(values.watches(16));
  EXPECT_TRUE(values.is_key_watched_by_constraint(17, 2));
  EXPECT_FALSE(values.is_key_watched_by_constraint(17, 4));
  EXPECT_FALSE(values.is_key_watched_by_constraint(3, 2));
}

TEST(var_watchers, same_constraint_twice_gets_two_handles) {
  var_value_watchers values;
  const watch_handle_t h1 = values.allocate_watch(4, 9);
  const watch_handle_t h2 = values.allocate_watch(4, 9);
  EXPECT_NE(h1, h2);
  EXPECT_EQ(values.count_all_watches(), 2u);
  int calls = 0;
  walk(values, 4, [&](unsigned int c) { calls += c == 9; });
  EXPECT_EQ(calls, 2);
  values.deallocate_watch(4, h1);
  EXPECT_TRUE(values.is_key_watched_by_constraint(4, 9));
  values.deallocate_watch(4, h2);
  EXPECT_FALSE(values.watches(4));
  EXPECT_TRUE(values.empty());
}

TEST(var_watchers, handles_survive_removal_of_other_keys) {
  var_event_watchers events;
  const watch_handle_t mod = events.allocate_watch(watch_types::MODIFICATION_WATCH, 1);
  const watch_handle_t fin = events.allocate_watch(watch_types::FINALIZATION_WATCH, 2);
  const watch_handle_t low = events.allocate_watch(watch_types::LOWER_BOUND_WATCH, 3);
  const watch_handle_t up = events.allocate_watch(watch_types::UPPER_BOUND_WATCH, 4);
  // Removing the first key moves the last entry into its place.
  events.deallocate_watch(watch_types::MODIFICATION_WATCH, mod);
  EXPECT_FALSE(events.watches(watch_types::MODIFICATION_WATCH));
  EXPECT_EQ(events.num_keys(), 3u);
  EXPECT_EQ(events.key_at(0).key, watch_types::UPPER_BOUND_WATCH);
  EXPECT_EQ(up.position()->constraint, 4u);
  EXPECT_EQ(constraints_of(events, watch_types::UPPER_BOUND_WATCH), std::vector<unsigned int>{4});
  // The moved list still owns its node: a new watcher links to it, and the old
  // handle releases it.
  (void)events.allocate_watch(watch_types::UPPER_BOUND_WATCH, 5);
  events.deallocate_watch(watch_types::UPPER_BOUND_WATCH, up);
  EXPECT_EQ(constraints_of(events, watch_types::UPPER_BOUND_WATCH), std::vector<unsigned int>{5});
  events.deallocate_watch(watch_types::FINALIZATION_WATCH, fin);
  events.deallocate_watch(watch_types::LOWER_BOUND_WATCH, low);
  EXPECT_EQ(events.count_all_watches(), 1u);
  EXPECT_EQ(events.num_keys(), 1u);
}

TEST(var_watchers, handles_survive_moves_of_the_watcher_objects) {
  // The solver keeps one watcher object per variable in a vector that grows.
  std::vector<var_value_watchers> variables(1);
  std::vector<watch_handle_t> handles;
  for (int v = 0; v < 10; ++v) handles.push_back(variables[0].allocate_watch(v, unsigned(v)));
  for (int i = 0; i < 100; ++i) variables.emplace_back();
  for (int v = 0; v < 10; ++v) {
    EXPECT_EQ(handles[v].position()->constraint, unsigned(v));
    variables[0].deallocate_watch(v, handles[v]);
  }
  EXPECT_TRUE(variables[0].empty());
  EXPECT_EQ(variables[0].num_keys(), 0u);
}

TEST(var_watchers, walk_survives_release_and_allocation_on_the_walked_list) {
  var_value_watchers values;
  std::vector<watch_handle_t> handle(6);
  for (unsigned int c = 1; c <= 5; ++c) handle[c] = values.allocate_watch(8, c);
  ASSERT_EQ(values.num_keys(), 1u);
  std::vector<unsigned int> seen;
  walk(values, 8, [&](unsigned int c) {
    seen.push_back(c);
    if (c == 4 || c == 1) values.deallocate_watch(8, handle[c]);  // a watch moving away
    if (c == 3) {
      values.deallocate_watch(8, handle[c]);
      (void)values.allocate_watch(8, 6);  // at the back, behind the walk
      // New keys grow the vector under the walk.
      for (int v = 20; v < 30; ++v) (void)values.allocate_watch(v, 3);
    }
  });
  EXPECT_EQ(seen, (std::vector<unsigned int>{5, 4, 3, 2, 1}));
  EXPECT_EQ(constraints_of(values, 8), (std::vector<unsigned int>{2, 5, 6}));
  EXPECT_EQ(values.count_all_watches(), 13u);

  // Event watchers insert at the front, that is, ahead of the walk.
  var_event_watchers events;
  const watch_handle_t first = events.allocate_watch(watch_types::MODIFICATION_WATCH, 1);
  (void)events.allocate_watch(watch_types::MODIFICATION_WATCH, 2);
  seen.clear();
  walk(events, watch_types::MODIFICATION_WATCH, [&](unsigned int c) {
    seen.push_back(c);
    if (c == 1) {
      events.deallocate_watch(watch_types::MODIFICATION_WATCH, first);
      (void)events.allocate_watch(watch_types::MODIFICATION_WATCH, 7);
      (void)events.allocate_watch(watch_types::UPPER_BOUND_WATCH, 1);
    }
  });
  EXPECT_EQ(seen.front(), 1u);
  EXPECT_EQ(seen.at(1), 2u);
  EXPECT_EQ(constraints_of(events, watch_types::MODIFICATION_WATCH), (std::vector<unsigned int>{7, 2}));
  EXPECT_EQ(events.count_all_watches(), 3u);
}

TEST(var_watchers, emptied_key_stays_until_the_outermost_walk_ends) {
  var_value_watchers values;
  const watch_handle_t a = values.allocate_watch(2, 1);
  const watch_handle_t b = values.allocate_watch(5, 1);
  const watch_handle_t c = values.allocate_watch(9, 1);
  // Outside a walk the key goes at once.
  values.deallocate_watch(2, a);
  EXPECT_FALSE(values.watches(2));
  EXPECT_EQ(values.num_keys(), 2u);
  {
    var_value_watchers::for_each_cleaner outer(values);
    EXPECT_TRUE(values.iterating());
    values.deallocate_watch(5, b);
    EXPECT_TRUE(values.watches(5));
    EXPECT_EQ(values.num_keys(), 2u);
    {
      var_value_watchers::for_each_cleaner inner(values);
      values.deallocate_watch(9, c);
      EXPECT_TRUE(values.watches(9));
    }
    // The inner guard was passive.
    EXPECT_TRUE(values.iterating());
    EXPECT_TRUE(values.watches(5));
    EXPECT_TRUE(values.watches(9));
    EXPECT_TRUE(values.empty());
    // A released key can be watched again before the cleanup; it then stays.
    (void)values.allocate_watch(5, 3);
  }
  EXPECT_FALSE(values.iterating());
  EXPECT_TRUE(values.watches(5));
  EXPECT_FALSE(values.watches(9));
  EXPECT_EQ(values.num_keys(), 1u);
  EXPECT_EQ(values.count_all_watches(), 1u);
}

TEST(var_watchers, deallocate_by_predicate) {
  var_value_watchers values;
  std::vector<watch_handle_t> kept;
  for (int v = 0; v < 6; ++v)
    for (unsigned int c = 0; c < 4; ++c) {
      const watch_handle_t h = values.allocate_watch(v, c + 10 * unsigned(v % 2));
      if (c == 3) kept.push_back(h);
    }
  // Keys 1, 3, 5 hold only constraints 10..13; remove 10..12 and all of key 0's but 3.
  values.deallocate_watches([](const var_watchers_base::watcher_info_type& w) {
    return w.constraint != 3 && w.constraint != 13;
  });
  EXPECT_EQ(values.count_all_watches(), 6u);
  for (int v = 0; v < 6; ++v)
    EXPECT_EQ(constraints_of(values, v), std::vector<unsigned int>{v % 2 ? 13u : 3u}) << v;
  // Removing everything from a key removes the key; the survivors' handles still work.
  values.deallocate_watches([](const var_watchers_base::watcher_info_type& w) { return w.constraint == 13; });
  EXPECT_EQ(values.num_keys(), 3u);
  EXPECT_FALSE(values.watches(3));
  for (int v = 0; v < 6; v += 2) values.deallocate_watch(v, kept[v]);
  EXPECT_TRUE(values.empty());
  EXPECT_EQ(values.num_keys(), 0u);

  // Inside a walk the emptied keys wait for the guard.
  (void)values.allocate_watch(1, 1);
  (void)values.allocate_watch(2, 2);
  {
    var_value_watchers::for_each_cleaner guard(values);
    values.deallocate_watches(var_value_watchers::cond_always_true());
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(values.num_keys(), 2u);
  }
  EXPECT_EQ(values.num_keys(), 0u);
}

TEST(var_watchers, releasing_a_nonexistent_watch_throws) {
  var_event_watchers events;
  const watch_handle_t h = events.allocate_watch(watch_types::LOWER_BOUND_WATCH, 1);
  const watch_handle_t none;
  EXPECT_TRUE(none.is_null());
  EXPECT_EQ(none, watch_handle_t());
  EXPECT_FALSE(h.is_null());
  try {
    events.deallocate_watch(watch_types::UPPER_BOUND_WATCH, h);
    FAIL() << "no exception for an unknown key";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "Can't deallocate nonexistent watch");
  }
  EXPECT_THROW(events.deallocate_watch(watch_types::LOWER_BOUND_WATCH, none), std::out_of_range);
  EXPECT_EQ(events.count_all_watches(), 1u);
  events.deallocate_watch(watch_types::LOWER_BOUND_WATCH, h);
  EXPECT_THROW(events.deallocate_watch(watch_types::LOWER_BOUND_WATCH, h), std::out_of_range);
}

TEST(var_watchers, steady_state_never_calls_the_system_allocator) {
  std::vector<var_value_watchers> values(3);
  std::vector<var_event_watchers> events(3);
  std::vector<watch_handle_t> handles;
  handles.reserve(1000);
  // Fill the pool and give every key vector its capacity once. The pool is shared by
  // all variables and both kinds of watch.
  for (int v = 0; v < 32; ++v) (void)values[0].allocate_watch(v, 0);
  for (int t = 0; t < 4; ++t) (void)events[0].allocate_watch(t, 0);
  for (var_value_watchers& w : values) w.deallocate_watches(var_value_watchers::cond_always_true());
  for (var_event_watchers& w : events) w.deallocate_watches(var_event_watchers::cond_always_true());
  for (std::size_t i = 1; i < 3; ++i) {
    for (int v = 0; v < 32; ++v) handles.push_back(values[i].allocate_watch(v, 0));
    for (int t = 0; t < 4; ++t) handles.push_back(events[i].allocate_watch(t, 0));
    values[i].deallocate_watches(var_value_watchers::cond_always_true());
    events[i].deallocate_watches(var_event_watchers::cond_always_true());
  }
  handles.clear();
  for (int i = 0; i < 800; ++i) handles.push_back(values[0].allocate_watch(i % 32, unsigned(i)));
  values[0].deallocate_watches(var_value_watchers::cond_always_true());
  handles.clear();

  const long calls_before = g_new_calls;
  unsigned int seed = 12345;
  for (int round = 0; round < 2000; ++round) {
    // Up to 300 live watches spread over the variables, released in a scrambled order.
    for (int i = 0; i < 300; ++i) {
      seed = seed * 1103515245u + 12345u;
      const std::size_t var = (seed >> 8) % 3;
      if ((seed >> 12) % 2)
        handles.push_back(values[var].allocate_watch(int((seed >> 16) % 32), unsigned(i)));
      else
        handles.push_back(events[var].allocate_watch(int((seed >> 16) % 4), unsigned(i)));
    }
    {
      var_value_watchers::for_each_cleaner guard(values[round % 3]);
      for (std::size_t var = 0; var < 3; ++var) {
        values[var].deallocate_watches([&](const var_watchers_base::watcher_info_type& w) {
          return (w.constraint + unsigned(round)) % 3 == 0;
        });
      }
    }
    for (std::size_t var = 0; var < 3; ++var) {
      values[var].deallocate_watches(var_value_watchers::cond_always_true());
      events[var].deallocate_watches(var_event_watchers::cond_always_true());
    }
    handles.clear();
  }
  const long calls = g_new_calls - calls_before;
  EXPECT_EQ(calls, 0);
  for (std::size_t var = 0; var < 3; ++var) EXPECT_TRUE(values[var].empty() && events[var].empty());
}

TEST(watch_types, names_of_the_kinds) {
  std::ostringstream out;
  out << watch_types::MODIFICATION_WATCH << ' ' << watch_types::FINALIZATION_WATCH << ' '
      << watch_types::LOWER_BOUND_WATCH << ' ' << watch_types::UPPER_BOUND_WATCH;
  EXPECT_EQ(out.str(), "MODIFICATION_WATCH FINALIZATION_WATCH LOWER_BOUND_WATCH UPPER_BOUND_WATCH");
}

}  // namespace
}  // namespace zelk
