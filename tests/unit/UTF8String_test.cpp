// UTF-8 strings: decoding checked against the set of all well-formed
// sequences, encoding, the bounds of views and of growing buffers,
// conversions, ordering, search and the tokenizer; attribute lookup.
#include "xcsp/UTF8String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "xcsp/AttributeList.h"

namespace CSPXMLParser {
namespace {

typedef UTF8String::Byte Byte;

const int NOT_FOUND = 0x7FFFFFFF;

// The bit layout of UTF-8, with no validation: the reference the decoder is
// measured against once the invalid code points are left out.
std::string encode(std::uint32_t c) {
  std::string s;
  if (c < 0x80) {
    s += char(c);
  } else if (c < 0x800) {
    s += char(0xC0 | (c >> 6));
    s += char(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    s += char(0xE0 | (c >> 12));
    s += char(0x80 | ((c >> 6) & 0x3F));
    s += char(0x80 | (c & 0x3F));
  } else {
    s += char(0xF0 | (c >> 18));
    s += char(0x80 | ((c >> 12) & 0x3F));
    s += char(0x80 | ((c >> 6) & 0x3F));
    s += char(0x80 | (c & 0x3F));
  }
  return s;
}

bool is_scalar_value(std::uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

std::uint32_t pack(const std::string& s) {
  std::uint32_t p = 0;
  for (char c : s) p = (p << 8) | Byte(c);
  return p;
}

UTF8String view(const std::string& s) {
  const Byte* b = reinterpret_cast<const Byte*>(s.data());
  return UTF8String(b, b + s.size());
}

std::string text(const UTF8String& s) {
  std::ostringstream out;
  out << s;
  return out.str();
}

// The code point of `bytes` (one to four, with no NUL) if they are exactly
// one character, else -1.
int decode(const std::string& bytes) {
  try {
    UTF8String::iterator it = view(bytes).begin();
    const int c = *it;
    ++it;
    if (it.getPointer() != reinterpret_cast<const Byte*>(bytes.data()) + bytes.size()) return -1;
    return c;
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "invalid UTF8 character");
    return -1;
  }
}

TEST(UTF8String, decoding_accepts_exactly_the_well_formed_sequences) {
  // The encodings of all scalar values but NUL, with their code points.
  std::vector<std::pair<std::uint32_t, int>> valid;
  for (std::uint32_t c = 1; c <= 0x10FFFF; ++c)
    if (is_scalar_value(c)) valid.emplace_back(pack(encode(c)), int(c));
  std::sort(valid.begin(), valid.end());
  // The code point of a well-formed sequence, -1 for anything else.
  auto expected = [&](const std::string& s) {
    auto it = std::lower_bound(valid.begin(), valid.end(), std::make_pair(pack(s), 0));
    return it != valid.end() && it->first == pack(s) ? it->second : -1;
  };
  auto check = [&](const std::string& s) {
    const int got = decode(s);
    if (got == expected(s)) return true;
    ADD_FAILURE() << std::hex << "bytes " << pack(s) << " decoded " << got;
    return false;
  };
  // Every sequence of one and two bytes and of three from the three-byte
  // leads and a few others, random ones of four bytes.
  for (int a = 1; a < 256; ++a) {
    if (!check(std::string(1, char(a)))) return;
    for (int b = 1; b < 256; ++b) {
      if (!check({char(a), char(b)})) return;
      if ((a < 0xE0 || a > 0xEF) && a != 0x41 && a != 0xC3 && a != 0x90) continue;
      for (int c = 1; c < 256; ++c)
        if (!check({char(a), char(b), char(c)})) return;
    }
  }
  std::mt19937 rng(99);
  for (int i = 0; i < 200000; ++i) {
    std::string four = {char(0xF0 + rng() % 16), char(0x80 + rng() % 64), char(1 + rng() % 255),
                        char(1 + rng() % 255)};
    if (i % 2) four[1] = char(1 + rng() % 255);
    if (i % 3 == 0) four[2] = char(0x80 + rng() % 64), four[3] = char(0x80 + rng() % 64);
    if (!check(four)) return;
  }
}

TEST(UTF8String, write_encodes_every_scalar_value) {
  Byte buffer[4];
  for (std::uint32_t c = 0; c <= 0x10FFFF; ++c) {
    Byte* p = buffer;
    if (!is_scalar_value(c)) {
      EXPECT_THROW(UTF8String::write(p, int(c)), std::runtime_error);
      continue;
    }
    UTF8String::write(p, int(c));
    ASSERT_EQ(std::string(reinterpret_cast<char*>(buffer), std::size_t(p - buffer)), encode(c)) << c;
  }
  for (int c : {0x110000, -1, INT_MIN}) {
    Byte* p = buffer;
    try {
      UTF8String::write(p, c);
      ADD_FAILURE() << c;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), "invalid UTF8 character");
    }
    EXPECT_EQ(p, buffer);
  }
}

TEST(UTF8String, decoding_stops_at_an_explicit_end) {
  // A two-byte character cut after its lead byte: the heap block ends there.
  std::unique_ptr<Byte[]> cut(new Byte[1]{0xC3});
  UTF8String s(cut.get(), cut.get() + 1);
  EXPECT_THROW(*s.begin(), std::runtime_error);
  UTF8String::iterator it = s.begin();
  ++it;
  EXPECT_EQ(it.getPointer(), cut.get() + 1);
  EXPECT_TRUE(it.atEnd());
  EXPECT_EQ(s.find("x"), NOT_FOUND);
  EXPECT_EQ(s.substr(0, 5).byteLength(), 1);
  UTF8String::Tokenizer words(s);
  EXPECT_THROW(words.nextToken(), std::runtime_error);

  // The byte after the end would complete the character: it is not read.
  const Byte e_acute[] = {0xC3, 0xA9};
  EXPECT_THROW(*UTF8String(e_acute, e_acute + 1).begin(), std::runtime_error);
  EXPECT_EQ(*UTF8String(e_acute, e_acute + 2).begin(), 0xE9);

  std::unique_ptr<Byte[]> euro(new Byte[3]{0xE2, 0x82, 0xAC});
  EXPECT_EQ(*UTF8String(euro.get(), euro.get() + 3).begin(), 0x20AC);
  EXPECT_THROW(*UTF8String(euro.get(), euro.get() + 2).begin(), std::runtime_error);
}

TEST(UTF8String, append_grows_past_any_first_allocation) {
  std::mt19937 rng(5);
  UTF8String grown;
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    std::uint32_t c;
    do c = rng() % (i % 3 ? 0x800 : 0x110000); while (!is_scalar_value(c) || c == 0);
    grown.append(int(c));
    expected += encode(c);
  }
  EXPECT_EQ(text(grown), expected);
  // A copy is a view of the same bytes.
  UTF8String copy = grown;
  EXPECT_EQ(text(copy), expected);

