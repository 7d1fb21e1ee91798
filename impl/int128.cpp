// Division, text and the out-of-line error of the 128-bit integer.
#include "impl/int128.h"

#include <cassert>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace zelk {

void int128::throw_as_int64_out_of_bounds() {
  throw std::out_of_range("int128::as_int64() out of bounds");
}

int128 int128::divide(int divisor, rounding_mode mode) const {
  assert(divisor != 0);
  const bool negative = is_negative();
  const bool divisor_negative = divisor < 0;

  // The common case, a 64-bit dividend of the divisor's sign. INT64_MIN / -1 is
  // left to the wide path, as its quotient does not fit 64 bits.
  if (fits_int64() && negative == divisor_negative &&
      !(divisor == -1 && m_low == std::uint64_t(1) << 63))
    return int128(divide_s64(static_cast<std::int64_t>(m_low), divisor, mode));

  // Divide the magnitudes. A negative quotient is the negated quotient of the
  // magnitudes, so rounding up becomes rounding down of the magnitudes and back.
  const bool signs_differ = negative != divisor_negative;
  if (signs_differ) {
    if (mode == ROUND_UP)
      mode = ROUND_DOWN;
    else if (mode == ROUND_DOWN)
      mode = ROUND_UP;
  }
  // As unsigned halves the magnitude of the minimum, 2^127, is representable.
  const int128 magnitude = negative ? -*this : *this;
  const std::uint64_t high = magnitude.uhigh();
  const std::uint64_t low = magnitude.m_low;
  const std::int64_t d = divisor_negative ? -static_cast<std::int64_t>(divisor) : divisor;

  int128 quotient;
  if (high == 0 && low <= std::uint64_t(std::numeric_limits<std::int64_t>::max())) {
    quotient = int128(divide_s64(static_cast<std::int64_t>(low), d, mode));
  } else {
    // Schoolbook division in 32-bit digits. Each partial dividend is below d * 2^32
    // <= 2^63, so it is a non-negative 64-bit number and its quotient digit stays
    // below 2^32; only the last digit, rounded up, may reach 2^32, hence the sum.
    const std::uint64_t ud = static_cast<std::uint64_t>(d);
    const std::uint64_t q_high = high / ud;
    const std::uint64_t middle = ((high % ud) << 32) | (low >> 32);
    const std::uint64_t q_middle = middle / ud;
    const std::uint64_t last = ((middle % ud) << 32) | (low & 0xffffffffu);
    const std::int64_t q_last = divide_s64(static_cast<std::int64_t>(last), d, mode);
    quotient = make(q_high, q_middle << 32) + int128(q_last);
  }
  return signs_differ ? -quotient : quotient;
}

std::string int128::to_string() const {
  // Peel off nine decimal digits at a time from the magnitude.
  const bool negative = is_negative();
  int128 rest = negative ? -*this : *this;
  std::string digits;
  const std::uint64_t chunk = 1000000000u;
  do {
    // Unsigned long division by the chunk, 32 bits at a time.
    std::uint64_t words[4] = {rest.uhigh() >> 32, rest.uhigh() & 0xffffffffu, rest.m_low >> 32,
                              rest.m_low & 0xffffffffu};
    std::uint64_t remainder = 0;
    for (std::uint64_t& w : words) {
      const std::uint64_t current = (remainder << 32) | w;
      w = current / chunk;
      remainder = current % chunk;
    }
    rest = make((words[0] << 32) | words[1], (words[2] << 32) | words[3]);
    for (int i = 0; i < 9; ++i) {
      digits.push_back(char('0' + remainder % 10));
      remainder /= 10;
      if (rest == 0 && remainder == 0) break;
    }
  } while (rest != 0);
  if (negative) digits.push_back('-');
  return std::string(digits.rbegin(), digits.rend());
}

std::ostream& operator<<(std::ostream& os, const int128& value) { return os << value.to_string(); }

}  // namespace zelk
