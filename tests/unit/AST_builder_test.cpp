// The expression builder and the operator definitions behind it. The main check is
// a brute-force oracle: random expression trees built into a solver, every solution
// enumerated, and the projection on the model's variables compared with the plain
// integer value of the tree. Fixed cases cover what the oracle cannot see (folding,
// shared variables, refusals, the difference sets, the detected cliques).
#include "impl/AST_builder.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/solver.h"
#include "unit/brute_force.h"
#include "unit/test_support.h"
#include "xcsp/AST.h"

namespace zelk {
namespace {

using iset = small_model::iset;
namespace xml = CSPXMLParser;
typedef std::unique_ptr<xml::AST> tree;
const unsigned NONE = AST_builder::NO_VARIABLE;

//==== trees ===================================================================

tree V(int id) { return std::make_unique<xml::ASTVar>("v" + std::to_string(id), id); }
tree C(int value) { return std::make_unique<xml::ASTInteger>(value); }

template <class F, class... T> tree op(T... args) {
  auto node = std::make_unique<F>();
  int i = 0;
  (node->setArg(i++, args.release()), ...);
  return node;
}
tree predicate(const char* name, std::vector<tree> args) {
  auto list = std::make_unique<xml::ASTList>();
  list->push_back(new xml::ASTVar(name, -1));
  for (tree& a : args) list->push_back(a.release());
  return list;
}

struct valuation : xml::VariableValuation {
  const std::vector<int>& values;
  explicit valuation(const std::vector<int>& v) : values(v) {}
  int getVarValue(int id) const override { return values[std::size_t(id)]; }
};

//==== a model: declared variables, a builder, enumeration =====================

struct model {
  test_support::recording_solver s;
  std::vector<unsigned> vars;
  AST_builder b{s};
  explicit model(const std::vector<iset>& domains) {
    for (std::size_t i = 0; i < domains.size(); ++i)
      vars.push_back(s.add_var(domains[i], ("v" + std::to_string(i)).c_str()));
  }
  void top(const xml::AST& t) { b.connect_expr(vars, s.singleton_var(1), t, AST_builder::usage_exact); }
  // Every solution projected on the declared variables.
  std::set<std::vector<int>> solve() {
    b.connectivity().create_all_constraints();
    s.reported_variable_count = unsigned(vars.size());
    s.all_solutions = true;
    std::ostringstream out;
    s.solve(&out);
    return s.solutions;
  }
};

// The assignments of `domains` that satisfy `holds`.
std::set<std::vector<int>> satisfying(const std::vector<iset>& domains,
                                      const std::function<bool(const std::vector<int>&)>& holds) {
  std::set<std::vector<int>> result;
  brute_force::for_each_assignment(domains,
                                   [&](const std::vector<int>& v) { return !holds(v) || result.insert(v).second; });
  return result;
}

std::set<std::vector<int>> solutions_of(const xml::AST& t, const std::vector<iset>& domains) {
  model m(domains);
  m.top(t);
  return m.solve();
}

std::set<std::vector<int>> expected_of(const xml::AST& t, const std::vector<iset>& domains) {
  return satisfying(domains, [&](const std::vector<int>& v) { return t.value(valuation(v)) == 1; });
}

//==== random trees ============================================================

struct generator {
  std::mt19937 g;
  unsigned n;  // variables 0..n-1; the first is Boolean
  explicit generator(unsigned seed) : g(seed), n(2 + seed % 3) {}
  int pick(int k) { return int(g() % unsigned(k)); }