  // A long view turned into an owning string needs more than the first block.
  const std::string long_text(1000, 'z');
  UTF8String owner = view(long_text);
  owner.append(0x1F600);
  EXPECT_EQ(text(owner), long_text + encode(0x1F600));
  owner.clear();
  EXPECT_TRUE(owner.empty());
  EXPECT_FALSE(owner.isNull());
  owner.append('a');
  EXPECT_EQ(text(owner), "a");
  // Assigning a view of its own bytes keeps them.
  for (char c : std::string("bcdef")) owner.append(c);
  owner = owner.substr(2, 3);
  EXPECT_EQ(text(owner), "cde");
  owner.append('!');
  EXPECT_EQ(text(owner), "cde!");
}

TEST(UTF8String, to_int_and_to_string) {
  struct int_case {
    std::string text;
    bool ok;
    int value;
  };
  const int_case cases[] = {
      {" 42 ", true, 42},     {"-17", true, -17},        {"+8\t", true, 8},
      {"", false, 0},         {" \n ", false, 0},        {"-", true, 0},
      {"12x", false, 12},     {"1 2", false, 1},         {"- 5", false, 0},
      {"-2147483648", true, INT_MIN}, {"4294967297", true, 1},
      {std::string("12\0 34", 6), true, 12},
  };
  for (const int_case& c : cases) {
    int x = -99;
    EXPECT_EQ(view(c.text).to(x), c.ok) << c.text;
    if (c.ok || c.value != 0) {
      EXPECT_EQ(x, c.value) << c.text;
    }
  }
  int x = 0;
  EXPECT_FALSE(UTF8String().to(x));
  EXPECT_TRUE(UTF8String("7").to(x));
  EXPECT_EQ(x, 7);

  std::string s = "old";
  EXPECT_FALSE(UTF8String().to(s));
  EXPECT_EQ(s, "");
  EXPECT_TRUE(UTF8String("").to(s));
  EXPECT_EQ(s, "");
  EXPECT_TRUE(view(std::string("ab\0cd", 5)).to(s));
  EXPECT_EQ(s, "ab");
}

