// int128 against the compiler's own 128-bit integer: arithmetic, comparison,
// narrowing, text, and division in all three rounding modes on both the 64-bit
// and the schoolbook path.
#include "impl/int128.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zelk {
namespace {

typedef __int128 native;
typedef unsigned __int128 unative;

const native NATIVE_MAX = native(~unative(0) >> 1);
const native NATIVE_MIN = -NATIVE_MAX - 1;

native to_native(const int128& x) {
  return native((unative(std::uint64_t(x.high())) << 64) | x.low());
}
int128 from_native(native v) {
  return int128::from_halves(std::int64_t(v >> 64), std::uint64_t(unative(v)));
}

std::string native_to_string(native v) {
  if (v == 0) return "0";
  const bool negative = v < 0;
  unative m = negative ? unative(0) - unative(v) : unative(v);
  std::string s;
  while (m != 0) {
    s.insert(s.begin(), char('0' + int(m % 10)));
    m /= 10;
  }
  return negative ? "-" + s : s;
}

// Values a wide sum meets: everything near the 64- and 128-bit edges, small
// numbers, coefficient times domain value, and plain random bit patterns.
class value_source {
 public:
  explicit value_source(std::uint64_t seed) : m_gen(seed) {
    const native two63 = native(1) << 63, two64 = native(1) << 64;
    for (native v : {native(0), native(1), native(-1), native(2), native(-2), native(INT64_MAX),
                     native(INT64_MIN), two63, -two63 - 1, two64, -two64, two64 - 1, 1 - two64,
                     NATIVE_MAX, NATIVE_MIN, NATIVE_MAX - 1, NATIVE_MIN + 1, native(1) << 96,
                     -(native(1) << 96), native(INT_MIN), native(INT_MAX)})
      m_extremes.push_back(v);
  }

  native next() {
    switch (m_gen() % 6) {
      case 0:
        return m_extremes[m_gen() % m_extremes.size()];
      case 1:
        return native(std::int64_t(m_gen() % 2001) - 1000);
      case 2:
        return native(std::int64_t(m_gen()));  // sign extended 64-bit
      case 3:  // a 32-bit coefficient times a domain value
        return native(std::int32_t(m_gen())) * native(m_gen() % 32);
      case 4:  // just beyond 64 bits
        return native(std::int64_t(m_gen())) * native(std::int64_t(m_gen() % 8) - 4);
      default:
        return native((unative(m_gen()) << 64) | m_gen());
    }
  }
  int divisor() {
    switch (m_gen() % 5) {
      case 0: {
        static const int edges[] = {1, -1, 2, -2, 3, -3, 7, INT_MAX, INT_MIN, INT_MIN + 1, 10};
        return edges[m_gen() % (sizeof(edges) / sizeof(edges[0]))];
      }
      case 1: {
        const int d = int(m_gen() % 61) - 30;
        return d ? d : 1;
      }
      default: {
        const int d = std::int32_t(m_gen());
        return d ? d : 5;
      }
    }
  }
  std::mt19937_64& gen() { return m_gen; }