  tree integer(int depth) {
    const int k = depth <= 0 ? pick(2) : pick(10);
    switch (k) {
      case 0: return V(pick(int(n)));
      case 1: return C(pick(5));
      case 2: case 3: return op<xml::FunctionAdd>(integer(depth - 1), integer(depth - 1));
      case 4: return op<xml::FunctionSub>(integer(depth - 1), pick(2) ? C(pick(3)) : integer(depth - 1));
      case 5: return op<xml::FunctionAbs>(op<xml::FunctionSub>(integer(depth - 1), integer(depth - 1)));
      case 6: return op<xml::FunctionIf>(boolean(depth - 1), integer(depth - 1), integer(depth - 1));
      case 7: return pick(4) ? V(pick(int(n))) : op<xml::FunctionNeg>(integer(depth - 1));
      case 8: return pick(2) ? op<xml::FunctionMin>(integer(depth - 1), integer(depth - 1))
                             : op<xml::FunctionMax>(integer(depth - 1), integer(depth - 1));
      default: return boolean(depth - 1);
    }
  }
  tree boolean(int depth) {
    const int k = depth <= 0 ? 10 + pick(2) : pick(12);
    switch (k) {
      case 0: return op<xml::FunctionEQ>(integer(depth - 1), integer(depth - 1));
      case 1: return op<xml::FunctionNE>(integer(depth - 1), integer(depth - 1));
      case 2: return op<xml::FunctionLT>(integer(depth - 1), integer(depth - 1));
      case 3: return op<xml::FunctionLE>(integer(depth - 1), integer(depth - 1));
      case 4: return op<xml::FunctionGT>(integer(depth - 1), integer(depth - 1));
      case 5: return op<xml::FunctionGE>(integer(depth - 1), integer(depth - 1));
      case 6: return op<xml::FunctionAnd>(boolean(depth - 1), boolean(depth - 1));
      case 7: return op<xml::FunctionOr>(boolean(depth - 1), boolean(depth - 1));
      case 8: return op<xml::FunctionNot>(boolean(depth - 1));
      case 9: return pick(2) ? op<xml::FunctionXor>(boolean(depth - 1), boolean(depth - 1))
                             : op<xml::FunctionIff>(boolean(depth - 1), boolean(depth - 1));
      case 10: return pick(3) ? V(0) : V(pick(int(n)));  // an integer read as a truth value
      default: return op<xml::FunctionNE>(V(pick(int(n))), V(pick(int(n))));
    }
  }
  std::vector<iset> domains() {
    std::vector<iset> d{iset::clipped_range(0, 1)};
    for (unsigned i = 1; i < n; ++i) {
      iset s;
      while (s.empty())
        for (int v = 0; v < 6; ++v)
          if (pick(2)) s.insert(v);
      d.push_back(s);
    }
    return d;
  }
};

bool refused(const std::function<void()>& build) {
  try {
    build();
  } catch (const AST_builder::unsupported&) {
    return true;
  } catch (const std::runtime_error& e) {
    // A non-Boolean expression in a Boolean place is refused by name.
    if (std::string(e.what()).find("boolean context") == std::string::npos) throw;
    return true;
  }
  return false;
}

// At the top with result 1, and with an open Boolean result R (the last declared
// variable) under each usage: R = e, R <= e, R >= e.
TEST(AST_builder, random_trees_keep_exactly_the_solutions_of_integer_arithmetic) {
  unsigned built = 0, skipped = 0;
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    generator gen(seed);
    const std::vector<iset> domains = gen.domains();
    const tree t = gen.boolean(1 + int(seed % 4));
    // Every third model also states a second tree as true: the two share entries.
    const tree also = seed % 3 == 0 ? gen.boolean(2) : C(1);
    const int mode = int(seed % 4);
    std::vector<iset> with_r(domains);
    if (mode) with_r.push_back(iset::clipped_range(0, 1));
    model m(mode ? with_r : domains);
    const unsigned result = mode ? m.vars.back() : m.s.singleton_var(1);
    const AST_builder::usage_type usage = mode == 2 ? AST_builder::usage_at_most
                                          : mode == 3 ? AST_builder::usage_at_least
                                                      : AST_builder::usage_exact;
    if (refused([&] {
          m.b.connect_expr(m.vars, result, *t, usage);
          m.top(*also);
          m.b.connectivity().create_all_constraints();
        })) {
      ++skipped;
      continue;
    }
    ++built;
    // Exact: R = e. One-sided: every solution keeps R <= e (or R >= e), and R = e
    // is never lost, though R may be tied to e where nothing is gained by freedom.
    const auto exact = satisfying(mode ? with_r : domains, [&](const std::vector<int>& v) {
      return also->value(valuation(v)) == 1 && t->value(valuation(v)) == (mode ? v.back() : 1);
    });
    const auto allowed = satisfying(mode ? with_r : domains, [&](const std::vector<int>& v) {
      const int e = t->value(valuation(v));
      if (also->value(valuation(v)) != 1) return false;
      return mode == 2 ? v.back() <= e : mode == 3 ? v.back() >= e : e == (mode ? v.back() : 1);
    });
    m.s.reported_variable_count = unsigned(m.vars.size());
    m.s.all_solutions = true;
    std::ostringstream out, text;
    t->prefixExpression(text);
    text << " and ";
    also->prefixExpression(text);
    ASSERT_NO_THROW(m.s.solve(&out)) << "seed " << seed << ' ' << text.str();
    for (const std::vector<int>& v : exact)
      ASSERT_TRUE(m.s.solutions.count(v)) << "lost, seed " << seed << " mode " << mode << ' ' << text.str();
    for (const std::vector<int>& v : m.s.solutions)
      ASSERT_TRUE(allowed.count(v)) << "wrong, seed " << seed << " mode " << mode << ' ' << text.str();
  }
  EXPECT_GT(built, 2 * skipped) << built << " built, " << skipped << " refused";
}

// Products, quotients, remainders, powers (of exponent 1 or more: 0 ** 0 has no
// value in the tree's arithmetic) and absolute values over a few small variables.
tree nonlinear_tree(std::mt19937& g, unsigned n, int depth) {
  switch (depth <= 0 ? g() % 2 : g() % 8) {
    case 0: return V(int(g() % n));
    case 1: return C(int(g() % 5));
    case 2: case 3: return op<xml::FunctionMul>(nonlinear_tree(g, n, depth - 1), nonlinear_tree(g, n, depth - 1));
    case 4: return op<xml::FunctionDiv>(nonlinear_tree(g, n, depth - 1), nonlinear_tree(g, n, depth - 1));
    case 5: return op<xml::FunctionMod>(nonlinear_tree(g, n, depth - 1), nonlinear_tree(g, n, depth - 1));
    case 6: return op<xml::FunctionPow>(nonlinear_tree(g, n, depth - 1), C(1 + int(g() % 3)));
    default: return op<xml::FunctionAbs>(nonlinear_tree(g, n, depth - 1));
  }
}

// A comparison of two such trees: exactly the solutions of the tree's integer
// arithmetic. Expressions that may leave 0..31 or divide by 0 are refused; the
// rest post the non-linear families.
TEST(AST_builder, nonlinear_trees_keep_exactly_their_solutions) {
  unsigned built = 0, skipped = 0;
  std::set<std::type_index> posted;
  std::mt19937 g(5);
  for (int round = 0; round < 800 && !HasFailure(); ++round) {
    const unsigned n = 2 + g() % 2;
    std::vector<iset> d(n);
    for (iset& s : d) s = brute_force::random_subset(g, iset("0:6"), true);
    tree t = nonlinear_tree(g, n, 2);
    switch (round % 4) {
      case 0: t = op<xml::FunctionEQ>(std::move(t), nonlinear_tree(g, n, 1)); break;
      case 1: t = op<xml::FunctionNE>(std::move(t), nonlinear_tree(g, n, 1)); break;
      case 2: t = op<xml::FunctionLE>(std::move(t), nonlinear_tree(g, n, 1)); break;
      default: t = op<xml::FunctionGE>(std::move(t), nonlinear_tree(g, n, 1));
    }
    model m(d);
    if (refused([&] { m.top(*t); m.b.connectivity().create_all_constraints(); })) {
      ++skipped;
      continue;
    }
    ++built;
    for (unsigned c = 0; c < m.s.num_constraints(); ++c) posted.insert(typeid(*m.s.propagator(c)));
    m.s.reported_variable_count = n;
    m.s.all_solutions = true;
    std::ostringstream out, text;
    t->prefixExpression(text);
    ASSERT_NO_THROW(m.s.solve(&out)) << "round " << round << " " << text.str();
    EXPECT_EQ(m.s.solutions, expected_of(*t, d)) << "round " << round << " " << text.str();
  }
  EXPECT_GT(built, skipped) << built << " built, " << skipped << " refused";
  // The builder needs no propagator for abs: on 0..31 it is the identity.
  for (const std::type_info* kind : {&typeid(mul_truncate_propagator), &typeid(less_equal_mul_propagator),
                                     &typeid(greater_equal_mul_propagator), &typeid(div_propagator),
                                     &typeid(mod_propagator), &typeid(pow_propagator)})
    EXPECT_TRUE(posted.count(*kind)) << kind->name() << " never posted";
}

//==== fixed cases through the oracle ==========================================

TEST(AST_builder, answers_that_a_literal_reading_got_wrong) {
  const std::vector<iset> xy{iset("0:3"), iset("0:3")};
  // Queens: |x - y| != 1 keeps the solutions with x < y.
  const tree queens = op<xml::FunctionNE>(op<xml::FunctionAbs>(op<xml::FunctionSub>(V(0), V(1))), C(1));
  EXPECT_EQ(solutions_of(*queens, xy).size(), 10u);
  EXPECT_EQ(solutions_of(*queens, xy), expected_of(*queens, xy));
  // not is 0 or 1 whatever its argument: y = not x over y in 0..5.
  const std::vector<iset> yx{iset("0:5"), iset("0:3")};
  const tree y_not_x = op<xml::FunctionEQ>(V(0), op<xml::FunctionNot>(V(1)));
  EXPECT_EQ(solutions_of(*y_not_x, yx), expected_of(*y_not_x, yx));
  // An equality is never 5.
  model five(xy);
  five.top(*op<xml::FunctionEQ>(op<xml::FunctionEQ>(V(0), V(1)), C(5)));
  EXPECT_TRUE(five.b.is_marked_unsat());
  EXPECT_TRUE(five.solve().empty());
  // An integer in a connective is true when it is not 0.
  const tree or_int = op<xml::FunctionOr>(V(0), op<xml::FunctionLT>(V(1), C(1)));
  EXPECT_EQ(solutions_of(*or_int, xy), expected_of(*or_int, xy));
  const tree and_const = op<xml::FunctionAnd>(C(5), op<xml::FunctionLT>(V(0), V(1)));
  EXPECT_EQ(solutions_of(*and_const, xy), expected_of(*and_const, xy));
  const tree if_int = op<xml::FunctionEQ>(op<xml::FunctionIf>(V(0), C(2), V(1)), C(2));
  EXPECT_EQ(solutions_of(*if_int, xy), expected_of(*if_int, xy));
  // x == 40 can't hold, x != 40 always does.
  EXPECT_TRUE(solutions_of(*op<xml::FunctionEQ>(V(0), C(40)), xy).empty());
  EXPECT_EQ(solutions_of(*op<xml::FunctionNE>(V(0), C(40)), xy).size(), 16u);
}

TEST(AST_builder, values_that_could_leave_0_to_31_are_refused) {
  const auto refuses = [](const std::vector<iset>& d, tree t) {
    model m(d);
    return refused([&] { m.top(*t); });
  };
  const std::vector<iset> d{iset("0:3"), iset("3:20")};
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionSub>(V(0), V(1)), C(1))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionAdd>(V(1), V(1)), C(2))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionAdd>(C(20), C(20)), V(1))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionSub>(C(1), C(2)), V(0))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionNeg>(V(1)), V(0))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionXor>(V(1), V(0))));
  // Provably within range: the strict posting is used.
  EXPECT_FALSE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionSub>(V(1), V(0)), C(1))));
  EXPECT_FALSE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionAdd>(V(0), V(1)), C(9))));
  EXPECT_TRUE(refuses(d, op<xml::FunctionEQ>(op<xml::FunctionPow>(V(1), C(2)), C(1))));
  // A nested result is judged by the range it can reach, not by 0..31.
  const auto X = [] { return V(0); };
  const std::vector<std::function<tree()>> inner{
      [&] { return op<xml::FunctionAdd>(X(), X()); },
      [&] { return op<xml::FunctionSub>(C(5), X()); },
      [&] { return op<xml::FunctionMul>(X(), C(3)); },
      [&] { return op<xml::FunctionDiv>(V(1), C(2)); },
      [&] { return op<xml::FunctionMod>(V(1), C(4)); },
      [&] { return op<xml::FunctionMin>(X(), V(1)); },
      [&] { return op<xml::FunctionMax>(X(), C(9)); },
      [&] { return op<xml::FunctionIf>(op<xml::FunctionLT>(X(), C(2)), X(), C(7)); }};
  for (const auto& make : inner) {
    std::ostringstream text;
    make()->infixExpression(text);
    SCOPED_TRACE(text.str());
    const auto outer = [&] { return op<xml::FunctionNE>(op<xml::FunctionAdd>(make(), C(11)), V(1)); };
    EXPECT_FALSE(refuses(d, outer()));
    EXPECT_EQ(solutions_of(*outer(), d), expected_of(*outer(), d));
  }
  // Multiplying by 1 and abs of a non-negative value need no propagator.
  const tree trivial = op<xml::FunctionEQ>(op<xml::FunctionMul>(op<xml::FunctionAbs>(V(0)), C(1)), V(1));
  EXPECT_EQ(solutions_of(*trivial, d), expected_of(*trivial, d));
}

