// Small random models of clauses and sums that can be built into any number of
// solvers and solved by brute force: the common ground of the solver, learning and
// proof tests.
#ifndef ZELK_TESTS_UNIT_RANDOM_MODEL_H
#define ZELK_TESTS_UNIT_RANDOM_MODEL_H

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/neq_propagators.h"
#include "impl/constraint_explicit_info.h"
#include "impl/solver.h"
#include "unit/explanation_tester.h"

namespace zelk {
namespace test_support {

using iset = small_model::iset;

// A model description that can be built into any number of solvers.
struct model {
  struct item {
    enum kind_type {
      CLAUSE, LINEAR, LE_SUM, GE_SUM, SUM_WRAP, SUM_MOD,
      // comparisons, the guarded ones on (L, x, y) with the guard's literal first
      DIFF_GE, LIT_OR_EQUAL, LIT_OR_NEQ, LIT_OR_DIFF_GE, LIT_IFF_LESS
    } kind;
    std::vector<unsigned int> vars;
    std::vector<iset> literals;      // CLAUSE; the guard's literal
    std::vector<int> coefficients;   // LINEAR
    int constant = 0;                // LINEAR, SUM_MOD result, differences
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
      case item::DIFF_GE: return std::make_unique<difference_ge_propagator>(it.constant);
      case item::LIT_OR_EQUAL: return std::make_unique<literal_or_equal_propagator>(it.literals[0]);
      case item::LIT_OR_NEQ: return std::make_unique<literal_or_neq_propagator>(it.literals[0]);
      case item::LIT_OR_DIFF_GE:
        return std::make_unique<literal_or_difference_ge_propagator>(it.literals[0], it.constant);
      case item::LIT_IFF_LESS: return std::make_unique<literal_iff_less_than_propagator>(it.literals[0]);
    }
    return nullptr;
  }

  void build(solver& s, explanation_tester::report* wrap = nullptr) const {
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

// Booleans near the satisfiability threshold of 3-clauses, or small domains; `tiny`
// models have two to four variables and few constraints, so that all their
// solutions can be enumerated by the solver too.
inline model random_model(unsigned int seed, bool tiny = false) {
  std::srand(seed);
  model m;
  const bool boolean = !tiny && std::rand() % 2;
  const unsigned int n = tiny ? 2 + std::rand() % 3 : boolean ? 10 + std::rand() % 4 : 5 + std::rand() % 2;
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
  const unsigned int count = tiny ? std::rand() % (2 * n)
                             : boolean ? 4 * n + std::rand() % n : n + std::rand() % n;
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
      it.vars = pick_maybe_repeated(2 + std::rand() % (tiny ? n - 1 : 3));
      int most = 0;
      for (std::size_t i = 0; i < it.vars.size(); ++i) {
        const int c = std::rand() % 5 - 2;
        it.coefficients.push_back(c);
        most += c > 0 ? c * m.domains[it.vars[i]].max() : c * m.domains[it.vars[i]].min();
      }
      it.constant = most - 2 - std::rand() % 5;  // binding, rarely alone unsatisfiable
    } else if (kind == 10) {
      it.kind = std::rand() % 2 ? model::item::LE_SUM : model::item::GE_SUM;
      it.vars = pick_maybe_repeated(std::min(3u, n));
    } else {
      it.kind = boolean ? model::item::SUM_MOD : model::item::SUM_WRAP;
      it.vars = pick_maybe_repeated(std::min(3u, n));
      it.constant = std::rand() % 2;
    }
    m.items.push_back(it);
  }
  return m;
}

// Reified comparisons of a few small integers through booleans, as the model layer
// posts them: b = (x - y >= c) as two guarded differences, half-reified equalities
// and disequalities, b = (x < y), plain differences, and clauses on the booleans.
// Analysis resolves the guarded differences with each other and with the
// differences, so that combination builds guarded forms of its own.
inline model random_comparison_model(unsigned int seed) {
  std::srand(seed);
  model m;
  const unsigned int ints = 5, bools = 3 + std::rand() % 2;
  for (unsigned int i = 0; i < ints; ++i) {
    iset d;
    while (d.size() < 3)
      for (int v = 0; v < 5; ++v)
        if (std::rand() % 4) d.insert(v);
    m.domains.push_back(d);
  }
  for (unsigned int i = 0; i < bools; ++i) m.domains.push_back(iset::clipped_range(0, 1));
  const auto any_int = [&] { return unsigned(std::rand()) % ints; };
  const auto any_bool = [&] { return ints + unsigned(std::rand()) % bools; };
  const auto guarded = [&](model::item::kind_type kind, unsigned int b, int literal, unsigned int x,
                           unsigned int y, int c) {
    model::item it;
    it.kind = kind;
    it.vars = {b, x, y};
    it.literals = {iset::singleton(literal)};
    it.constant = c;
    m.items.push_back(it);
  };
  const unsigned int count = 8 + std::rand() % 7;
  for (unsigned int k = 0; k < count; ++k) {
    const unsigned int x = any_int();
    unsigned int y = any_int();
    while (y == x) y = any_int();
    const unsigned int b = any_bool();
    const int c = std::rand() % 5 - 2;
    switch (std::rand() % 7) {
      case 0:  // b = (x - y >= c)
      case 1:
      case 5:
        guarded(model::item::LIT_OR_DIFF_GE, b, 0, x, y, c);
        guarded(model::item::LIT_OR_DIFF_GE, b, 1, y, x, 1 - c);
        break;
      case 2:  // b = 1 implies x = y, or x != y
        guarded(std::rand() % 2 ? model::item::LIT_OR_EQUAL : model::item::LIT_OR_NEQ, b,
                std::rand() % 2, x, y, 0);
        break;
      case 3:
        guarded(model::item::LIT_IFF_LESS, b, std::rand() % 2, x, y, 0);
        break;
      case 4: {
        model::item it;
        it.kind = model::item::DIFF_GE;
        it.vars = {x, y};
        it.constant = c - 2;
        m.items.push_back(it);
        break;
      }
      default: {
        model::item it;
        it.kind = model::item::CLAUSE;
        it.vars = {b};
        for (unsigned int other = any_bool(); other != b && it.vars.size() < 3; other = any_bool())
          it.vars.push_back(other);
        for (std::size_t i = 0; i < it.vars.size(); ++i)
          it.literals.push_back(iset::singleton(std::rand() % 2));
        m.items.push_back(it);
      }
    }
  }
  return m;
}

}  // namespace test_support
}  // namespace zelk

#endif
