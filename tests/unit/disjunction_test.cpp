// The disjunction machinery: the disjoint propagators against brute force of
// "base constraint or clause" (soundness, the promised commits, explanations),
// their fixed cases, the literal algebra of disjunction_specification, and the
// soundness of combinations that go through it.
#include "impl/disjunction_specification.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/constraint_explicit_info.h"
#include "impl/disjoint_propagation_algo.h"
#include "unit/brute_force.h"

namespace zelk {
namespace {

using namespace brute_force;

typedef disjoint_propagator<equal_propagator, clause_propagation_algo> equal_or_clause;
typedef disjoint_propagator<linear_combination_ge_propagator, clause_propagation_algo>
    linear_or_clause;

std::string seed_context(unsigned seed, int round) {
  return "seed " + std::to_string(seed) + " round " + std::to_string(round);
}

std::string text_of(const constraint_propagator& p, const constraint_runtime_info* info) {
  std::ostringstream os;
  p.print(os, info);
  return os.str();
}

std::unique_ptr<difference_ge_or_clause_propagator> diff_or(int c, const domain_list& literals) {
  auto p = std::make_unique<difference_ge_or_clause_propagator>(c);
  p->update_literals() = literals;
  return p;
}

// The base constraint (on the first a_params values) or some literal.
relation disjoint_relation(const constraint_propagator& base, unsigned a_params,
                           const domain_list& literals) {
  std::shared_ptr<const constraint_propagator> copy(base.clone());
  auto view = std::make_shared<constraint_explicit_info>(a_params);
  return [copy, view, a_params, literals](const assignment& v) {
    for (std::size_t k = 0; k < literals.size(); ++k)
      if (literals[k].contains(v[a_params + k])) return true;
    for (unsigned i = 0; i < a_params; ++i) view->domains()[i] = iset::singleton(v[i]);
    return copy->constraint_check(*view);
  };
}

//==== disjoint propagation against brute force ================================

TEST(disjunction, disjoint_propagation_against_brute_force) {
  const unsigned seed = 31;
  std::mt19937 gen(seed);
  int committed = 0, forced = 0, explained = 0;
  for (int round = 0; round < 2000; ++round) {
    const unsigned k = 1 + gen() % 2;
    std::unique_ptr<constraint_propagator> base;
    std::unique_ptr<constraint_propagator> p;
    domain_list literals;
    for (unsigned i = 0; i < k; ++i) literals.push_back(random_domain(gen, 12, 6));
    unsigned a_params = 2;
    switch (round % 3) {
      case 0: {
        const int c = int(gen() % 13) - 6;
        base = std::make_unique<difference_ge_propagator>(c);
        p = diff_or(c, literals);
        break;
      }
      case 1: {
        base = std::make_unique<equal_propagator>();
        auto e = std::make_unique<equal_or_clause>(equal_propagator());
        e->update_literals() = literals;
        p = std::move(e);
        break;
      }
      default: {
        a_params = 2 + gen() % 2;
        std::vector<int> coefficients;
        for (unsigned i = 0; i < a_params; ++i) coefficients.push_back(int(gen() % 7) - 3);
        const linear_combination_ge_propagator sum(int(gen() % 15) - 5, coefficients);
        base = sum.clone();
        auto l = std::make_unique<linear_or_clause>(sum);
        l->update_literals() = literals;
        p = std::move(l);
      }
    }
    domain_list d;
    for (unsigned i = 0; i < a_params; ++i) d.push_back(random_domain(gen, 12, 8));
    for (unsigned i = 0; i < k; ++i) d.push_back(random_domain(gen, 12, 6));
    const std::string context = seed_context(seed, round) + " " + text_of(*p, nullptr);
    const relation rel = disjoint_relation(*base, a_params, literals);
    const outcome out = check_propagation(*p, d, rel, SOUND_ONLY, context, true);
    EXPECT_EQ(p->conflicts(make_view(d)), !solvable(d, rel)) << context << show(d);

    // What the base constraint does alone on its parameters.
    const domain_list a_domains(d.begin(), d.begin() + a_params);
    std::unique_ptr<constraint_propagator> alone = base->clone();
    constraint_explicit_info a_view = make_view(a_domains);
    const result_type ra = alone->propagate(a_view);
    unsigned live = 0, last_live = 0;
    for (unsigned i = 0; i < k; ++i) {
      if (d[a_params + i].intersects(literals[i])) {
        ++live;
        last_live = a_params + i;
      }
    }
    if (ra == propagation_types::UNSAT) {
      // The clause must hold, for real.
      if (live == 0) {
        EXPECT_EQ(out.result, propagation_types::UNSAT) << context << show(d);
      } else if (live == 1) {
        ++forced;
        domain_list expected = d;
        expected[last_live] &= literals[last_live - a_params];
        EXPECT_EQ(out.after, expected) << context << show(d);
        EXPECT_EQ(out.result, propagation_types::VALID) << context << show(d);
      }
    } else if (live == 0) {
      // The clause is false: the base constraint's reductions are committed, and
      // its result is the result.
      committed += a_view.domains() != a_domains;
      domain_list expected = a_view.domains();
      expected.insert(expected.end(), d.begin() + a_params, d.end());
      EXPECT_EQ(out.after, expected) << context << show(d);
      EXPECT_EQ(out.result, ra) << context << show(d);
    } else {
      // Nothing is committed while the clause can still hold.
      EXPECT_EQ(out.after, d) << context << show(d);
    }
    explained += check_explanations(*p, d, out, rel, context, &gen, 1 << 15);
    if (round % 10 == 0) check_constraint_check(*p, d, rel, context);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(committed, 200);
  EXPECT_GT(forced, 100);
  EXPECT_GT(explained, 500);
}

//==== fixed cases of the disjoint propagation ================================

TEST(disjunction, disjoint_propagation_edges) {
  // x - y >= 3 or P2 in {1}; the clause is false (P2 = 4): the reductions of the
  // difference are committed, and its result is the result.
  auto p = diff_or(3, {iset("1")});
  recording_info commit({iset("0:9"), iset("5:9"), iset("4")});
  EXPECT_NE(p->init(commit), propagation_types::UNSAT);
  EXPECT_EQ(p->propagate(commit), propagation_types::CONSISTENT);
  EXPECT_EQ(commit.domains(), (domain_list{iset("8:9"), iset("5:6"), iset("4")}));

  // The difference can't hold: the clause runs for real, unit here.
  auto q = diff_or(3, {iset("1:2"), iset("7")});
  recording_info real({iset("0:3"), iset("5:9"), iset("0:5"), iset("0:5")});
  EXPECT_NE(q->init(real), propagation_types::UNSAT);
  EXPECT_EQ(q->propagate(real), propagation_types::VALID);
  EXPECT_EQ(real.domains(), (domain_list{iset("0:3"), iset("5:9"), iset("1:2"), iset("0:5")}));
  auto dead = diff_or(3, {iset("7"), iset("7")});
  recording_info none({iset("0:3"), iset("5:9"), iset("0:5"), iset("0:5")});
  EXPECT_NE(dead->init(none), propagation_types::UNSAT);  // a disjunction never fails at init
  EXPECT_EQ(dead->propagate(none), propagation_types::UNSAT);

  // The difference holds already: VALID without a look at the clause.
  auto r = diff_or(3, {iset("1"), iset("2")});
  recording_info valid({iset("8:9"), iset("0:2"), iset("0:5"), iset("0:5")});
  EXPECT_NE(r->init(valid), propagation_types::UNSAT);
  valid.reads.assign(4, 0);
  EXPECT_EQ(r->propagate(valid), propagation_types::VALID);
  EXPECT_EQ(valid.reads[2] + valid.reads[3], 0u);
  // Nothing to reduce: CONSISTENT, again without running the clause.
  recording_info idle({iset("3:9"), iset("0:6"), iset("0:5"), iset("0:5")});
  EXPECT_NE(r->init(idle), propagation_types::UNSAT);
  idle.reads.assign(4, 0);
  EXPECT_EQ(r->propagate(idle), propagation_types::CONSISTENT);
  EXPECT_EQ(idle.reads[2] + idle.reads[3], 0u);
  EXPECT_EQ(idle.domains(), (domain_list{iset("3:9"), iset("0:6"), iset("0:5"), iset("0:5")}));
  // The difference would reduce but the clause may hold: nothing is written.
  recording_info open({iset("0:9"), iset("5:9"), iset("0:5"), iset("0:5")});
  EXPECT_NE(r->init(open), propagation_types::UNSAT);
  EXPECT_EQ(r->propagate(open), propagation_types::CONSISTENT);
  EXPECT_EQ(open.domains(), (domain_list{iset("0:9"), iset("5:9"), iset("0:5"), iset("0:5")}));
}

TEST(disjunction, disjoint_propagator_interface) {
  auto p = diff_or(2, {iset("1"), iset("3:5")});
  EXPECT_EQ(p->count_params(), 4u);
  // The watches: the difference's bounds and the clause's values, on the outer
  // parameters.
  recording_info view({iset("0:9"), iset("0:9"), iset("0:9"), iset("0:9")});
  EXPECT_NE(p->init(view), propagation_types::UNSAT);
  EXPECT_EQ(view.watches, (std::vector<std::pair<unsigned, watch_types::watch_type>>{
                              {1, watch_types::LOWER_BOUND_WATCH},
                              {0, watch_types::UPPER_BOUND_WATCH}}));
  EXPECT_EQ(view.value_watches, (std::vector<std::pair<unsigned, int>>{{2, 1}, {3, 3}}));
  EXPECT_EQ(p->count_watches(), 2u);
  EXPECT_EQ(p->watched_param_index(0), 2u);
  EXPECT_EQ(p->watched_param_index(1), 3u);
  p->forget_watches();
  EXPECT_EQ(p->count_watches(), 0u);

  constraint_explicit_info three(3);
  EXPECT_EQ(text_of(*diff_or(2, {iset("1")}), &three), "constraint((P0-P1>=2) ||  [P2=1])\n");
  EXPECT_EQ(text_of(*diff_or(-2, {iset("1")}), nullptr), "(diff_ge_minus_2 || [P0=1])\n");
  // A clone serves hypothetical runs: the adapter class, with the same behaviour.
  std::unique_ptr<constraint_propagator> copy = diff_or(2, {iset("1")})->clone();
  EXPECT_FALSE(dynamic_cast<difference_ge_or_clause_propagator*>(copy.get()));
  EXPECT_EQ(text_of(*copy, nullptr), "(diff_ge_2 || [P0=1])\n");
  // Explanation of a failure: the difference's, then the clause's literals.
  const constraint_explicit_info failing = make_view({iset("0:3"), iset("5:9"), iset("0")});
  constraint_propagator::literal_vector explanation;
  copy->explain_propagation(0, iset::full(), iset(), failing, explanation);
  EXPECT_EQ(explanation, (domain_list{iset("7:31"), iset("0:4"), iset("1")}));
}

//==== the literal algebra =====================================================

TEST(disjunction, specifications_of_the_propagators) {
  const constraint_explicit_info four = make_view(domain_list(4, iset("0:9")));
  const clause_propagator clause{iset("1"), iset("2:3"), iset("4")};
  const disjunction_specification of_clause(four, clause, {5, 6, 7});
  EXPECT_EQ(of_clause.literal_count(), 3u);
  EXPECT_EQ(of_clause.literal_start(), 0u);
  EXPECT_EQ(of_clause.constraint_param_count(), 0u);
  EXPECT_FALSE(of_clause.constraint());
  EXPECT_EQ(of_clause.literal_var(1), 6u);
  EXPECT_EQ(of_clause.literal(1), iset("2:3"));

  auto mixed = diff_or(3, {iset("1"), iset("5")});
  const disjunction_specification of_mixed(four, *mixed, {});
  EXPECT_EQ(of_mixed.literal_start(), 2u);
  EXPECT_EQ(of_mixed.literal_count(), 2u);
  EXPECT_EQ(of_mixed.constraint_param_count(), 2u);
  EXPECT_TRUE(of_mixed.owns_constraint());
  EXPECT_EQ(text_of(*of_mixed.constraint(), nullptr), "diff_ge_3");
  EXPECT_EQ(of_mixed.literal_var(1), 3u);  // the empty map is the identity

  const linear_combination_ge_propagator sum(2, {1, 2, -1});
  const disjunction_specification of_sum(four, sum, {4, 0, 9});
  EXPECT_EQ(of_sum.constraint_param_count(), 3u);
  EXPECT_EQ(of_sum.literal_count(), 0u);
  EXPECT_EQ(of_sum.constraint_var(2), 9u);
  EXPECT_EQ(of_sum.find_constraint_param(0), 1);
  EXPECT_EQ(of_sum.find_constraint_param(5), -1);

  // No form: nothing declared.
  const if_then_else_propagator ite;
  const disjunction_specification of_ite(four, ite, {});
  EXPECT_FALSE(of_ite.constraint());
  EXPECT_EQ(of_ite.literal_count(), 0u);
}

TEST(disjunction, resolution_of_literals) {
  const constraint_explicit_info three = make_view(domain_list(3, iset("0:9")));
  const clause_propagator left{iset("1:2"), iset("0"), iset("5")};
  const clause_propagator right{iset("3"), iset("4"), iset("6")};
  const disjunction_specification l(three, left, {3, 5, 8});
  const disjunction_specification r(three, right, {3, 6, 8});
  // 3 is the pivot: {1,2} and {3} meet nowhere, so it goes; 8 unites.
  disjunction_specification resolvent;
  resolvent.resolve_literals(l, r, 3);
  ASSERT_EQ(resolvent.literal_count(), 3u);
  EXPECT_EQ(resolvent.literal_var(0), 5u);
  EXPECT_EQ(resolvent.literal(0), iset("0"));
  EXPECT_EQ(resolvent.literal_var(1), 8u);
  EXPECT_EQ(resolvent.literal(1), iset("5:6"));
  EXPECT_EQ(resolvent.literal_var(2), 6u);
  EXPECT_EQ(resolvent.literal(2), iset("4"));
  // A pivot whose sets meet stays, with the intersection.
  const clause_propagator wide{iset("2:3")};
  const constraint_explicit_info one_view = make_view({iset("0:9")});
  const disjunction_specification w(one_view, wide, {3});
  resolvent.resolve_literals(l, w, 3);
  EXPECT_EQ(resolvent.literal_count(), 3u);
  EXPECT_EQ(resolvent.literal(0), iset("2"));

  // Everything gone: the empty clause, which init refuses.
  const clause_propagator one{iset("1")};
  const clause_propagator other{iset("2")};
  std::vector<unsigned> out{9};
  std::unique_ptr<constraint_propagator> empty =
      disjunction_specification(one_view, one, {})
          .combine(disjunction_specification(one_view, other, {0}), 0, out);
  ASSERT_TRUE(empty);
  EXPECT_TRUE(out.empty());
  constraint_explicit_info nothing(0);
  EXPECT_EQ(empty->init(nothing), propagation_types::UNSAT);

  // A base constraint without parameters can't hold: only the literals count.
  disjunction_specification form;
  form.add_literal(4, iset("2"));
  form.own_constraint(std::make_unique<clause_propagator>());
  form.make_constraint(out);
  std::unique_ptr<constraint_propagator> clause = form.make_constraint(out);
  ASSERT_TRUE(dynamic_cast<clause_propagator*>(clause.get()));
  EXPECT_EQ(dynamic_cast<clause_propagator&>(*clause).literals(), (domain_list{iset("2")}));
  EXPECT_EQ(out, (std::vector<unsigned>{4}));
  form.clear();
  EXPECT_EQ(form.literal_count(), 0u);
  EXPECT_FALSE(form.constraint());
}

TEST(disjunction, combinations_that_are_refused) {
  const constraint_explicit_info four = make_view(domain_list(4, iset("0:9")));
  const constraint_explicit_info two = make_view(domain_list(2, iset("0:9")));
  std::vector<unsigned> out;
  // The pivot is a base parameter on the left and a literal on the right.
  auto left = diff_or(1, {iset("1"), iset("2")});
  const clause_propagator clause{iset("3"), iset("4")};
  EXPECT_FALSE(left->combine(four, clause, two, {1, 4}, 0, out));
  // A literal on one side only.
  EXPECT_FALSE(left->combine(four, difference_ge_propagator(0), two, {2, 4}, 0, out));
  // A base variable of the left among the right's literals.
  EXPECT_FALSE(left->combine(four, clause, two, {0, 2}, 1, out));
  // Clauses resolve instead.
  EXPECT_FALSE(clause.combine(two, clause, two, {0, 1}, 0, out));
  EXPECT_FALSE(clause.may_combine(clause));
  EXPECT_TRUE(clause.may_combine(*left));
  EXPECT_TRUE(clause.may_combine(difference_ge_propagator(0)));
  EXPECT_TRUE(left->may_combine(clause));
  EXPECT_FALSE(left->may_combine(linear_combination_ge_propagator(0, {1, 1})));
}

TEST(disjunction, disjoining_two_differences) {
  const difference_ge_propagator weak(2), strong(5);
  const constraint_explicit_info wide = make_view({iset("0:31"), iset("0:31")});
  // On the same variables: the weaker of the two.
  {
    const disjunction_specification l(wide, strong, {});
    const disjunction_specification r(wide, weak, {0, 1});
    disjunction_specification result;
    ASSERT_TRUE(strong.disjoin_constraint(l, r, result));
    EXPECT_EQ(text_of(*result.constraint(), nullptr), "diff_ge_2");
    EXPECT_EQ(result.constraint_var(0), 0u);
    EXPECT_EQ(result.constraint_var(1), 1u);
  }
  // On other variables, the right one false on its domains: its explanation
  // clause stands in for it, the left one stays.
  {
    const constraint_explicit_info false_here = make_view({iset("0:3"), iset("5:9")});
    const difference_ge_propagator zero(0);
    const disjunction_specification l(wide, weak, {});
    const disjunction_specification r(false_here, zero, {2, 3});
    disjunction_specification result;
    ASSERT_TRUE(weak.disjoin_constraint(l, r, result));
    ASSERT_EQ(result.literal_count(), 2u);
    EXPECT_EQ(result.literal_var(0), 2u);
    EXPECT_EQ(result.literal_var(1), 3u);
    const domain_list clause{result.literal(0), result.literal(1)};
    check_explanation({iset("0:3"), iset("5:9")}, 0, iset::full(), iset(), clause,
                      relation_of(zero, 2), "disjoined");
    EXPECT_EQ(text_of(*result.constraint(), nullptr), "diff_ge_2");
    EXPECT_EQ(result.constraint_var(0), 0u);
    EXPECT_EQ(result.constraint_var(1), 1u);
    // The right one may still hold: no disjunction.
    const disjunction_specification open(wide, zero, {2, 3});
    result.clear();
    EXPECT_FALSE(weak.disjoin_constraint(l, open, result));
    // A shared variable: no disjunction either.
    const disjunction_specification shared(false_here, zero, {2, 1});
    result.clear();
    EXPECT_FALSE(weak.disjoin_constraint(l, shared, result));
  }
}

//==== combinations through the specification ==================================

// A random side of a combination: a difference, a difference-or-clause or a
// clause, with each parameter given a variable from a pool.
struct side {
  std::unique_ptr<constraint_propagator> p;
  unsigned arity = 0;
  domain_list domains;
};

side make_side(std::mt19937& gen, unsigned kind, unsigned literals) {
  side s;
  domain_list lits;
  for (unsigned i = 0; i < literals; ++i) lits.push_back(random_domain(gen, 5, 3));
  const int c = int(gen() % 13) - 6;
  if (kind == 0) {
    s.p = std::make_unique<difference_ge_propagator>(c);
    s.arity = 2;
  } else if (kind == 1) {
    s.p = diff_or(c, lits);
    s.arity = 2 + literals;
  } else {
    s.p = std::make_unique<clause_propagator>(lits);
    s.arity = literals;
  }
  for (unsigned i = 0; i < s.arity; ++i) s.domains.push_back(random_domain(gen, 12, 8));
  return s;
}

TEST(disjunction, combinations_are_implied) {
  const unsigned seed = 41;
  std::mt19937 gen(seed);
  int built[3][3] = {};
  int tried = 0;
  for (int round = 0; round < 2000; ++round) {
    // Kinds: 0 difference, 1 difference-or-clause, 2 clause; never two clauses.
    unsigned lk = gen() % 3, rk = gen() % 3;
    if (lk == 2 && rk == 2) rk = 1;
    const side left = make_side(gen, lk, 1 + gen() % 2);
    const side right = make_side(gen, rk, 1 + gen() % 2);
    if (!left.p->may_combine(*right.p)) continue;
    // Each right parameter is a left one (not used twice) or a new variable;
    // structure helps: a middle pivot on the bases, or a literal pivot.
    std::vector<unsigned> map(right.arity);
    std::vector<bool> used(left.arity, false);
    for (unsigned j = 0; j < right.arity; ++j) {
      map[j] = left.arity + j;
      if (gen() % 2) {
        const unsigned i = gen() % left.arity;
        if (!used[i]) {
          used[i] = true;
          map[j] = i;
        }
      }
    }
    if (lk != 2 && rk != 2 && gen() % 2) {
      // a - b on the left meets b - z on the right.
      for (unsigned j = 0; j < right.arity; ++j) map[j] = left.arity + j;
      map[0] = 1;
    }
    std::vector<unsigned> shared;
    for (unsigned j = 0; j < right.arity; ++j)
      if (map[j] < left.arity) shared.push_back(j);
    if (shared.empty()) continue;
    const unsigned pivot = shared[gen() % shared.size()];
    ++tried;
    const std::string context = seed_context(seed, round) + " " + text_of(*left.p, nullptr) +
                                " with " + text_of(*right.p, nullptr) + " map " +
                                show(assignment(map.begin(), map.end())) + " pivot " +
                                std::to_string(pivot);
    const combination c = run_combine(*left.p, left.domains, *right.p, right.domains, map, pivot);
    if (!c.result) continue;
    ++built[lk][rk];
    // A literal pivot stays when its two sets meet; a = b from a circular pair
    // keeps it as well.
    const bool literal_pivot = lk == 2 || (lk == 1 && map[pivot] >= 2);
    const bool may_stay =
        literal_pivot || dynamic_cast<const equal_propagator*>(c.result.get()) != nullptr;
    check_combination(*left.p, left.arity, *right.p, right.arity, map, pivot, c, context, may_stay);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_GT(tried, 1000);
  EXPECT_GT(built[0][0] + built[0][1] + built[1][0] + built[1][1], 150);
  EXPECT_GT(built[1][2], 40);  // difference-or-clause with a clause
  EXPECT_GT(built[2][1], 40);  // and the other way round
}

// The pivot disappears where the combination promises it: a literal pivot
// whose sets don't meet, and a middle pivot.
TEST(disjunction, the_pivot_goes) {
  const domain_list domains{iset("0:9"), iset("0:31"), iset("0:31")};
  // x - y >= 1 or v2 in {1}; clause v2 in {2} or v3 in {4}: resolve on v2.
  auto left = diff_or(1, {iset("1")});
  const clause_propagator clause{iset("2"), iset("4")};
  combination c = run_combine(*left, domains, clause, {iset("0:31"), iset("0:31")}, {2, 3}, 0);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 1, 3}));
  check_combination(*left, 3, clause, 2, {2, 3}, 0, c, "literal pivot");
  // The same from the clause's side: combine_other_first turns the numbering.
  c = run_combine(clause, {iset("0:31"), iset("0:31")}, *left, domains, {2, 3, 0}, 2);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{2, 3, 1}));
  check_combination(clause, 2, *left, 3, {2, 3, 0}, 2, c, "literal pivot, clause left");
  // A literal shared besides the pivot comes back under the clause's number.
  auto both = diff_or(1, {iset("1"), iset("5")});
  c = run_combine(clause, {iset("0:31"), iset("0:31")}, *both, domain_list(4, iset("0:31")),
                  {2, 3, 0, 1}, 2);
  ASSERT_TRUE(c.result);
  EXPECT_EQ(c.out, (std::vector<unsigned>{2, 3, 1}));
  EXPECT_EQ(dynamic_cast<difference_ge_or_clause_propagator&>(*c.result).literals(),
            (domain_list{iset("4:5")}));
  check_combination(clause, 2, *both, 4, {2, 3, 0, 1}, 2, c, "shared literal");
  // x - p >= 1 or v2 in {1}, p - z >= 3 or v4 in {0}: x <= 9 and z >= 6 keep the
  // conflict of x - z >= 4.
  auto right = diff_or(3, {iset("0")});
  c = run_combine(*left, {iset("0:9"), iset("0:31"), iset("0:31")}, *right,
                  {iset("0:31"), iset("6:31"), iset("0:31")}, {1, 3, 4}, 0);
  ASSERT_TRUE(c.result);
  auto* result = dynamic_cast<difference_ge_or_clause_propagator*>(c.result.get());
  ASSERT_TRUE(result);
  EXPECT_EQ(result->constant(), 4);
  EXPECT_EQ(c.out, (std::vector<unsigned>{0, 3, 2, 4}));
  check_combination(*left, 3, *right, 3, {1, 3, 4}, 0, c, "middle pivot");
}

}  // namespace
}  // namespace zelk
