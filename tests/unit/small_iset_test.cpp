// Tests of the one-word integer set: bit tables, range updates and their
// errors, iterators over runs and progressions, and the set text, each checked
// against a plain per-bit reference on random words.
#include "impl/small_iset.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/utilities.h"

namespace zelk {
namespace {

// what() of the exception of type E that f raises, or a marker if none.
template <class E, class F>
std::string error_text(F f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "<no exception>";
}

std::string text_of(const small_iset& s) {
  std::ostringstream os;
  os << s;
  return os.str();
}

small_iset set_of(std::initializer_list<int> values) {
  small_iset s;
  for (int v : values) s.insert(v);
  return s;
}

std::vector<unsigned> members_of(std::uint32_t word) {
  std::vector<unsigned> members;
  for (unsigned v = 0; v < 32; ++v)
    if ((word >> v) & 1u) members.push_back(v);
  return members;
}

bool has(std::uint32_t word, int v) { return v >= 0 && v <= 31 && ((word >> v) & 1u) != 0; }

// Sparse, dense, plain and run-shaped words, so that single members, long runs
// and both ends of the word all turn up.
std::uint32_t random_word(std::mt19937& rng) {
  switch (rng() % 5) {
    case 0: return rng() & rng();
    case 1: return rng() | rng();
    case 2: {
      const int lo = int(rng() % 32), hi = lo + int(rng() % unsigned(32 - lo));
      return small_iset::range_mask(lo, hi) | (1u << (rng() % 32));
    }
    case 3: return rng() & rng() & rng() & rng();
    default: return rng();
  }
}

//==== bit tables =================================================================

TEST(small_iset, bit_tables_match_naive_scans) {
  EXPECT_EQ(g_indexesForByte[0], 7);
  for (unsigned b = 1; b < 256; ++b) {
    const std::vector<unsigned> m = members_of(b);
    EXPECT_EQ(g_indexesForByte[b], m.back() * 8 + m.front()) << "byte " << b;
  }
  std::mt19937 rng(20240501);
  std::vector<std::uint32_t> words = {0xFFFFFFFFu, 0x80000000u, 1u, 0x00010000u, 0x00800000u};
  for (unsigned i = 0; i < 32; ++i) words.push_back(1u << i);
  for (int i = 0; i < 20000; ++i) words.push_back(random_word(rng));
  for (std::uint32_t w : words) {
    if (w == 0) continue;
    const std::vector<unsigned> m = members_of(w);
    unsigned runs = 0;
    for (unsigned v = 0; v < 32; ++v)
      if (has(w, int(v)) && !has(w, int(v) - 1)) ++runs;
    ASSERT_EQ(find_lsb_index(w), m.front()) << std::hex << w;
    ASSERT_EQ(find_msb_index(w), m.back()) << std::hex << w;
    ASSERT_EQ(count_ones(w), m.size()) << std::hex << w;
    ASSERT_EQ(count_ranges_of_one(w), runs) << std::hex << w;
  }
  EXPECT_EQ(count_ones(0), 0u);
  EXPECT_EQ(count_ranges_of_one(0), 0u);
  EXPECT_EQ(count_ranges_of_one(0xFFFFFFFFu), 1u);
  EXPECT_EQ(count_ranges_of_one(0x55555555u), 16u);
  EXPECT_EQ(count_ranges_of_one(0xAAAAAAAAu), 16u);
  EXPECT_EQ(count_ranges_of_one(0x00FFFF00u), 1u);  // one run across a byte border
  EXPECT_EQ(count_ranges_of_one(0x80000001u), 2u);
}

//==== queries and range updates ==================================================

TEST(small_iset, queries_on_edges_of_the_domain) {
  const small_iset empty;
  EXPECT_EQ(error_text<std::domain_error>([&] { (void)empty.min(); }), "min() over empty an set");
  EXPECT_EQ(error_text<std::domain_error>([&] { (void)empty.max(); }), "max() over empty an set");
  const small_iset s = set_of({0, 31});
  EXPECT_EQ(s.min(), 0);
  EXPECT_EQ(s.max(), 31);
  EXPECT_FALSE(s.contains(-1));
  EXPECT_FALSE(s.contains(32));
  EXPECT_FALSE(s.contains(INT_MIN));
  EXPECT_TRUE(set_of({7}).is_singleton());
  EXPECT_FALSE(s.is_singleton());
  EXPECT_FALSE(empty.is_singleton());
  EXPECT_EQ((~s).size(), 30u);
  EXPECT_TRUE((~small_iset()).is_full());
}

TEST(small_iset, element_and_range_insert_errors) {
  small_iset s = set_of({4});
  const std::string prefix = "small_iset out of range ";
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert(32); }), prefix + "while inserting an element");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert(-1); }), prefix + "while inserting an element");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.assign(32); }), prefix + "while assigning an element");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({3, 2}); }), prefix + "while inserting a range");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({-1, 2}); }), prefix + "while inserting a range");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({0, 32}); }), prefix + "while inserting a range");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({1, 6}, 2); }),
            prefix + "While inserting range with a wrong stride");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({29, 33}, 2); }),
            prefix + "while inserting an element");
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.insert({-2, 2}, 2); }),
            prefix + "while inserting an element");
  EXPECT_EQ(s, set_of({4})) << "a refused insert leaves the set alone";

  s.insert({1, 7}, 2);
  EXPECT_EQ(s, set_of({1, 3, 4, 5, 7}));
  s.insert({10, 12}, 1);
  EXPECT_EQ(s, set_of({1, 3, 4, 5, 7, 10, 11, 12}));
  s.insert({20, 20}, 9);
  EXPECT_TRUE(s.contains(20));
  s.insert({0, 31});
  EXPECT_TRUE(s.is_full());
}

