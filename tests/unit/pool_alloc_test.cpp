// Block allocator: live elements never share memory, freed ones are taken before new memory.
#include "impl/pool_alloc.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace zelk {
namespace {

TEST(pool_alloc, live_elements_never_share_memory_and_freed_ones_are_reused) {
  typedef std::array<std::uint64_t, 3> element;
  pool_alloc<element> alloc;
  std::vector<std::pair<element*, std::uint64_t>> live;  // with the stamp written into each
  std::set<element*> seen;
  std::mt19937 rng(5);
  for (std::uint64_t step = 0; step < 40000; ++step) {
    if (live.size() < 300 && (step < 300 || rng() % 2)) {
      live.emplace_back(alloc.allocate(1), step);
      live.back().first->fill(step);
      seen.insert(live.back().first);
    } else if (!live.empty()) {
      std::swap(live[rng() % live.size()], live.back());
      const auto [p, stamp] = live.back();
      ASSERT_EQ(*p, (element{stamp, stamp, stamp})) << "a live element was overwritten";
      alloc.deallocate(p, 1);
      live.pop_back();
    }
  }
  EXPECT_LE(seen.size(), 300u) << "new memory while freed elements were waiting";
  EXPECT_EQ(alloc.allocate(0), nullptr);
}

TEST(pool_alloc, serves_node_and_array_containers) {
  std::map<int, int, std::less<int>, pool_alloc<std::pair<const int, int>>> map;
  std::vector<unsigned long, pool_alloc<unsigned long>> vec;
  for (int i = 0; i < 1000; ++i) map[i * 37 % 1000] = i, vec.push_back(i);
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(map.at(i * 37 % 1000) == i && vec[i] == unsigned(i));
}

}  // namespace
}  // namespace zelk
