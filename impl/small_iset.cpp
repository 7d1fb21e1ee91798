// The one-word integer set: bit tables, range updates, iterators over runs and
// progressions, the set text written and read everywhere a domain is shown.
//
// Scanning never walks bit by bit: a member is found with find_lsb_index or
// find_msb_index (two tests and a byte table), and the end of a run with one
// such look-up on the inverted word (see run_last / run_first below).
#include "impl/small_iset.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "impl/utilities.h"

namespace zelk {

//==== bit tables ===============================================================

// Written in octal so that each entry reads as its two digits: msb, lsb.
const unsigned char g_indexesForByte[256] = {
    007, 000, 011, 010, 022, 020, 021, 020, 033, 030, 031, 030, 032, 030, 031, 030,
    044, 040, 041, 040, 042, 040, 041, 040, 043, 040, 041, 040, 042, 040, 041, 040,
    055, 050, 051, 050, 052, 050, 051, 050, 053, 050, 051, 050, 052, 050, 051, 050,
    054, 050, 051, 050, 052, 050, 051, 050, 053, 050, 051, 050, 052, 050, 051, 050,
    066, 060, 061, 060, 062, 060, 061, 060, 063, 060, 061, 060, 062, 060, 061, 060,
    064, 060, 061, 060, 062, 060, 061, 060, 063, 060, 061, 060, 062, 060, 061, 060,
    065, 060, 061, 060, 062, 060, 061, 060, 063, 060, 061, 060, 062, 060, 061, 060,
    064, 060, 061, 060, 062, 060, 061, 060, 063, 060, 061, 060, 062, 060, 061, 060,
    077, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    074, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    075, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    074, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    076, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    074, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    075, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
    074, 070, 071, 070, 072, 070, 071, 070, 073, 070, 071, 070, 072, 070, 071, 070,
};




unsigned count_ranges_of_one(unsigned int word) {
  // Entry b: low nibble = runs of ones in b, high nibble = the same without a
  // run that reaches bit 7 (that run continues into the next byte).
  static constexpr std::array<unsigned char, 256> count_map = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned b = 0; b < 256; ++b) {
      unsigned runs = 0;
      for (unsigned i = 0; i < 8; ++i)
        if (((b >> i) & 1u) != 0 && (i == 0 || ((b >> (i - 1)) & 1u) == 0)) ++runs;
      const unsigned open_top = (b >> 7) & 1u;
      table[b] = static_cast<unsigned char>(runs | ((runs - open_top) << 4));
    }
    return table;
  }();
  unsigned total = 0;
  for (unsigned shift = 0; shift < 24; shift += 8) {
    const unsigned byte = (word >> shift) & 0xFFu;
    const bool continues = ((word >> (shift + 8)) & 1u) != 0;
    total += continues ? (count_map[byte] >> 4) : (count_map[byte] & 0xFu);
  }
  return total + (count_map[word >> 24] & 0xFu);
}

void throw_out_of_range(const char* what) {
  throw std::out_of_range(std::string("small_iset out of range ") + what);
}

//==== run and progression helpers ==============================================

namespace {

// Last member of the run that starts at the member p. Shifting the inverted word
// right by one puts the first non-member after p at the lowest set bit once the
// word is shifted by p; bit 31 stands for the non-member 32 that ends a run at 31.
unsigned run_last(std::uint32_t word, unsigned p) {
  return p + find_lsb_index(((~word >> 1) | 0x80000000u) >> p);
}

// First member of the run that ends at the member m: the mirror image of
// run_last, bit 0 standing for the non-member -1.
unsigned run_first(std::uint32_t word, unsigned m) {
  return find_msb_index(((~word << 1) | 1u) << (31 - m)) + m - 31;
}

// Lowest member above p, or 32.
unsigned next_member(std::uint32_t word, unsigned p) {
  const std::uint32_t above = p >= 31 ? 0u : word & (0xFFFFFFFEu << p);
  return above == 0 ? 32u : find_lsb_index(above);
}

// Highest member below p, or -1.
int previous_member(std::uint32_t word, unsigned p) {
  const std::uint32_t below = p >= 32 ? word : word & ((1u << p) - 1u);
  return below == 0 ? -1 : int(find_msb_index(below));
}

// Entry s: the bits 0, s, 2s, ... (s = 1..31); any larger stride keeps bit 0 only.
constexpr std::array<std::uint32_t, 32> k_stride_bits = [] {
  std::array<std::uint32_t, 32> table{};
  for (unsigned s = 1; s < 32; ++s)
    for (unsigned v = 0; v < 32; v += s) table[s] |= 1u << v;
  return table;
}();

// first, first + stride, ... up to second; 0 <= first <= second <= 31, stride > 0.
std::uint32_t progression_mask(int first, int second, unsigned stride) {
  const std::uint32_t bits = stride < 32 ? k_stride_bits[stride] : 1u;
  return (bits << unsigned(first)) & small_iset::range_mask(first, second);
}

}  // namespace

