// Set arithmetic modulo 32 against brute force over sets of every shape.
#include "impl/propagation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "unit/brute_force.h"

namespace zelk {
namespace {

using brute_force::set_sum;
using small_model::iset;

iset progression(int first, int stride, int count) {
  iset s;
  for (int i = 0, v = first; i < count && v <= 31; ++i, v += stride) s.insert(v);
  return s;
}

// Sets of the shapes that exercise the different paths: empty, full, single
// values, progressions, intervals, dense words with a few holes, random words.
iset random_set(std::mt19937& gen) {
  const auto value = [&] { return int(gen() % 32); };
  switch (gen() % 9) {
    case 0: return iset();
    case 1: return iset::full();
    case 2: return iset::singleton(value());
    case 3: return progression(value(), 1 + int(gen() % 12), 1 + int(gen() % 8));
    case 4: {
      const int a = value(), b = value();
      return iset::clipped_range(std::min(a, b), std::max(a, b));
    }
    case 5: return iset::from_bits(~(1u << value()) & ~(1u << value()));  // dense
    case 6:  // two intervals
      return iset::clipped_range(value() / 2, value() / 2) |
             iset::clipped_range(16 + value() / 2, 16 + value() / 2);
    case 7: return iset::from_bits(std::uint32_t(gen()) & std::uint32_t(gen()));  // sparse
    default: return iset::from_bits(std::uint32_t(gen()));
  }
}

TEST(propagation, plus_minus_and_neg_match_brute_force) {
  std::mt19937 gen(20240611);
  for (int round = 0; round < 60000; ++round) {
    const iset a = random_set(gen), b = random_set(gen);
    const iset out = (gen() % 3 == 0) ? iset::full() : random_set(gen);
    iset sum = out, difference = out, negation = out;
    propagation::plus(a, b, sum);
    propagation::minus(a, b, difference);
    propagation::neg(a, negation);
    SCOPED_TRACE(testing::Message() << "round " << round << " a={" << a << "} b={" << b
                                    << "} out={" << out << "}");
    ASSERT_EQ(sum, set_sum(a, b, 1, out));
    ASSERT_EQ(difference, set_sum(a, b, -1, out));
    ASSERT_EQ(negation, set_sum(iset("0"), a, -1, out));
    ASSERT_EQ(propagation::negated(a), set_sum(iset("0"), a, -1));
  }
}

TEST(propagation, every_pair_of_progressions) {
  // Different strides: where the first pass alone is not exact.
  std::vector<iset> sets;
  for (int first = 0; first < 32; first += 3)
    for (int stride = 1; stride < 11; ++stride)
      for (int count = 1; count <= 4; ++count) sets.push_back(progression(first, stride, count));
  for (const iset& a : sets)
    for (const iset& b : sets) {
      iset sum = iset::full();
      propagation::plus(a, b | iset("30"), sum);
      ASSERT_EQ(sum, set_sum(a, b | iset("30"), 1)) << "a={" << a << "} b={" << b << ",30}";
    }
}

}  // namespace
}  // namespace zelk