TEST(AST_builder, model_errors_and_empty_domains) {
  model m({iset("0:3"), iset("0:3")});
  // A predicate given fewer effective than formal parameters.
  EXPECT_THROW(m.top(*op<xml::FunctionLT>(V(0), V(2))), std::runtime_error);
  // After the model is known unsatisfiable, building goes on over empty domains.
  m.top(*op<xml::FunctionEQ>(V(0), C(7)));
  EXPECT_TRUE(m.b.is_marked_unsat());
  EXPECT_NO_THROW({
    m.top(*op<xml::FunctionLT>(V(0), V(1)));
    m.top(*op<xml::FunctionEQ>(op<xml::FunctionAdd>(V(0), V(1)), C(3)));
    m.top(*op<xml::FunctionNE>(op<xml::FunctionAbs>(op<xml::FunctionSub>(V(0), V(1))), C(1)));
    m.top(*op<xml::FunctionOr>(op<xml::FunctionNot>(V(0)), op<xml::FunctionEQ>(V(0), V(1))));
    m.top(*op<xml::FunctionIf>(V(0), V(1), C(1)));
    m.b.instantiate_weighted_sum({1, 2}, m.vars, true, 3);
    m.b.connectivity().create_all_constraints();
  });
  EXPECT_TRUE(m.solve().empty());
  // A non-Boolean expression in a Boolean place.
  model two({iset("2,3")});
  EXPECT_THROW(two.top(*op<xml::FunctionOr>(V(0), V(0))), std::runtime_error);
}

