// The disjunction of a base constraint and a clause, run on tentative slices,
// and the difference-or-clause propagator that combines like a difference.
#include "impl/disjoint_propagation_algo.h"

#include <ostream>
#include <string>

#include "impl/disjunction_specification.h"
#include "impl/sliced_runtime_info.h"
#include "impl/utilities.h"

namespace zelk {

namespace {

// The text without one trailing line end.
std::string trimmed(const std::ostringstream& stream) {
  std::string text = stream.str();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

void disjoint_propagation_algo_base::print_buffer::flush_to(std::ostream& os) {
  os << "(" << trimmed(m_a) << " || " << trimmed(m_b) << ")\n";
}

//==== disjoint_propagation_algo ================================================

template <class A, class B>
disjoint_propagation_algo<A, B>::disjoint_propagation_algo(const A& a)
    : m_a(a), m_a_params(a.count_params()) {}

template <class A, class B>
unsigned int disjoint_propagation_algo<A, B>::count_params() const {
  const unsigned int literals = m_b.count_params();
  if (int(m_a_params) < 0 || int(literals) < 0) return constraint_propagator::ANY_NUMBER_OF_PARAMS;
  return m_a_params + literals;
}

template <class A, class B>
unsigned int disjoint_propagation_algo<A, B>::a_count_params(
    const constraint_runtime_info& info) const {
  const unsigned int own = m_a.count_params();
  if (int(own) >= 0) return own;
  const unsigned int literals = m_b.count_params();
  if (int(literals) < 0)
    throw_runtime_error(
        "Can't operate on disjoined propagation algorithms without knowing their parameter "
        "counts");
  if (info.arity() < literals)
    throw_runtime_error("The second propagation algorithm reports more arguments than the total");
  return info.arity() - literals;
}

template <class A, class B>
propagation_types::result_type disjoint_propagation_algo<A, B>::init(
    constraint_runtime_info& info) {
  m_a_params = a_count_params(info);
  sliced_runtime_info view_a(info, 0, m_a_params);
  sliced_runtime_info view_b(info, m_a_params, info.arity());
  // Either half may fail alone; the disjunction is decided by propagate.
  (void)m_a.init(view_a);
  (void)m_b.init(view_b);
  return VALID;
}

template <class A, class B>
propagation_types::result_type disjoint_propagation_algo<A, B>::propagate(
    constraint_runtime_info& info) {
  sliced_runtime_info view_a(info, 0, m_a_params);
  sliced_runtime_info view_b(info, m_a_params, info.arity());
  const result_type ra = m_a.propagate(view_a);
  if (ra == UNSAT) {
    // A can't hold, so the clause must: its writes become real.
    view_b.set_querying_domain(false);
    return m_b.propagate(view_b);
  }
  if (!view_a.pending_commit()) return ra == VALID ? VALID : CONSISTENT;
  // A would reduce something, which is due only if the clause can't hold.
  const result_type rb = m_b.propagate(view_b);
  if (rb == UNSAT) {
    view_a.commit();
    return ra;
  }
  if (rb == VALID) return view_b.pending_commit() ? CONSISTENT : VALID;
  return CONSISTENT;
}

template <class A, class B>
bool disjoint_propagation_algo<A, B>::conflicts(const constraint_runtime_info& info) const {
  const sliced_runtime_info view_a(info, 0, m_a_params);
  if (!m_a.conflicts(view_a)) return false;
  const sliced_runtime_info view_b(info, m_a_params, info.arity());
  return m_b.conflicts(view_b);
}

template <class A, class B>
bool disjoint_propagation_algo<A, B>::constraint_check(const constraint_runtime_info& info) const {
  const sliced_runtime_info view_a(info, 0, m_a_params);
  if (m_a.constraint_check(view_a)) return true;
  const sliced_runtime_info view_b(info, m_a_params, info.arity());
  return m_b.constraint_check(view_b);
}

template <class A, class B>
void disjoint_propagation_algo<A, B>::print(std::ostream& os,
                                            const constraint_runtime_info* info) const {
  print_buffer buffer;
  if (info) {
    info->print_prefix(os);
    const sliced_runtime_info view_a(*info, 0, m_a_params);
    const sliced_runtime_info view_b(*info, m_a_params, info->arity());
    m_a.print(buffer.stream_a(), &view_a);
    m_b.print(buffer.stream_b(), &view_b);
  } else {
    m_a.print(buffer.stream_a(), nullptr);
    m_b.print(buffer.stream_b(), nullptr);
  }
  buffer.flush_to(os);
}

template <class A, class B>
void disjoint_propagation_algo<A, B>::explain_propagation(unsigned int param,
                                                          const small_model::iset& literal,
                                                          const small_model::iset& after,
                                                          const constraint_runtime_info& info,
                                                          literal_vector& explanation) const {
  explanation.reserve(info.arity());
  const sliced_runtime_info view_a(info, 0, m_a_params);
  if (param < m_a_params && !after.empty())
    m_a.explain_propagation(param, literal, after, view_a, explanation);
  else
    m_a.explain_propagation(0, small_model::iset::full(), small_model::iset(), view_a,
                            explanation);
  const literal_vector& clause = m_b.literals();
  explanation.insert(explanation.end(), clause.begin(), clause.end());
}

template class disjoint_propagation_algo<equal_propagator, clause_propagation_algo>;
template class disjoint_propagation_algo<difference_ge_propagator, clause_propagation_algo>;
template class disjoint_propagation_algo<linear_combination_ge_propagator,
                                         clause_propagation_algo>;
template class disjoint_propagation_algo<no_sub_interval_propagator, clause_propagation_algo>;

//==== difference_ge_or_clause_propagator =========================================

bool difference_ge_or_clause_propagator::get_disjunction_specification(
    disjunction_specification& form) const {
  const literal_vector& clause = literals();
  form.declare_literals(clause.data(), unsigned(clause.size()), 2);
  form.declare_owned_constraint(std::make_unique<difference_ge_propagator>(constant()), 0);
  return true;
}

bool difference_ge_or_clause_propagator::may_combine(const constraint_propagator& other) const {
  return difference_ge_propagator::may_combine_diff_ge_propagator(other);
}

std::unique_ptr<constraint_propagator> difference_ge_or_clause_propagator::combine(
    const constraint_runtime_info& info, const constraint_propagator& right,
    const constraint_runtime_info& right_info, const std::vector<unsigned int>& map,
    unsigned int pivot, std::vector<unsigned int>& out) const {
  return disjunction_specification::combine_propagators(info, *this, right, right_info, map,
                                                        pivot, out);
}

}  // namespace zelk
