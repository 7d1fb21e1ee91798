// The watch-free clause: one scan of all literals per run.
#include "impl/stateless_clause_propagator.h"

#include <ostream>

#include "impl/utilities.h"

namespace zelk {

void stateless_clause_propagator::throw_modifying_clause_at_runtime() {
  throw_runtime_error("Modifying the clause at runtime");
}

propagation_types::result_type stateless_clause_propagator::propagate(
    constraint_runtime_info& info) {
  m_in_use = true;
  unsigned int live = 0;
  unsigned int live_param = 0;
  small_model::iset live_values;
  for (unsigned int i = 0; i < m_literals.size(); ++i) {
    const small_model::iset d = info.domain(i);
    const small_model::iset m = d & m_literals[i];
    if (m == d) return VALID;
    if (m.empty()) continue;
    ++live;
    live_param = i;
    live_values = m;
  }
  if (live == 0) return UNSAT;
  if (live > 1) return CONSISTENT;
  info.set_domain(live_param, live_values);
  return VALID;
}

bool stateless_clause_propagator::conflicts(const constraint_runtime_info& info) const {
  for (unsigned int i = 0; i < m_literals.size(); ++i)
    if (info.domain(i).intersects(m_literals[i])) return false;
  return true;
}

bool stateless_clause_propagator::constraint_check(const constraint_runtime_info& info) const {
  for (unsigned int i = 0; i < m_literals.size(); ++i)
    if (info.domain(i).subset_of(m_literals[i])) return true;
  return false;
}

void stateless_clause_propagator::print(std::ostream& os,
                                        const constraint_runtime_info* info) const {
  os << "stateless_clause[";
  for (unsigned int i = 0; i < m_literals.size(); ++i) {
    if (i) os << ", ";
    if (info) {
      info->print_param(os, i);
      os << ":";
    }
    os << "{" << m_literals[i] << "}";
  }
  os << "]\n";
}

std::unique_ptr<constraint_propagator> stateless_clause_propagator::clone() const {
  return std::make_unique<stateless_clause_propagator>(*this);
}

}  // namespace zelk