//==== set operations ===========================================================

void small_iset::throw_empty_min() { throw std::domain_error("min() over empty an set"); }

void small_iset::throw_empty_max() { throw std::domain_error("max() over empty an set"); }

void small_iset::insert(const value_range_type& range) {
  if (range.first > range.second || range.first < MIN_DOMAIN || range.second > MAX_DOMAIN)
    throw_out_of_range("while inserting a range");
  m_bits |= range_mask(range.first, range.second);
}

// Checks everything before touching the word, so that a refused insert leaves
// the set as it was.
void small_iset::insert(const value_range_type& range, unsigned int stride) {
  if (stride == 0) throw_out_of_range("while inserting a range");
  if (stride == 1) {
    insert(range);
    return;
  }
  if ((static_cast<long long>(range.second) - range.first) % stride != 0)
    throw_out_of_range("While inserting range with a wrong stride");
  if (range.first > range.second) throw_out_of_range("while inserting a range");
  if (range.first < MIN_DOMAIN || range.second > MAX_DOMAIN)
    throw_out_of_range("while inserting an element");
  m_bits |= progression_mask(range.first, range.second, stride);
}

small_iset::iterator small_iset::erase(iterator it) {
  const unsigned pos = it.position();
  if (pos > 31) return end();
  m_bits &= ~(1u << pos);
  return iterator(this, next_member(m_bits, pos));
}

void small_iset::erase(const value_range_type& range) {
  if (range.first > range.second) throw_out_of_range(": illegel unordered values in pair");
  if (range.second < MIN_DOMAIN || range.first > MAX_DOMAIN) return;
  m_bits &= ~range_mask(std::max(range.first, MIN_DOMAIN), std::min(range.second, MAX_DOMAIN));
}

void small_iset::intersect(const value_range_type& range) {
  if (range.first > range.second) throw_out_of_range("while inserting a range");
  if (range.second < MIN_DOMAIN || range.first > MAX_DOMAIN) {
    m_bits = 0;
    return;
  }
  m_bits &= range_mask(std::max(range.first, MIN_DOMAIN), std::min(range.second, MAX_DOMAIN));
}

namespace {

// Moves the bounds of the progression first, first + stride, ... onto 0..31: a
// negative first up to the smallest non-negative member, a second above 31 down
// to the largest member not above 31. Returns false when nothing is left. The
// arithmetic is unsigned so that the full 64-bit range cannot overflow.
bool clip_progression(long long& first, long long& second, unsigned long long stride) {
  if (first < 0) {
    const unsigned long long distance = 0ull - static_cast<unsigned long long>(first);
    const unsigned long long steps = (distance + stride - 1) / stride;
    first = static_cast<long long>(static_cast<unsigned long long>(first) + steps * stride);
  }
  if (first > small_iset::MAX_DOMAIN || first > second) return false;
  if (second > small_iset::MAX_DOMAIN)
    second = first + (small_iset::MAX_DOMAIN - first) / static_cast<long long>(stride) *
                         static_cast<long long>(stride);
  return true;
}

}  // namespace

void small_iset::intersect(const value_range_type& range, unsigned int stride) {
  if (range.first == range.second) {
    intersect(range);
    return;
  }
  if (stride == 0) throw_out_of_range("while inserting a range");
  long long first = range.first, second = range.second;
  if (!clip_progression(first, second, stride)) {
    m_bits = 0;
    return;
  }
  if (first < MIN_DOMAIN || second > MAX_DOMAIN) throw_out_of_range("while intersecting a range");
  m_bits &= progression_mask(int(first), int(second), stride);
}

void small_iset::intersect(const std::pair<long long, long long>& range, unsigned int stride) {
  if (stride == 0) throw_out_of_range("while inserting a range");
  long long first = range.first, second = range.second;
  if (!clip_progression(first, second, stride)) {
    m_bits = 0;
    return;
  }
  intersect(value_range_type(int(first), int(second)), stride);
}

small_iset::iterator small_iset::lower_bound(int v) const {
  if (v > MAX_DOMAIN) return end();
  if (v < MIN_DOMAIN) v = MIN_DOMAIN;
  const std::uint32_t rest = m_bits & (0xFFFFFFFFu << unsigned(v));
  return iterator(this, rest == 0 ? 32u : find_lsb_index(rest));
}

