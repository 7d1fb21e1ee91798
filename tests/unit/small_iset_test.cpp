// The one-word set against a per-value reference: queries, updates, iterators, progressions, text.
#include "impl/small_iset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "impl/utilities.h"

namespace zelk {
namespace {

typedef small_iset::iterator iter;
typedef small_iset::value_range_type range_type;

bool has(std::uint32_t w, long long v) { return v >= 0 && v <= 31 && ((w >> v) & 1u) != 0; }

// Single bits, the full word, sparse, dense, plain words, unions of runs and progressions.
std::uint32_t word_number(int i, std::mt19937& rng) {
  if (i <= 32) return i == 32 ? ~0u : 1u << i;
  if (rng() % 2) return rng() % 3 == 0 ? rng() : rng() % 2 ? rng() & rng() & rng() : rng() | rng();
  std::uint32_t w = 0;
  for (unsigned k = 1 + rng() % 3; k-- > 0;)
    for (unsigned v = rng() % 32, n = rng() % 13, d = 1 + rng() % 2 * (rng() % 12); v < 32 && n--; v += d)
      w |= 1u << v;
  return w;
}

// find_stride over members m: the first gap sets the stride, equal gaps extend it.
std::tuple<range_type, unsigned, int> naive_stride(const std::vector<int>& m, int limit) {
  const unsigned stride = m.size() > 1 ? unsigned(m[1] - m[0]) : 1u;
  std::size_t k = 1;
  while (k < m.size() && unsigned(m[k] - m[k - 1]) == stride) ++k;
  return {range_type(m[0], m[k - 1]), stride, k < m.size() ? m[k] : limit};
}

TEST(small_iset, every_operation_matches_a_per_value_reference) {
  std::mt19937 rng(20240501);
  random::set_seed(4242);
  EXPECT_THROW((void)small_iset().min(), std::domain_error);
  const auto after = [](std::uint32_t w, auto op) -> long long {  // refused: -1 - the word left
    small_iset s = small_iset::from_bits(w);
    try { op(s); } catch (const std::out_of_range&) { return -1 - (long long)s.bits(); }
    return s.bits();
  };
  for (int i = 0; i < 2000; ++i) {
    const std::uint32_t w = word_number(i, rng);
    const small_iset s = small_iset::from_bits(w);
    std::vector<int> m;
    unsigned runs = 0;
    for (int v = 0; v < 32; ++v) if (has(w, v)) m.push_back(v), runs += !has(w, v - 1);
    std::stringstream text;
    small_iset back;
    text << s << (i % 2 ? " tail" : "");
    text >> back;
    SCOPED_TRACE("word " + std::to_string(w) + " text " + text.str());
    ASSERT_TRUE(back == s && text.good()) << "the end of the input leaves the stream good";
    ASSERT_EQ(text.get(), i % 2 ? ' ' : EOF) << "white space ends the set and stays unread";
    ASSERT_EQ(count_ranges_of_one(w), runs);
    ASSERT_TRUE(s.size() == m.size() && s.is_singleton() == (m.size() == 1));
    for (int v = -2; v <= 33; ++v) {
      ASSERT_EQ(s.contains(v), has(w, v)) << v;
      const auto above = std::lower_bound(m.begin(), m.end(), v);
      ASSERT_EQ(s.lower_bound(v).position(), above == m.end() ? 32u : unsigned(*above)) << v;
    }
    for (int k = 0; k < 20; ++k) {  // range updates
      const int first = int(rng() % 81) - 30, stride = int(rng() % 41);
      const int second = rng() % 4 ? first + stride * int(rng() % 7) : int(rng() % 81) - 30;
      SCOPED_TRACE(testing::Message() << first << ":" << stride << ":" << second);
      const bool ordered = first <= second, inside = ordered && first >= 0 && second <= 31;
      std::uint32_t in = 0, progression = 0;  // the interval, and the progression unbounded
      for (int v = 0; v < 32; ++v) {
        in |= unsigned(v >= first && v <= second) << v;
        progression |= unsigned(stride > 0 && (v - first) % stride == 0) << v;
      }
      const std::uint32_t step = in & progression;
      const range_type r(first, second);
      const long long refused = -1 - (long long)w;
      const bool fits = stride == 1 ? inside : stride && inside && (second - first) % stride == 0;
      ASSERT_EQ(after(w, [&](small_iset& t) { t.insert(r); }), inside ? w | in : refused);
      ASSERT_EQ(after(w, [&](small_iset& t) { t.insert(r, stride); }), fits ? w | step : refused);
      ASSERT_EQ(after(w, [&](small_iset& t) { t.erase(r); }), ordered ? w & ~in : refused);
      ASSERT_EQ(after(w, [&](small_iset& t) { t.intersect(r); }), ordered ? w & in : refused);
      if (stride == 0) continue;
      ASSERT_EQ(after(w, [&](small_iset& t) { t.intersect(r, stride); }), w & (first == second ? in : step));
      const long long d = 1000000007LL * stride;  // the same progression, 64-bit bounds
      ASSERT_EQ(after(w, [&](small_iset& t) { t.intersect(std::make_pair(first - d, second + d), stride); }),
                w & (first - d <= second + d ? progression : 0));
    }
    if (m.empty()) continue;
    ASSERT_TRUE(s.min() == m.front() && s.max() == m.back());
    std::uint32_t drawn = 0;
    for (unsigned k = 0; k < 40 * m.size() + 40; ++k) drawn |= 1u << s.rand();
    ASSERT_EQ(drawn, w) << "rand() reaches every member and nothing else";
    for (std::size_t k = 0; k <= m.size(); ++k) {  // moves from each member and from the end
      const int p = k < m.size() ? m[k] : 32, next = k + 1 < m.size() ? m[k + 1] : 32;
      int start = k == 0 ? p : m[k - 1], last = p;
      while (k > 0 && has(w, start - 1)) --start;
      ASSERT_EQ(iter(&s, p).retract_range().position(), unsigned(start)) << p;
      ASSERT_EQ((--iter(&s, p)).position(), unsigned(k == 0 ? p : m[k - 1])) << p;
      ASSERT_EQ((++iter(&s, p)).position(), unsigned(p == 32 ? 32 : next)) << p;
      if (p == 32) break;
      small_iset e = s;
      ASSERT_TRUE(e.erase(iter(&e, p)).position() == unsigned(next) && e.bits() == (w & ~(1u << p)));
      while (has(w, last + 1)) ++last;
      ASSERT_EQ(iter(&s, p).current_range(), range_type(*iter(&s, p), last));
      ASSERT_EQ(iter(&s, p).advance_range().position(), s.lower_bound(last + 1).position());
      for (unsigned n = 0; n <= 33; ++n)
        ASSERT_EQ(iter(&s, p).advance(n).position(), k + n < m.size() ? unsigned(m[k + n]) : 32u);
      for (int bound = 0; bound <= 32; ++bound) {
        const bool up = bound > p;  // up from p to bound (exclusive), or mirrored down to bound
        std::vector<int> part;
        for (int v : m)
          if (up ? v >= p && v < bound : v >= bound && v <= p) part.push_back(up ? v : 31 - v);
        if (!up) std::reverse(part.begin(), part.end());
        auto [want, want_stride, stop] = naive_stride(part, bound);
        if (!up) want = range_type(31 - want.second, 31 - want.first), stop = want.first;
        range_type got;
        unsigned stride = 0;
        const iter it = up ? iter(&s, p).find_stride(iter(&s, bound), got, stride)
                           : iter(&s, p + 1).find_back_stride(iter(&s, bound), got, stride);
        ASSERT_EQ(got, want) << "to " << bound;
        ASSERT_EQ(it.position(), unsigned(stop)) << "to " << bound;
        ASSERT_TRUE(stride == want_stride || want.first == want.second) << "to " << bound;
      }
    }
  }
  EXPECT_EQ(after(~0u, [](small_iset& t) { t.intersect(std::make_pair(LLONG_MIN, LLONG_MAX), 4); }),
            0x11111111);
}

TEST(small_iset, text_forms_and_refused_texts) {
  std::ostringstream os;
  for (const char* text : {"1,2", "1:3", "1,3,5", "1:2:7", "0,2,4,7", "1,3,4,5", "31", "", "0:31"})
    os << small_iset(text) << ';';
  EXPECT_EQ(os.str(), "1,2;1:3;1,3,5;1:2:7;0,2,4,7;1,3,4,5;31;;0:31;");
  EXPECT_EQ(small_iset("0,2,7,9:11,4:9:4").bits(), 0xE95u);
  for (const char* text : {"5:1", "1:-2", "1:2:6", "1:0:5", "1:-2:5", "1:x", "1:2:", "1,2 3", "40", "1:2:33"})
    EXPECT_ANY_THROW(small_iset{std::string(text)}) << text;
}

}  // namespace
}  // namespace zelk
