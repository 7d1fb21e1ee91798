// The OPB reader: normal form of products and sums, the unique products of the
// context, the variables and propagators posted for them, and, by brute force on
// small random instances, that the posted model has exactly the solutions and the
// optimum of the pseudo-Boolean instance.
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

TEST(opb, print_solution_and_trace) {
  std::unique_ptr<opb_solver> s = read("+1 b >= 1 ;\n+1 a +1 b <= 1 ;\n");
  std::ostringstream proof;
  ASSERT_EQ(s->solve(&proof), zelk::solver::SAT);
  captured_cout out;
  s->print_solution(std::cout);
  EXPECT_EQ(out.text(), "v  -a b\n");

  captured_cout trace;
  static zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  flags.seed = 1;
  flags.report_level = 2;
  std::istringstream in("max: +1 x ;\n+1 x +1 y >= 3 ;\n");
  opb_solver traced(in, "t.opb", flags, memory);
  const std::string text = trace.text();
  EXPECT_NE(text.find("objective[+1 x].normalize()\n"), std::string::npos) << text;
  EXPECT_NE(text.find("[+1 x +1 y >= 3].apply()\n"), std::string::npos) << text;
  EXPECT_NE(text.find("can't satisfy constraint: +1 x +1 y >= 3\n"), std::string::npos) << text;
}

//==== brute force ==========================================================================

// An instance of its own, evaluated independently of the reader.
struct random_term {
  int coefficient;
  std::vector<std::pair<bool, int>> literals;  // (positive, variable)
};

struct random_constraint {
  std::vector<random_term> terms;
  std::string relation;
  int rhs;
};

const char* const NAMES[] = {"a", "b", "c", "d"};

long long sum_of(const std::vector<random_term>& terms, unsigned int assignment) {
  long long sum = 0;
  for (const random_term& t : terms) {
    bool all = true;
    for (const auto& [positive, var] : t.literals)
      all = all && (((assignment >> var) & 1u) != 0) == positive;
    if (all) sum += t.coefficient;
  }
  return sum;
}

bool holds(const random_constraint& c, unsigned int assignment) {
  const long long s = sum_of(c.terms, assignment);
  if (c.relation == ">=") return s >= c.rhs;
  if (c.relation == "<=") return s <= c.rhs;
  if (c.relation == "=") return s == c.rhs;
  if (c.relation == "<") return s < c.rhs;
  return s > c.rhs;
}

std::string text_of(const std::vector<random_term>& terms) {
  std::ostringstream os;
  for (const random_term& t : terms) {
    os << (t.coefficient >= 0 ? "+" : "") << t.coefficient;
    for (const auto& [positive, var] : t.literals) os << " " << (positive ? "" : "~") << NAMES[var];
    os << " ";
  }
  return os.str();
}

std::vector<random_term> random_terms(std::mt19937& rng, int variables, int min_coefficient,
                                      int max_coefficient) {
  std::vector<random_term> terms(1 + rng() % 3);
  for (random_term& t : terms) {
    t.coefficient = min_coefficient + int(rng() % unsigned(max_coefficient - min_coefficient + 1));
    const unsigned int length = 1 + rng() % 2;
    for (unsigned int i = 0; i < length; ++i)
      t.literals.emplace_back(rng() % 3 != 0, int(rng() % unsigned(variables)));
  }
  return terms;
}

struct random_instance {
  std::vector<random_constraint> constraints;
  std::vector<random_term> objective;  // empty: none
  std::string text;
  int variables;
};

