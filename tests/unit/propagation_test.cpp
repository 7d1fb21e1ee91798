// Set arithmetic modulo 32 against brute force over sets of every shape.
#include "impl/propagation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace zelk {
namespace {

using small_model::iset;

iset brute_plus(iset a, iset b, iset out) {
  std::uint32_t reach = 0;
  for (int x = 0; x < 32; ++x)
    for (int y = 0; y < 32; ++y)
      if (a.contains(x) && b.contains(y)) reach |= 1u << ((x + y) & 31);
  return out & iset::from_bits(reach);
}

iset brute_minus(iset a, iset b, iset out) {
  std::uint32_t reach = 0;
  for (int x = 0; x < 32; ++x)
    for (int y = 0; y < 32; ++y)
      if (a.contains(x) && b.contains(y)) reach |= 1u << ((x - y + 32) & 31);
  return out & iset::from_bits(reach);
}

// Sets of the shapes that exercise the different paths: empty, full, single
// values, progressions, intervals, dense words with a few holes, random words.
iset random_set(std::mt19937& gen) {
  std::uniform_int_distribution<int> value(0, 31);
  switch (gen() % 9) {
    case 0: return iset();
    case 1: return iset::full();
    case 2: return iset::singleton(value(gen));
    case 3: {  // progression
      const int first = value(gen);
      const int stride = 1 + int(gen() % 12);
      const int count = 1 + int(gen() % 8);
      iset s;
      for (int i = 0, v = first; i < count && v <= 31; ++i, v += stride) s.insert(v);
      return s;
    }
    case 4: {  // interval
      int lo = value(gen), hi = value(gen);
      if (lo > hi) std::swap(lo, hi);
      return iset::clipped_range(lo, hi);
    }
    case 5: {  // dense: a few holes
      std::uint32_t w = 0xFFFFFFFFu;
      for (int i = 1 + int(gen() % 3); i > 0; --i) w &= ~(1u << value(gen));
      return iset::from_bits(w);
    }
    case 6: {  // two intervals
      iset s = iset::clipped_range(value(gen) / 2, value(gen) / 2);
      return s | iset::clipped_range(16 + value(gen) / 2, 16 + value(gen) / 2);
    }
    case 7: return iset::from_bits(std::uint32_t(gen()) & std::uint32_t(gen()));  // sparse
    default: return iset::from_bits(std::uint32_t(gen()));
  }
}

TEST(propagation, plus_and_minus_match_brute_force) {
  const unsigned seed = 20240611;
  std::mt19937 gen(seed);
  for (int round = 0; round < 60000; ++round) {
    const iset a = random_set(gen), b = random_set(gen);
    const iset out = (gen() % 3 == 0) ? iset::full() : random_set(gen);
    iset sum = out, difference = out;
    propagation::plus(a, b, sum);
    propagation::minus(a, b, difference);
    ASSERT_EQ(sum, brute_plus(a, b, out)) << "seed " << seed << " round " << round << " a={" << a
                                          << "} b={" << b << "} out={" << out << "}";
    ASSERT_EQ(difference, brute_minus(a, b, out)) << "seed " << seed << " round " << round << " a={"
                                                  << a << "} b={" << b << "} out={" << out << "}";
  }
}

TEST(propagation, every_pair_of_progressions) {
  // All progressions with up to 4 members against each other: the cases where
  // strides differ and the first pass alone is not exact.
  std::vector<iset> sets;
  for (int first = 0; first < 32; first += 3)
    for (int stride = 1; stride < 11; ++stride)
      for (int count = 1; count <= 4; ++count) {
        iset s;
        for (int i = 0, v = first; i < count && v <= 31; ++i, v += stride) s.insert(v);
        sets.push_back(s);
      }
  for (const iset& a : sets)
    for (const iset& b : sets) {
      iset sum = iset::full();
      propagation::plus(a, b | iset::singleton(30), sum);
      ASSERT_EQ(sum, brute_plus(a, b | iset::singleton(30), iset::full()))
          << "a={" << a << "} b={" << b << ",30}";
    }
}

TEST(propagation, fixed_cases) {
  iset out = iset::full();
  propagation::plus(iset("30"), iset("3"), out);
  EXPECT_EQ(out, iset("1"));  // wraps
  out = iset::full();
  propagation::plus(iset("0:20"), iset("0:11"), out);
  EXPECT_EQ(out, iset::full());  // 32 consecutive sums
  out = iset("1:31");
  propagation::plus(iset(""), iset::full(), out);
  EXPECT_TRUE(out.empty());  // nothing to add
  out = iset("3,9");
  propagation::plus(iset::full(), iset("4"), out);
  EXPECT_EQ(out, iset("3,9"));  // a full operand leaves out alone
  out = iset::full();
  propagation::plus(iset("0:2:30"), iset("0:2:30"), out);
  EXPECT_EQ(out, iset("0:2:30"));  // even plus even stays even
  out = iset::full();
  propagation::minus(iset("0"), iset("1,5"), out);
  EXPECT_EQ(out, iset("27,31"));
}

TEST(propagation, neg_is_the_value_wise_negation) {
  std::mt19937 gen(7);
  for (int round = 0; round < 5000; ++round) {
    const iset a = random_set(gen), out = random_set(gen);
    std::uint32_t expected = 0;
    for (int v = 0; v < 32; ++v)
      if (a.contains(v)) expected |= 1u << ((32 - v) & 31);
    iset result = out;
    propagation::neg(a, result);
    ASSERT_EQ(result, out & iset::from_bits(expected)) << "a={" << a << "}";
  }
  EXPECT_EQ(propagation::negated(iset("0")), iset("0"));
  EXPECT_EQ(propagation::negated(iset("1")), iset("31"));
  EXPECT_EQ(propagation::negated(iset("16")), iset("16"));
}

}  // namespace
}  // namespace zelk
