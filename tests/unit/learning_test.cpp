// Conflict learning on small random models, checked by brute force: answers agree
// with enumeration under every analysis option, every learned constraint is
// implied by the model, and every explanation given during analysis is implied by
// its constraint (explanation_tester).
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_explicit_info.h"
#include "impl/solver.h"
#include "tests/unit/explanation_tester.h"

namespace zelk {
namespace {

using iset = small_model::iset;

// A model description that can be built into any number of solvers.
struct model {
  struct item {
    enum kind_type { CLAUSE, LINEAR, LE_SUM, GE_SUM, SUM_WRAP, SUM_MOD } kind;
    std::vector<unsigned int> vars;
    std::vector<iset> literals;      // CLAUSE
    std::vector<int> coefficients;   // LINEAR
    int constant = 0;                // LINEAR, SUM_MOD result
  };
  std::vector<iset> domains;
  std::vector<item> items;

  std::unique_ptr<constraint_propagator> make(const item& it) const {
    switch (it.kind) {
      case item::CLAUSE: return std::make_unique<clause_propagator>(it.literals);
      case item::LINEAR:
        return std::make_unique<linear_combination_ge_propagator>(it.constant, it.coefficients);
      case item::LE_SUM: return std::make_unique<less_equal_sum_propagator>();
      case item::GE_SUM: return std::make_unique<greater_equal_sum_propagator>();
      case item::SUM_WRAP: return std::make_unique<sum_wrap_propagator>();
      case item::SUM_MOD: return std::make_unique<sum_mod_propagator>(2, it.constant);
    }
    return nullptr;
  }

  void build(solver& s, explanation_tester::report* wrap) const {
    for (const iset& d : domains) s.add_var(d);
    for (const item& it : items) {
      std::unique_ptr<constraint_propagator> p = make(it);
      if (wrap && it.kind != item::CLAUSE) {
        std::vector<iset> initial;
        for (unsigned int v : it.vars) initial.push_back(domains[v]);
        p = std::make_unique<explanation_tester>(std::move(p), initial, wrap);
      }
      constraint_connectivity_info& info = s.add_constraint(std::move(p));
      for (unsigned int v : it.vars) info << v;
    }
  }

  // Whether the constraint `c` of solver `s` holds for a full assignment.
  static bool holds(const solver& s, unsigned int c, const std::vector<int>& values) {
    const constraint_connectivity_info& info = s.connectivity(c);
    constraint_explicit_info view(info.arity());
    for (unsigned int i = 0; i < info.arity(); ++i)
      view.domains()[i] = iset::singleton(values[info.to_variable(i)]);
    return s.propagator(c)->constraint_check(view);
  }