//==== what is posted ==========================================================

TEST(AST_builder, constants_and_equalities_fold) {
  model m({iset("0:5"), iset("0:5"), iset("0:5")});
  m.top(*op<xml::FunctionNE>(V(0), C(3)));
  m.top(*op<xml::FunctionNE>(V(0), C(40)));
  m.top(*op<xml::FunctionEQ>(V(1), C(2)));
  EXPECT_EQ(m.s.stack().domain(0), iset("0:2,4:5"));
  EXPECT_EQ(m.s.stack().domain(1), iset("2"));
  // x = z unites the classes; x = z then folds.
  m.top(*op<xml::FunctionEQ>(V(0), V(2)));
  const unsigned r = m.s.add_var(iset("0:1"), "r");
  m.b.connect_expr(m.vars, r, *op<xml::FunctionEQ>(V(2), V(0)), AST_builder::usage_exact);
  EXPECT_EQ(m.s.stack().domain(r), iset("1"));
  // Equal classes that are known different fail.
  m.b.mark_unequal_variables(0, 1);
  m.b.equate_variables(2, 1);
  EXPECT_TRUE(m.b.is_marked_unsat());
}

TEST(AST_builder, disequality_variables_are_shared_and_end_exact) {
  model m({iset("0:3"), iset("0:3"), iset("0:1"), iset("0:1")});
  const tree ne = op<xml::FunctionNE>(V(0), V(1));
  // The one-sided variables of one expression, asked in either order, end as one.
  const unsigned first = m.b.expression_to_variable(m.vars, *ne, NONE, AST_builder::usage_at_most);
  const unsigned second = m.b.expression_to_variable(m.vars, *ne, NONE, AST_builder::usage_at_least);
  EXPECT_TRUE(m.b.are_eq(first, second));
  // Tie the shared variable to declared ones and compare with the arithmetic.
  m.b.equate_variables(2, first);
  const std::vector<iset> d{iset("0:3"), iset("0:3"), iset("0:1"), iset("0:1")};
  EXPECT_EQ(m.solve(), satisfying(d, [](const std::vector<int>& v) { return v[2] == (v[0] != v[1]); }));
}

