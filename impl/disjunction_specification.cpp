// Resolution of two constraints in literals-plus-base form: the literal side
// here, the arithmetic delegated to the base constraints.
#include "impl/disjunction_specification.h"

#include <cassert>
#include <utility>

#include "impl/clause_propagator.h"

namespace zelk {

disjunction_specification::disjunction_specification(const constraint_runtime_info& info,
                                                     const constraint_propagator& propagator,
                                                     const std::vector<unsigned int>& params)
    : m_info(&info), m_params(params) {
  if (!propagator.get_disjunction_specification(*this)) return;
  const unsigned int n = propagator.count_params();
  if (int(n) >= 0) m_constraint_param_count = n - m_literal_count;
}

std::unique_ptr<constraint_propagator> disjunction_specification::combine_propagators(
    const constraint_runtime_info& info, const constraint_propagator& left,
    const constraint_propagator& right, const constraint_runtime_info& right_info,
    const std::vector<unsigned int>& map, unsigned int pivot, std::vector<unsigned int>& out) {
  if (pivot >= map.size()) return nullptr;
  static const std::vector<unsigned int> identity;
  const disjunction_specification left_spec(info, left, identity);
  const disjunction_specification right_spec(right_info, right, map);
  return left_spec.combine(right_spec, map[pivot], out);
}

//==== declaration and building =================================================

void disjunction_specification::declare_literals(const iset* literals, unsigned int count,
                                                 unsigned int start) {
  m_literals = literals;
  m_literal_count = count;
  m_literal_start = start;
}

void disjunction_specification::declare_constraint(const constraint_propagator* constraint,
                                                   unsigned int start) {
  m_owned_constraint.reset();
  m_constraint = constraint;
  m_constraint_start = start;
}

void disjunction_specification::declare_owned_constraint(
    std::unique_ptr<constraint_propagator> constraint, unsigned int start) {
  m_owned_constraint = std::move(constraint);
  m_constraint = m_owned_constraint.get();
  m_constraint_start = start;
}

void disjunction_specification::ensure_own_literals() {
  if (m_literals == m_own_literals.data() && m_own_literals.size() == m_literal_count) return;
  literal_vector copy(m_literals, m_literals + m_literal_count);
  m_own_literals.swap(copy);
  m_literals = m_own_literals.data();
}

void disjunction_specification::add_literal(unsigned int variable, const iset& set) {
  ensure_own_literals();
  // Results keep their literal variables in front of the base ones.
  assert(m_constraint_param_count == 0);
  m_params.resize(m_literal_start + m_literal_count);
  m_params.push_back(variable);
  m_own_literals.push_back(set);
  m_literals = m_own_literals.data();
  ++m_literal_count;
}

void disjunction_specification::own_constraint(std::unique_ptr<constraint_propagator> constraint) {
  m_owned_constraint = std::move(constraint);
  m_constraint = m_owned_constraint.get();
  m_constraint_start = m_literal_start + m_literal_count;
  m_constraint_param_count = 0;
  m_params.resize(m_constraint_start);
}

void disjunction_specification::add_constraint_param(unsigned int variable) {
  m_params.push_back(variable);
  ++m_constraint_param_count;
}

//==== queries ===================================================================

int disjunction_specification::find_literal(unsigned int variable) const {
  for (unsigned int k = 0; k < m_literal_count; ++k)
    if (literal_var(k) == variable) return int(k);
  return -1;
}

int disjunction_specification::find_constraint_param(unsigned int variable) const {
  for (unsigned int i = 0; i < m_constraint_param_count; ++i)
    if (constraint_var(i) == variable) return int(i);
  return -1;
}

std::unique_ptr<constraint_propagator> disjunction_specification::release_owned_constraint()
    const {
  return std::move(m_owned_constraint);
}

//==== combination ===============================================================

std::unique_ptr<constraint_propagator> disjunction_specification::combine(
    const disjunction_specification& other, unsigned int pivot,
    std::vector<unsigned int>& out) const {
  out.clear();
  // A variable would stand both in the literals and in the base constraint of
  // the result.
  for (unsigned int i = 0; i < m_constraint_param_count; ++i)
    if (other.find_literal(constraint_var(i)) >= 0) return nullptr;
  for (unsigned int i = 0; i < other.m_constraint_param_count; ++i)
    if (find_literal(other.constraint_var(i)) >= 0) return nullptr;
  const bool left_literal = find_literal(pivot) >= 0;
  const bool right_literal = other.find_literal(pivot) >= 0;
  if (left_literal && right_literal) return combine_literal_pivot(other, pivot, out);
  if (left_literal || right_literal) return nullptr;
  return combine_constraint_pivot(other, pivot, out);
}

std::unique_ptr<constraint_propagator> disjunction_specification::combine_literal_pivot(
    const disjunction_specification& other, unsigned int pivot,
    std::vector<unsigned int>& out) const {
  disjunction_specification result;
  if (m_constraint && other.m_constraint) {
    disjunction_specification both;
    if (!m_constraint->disjoin_constraint(*this, other, both)) return nullptr;
    result.resolve_literals(*this, other, pivot);
    result.append_literals(both);
    result.steal_constraint(both);
  } else {
    result.resolve_literals(*this, other, pivot);
    if (m_constraint)
      result.append_constraint(*this);
    else if (other.m_constraint)
      result.append_constraint(other);
  }
  return result.make_constraint(out);
}

std::unique_ptr<constraint_propagator> disjunction_specification::combine_constraint_pivot(
    const disjunction_specification& other, unsigned int pivot,
    std::vector<unsigned int>& out) const {
  if (!m_constraint || !other.m_constraint) return nullptr;
  if (find_literal(pivot) >= 0 || other.find_literal(pivot) >= 0) return nullptr;
  disjunction_specification eliminated;
  if (!m_constraint->combine_base_constraints(*this, other, pivot, eliminated)) return nullptr;
  disjunction_specification result;
  // The order decides only the order of the literals.
  if (m_constraint_param_count > 0 && constraint_var(0) == pivot)
    result.resolve_literals(other, *this, pivot);
  else
    result.resolve_literals(*this, other, pivot);
  result.append_literals(eliminated);
  result.steal_constraint(eliminated);
  return result.make_constraint(out);
}

void disjunction_specification::resolve_literals(const disjunction_specification& left,
                                                 const disjunction_specification& right,
                                                 unsigned int pivot) {
  m_params.clear();
  m_own_literals.clear();
  for (unsigned int k = 0; k < left.m_literal_count; ++k) {
    m_params.push_back(left.literal_var(k));
    m_own_literals.push_back(left.literal(k));
  }
  const std::size_t from_left = m_params.size();
  bool emptied = false;
  for (unsigned int k = 0; k < right.m_literal_count; ++k) {
    const unsigned int v = right.literal_var(k);
    std::size_t j = 0;
    while (j < from_left && m_params[j] != v) ++j;
    if (j == from_left) {
      m_params.push_back(v);
      m_own_literals.push_back(right.literal(k));
    } else if (v == pivot) {
      m_own_literals[j] &= right.literal(k);
      emptied |= m_own_literals[j].empty();
    } else {
      m_own_literals[j] |= right.literal(k);
    }
  }
  if (emptied) {
    std::size_t next = 0;
    for (std::size_t j = 0; j < m_own_literals.size(); ++j) {
      if (m_own_literals[j].empty()) continue;
      m_own_literals[next] = m_own_literals[j];
      m_params[next] = m_params[j];
      ++next;
    }
    m_own_literals.resize(next);
    m_params.resize(next);
  }
  m_constraint_param_count = 0;
  m_literal_start = 0;
  m_literals = m_own_literals.data();
  m_literal_count = unsigned(m_own_literals.size());
  m_constraint_start = m_literal_count;
}

void disjunction_specification::append_literals(const disjunction_specification& other) {
  for (unsigned int k = 0; k < other.m_literal_count; ++k)
    add_literal(other.literal_var(k), other.literal(k));
}

void disjunction_specification::take_constraint_params(const disjunction_specification& other) {
  m_constraint_start = m_literal_start + m_literal_count;
  m_constraint_param_count = 0;
  m_params.resize(m_constraint_start);
  for (unsigned int i = 0; i < other.m_constraint_param_count; ++i)
    add_constraint_param(other.constraint_var(i));
}

void disjunction_specification::append_constraint(const disjunction_specification& other) {
  if (!other.m_constraint) return;
  m_owned_constraint = other.m_constraint->clone();
  m_constraint = m_owned_constraint.get();
  take_constraint_params(other);
}

void disjunction_specification::steal_constraint(disjunction_specification& other) {
  if (!other.m_constraint) return;
  if (other.m_owned_constraint)
    m_owned_constraint = std::move(other.m_owned_constraint);
  else
    m_owned_constraint = other.m_constraint->clone();
  m_constraint = m_owned_constraint.get();
  take_constraint_params(other);
  other.m_constraint = nullptr;
}

std::unique_ptr<constraint_propagator> disjunction_specification::make_constraint(
    std::vector<unsigned int>& out) const {
  // Without base parameters the base constraint is the one that can't hold (or
  // there is none): only the literals count.
  if (m_constraint_param_count == 0 || !m_constraint) return new_clause(out);
  return m_constraint->new_propagator(*this, out);
}

std::unique_ptr<constraint_propagator> disjunction_specification::new_clause(
    std::vector<unsigned int>& out) const {
  out.resize(m_literal_count);
  for (unsigned int k = 0; k < m_literal_count; ++k) out[k] = literal_var(k);
  return std::make_unique<clause_propagator>(
      literal_vector(m_literals, m_literals + m_literal_count));
}

void disjunction_specification::clear() {
  m_info = nullptr;
  m_params.clear();
  m_constraint_param_count = 0;
  m_literal_count = 0;
  m_literal_start = 0;
  m_literals = nullptr;
  m_own_literals.clear();
  m_constraint_start = 0;
  m_constraint = nullptr;
  m_owned_constraint.reset();
}

}  // namespace zelk
