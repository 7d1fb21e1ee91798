// Sums of sets modulo 32, one arithmetic progression at a time (entry points:
// plus, minus, neg).
//
// The sum of a progression {f, f+s, ..., f+ks} with a set B is B rotated by f,
// f+s, ..., f+ks and or-ed together. Rotating the accumulated word by n*s doubles
// the number of shifts it covers, so a progression of k+1 members costs about
// log2(k+1) + 1 rotations of B, whatever B holds.
//
// The progressions are those that small_iset::iterator::find_stride reports, but
// taken straight off the word: through the iterator objects, plus took 90 to 180 ns
// per call in bench/micro/propagation_bench, against 7 to 11 ns here. A first pass
// against one run of b was dropped for the same reason: each step against the
// whole of b reaches a superset of what the same step against one run reaches, so
// such a pass can never end the work sooner, and it made plus two to three times
// slower.
#include "impl/propagation.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace zelk::propagation {

namespace {

std::uint32_t rotate(std::uint32_t word, unsigned int by) { return std::rotl(word, int(by & 31u)); }

// word | rotate(word, s) | ... | rotate(word, k*s). While the accumulated word
// covers the shifts 0..(n-1)s, one rotation by n*s doubles it; a last rotation by
// (k+1-n)s overlaps what is covered and reaches k*s.
std::uint32_t spread(std::uint32_t word, unsigned int stride, unsigned int k) {
  const unsigned int terms = k + 1;
  unsigned int n = 1;
  while (2 * n <= terms) {
    word |= rotate(word, n * stride);
    n *= 2;
  }
  if (n < terms) word |= rotate(word, (terms - n) * stride);
  return word;
}

// Takes the lowest progression off the non-empty word w: a run of two or more
// consecutive members (stride 1), or a single member followed by members at equal
// gaps. Writes its first member, stride and number of steps k.
void take_progression(std::uint32_t& w, unsigned int& first, unsigned int& stride,
                      unsigned int& k) {
  first = unsigned(std::countr_zero(w));
  const unsigned int run = unsigned(std::countr_one(w >> first));
  stride = 1;
  if (run >= 2 || w == (1u << first)) {
    k = run - 1;
    w = first + run >= 32 ? 0u : w & (~0u << (first + run));
    return;
  }
  w &= w - 1;
  unsigned int last = unsigned(std::countr_zero(w));
  stride = last - first;
  k = 1;
  for (w &= w - 1; w != 0 && unsigned(std::countr_zero(w)) - last == stride; w &= w - 1) {
    last += stride;
    ++k;
  }
}

// Number of maximal runs of members: each run has one member whose lower
// neighbour is missing.
unsigned int runs(std::uint32_t w) { return unsigned(std::popcount(w & ~(w << 1))); }

}  // namespace

void plus(small_model::iset a, small_model::iset b, small_model::iset& out) {
  const std::uint32_t want = out.bits();
  if (want == 0) return;
  if (a.empty() || b.empty()) {
    out.clear();
    return;
  }
  if (a.is_full() || b.is_full()) return;
  std::uint32_t progressions = a.bits();
  std::uint32_t other = b.bits();
  // The operand with fewer runs usually has fewer progressions.
  if (runs(progressions) > runs(other)) std::swap(progressions, other);
  std::uint32_t reached = 0;
  unsigned int first, stride, k;
  while (progressions != 0) {
    take_progression(progressions, first, stride, k);
    reached |= rotate(spread(other, stride, k), first);
    // Everything out holds is reached (a wide enough range reaches all 32
    // values at once): out stays as it is.
    if ((want & ~reached) == 0) return;
  }
  out = small_model::iset::from_bits(want & reached);
}

void minus(small_model::iset a, small_model::iset b, small_model::iset& out) {
  plus(a, negated(b), out);
}

void neg(small_model::iset a, small_model::iset& out) { out &= negated(a); }

small_model::iset negated(small_model::iset a) {
  // Reversing the word maps v to 31 - v; one more rotation makes it 32 - v.
  std::uint32_t x = a.bits();
  x = ((x >> 1) & 0x55555555u) | ((x & 0x55555555u) << 1);
  x = ((x >> 2) & 0x33333333u) | ((x & 0x33333333u) << 2);
  x = ((x >> 4) & 0x0F0F0F0Fu) | ((x & 0x0F0F0F0Fu) << 4);
  x = ((x >> 8) & 0x00FF00FFu) | ((x & 0x00FF00FFu) << 8);
  x = (x >> 16) | (x << 16);
  return small_model::iset::from_bits(rotate(x, 1));
}

}  // namespace zelk::propagation