// The guarded forms behind one-sided equalities: exactly r <= (a = b), r >= (a = b)
// and the same for a != b, over domains that are not Boolean.
TEST(AST_builder, one_sided_equalities_are_exact_in_their_direction) {
  const std::vector<iset> d{iset("0:3"), iset("1:4"), iset("0:1")};
  for (bool is_eq : {true, false})
    for (AST_builder::usage_type usage : {AST_builder::usage_at_most, AST_builder::usage_at_least}) {
      model m(d);
      m.b.connect_eq_by_vars(2, is_eq, false, false, 0, 1, usage);
      EXPECT_EQ(m.solve(), satisfying(d, [&](const std::vector<int>& v) {
                  const int e = (v[0] == v[1]) == is_eq;
                  return usage == AST_builder::usage_at_most ? v[2] <= e : v[2] >= e;
                })) << is_eq << ' ' << usage;
    }
  // Two tasks that don't overlap: s1 + 3 <= s2 or s2 + 2 <= s1.
  const std::vector<iset> s{iset("0:6"), iset("0:6")};
  const tree jobs = op<xml::FunctionOr>(op<xml::FunctionLE>(op<xml::FunctionAdd>(V(0), C(3)), V(1)),
                                        op<xml::FunctionLE>(op<xml::FunctionAdd>(V(1), C(2)), V(0)));
  EXPECT_EQ(solutions_of(*jobs, s), expected_of(*jobs, s));
}

