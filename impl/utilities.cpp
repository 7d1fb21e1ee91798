// Out-of-line parts of the small services: the runtime-error raise, the one
// random generator over the C library's rand() state, and the members of the
// duplicate-free queue that are not on the propagation hot path.
#include "impl/utilities.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace zelk {

void throw_runtime_error(const char* what) { throw std::runtime_error(what); }

//==== random ===================================================================

unsigned int random::set_seed(unsigned int seed) {
  if (seed == 0) {
    bool drawn = false;
    if (std::FILE* device = std::fopen("/dev/urandom", "rb")) {
      drawn = std::fread(&seed, sizeof seed, 1, device) == 1;
      std::fclose(device);
    }
    if (!drawn) seed = static_cast<unsigned int>(std::time(nullptr));
  }
  std::srand(seed);
  return seed;
}

// rand() gives 31 bits; three calls overlapping by shifts of 11 and 22 fill a word.
std::uint32_t random::gen() {
  const std::uint32_t a = static_cast<std::uint32_t>(std::rand());
  const std::uint32_t b = static_cast<std::uint32_t>(std::rand());
  const std::uint32_t c = static_cast<std::uint32_t>(std::rand());
  return a ^ (b << 11) ^ (c << 22);
}

std::uint32_t random::gen(unsigned int n) {
  if (n == 0) throw std::invalid_argument("random::gen(0) is not allowed");
  if (n <= 2147483647u) return static_cast<std::uint32_t>(std::rand()) % n;
  return gen() % n;
}

unsigned int random::range(unsigned int lo, unsigned int hi) {
  if (lo > hi) throw std::invalid_argument("random::range: wrong parameter order");
  if (lo == hi) return lo;
  if (lo == 0 && hi == UINT_MAX) return gen();
  return gen(hi - lo + 1) + lo;
}

// Shifting by 2^31 maps the int order onto the unsigned order.
int random::range(int lo, int hi) {
  const unsigned int shift = 0x80000000u;
  return static_cast<int>(range(static_cast<unsigned int>(lo) + shift,
                                static_cast<unsigned int>(hi) + shift) -
                          shift);
}

//==== unique_queue<void> =======================================================

void unique_queue<void>::set_max_elements(unsigned long n) {
  if (n < m_max_elements) validate_all_elements_below(static_cast<unsigned int>(n));
  m_bits.resize(n / 32 + (n % 32 != 0 ? 1 : 0), 0u);
  if (n % 32 != 0) m_bits.back() &= (1u << (n % 32)) - 1u;
  m_max_elements = n;
}

unsigned int unique_queue<void>::pop() {
  if (m_queue.empty()) throw std::out_of_range("Popping out of an empty queue");
  const unsigned int x = m_queue.front();
  m_queue.pop_front();
  m_bits[x >> 5] &= ~(1u << (x & 31u));
  return x;
}

void unique_queue<void>::clear() {
  m_queue.clear();
  std::fill(m_bits.begin(), m_bits.end(), 0u);
}

// A set bit at n or above may only be a mark; it is an error only if a queued
// element is that large. The bits are checked first so that the queue is
// scanned only when it can matter.
void unique_queue<void>::validate_all_elements_below(unsigned int n) const {
  bool high_bit = false;
  for (std::size_t w = n / 32; w < m_bits.size() && !high_bit; ++w) {
    std::uint32_t word = m_bits[w];
    if (w == n / 32) word &= ~((1u << (n % 32)) - 1u);
    high_bit = word != 0;
  }
  if (!high_bit) return;
  for (unsigned int x : m_queue)
    if (x >= n) throw std::out_of_range("At least one element is too big");
}

void unique_queue<void>::throw_out_of_range_element() {
  throw std::out_of_range("unique_queue: element beyond the maximum");
}

}  // namespace zelk
