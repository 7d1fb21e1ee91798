// The live view: reads and writes go to the solver's assignment stack.
#include "impl/constraint_connectivity_info.h"

#include <algorithm>
#include <ostream>

#include "impl/solver.h"

namespace zelk {

bool constraint_connectivity_info::reduced_between_activations(unsigned int param) const {
  const unsigned int var = m_params.at(param);
  const std::uint64_t time = m_solver->stack().var_modification_time(var);
  if (time > m_previous_activation_time) return true;
  // A write of the constraint's own to a variable it holds at two parameters changes
  // the other parameter behind the propagator's back: that one was reduced too.
  return time == m_previous_activation_time &&
         std::count(m_params.begin(), m_params.end(), var) > 1;
}

constraint_runtime_info::queue_type constraint_connectivity_info::originating_queue() const {
  return m_solver->originating_queue();
}

void constraint_connectivity_info::put_in_queue(queue_type queue) {
  m_solver->put_in_queue(m_constraint_index, queue);
}

constraint_connectivity_info::constraint_connectivity_info(solver* owner, unsigned int index)
    : m_solver(owner), m_constraint_index(index & 0x7FFFFFFFu) {
  if (owner) m_trail = &owner->stack();
}

const small_model::iset& constraint_connectivity_info::read_domain(unsigned int param) const {
  return m_solver->stack().domain(m_params.at(param));
}

void constraint_connectivity_info::set_domain(unsigned int param, small_model::iset set) {
  const unsigned int var = m_params.at(param);
  // Writers only narrow: an equal size means an equal set, and no entry is made.
  if (set.size() == m_solver->stack().domain(var).size()) return;
  m_modified_in_activation = true;
  m_solver->set_var_domain(var, set, int(m_constraint_index));
}

void constraint_connectivity_info::deallocate_watch(unsigned int param,
                                                    watch_types::watch_type type,
                                                    watch_handle_t handle) {
  m_solver->deallocate_watch(m_params.at(param), type, handle);
}

watch_handle_t constraint_connectivity_info::allocate_watch(unsigned int param,
                                                            watch_types::watch_type type) {
  return m_solver->allocate_watch(m_params.at(param), type, m_constraint_index);
}

void constraint_connectivity_info::deallocate_value_watch(unsigned int param, int value,
                                                          watch_handle_t handle) {
  m_solver->deallocate_value_watch(m_params.at(param), value, handle);
}

watch_handle_t constraint_connectivity_info::allocate_value_watch(unsigned int param,
                                                                  int value) {
  return m_solver->allocate_value_watch(m_params.at(param), value, m_constraint_index);
}

void constraint_connectivity_info::print(std::ostream& os) const {
  print_prefix(os);
  os << " (";
  for (unsigned int i = 0; i < m_params.size(); ++i) {
    if (i) os << ",";
    print_param(os, i);
  }
  os << ")";
}

void constraint_connectivity_info::print_prefix(std::ostream& os) const {
  os << "constraint[" << m_constraint_index << "]";
}

void constraint_connectivity_info::print_param(std::ostream& os, unsigned int param) const {
  if (!m_solver) {
    os << "NULL_var_printer";
    return;
  }
  m_solver->stack().print_var_name(os, m_params.at(param));
}

void constraint_connectivity_info::finalize_prev_activation(unsigned long long now) {
  m_previous_activation_time = now;
  if (!m_modified_in_activation) return;
  const assignment_stack& stack = m_solver->stack();
  // Most activations that change something write one variable once (a clause's
  // unit). Entry times never fall along the trail, so when the newest entry is the
  // only one of this time and ours, its variable is the only one to notify.
  const unsigned int n = stack.num_modifications();
  if (n > 0) {
    const assignment_stack::variable_modification_entry& last = stack.modification(n - 1);
    if (last.time == now && last.cause == int(m_constraint_index) &&
        (n == 1 || stack.modification(n - 2).time != now)) {
      m_solver->notify_modification(last.variable, int(m_constraint_index));
      return;
    }
  }
  for (unsigned int var : m_params) {
    const unsigned int last = stack.state(var).last_modification;
    if (last != assignment_stack::NO_PREVIOUS_MODIFICATION && stack.modification(last).time == now)
      m_solver->notify_modification(var, int(m_constraint_index));
  }
}

}  // namespace zelk