TEST(small_iset, erase_and_intersect_clip_to_the_domain) {
  const std::string prefix = "small_iset out of range ";
  small_iset s = small_iset::full();
  EXPECT_EQ(error_text<std::out_of_range>([&] { s.erase({5, 3}); }),
            prefix + ": illegel unordered values in pair");
  s.erase({32, 40});
  s.erase({-9, -1});
  EXPECT_TRUE(s.is_full());
  s.erase({-5, 3});
  s.erase({30, 100});
  EXPECT_EQ(s, small_iset::from_bits(small_iset::range_mask(4, 29)));

  EXPECT_EQ(error_text<std::out_of_range>([&] { s.intersect({5, 3}); }),
            prefix + "while inserting a range");
  small_iset t = s;
  t.intersect({-3, 6});
  EXPECT_EQ(t, set_of({4, 5, 6}));
  t.intersect({32, 40});
  EXPECT_TRUE(t.empty());
  t = s;
  t.intersect({-9, -1});
  EXPECT_TRUE(t.empty());
}

TEST(small_iset, strided_intersect_clips_bounds_onto_the_progression) {
  const std::string prefix = "small_iset out of range ";
  small_iset s = small_iset::full();
  s.intersect(small_iset::value_range_type(-5, 40), 3);  // -5, -2, 1, 4, ..., 31
  EXPECT_EQ(text_of(s), "1:3:31");
  s = small_iset::full();
  s.intersect(small_iset::value_range_type(2, 40), 5);
  EXPECT_EQ(text_of(s), "2:5:27");
  s = small_iset::full();
  s.intersect(small_iset::value_range_type(5, 5), 0);  // a single value ignores the stride
  EXPECT_EQ(s, set_of({5}));
  EXPECT_EQ(error_text<std::out_of_range>(
                [&] { s.intersect(small_iset::value_range_type(5, 6), 0); }),
            prefix + "while inserting a range");
  EXPECT_EQ(error_text<std::out_of_range>(
                [&] { s.intersect(std::pair<long long, long long>(5, 6), 0); }),
            prefix + "while inserting a range");

  // Against the per-value definition, in both the 32-bit and the 64-bit form.
  std::mt19937 rng(77);
  for (int i = 0; i < 20000; ++i) {
    const std::uint32_t word = random_word(rng);
    const int first = int(rng() % 141) - 70, second = int(rng() % 141) - 70;
    const unsigned stride = 1 + rng() % 40;
    std::uint32_t expected = 0;
    for (int v = 0; v < 32; ++v)
      if (has(word, v) && v >= first && v <= second && (v - first) % int(stride) == 0)
        expected |= 1u << v;
    small_iset narrow = small_iset::from_bits(word);
    narrow.intersect(small_iset::value_range_type(first, second), stride);
    ASSERT_EQ(narrow.bits(), expected) << first << ":" << stride << ":" << second << " word " << word;
    const long long scale = 1000000007LL * stride;  // same progression, far-off bounds
    small_iset wide = small_iset::from_bits(word);
    wide.intersect(std::pair<long long, long long>(first - scale, second + scale), stride);
    std::uint32_t expected_wide = 0;
    for (int v = 0; v < 32; ++v)
      if (has(word, v) && first - scale <= second + scale && (v - first) % int(stride) == 0)
        expected_wide |= 1u << v;
    ASSERT_EQ(wide.bits(), expected_wide) << first << ":" << stride << ":" << second;
  }
  s = small_iset::full();
  s.intersect(std::pair<long long, long long>(LLONG_MIN, LLONG_MAX), 1);
  EXPECT_TRUE(s.is_full());
  s.intersect(std::pair<long long, long long>(LLONG_MIN, LLONG_MAX), 4);  // LLONG_MIN is 0 mod 4
  EXPECT_EQ(text_of(s), "0:4:28");
}

