// The OPB reader: what it accepts, what it refuses and where, and the scanner's
// edges (line ends across a buffer refill, NUL bytes, tokens longer than its
// buffer). The normal form and whole answers, objectives included, are checked by
// the differential test against brute force and clasp.
#include "opb/opb_context.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "driver/flags.h"
#include "impl/solver.h"
#include "unit/test_support.h"

namespace {

using zelk::opb::context;
using zelk::test_support::captured_cout;

std::unique_ptr<opb_solver> read(const std::string& text, int report_level = 0) {
  static zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  flags.seed = 1;
  flags.report_level = report_level;
  std::istringstream in(text);
  captured_cout quiet;
  return std::make_unique<opb_solver>(in, "test.opb", flags, memory);
}

// The location of the syntax error in `text`, as "line.column".
std::string error_location(const std::string& text) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(read(text), std::runtime_error);
  const std::string message = testing::internal::GetCapturedStderr();
  const std::size_t start = message.find(':') + 1;
  return message.substr(start, message.find(':', start) - start);
}

// Each text read alone: accepted, refused by the range of a sum (coefficients of
// the normal form above 31: no variable holds the partial sum), or a syntax error
// at a line and column ("" where any place will do).
TEST(opb, accepted_and_refused_texts) {
  using namespace std::string_literals;
  const struct { std::string text; const char* outcome; } cases[] = {
      {"+16 x +16 y >= 2 ;\n", "range"}, {"+16 x +16 y = 2 ;\n", "range"},
      // The same coefficients in a clause are fine: only "some term is true" is posted.
      {"+16 x +16 y >= 1 ;\n", "ok"},
      {"min: +16 x +16 y ;\n", "range"}, {"max: -16 x -16 ~y ;\n", "range"},
      {"max: +20 x +20 ~x +5 y ;\n", "ok"},  // 20 + 5 y
      {"min: ;\n", ""}, {"1 x >= 1 ;\n", ""}, {"/* open\n", ""}, {"+1 x >= 1\n", ""},
      {"+1 * x >= 1;\n", ""}, {"+1 min >= 1 ;\n", ""}, {"+1 x @ 1 ;\n", ""},
      // A NUL byte is no end of the input: the second constraint must not be lost.
      {"+1 x >= 1 ;\n\0+1 ~x >= 1 ;\n"s, "2.1"}, {"\0"s, "1.1"}, {"+1 x >= 1 \xff;\n", "1.11"},
      // In a comment it is text like any other.
      {"* a \0 in a comment\n/* \0 */ +1 x >= 1 ;\n"s, "ok"}};
  for (const auto& [text, outcome] : cases) {
    const std::string expected = outcome;
    if (expected == "ok") {
      EXPECT_NO_THROW(read(text)) << text;
    } else if (expected == "range") {
      EXPECT_THROW(read(text), std::out_of_range) << text;
    } else {
      const std::string at = error_location(text);
      EXPECT_TRUE(expected.empty() || at == expected) << text << " at " << at;
    }
  }
}

TEST(opb, line_ends) {
  // CR, LF and CRLF each end one line: in "*" comments, in block comments and
  // between tokens; a CR-only file is not one long comment.
  for (const std::string eol : {"\n", "\r", "\r\n"}) {
    EXPECT_EQ(error_location("* comment" + eol + "+1 x >= 1 ;" + eol + eol + "/* block" + eol + "comment */" + eol +
                             "+1 x @ ;"),
              "6.6")
        << int(eol.back());
    std::unique_ptr<opb_solver> s = read("* only this line" + eol + "+1 x >= 1 ;" + eol + "* again" + eol + "+1 y >= 1 ;");
    EXPECT_EQ(s->context().constraints().size(), 2u) << int(eol.back());
  }
  // A CRLF across the scanner's refill of its buffer still ends one line.
  for (std::size_t padding = 16360; padding < 16400; ++padding)
    EXPECT_EQ(error_location("*" + std::string(padding, 'x') + "\r\n\r\n@"), "3.1") << padding;
}

TEST(opb, long_tokens) {
  // Tokens far longer than the scanner's buffer are read whole.
  const std::string name(3u << 20, 'v');
  std::unique_ptr<opb_solver> s =
      read("* " + std::string(3u << 20, 'c') + "\n+1 " + name + " >= 1 ;\n/*" + std::string(3u << 20, '*') + "*/\n");
  ASSERT_EQ(s->context().variables().size(), 1u);
  EXPECT_EQ(std::string(s->context().variables().begin()->name()), name);
}

TEST(opb, accepted_dialect) {
  std::unique_ptr<opb_solver> s = read(
      "* a comment line\n"
      "/* a block\n comment */ max: + 3 x1 +2 min1 ; * trailing comment\n"
      "c1: +1 x1 +1 min1 <= 1 ;\n"
      "+1 _y\t+1 x1 = 1 ;  \r\n"
      "c3: -1 x1 >= - 1 ;\n");
  EXPECT_EQ(s->context().constraints().size(), 3u);
  EXPECT_EQ(s->context().variables().size(), 3u);
  ASSERT_NE(s->context().objective(), nullptr);
  EXPECT_EQ(s->context().objective_direction(), context::MAXIMIZE);
}

}  // namespace
