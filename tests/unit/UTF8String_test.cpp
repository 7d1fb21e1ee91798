// UTF-8 strings: decoding and encoding against the bit layout, the bounds of views
// and of growing buffers, conversions, order, search, the tokenizer; attributes.
#include "xcsp/UTF8String.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "xcsp/AttributeList.h"

namespace CSPXMLParser {
namespace {

typedef UTF8String::Byte Byte;

// The bit layout of UTF-8, with no validation.
std::string encode(std::uint32_t c) {
  const int n = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  // The lead byte: n leading one bits, then the highest bits of c.
  std::string s(1, char((n > 1 ? 0xFF00 >> n : 0) | (c >> (6 * (n - 1)))));
  for (int k = n - 2; k >= 0; --k) s += char(0x80 | ((c >> (6 * k)) & 0x3F));
  return s;
}

bool is_scalar_value(std::int64_t c) { return c >= 0 && c <= 0x10FFFF && (c >> 11) != 0x1B; }
const Byte* bytes(const std::string& s) { return reinterpret_cast<const Byte*>(s.data()); }
UTF8String view(const std::string& s) { return UTF8String(bytes(s), bytes(s) + s.size()); }
std::string text(const UTF8String& s) { std::ostringstream out; out << s; return out.str(); }

// The code point of `s` if it is exactly one character, else -1; -2 for a wrong message.
int decode(const std::string& s) {
  try {
    UTF8String::iterator it = view(s).begin();
    const int c = *it;
    return (++it).getPointer() == bytes(s) + s.size() ? c : -1;
  } catch (const std::runtime_error& e) {
    return std::string(e.what()) == "invalid UTF8 character" ? -1 : -2;
  }
}

TEST(UTF8String, decoding_and_encoding_follow_the_bit_layout) {
  Byte buffer[4];
  for (std::int64_t c = -1; c <= 0x110000; ++c) {
    Byte* p = buffer;
    if (!is_scalar_value(c)) {
      EXPECT_THROW(UTF8String::write(p, int(c)), std::runtime_error);
      EXPECT_EQ(p, buffer);
      continue;
    }
    UTF8String::write(p, int(c));
    const std::string s(reinterpret_cast<char*>(buffer), std::size_t(p - buffer));
    ASSERT_EQ(s, encode(std::uint32_t(c)));
    ASSERT_EQ(decode(s), c);
  }
  // Nothing else decodes: all first two bytes, then mostly continuation bytes.
  std::mt19937 rng(99);
  for (int ab = 0x100; ab < 0x10000; ++ab) {
    std::string s = {char(ab >> 8), char(ab)};
    for (int k = ab >= 0xF000 ? 2 : ab >= 0xE000 ? 1 : 0; k > 0; --k)
      s += char(rng() % 8 ? 0x80 + rng() % 64 : rng() % 256);
    const int c = decode(s);
    ASSERT_TRUE(c == -1 || (is_scalar_value(c) && encode(std::uint32_t(c)) == s)) << std::hex << ab;
  }
  // The byte after the end would complete the character: it is not read.
  const Byte euro[] = {0xE2, 0x82, 0xAC};
  const UTF8String cut(euro, euro + 2);
  EXPECT_THROW(*cut.begin(), std::runtime_error);
  UTF8String::iterator it = cut.begin();
  EXPECT_TRUE((++it).atEnd());
  EXPECT_EQ(cut.find("\xE2\x82\xAC"), 0x7FFFFFFF);
  EXPECT_EQ(cut.substr(0, 5).byteLength(), 2);
}

TEST(UTF8String, append_grows_past_any_first_allocation) {
  UTF8String grown;
  std::string expected;
  for (std::uint32_t c = 1; c < 0x110000; c += 97) {
    if (is_scalar_value(c)) grown.append(int(c));
    if (is_scalar_value(c)) expected += encode(c);
  }
  EXPECT_EQ(text(UTF8String(grown)), expected);  // a copy is a view of the same bytes
  // A long view turned into an owning string needs more than the first block.
  const std::string long_text(1000, 'z');
  UTF8String owner = view(long_text);
  owner.append(0x1F600);
  // Assigned a view of its own bytes, it keeps them.
  owner = owner.substr(1, 1000);
  owner.append('!');
  EXPECT_EQ(text(owner), long_text.substr(1) + encode(0x1F600) + "!");
}

std::vector<std::string> tokens(const UTF8String& s, std::vector<int> separators) {
  UTF8String::Tokenizer t(s);
  for (int c : separators) t.addSeparator(c);
  std::vector<std::string> found;
  for (UTF8String w = t.nextToken(); !w.isNull(); w = t.nextToken()) found.push_back(text(w));
  return found;
}

TEST(UTF8String, conversions_order_search_and_tokens) {
  const struct { std::string text; bool ok; int value; } cases[] = {
      {" +8\t", true, 8}, {"-", true, 0}, {" \n ", false, -99}, {"12x", false, 12},
      {"-2147483648", true, -2147483647 - 1}, {"4294967297", true, 1}, {{"12\0 3", 5}, true, 12}};
  for (const auto& c : cases) {
    int x = -99;
    EXPECT_EQ(view(c.text).to(x), c.ok) << c.text;
    EXPECT_EQ(x, c.value) << c.text;
  }
  std::string s = "old";
  EXPECT_TRUE(!UTF8String().to(s) && s.empty());
  EXPECT_TRUE(view(std::string("ab\0cd", 5)).to(s) && s == "ab");
  EXPECT_TRUE(view(std::string(" \t\n\v\f\r\0a", 8)).isWhiteSpace());
  EXPECT_FALSE(UTF8String(" a").isWhiteSpace());
  // Unsigned byte order; a NUL byte ends the string as its end does.
  EXPECT_TRUE(UTF8String("z") < UTF8String("\xC3\xA9") && UTF8String("ab") < UTF8String("abc"));
  EXPECT_FALSE(UTF8String("abc") < UTF8String("ab") || UTF8String("ab") == UTF8String("abc"));
  EXPECT_TRUE(view(std::string("ab\0z", 4)) == UTF8String("ab"));
  EXPECT_EQ(view(std::string("ab\0cd", 5)).find("c"), 0x7FFFFFFF);
  // Positions count code points.
  const UTF8String t("a\xC3\xA9" "b1..5");
  EXPECT_EQ(t.find(".."), 4);
  EXPECT_EQ(text(t.substr(1, 2)), "\xC3\xA9" "b");
  EXPECT_EQ(text(t.substr(t.find("..") + 2, 100)), "5");
  EXPECT_EQ(tokens(UTF8String("\n 1..5 2|| 3:4 |\t"), {'|', ':'}),
            std::vector<std::string>({"1..5", "2", "|", "|", "3", ":", "4", "|"}));
  // Separators are code points, words may hold multi-byte characters, a NUL ends the text.
  EXPECT_EQ(tokens(view(std::string("x\xE2\x82\xAC" "y \xC3\xA9t\xC3\xA9 \0 z", 15)), {0x20AC}),
            std::vector<std::string>({"x", "\xE2\x82\xAC", "y", "\xC3\xA9t\xC3\xA9"}));
}

TEST(AttributeList, first_match_or_null) {
  const char* raw[] = {"name", "x", "arity", "2", "name", "y", nullptr};
  const AttributeList attributes(reinterpret_cast<const Byte**>(raw));
  EXPECT_EQ(text(attributes["name"]), "x");
  EXPECT_TRUE(attributes["Arity"].isNull() && AttributeList(nullptr)["name"].isNull());
}

}  // namespace
}  // namespace CSPXMLParser