  std::vector<std::vector<int>> solutions(const solver& built) const {
    std::vector<std::vector<int>> result;
    std::vector<int> values(domains.size());
    std::function<void(unsigned int)> rec = [&](unsigned int i) {
      if (i == domains.size()) {
        for (unsigned int c = 0; c < items.size(); ++c)
          if (!holds(built, c, values)) return;
        result.push_back(values);
        return;
      }
      for (int v : domains[i]) {
        values[i] = v;
        rec(i + 1);
      }
    };
    rec(0);
    return result;
  }
};

model random_model(unsigned int seed) {
  std::srand(seed);
  model m;
  // Booleans near the satisfiability threshold of 3-clauses, or small domains.
  const bool boolean = std::rand() % 2;
  const unsigned int n = boolean ? 10 + std::rand() % 4 : 5 + std::rand() % 2;
  for (unsigned int i = 0; i < n; ++i) {
    if (boolean) {
      m.domains.push_back(iset::clipped_range(0, 1));
      continue;
    }
    iset d;
    while (d.size() < 2)
      for (int v = 0; v < 4; ++v)
        if (std::rand() % 4) d.insert(v);
    m.domains.push_back(d);
  }
  // Some constraints take one variable at two parameters.
  const bool repeats = std::rand() % 4 == 0;
  const auto pick = [&](unsigned int k) {
    std::vector<unsigned int> vars;
    while (vars.size() < k) {
      const unsigned int v = std::rand() % n;
      bool fresh = true;
      for (unsigned int w : vars) fresh = fresh && w != v;
      if (fresh) vars.push_back(v);
    }
    return vars;
  };
  const auto pick_maybe_repeated = [&](unsigned int k) {
    std::vector<unsigned int> vars = pick(k);
    if (repeats && k >= 3 && std::rand() % 2) vars[k - 1] = vars[std::rand() % (k - 1)];
    return vars;
  };
  const unsigned int count = boolean ? 4 * n + std::rand() % n : n + std::rand() % n;
  for (unsigned int k = 0; k < count; ++k) {
    model::item it;
    const int kind = std::rand() % 10 + (boolean ? 0 : 3);
    if (kind < 7) {
      it.kind = model::item::CLAUSE;
      it.vars = pick(boolean ? 3 : 2);
      for (unsigned int v : it.vars) {
        iset lit;
        while (lit.empty() || lit == m.domains[v])
          lit = iset::from_bits(m.domains[v].bits() & std::uint32_t(std::rand()));
        it.literals.push_back(lit);
      }
    } else if (kind < 10) {
      it.kind = model::item::LINEAR;
      it.vars = pick_maybe_repeated(2 + std::rand() % 3);
      int most = 0;
      for (std::size_t i = 0; i < it.vars.size(); ++i) {
        const int c = std::rand() % 5 - 2;
        it.coefficients.push_back(c);
        most += c > 0 ? c * m.domains[it.vars[i]].max() : c * m.domains[it.vars[i]].min();
      }
      it.constant = most - 2 - std::rand() % 5;  // binding, rarely alone unsatisfiable
    } else if (kind == 10) {
      it.kind = std::rand() % 2 ? model::item::LE_SUM : model::item::GE_SUM;
      it.vars = pick_maybe_repeated(3);
    } else {
      it.kind = boolean ? model::item::SUM_MOD : model::item::SUM_WRAP;
      it.vars = pick_maybe_repeated(3);
      it.constant = std::rand() % 2;
    }
    m.items.push_back(it);
  }
  return m;
}

struct options {
  unsigned int relaxation_mode = 2;
  bool relax_cause = false;
  bool combine = true;
  bool augment = true;
  bool ages = true;
  bool ground = true;
  unsigned int restart = 16;
  bool proof = false;  // record and check the refutation of every UNSAT answer
  void apply(solver& s) const {
    s.relaxation_mode = relaxation_mode;
    s.relax_conflict_cause = relax_cause;
    s.combine_constraints = combine;
    s.augment_explanations = augment;
    s.check_domain_ages = ages;
    s.should_intersect_with_ground = ground;
    s.restart_threshold = restart;
    if (proof) {
      s.should_intersect_with_ground = false;
      s.produce_proof(true);
      s.validate_unsat = true;
    }
  }
};

// Solves the model and checks the answer and every learned constraint.
std::uint64_t g_non_fallback_combines = 0;

void check_run(const model& m, const options& o, unsigned int seed,
               explanation_tester::report* wrap = nullptr) {
  solver s;
  m.build(s, wrap);
  o.apply(s);
  s.erase_after_backtracks = 1u << 30;  // keep every learned constraint for the check
  const std::vector<std::vector<int>> expected = m.solutions(s);
  std::ostringstream out;
  solver::result_type r = solver::SAT;
  ASSERT_NO_THROW(r = s.solve(&out)) << "seed " << seed << "\n" << out.str();
  g_non_fallback_combines += s.non_fallback_combines();
  ASSERT_EQ(r, expected.empty() ? solver::UNSAT : solver::SAT)
      << "seed " << seed << " mode " << o.relaxation_mode << " combine " << o.combine;
  if (r == solver::SAT) {
    std::vector<int> values;
    for (unsigned int v = 0; v < s.num_variables(); ++v) {
      ASSERT_TRUE(s.stack().domain(v).is_singleton()) << "seed " << seed;
      values.push_back(s.stack().domain(v).min());
    }
    for (unsigned int c = 0; c < m.items.size(); ++c)
      ASSERT_TRUE(model::holds(s, c, values)) << "seed " << seed << " constraint " << c;
  }
  for (unsigned int c = unsigned(m.items.size()); c < s.num_constraints(); ++c) {
    if (!s.propagator(c)) continue;
    for (const std::vector<int>& solution : expected) {
      if (model::holds(s, c, solution)) continue;
      std::ostringstream text;
      s.print_constraint(text, c);
      FAIL() << "seed " << seed << ": learned constraint " << text.str()
             << " excludes a solution";
    }
  }
}

TEST(learning, learned_constraints_are_implied_and_answers_agree) {
  g_non_fallback_combines = 0;
  for (unsigned int seed = 1; seed <= 400; ++seed) {
    const model m = random_model(seed);
    check_run(m, options(), seed);
    if (testing::Test::HasFatalFailure()) return;
  }
  // Combination must be exercised, not only fallen back from.
  EXPECT_GT(g_non_fallback_combines, 0u);
}

TEST(learning, every_analysis_option_gives_the_same_answers) {
  std::vector<options> variants;
  for (unsigned int mode = 0; mode <= 2; ++mode) {
    for (int flags = 0; flags < 8; ++flags) {
      options o;
      o.relaxation_mode = mode;
      o.relax_cause = flags & 1;
      o.combine = !(flags & 2);
      o.augment = !(flags & 4);
      variants.push_back(o);
    }
  }
  options no_ages;
  no_ages.ages = false;
  variants.push_back(no_ages);
  options no_ground;
  no_ground.ground = false;
  variants.push_back(no_ground);
  options no_restart;
  no_restart.restart = 0;
  variants.push_back(no_restart);
  for (unsigned int mode = 0; mode <= 2; ++mode) {
    options proof;
    proof.proof = true;
    proof.relaxation_mode = mode;
    variants.push_back(proof);
    proof.relax_cause = true;
    variants.push_back(proof);
  }
  for (unsigned int seed = 1000; seed < 1080; ++seed) {
    const model m = random_model(seed);
    for (const options& o : variants) {
      check_run(m, o, seed);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

TEST(learning, explanations_given_during_analysis_are_implied) {
  explanation_tester::report report;
  for (unsigned int seed = 2000; seed < 2300; ++seed) {
    const model m = random_model(seed);
    options o;
    o.combine = false;  // the wrapper hides the propagator's type from combination
    check_run(m, o, seed, &report);
    if (testing::Test::HasFatalFailure()) return;
  }
  EXPECT_GT(report.checked, 100u);
  EXPECT_EQ(report.faults, 0u) << report.first_fault;
}

TEST(learning, learning_cuts_the_search_of_a_pigeonhole) {
  // 6 pigeons into 5 holes as clauses: every analysis learns.
  const unsigned int pigeons = 6, holes = 5;
  const auto var = [&](unsigned int p, unsigned int h) { return p * holes + h; };
  solver s;
  for (unsigned int i = 0; i < pigeons * holes; ++i) s.add_var(iset::clipped_range(0, 1));
  for (unsigned int p = 0; p < pigeons; ++p) {
    std::vector<iset> lits(holes, iset::singleton(1));
    constraint_connectivity_info& info = s.add_constraint(std::make_unique<clause_propagator>(lits));
    for (unsigned int h = 0; h < holes; ++h) info << var(p, h);
  }
  for (unsigned int h = 0; h < holes; ++h)
    for (unsigned int p = 0; p < pigeons; ++p)
      for (unsigned int q = p + 1; q < pigeons; ++q)
        s.add_constraint(std::make_unique<clause_propagator>(
            std::initializer_list<iset>{iset::singleton(0), iset::singleton(0)}))
            << var(p, h) << var(q, h);
  std::ostringstream out;
  EXPECT_EQ(s.solve(&out), solver::UNSAT);
  EXPECT_GT(s.num_constraints(), pigeons + holes * pigeons * (pigeons - 1) / 2);
}

}  // namespace
}  // namespace zelk
