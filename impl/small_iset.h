// The one-word integer set: every domain and every literal set of the solver.
//
// A set holds values 0..31, bit v of the word set meaning v is a member. Sets are
// values: passed by value, copied in one move, intersected, complemented and
// compared with one machine instruction. Nothing here allocates except the text
// reader and writer.
//
// Scanning uses the byte tables (find_lsb_index, find_msb_index, count_ones,
// count_ranges_of_one); runs of members are found with one bit trick per run.
#ifndef ZELK_IMPL_SMALL_ISET_H
#define ZELK_IMPL_SMALL_ISET_H

#include <array>
#include <bit>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>

namespace zelk {

// entry = msb * 8 + lsb of the byte; entry 0 is unused by valid calls.
extern const unsigned char g_indexesForByte[256];

// Index of the lowest set bit. Precondition: word != 0.
// Inline: every min(), every member scan and every run scan goes through here.
inline unsigned find_lsb_index(unsigned int word) {
  unsigned base = 0;
  if ((word & 0xFFFFu) == 0) {
    word >>= 16;
    base = 16;
  }
  if ((word & 0xFFu) == 0) {
    word >>= 8;
    base += 8;
  }
  return base + (g_indexesForByte[word & 0xFFu] & 7u);
}

// Index of the highest set bit. Precondition: word != 0.
inline unsigned find_msb_index(unsigned int word) {
  unsigned base = 0;
  if ((word & 0xFFFF0000u) != 0) {
    word >>= 16;
    base = 16;
  }
  if ((word & 0xFF00u) != 0) {
    word >>= 8;
    base += 8;
  }
  return base + (g_indexesForByte[word & 0xFFu] >> 3);
}

// Inline: size() runs in front of every domain write and inside both heap
// comparisons. With -mpopcnt (set by the build where the machine has it) this is
// one instruction, else a call of the compiler's bit-count routine.
inline unsigned count_ones(unsigned int word) { return unsigned(std::popcount(word)); }
// Number of maximal runs of set bits.
unsigned count_ranges_of_one(unsigned int word);

// Raises std::out_of_range "small_iset out of range " + what.
[[noreturn]] void throw_out_of_range(const char* what);

class small_iset {
 public:
  static constexpr int MIN_DOMAIN = 0;
  static constexpr int MAX_DOMAIN = 31;
  typedef int value_type;
  typedef unsigned int size_type;
  typedef std::pair<int, int> value_range_type;  // inclusive interval

  // Points at a member of a set, or at position 32 (the end). The position of an
  // iterator over an empty set does not matter: it equals end().
  class iterator {
   public:
    static constexpr bool CHECKS_BOUNDS = true;
    static constexpr bool INVALIDATED_BY_ERASE = false;

    iterator() : m_set(nullptr), m_pos(32) {}
    iterator(const small_iset* set, unsigned pos) : m_set(set), m_pos(pos) {}

    int operator*() const;
    iterator& operator++();
    iterator operator++(int) {
      iterator old = *this;
      ++*this;
      return old;
    }
    iterator& operator--();
    bool operator==(const iterator& other) const {
      return m_set == other.m_set &&
             (m_set == nullptr || m_set->empty() || m_pos == other.m_pos);
    }
    bool operator!=(const iterator& other) const { return !(*this == other); }

    // The run of consecutive members starting at the position: (position, last of run).
    // The position is expected to be a member (not one erased since).
    value_range_type current_range() const;
    // Moves to the first member after the current run.
    iterator& advance_range();
    // Moves n members forward, stopping at the end.
    iterator& advance(unsigned int n);
    // Moves to the start of the run that ends at the member before the position.
    iterator& retract_range();
    // Finds the arithmetic progression starting here, ending before `end`.
    // Returns the iterator after it.
    iterator find_stride(iterator end, value_range_type& range, unsigned int& stride) const;
    // Mirror image of find_stride, scanning down towards `begin`. Returns the
    // iterator at the start of the progression found.
    iterator find_back_stride(iterator begin, value_range_type& range,
                              unsigned int& stride) const;

    const small_iset* set() const { return m_set; }
    unsigned position() const { return m_pos; }

   private:
    const small_iset* m_set;
    unsigned m_pos;
  };
  typedef iterator const_iterator;

  small_iset() : m_bits(0) {}
  explicit small_iset(const std::string& text);

  // Raw word access: the representation is part of the contract.
  static small_iset from_bits(std::uint32_t bits) {
    small_iset s;
    s.m_bits = bits;
    return s;
  }
  std::uint32_t bits() const { return m_bits; }

  static small_iset full() { return from_bits(0xFFFFFFFFu); }
  // {v}; v outside 0..31 raises the range error "while assigning an element".
  static small_iset singleton(int v) {
    small_iset s;
    s.assign(v);
    return s;
  }
  // lo..hi clipped to 0..31; empty when hi < lo or the interval lies outside.
  static small_iset clipped_range(long long lo, long long hi) {
    if (lo < 0) lo = 0;
    if (hi > 31) hi = 31;
    if (hi < lo) return small_iset();
    return from_bits(range_mask(int(lo), int(hi)));
  }
  // Mask of lo..hi, 0 <= lo <= hi <= 31.
  static std::uint32_t range_mask(int lo, int hi) {
    return (0xFFFFFFFFu >> (31 - hi)) & (0xFFFFFFFFu << lo);
  }