//==== operator definitions ====================================================

TEST(operator_definition_registry, simplifications_and_shared_entries) {
  const operator_definition_registry& registry = operator_definition_registry::get();
  model m({iset("0:5"), iset("0:5"), iset("0:1")});
  operator_connectivity& table = m.b.connectivity();
  const auto eval = [&](int type, std::vector<unsigned> args) {
    return registry.find(type)->symbolic_eval(table, eval_exact, args.data(), args.data() + args.size(), NONE);
  };
  // x + y, then (x + y) - x is y.
  const unsigned sum = eval(xml::F_ADD, {0, 1});
  EXPECT_EQ(eval(xml::F_SUB, {sum, 0}), 1u);
  EXPECT_EQ(eval(xml::F_ADD, {1, 0}), sum);
  EXPECT_EQ(eval(xml::F_SUB, {0, 0}), m.s.singleton_var(0));
  // x * y and y * x are one entry; x + x is x * 2.
  EXPECT_EQ(eval(xml::F_MUL, {1, 0}), eval(xml::F_MUL, {0, 1}));
  EXPECT_EQ(eval(xml::F_ADD, {0, 0}), eval(xml::F_MUL, {0, m.s.singleton_var(2)}));
  // not(not b) is b for a Boolean b; for an integer it is not.
  EXPECT_EQ(eval(xml::F_NOT, {eval(xml::F_NOT, {2})}), 2u);
  EXPECT_NE(eval(xml::F_NOT, {eval(xml::F_NOT, {0})}), 0u);
  // x - x >= 1 is false, x - x >= 0 true.
  EXPECT_EQ(eval(xml::F_GT, {0, 0}), m.s.singleton_var(0));
  EXPECT_EQ(eval(xml::F_GE, {0, 0}), m.s.singleton_var(1));
}

