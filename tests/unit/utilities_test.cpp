// The small services: the random generator's seeds and ranges, the stream state
// guard, and the duplicate-free queue against a deque and a flag per number.
#include "impl/utilities.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <random>
#include <sstream>
#include <vector>

namespace zelk {
namespace {

TEST(utilities, random_replays_its_seeds_and_stays_in_range) {
  auto draws = [] { std::vector<unsigned> v(20); for (auto& x : v) x = random::gen(); return v; };
  const unsigned int drawn = random::set_seed(0);
  const std::vector<unsigned> from_device = draws();
  EXPECT_NE(random::set_seed(0), drawn) << "two seeds drawn in one second are alike";
  EXPECT_EQ(random::set_seed(drawn), drawn);
  EXPECT_EQ(draws(), from_device) << "set_seed(0) returns the seed it put in force";
  EXPECT_THROW((void)random::gen(0), std::invalid_argument);
  EXPECT_THROW((void)random::range(-1, -2), std::invalid_argument);
  unsigned seen = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::uint32_t big = random::gen(4000000000u), top = random::range(UINT_MAX - 2, UINT_MAX);
    const int small = random::range(-3, 3), bottom = random::range(INT_MIN, INT_MIN + 1);
    ASSERT_TRUE(big < 4000000000u && top >= UINT_MAX - 2 && bottom <= INT_MIN + 1);
    ASSERT_TRUE(small >= -3 && small <= 3 && random::gen(1) == 0 && random::range(5, 5) == 5);
    seen |= 1u << (small + 3) | unsigned(big > 3000000000u) << 7;
  }
  EXPECT_EQ(seen, 0xFFu) << "every value of -3..3, and the top of a range above 2^31, drawn";
}

TEST(utilities, ios_state_restore_puts_back_flags_and_state) {
  std::istringstream is("x");
  {
    const ios_state_restore restore(is);
    is.unsetf(std::ios_base::skipws);
    is.setstate(std::ios_base::failbit);
  }
  EXPECT_TRUE(is.good() && (is.flags() & std::ios_base::skipws));
}

TEST(utilities, unique_queue_matches_a_model) {
  unique_queue<void> q;
  std::deque<unsigned int> queue;
  std::vector<bool> taken;  // queued or marked; its size is the maximum
  std::mt19937 rng(17);
  for (int step = 0; step < 20000; ++step) {
    const unsigned int x = rng() % 100, op = rng() % 16;
    if (op < 6 && x >= taken.size()) {
      EXPECT_THROW(op < 5 ? (void)q.insert(x) : q.mark(x), std::out_of_range);
    } else if (op < 5) {
      ASSERT_EQ(q.insert(x), !taken[x]) << x;
      if (!taken[x]) queue.push_back(x);
      taken[x] = true;
    } else if (op < 6) {
      q.mark(x);
      taken[x] = true;
    } else if (op < 11 && queue.empty()) {
      EXPECT_THROW(q.pop(), std::out_of_range);
    } else if (op < 11) {
      ASSERT_EQ(q.pop(), queue.front());
      taken[queue.front()] = false;
      queue.pop_front();
    } else if (op < 15 && x < taken.size() && !queue.empty() &&
               *std::max_element(queue.begin(), queue.end()) >= x) {
      EXPECT_THROW(q.set_max_elements(x), std::out_of_range);  // and nothing changes
    } else if (op < 15) {
      q.set_max_elements(x);
      taken.resize(x);
    } else {
      q.clear();
      queue.clear();
      taken.assign(taken.size(), false);
    }
    ASSERT_TRUE(q.size() == queue.size() && q.max_elements() == taken.size());
    for (unsigned int y = 0; y < taken.size(); ++y) ASSERT_EQ(q.is_in_queue(y), taken[y]) << y;
    ASSERT_THROW((void)q.is_in_queue(unsigned(taken.size())), std::out_of_range);
  }
}

}  // namespace
}  // namespace zelk