TEST(UTF8String, white_space_order_and_equality) {
  EXPECT_TRUE(UTF8String().isWhiteSpace());
  EXPECT_TRUE(UTF8String("").isWhiteSpace());
  EXPECT_TRUE(UTF8String(" \t\n\v\f\r").isWhiteSpace());
  EXPECT_FALSE(UTF8String(" a").isWhiteSpace());
  EXPECT_TRUE(view(std::string(" \0a", 3)).isWhiteSpace());
  EXPECT_TRUE(UTF8String().empty());
  EXPECT_TRUE(UTF8String().isNull());
  EXPECT_FALSE(UTF8String("").isNull());

  // Unsigned byte order, as std::string compares.
  std::mt19937 rng(3);
  for (int i = 0; i < 20000; ++i) {
    std::string a, b;
    for (unsigned n = rng() % 4; n > 0; --n) a += char(1 + rng() % 255);
    b = rng() % 3 ? a.substr(0, rng() % (a.size() + 1)) : std::string();
    for (unsigned n = rng() % 3; n > 0; --n) b += char(1 + rng() % 255);
    EXPECT_EQ(view(a) < view(b), a < b);
    EXPECT_EQ(view(a) == view(b), a == b);
  }
  // A NUL byte ends the string as its end does.
  const std::string with_nul("ab\0z", 4);
  EXPECT_FALSE(view(with_nul) < UTF8String("ab"));
  EXPECT_FALSE(UTF8String("ab") < view(with_nul));
  EXPECT_TRUE(view(with_nul) == UTF8String("ab"));
  EXPECT_TRUE(UTF8String() < UTF8String("a"));
}

TEST(UTF8String, find_and_substr_count_code_points) {
  const UTF8String s("a\xC3\xA9" "b1..5");
  EXPECT_EQ(s.find(".."), 4);
  EXPECT_EQ(s.find("a"), 0);
  EXPECT_EQ(s.find("\xC3\xA9"), 1);
  EXPECT_EQ(s.find("5"), 6);
  EXPECT_EQ(s.find(""), 0);
  EXPECT_EQ(s.find("..."), NOT_FOUND);
  EXPECT_EQ(s.find("5x"), NOT_FOUND);
  EXPECT_EQ(text(s.substr(1, 2)), "\xC3\xA9" "b");
  EXPECT_EQ(text(s.substr(5)), ".5");
  EXPECT_EQ(text(s.substr(0, s.find(".."))), "a\xC3\xA9" "b1");
  EXPECT_EQ(text(s.substr(s.find("..") + 2, 100)), "5");
  EXPECT_TRUE(s.substr(9, 2).empty());
  EXPECT_FALSE(s.substr(9, 2).isNull());
  EXPECT_TRUE(UTF8String().substr(0, 1).isNull());
  EXPECT_EQ(UTF8String().find("a"), NOT_FOUND);
  // A NUL byte ends the searched text.
  EXPECT_EQ(view(std::string("ab\0cd", 5)).find("c"), NOT_FOUND);
}

std::vector<std::string> tokens(UTF8String::Tokenizer t) {
  std::vector<std::string> words;
  for (UTF8String w = t.nextToken(); !w.isNull(); w = t.nextToken()) words.push_back(text(w));
  EXPECT_FALSE(t.hasMoreTokens());
  return words;
}

TEST(UTF8String, tokenizer) {
  typedef std::vector<std::string> words;
  EXPECT_EQ(tokens(UTF8String::Tokenizer(UTF8String("1..5"))), words({"1..5"}));
  UTF8String::Tokenizer relation(UTF8String("1 2|3"));
  relation.addSeparator('|');
  relation.addSeparator(':');
  EXPECT_EQ(tokens(relation), words({"1", "2", "|", "3"}));

  UTF8String::Tokenizer soft(UTF8String("\n 5:1 2|| 3 4 |\t"));
  soft.addSeparator('|');
  soft.addSeparator(':');
  EXPECT_EQ(tokens(soft), words({"5", ":", "1", "2", "|", "|", "3", "4", "|"}));

  // Separators are code points, words may hold multi-byte characters.
  UTF8String::Tokenizer wide(UTF8String("x\xE2\x82\xAC" "y \xC3\xA9t\xC3\xA9"));
  wide.addSeparator(0x20AC);
  EXPECT_EQ(tokens(wide), words({"x", "\xE2\x82\xAC", "y", "\xC3\xA9t\xC3\xA9"}));

  EXPECT_EQ(tokens(UTF8String::Tokenizer(view(std::string("a b\0c d", 7)))), words({"a", "b"}));
  EXPECT_EQ(tokens(UTF8String::Tokenizer(UTF8String())), words());
  EXPECT_EQ(tokens(UTF8String::Tokenizer(UTF8String(" \t "))), words());
}

TEST(AttributeList, first_match_or_null) {
  const char* raw[] = {"name", "x", "arity", "2", "name", "y", nullptr};
  AttributeList attributes(reinterpret_cast<const Byte**>(raw));
  EXPECT_EQ(attributes.getSize(), 3);
  EXPECT_EQ(text(attributes["name"]), "x");
  int arity = 0;
  EXPECT_TRUE(attributes["arity"].to(arity));
  EXPECT_EQ(arity, 2);
  EXPECT_TRUE(attributes["Arity"].isNull());
  EXPECT_EQ(text(attributes.getName(2)), "name");
  EXPECT_EQ(text(attributes.getValue(2)), "y");
  EXPECT_EQ(AttributeList(nullptr).getSize(), 0);
  EXPECT_TRUE(AttributeList()["name"].isNull());
}

}  // namespace
}  // namespace CSPXMLParser