TEST(small_iset, lower_bound_edges) {
  const small_iset s = set_of({3, 9, 10, 31});
  EXPECT_EQ(*s.lower_bound(INT_MIN), 3);
  EXPECT_EQ(*s.lower_bound(-1), 3);
  EXPECT_EQ(*s.lower_bound(3), 3);
  EXPECT_EQ(*s.lower_bound(4), 9);
  EXPECT_EQ(*s.lower_bound(31), 31);
  EXPECT_EQ(s.lower_bound(32), s.end());
  EXPECT_EQ(s.lower_bound(INT_MAX), s.end());
  const small_iset three = set_of({3});
  EXPECT_EQ(three.lower_bound(4), three.end());
  const small_iset empty;
  EXPECT_EQ(empty.lower_bound(0), empty.end());
}

TEST(small_iset, rand_reaches_every_member_and_nothing_else) {
  random::set_seed(4242);
  std::mt19937 rng(99);
  for (int i = 0; i < 40; ++i) {
    const std::uint32_t word = i == 0 ? 0xFFFFFFFFu : (i == 1 ? 1u << 31 : random_word(rng));
    if (word == 0) continue;
    const small_iset s = small_iset::from_bits(word);
    std::uint32_t seen = 0;
    for (unsigned draw = 0; draw < 64 * s.size() + 64; ++draw) {
      const int v = s.rand();
      ASSERT_TRUE(s.contains(v)) << v << " drawn from " << s;
      seen |= 1u << v;
    }
    EXPECT_EQ(seen, word) << "not every member of " << s << " was drawn";
  }
  EXPECT_EQ(error_text<std::runtime_error>([] { (void)small_iset().rand(); }),
            "Can't zelk::small_iset::rand() for an empty set");
}

//==== set text =================================================================

TEST(small_iset, printer_examples) {
  EXPECT_EQ(text_of(set_of({1, 2})), "1,2");
  EXPECT_EQ(text_of(set_of({1, 2, 3})), "1:3");
  EXPECT_EQ(text_of(set_of({1, 3, 5})), "1,3,5");
  EXPECT_EQ(text_of(set_of({1, 3, 5, 7})), "1:2:7");
  EXPECT_EQ(text_of(set_of({0, 2, 4, 7})), "0,2,4,7");
  EXPECT_EQ(text_of(set_of({1, 3, 4, 5})), "1,3,4,5");
  EXPECT_EQ(text_of(set_of({31})), "31");
  EXPECT_EQ(text_of(small_iset()), "");
  EXPECT_EQ(text_of(small_iset::full()), "0:31");
  EXPECT_EQ(small_iset("0:31").bits(), 0xFFFFFFFFu);

  testing::internal::CaptureStdout();
  set_of({1, 3, 5, 7}).show_self();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "1:2:7\n");
}