TEST(operator_definition_registry, difference_ge_postings_are_exact) {
  // r = (x - y >= c) for r fixed, r open under each direction, by brute force.
  const std::vector<iset> d{iset("0:4"), iset("1:5"), iset("0:1")};
  for (int c = 0; c <= 4; ++c)
    for (int r_case = 0; r_case < 3; ++r_case)
      for (eval_type eval : {eval_at_most, eval_at_least, eval_both_bounds, eval_exact}) {
        std::vector<iset> dr(d);
        if (r_case < 2) dr[2] = iset::singleton(r_case);
        model m(dr);
        const unsigned args[3] = {0, 1, m.s.singleton_var(c)};
        operator_definition_registry::get().find_predicate("difference_ge")->create_constraints(
            m.s, eval, 0, 2, args, args + 3);
        const auto want = satisfying(dr, [&](const std::vector<int>& v) {
          const int e = v[0] - v[1] >= c;
          return eval == eval_at_most ? v[2] <= e : eval == eval_at_least ? v[2] >= e : v[2] == e;
        });
        EXPECT_EQ(m.solve(), want) << "c " << c << " r " << r_case << " eval " << eval;
      }
}

//==== global constraints ======================================================

TEST(AST_builder, weighted_sums_and_all_different) {
  const std::vector<iset> d{iset("0:3"), iset("0:3"), iset("0:3")};
  for (bool is_ge : {true, false}) {
    model m(d);
    m.b.instantiate_weighted_sum({2, -1, 3}, m.vars, is_ge, 4);
    EXPECT_EQ(m.solve(), satisfying(d, [&](const std::vector<int>& v) {
                const int s = 2 * v[0] - v[1] + 3 * v[2];
                return is_ge ? s >= 4 : s <= 4;
              }));
  }
  model m(d);
  EXPECT_THROW(m.b.instantiate_weighted_sum({INT_MIN, 1, 1}, m.vars, false, 0), AST_builder::unsupported);
  EXPECT_THROW(m.b.instantiate_weighted_sum({1, 1, 1}, m.vars, true, 1LL << 31), AST_builder::unsupported);
  EXPECT_THROW(m.b.instantiate_weighted_sum({1, 1, 1}, m.vars, false, -(1LL << 31)),
               AST_builder::unsupported);
  // sum <= 2^31 is sum of negatives >= -2^31, which fits.
  EXPECT_NO_THROW(m.b.instantiate_weighted_sum({1, 1, 1}, m.vars, false, 1LL << 31));
  // Five variables over four values: no injection; four over four: 4! of them.
  model five(std::vector<iset>(5, iset("0:3")));
  five.b.instantiate_all_different(five.vars);
  EXPECT_TRUE(five.solve().empty());
  model four(std::vector<iset>(4, iset("0:3")));
  four.b.instantiate_all_different(four.vars);
  EXPECT_EQ(four.solve().size(), 24u);
}

TEST(AST_builder, parity) {
  model m({iset("0:1"), iset("0:1"), iset("1")});
  // Fixed and wrong: unsatisfiable.
  m.b.connect_parity({2}, false);
  EXPECT_TRUE(m.b.is_marked_unsat());
  // Two free variables with parity false are equated; true is a sum modulo 2.
  model e({iset("0:1"), iset("0:1"), iset("1")});
  e.b.connect_parity({0, 1, 2}, true);
  EXPECT_TRUE(e.b.are_eq(0, 1));
  model t({iset("0:1"), iset("0:1"), iset("1")});
  t.b.connect_parity({0, 1}, true);
  EXPECT_EQ(t.solve(), (std::set<std::vector<int>>{{0, 1, 1}, {1, 0, 1}}));
}

std::vector<tree> vars_and_constants(std::initializer_list<int> ids) {  // below 0: the constant -id - 1
  std::vector<tree> args;
  for (int id : ids) args.push_back(id >= 0 ? V(id) : C(-id - 1));
  return args;
}