int small_iset::rand() const {
  if (m_bits == 0) throw_runtime_error("Can't zelk::small_iset::rand() for an empty set");
  if (is_full()) return random::range(MIN_DOMAIN, MAX_DOMAIN);
  unsigned k = random::gen(size());
  unsigned p = find_lsb_index(m_bits);
  for (;;) {
    const unsigned last = run_last(m_bits, p);
    if (k <= last - p) return int(p + k);
    k -= last - p + 1;
    p = next_member(m_bits, last);
  }
}

small_iset::small_iset(const std::string& text) : m_bits(0) { iset_helpers::assign_set(*this, text); }

void small_iset::show_self() const {
  std::ostringstream text;
  iset_helpers::print_set(text, *this);
  text << '\n';
  const std::string out = text.str();
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = ::write(1, out.data() + done, out.size() - done);
    if (n <= 0) return;
    done += std::size_t(n);
  }
}

std::ostream& operator<<(std::ostream& os, const small_iset& set) {
  iset_helpers::print_set(os, set);
  return os;
}

std::istream& operator>>(std::istream& is, small_iset& set) {
  iset_helpers::read_set(is, set);
  return is;
}

//==== iterators ================================================================

int small_iset::iterator::operator*() const {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::operator*() dereferncing NULL iterator");
  if (m_pos > 31)
    throw_runtime_error("small_iset::iterator::operator*() dereferncing empty iterator");
  return int(m_pos);
}

small_iset::iterator& small_iset::iterator::operator++() {
  if (m_set == nullptr) throw_runtime_error("iset::iterator::CurrentRange dereferncing NULL iterator");
  m_pos = next_member(m_set->bits(), m_pos);
  return *this;
}

small_iset::iterator& small_iset::iterator::operator--() {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::CurrentRange dereferncing NULL iterator");
  const int previous = previous_member(m_set->bits(), m_pos);
  if (previous >= 0) m_pos = unsigned(previous);
  return *this;
}

small_iset::value_range_type small_iset::iterator::current_range() const {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::current_range dereferencing NULL iterator");
  if (m_pos > 31)
    throw_runtime_error("small_iset::iterator::current_range dereferencing empty iterator");
  return value_range_type(int(m_pos), int(run_last(m_set->bits(), m_pos)));
}

small_iset::iterator& small_iset::iterator::advance_range() {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::advance_range dereferencing NULL iterator");
  if (m_pos > 31)
    throw_runtime_error("small_iset::iterator::advance_range dereferencing empty iterator");
  const std::uint32_t word = m_set->bits();
  m_pos = next_member(word, run_last(word, m_pos));
  return *this;
}

small_iset::iterator& small_iset::iterator::advance(unsigned int n) {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::advance_range dereferencing NULL iterator");
  if (m_pos > 31)
    throw_runtime_error("small_iset::iterator::advance_range dereferencing empty iterator");
  const std::uint32_t word = m_set->bits();
  while (n != 0 && m_pos <= 31) {
    const unsigned last = run_last(word, m_pos);
    if (n <= last - m_pos) {
      m_pos += n;
      break;
    }
    n -= last - m_pos + 1;
    m_pos = next_member(word, last);
  }
  return *this;
}

small_iset::iterator& small_iset::iterator::retract_range() {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::retract_range dereferencing NULL iterator");
  const std::uint32_t word = m_set->bits();
  const int previous = previous_member(word, m_pos);
  if (previous >= 0) m_pos = run_first(word, unsigned(previous));
  return *this;
}

// A run of two or more values is reported with stride 1; a single value and the
// evenly spaced members after it form one progression. Only members before `end`
// are taken.
small_iset::iterator small_iset::iterator::find_stride(iterator end, value_range_type& range,
                                                       unsigned int& stride) const {
  if (m_set == nullptr)
    throw_runtime_error("small_iset::iterator::find_stride dereferencing NULL iterator");
  if (m_set != end.m_set)
    throw_runtime_error("small_iset::iterator::find_stride refers to different small_iset objects");
  if (m_pos >= end.m_pos) throw_runtime_error("Empty an stride was requested");
  const std::uint32_t word = m_set->bits();
  const unsigned limit = end.m_pos;
  stride = 1;
  range = current_range();
  if (unsigned(range.second) >= limit) {
    range.second = int(limit) - 1;
    return end;
  }
  unsigned next = next_member(word, unsigned(range.second));
  if (range.first == range.second && next < limit) {
    stride = next - unsigned(range.first);
    range.second = int(next);
    next = next_member(word, next);
    while (next < limit && next - unsigned(range.second) == stride) {
      range.second = int(next);
      next = next_member(word, next);
    }
  }
  return next < limit ? iterator(m_set, next) : end;
}