random_instance make_instance(std::mt19937& rng, bool with_objective) {
  static const char* const RELATIONS[] = {">=", "<=", "=", "<", ">"};
  random_instance inst;
  inst.variables = 2 + int(rng() % 3);
  std::ostringstream os;
  if (with_objective) {
    inst.objective = random_terms(rng, inst.variables, 0, 5);
    os << "max: " << text_of(inst.objective) << ";\n";
  }
  const unsigned int count = 1 + rng() % 3;
  for (unsigned int i = 0; i < count; ++i) {
    random_constraint c;
    c.terms = random_terms(rng, inst.variables, -5, 5);
    c.relation = RELATIONS[rng() % 5];
    c.rhs = int(rng() % 15) - 6;
    os << text_of(c.terms) << c.relation << " " << c.rhs << " ;\n";
    inst.constraints.push_back(std::move(c));
  }
  // Every variable declared, so that each has a solver variable to fix.
  for (int v = 0; v < inst.variables; ++v) os << "+0 " << NAMES[v] << " >= 0 ;\n";
  inst.text = os.str();
  return inst;
}

bool feasible(const random_instance& inst, unsigned int assignment) {
  return std::all_of(inst.constraints.begin(), inst.constraints.end(),
                     [&](const random_constraint& c) { return holds(c, assignment); });
}

unsigned int solution_of(const opb_solver& s, int variables) {
  unsigned int assignment = 0;
  for (int v = 0; v < variables; ++v)
    if (s.stack().domain(variable_named(s, NAMES[v]).solver_variable()).min() != 0)
      assignment |= 1u << v;
  return assignment;
}

TEST(opb, brute_force_constraints) {
  const unsigned int seed = 20240611;
  std::mt19937 rng(seed);
  for (int round = 0; round < 1000; ++round) {
    const random_instance inst = make_instance(rng, false);
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round) + ":\n" +
                 inst.text);
    bool any = false;
    for (unsigned int assignment = 0; assignment < (1u << inst.variables); ++assignment) {
      const bool expected = feasible(inst, assignment);
      any = any || expected;
      std::unique_ptr<opb_solver> s = read(inst.text);
      for (int v = 0; v < inst.variables; ++v) {
        // Within the initial domain: the reader fixes variables there too.
        const unsigned int var = variable_named(*s, NAMES[v]).solver_variable();
        s->set_var_domain(var, s->stack().domain(var) & iset::singleton(int((assignment >> v) & 1u)),
                          -1);
      }
      std::ostringstream proof;
      const zelk::solver::result_type result = s->solve(&proof);
      EXPECT_EQ(result, expected ? zelk::solver::SAT : zelk::solver::UNSAT)
          << "assignment " << assignment;
    }
    // A free search finds a solution exactly when one exists, and it is one.
    std::unique_ptr<opb_solver> s = read(inst.text);
    std::ostringstream proof;
    const zelk::solver::result_type result = s->solve(&proof);
    ASSERT_EQ(result, any ? zelk::solver::SAT : zelk::solver::UNSAT);
    if (any) {
      EXPECT_TRUE(feasible(inst, solution_of(*s, inst.variables)));
    }
  }
}

TEST(opb, brute_force_objective) {
  const unsigned int seed = 77;
  std::mt19937 rng(seed);
  for (int round = 0; round < 600; ++round) {
    const random_instance inst = make_instance(rng, true);
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round) + ":\n" +
                 inst.text);
    long long best = LLONG_MIN;
    for (unsigned int assignment = 0; assignment < (1u << inst.variables); ++assignment)
      if (feasible(inst, assignment)) best = std::max(best, sum_of(inst.objective, assignment));
    std::unique_ptr<opb_solver> s = read(inst.text);
    zelk::solver::result_type result;
    {
      captured_cout progress;
      std::ostringstream proof;
      result = s->solve(&proof);
    }
    if (best == LLONG_MIN) {
      EXPECT_EQ(result, zelk::solver::UNSAT);
      continue;
    }
    ASSERT_EQ(result, zelk::solver::OPTIMAL);
    EXPECT_EQ(s->best_value(), best);
    // The restored best solution is a solution of that value.
    const unsigned int solution = solution_of(*s, inst.variables);
    EXPECT_TRUE(feasible(inst, solution));
    EXPECT_EQ(s->evaluate_objective(), best);
    EXPECT_EQ(sum_of(inst.objective, solution), best);
  }
}

}  // namespace
