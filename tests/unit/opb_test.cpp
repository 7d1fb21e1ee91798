// The OPB reader: normal form of products and sums, the unique products of the
// context, the variables and propagators posted for them, and the accepted dialect.
// Whole answers are checked by the differential test against brute force and clasp.
#include "opb/opb_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <array>
#include <climits>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/flags.h"
#include "impl/small_iset.h"
#include "impl/solver.h"

namespace {

using zelk::opb::conjunction;
using zelk::opb::constraint;
using zelk::opb::context;
using zelk::opb::expression;
using zelk::opb::variable;
using iset = zelk::small_model::iset;

// Sends standard output to a string while it lives: every solver prints its seed,
// and the optimisation loop prints its progress.
class captured_cout {
 public:
  captured_cout() : m_old(std::cout.rdbuf(m_sink.rdbuf())) {}
  ~captured_cout() { std::cout.rdbuf(m_old); }
  std::string text() const { return m_sink.str(); }

 private:
  std::ostringstream m_sink;
  std::streambuf* m_old;
};

std::unique_ptr<opb_solver> read(const std::string& text, int report_level = 0) {
  static zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  flags.seed = 1;
  flags.report_level = report_level;
  std::istringstream in(text);
  captured_cout quiet;
  return std::make_unique<opb_solver>(in, "test.opb", flags, memory);
}

// "+3 x ~y" style text of a normalized constraint, for compact expectations.
std::string text_of(const constraint& c) {
  std::ostringstream os;
  os << c;
  return os.str();
}

//==== products ======================================================================

TEST(opb, conjunction_normal_form) {
  std::unique_ptr<opb_solver> s = read(
      "+1 z x y x >= 1 ;\n"   // sorted, duplicate x removed
      "+1 y ~x x >= 1 ;\n"    // x and ~x: constant false
      "+1 ~b a ~b >= 1 ;\n");
  const auto& constraints = s->context().constraints();
  ASSERT_EQ(constraints.size(), 3u);
  EXPECT_EQ(text_of(*constraints[0]), "+1 x y z >= 1");
  // The constant-false product leaves an empty sum that has to reach 1.
  EXPECT_TRUE(constraints[1]->trivially_false());
  EXPECT_TRUE(constraints[1]->expr().empty());
  EXPECT_EQ(text_of(*constraints[2]), "+1 a ~b >= 1");
}

//==== sums ===========================================================================

TEST(opb, sum_normal_form) {
  std::unique_ptr<opb_solver> s = read(
      "+1 x -1 x = 0 ;\n"                 // merges to empty, rhs 0: trivially true
      "+1 x -1 x = 1 ;\n"                 // merges to empty, rhs 1: trivially false
      "-1 x >= -1 ;\n"                    // make_atoms_positive
      "+2 ~x >= 1 ;\n"                    // a negative single literal
      "+2 x y -1 y x +3 z >= 2 ;\n"       // merge of one product
      "+1 b +1 a <= 1 ;\n"                // negation then positive atoms, sorted
      "+2 a +3 b < 4 ;\n"
      "+1 a > 0 ;\n"
      "+1 a ~a >= -2 ;\n");               // constant false dropped, empty, rhs < 1
  const auto& c = s->context().constraints();
  ASSERT_EQ(c.size(), 9u);
  EXPECT_TRUE(c[0]->trivially_true());
  EXPECT_TRUE(c[1]->trivially_false());
  EXPECT_EQ(text_of(*c[2]), "+1 ~(x) >= 0");
  EXPECT_EQ(text_of(*c[3]), "+2 ~(x) >= 1");
  EXPECT_EQ(text_of(*c[4]), "+1 x y +3 z >= 2");
  EXPECT_EQ(text_of(*c[5]), "+1 ~(a) +1 ~(b) >= 1");
  EXPECT_EQ(text_of(*c[6]), "+2 ~(a) +3 ~(b) >= 2");
  EXPECT_EQ(text_of(*c[7]), "+1 a >= 1");
  EXPECT_TRUE(c[8]->trivially_true());
  for (const auto& constraint : c)
    for (const expression::atom_type& atom : constraint->expr().atoms()) {
      EXPECT_GT(atom.coefficient, 0);
      EXPECT_FALSE(atom.conj->always_false());
    }
}

TEST(opb, clause_for_sum_at_least_one) {
  std::unique_ptr<opb_solver> s = read("+1 x +1 y >= 1 ;\n");
  ASSERT_EQ(s->num_constraints(), 1u);
  EXPECT_TRUE(s->is_clause(0));
  EXPECT_EQ(s->num_variables(), 2u);
}

TEST(opb, right_hand_side_between_atom_values) {
  // 2 is not a value of the sum's variable {0, 3}: ">=" keeps the values above.
  std::unique_ptr<opb_solver> s = read("+3 x y >= 2 ;\n");
  const conjunction* xy = s->context().constraints()[0]->expr().atoms()[0].conj;
  EXPECT_EQ(s->stack().domain(xy->base_variable()), iset("3"));
  std::unique_ptr<opb_solver> single = read("+3 x >= 2 ;\n");
  EXPECT_EQ(single->num_variables(), 2u);
  EXPECT_EQ(single->stack().domain(1), iset("3"));
}

//==== failures =========================================================================

TEST(opb, failures) {
  // Coefficients summing above 31: no variable holds the partial sum.
  EXPECT_THROW(read("+16 x +16 y >= 2 ;\n"), std::out_of_range);
  EXPECT_THROW(read("+16 x +16 y = 2 ;\n"), std::out_of_range);
  // The same coefficients in a clause are fine: only "some term is true" is posted.
  EXPECT_NO_THROW(read("+16 x +16 y >= 1 ;\n"));
  // Objectives: the positive coefficients of the normal form above 31.
  EXPECT_THROW(read("min: +16 x +16 y ;\n"), std::out_of_range);
  EXPECT_THROW(read("max: -16 x -16 ~y ;\n"), std::out_of_range);
  EXPECT_NO_THROW(read("max: +20 x +20 ~x +5 y ;\n"));  // 20 + 5 y
  // Syntax errors: the message on standard error, then the exception.
  for (const char* text : {"min: ;\n", "1 x >= 1 ;\n", "/* open\n", "+1 x >= 1\n", "+1 * x >= 1;\n",
                           "+1 min >= 1 ;\n", "+1 x @ 1 ;\n"}) {
    testing::internal::CaptureStderr();
    try {
      read(text);
      ADD_FAILURE() << "no error for " << text;
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "test.opb: Parsing failed") << text;
    }
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_EQ(message.rfind("test.opb:", 0), 0u) << message;
    EXPECT_NE(message.find(":syntax error, unexpected "), std::string::npos) << message;
  }
}