TEST(small_iset, reader_examples_and_errors) {
  EXPECT_EQ(small_iset("1,2"), set_of({1, 2}));
  EXPECT_EQ(small_iset("1:3"), set_of({1, 2, 3}));
  EXPECT_EQ(small_iset("1:2:7"), set_of({1, 3, 5, 7}));
  EXPECT_EQ(small_iset("0,2,4,7,9:11"), set_of({0, 2, 4, 7, 9, 10, 11}));
  EXPECT_EQ(small_iset("3:3"), set_of({3}));
  EXPECT_EQ(small_iset("4:9:4"), set_of({4}));
  EXPECT_TRUE(small_iset("").empty());

  auto parse = [](const char* text) {
    return error_text<parse_error>([&] { small_iset s{std::string(text)}; });
  };
  EXPECT_EQ(parse("5:1"), "Input range is unordered 5:1");
  EXPECT_EQ(parse("1:-2"), "Input range is unordered 1:-2");
  EXPECT_EQ(parse("1:2:6"), "Input interval size does not match skip size of 2bounds are 1:6");
  EXPECT_EQ(parse("1:0:5"), "Not expecting ':' after the range 1:0");
  EXPECT_EQ(parse("1:-2:5"), "Not expecting ':' after the range 1:-2");
  EXPECT_EQ(parse("1:"), "2nd part of the range is missing 1:");
  EXPECT_EQ(parse("1:x"), "2nd part of the range is missing 1:");
  EXPECT_EQ(parse("1:2:"), "3nd part of the stride is missing 1:2:");
  EXPECT_EQ(parse("1,2 3"), "unexpected ' ' while parsing an iset of '1,2 3'\n");
  EXPECT_EQ(parse("abc"), "unexpected 'a' while parsing an iset of 'abc'\n");
  EXPECT_EQ(error_text<std::out_of_range>([] { small_iset s{std::string("40")}; }),
            "small_iset out of range while inserting a range");
  EXPECT_EQ(error_text<std::out_of_range>([] { small_iset s{std::string("1:2:33")}; }),
            "small_iset out of range while inserting an element");
}

TEST(small_iset, stream_reading_stops_at_white_space_and_stays_good) {
  std::istringstream is("1,2 3;x");
  small_iset a, b;
  is >> a;
  EXPECT_EQ(a, set_of({1, 2}));
  ASSERT_TRUE(is.good());
  EXPECT_TRUE(is.flags() & std::ios_base::skipws) << "format flags are restored";
  EXPECT_EQ(is.get(), ' ') << "the blank is put back";
  is >> b;
  EXPECT_EQ(b, set_of({3}));
  EXPECT_TRUE(is.good());
  EXPECT_EQ(is.get(), ';');

  std::istringstream to_end("1:2:9");
  to_end >> a;
  EXPECT_EQ(a, set_of({1, 3, 5, 7, 9}));
  EXPECT_TRUE(to_end.good()) << "reaching the end of input leaves the stream good";
  EXPECT_EQ(to_end.get(), EOF);

  std::istringstream bad("5:1 rest");
  EXPECT_THROW(bad >> a, parse_error);
  EXPECT_TRUE(bad.good());
  EXPECT_TRUE(bad.flags() & std::ios_base::skipws);
}

TEST(small_iset, text_round_trip_on_random_sets) {
  std::mt19937 rng(31337);
  for (int i = 0; i < 20000; ++i) {
    std::uint32_t word = random_word(rng);
    if (i % 2 == 1) {  // unions of progressions, to exercise the strided forms
      word = 0;
      for (unsigned k = rng() % 4; k-- > 0;) {
        const unsigned first = rng() % 32, stride = 1 + rng() % 12;
        const unsigned count = 1 + rng() % 8;
        for (unsigned v = first, n = 0; v < 32 && n < count; v += stride, ++n) word |= 1u << v;
      }
    }
    const small_iset s = small_iset::from_bits(word);
    const std::string text = text_of(s);
    SCOPED_TRACE("word " + std::to_string(word) + " text '" + text + "'");
    ASSERT_EQ(small_iset(text).bits(), word);
    std::istringstream is(text + " tail");
    small_iset back;
    is >> back;
    ASSERT_EQ(back.bits(), word);
    ASSERT_EQ(is.get(), ' ');
  }
}

//==== iterators ================================================================

