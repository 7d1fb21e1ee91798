// Formulas: the folding rules on constants, negations and clauses; and evaluate /
// constrain_solver / reify against an independent evaluation of random formulas
// over every assignment.
#include "impl/formula.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "impl/formula_impl.h"
#include "impl/solver.h"
#include "unit/test_support.h"

namespace zelk {
namespace {

using namespace test_support;

class letters : public variable_print_strategy {
 public:
  void print(std::ostream& os, unsigned int variable) const override {
    os << char('x' + variable);
  }
};

std::string text(const formula& f) {
  std::ostringstream os;
  f.print(os, letters());
  return os.str();
}

const formula_impl* node(const formula& f) { return f.node(); }

// What the folding rules must see without evaluating: constants, a formula beside
// its negation, one-literal clauses that cover or miss each other, and literals
// of the empty and the full set. The random formulas below check the rest.
TEST(formula, folding_decides_constants) {
  EXPECT_TRUE(formula(3u, iset()).is_false());
  EXPECT_TRUE(formula(3u, iset::full()).is_true());
  EXPECT_TRUE(formula(clause_data()).is_false());
  EXPECT_TRUE((!formula(true)).is_false() && (!formula(false)).is_true());
  const formula x = formula(0u, S({1})) || formula(1u, S({2}));
  const formula b = x && formula(2u, S({0, 3}));  // binary node
  const formula n = !b;
  EXPECT_TRUE((b && n).is_false() && (n && b).is_false());
  EXPECT_TRUE((b || n).is_true() && (n || b).is_true());
  const formula a(0u, S({1, 2, 3}));
  EXPECT_TRUE((a && formula(0u, S({4, 5}))).is_false());
  EXPECT_TRUE((a || formula(0u, ~S({1, 2, 3}))).is_true());
  EXPECT_EQ(text(a && formula(0u, S({2, 3, 7}))), "[x:{2,3}]");
  // or of clauses merges the sets of a shared variable; a covering union is true.
  const formula c = formula(clause_data(make({{0, S({1})}, {1, S({2})}})));
  const formula d = formula(clause_data(make({{1, S({3})}, {2, S({0})}, {0, S({4})}})));
  EXPECT_EQ(text(c || d), "[x:{1,4}, y:{2,3}, z=0]");
  EXPECT_TRUE((c || formula(1u, ~S({2}))).is_true());
  // A full-set literal makes the clause true and its negation false; a literal of
  // the empty set adds nothing.
  EXPECT_TRUE((!formula(clause_data(make({{0, S({1})}, {1, iset::full()}})))).is_false());
  EXPECT_EQ(text(!formula(clause_data(make({{0, S({1})}, {1, iset()}})))), "[x!=1]");
}

TEST(formula, direct_node_calls_end_the_dispatch) {
  // Two clauses handing the turn to each other with try_other false must end.
  formula a(0u, S({1}));
  formula b(1u, S({2}));
  formula_impl* left = const_cast<formula_impl*>(node(a));
  formula_impl* right = const_cast<formula_impl*>(node(b));
  const formula both = formula(true) && a && b;
  EXPECT_EQ(text(both), "[x=1]&&[y=2]");
  formula_impl* r = left->and_with(right, false);
  formula_impl* o = left->or_with(right, false);
  std::ostringstream os;
  r->print(os, letters(), 0);
  os << " ";
  o->print(os, letters(), 0);
  EXPECT_EQ(os.str(), "[x=1]&&[y=2] [x=1, y=2]");
  // Fresh nodes that no handle took.
  delete r;
  delete o;
  // The empty clause reaches a clause node only by direct use, and is refused.
  clause_formula_impl* empty = new clause_formula_impl(clause_data());
  EXPECT_THROW(empty->make_not(), std::runtime_error);
  solver s;
  EXPECT_THROW(empty->constrain_solver(s), std::runtime_error);
  delete empty;
}

// A random formula as a tree of its own, evaluated without the formula layer.
struct tree {
  enum kind_type { LITERAL, TRUE, FALSE, NOT, AND, OR } kind = LITERAL;
  unsigned int variable = 0;
  iset set;
  std::vector<tree> children;

