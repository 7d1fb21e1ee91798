// The OPB reader: normal form of products and sums, the unique products of the
// context, the variables and propagators posted for them, and the accepted dialect.
// Whole answers are checked by the differential test against brute force and clasp.
#include "opb/opb_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iostream>
#include <memory>
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

const variable& variable_named(const opb_solver& s, const char* name) {
  const auto found = s.context().variables().find(name);
  EXPECT_NE(found, s.context().variables().end()) << name;
  return *found;
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

TEST(opb, products_are_unique_and_ordered) {
  std::unique_ptr<opb_solver> s = read(
      "+1 y x >= 1 ;\n"
      "+2 x y >= 1 ;\n"
      "+1 x ~y >= 1 ;\n"
      "+1 x >= 1 ;\n"
      "+1 a ~a >= 1 ;\n"
      "+1 ~b b >= 1 ;\n");
  const context& ctx = s->context();
  const auto& c = ctx.constraints();
  // "y x" and "x y" are one object; "x ~y" is another.
  EXPECT_EQ(c[0]->expr().atoms()[0].conj, c[1]->expr().atoms()[0].conj);
  const conjunction* xy = c[0]->expr().atoms()[0].conj;
  const conjunction* x_not_y = c[2]->expr().atoms()[0].conj;
  const conjunction* x = c[3]->expr().atoms()[0].conj;
  EXPECT_NE(xy, x_not_y);
  // Products: a prefix first, then by name, ~y before y.
  EXPECT_TRUE(*x < *x_not_y);
  EXPECT_TRUE(*x_not_y < *xy);
  EXPECT_FALSE(*xy < *x_not_y);
  EXPECT_FALSE(*xy < *xy);
  // All constant-false products are one, with hash 0, and come first.
  std::size_t always_false = 0;
  for (const context::conjunction_hash_entry& entry : ctx.conjunctions()) {
    EXPECT_EQ(entry.hash, entry.conj->hash());
    if (!entry.conj->always_false()) continue;
    ++always_false;
    EXPECT_EQ(entry.hash, 0u);
    EXPECT_TRUE(*entry.conj < *xy);
    EXPECT_FALSE(*xy < *entry.conj);
    EXPECT_FALSE(*entry.conj < *entry.conj);
  }
  EXPECT_EQ(always_false, 1u);
  EXPECT_EQ(ctx.conjunctions().size(), 4u);
  // The hash of a variable: h = h * 1523 + character from 1; of a product:
  // h = hash(variable) * sign + h * 98321 from 1.
  EXPECT_EQ(variable_named(*s, "x").hash(), 1523u + 'x');
  EXPECT_EQ(x->hash(), (1523u + 'x') + 98321u);
}

TEST(opb, get_not) {
  std::unique_ptr<opb_solver> s = read("+1 x >= 1 ;\n+1 ~x >= 0 ;\n+1 x y >= 1 ;\n");
  context& ctx = s->context();
  const auto& c = ctx.constraints();
  conjunction* x = c[0]->expr().atoms()[0].conj;
  conjunction* not_x = x->get_not(ctx);
  ASSERT_NE(not_x, nullptr);
  ASSERT_EQ(not_x->literals().size(), 1u);
  EXPECT_EQ(not_x->literals()[0].first, -1);
  EXPECT_EQ(not_x->get_not(ctx), x);
  EXPECT_EQ(x->get_not(ctx), not_x);  // unique: asked twice, one object
  EXPECT_EQ(c[2]->expr().atoms()[0].conj->get_not(ctx), nullptr);
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

TEST(opb, same_product_shares_base_variable) {
  std::unique_ptr<opb_solver> s = read("+3 x y >= 2 ;\n+2 y x = 2 ;\n");
  const conjunction* xy = s->context().constraints()[0]->expr().atoms()[0].conj;
  EXPECT_EQ(s->context().constraints()[1]->expr().atoms()[0].conj, xy);
  const auto& by_value = xy->variables_by_value();
  ASSERT_EQ(by_value.size(), 2u);
  const auto three = by_value.find(conjunction::atom_values_t(0, 3));
  const auto two = by_value.find(conjunction::atom_values_t(0, 2));
  ASSERT_NE(three, by_value.end());
  ASSERT_NE(two, by_value.end());
  // The first use made the base; the second follows it in both directions.
  EXPECT_EQ(xy->base_variable(), three->second.variable);
  EXPECT_EQ(xy->atom_values(), conjunction::atom_values_t(0, 3));
  EXPECT_NE(two->second.variable, three->second.variable);
  EXPECT_TRUE(two->second.true_atom_implies_product);
  EXPECT_TRUE(two->second.product_implies_true_atom);
  // ">= 2" left the base {3}, "= 2" fixed the second atom.
  EXPECT_EQ(s->stack().domain(three->second.variable), iset("3"));
  EXPECT_EQ(s->stack().domain(two->second.variable), iset("2"));
}

TEST(opb, atom_connectivity_directions) {
  using connectivity = conjunction::atom_connectivity_t;
  const connectivity at_most(3, false, zelk::eval_at_most);
  EXPECT_TRUE(at_most.true_atom_implies_product);
  EXPECT_FALSE(at_most.product_implies_true_atom);
  const connectivity negative(-3, false, zelk::eval_at_most);
  EXPECT_FALSE(negative.true_atom_implies_product);
  EXPECT_TRUE(negative.product_implies_true_atom);
  const connectivity negated(3, true, zelk::eval_at_most);
  EXPECT_EQ(negated.true_atom_implies_product, negative.true_atom_implies_product);
  const connectivity both_swaps(-3, true, zelk::eval_at_most);
  EXPECT_TRUE(both_swaps.true_atom_implies_product);
  EXPECT_FALSE(both_swaps.product_implies_true_atom);
  connectivity exact;
  exact.set_equals_variable(4);
  EXPECT_TRUE(exact.is_as_strong_as(at_most));
  EXPECT_TRUE(exact.is_as_strong_as(negative));
  EXPECT_FALSE(at_most.is_as_strong_as(negative));
  EXPECT_TRUE(at_most.is_as_strong_as(connectivity()));
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
  // min: only with coefficients 0.
  EXPECT_THROW(read("min: +1 x ;\n"), std::out_of_range);
  EXPECT_NO_THROW(read("min: +0 x ;\n"));
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
