// Tests of the small services: the random generator's contract over the C
// library state, the duplicate-free queue, and the stream state guard.
#include "impl/utilities.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace zelk {
namespace {

template <class E, class F>
std::string error_text(F f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "<no exception>";
}

std::vector<std::uint32_t> draws(int n) {
  std::vector<std::uint32_t> out;
  for (int i = 0; i < n; ++i) out.push_back(random::gen());
  return out;
}

//==== random ===================================================================

TEST(utilities, random_seeding_replays_sequences) {
  EXPECT_EQ(random::set_seed(7), 7u);
  const std::vector<std::uint32_t> first = draws(50);
  random::set_seed(7);
  EXPECT_EQ(draws(50), first);

  const unsigned int drawn = random::set_seed(0);
  const std::vector<std::uint32_t> from_device = draws(50);
  EXPECT_EQ(random::set_seed(drawn), drawn);
  EXPECT_EQ(draws(50), from_device) << "set_seed(0) returns the seed it put in force";
}

TEST(utilities, random_gen_combines_three_rand_calls) {
  random::set_seed(11);
  const std::uint32_t a = std::uint32_t(std::rand()), b = std::uint32_t(std::rand()),
                      c = std::uint32_t(std::rand());
  random::set_seed(11);
  EXPECT_EQ(random::gen(), a ^ (b << 11) ^ (c << 22));

  random::set_seed(12);
  const unsigned r = unsigned(std::rand());
  random::set_seed(12);
  EXPECT_EQ(random::gen(1000), r % 1000);
}

TEST(utilities, random_edge_cases) {
  EXPECT_EQ(error_text<std::invalid_argument>([] { (void)random::gen(0); }),
            "random::gen(0) is not allowed");
  EXPECT_EQ(error_text<std::invalid_argument>([] { (void)random::range(6u, 5u); }),
            "random::range: wrong parameter order");
  EXPECT_EQ(error_text<std::invalid_argument>([] { (void)random::range(-1, -2); }),
            "random::range: wrong parameter order");
  random::set_seed(3);
  for (int i = 0; i < 200; ++i) ASSERT_EQ(random::gen(1), 0u);

  // A single-value range does not draw.
  random::set_seed(5);
  const std::vector<std::uint32_t> plain = draws(5);
  random::set_seed(5);
  EXPECT_EQ(random::range(5, 5), 5);
  EXPECT_EQ(random::range(INT_MIN, INT_MIN), INT_MIN);
  EXPECT_EQ(random::range(UINT_MAX, UINT_MAX), UINT_MAX);
  EXPECT_EQ(draws(5), plain);

  // The whole 32-bit range is one gen(), shifted for the signed form.
  random::set_seed(9);
  const std::uint32_t g = random::gen();
  random::set_seed(9);
  EXPECT_EQ(random::range(0u, UINT_MAX), g);
  random::set_seed(9);
  EXPECT_EQ(random::range(INT_MIN, INT_MAX), static_cast<int>(g - 0x80000000u));

  for (int i = 0; i < 2000; ++i) {
    const std::uint32_t big = random::gen(4000000000u);
    ASSERT_LT(big, 4000000000u);
    const unsigned near_top = random::range(UINT_MAX - 2, UINT_MAX);
    ASSERT_GE(near_top, UINT_MAX - 2);
  }
}

TEST(utilities, random_signed_range_covers_its_values) {
  random::set_seed(21);
  std::vector<int> seen(7, 0);
  for (int i = 0; i < 2000; ++i) {
    const int v = random::range(-3, 3);
    ASSERT_GE(v, -3);
    ASSERT_LE(v, 3);
    ++seen[std::size_t(v + 3)];
  }
  for (int count : seen) EXPECT_GT(count, 0);
  for (int i = 0; i < 1000; ++i) {
    const int v = random::range(INT_MIN, INT_MIN + 1);
    ASSERT_TRUE(v == INT_MIN || v == INT_MIN + 1);
  }
}

TEST(utilities, throw_runtime_error_raises_its_text) {
  EXPECT_EQ(error_text<std::runtime_error>([] { throw_runtime_error("boom"); }), "boom");
  EXPECT_EQ(error_text<std::runtime_error>([] { throw parse_error("bad text"); }), "bad text");
}

TEST(utilities, ios_state_restore_puts_back_flags_and_state) {
  std::istringstream is("x");
  {
    ios_state_restore restore(is);
    is.unsetf(std::ios_base::skipws);
    int v;
    is >> v;
    EXPECT_TRUE(is.fail());
  }
  EXPECT_TRUE(is.good());
  EXPECT_TRUE(is.flags() & std::ios_base::skipws);
}

//==== unique_queue<void> =======================================================

TEST(utilities, unique_queue_refuses_duplicates_in_fifo_order) {
  unique_queue<void> q;
  EXPECT_THROW((void)q.insert(0), std::out_of_range) << "no number is legal before sizing";
  q.set_max_elements(33);
  EXPECT_EQ(q.max_elements(), 33u);
  EXPECT_THROW((void)q.is_in_queue(33), std::out_of_range);
  EXPECT_THROW((void)q.insert(33), std::out_of_range);
  EXPECT_THROW(q.mark(40), std::out_of_range);
  EXPECT_TRUE(q.insert(32));
  EXPECT_TRUE(q.insert(4));
  EXPECT_FALSE(q.insert(32));
  EXPECT_EQ(q.size(), 2u);
  EXPECT_EQ(q.pop(), 32u);
  EXPECT_FALSE(q.is_in_queue(32));
  EXPECT_TRUE(q.insert(32));
  EXPECT_EQ(q.pop(), 4u);
  EXPECT_EQ(q.pop(), 32u);
  EXPECT_TRUE(q.empty());
  EXPECT_EQ(error_text<std::out_of_range>([&] { (void)q.pop(); }), "Popping out of an empty queue");

  q.mark(7);  // marked, not queued
  EXPECT_TRUE(q.is_in_queue(7));
  EXPECT_FALSE(q.insert(7));
  EXPECT_TRUE(q.empty());
}

TEST(utilities, unique_queue_resizing_and_clear) {
  unique_queue<void> q;
  q.set_max_elements(100);
  EXPECT_TRUE(q.insert(3));
  EXPECT_TRUE(q.insert(40));
  q.mark(90);
  q.mark(49);

  // Down to a size above every queued number: the mark at 90 goes.
  q.set_max_elements(50);
  EXPECT_TRUE(q.is_in_queue(40));
  EXPECT_TRUE(q.is_in_queue(49));
  q.set_max_elements(100);
  EXPECT_FALSE(q.is_in_queue(90)) << "bits above the old size come back as 0";

  q.set_max_elements(45);  // drops the mark at 49 within the last word
  q.set_max_elements(64);
  EXPECT_FALSE(q.is_in_queue(49));

  EXPECT_EQ(error_text<std::out_of_range>([&] { q.set_max_elements(40); }),
            "At least one element is too big");
  EXPECT_EQ(q.max_elements(), 64u) << "a refused shrink changes nothing";
  EXPECT_TRUE(q.is_in_queue(40));
  EXPECT_NO_THROW(q.validate_all_elements_below(41));

  q.clear();
  EXPECT_TRUE(q.empty());
  EXPECT_EQ(q.max_elements(), 64u);
  EXPECT_FALSE(q.is_in_queue(3));
  EXPECT_FALSE(q.is_in_queue(40));
  EXPECT_TRUE(q.insert(63));
  EXPECT_EQ(q.pop(), 63u);
}

}  // namespace
}  // namespace zelk