 private:
  std::mt19937_64 m_gen;
  std::vector<native> m_extremes;
};

// Rounded quotient of the compiler's integers: floor and ceiling from truncation.
native reference_divide(native a, native b, int128::rounding_mode mode) {
  const native q = a / b;
  const bool inexact = q * b != a;
  const bool negative = (a < 0) != (b < 0);
  if (inexact && mode == int128::ROUND_UP && !negative) return q + 1;
  if (inexact && mode == int128::ROUND_DOWN && negative) return q - 1;
  return q;
}

const int128::rounding_mode ALL_MODES[] = {int128::ROUND_UP, int128::ROUND_DOWN,
                                           int128::ROUND_TOWARDS_ZERO};

static_assert(int128(-1) * int128(-1) == int128(1));
static_assert(int128(-5) < int128(3u));
static_assert(-int128(0) == int128(0));
static_assert(int128(INT64_MIN) - int128(1) < int128(INT64_MIN));

TEST(int128, construction_from_builtin_integers) {
  EXPECT_EQ(to_native(int128(-7)), -7);
  EXPECT_EQ(to_native(int128(-7L)), -7);
  EXPECT_EQ(to_native(int128(INT64_MIN)), native(INT64_MIN));
  // Unsigned values are not sign extended.
  EXPECT_EQ(to_native(int128(~0u)), native(0xffffffffu));
  EXPECT_EQ(to_native(int128(~0ul)), native(~0ul));
  EXPECT_EQ(to_native(int128(~0ull)), native(~0ull));
  EXPECT_EQ(to_native(int128()), 0);
  EXPECT_TRUE(int128(-1).is_negative());
  EXPECT_FALSE(int128(~0ull).is_negative());
}

TEST(int128, arithmetic_and_comparison_match_native) {
  const std::uint64_t seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  value_source source(seed);
  for (int i = 0; i < 20000; ++i) {
    const native a = source.next(), b = source.next();
    const int128 x = from_native(a), y = from_native(b);
    SCOPED_TRACE(native_to_string(a) + " and " + native_to_string(b));
    // The compiler's own operations wrap like ours when done unsigned.
    EXPECT_EQ(to_native(x + y), native(unative(a) + unative(b)));
    EXPECT_EQ(to_native(x - y), native(unative(a) - unative(b)));
    EXPECT_EQ(to_native(x * y), native(unative(a) * unative(b)));
    EXPECT_EQ(to_native(-x), native(unative(0) - unative(a)));
    int128 z = x;
    z += y;
    z -= y;
    EXPECT_EQ(z, x);
    z *= y;
    EXPECT_EQ(z, x * y);
    EXPECT_EQ(x < y, a < b);
    EXPECT_EQ(x <= y, a <= b);
    EXPECT_EQ(x > y, a > b);
    EXPECT_EQ(x >= y, a >= b);
    EXPECT_EQ(x == y, a == b);
    EXPECT_EQ(x != y, a != b);
    EXPECT_EQ(x == x, true);
  }
}

TEST(int128, mixed_operands_convert_implicitly) {
  const int128 big = int128(INT64_MAX) * 4;
  EXPECT_EQ(to_native(big + 1), native(INT64_MAX) * 4 + 1);
  EXPECT_EQ(to_native(3 - big), 3 - native(INT64_MAX) * 4);
  EXPECT_TRUE(big > 0);
  EXPECT_TRUE(-big < 0);
  EXPECT_TRUE(int128(0) == 0);
}

TEST(int128, narrowing_to_64_bits) {
  const std::uint64_t seed = 77;
  SCOPED_TRACE("seed " + std::to_string(seed));
  value_source source(seed);
  for (int i = 0; i < 5000; ++i) {
    const native a = source.next();
    const int128 x = from_native(a);
    const bool fits = a >= native(INT64_MIN) && a <= native(INT64_MAX);
    ASSERT_EQ(x.fits_int64(), fits) << native_to_string(a);
    if (fits)
      EXPECT_EQ(x.as_int64(), std::int64_t(a));
    else
      EXPECT_THROW((void)x.as_int64(), std::out_of_range) << native_to_string(a);
  }
  EXPECT_EQ(int128(INT64_MIN).as_int64(), INT64_MIN);
  EXPECT_EQ(int128(INT64_MAX).as_int64(), INT64_MAX);
  try {
    (void)(int128(INT64_MAX) + 1).as_int64();
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "int128::as_int64() out of bounds");
  }
  EXPECT_THROW((void)(int128(INT64_MIN) - 1).as_int64(), std::out_of_range);
  EXPECT_THROW((void)int128(~0ull).as_int64(), std::out_of_range);
}

TEST(int128, decimal_text) {
  value_source source(5);
  for (int i = 0; i < 2000; ++i) {
    const native a = source.next();
    EXPECT_EQ(from_native(a).to_string(), native_to_string(a));
  }
  std::ostringstream out;
  out << from_native(NATIVE_MIN) << ' ' << int128(0) << ' ' << int128(1000000000);
  EXPECT_EQ(out.str(), "-170141183460469231731687303715884105728 0 1000000000");
}

