// Signed 128-bit integer for the linear constraints whose coefficients are too
// large for a 64-bit sum (linear_combination_ge_propagator's wide path).
//
// Two's complement over two 64-bit halves. All arithmetic wraps modulo 2^128 and
// is done on the unsigned halves, so that no operation has undefined behaviour;
// it is inline, since the wide propagator runs it once per term. Division is only
// by a 32-bit divisor, which is all that bounds propagation needs, and it rounds
// the quotient the way the caller asks.
#ifndef ZELK_IMPL_INT128_H
#define ZELK_IMPL_INT128_H

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace zelk {

class int128 {
 public:
  enum rounding_mode {
    ROUND_UP = 0,           // towards plus infinity
    ROUND_DOWN = 1,         // towards minus infinity
    ROUND_TOWARDS_ZERO = 2  // truncation, as the / operator of C++
  };

  constexpr int128() : m_low(0), m_high(0) {}
  // Implicit on purpose: the templated propagator code mixes int128 with ints.
  constexpr int128(int v) : int128(static_cast<long long>(v)) {}
  constexpr int128(long v) : int128(static_cast<long long>(v)) {}
  constexpr int128(long long v) : m_low(static_cast<std::uint64_t>(v)), m_high(v < 0 ? -1 : 0) {}
  constexpr int128(unsigned int v) : m_low(v), m_high(0) {}
  constexpr int128(unsigned long v) : m_low(v), m_high(0) {}
  constexpr int128(unsigned long long v) : m_low(v), m_high(0) {}

  // The value (high * 2^64 + low) from its two halves.
  static constexpr int128 from_halves(std::int64_t high, std::uint64_t low) {
    int128 r;
    r.m_high = high;
    r.m_low = low;
    return r;
  }

  constexpr std::int64_t high() const { return m_high; }
  constexpr std::uint64_t low() const { return m_low; }
  constexpr bool is_negative() const { return m_high < 0; }

  // True if the high half is only the sign extension of the low half.
  constexpr bool fits_int64() const {
    return m_high == (static_cast<std::int64_t>(m_low) < 0 ? -1 : 0);
  }
  // Raises std::out_of_range "int128::as_int64() out of bounds" if the value does not fit.
  std::int64_t as_int64() const {
    if (!fits_int64()) throw_as_int64_out_of_bounds();
    return static_cast<std::int64_t>(m_low);
  }

  //==== Arithmetic, modulo 2^128 ====

  friend constexpr int128 operator+(const int128& a, const int128& b) {
    const std::uint64_t low = a.m_low + b.m_low;
    const std::uint64_t carry = low < a.m_low ? 1 : 0;
    return make(a.uhigh() + b.uhigh() + carry, low);
  }
  friend constexpr int128 operator-(const int128& a, const int128& b) {
    const std::uint64_t borrow = a.m_low < b.m_low ? 1 : 0;
    return make(a.uhigh() - b.uhigh() - borrow, a.m_low - b.m_low);
  }
  constexpr int128 operator-() const {
    const std::uint64_t low = ~m_low + 1;
    return make(~uhigh() + (low == 0 ? 1 : 0), low);
  }
  friend constexpr int128 operator*(const int128& a, const int128& b) {
    std::uint64_t high = 0;
    const std::uint64_t low = multiply_64x64(a.m_low, b.m_low, high);
    // The cross terms only reach the high half; their own high parts fall off.
    high += a.m_low * b.uhigh() + a.uhigh() * b.m_low;
    return make(high, low);
  }
  constexpr int128& operator+=(const int128& b) { return *this = *this + b; }
  constexpr int128& operator-=(const int128& b) { return *this = *this - b; }
  constexpr int128& operator*=(const int128& b) { return *this = *this * b; }

  //==== Comparison ====

  friend constexpr bool operator==(const int128& a, const int128& b) {
    return a.m_high == b.m_high && a.m_low == b.m_low;
  }
  friend constexpr std::strong_ordering operator<=>(const int128& a, const int128& b) {
    if (a.m_high != b.m_high) return a.m_high <=> b.m_high;
    return a.m_low <=> b.m_low;
  }

  //==== Division by small divisors ====

  // The quotient of this by divisor, rounded by mode. Precondition: divisor != 0,
  // and the quotient is representable (only the minimum divided by -1 is not).
  int128 divide(int divisor, rounding_mode mode) const;

  // The 64-bit case on truncating division. Precondition: b != 0, and the
  // quotient fits 64 bits (INT64_MIN / -1 does not).
  static std::int64_t divide_s64(std::int64_t a, std::int64_t b, rounding_mode mode) {
    if (a != 0) {
      const bool same_sign = (a > 0) == (b > 0);
      // Shifting a by one towards zero before the division makes an exact quotient
      // come out one short, so adding (or taking) one lands on the rounded value.
      if (mode == ROUND_UP && same_sign) return (a > 0 ? a - 1 : a + 1) / b + 1;
      if (mode == ROUND_DOWN && !same_sign) return (a > 0 ? a - 1 : a + 1) / b - 1;
    }
    return a / b;
  }

  // Decimal text, with a '-' for negative values.
  std::string to_string() const;

 private:
  static constexpr int128 make(std::uint64_t high, std::uint64_t low) {
    return from_halves(static_cast<std::int64_t>(high), low);
  }
  constexpr std::uint64_t uhigh() const { return static_cast<std::uint64_t>(m_high); }

  // Full product of two unsigned 64-bit numbers in 32-bit pieces; returns the low
  // half and writes the high half.
  static constexpr std::uint64_t multiply_64x64(std::uint64_t a, std::uint64_t b,
                                                std::uint64_t& high) {
    const std::uint64_t mask = 0xffffffffu;
    const std::uint64_t a0 = a & mask, a1 = a >> 32;
    const std::uint64_t b0 = b & mask, b1 = b >> 32;
    const std::uint64_t p00 = a0 * b0;
    // Neither sum can overflow: (2^32 - 1)^2 + 2 * (2^32 - 1) < 2^64.
    const std::uint64_t mid1 = a1 * b0 + (p00 >> 32);
    const std::uint64_t mid2 = a0 * b1 + (mid1 & mask);
    high = a1 * b1 + (mid1 >> 32) + (mid2 >> 32);
    return (mid2 << 32) | (p00 & mask);
  }

  [[noreturn]] static void throw_as_int64_out_of_bounds();

  std::uint64_t m_low;
  std::int64_t m_high;
};

std::ostream& operator<<(std::ostream& os, const int128& value);

}  // namespace zelk

#endif
