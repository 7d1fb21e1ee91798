// The past view: reads through the assignment stack's history, refuses writes.
#include "impl/constraint_aged_info.h"

#include <ostream>
#include <stdexcept>

namespace zelk {

void constraint_aged_info::put_in_queue(queue_type) {
  throw std::domain_error("Can't put_in_queue for constraint_aged_info");
}

const small_model::iset& constraint_aged_info::read_domain(unsigned int param) const {
  if (m_domains.size() <= param) m_domains.resize(m_info->arity() > param ? m_info->arity()
                                                                           : param + 1);
  m_domains[param] = m_stack->var_domain_after_modification(m_map->to_variable(param), m_time);
  return m_domains[param];
}

void constraint_aged_info::set_domain(unsigned int, small_model::iset) {
  throw std::domain_error("Domain can't be updated for a constraint_aged_info");
}

void constraint_aged_info::deallocate_watch(unsigned int param, watch_types::watch_type type,
                                            watch_handle_t handle) {
  if (!m_writable) throw std::domain_error("Can't deallocate watches on const info objects");
  m_writable->deallocate_watch(param, type, handle);
}

watch_handle_t constraint_aged_info::allocate_watch(unsigned int param,
                                                    watch_types::watch_type type) {
  if (!m_writable) throw std::domain_error("Can't allocate watches on const info objects");
  return m_writable->allocate_watch(param, type);
}

void constraint_aged_info::deallocate_value_watch(unsigned int param, int value,
                                                  watch_handle_t handle) {
  if (!m_writable) throw std::domain_error("Can't deallocate watches on const info objects");
  m_writable->deallocate_value_watch(param, value, handle);
}

watch_handle_t constraint_aged_info::allocate_value_watch(unsigned int param, int value) {
  if (!m_writable) throw std::domain_error("Can't allocate watches on const info objects");
  return m_writable->allocate_value_watch(param, value);
}

unsigned int constraint_aged_info::latest_modified_param(unsigned int before) const {
  if (!m_use_ages) return NO_PARAM;
  unsigned int best = NO_PARAM;
  unsigned int best_entry = assignment_stack::NO_PREVIOUS_MODIFICATION;
  const unsigned int n = arity();
  for (unsigned int i = 0; i < n; ++i) {
    if (i == before) continue;
    const unsigned int e = m_stack->var_modification_entry_before(m_map->to_variable(i), m_time + 1);
    if (e == assignment_stack::NO_PREVIOUS_MODIFICATION) continue;
    if (best == NO_PARAM || e > best_entry) {
      best = i;
      best_entry = e;
    }
  }
  return best;
}

void constraint_aged_info::print(std::ostream& os) const {
  const unsigned int n = arity();
  for (unsigned int i = 0; i < n; ++i) {
    if (i) os << ", ";
    print_param(os, i);
    os << "={" << domain(i) << "}";
  }
}

}  // namespace zelk