//==== objectives =======================================================================

// A random objective over three variables, minimized or maximized, under a
// random clause: the optimum zelk proves, reported with the objective's
// constant, is the one found by trying all eight assignments; an objective whose
// normal form sums above 31 is refused by the range error.
TEST(opb, objective_optimum_matches_brute_force) {
  std::mt19937 rng(24);
  const char* const names[] = {"a", "b", "c"};
  for (int round = 0; round < 400; ++round) {
    struct term {
      int coefficient;
      int var;
      bool negated;
      int second;  // -1, or a second (plain) variable of a product
    };
    std::vector<term> terms(1 + rng() % 5);
    const bool minimize = rng() % 2 == 0;
    std::string text = minimize ? "min:" : "max:";
    for (term& t : terms) {
      t = {int(rng() % 25) - 12, int(rng() % 3), rng() % 3 == 0, rng() % 4 == 0 ? int(rng() % 3) : -1};
      text += " " + std::string(t.coefficient >= 0 ? "+" : "") + std::to_string(t.coefficient) + " " +
              (t.negated ? "~" : "") + names[t.var];
      if (t.second >= 0) text += std::string(" ") + names[t.second];
    }
    text += " ;\n";
    const std::array<bool, 3> clause_negated{rng() % 2 == 0, rng() % 2 == 0, rng() % 2 == 0};
    text += std::string("+1 ") + (clause_negated[0] ? "~" : "") + "a +1 " + (clause_negated[1] ? "~" : "") +
            "b +1 " + (clause_negated[2] ? "~" : "") + "c >= 1 ;\n";

    // The normal form: products by their sets of (variable, sign), c ~x as c - c x.
    std::vector<std::pair<std::vector<int>, long long>> merged;
    long long constant = 0;
    for (const term& t : terms) {
      std::vector<int> key{t.var * 2 + (t.negated ? 1 : 0)};
      if (t.second >= 0 && t.second != t.var) key.push_back(t.second * 2);
      if (t.second == t.var && t.negated) continue;  // x ~x: always false
      long long c = t.coefficient;
      if (key.size() == 1 && t.negated) {
        constant += c;
        key = {t.var * 2};
        c = -c;
      }
      std::sort(key.begin(), key.end());
      auto same = std::find_if(merged.begin(), merged.end(), [&](const auto& m) { return m.first == key; });
      if (same == merged.end())
        merged.emplace_back(key, c);
      else
        same->second += c;
    }
    long long positive_sum = 0;
    for (const auto& m : merged) positive_sum += std::abs(m.second);
    static_cast<void>(constant);

    if (positive_sum > 31) {
      EXPECT_THROW(read(text), std::out_of_range) << text;
      continue;
    }
    std::optional<long long> best;
    for (int a = 0; a < 8; ++a) {
      auto value_of = [&](int v) { return (a >> v & 1) != 0; };
      if (value_of(0) == clause_negated[0] && value_of(1) == clause_negated[1] && value_of(2) == clause_negated[2])
        continue;
      long long value = 0;
      for (const term& t : terms)
        if (value_of(t.var) != t.negated && (t.second < 0 || value_of(t.second))) value += t.coefficient;
      if (!best || (minimize ? value < *best : value > *best)) best = value;
    }
    std::unique_ptr<opb_solver> s = read(text);
    captured_cout quiet;
    ASSERT_EQ(s->solve(&std::cout), zelk::solver::OPTIMAL) << text;
    EXPECT_EQ(s->best_value() + s->objective_offset, *best) << text;
    // The objective of the model left in the solver is the one reported.
    EXPECT_EQ(s->context().objective()->evaluate(*s), *best) << text;
  }
}

//==== reading ==========================================================================

// The location of the syntax error in `text`, as "line.column".
std::string error_location(const std::string& text) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(read(text), std::runtime_error);
  const std::string message = testing::internal::GetCapturedStderr();
  const std::size_t start = message.find(':') + 1;
  return message.substr(start, message.find(':', start) - start);
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

TEST(opb, any_byte_without_a_place_is_an_error) {
  // A NUL byte is no end of the input: the second constraint must not be lost.
  using namespace std::string_literals;
  EXPECT_EQ(error_location("+1 x >= 1 ;\n\0+1 ~x >= 1 ;\n"s), "2.1");
  EXPECT_EQ(error_location("\0"s), "1.1");
  EXPECT_EQ(error_location("+1 x >= 1 \xff;\n"), "1.11");
  // In a comment it is text like any other.
  EXPECT_EQ(read("* a \0 in a comment\n/* \0 */ +1 x >= 1 ;\n"s)->context().constraints().size(), 1u);
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
