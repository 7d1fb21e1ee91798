// The arithmetic propagators' fixed cases, beyond the brute-force table (propagators_test).
#include "impl/arithmetic_propagators.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <vector>

#include "impl/AST_builder.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjunction_specification.h"
#include "impl/solver.h"
#include "unit/brute_force.h"
#include "unit/test_support.h"
#include "xcsp/AST.h"

namespace zelk {
namespace {

using namespace brute_force;
typedef linear_combination_ge_propagator lin;

TEST(arithmetic_propagators, simplification_on_fixed_parameters) {
  // All fixed: the full clause or the empty one; one open: a clause (-x >= 0 is x in {0});
  // a difference from a sum with a side fixed; the gcd divides the constant rounded up.
  const auto expect = [](const constraint_propagator& p, const char* d, const std::string& text) {
    std::vector<unsigned> kept;
    const std::unique_ptr<constraint_propagator> q = p.intersect_with(make_view(sets(d)), kept);
    EXPECT_EQ(q ? printed(*q) + " on " + show(kept) : "", text) << printed(p) << " on " << d;
  };
  expect(lin(4, {1, 1}), "2 3", "[P0<=31] on 0");
  expect(lin(4, {1, 1}), "1 2", "[] on ");
  expect(lin(4, {1, 1}), "0:5 0:5", "");
  expect(lin(0, {-1, 1}), "0:9 0", "[P0=0] on 0");
  expect(greater_equal_sum_propagator(), "0:9 0:9 3", "diff_ge_3 on 0,1");
  expect(less_equal_sum_propagator(), "0:9 2 0:9", "diff_ge_minus_2 on 2,0");
  expect(lin(3, {2, -2}), "0:9 0:9", "diff_ge_2 on 0,1");
  expect(lin(3, {2, 4}), "0:9 0:9", "(P0+2*P1>=2) on 0,1");
  expect(lin(-3, {-2, -4}), "0:9 0:9", "(-P0-2*P1>=-1) on 0,1");
}

TEST(arithmetic_propagators, edges_of_sum_mod_sum_wrap_and_the_ranges) {
  EXPECT_EQ(thrown([] { sum_mod_propagator(-2, 0); }), "sum_mod_propagator(mod, result): mod should be positive");
  EXPECT_THROW(sum_mod_propagator(0, 0), std::out_of_range);
  // 1 + 1 != 5, but sum_wrap looks only when something changed.
  struct untouched_info : constraint_explicit_info {
    using constraint_explicit_info::constraint_explicit_info;
    bool reduced_between_activations(unsigned int) const override { return false; }
  } view(3);
  view.domains() = sets("5 1 1");
  EXPECT_EQ(sum_wrap_propagator().propagate(view), propagation_types::CONSISTENT);
  EXPECT_EQ(view.domains(), sets("5 1 1"));
  // Ranges modulo 32 (31 values or more: nothing to cut), and truncated to 0..31 (an
  // empty range leaves the set alone).
  typedef arithmetic_propagation_types apt;
  const auto range = [](bool wrapped, const char* s, long long lo, long long hi) {
    iset r(s);
    return (wrapped ? apt::intersect_wrapped : apt::intersect_truncated)(r, lo, hi), r;
  };
  EXPECT_EQ((domain_list{range(true, "0:31", 30, 33), range(true, "0:31", 40, 42), range(true, "0:31", -2, 1),
                         range(true, "3,7", 5, 36), range(true, "3,7", 8, 38), range(false, "0:31", -5, 3),
                         range(false, "0:3", 40, 50)}),
            sets("0,1,30,31 8:10 0,1,30,31 3,7 3 0:3 0:3"));
}

TEST(arithmetic_propagators, explanation_of_a_bound) {
  // 2x - y + z >= 10 fails on x <= 4, y >= 2, z <= 3: x >= 5, y <= 1, z >= 4, any pivot.
  for (unsigned pivot : {0u, 7u, 1u}) {
    constraint_propagator::literal_vector explanation;
    lin(10, {2, -1, 1}).explain_propagation(pivot, iset::full(), iset(), make_view(sets("0:4 2:5 0:3")), explanation);
    EXPECT_EQ(explanation, sets("5:31 0,1 4:31")) << pivot;
  }
}

//==== non-linear arithmetic ===================================================

// A view that may say that nothing was reduced, and that bounds the runs of a written set.
struct activation_view : constraint_explicit_info {
  activation_view(const char* d, unsigned ranges, bool reduced = true)
      : constraint_explicit_info(unsigned(sets(d).size())), ranges(ranges), reduced(reduced) {
    domains() = sets(d);
  }
  bool reduced_between_activations(unsigned int) const override { return reduced; }
  unsigned int max_accurate_ranges() const override { return ranges; }
  unsigned ranges;
  bool reduced;
};

TEST(arithmetic_propagators, approximated_activation_edges) {
  // r = x * y mod 32 on x = {1, 3}, y = {2} is {2, 6}: two runs. With none allowed r
  // keeps its holes below 6; a later activation that allows them writes {2, 6}.
  mul_wrap_propagator p;
  activation_view ragged("2,3,5:31 1,3 2", 0);
  EXPECT_EQ(p.propagate(ragged), propagation_types::CONSISTENT);
  EXPECT_EQ(ragged.domains(), sets("2,3,5,6 1,3 2"));
  ragged.ranges = 2;
  EXPECT_EQ(p.propagate(ragged), propagation_types::CONSISTENT);
  EXPECT_EQ(ragged.domains(), sets("2,6 1,3 2"));
  // Bounds that are already tight: nothing to write.
  activation_view tight("2:6 1,3 2", 0);
  EXPECT_EQ(p.propagate(tight), propagation_types::CONSISTENT);
  EXPECT_EQ(tight.domains(), sets("2:6 1,3 2"));
  // Nothing reduced since the last activation: 1 * 1 != 5 waits.
  activation_view untouched("5 1 1", 20, false);
  EXPECT_EQ(pow_propagator().propagate(untouched), propagation_types::CONSISTENT);
  EXPECT_EQ(untouched.domains(), sets("5 1 1"));
  // A full factor is never enumerated, at any effort.
  EXPECT_FALSE(approximated_arithmetic_propagator<div_propagator>::is_accurate(iset::full(), iset("1"), 1000, 50));
}

TEST(arithmetic_propagators, explanation_generator_by_effort) {
  // r = 31 fails against 2 op 4 for each relation. The tight explanation keeps r
  // from the value that 2 op 4 gives; the trivial one only from 31. Division and
  // remainder explain tightly at every effort, the others only above effort 0.
  struct effort_info : constraint_explicit_info {
    explicit effort_info(unsigned effort) : constraint_explicit_info(3), level(effort) { domains() = sets("31 2 4"); }
    unsigned int effort() const override { return level; }
    unsigned level;
  };
  const std::unique_ptr<constraint_propagator> all[] = {
      std::make_unique<mul_wrap_propagator>(), std::make_unique<mul_truncate_propagator>(),
      std::make_unique<pow_propagator>(), std::make_unique<div_propagator>(), std::make_unique<mod_propagator>()};
  for (const auto& p : all)
    for (unsigned effort : {0u, 1u}) {
      const effort_info view(effort);
      ASSERT_TRUE(p->conflicts(view)) << printed(*p);
      constraint_propagator::literal_vector explanation;
      p->explain_propagation(0, iset::full(), iset(), view, explanation);
      const bool tight = effort > 0 || dynamic_cast<const div_propagator*>(p.get()) ||
                         dynamic_cast<const mod_propagator*>(p.get());
      EXPECT_EQ(explanation[0] != ~iset("31"), tight) << printed(*p) << " at effort " << effort;
    }
}

TEST(arithmetic_propagators, bound_products_wake_on_the_bounds_they_read) {
  // Each step narrows one variable of (r, x, y) in a solver and propagates; every
  // step moves only the bound that the constraint watches there.
  const auto run = [](std::unique_ptr<constraint_propagator> p, const char* start,
                      std::vector<std::pair<unsigned, const char*>> steps, std::vector<const char*> expected) {
    solver s;
    for (const iset& d : sets(start)) s.add_var(d);
    s.add_constraint(std::move(p)) << 0u << 1u << 2u;
    ASSERT_TRUE(solver_test_access::start(s));
    for (std::size_t k = 0; k < steps.size(); ++k) {
      solver_test_access::narrow(s, steps[k].first, iset(steps[k].second));
      ASSERT_TRUE(solver_test_access::propagate(s));
      const domain_list now{s.stack().domain(0), s.stack().domain(1), s.stack().domain(2)};
      EXPECT_EQ(now, sets(expected[k])) << "step " << k;
    }
  };
  // r <= x * y: min(r) up, then max(x) down.
  run(std::make_unique<less_equal_mul_propagator>(), "0:20 0:5 0:5", {{0, "13:20"}, {1, "3"}},
      {"13:20 3:5 3:5", "13:15 3 5"});
  // r >= x * y: max(r) down, min(x) up, min(y) up.
  run(std::make_unique<greater_equal_mul_propagator>(), "0:31 0:5 0:5", {{0, "0:7"}, {1, "2:5"}, {2, "2:3"}},
      {"0:7 0:5 0:5", "0:7 2:5 0:3", "4:7 2:3 2:3"});
}

// Enumerates all solutions, each once.
class recording_solver : public solver {
 public:
  void print_solution(std::ostream&) const override {
    std::vector<int> values;
    for (unsigned int v = 0; v < std::min(num_variables(), reported_variable_count); ++v)
      values.push_back(stack().domain(v).min());
    if (!solutions.insert(values).second) throw std::runtime_error("solution repeated");
  }
  mutable std::set<std::vector<int>> solutions;
};

TEST(arithmetic_propagators, nonlinear_models_enumerate_like_brute_force) {
  // Three or four variables, one sometimes wide enough for bound reasoning, under
  // two or three of these constraints on distinct variables and a clause: the solver
  // wakes them by their watches, learns from their explanations, and must find
  // exactly the solutions that brute force finds.
  struct kind {
    std::function<std::unique_ptr<constraint_propagator>()> make;
    unsigned arity;
    std::function<bool(const assignment&)> holds;
  };
  const auto power = [](int x, int y) {
    long long p = x == 0 ? 0 : 1;
    for (int i = 0; i < y && p <= 31; ++i) p *= x;
    return p;
  };
  const kind kinds[] = {
      {[] { return std::make_unique<mul_wrap_propagator>(); }, 3, [](const assignment& v) { return v[0] == v[1] * v[2] % 32; }},
      {[] { return std::make_unique<mul_truncate_propagator>(); }, 3, [](const assignment& v) { return v[0] == v[1] * v[2]; }},
      {[] { return std::make_unique<div_propagator>(); }, 3, [](const assignment& v) { return v[0] == (v[2] ? v[1] / v[2] : 0); }},
      {[] { return std::make_unique<mod_propagator>(); }, 3, [](const assignment& v) { return v[0] == (v[2] ? v[1] % v[2] : 0); }},
      {[] { return std::make_unique<pow_propagator>(); }, 3, [power](const assignment& v) { return v[0] == power(v[1], v[2]); }},
      {[] { return std::make_unique<less_equal_mul_propagator>(); }, 3, [](const assignment& v) { return v[0] <= v[1] * v[2]; }},
      {[] { return std::make_unique<greater_equal_mul_propagator>(); }, 3, [](const assignment& v) { return v[0] >= v[1] * v[2]; }},
      {[] { return std::make_unique<abs_propagator>(); }, 2, [](const assignment& v) { return v[0] == v[1]; }},
      {[] { return std::make_unique<greater_equal_abs_propagator>(); }, 2, [](const assignment& v) { return v[0] >= v[1]; }},
      {[] { return std::make_unique<less_equal_abs_propagator>(); }, 2, [](const assignment& v) { return v[0] <= v[1]; }},
  };
  int solved = 0;
  repeat(77, 1000, [&](std::mt19937& g, int, const std::string& where) {
    const unsigned n = 3 + g() % 2;
    domain_list d(n);
    for (iset& s : d) s = random_domain(g, 4, 10);
    if (g() % 2) d[g() % n] = g() % 4 ? random_domain(g, 31, 31) : iset::full();
    recording_solver s;
    for (const iset& domain : d) s.add_var(domain);
    std::vector<std::pair<const kind*, std::vector<unsigned>>> posted;
    std::ostringstream text;
    for (unsigned c = 0, count = 2 + g() % 2; c < count; ++c) {
      const kind& k = kinds[g() % std::size(kinds)];
      std::vector<unsigned> vars;
      while (vars.size() < k.arity) {
        const unsigned v = g() % n;
        if (std::find(vars.begin(), vars.end(), v) == vars.end()) vars.push_back(v);
      }
      constraint_connectivity_info& info = s.add_constraint(k.make());
      for (unsigned v : vars) info << v;
      text << printed(*s.propagator(s.num_constraints() - 1)) << show(vars) << " ";
      posted.emplace_back(&k, vars);
    }
    const domain_list literals{random_subset(g, d[0], true), random_subset(g, d[1])};
    s.add_constraint(std::make_unique<clause_propagator>(literals)) << 0u << 1u;
    const relation clause = clause_relation(literals);
    std::set<assignment> expected;
    for_each_assignment(d, [&](const assignment& v) {
      for (const auto& [k, vars] : posted) {
        assignment args;
        for (unsigned var : vars) args.push_back(v[var]);
        if (!k->holds(args)) return true;
      }
      if (clause(assignment{v[0], v[1]})) expected.insert(v);
      return true;
    });
    s.all_solutions = true;
    std::ostringstream out;
    solver::result_type r = solver::SAT;
    ASSERT_NO_THROW(r = s.solve(&out)) << where;
    EXPECT_EQ(r, expected.empty() ? solver::UNSAT : solver::SAT_DONE) << where << " " << text.str() << show(d);
    EXPECT_EQ(s.solutions, expected) << where << " " << text.str() << show(d);
    solved += !expected.empty();
  });
  EXPECT_GE(solved, 120);
}

//==== through the expression builder ============================================

namespace xml = CSPXMLParser;
typedef std::unique_ptr<xml::AST> tree;

tree V(int id) { return std::make_unique<xml::ASTVar>("v" + std::to_string(id), id); }
tree C(int value) { return std::make_unique<xml::ASTInteger>(value); }
template <class F> tree op(tree a, tree b = nullptr) {
  auto node = std::make_unique<F>();
  node->setArg(0, a.release());
  if (b) node->setArg(1, b.release());
  return node;
}

struct valuation : xml::VariableValuation {
  const assignment& values;
  explicit valuation(const assignment& v) : values(v) {}
  int getVarValue(int id) const override { return values[std::size_t(id)]; }
};

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

TEST(arithmetic_propagators, expressions_through_the_builder) {
  // A comparison of two such trees, built into a solver: exactly the solutions of
  // the tree's integer arithmetic. Expressions that may leave 0..31 or divide by
  // 0 are refused by the builder; the rest post the families.
  unsigned built = 0, refused = 0;
  std::set<std::type_index> posted;
  repeat(5, 800, [&](std::mt19937& g, int round, const std::string& where) {
    const unsigned n = 2 + g() % 2;
    domain_list d(n);
    for (iset& s : d) s = random_subset(g, iset("0:6"), true);
    tree t = nonlinear_tree(g, n, 2);
    switch (round % 4) {
      case 0: t = op<xml::FunctionEQ>(std::move(t), nonlinear_tree(g, n, 1)); break;
      case 1: t = op<xml::FunctionNE>(std::move(t), nonlinear_tree(g, n, 1)); break;
      case 2: t = op<xml::FunctionLE>(std::move(t), nonlinear_tree(g, n, 1)); break;
      default: t = op<xml::FunctionGE>(std::move(t), nonlinear_tree(g, n, 1));
    }
    recording_solver s;
    std::vector<unsigned> vars;
    for (unsigned i = 0; i < n; ++i) vars.push_back(s.add_var(d[i], ("v" + std::to_string(i)).c_str()));
    AST_builder b(s);
    try {
      b.connect_expr(vars, s.singleton_var(1), *t, AST_builder::usage_exact);
      b.connectivity().create_all_constraints();
    } catch (const AST_builder::unsupported&) {
      ++refused;
      return;
    }
    ++built;
    for (unsigned c = 0; c < s.num_constraints(); ++c) posted.insert(typeid(*s.propagator(c)));
    std::set<assignment> expected;
    for_each_assignment(d, [&](const assignment& v) {
      if (t->value(valuation(v)) == 1) expected.insert(v);
      return true;
    });
    s.reported_variable_count = n;
    s.all_solutions = true;
    std::ostringstream out, text;
    t->prefixExpression(text);
    ASSERT_NO_THROW(s.solve(&out)) << where << " " << text.str();
    EXPECT_EQ(s.solutions, expected) << where << " " << text.str() << " on " << show(d);
  });
  EXPECT_GT(built, refused) << built << " built, " << refused << " refused";
  // The builder needs no propagator for abs: on 0..31 it is the identity.
  for (const std::type_info* kind : {&typeid(mul_truncate_propagator), &typeid(less_equal_mul_propagator),
                                     &typeid(greater_equal_mul_propagator), &typeid(div_propagator),
                                     &typeid(mod_propagator), &typeid(pow_propagator)})
    EXPECT_TRUE(posted.count(*kind)) << kind->name() << " never posted";
}

//==== combination ===========================================================

// A fixed combination on `universe` domains: its text, variables, and implication.
void expect_combine(const constraint_propagator& left, unsigned left_arity, const constraint_propagator& right,
                    unsigned right_arity, const std::vector<unsigned>& map, unsigned pivot, const std::string& text,
                    const std::vector<unsigned>& out = {}, const char* universe = "0:9") {
  const domain_list left_domains(left_arity, iset(universe)), right_domains(right_arity, iset(universe));
  const combination c = expect_combination(run_combine(left, left_domains, right, right_domains, map, pivot), text, out);
  check_combination(left, left_arity, right, right_arity, map, pivot, c, text);
}

TEST(arithmetic_propagators, linear_combination_edges) {
  // x - y >= 1 and y - x >= 0 add up to 0 >= 1, false; the multipliers come from
  // the gcd: 3 (2x + y >= 3) + 2 (-3x + z >= 0).
  const lin x_above_y(1, {1, -1});
  const difference_ge_propagator zero(0);
  expect_combine(x_above_y, 2, zero, 2, {1, 0}, 1, "[]");
  expect_combine(lin(3, {2, 1}), 2, lin(0, {-3, 1}), 2, {0, 3}, 0, "(3*P0+2*P1>=9)", {1, 3});
  // Coefficients or constants beyond 32 bits; a constant that overflows in the sum.
  disjunction_specification result;
  EXPECT_FALSE(lin::set_constraint_from_positional_coefficients({0, 1LL << 31}, 0, result) ||
               lin::set_constraint_from_positional_coefficients({0, 0}, 1LL << 31, result));
  expect_combine(lin(INT_MAX, {INT_MAX, 1}), 2, lin(INT_MAX, {-INT_MAX, 1}), 2, {0, 2}, 0, "");
  long long constant = LLONG_MAX;
  std::vector<long long> positional;
  const constraint_explicit_info view = make_view(sets("0:9 0:9 0:9"));  // the disjunction form
  const difference_ge_propagator two(2);                                 // points at both
  EXPECT_FALSE(lin::accumulate_coefficients(positional, constant, disjunction_specification(view, two, {4, 7}), 1));
  // A difference doesn't take a sum on the right, a sum takes a difference.
  EXPECT_TRUE(!zero.may_combine(x_above_y) && x_above_y.may_combine(zero));
  EXPECT_FALSE(x_above_y.may_combine(clause_propagator{iset("1")}) || x_above_y.may_combine(equal_propagator()));
}

TEST(arithmetic_propagators, linear_disjunction_and_new_propagator) {
  const constraint_explicit_info view = make_view(sets("0:9 0:9 0:9"));
  const lin left(4, {2, -1, 1}), right(1, {1, 2, -1});
  // The same terms in another order: the smaller constant; other terms: nothing.
  const disjunction_specification l(view, left, {});
  disjunction_specification result, none;
  ASSERT_TRUE(left.disjoin_constraint(l, disjunction_specification(view, right, {2, 0, 1}), result));
  EXPECT_EQ(printed(*result.constraint()), "(2*P0-P1+P2>=1)");
  EXPECT_EQ(result.constraint_var(2), 2u);
  EXPECT_FALSE(left.disjoin_constraint(l, disjunction_specification(view, right, {0, 1, 2}), none));
  // With literals the sum is joined to a clause; without, the base itself.
  for (const bool literal : {true, false}) {
    disjunction_specification form;
    if (literal) form.add_literal(6, iset("3"));
    form.own_constraint(std::make_unique<lin>(left));
    for (unsigned v : {2u, 0u, 5u}) form.add_constraint_param(v);
    std::vector<unsigned> params;
    const std::unique_ptr<constraint_propagator> p = left.new_propagator(form, params);
    EXPECT_EQ(p ? printed(*p) : "", literal ? "((2*P0-P1+P2>=4) || [P0=3])\n" : "(2*P0-P1+P2>=4)");
    EXPECT_EQ(params, (literal ? std::vector<unsigned>{2, 0, 5, 6} : std::vector<unsigned>{2, 0, 5}));
    EXPECT_EQ(dynamic_cast<lin*>(p.get()) != nullptr, !literal);
  }
}

TEST(arithmetic_propagators, modular_combination_edges) {
  const sum_mod_propagator odd(2, 1), odd3(3, 1);
  // x + y = 1 and x + y = 0 mod 2: 0 = 1; x + x is 0 only mod 2; mods must agree.
  expect_combine(odd, 2, sum_mod_propagator(2, 0), 2, {0, 1}, 0, "[]", {}, "0:2");
  expect_combine(odd3, 2, sum_mod_propagator(3, 0), 2, {0, 2}, 0, "", {}, "0:2");
  EXPECT_FALSE(odd3.may_combine(odd));
  // An equality: the partner replaces the variable; both in the sum cancel (mod 2).
  expect_combine(odd, 3, equal_propagator(), 2, {1, 4}, 0, "((xor vars) 2 == 1)", {0, 4, 2}, "0:2");
  expect_combine(odd, 3, equal_propagator(), 2, {0, 2}, 0, "((xor vars) 2 == 1)", {1}, "0:2");
  expect_combine(odd3, 3, equal_propagator(), 2, {0, 2}, 0, "", {}, "0:2");
  // 2x + 3y >= 7 with x + z = 2 mod 3: -2z + 3y >= 3; both in the sum: y's less x's
  // coefficient; from either side; a carry is possible when mod isn't result + 1.
  const lin sum(7, {2, 3});
  const sum_mod_propagator x_plus_z(3, 2);
  EXPECT_TRUE(sum.may_combine(x_plus_z) && x_plus_z.may_combine(sum));
  EXPECT_FALSE(sum_mod_propagator(4, 2).may_combine(sum));
  expect_combine(sum, 2, x_plus_z, 2, {0, 2}, 0, "(-2*P0+3*P1>=3)", {2, 1}, "0:2");
  expect_combine(sum, 2, x_plus_z, 2, {0, 1}, 0, "(P0>=3)", {1}, "0:2");
  expect_combine(x_plus_z, 2, sum, 2, {0, 2}, 0, "(-2*P0+3*P1>=3)", {1, 2}, "0:2");
  expect_combine(sum, 2, sum_mod_propagator(4, 2), 2, {0, 2}, 0, "", {}, "0:2");
  expect_combine(sum, 2, sum_mod_propagator(3, 2), 3, {0, 2, 3}, 0, "", {}, "0:2");
}

}  // namespace
}  // namespace zelk