  // ---- queries ------------------------------------------------------------
  bool empty() const { return m_bits == 0; }
  size_type size() const { return count_ones(m_bits); }
  bool is_singleton() const { return m_bits != 0 && (m_bits & (m_bits - 1)) == 0; }
  bool is_full() const { return m_bits == 0xFFFFFFFFu; }
  // False for any value outside 0..31, without raising.
  bool contains(int v) const {
    return unsigned(v) <= 31u && ((m_bits >> unsigned(v)) & 1u) != 0;
  }
  // Raise std::domain_error on the empty set.
  int min() const {
    if (m_bits == 0) throw_empty_min();
    return int(find_lsb_index(m_bits));
  }
  int max() const {
    if (m_bits == 0) throw_empty_max();
    return int(find_msb_index(m_bits));
  }
  bool subset_of(const small_iset& o) const { return (m_bits & ~o.m_bits) == 0; }
  bool disjoint(const small_iset& o) const { return (m_bits & o.m_bits) == 0; }
  bool intersects(const small_iset& o) const { return (m_bits & o.m_bits) != 0; }

  // ---- word operations ----------------------------------------------------
  small_iset operator&(const small_iset& o) const { return from_bits(m_bits & o.m_bits); }
  small_iset operator|(const small_iset& o) const { return from_bits(m_bits | o.m_bits); }
  small_iset operator-(const small_iset& o) const { return from_bits(m_bits & ~o.m_bits); }
  small_iset operator~() const { return from_bits(~m_bits); }
  small_iset& operator&=(const small_iset& o) {
    m_bits &= o.m_bits;
    return *this;
  }
  small_iset& operator|=(const small_iset& o) {
    m_bits |= o.m_bits;
    return *this;
  }
  small_iset& operator-=(const small_iset& o) {
    m_bits &= ~o.m_bits;
    return *this;
  }
  bool operator==(const small_iset& o) const { return m_bits == o.m_bits; }
  bool operator!=(const small_iset& o) const { return m_bits != o.m_bits; }
  void clear() { m_bits = 0; }

  // ---- updates with range checks -----------------------------------------
  // v outside 0..31: range error "while inserting an element".
  void insert(int v) {
    if (unsigned(v) > 31u) throw_out_of_range("while inserting an element");
    m_bits |= 1u << unsigned(v);
  }
  // The set becomes {v}; v outside 0..31: range error "while assigning an element".
  void assign(int v) {
    if (unsigned(v) > 31u) throw_out_of_range("while assigning an element");
    m_bits = 1u << unsigned(v);
  }
  void erase(int v) {
    if (unsigned(v) <= 31u) m_bits &= ~(1u << unsigned(v));
  }
  void insert(const value_range_type& range);
  void insert(const value_range_type& range, unsigned int stride);
  iterator erase(iterator it);
  void erase(const value_range_type& range);
  void intersect(const value_range_type& range);
  void intersect(const value_range_type& range, unsigned int stride);
  void intersect(const std::pair<long long, long long>& range, unsigned int stride);

  // Lowest member not below v; negative v counts as 0, v above 31 gives end().
  iterator lower_bound(int v) const;
  // A member chosen uniformly with zelk::random.
  int rand() const;

  iterator begin() const {
    return iterator(this, m_bits == 0 ? 32u : find_lsb_index(m_bits));
  }
  iterator end() const { return iterator(this, 32u); }

  // Debug aid: the text and a newline straight to file descriptor 1.
  void show_self() const;

 private:
  [[noreturn]] static void throw_empty_min();
  [[noreturn]] static void throw_empty_max();

  std::uint32_t m_bits;
};

std::ostream& operator<<(std::ostream& os, const small_iset& set);
std::istream& operator>>(std::istream& is, small_iset& set);

namespace iset_helpers {
void print_set(std::ostream& os, const small_iset& set);
void read_set(std::istream& is, small_iset& set);
// Reads the part after "first:"; returns the character that follows the item.
int get_interval_end(std::istream& is, small_iset::value_range_type& range,
                     unsigned int& stride);
void validate_interval(const small_iset::value_range_type& range, unsigned int stride);
void assign_set(small_iset& set, const std::string& text);
}  // namespace iset_helpers

namespace small_model {

// The set type that the rest of the program uses: the same single word.
class iset : public small_iset {
 public:
  using small_iset::small_iset;
  iset() = default;
  iset(const small_iset& s) : small_iset(s) {}  // NOLINT: same representation
  static iset from_bits(std::uint32_t bits) { return iset(small_iset::from_bits(bits)); }
  static iset full() { return iset(small_iset::full()); }
  static iset singleton(int v) { return iset(small_iset::singleton(v)); }
  static iset clipped_range(long long lo, long long hi) {
    return iset(small_iset::clipped_range(lo, hi));
  }
  // The word operations again, so that they keep the type.
  iset operator&(const small_iset& o) const { return iset(small_iset::operator&(o)); }
  iset operator|(const small_iset& o) const { return iset(small_iset::operator|(o)); }
  iset operator-(const small_iset& o) const { return iset(small_iset::operator-(o)); }
  iset operator~() const { return iset(small_iset::operator~()); }
};

}  // namespace small_model

static_assert(sizeof(small_iset) == 4, "a set is one word");
static_assert(sizeof(small_model::iset) == 4, "a set is one word");

}  // namespace zelk

#endif