// Mirror of find_stride: the members from `begin` (inclusive) up to this
// position (exclusive), taken from the top.
small_iset::iterator small_iset::iterator::find_back_stride(iterator begin, value_range_type& range,
                                                            unsigned int& stride) const {
  if (m_set == nullptr || begin.m_set == nullptr)
    throw_runtime_error("small_iset::iterator::find_back_stride dereferencing NULL iterator");
  if (m_set != begin.m_set)
    throw_runtime_error(
        "small_iset::iterator::find_back_stride refers to different small_iset objects");
  const std::uint32_t word = m_set->bits();
  const int low = int(begin.m_pos);
  const int top = previous_member(word, m_pos);
  if (m_pos <= begin.m_pos || top < low) throw_runtime_error("An Empty stride was requested");
  stride = 1;
  range = value_range_type(int(run_first(word, unsigned(top))), top);
  if (range.first <= low) {
    range.first = low;
    return begin;
  }
  int previous = previous_member(word, unsigned(range.first));
  if (range.first == range.second && previous >= low) {
    stride = unsigned(range.first - previous);
    range.first = previous;
    previous = previous_member(word, unsigned(previous));
    while (previous >= low && unsigned(range.first - previous) == stride) {
      range.first = previous;
      previous = previous_member(word, unsigned(previous));
    }
  }
  return iterator(m_set, unsigned(range.first));
}

//==== set text =================================================================

namespace iset_helpers {

void print_set(std::ostream& os, const small_iset& set) {
  const small_iset::iterator end = set.end();
  small_iset::value_range_type range;
  unsigned int stride = 1;
  bool first_item = true;
  for (small_iset::iterator it = set.begin(); it != end;) {
    it = it.find_stride(end, range, stride);
    if (!first_item) os << ',';
    first_item = false;
    os << range.first;
    if (range.second == range.first) continue;
    const long long span = static_cast<long long>(range.second) - range.first;
    if (span == stride)
      os << ',' << range.second;
    else if (stride == 1)
      os << ':' << range.second;
    else if (span == 2ll * stride)
      os << ',' << range.first + int(stride) << ',' << range.second;
    else
      os << ':' << stride << ':' << range.second;
  }
}

// Items a, a:b or a:s:b separated by ','. White space ends the set; the stream
// is left good and positioned at the first character that is not part of it.
void read_set(std::istream& is, small_iset& set) {
  ios_state_restore restore(is);
  is.unsetf(std::ios_base::skipws);
  set.clear();
  while (is.good()) {
    int first;
    if (!(is >> first)) break;
    small_iset::value_range_type range(first, first);
    unsigned int stride = 1;
    int next = is.get();
    bool last = next == std::istream::traits_type::eof();
    if (next == ':') {
      next = get_interval_end(is, range, stride);
      validate_interval(range, stride);
      last = next == std::istream::traits_type::eof();
    }
    if (stride == 1)
      set.insert(range);
    else
      set.insert(range, stride);
    if (last) break;
    if (next != ',') {
      is.unget();
      break;
    }
  }
}

int get_interval_end(std::istream& is, small_iset::value_range_type& range, unsigned int& stride) {
  const bool negative = is.peek() == '-';
  if (negative) {
    is >> range.second;
  } else {
    is >> stride;
    range.second = int(stride);
  }
  if (is.fail()) {
    std::ostringstream message;
    message << "2nd part of the range is missing " << range.first << ":";
    throw parse_error(message.str());
  }
  int c = is.get();
  if (is.fail() || c != ':') {
    stride = 1;
    return c;
  }
  if (negative || stride == 0) {
    std::ostringstream message;
    message << "Not expecting ':' after the range " << range.first << ":" << range.second;
    throw parse_error(message.str());
  }
  if (!(is >> range.second)) {
    std::ostringstream message;
    message << "3nd part of the stride is missing " << range.first << ":" << stride << ":";
    throw parse_error(message.str());
  }
  return is.get();
}

void validate_interval(const small_iset::value_range_type& range, unsigned int stride) {
  if (range.first > range.second) {
    std::ostringstream message;
    message << "Input range is unordered " << range.first << ":" << range.second;
    throw parse_error(message.str());
  }
  if (stride == 0 || (static_cast<long long>(range.second) - range.first) % stride != 0) {
    std::ostringstream message;
    message << "Input interval size does not match skip size of " << stride << "bounds are "
            << range.first << ":" << range.second;
    throw parse_error(message.str());
  }
}

void assign_set(small_iset& set, const std::string& text) {
  std::istringstream is(text);
  read_set(is, set);
  const int c = is.get();
  if (c != std::istringstream::traits_type::eof()) {
    std::ostringstream message;
    message << "unexpected '" << char(c) << "' while parsing an iset of '" << text << "'\n";
    throw parse_error(message.str());
  }
}

}  // namespace iset_helpers

}  // namespace zelk
