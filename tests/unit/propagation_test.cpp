// Set arithmetic modulo 32 against brute force over sets of every shape.
#include "impl/propagation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <vector>

#include "unit/brute_force.h"

namespace zelk {
namespace {

using brute_force::set_sum;
using small_model::iset;

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

TEST(propagation, plus_minus_and_neg_match_brute_force) {
  const unsigned seed = 20240611;
  std::mt19937 gen(seed);
  for (int round = 0; round < 60000; ++round) {
    const iset a = random_set(gen), b = random_set(gen);
    const iset out = (gen() % 3 == 0) ? iset::full() : random_set(gen);
    iset sum = out, difference = out, negation = out;
    propagation::plus(a, b, sum);
    propagation::minus(a, b, difference);
    propagation::neg(a, negation);
    const auto where = [&] {
      std::ostringstream os;
      os << "seed " << seed << " round " << round << " a={" << a << "} b={" << b << "} out={"
         << out << "}";
      return os.str();
    };
    ASSERT_EQ(sum, set_sum(a, b, 1, out)) << where();
    ASSERT_EQ(difference, set_sum(a, b, -1, out)) << where();
    ASSERT_EQ(negation, set_sum(iset("0"), a, -1, out)) << where();
    ASSERT_EQ(propagation::negated(a), set_sum(iset("0"), a, -1)) << where();
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
      propagation::plus(a, b | iset("30"), sum);
      ASSERT_EQ(sum, set_sum(a, b | iset("30"), 1)) << "a={" << a << "} b={" << b << ",30}";
    }
}

TEST(propagation, fixed_cases) {
  const auto plus = [](iset a, iset b, iset out) {
    propagation::plus(a, b, out);
    return out;
  };
  EXPECT_EQ(plus(iset("30"), iset("3"), iset::full()), iset("1"));          // wraps
  EXPECT_EQ(plus(iset("0:20"), iset("0:11"), iset::full()), iset::full());  // 32 sums at once
  EXPECT_EQ(plus(iset(), iset::full(), iset("1:31")), iset());              // nothing to add
  EXPECT_EQ(plus(iset::full(), iset("4"), iset("3,9")), iset("3,9"));       // out left alone
  EXPECT_EQ(plus(iset("0:2:30"), iset("0:2:30"), iset::full()), iset("0:2:30"));  // even + even
  iset out = iset::full();
  propagation::minus(iset("0"), iset("1,5"), out);
  EXPECT_EQ(out, iset("27,31"));
  EXPECT_EQ(propagation::negated(iset("0")), iset("0"));
  EXPECT_EQ(propagation::negated(iset("1")), iset("31"));
  EXPECT_EQ(propagation::negated(iset("16")), iset("16"));
}

}  // namespace
}  // namespace zelk