  bool eval(const std::vector<int>& values) const {
    switch (kind) {
      case LITERAL: return set.contains(values[variable]);
      case TRUE: return true;
      case FALSE: return false;
      case NOT: return !children[0].eval(values);
      case AND: return children[0].eval(values) && children[1].eval(values);
      case OR: return children[0].eval(values) || children[1].eval(values);
    }
    return false;
  }
  formula build() const {
    switch (kind) {
      case LITERAL: return formula(variable, set);
      case TRUE: return formula(true);
      case FALSE: return formula(false);
      case NOT: return !children[0].build();
      case AND: return children[0].build() && children[1].build();
      case OR: return children[0].build() || children[1].build();
    }
    return formula();
  }
};

constexpr unsigned int VARS = 3;
const iset DOMAIN = S({0, 1, 2});

tree random_tree(int depth, std::vector<tree>& pool) {
  tree t;
  const int r = std::rand() % 10;
  if (depth == 0 || r < 3) {
    if (r == 0 && !pool.empty()) return pool[std::size_t(std::rand()) % pool.size()];
    t.kind = std::rand() % 12 == 0 ? (std::rand() % 2 ? tree::TRUE : tree::FALSE) : tree::LITERAL;
    t.variable = unsigned(std::rand()) % VARS;
    t.set = iset::from_bits(std::uint32_t(std::rand()) & 7u);
    if (std::rand() % 8 == 0) t.set = t.set | ~DOMAIN;  // values outside the domain too
  } else if (r < 5) {
    t.kind = tree::NOT;
    t.children.push_back(random_tree(depth - 1, pool));
  } else {
    t.kind = r < 8 ? tree::AND : tree::OR;
    t.children.push_back(random_tree(depth - 1, pool));
    t.children.push_back(random_tree(depth - 1, pool));
  }
  pool.push_back(t);
  return t;
}

// Calls `f` with every assignment of the variables over DOMAIN.
void each_assignment(const std::function<void(const std::vector<int>&)>& f) {
  std::vector<int> values(VARS);
  for (int a = 0; a < 27; ++a) {
    for (unsigned int i = 0, k = unsigned(a); i < VARS; ++i, k /= 3) values[i] = int(k % 3);
    f(values);
  }
}

TEST(formula, evaluate_and_constrain_solver_agree_with_the_formula_on_every_assignment) {
  std::srand(7);
  for (int round = 0; round < 400; ++round) {
    std::vector<tree> pool;
    const tree t = random_tree(4, pool);
    const formula f = t.build();
    const formula nf = !f;
    bool some_true = false;
    each_assignment([&](const std::vector<int>& values) {
      const bool expected = t.eval(values);
      some_true = some_true || expected;
      solver fixed;
      for (unsigned int v = 0; v < VARS; ++v) fixed.add_var(iset::singleton(values[v]));
      ASSERT_EQ(f.evaluate(fixed), expected) << "round " << round << ": " << text(f);
      ASSERT_EQ(nf.evaluate(fixed), !expected) << "round " << round << ": " << text(nf);
      // Imposed on a solver whose variables hold these values, the formula (and its
      // negation) must be satisfiable exactly when it is true.
      for (const formula* g : {&f, &nf}) {
        solver s;
        for (unsigned int v = 0; v < VARS; ++v) s.add_var(iset::singleton(values[v]));
        g->constrain_solver(s);
        s.should_intersect_with_ground = false;
        std::ostringstream out;
        const solver::result_type r = s.solve(&out);
        ASSERT_EQ(r == solver::SAT, g == &f ? expected : !expected)
            << "round " << round << ": " << text(*g);
      }
    });
    if (testing::Test::HasFatalFailure()) return;
    // On free domains the solver finds a model exactly when one exists.
    solver s;
    for (unsigned int v = 0; v < VARS; ++v) s.add_var(DOMAIN);
    f.constrain_solver(s);
    std::ostringstream out;
    const solver::result_type r = s.solve(&out);
    ASSERT_EQ(r == solver::SAT, some_true) << "round " << round << ": " << text(f);
    if (r == solver::SAT) {
      EXPECT_TRUE(f.evaluate(s)) << "round " << round << ": " << text(f);
    }
  }
}

TEST(formula, constants_reify_to_the_singleton_variables) {
  solver s;
  s.add_var(DOMAIN);
  formula(false).constrain_solver(s);
  formula(true).constrain_solver(s);
  EXPECT_EQ(true_formula_impl::get()->reify(s), s.singleton_var(1));
  EXPECT_EQ(false_formula_impl::get()->reify(s), s.singleton_var(0));
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::UNSAT);  // false imposed
  // not(x) on the child's reified variable
  solver t;
  t.add_var(DOMAIN);
  (!(formula(0u, S({0, 1})) && formula(0u, S({1, 2})))).constrain_solver(t);
  EXPECT_EQ(t.solve(&out), solver::SAT);
  EXPECT_NE(t.stack().domain(0), S({1}));
}

}  // namespace
}  // namespace zelk
