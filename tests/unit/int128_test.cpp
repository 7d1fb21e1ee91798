// int128 against the compiler's own 128-bit integer on edge and random values, all operations.
#include "impl/int128.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

namespace zelk {
namespace {

typedef __int128 native;
typedef unsigned __int128 unative;
const native TWO64 = native(1) << 64, NATIVE_MAX = native(~unative(0) >> 1);
const native NATIVE_MIN = -NATIVE_MAX - 1;

native to_native(const int128& x) { return native(unative(std::uint64_t(x.high())) << 64 | x.low()); }
int128 from_native(native v) { return int128::from_halves(std::int64_t(v >> 64), std::uint64_t(v)); }

std::string text(native v) {
  std::string s;
  for (unative m = v < 0 ? -unative(v) : unative(v); m != 0 || s.empty(); m /= 10)
    s.insert(s.begin(), char('0' + int(m % 10)));
  return v < 0 ? "-" + s : s;
}

// Rounded quotient from the compiler's truncating division.
native reference_divide(native a, native b, int128::rounding_mode mode) {
  const native q = a / b;
  const bool inexact = q * b != a, negative = (a < 0) != (b < 0);
  return q + (inexact && !negative && mode == int128::ROUND_UP) -
         (inexact && negative && mode == int128::ROUND_DOWN);
}

const std::vector<native> EDGES = {
    0, 1, -1, 2, -2, 3, INT_MAX, INT_MIN, INT64_MAX, INT64_MIN, TWO64 / 2, -TWO64 / 2 - 1, TWO64,
    -TWO64, TWO64 - 1, 1 - TWO64, 2 * TWO64 - 1, 1 - 2 * TWO64, NATIVE_MAX, NATIVE_MIN,
    NATIVE_MAX - 1, NATIVE_MIN + 1, native(1) << 96};
const std::vector<int> DIVISORS = {1, -1, 2, -2, 3, -3, 7, 10, INT_MAX, INT_MIN, INT_MIN + 1};

// An edge, a small number, a 64-bit one, a coefficient times a value, or any 128 bits.
native value(std::mt19937_64& gen) {
  switch (gen() % 5) {
    case 0: return EDGES[gen() % EDGES.size()];
    case 1: return native(std::int64_t(gen() % 2001) - 1000);
    case 2: return native(std::int64_t(gen())) * native(std::int64_t(gen() % 9) - 4);
    case 3: return native(std::int32_t(gen())) * native(gen() % 32);
    default: return native(unative(gen()) << 64 | gen());
  }
}

TEST(int128, arithmetic_comparison_narrowing_and_text_match_native) {
  EXPECT_EQ(to_native(int128(~0u)) + to_native(int128(~0ull)), native(~0u) + native(~0ull));
  EXPECT_EQ(to_native(int128(-7L)), -7);
  EXPECT_THROW((void)from_native(TWO64 / 2).as_int64(), std::out_of_range);
  std::mt19937_64 gen(20240611);
  for (int i = 0; i < 40000; ++i) {
    const native a = value(gen), b = value(gen);
    const int128 x = from_native(a), y = from_native(b);
    SCOPED_TRACE(text(a) + " and " + text(b));
    ASSERT_EQ(to_native(x + y), native(unative(a) + unative(b)));  // wrapping, as unsigned
    ASSERT_EQ(to_native(x - y), native(unative(a) - unative(b)));
    ASSERT_EQ(to_native(x * y), native(unative(a) * unative(b)));
    ASSERT_EQ(to_native(-x), native(-unative(a)));
    ASSERT_TRUE((x <=> y) == (a <=> b) && (x == y) == (a == b) && x.is_negative() == (a < 0));
    ASSERT_EQ(x.to_string(), text(a));
    ASSERT_EQ(x.fits_int64(), a >= INT64_MIN && a <= INT64_MAX);
    ASSERT_EQ(native(x.fits_int64() ? x.as_int64() : 0), x.fits_int64() ? a : 0);
  }
}

TEST(int128, division_rounds_as_asked_on_both_paths) {
  std::mt19937_64 gen(4242);
  for (int i = 0; i < 60000; ++i) {
    const native a = value(gen);
    int d = gen() % 3 ? int(std::int32_t(gen()) >> gen() % 32) : DIVISORS[gen() % DIVISORS.size()];
    std::int64_t a64 = std::int64_t(a), d64 = std::int64_t(value(gen));
    if (d == 0 || (a == NATIVE_MIN && d == -1)) d = 5;  // no zero divisor, no overflow
    if (d64 == 0 || (a64 == INT64_MIN && d64 == -1)) d64 = 3;
    for (const auto mode : {int128::ROUND_UP, int128::ROUND_DOWN, int128::ROUND_TOWARDS_ZERO}) {
      ASSERT_EQ(text(to_native(from_native(a).divide(d, mode))), text(reference_divide(a, d, mode)))
          << text(a) << " / " << d << " mode " << mode;
      ASSERT_EQ(native(int128::divide_s64(a64, d64, mode)), reference_divide(a64, d64, mode))
          << a64 << " / " << d64 << " mode " << mode;
    }
  }
}

}  // namespace
}  // namespace zelk