TEST(small_iset, iterator_contracts) {
  static_assert(small_iset::iterator::CHECKS_BOUNDS);
  static_assert(!small_iset::iterator::INVALIDATED_BY_ERASE);
  const small_iset empty;
  EXPECT_EQ(small_iset::iterator(&empty, 5), empty.end());
  EXPECT_EQ(small_iset::iterator(&empty, 0), small_iset::iterator(&empty, 17));
  EXPECT_EQ(empty.begin(), empty.end());
  EXPECT_EQ(small_iset::iterator(), small_iset::iterator());

  small_iset s = set_of({1, 2, 5, 31});
  small_iset::iterator it = s.begin();
  small_iset::iterator at2 = it;
  ++at2;
  EXPECT_EQ(*at2, 2);
  it = s.erase(it);
  EXPECT_EQ(*it, 2);
  EXPECT_EQ(at2, it);
  it = s.erase(it);
  EXPECT_EQ(*it, 5);
  ++at2;  // from an erased member on to the next one
  EXPECT_EQ(*at2, 5);
  EXPECT_EQ(s.erase(s.end()), s.end());
  EXPECT_EQ(s, set_of({5, 31}));

  it = s.lower_bound(31);
  ++it;
  EXPECT_EQ(it, s.end());
  ++it;
  EXPECT_EQ(it.position(), 32u) << "++ at the end stays there";
  --it;
  EXPECT_EQ(*it, 31);
  --it;
  --it;
  EXPECT_EQ(*it, 5) << "-- at the lowest member stays";
  small_iset::iterator below(&s, 2);
  --below;
  EXPECT_EQ(below.position(), 2u);

  s.erase(5);
  s.erase(31);
  EXPECT_EQ(at2, s.end()) << "an emptied set makes every iterator end()";
}

TEST(small_iset, iterator_error_texts) {
  small_iset::iterator null;
  const small_iset s = set_of({3});
  small_iset::iterator end = s.end();
  small_iset::value_range_type range;
  unsigned stride;
  using E = std::runtime_error;
  EXPECT_EQ(error_text<E>([&] { (void)*null; }),
            "small_iset::iterator::operator*() dereferncing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { (void)*end; }),
            "small_iset::iterator::operator*() dereferncing empty iterator");
  EXPECT_EQ(error_text<E>([&] { ++null; }), "iset::iterator::CurrentRange dereferncing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { --null; }),
            "small_iset::iterator::CurrentRange dereferncing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { (void)null.current_range(); }),
            "small_iset::iterator::current_range dereferencing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { (void)end.current_range(); }),
            "small_iset::iterator::current_range dereferencing empty iterator");
  EXPECT_EQ(error_text<E>([&] { null.advance_range(); }),
            "small_iset::iterator::advance_range dereferencing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { end.advance_range(); }),
            "small_iset::iterator::advance_range dereferencing empty iterator");
  EXPECT_EQ(error_text<E>([&] { null.advance(1); }),
            "small_iset::iterator::advance_range dereferencing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { end.advance(1); }),
            "small_iset::iterator::advance_range dereferencing empty iterator");
  EXPECT_EQ(error_text<E>([&] { null.retract_range(); }),
            "small_iset::iterator::retract_range dereferencing NULL iterator");
  EXPECT_EQ(error_text<E>([&] { (void)null.find_stride(end, range, stride); }),
            "small_iset::iterator::find_stride dereferencing NULL iterator");
  const small_iset other = s;
  EXPECT_EQ(error_text<E>([&] { (void)s.begin().find_stride(other.end(), range, stride); }),
            "small_iset::iterator::find_stride refers to different small_iset objects");
  EXPECT_EQ(error_text<E>([&] { (void)end.find_stride(end, range, stride); }),
            "Empty an stride was requested");
  EXPECT_EQ(error_text<E>([&] { (void)s.begin().find_back_stride(s.begin(), range, stride); }),
            "An Empty stride was requested");
  const small_iset empty;
  EXPECT_EQ(error_text<E>([&] { (void)empty.end().find_back_stride(empty.begin(), range, stride); }),
            "An Empty stride was requested");
}