TEST(int128, divide_s64_rounding) {
  EXPECT_EQ(int128::divide_s64(7, 2, int128::ROUND_UP), 4);
  EXPECT_EQ(int128::divide_s64(7, 2, int128::ROUND_DOWN), 3);
  EXPECT_EQ(int128::divide_s64(-7, 2, int128::ROUND_UP), -3);
  EXPECT_EQ(int128::divide_s64(-7, 2, int128::ROUND_DOWN), -4);
  EXPECT_EQ(int128::divide_s64(-7, 2, int128::ROUND_TOWARDS_ZERO), -3);
  EXPECT_EQ(int128::divide_s64(7, -2, int128::ROUND_UP), -3);
  EXPECT_EQ(int128::divide_s64(7, -2, int128::ROUND_DOWN), -4);
  EXPECT_EQ(int128::divide_s64(-7, -2, int128::ROUND_UP), 4);
  EXPECT_EQ(int128::divide_s64(-7, -2, int128::ROUND_DOWN), 3);
  // Exact quotients are not moved by any mode.
  for (int128::rounding_mode mode : ALL_MODES) {
    EXPECT_EQ(int128::divide_s64(-6, 2, mode), -3);
    EXPECT_EQ(int128::divide_s64(6, -3, mode), -2);
    EXPECT_EQ(int128::divide_s64(0, -3, mode), 0);
    EXPECT_EQ(int128::divide_s64(INT64_MIN, 1, mode), INT64_MIN);
    EXPECT_EQ(int128::divide_s64(INT64_MAX, -1, mode), -INT64_MAX);
  }

  const std::uint64_t seed = 99;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 gen(seed);
  const std::int64_t edges[] = {0, 1, -1, 2, -2, INT64_MAX, INT64_MIN, INT64_MAX - 1, INT64_MIN + 1};
  auto pick = [&](bool nonzero) {
    std::int64_t v;
    do {
      const unsigned kind = gen() % 3;
      v = kind == 0 ? edges[gen() % 9] : kind == 1 ? std::int64_t(gen() % 41) - 20 : std::int64_t(gen());
    } while (nonzero && v == 0);
    return v;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t a = pick(false), b = pick(true);
    if (a == INT64_MIN && b == -1) continue;  // quotient out of range
    for (int128::rounding_mode mode : ALL_MODES)
      ASSERT_EQ(native(int128::divide_s64(a, b, mode)), reference_divide(a, b, mode))
          << a << " / " << b << " mode " << mode;
  }
}

TEST(int128, divide_matches_native) {
  const std::uint64_t seed = 4242;
  SCOPED_TRACE("seed " + std::to_string(seed));
  value_source source(seed);
  for (int i = 0; i < 30000; ++i) {
    const native a = source.next();
    const int d = source.divisor();
    if (a == NATIVE_MIN && d == -1) continue;  // quotient out of range
    for (int128::rounding_mode mode : ALL_MODES)
      ASSERT_EQ(native_to_string(to_native(from_native(a).divide(d, mode))),
                native_to_string(reference_divide(a, d, mode)))
          << native_to_string(a) << " / " << d << " mode " << mode;
  }
}

TEST(int128, divide_edge_cases) {
  struct division {
    native dividend;
    int divisor;
  };
  const native two63 = native(1) << 63, two64 = native(1) << 64;
  const division cases[] = {
      // A 64-bit dividend whose quotient is not 64-bit.
      {native(INT64_MIN), -1},
      // Magnitudes at 2^63 and 2^64 - 1: beyond signed 64-bit, the schoolbook path.
      {two63, 1}, {two63, -1}, {-two63, -2}, {two64 - 1, 3}, {1 - two64, -3}, {two64 - 1, INT_MIN},
      // Rounding up the last digit carries into the middle and high digits:
      // (2^65 - 1) / 2 rounded up is 2^64.
      {2 * two64 - 1, 2}, {1 - 2 * two64, -2}, {1 - 2 * two64, 2}, {2 * two64 - 1, -2},
      // The minimum: its magnitude only exists as unsigned halves.
      {NATIVE_MIN, 1}, {NATIVE_MIN, 2}, {NATIVE_MIN, -2}, {NATIVE_MIN, INT_MIN}, {NATIVE_MIN, 3},
      {NATIVE_MAX, -1}, {NATIVE_MAX, INT_MIN}, {NATIVE_MAX, INT_MAX}, {NATIVE_MIN + 1, -1},
      {0, -5}, {0, 5}, {-1, INT_MAX}, {1, INT_MIN}};
  for (const division& c : cases)
    for (int128::rounding_mode mode : ALL_MODES)
      EXPECT_EQ(native_to_string(to_native(from_native(c.dividend).divide(c.divisor, mode))),
                native_to_string(reference_divide(c.dividend, c.divisor, mode)))
          << native_to_string(c.dividend) << " / " << c.divisor << " mode " << mode;
}

}  // namespace
}  // namespace zelk
