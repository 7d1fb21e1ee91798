// Normal form of OPB sums and the solver objects that post them.
#include "opb/opb_expression.h"

#include <algorithm>
#include <climits>
#include <iostream>
#include <memory>
#include <ostream>

#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/operator_definition_registry.h"
#include "impl/solver.h"
#include "opb/opb_conjunction.h"
#include "opb/opb_context.h"

namespace zelk {
namespace opb {

namespace {

// Sums of huge coefficients are far beyond what a variable holds and end in the
// range error later; they only must not overflow on the way.
int saturated(long long value) { return int(std::clamp<long long>(value, -INT_MAX, INT_MAX)); }

}  // namespace

void expression::negate_coefficients() {
  for (atom_type& atom : m_atoms) atom.coefficient = -atom.coefficient;
}

//==== normal form ================================================================

void expression::normalize(context& ctx, int& rhs) {
  make_single_literals_positive(ctx);
  // ~A = 1 - A: the constant goes to the right-hand side.
  for (atom_type& atom : m_atoms) {
    if (!atom.negated) continue;
    atom.negated = false;
    rhs = saturated(static_cast<long long>(rhs) - atom.coefficient);
    atom.coefficient = -atom.coefficient;
  }
  merge_similar_conjunctions();
  make_atoms_positive(rhs);
  std::sort(m_atoms.begin(), m_atoms.end(), compare_conjunctions);
}

void expression::make_single_literals_positive(context& ctx) {
  for (atom_type& atom : m_atoms) {
    const auto& literals = atom.conj->literals();
    if (literals.size() != 1 || literals[0].first > 0) continue;
    atom.conj = atom.conj->get_not(ctx);
    atom.negated = !atom.negated;
  }
}

void expression::merge_repeated_atoms() {
  // Equal atoms share one solver variable: the sum over them would take that
  // variable twice, which conflict analysis does not expect of a constraint.
  std::vector<atom_type> merged;
  merged.reserve(m_atoms.size());
  bool zero_kept = false;
  for (const atom_type& atom : m_atoms) {
    // Atoms worth nothing all become the same fixed variable: keep one of them.
    if (atom.coefficient == 0 || atom.conj->always_false()) {
      if (zero_kept) continue;
      zero_kept = true;
    }
    auto same = std::find_if(merged.begin(), merged.end(), [&](const atom_type& m) {
      return m.conj == atom.conj && m.negated == atom.negated;
    });
    if (same == merged.end()) {
      merged.push_back(atom);
      continue;
    }
    same->coefficient = saturated(static_cast<long long>(same->coefficient) + atom.coefficient);
  }
  // Drop the kept zero atom when others remain; an objective of zero atoms keeps one.
  if (merged.size() > 1)
    merged.erase(std::remove_if(merged.begin(), merged.end(),
                                [](const atom_type& atom) {
                                  return atom.coefficient == 0 || atom.conj->always_false();
                                }),
                 merged.end());
  if (merged.empty() && !m_atoms.empty()) merged.push_back(m_atoms.front());
  m_atoms.swap(merged);
}

void expression::merge_similar_conjunctions() {
  std::sort(m_atoms.begin(), m_atoms.end(), compare_conjunctions);
  for (std::size_t i = 1; i < m_atoms.size(); ++i) {
    if (m_atoms[i].conj != m_atoms[i - 1].conj) continue;
    m_atoms[i].coefficient =
        saturated(static_cast<long long>(m_atoms[i].coefficient) + m_atoms[i - 1].coefficient);
    m_atoms[i - 1].coefficient = 0;
  }
  m_atoms.erase(std::remove_if(m_atoms.begin(), m_atoms.end(),
                               [](const atom_type& atom) {
                                 return atom.coefficient == 0 || atom.conj->always_false();
                               }),
                m_atoms.end());
}

void expression::make_atoms_positive(int& rhs) {
  // -c * A = c * ~A - c.
  for (atom_type& atom : m_atoms) {
    if (atom.coefficient >= 0) continue;
    atom.negated = !atom.negated;
    rhs = saturated(static_cast<long long>(rhs) - atom.coefficient);
    atom.coefficient = -atom.coefficient;
  }
}

bool expression::compare_conjunctions(const atom_type& a, const atom_type& b) {
  if (a.conj != b.conj) return *a.conj < *b.conj;
  return a.negated < b.negated;
}

//==== posting ====================================================================

void expression::add_or_between_conjunctions(context& ctx) const {
  if (ctx.trace_construction())
    std::cout << "[" << *this << "].add_or_between_conjunctions()\n";
  solver& s = ctx.get_solver();
  clause_propagator::literal_vector literals;
  std::vector<unsigned int> vars;
  literals.reserve(m_atoms.size());
  vars.reserve(m_atoms.size());
  for (const atom_type& atom : m_atoms) {
    // The literal {0} of a negated term must mean that the product is false, so
    // its variable needs the link "product implies atom at 1"; a plain term's
    // literal {1} needs the converse.
    const eval_type eval = atom.negated ? eval_at_least : eval_at_most;
    vars.push_back(atom.conj->get_atom_variable(ctx, 1, false, eval, nullptr));
    literals.push_back(small_model::iset::singleton(atom.negated ? 0 : 1));
  }
  constraint_connectivity_info& info =
      s.add_constraint(std::make_unique<clause_propagator>(std::move(literals)));
  for (unsigned int var : vars) info << var;
}

unsigned int expression::get_evaluating_variable(context& ctx, constraint_type type,
                                                 const char* name) const {
  solver& s = ctx.get_solver();
  const eval_type eval = type == LOWER_BOUND ? eval_at_most : eval_both_bounds;
  unsigned int result = conjunction::NO_VARIABLE;
  small_model::iset running;
  running.insert(0);
  for (std::size_t i = 0; i < m_atoms.size(); ++i) {
    const atom_type& atom = m_atoms[i];
    const int c = atom.coefficient;
    const unsigned int a = atom.conj->get_atom_variable(ctx, c, atom.negated, eval,
                                                        m_atoms.size() == 1 ? name : nullptr);
    if (i == 0) {
      running.insert(c);
      result = a;
      continue;
    }
    // For a lower bound the partial sum may fall short of the real one, so the
    // last partial sum at some value only says that the sum reaches it.
    const int lo = running.min() + (c <= 0 ? c : 0);
    const int hi = running.max() + (c >= 0 ? c : 0);
    running.clear();
    running.insert(small_iset::value_range_type(lo, hi));
    const unsigned int partial = s.add_var(running, i + 1 == m_atoms.size() ? name : nullptr);
    std::unique_ptr<constraint_propagator> sum;
    if (type == LOWER_BOUND)
      sum = std::make_unique<less_equal_sum_propagator>();
    else
      sum = std::make_unique<sum_wrap_propagator>();
    s.add_constraint(std::move(sum)) << partial << result << a;
    result = partial;
  }
  return result;
}

//==== solutions and text =========================================================

int expression::evaluate(const solver& s) const {
  long long sum = 0;
  for (const atom_type& atom : m_atoms)
    if (atom.conj->evaluate(s) != atom.negated) sum += atom.coefficient;
  return int(std::clamp<long long>(sum, INT_MIN, INT_MAX));
}

void expression::print(std::ostream& os) const {
  if (m_atoms.empty()) {
    os << "0";
    return;
  }
  const char* separator = "";
  for (const atom_type& atom : m_atoms) {
    os << separator << (atom.coefficient >= 0 ? "+" : "") << atom.coefficient << " ";
    if (atom.negated)
      os << "~(" << *atom.conj << ")";
    else
      os << *atom.conj;
    separator = " ";
  }
}

std::ostream& operator<<(std::ostream& os, const expression& e) {
  e.print(os);
  return os;
}

}  // namespace opb
}  // namespace zelk
