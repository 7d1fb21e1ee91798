// Normalization, hashing and order of products, and the solver variables and
// clauses that tie coefficient * product to the literals.
#include "opb/opb_conjunction.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <ostream>

#include "impl/clause_propagator.h"
#include "impl/solver.h"
#include "opb/opb_context.h"
#include "opb/opb_variable.h"

namespace zelk {
namespace opb {

void insert_clause(solver& s, unsigned int var_a, small_model::iset set_a, unsigned int var_b,
                   small_model::iset set_b) {
  s.add_constraint(std::make_unique<clause_propagator>(
      clause_propagator::literal_vector{set_a, set_b}))
      << var_a << var_b;
}

//==== atom connectivity ==========================================================

conjunction::atom_connectivity_t::atom_connectivity_t(int coefficient, bool negated,
                                                      eval_type eval)
    : true_atom_implies_product((eval & eval_at_most) != 0),
      product_implies_true_atom((eval & eval_at_least) != 0) {
  // For c < 0 an upper bound on c * atom is a lower bound on the atom, and a
  // negated atom is true when the product is false: each swaps the two links.
  if (coefficient < 0) std::swap(true_atom_implies_product, product_implies_true_atom);
  if (negated) std::swap(true_atom_implies_product, product_implies_true_atom);
}

//==== normal form ================================================================

bool conjunction::literal_variable_comparator::operator()(const literal_type& a,
                                                         const literal_type& b) const {
  if (a.second != b.second) return std::strcmp(a.second->name(), b.second->name()) < 0;
  return a.first < b.first;
}

void conjunction::normalize() {
  for (literal_type& literal : m_literals) literal.first = literal.first < 0 ? -1 : 1;
  std::sort(m_literals.begin(), m_literals.end(), literal_variable_comparator());
  m_literals.erase(std::unique(m_literals.begin(), m_literals.end()), m_literals.end());
  for (std::size_t i = 1; i < m_literals.size(); ++i) {
    if (m_literals[i].second == m_literals[i - 1].second) {
      // x and ~x: no assignment makes the product true.
      m_literals.clear();
      m_always_false = true;
      return;
    }
  }
}

std::uint64_t conjunction::hash() const {
  if (m_always_false) return 0;
  std::uint64_t h = 1;
  for (const literal_type& literal : m_literals)
    h = literal.second->hash() * std::uint64_t(std::int64_t(literal.first)) + h * 98321u;
  return h;
}

bool conjunction::operator<(const conjunction& other) const {
  if (m_always_false || other.m_always_false) return m_always_false && !other.m_always_false;
  const std::size_t n = std::min(m_literals.size(), other.m_literals.size());
  for (std::size_t i = 0; i < n; ++i) {
    const literal_type& a = m_literals[i];
    const literal_type& b = other.m_literals[i];
    if (a.second != b.second) return std::strcmp(a.second->name(), b.second->name()) < 0;
    if (a.first != b.first) return a.first < b.first;
  }
  return m_literals.size() < other.m_literals.size();
}

conjunction* conjunction::get_not(context& ctx) const {
  if (m_literals.size() != 1) return nullptr;
  return ctx.record_unique_conjunction(
      new conjunction(-m_literals[0].first, m_literals[0].second));
}

//==== solver variables ===========================================================

unsigned int conjunction::get_atom_variable(context& ctx, int coefficient, bool negated,
                                            eval_type eval, const char* name) {
  solver& s = ctx.get_solver();
  if (m_always_false || coefficient == 0) return s.singleton_var(0);
  if (m_literals.size() == 1 && m_base_variable == NO_VARIABLE) {
    // The literal's own variable is the product: exact, so both links hold. A
    // lone ~x only gets here if a caller skipped turning it into a negated x; its
    // variable then stands for the product with the values the other way round.
    const literal_type& literal = m_literals[0];
    m_atom_values = literal.first > 0 ? atom_values_t(0, 1) : atom_values_t(1, 0);
    m_base_variable = literal.second->solver_variable();
    m_false_literal_link_made = true;
    m_true_literals_link_made = true;
    m_variables_by_value[m_atom_values].set_equals_variable(m_base_variable);
  }
  const atom_connectivity_t connectivity(coefficient, negated, eval);
  const atom_values_t values = negated ? atom_values_t(coefficient, 0) : atom_values_t(0, coefficient);
  const unsigned int var = variable_for_coefficient(ctx, values, connectivity, name);
  if ((connectivity.true_atom_implies_product && !m_false_literal_link_made) ||
      (connectivity.product_implies_true_atom && !m_true_literals_link_made))
    strengthen_conjunction_result(ctx, connectivity);
  return var;
}

unsigned int conjunction::variable_for_coefficient(context& ctx, atom_values_t values,
                                                   const atom_connectivity_t& connectivity,
                                                   const char* name) {
  auto found = m_variables_by_value.find(values);
  if (found == m_variables_by_value.end()) {
    // The domain first: a value out of range must not leave an entry behind.
    small_model::iset domain;
    domain.insert(values.first);
    domain.insert(values.second);
    const unsigned int var = ctx.get_solver().add_var(domain, name);
    found = m_variables_by_value.emplace(values, atom_connectivity_t()).first;
    found->second.variable = var;
    if (m_base_variable == NO_VARIABLE) {
      m_base_variable = var;
      m_atom_values = values;
      found->second.set_equals_variable(var);
      return var;
    }
  }
  strengthen_variable(ctx, values, connectivity, found->second);
  return found->second.variable;
}

void conjunction::strengthen_variable(context& ctx, atom_values_t values,
                                      const atom_connectivity_t& connectivity,
                                      atom_connectivity_t& entry) {
  if (entry.variable == m_base_variable) return;
  solver& s = ctx.get_solver();
  if (connectivity.product_implies_true_atom && !entry.product_implies_true_atom) {
    // base at its true value => entry at its true value
    insert_clause(s, m_base_variable, ~small_model::iset::singleton(m_atom_values.second),
                  entry.variable, small_model::iset::singleton(values.second));
    entry.product_implies_true_atom = true;
  }
  if (connectivity.true_atom_implies_product && !entry.true_atom_implies_product) {
    // base at its false value => entry at its false value
    insert_clause(s, m_base_variable, ~small_model::iset::singleton(m_atom_values.first),
                  entry.variable, small_model::iset::singleton(values.first));
    entry.true_atom_implies_product = true;
  }
}

void conjunction::strengthen_conjunction_result(context& ctx,
                                                const atom_connectivity_t& connectivity) {
  if (connectivity.true_atom_implies_product && !m_false_literal_link_made) {
    a_false_literal_implies_zero_atom(ctx, m_base_variable);
    m_false_literal_link_made = true;
  }
  if (connectivity.product_implies_true_atom && !m_true_literals_link_made) {
    true_literals_imply_conjunction(ctx, m_base_variable);
    m_true_literals_link_made = true;
  }
}

void conjunction::a_false_literal_implies_zero_atom(context& ctx, unsigned int base) {
  solver& s = ctx.get_solver();
  const small_model::iset false_value = small_model::iset::singleton(m_atom_values.first);
  for (const literal_type& literal : m_literals)
    insert_clause(s, literal.second->solver_variable(),
                  small_model::iset::singleton(literal.first > 0 ? 1 : 0), base, false_value);
}

void conjunction::true_literals_imply_conjunction(context& ctx, unsigned int base) {
  clause_propagator::literal_vector literals;
  literals.reserve(m_literals.size() + 1);
  for (const literal_type& literal : m_literals)
    literals.push_back(small_model::iset::singleton(literal.first > 0 ? 0 : 1));
  literals.push_back(small_model::iset::singleton(m_atom_values.second));
  constraint_connectivity_info& info =
      ctx.get_solver().add_constraint(std::make_unique<clause_propagator>(std::move(literals)));
  for (const literal_type& literal : m_literals) info << literal.second->solver_variable();
  info << base;
}

//==== solutions and text =========================================================

bool conjunction::evaluate(const solver& s) const {
  if (m_always_false) return false;
  for (const literal_type& literal : m_literals) {
    const bool one = s.stack().domain(literal.second->solver_variable()).min() != 0;
    if (one != (literal.first > 0)) return false;
  }
  return true;
}

void conjunction::print(std::ostream& os) const {
  if (m_always_false) {
    os << "false";
    return;
  }
  const char* separator = "";
  for (const literal_type& literal : m_literals) {
    os << separator << (literal.first < 0 ? "~" : "") << literal.second->name();
    separator = " ";
  }
}

std::ostream& operator<<(std::ostream& os, const conjunction& c) {
  c.print(os);
  return os;
}

}  // namespace opb
}  // namespace zelk