TEST(small_iset, run_moves_match_naive_walks) {
  std::mt19937 rng(2718);
  for (int i = 0; i < 4000; ++i) {
    const std::uint32_t word = random_word(rng);
    if (word == 0) continue;
    const small_iset s = small_iset::from_bits(word);
    const std::vector<unsigned> m = members_of(word);
    SCOPED_TRACE("word " + std::to_string(word));
    for (std::size_t k = 0; k < m.size(); ++k) {
      const unsigned p = m[k];
      unsigned last = p;
      while (has(word, int(last) + 1)) ++last;
      const small_iset::iterator it(&s, p);
      ASSERT_EQ(it.current_range(), small_iset::value_range_type(int(p), int(last)));

      small_iset::iterator next = it;
      next.advance_range();
      unsigned after = last + 1;
      while (after < 32 && !has(word, int(after))) ++after;
      ASSERT_EQ(next.position(), std::min(after, 32u));

      for (unsigned n = 0; n <= 33; ++n) {
        small_iset::iterator moved = it;
        moved.advance(n);
        ASSERT_EQ(moved.position(), k + n < m.size() ? m[k + n] : 32u) << "advance " << n << " from " << p;
      }

      small_iset::iterator back = it;
      back.retract_range();
      unsigned start = p;
      if (k > 0) {
        start = m[k - 1];
        while (has(word, int(start) - 1)) --start;
      }
      ASSERT_EQ(back.position(), start) << "retract_range from " << p;
    }
    small_iset::iterator back = s.end();
    back.retract_range();
    unsigned start = m.back();
    while (has(word, int(start) - 1)) --start;
    ASSERT_EQ(back.position(), start) << "retract_range from the end";
  }
}

// The progression of find_stride, taken member by member: the first gap sets
// the stride and equal gaps extend it.
struct naive_stride {
  small_iset::value_range_type range;
  unsigned stride;
  unsigned stop;  // the first member not taken, or the limit
};

naive_stride naive_forward(const std::vector<unsigned>& m, unsigned limit) {
  naive_stride r{{int(m[0]), int(m[0])}, 1, limit};
  std::size_t k = 1;
  if (k < m.size()) {
    r.stride = m[1] - m[0];
    while (k < m.size() && m[k] - unsigned(r.range.second) == r.stride) r.range.second = int(m[k++]);
  }
  if (k < m.size()) r.stop = m[k];
  return r;
}

TEST(small_iset, find_stride_matches_naive_progressions) {
  std::mt19937 rng(1618);
  for (int i = 0; i < 1500; ++i) {
    const std::uint32_t word = random_word(rng);
    if (word == 0) continue;
    const small_iset s = small_iset::from_bits(word);
    const std::vector<unsigned> all = members_of(word);
    SCOPED_TRACE("word " + std::to_string(word));
    std::vector<unsigned> limits = all;
    limits.push_back(32);
    for (unsigned from : all) {
      for (unsigned limit : limits) {
        if (limit <= from) continue;
        std::vector<unsigned> m;
        for (unsigned v : all)
          if (v >= from && v < limit) m.push_back(v);
        const naive_stride want = naive_forward(m, limit);
        small_iset::value_range_type range;
        unsigned stride = 0;
        const small_iset::iterator got =
            small_iset::iterator(&s, from).find_stride(small_iset::iterator(&s, limit), range, stride);
        ASSERT_EQ(range, want.range) << from << " to " << limit;
        if (range.first != range.second) {
          ASSERT_EQ(stride, want.stride) << from << " to " << limit;
        }
        ASSERT_EQ(got.position(), want.stop) << from << " to " << limit;
      }
    }
    for (unsigned top : limits) {  // the mirror image, from the top down
      for (unsigned low : all) {
        if (top <= low) continue;
        std::vector<unsigned> m;
        for (auto it = all.rbegin(); it != all.rend(); ++it)
          if (*it >= low && *it < top) m.push_back(31 - *it);
        const naive_stride want = naive_forward(m, 32);
        small_iset::value_range_type range;
        unsigned stride = 0;
        const small_iset::iterator got = small_iset::iterator(&s, top).find_back_stride(
            small_iset::iterator(&s, low), range, stride);
        ASSERT_EQ(range, small_iset::value_range_type(31 - want.range.second, 31 - want.range.first))
            << top << " down to " << low;
        if (range.first != range.second) {
          ASSERT_EQ(stride, want.stride) << top << " down to " << low;
        }
        ASSERT_EQ(got.position(), unsigned(range.first));
      }
    }
  }
}

}  // namespace
}  // namespace zelk