// The predicates on their propagators, each against its meaning on every assignment.
TEST(AST_builder, predicates_keep_exactly_their_solutions) {
  const std::vector<iset> d{iset("0:9"), iset("0:9"), iset("0:3")};
  const auto holds = [&](const char* name, std::initializer_list<int> ids, int result,
                         const std::function<bool(const std::vector<int>&)>& meaning) {
    model m(d);
    m.b.connect_expr(m.vars, m.s.singleton_var(result), *predicate(name, vars_and_constants(ids)),
                     AST_builder::usage_exact);
    EXPECT_EQ(m.solve(), satisfying(d, meaning)) << name << " = " << result;
  };
  // !overlap(x, 2, y, 3): x + 2 <= y or y + 3 <= x.
  holds("overlap", {0, -3, 1, -4}, 0, [](const std::vector<int>& v) { return v[0] + 2 <= v[1] || v[1] + 3 <= v[0]; });
  // sub_interval(x, y, 2, 6): [x, y] is empty or inside [2, 6].
  holds("sub_interval", {0, 1, -3, -7}, 1,
        [](const std::vector<int>& v) { return v[0] > v[1] || (2 <= v[0] && v[1] <= 6); });
  // !sub_interval(x, y, 2, 6, 2): [x, y - 2] is not empty and not inside [2, 6].
  holds("sub_interval", {0, 1, -3, -7, -3}, 0,
        [](const std::vector<int>& v) { return v[0] <= v[1] - 2 && (v[0] < 2 || v[1] - 2 > 6); });
  holds("all_diff", {0, 1, 2}, 1, [](const std::vector<int>& v) { return v[0] != v[1] && v[1] != v[2] && v[0] != v[2]; });
}

TEST(AST_builder, predicates_refused_or_failing) {
  model m({iset("0:9"), iset("0:9"), iset("2")});
  std::vector<tree> args;
  for (int i = 0; i < 4; ++i) args.push_back(V(i % 3));
  // overlap that may hold, sub_interval with too many arguments for its negation,
  // an unknown name.
  EXPECT_THROW(m.b.connect_expr(m.vars, m.s.add_var(iset("0:1")), *predicate("overlap", std::move(args)),
                                AST_builder::usage_exact),
               AST_builder::unsupported);
  std::vector<tree> six;
  for (int i = 0; i < 6; ++i) six.push_back(C(2));
  EXPECT_THROW(m.b.connect_expr(m.vars, m.s.singleton_var(0), *predicate("sub_interval", std::move(six)),
                                AST_builder::usage_exact),
               AST_builder::unsupported);
  EXPECT_THROW(m.top(*predicate("cumulative", {})), AST_builder::unsupported);
  // An offset variable with no value left: no interval fits, and nothing throws.
  model k({iset("0:9"), iset("0:9"), iset()});
  EXPECT_NO_THROW(k.b.connect_sub_interval(k.s.singleton_var(0),
                                           {k.vars[0], k.vars[1], k.s.singleton_var(2), k.s.singleton_var(6), k.vars[2]}));
  EXPECT_TRUE(k.b.is_marked_unsat());
  // all_diff(x, x, y) can't hold: the repeated variable gets an equal copy.
  model twice({iset("0:9"), iset("0:9")});
  twice.top(*predicate("all_diff", vars_and_constants({0, 0, 1})));
  EXPECT_TRUE(twice.solve().empty());
}

// Records the cliques detect_all_diff finds instead of posting them.
struct clique_recorder : AST_builder {
  using AST_builder::AST_builder;
  void post_detected_all_diff(const std::vector<unsigned>& clique, bool) override {
    cliques.push_back(clique);
  }
  std::vector<std::vector<unsigned>> cliques;
};

TEST(AST_builder, detect_all_diff_finds_cliques_of_disequalities) {
  solver s;
  for (int i = 0; i < 7; ++i) s.add_var(iset("0:9"));
  clique_recorder b(s);
  // 0, 1, 2 pairwise different; 3 - 4 alone; 5 != 6 and 6 != 0 give no triangle.
  for (auto [x, y] : {std::pair{0u, 1u}, {1u, 2u}, {0u, 2u}, {3u, 4u}, {5u, 6u}, {6u, 0u}})
    b.differentiate_variables(x, y);
  b.detect_all_diff();
  ASSERT_EQ(b.cliques.size(), 1u);
  EXPECT_EQ(std::set<unsigned>(b.cliques[0].begin(), b.cliques[0].end()), (std::set<unsigned>{0, 1, 2}));
  // A union moves the entries to the class that stays, the higher number.
  b.equate_variables(3, 5);
  EXPECT_TRUE(b.is_diff_with_all(5, {4, 6}));
  EXPECT_TRUE(b.are_ne(4, 3));
  EXPECT_FALSE(b.is_diff_with_all(3, {4}));
}

}  // namespace
}  // namespace zelk
