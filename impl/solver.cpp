// The solver object: model building, the main search loop, propagation
// scheduling, the decision heuristic's choice, the objective loop and the
// learned-constraint store. Conflict analysis lives in the second half.
//
// Entry point: solve(). It runs solve_current_constraints (plain search, each
// round of the enumeration of all solutions, each round of the optimisation
// loop), which runs solve_impl, the one main loop.
#include "impl/solver.h"

#include <algorithm>
#include <cassert>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>

#include "impl/clause_data.h"
#include "impl/clause_propagator.h"
#include "impl/conflict_constraint_dependency.h"
#include "impl/constraint_aged_info.h"
#include "impl/explanation_generators.h"
#include "impl/formula.h"
#include "impl/learned_type.h"
#include "impl/proof_checker_visitor.h"
#include "impl/proof_collector.h"
#include "impl/proof_interpolant_visitor.h"
#include "impl/timer.h"

namespace zelk {

std::ostream& operator<<(std::ostream& os, solver::result_type result) {
  switch (result) {
    case solver::SAT: return os << "SAT";
    case solver::UNSAT: return os << "UNSAT";
    case solver::BACKTRACK_LIMIT: return os << "BACKTRACK_LIMIT";
    case solver::TIMEOUT: return os << "TIMEOUT";
    case solver::MEMOUT: return os << "MEMOUT";
    case solver::SAT_DONE: return os << "SAT_DONE";
    case solver::OPTIMAL: return os << "OPTIMAL";
  }
  return os;
}

//==== construction ===========================================================

solver::solver()
    : m_proof_collector(std::make_unique<proof_collector_dummy>()),
      m_event_heap(variable_event::comparator(m_stack)),
      m_proof_stream(&std::cout) {
  m_level_backtracks.push_back(0);
}

solver::~solver() {
  m_connectivity.clear();
  while (!m_propagators.empty()) m_propagators.pop_back();
}

//==== output the formats may override ==========================================

void solver::print_solution(std::ostream& out) const {
  out << comment_prefix << " ";
  const unsigned int n = std::min(reported_variable_count, num_variables());
  for (unsigned int v = 0; v < n; ++v) {
    m_stack.print_var_name(out, v);
    out << "=" << m_stack.domain(v) << ", ";
  }
  out << "\nv ";
  for (unsigned int v = 0; v < n; ++v) out << m_stack.domain(v) << " ";
  out << std::endl;
}

int solver::evaluate_objective() const { return m_stack.domain(unsigned(objective_variable)).max(); }

//==== model building ===========================================================

unsigned int solver::add_var(small_model::iset domain, const char* name, bool is_constant) {
  return m_stack.add_var(domain, name, is_constant);
}

unsigned int solver::singleton_var(int value) { return m_stack.singleton_var(value); }

constraint_connectivity_info& solver::add_constraint(
    std::unique_ptr<constraint_propagator> propagator) {
  m_connectivity.emplace_back(this, unsigned(m_propagators.size()));
  try {
    m_propagators.push_back(std::move(propagator));
  } catch (...) {
    m_connectivity.pop_back();
    throw;
  }
  return m_connectivity.back();
}

void solver::set_var_domain(unsigned int var, small_model::iset domain, int cause) {
  if (!m_searching)
    m_stack.set_var_initial_domain(var, domain);
  else
    m_stack.set_var_domain(var, domain, m_time, cause);
}

solver::label_type solver::variable_labels(unsigned int var) const {
  return m_stack.variable_labels(var);
}

solver::label_type solver::variable_labels(unsigned int var, label_type label) {
  return m_stack.variable_labels(var, label);
}

solver::label_type solver::constraint_labels(unsigned int constraint) const {
  if (constraint >= m_connectivity.size()) throw std::out_of_range("constraint_labels");
  if (constraint < m_learned_labelled.size() && m_learned_labelled[constraint]) return LEARNED_LABEL;
  return constraint < m_constraint_labels.size() ? m_constraint_labels[constraint] : 0;
}

solver::label_type solver::constraint_labels(unsigned int constraint, label_type label) {
  const label_type old = constraint_labels(constraint);
  if (constraint < m_learned_labelled.size()) m_learned_labelled[constraint] = false;
  if (constraint >= m_constraint_labels.size()) m_constraint_labels.resize(constraint + 1, 0);
  m_constraint_labels[constraint] = label;
  return old;
}

std::vector<solver::label_type> solver::variables_touched_by_labels() const {
  std::vector<label_type> result(num_variables());
  for (unsigned int v = 0; v < result.size(); ++v) result[v] = m_stack.variable_labels(v);
  for (unsigned int c = 0; c < m_connectivity.size(); ++c) {
    const label_type labels = constraint_labels(c);
    for (unsigned int v : m_connectivity[c].params()) result[v] |= labels;
  }
  return result;
}

void solver::get_constraint_variables(unsigned int constraint,
                                      std::vector<unsigned int>& out) const {
  out = m_connectivity.at(constraint).params();
}

void solver::print_constraint(std::ostream& os, unsigned int constraint) const {
  m_propagators.at(constraint)->print(os, &m_connectivity[constraint]);
}

bool solver::is_clause(unsigned int constraint) const {
  return constraint < m_propagators.size() &&
         m_propagators[constraint] && m_propagators[constraint]->as_clause() != nullptr;
}

const std::vector<small_model::iset>& solver::clause_literals(unsigned int constraint) const {
  return m_propagators.at(constraint)->as_clause()->literals();
}

bool solver::want_proof() const { return m_proof_collector->want_proof(); }

void solver::produce_proof(bool produce) {
  if (produce)
    m_proof_collector = std::make_unique<zelk::proof_collector>(this);
  else
    m_proof_collector = std::make_unique<proof_collector_dummy>();
}

void solver::print_recent_proof(std::ostream& os) const { m_proof_collector->print_proof(os); }

formula solver::get_interpolant() const {
  // Only a recorded proof has the steps; under it every learned constraint is a
  // clause with its derivation on record, which the interpolant follows.
  const zelk::proof_collector* collector =
      dynamic_cast<const zelk::proof_collector*>(m_proof_collector.get());
  if (!collector)
    throw std::runtime_error(
        "solver::print_interpolant() works only when proof mechanism is activated");
  proof_interpolant_visitor visitor(*collector, *this);
  collector->traverse_proof(visitor);
  return visitor.get_interpolant();
}

void solver::show_self() const {
  for (unsigned int v = 0; v < num_variables(); ++v) {
    std::cout << v << ": ";
    m_stack.print_var_name(std::cout, v);
    std::cout << "=" << m_stack.domain(v) << "\n";
  }
}

void solver::reset() { m_stack.clear(); }

bool solver::has_empty_domains() const {
  for (unsigned int v = 0; v < num_variables(); ++v)
    if (m_stack.domain(v).empty()) return true;
  return false;
}

bool solver::audit() const {
  if (!m_stack.audit()) return false;
  const std::size_t constraints = m_propagators.size();
  if (m_connectivity.size() != constraints || m_first_learned > constraints) return false;
  for (unsigned int c = 0; c < m_first_learned; ++c)
    if (!m_propagators[c]) return false;  // only learned constraints are ever erased
  for (const constraint_run_level& dirty : m_dirty_learned_constraints)
    if (dirty.constraint < m_first_learned || dirty.constraint >= constraints) return false;
  std::size_t in_heap = 0;
  for (const event_mark& mark : m_event_marks) in_heap += mark.in_heap;
  if (in_heap != m_event_heap.size()) return false;
  for (const variable_event& event : m_event_heap)
    if (event.variable >= m_event_marks.size() || !m_event_marks[event.variable].in_heap ||
        (*m_event_marks[event.variable].handle).variable != event.variable)
      return false;
  for (const auto& w : m_event_watchers)
    if (!w.audit(constraints)) return false;
  for (const auto& w : m_value_watchers)
    if (!w.audit(constraints)) return false;
  return true;
}

//==== running ==================================================================

solver::result_type solver::solve(std::ostream* out) {
  m_total_backtracks = 0;
  m_restarts = 0;
  m_assignments = 0;
  m_combines = 0;
  m_non_fallback_combines = 0;
  m_non_fallback_learned = 0;
  m_fallback_used = false;
  m_proof_stream = out ? out : &std::cout;
  std::ostream& os = *m_proof_stream;

  if (has_empty_domains()) return UNSAT;
  if (objective_variable >= 0) return optimize();

  result_type r = solve_current_constraints(false);
  if (r == UNSAT) {
    manage_unsat();
    return r;
  }
  if (r != SAT || !all_solutions) return r;

  // Enumeration: each solution is excluded by a clause over the variables the
  // model declared. Auxiliary variables that the model does not fix (partial
  // sums that only bound a sum, say) would otherwise repeat a solution.
  os << "\n";
  for (;;) {
    print_solution(os);
    const unsigned int n = std::min(reported_variable_count, num_variables());
    std::vector<small_model::iset> literals(n);
    for (unsigned int v = 0; v < n; ++v) literals[v] = ~m_stack.domain(v);
    constraint_connectivity_info& info =
        add_constraint(std::make_unique<clause_propagator>(std::move(literals)));
    for (unsigned int v = 0; v < n; ++v) info << v;
    m_stack.clear();
    if (solve_current_constraints(false) != SAT) {
      m_stack.clear();
      return SAT_DONE;
    }
  }
}

void solver::validate_flags_consistency() const {
  if (should_intersect_with_ground && want_proof())
    throw std::runtime_error("Proofs are invalid with should_intersect_with_ground()");
}

solver::result_type solver::solve_current_constraints(bool first_of_optimization) {
  validate_flags_consistency();
  if (has_empty_domains()) return UNSAT;
  m_time = 2;
  try {
    if (report_level > 0 && m_stack.print_singleton_variables(std::cout)) std::cout << std::endl;
    const result_type r = solve_impl(first_of_optimization);
    if (r != SAT) m_proof_collector->prepare_to_print();
    return r;
  } catch (const timeout_exception&) {
    return TIMEOUT;
  } catch (const std::bad_alloc&) {
    return MEMOUT;
  }
}

solver::result_type solver::solve_impl(bool first_of_optimization) {
  struct searching_guard {
    bool& flag;
    bool saved;
    ~searching_guard() { flag = saved; }
  } guard{m_searching, m_searching};
  m_searching = true;

  prepare_for_solve();
  if (!first_time_propagate_constraints()) {
    if (want_proof()) {
      int asserted;
      analyze_conflict(asserted);
    }
    return UNSAT;
  }

  result_type result = SAT;
  try {
    for (;;) {
      if (!propagate_constraints()) {
        int asserted = -1;
        const int level = analyze_conflict(asserted);
        if (level < 0) {
          result = UNSAT;
          break;
        }
        const result_type r = backtrack(level, asserted);
        if (r != SAT) {
          result = r;
          break;
        }
        if (asserted >= 0)
          m_dirty_learned_constraints.push_back({UNINITIALIZED_LEVEL, unsigned(asserted)});
        ZELK_AUDIT_CHECK(audit());
        continue;
      }
      ZELK_AUDIT_CHECK(audit());
      const int v = choose_free_variable();
      if (v < 0) {
        result = SAT;
        break;
      }
      restrict_variable(unsigned(v), first_of_optimization);
      if (report_level > 0) std::cout << "choice depth = " << m_stack.depth() << "\n";
    }
  } catch (...) {
    forget_all_watches();
    throw;
  }
  forget_all_watches();
  return result;
}

void solver::prepare_for_solve() {
  m_current_restart_threshold = restart_threshold;
  m_last_chosen_variable = -1;
  m_recent_conflict_variables.clear();
  m_level_backtracks.assign(1, 0);
  clear_event_heap();
  m_event_marks.assign(num_variables(), event_mark());
  m_constraint_queue.clear();
  m_conflicts = 0;
  m_backtracks_since_restart = 0;
}

bool solver::first_time_propagate_constraints() {
  const unsigned int n_vars = num_variables();
  m_event_watchers.clear();
  m_value_watchers.clear();
  m_event_watchers.resize(n_vars);
  m_value_watchers.resize(n_vars);

  m_stack.reset_var_costs(analysis_cost_factor);
  m_stack.disable_var_costs_heap();
  m_originating_queue = constraint_runtime_info::CONSTRAINT_QUEUE;

  const unsigned int n = num_constraints();
  m_first_learned = n;
  m_dependencies = std::make_unique<conflict_constraint_dependency>(n);
  m_dirty_learned_constraints.clear();
  produce_proof(want_proof());

  // Constraints with a higher index run in this loop anyway: only those already
  // passed need a place in the queue.
  unique_queue<void> pending;
  pending.set_max_elements(n);
  for (unsigned int c = 0; c < n; ++c) {
    if (!m_propagators[c]) continue;
    initial_intersect_with_ground(c);
    const unsigned int last = m_stack.num_modifications() == 0
                                  ? assignment_stack::NO_PREVIOUS_MODIFICATION
                                  : m_stack.num_modifications() - 1;
    if (!init_one_constraint(c, last, false)) return false;
    if (!propagate_one_constraint(c, false)) return false;
    while (!m_constraint_queue.empty()) {
      const unsigned int q = m_constraint_queue.pop();
      if (q <= c) pending.insert(q);
    }
  }
  if (!pending.empty()) m_constraint_queue = std::move(pending);
  if (!propagate_constraints()) return false;

  for (unsigned int c = 0; c < n; ++c)
    if (m_propagators[c]) add_constraint_cost_to_variables(c, 1.0, nullptr);
  m_stack.enable_var_costs_heap();
  return true;
}

void solver::initial_intersect_with_ground(unsigned int c) {
  if (!should_intersect_with_ground) return;
  constraint_connectivity_info& info = m_connectivity[c];
  std::vector<unsigned int> order;
  std::unique_ptr<constraint_propagator> simplified = m_propagators[c]->intersect_with(info, order);
  if (!simplified) return;
  if (report_level > 1) {
    std::cout << "Simplifying ";
    print_constraint(std::cout, c);
    std::cout << " using initial domains\n";
    for (unsigned int i = 0; i < info.arity(); ++i) {
      if (i) std::cout << ", ";
      info.print_param(std::cout, i);
      std::cout << "={" << info.domain(i) << "}";
    }
    std::cout << "\n";
  }
  bool identity = order.size() == info.arity();
  for (unsigned int i = 0; identity && i < order.size(); ++i) identity = order[i] == i;
  if (!identity) {
    std::vector<unsigned int> params;
    params.reserve(order.size());
    for (unsigned int p : order) params.push_back(info.params()[p]);
    info.params().swap(params);
  }
  m_propagators[c] = std::move(simplified);
  if (report_level > 1) {
    std::cout << "to ";
    print_constraint(std::cout, c);
    std::cout << "\n";
  }
}

bool solver::init_one_constraint(unsigned int c, unsigned int modification, bool dirty) {
  constraint_connectivity_info& info = m_connectivity[c];
  constraint_propagator& propagator = *m_propagators[c];
  propagation_types::result_type r;
  if (dirty && info.arity() > max_conflict_clause) {
    // Too long to keep watches: it only runs when the solver runs it.
    constraint_watchless_info view(info);
    r = propagator.init(view);
    propagator.forget_watches();
  } else {
    constraint_aged_info view(info, m_stack, modification + 1, 0);
    r = propagator.init(view);
  }
  info.clear_previous_activation_time();
  info.clear_modified();
  m_last_constraint = c;
  if (r == propagation_types::UNSAT && report_level > 0) {
    std::cout << m_time << " UNSAT ";
    print_constraint(std::cout, c);
    std::cout << "\n";
  }
  return r != propagation_types::UNSAT;
}

void solver::tick() {
  if (m_time == std::numeric_limits<std::uint64_t>::max()) throw timeout_exception();
  ++m_time;
}

void solver::restrict_variable(unsigned int var, bool first_of_optimization) {
  ++m_assignments;
  const small_model::iset domain = m_stack.domain(var);
  const assignment_stack::previous_value& saved = m_stack.previously_assigned_value(var);
  const bool is_objective = int(var) == objective_variable;
  int value;
  if (!first_of_optimization && is_objective) {
    value = minimize ? domain.min() : domain.max();
  } else if (saved.has_value) {
    if (domain.contains(saved.value)) {
      value = saved.value;
    } else {
      const int lo = domain.min();
      const int hi = domain.max();
      if (saved.value <= (hi + 2 * lo) / 3)
        value = lo;
      else if (saved.value > (lo + 2 * hi) / 3)
        value = hi;
      else
        value = random::gen(2) != 0 ? lo : hi;
    }
  } else {
    value = first_of_optimization && is_objective && !minimize ? domain.max() : domain.min();
  }
  if (report_level > 0) {
    std::cout << m_time << " restrict:: ";
    m_stack.print_var_name(std::cout, var);
    std::cout << " := " << value << "\n";
  }
  if (m_stack.depth() == 0 && !m_stack.has_level0_domain(var)) m_stack.construct_level0_domains();
  m_stack.push_decision(var);
  m_stack.set_var_domain(var, small_model::iset::singleton(value), m_time, -1);
  m_level_backtracks.push_back(m_backtracks_since_restart);
  notify_modification(var, -1);
  tick();
}

solver::result_type solver::backtrack(int level, int asserted) {
  clear_event_heap();
  m_constraint_queue.clear();
  ++m_total_backtracks;
  ++m_backtracks_since_restart;
  ++m_conflicts;
  if (m_conflicts > backtrack_limit) return BACKTRACK_LIMIT;
  m_stack.lower_var_costs();
  remove_unused_conflict_constraints_maybe();
  if (compute_restart(level)) {
    restart();
    return SAT;
  }
  const unsigned int undone = unsigned(level) + 1;
  const unsigned int var = m_stack.decision_variable(undone);
  const int value = m_stack.decision_value(undone);
  m_stack.undo_level(undone);
  m_level_backtracks.resize(undone);
  if (report_level > 0) {
    std::cout << m_time << " backtrack " << m_total_backtracks << " undo choice ";
    m_stack.print_var_name(std::cout, var);
    std::cout << " = " << value << "\n";
  }
  // Without a learned constraint nothing else flips the search.
  if (asserted < 0) complement_decision(var, small_model::iset::singleton(value));
  if (report_level > 1) show_self();
  if (report_level > 0) std::cout << "choice depth = " << m_stack.depth() << "\n";
  return SAT;
}

void solver::complement_decision(unsigned int var, small_model::iset set) {
  if (report_level > 0) {
    std::cout << m_time << " Remove bad values :: ";
    m_stack.print_var_name(std::cout, var);
    std::cout << " in {" << set << "}\n";
  }
  set_var_domain(var, m_stack.domain(var) - set, -1);
  notify_level_changes(var);
  tick();
  if (!m_stack.domain(var).is_singleton()) restrict_variable(var, false);
}

bool solver::compute_restart(int level) {
  if (level == 0 || m_current_restart_threshold == 0) return false;
  const unsigned int n = m_backtracks_since_restart - m_level_backtracks[unsigned(level)];
  if (n < m_current_restart_threshold) return false;
  m_current_restart_threshold = (3 * m_current_restart_threshold + 1) / 2;
  if (report_level > 0)
    std::cout << "Next restart after " << m_current_restart_threshold << " backtracks\n";
  return true;
}

void solver::restart() {
  for (unsigned int l = 1; l <= m_stack.depth(); ++l)
    m_recent_conflict_variables.push_back(m_stack.decision_variable(l));
  m_last_chosen_variable = -1;
  if (m_stack.depth() > 0) m_stack.undo_level(1);
  m_stack.forget_previously_assigned_var_values();
  m_backtracks_since_restart = 0;
  ++m_restarts;
  if (report_level > 0) std::cout << m_time << " restart " << m_restarts << "\n";
  if (report_level > 1) show_self();
  if (report_level > 0) std::cout << "choice depth = 0\n";
  m_level_backtracks.assign(1, 0);
}

void solver::manage_unsat() {
  if (print_proof) m_proof_collector->print_proof(*m_proof_stream);
  if (validate_unsat && !is_correctly_unsat()) throw std::runtime_error("Bad UNSAT result");
}

bool solver::is_correctly_unsat() const {
  // Qualified: inside solver, proof_collector names the accessor.
  const zelk::proof_collector* collector =
      dynamic_cast<const zelk::proof_collector*>(m_proof_collector.get());
  if (collector == nullptr)
    throw std::runtime_error(
        "solver::is_correctly_unsat() works only when proof mechanism is activated");
  proof_checker_visitor checker(*collector, m_proof_stream);
  collector->traverse_proof(checker);
  return checker.result();
}

void solver::forget_all_watches() {
  for (std::unique_ptr<constraint_propagator>& p : m_propagators)
    if (p) p->forget_watches();
  m_event_watchers.clear();
  m_value_watchers.clear();
}

//==== watches ==================================================================

watch_handle_t solver::allocate_watch(unsigned int var, watch_types::watch_type type,
                                      unsigned int constraint) {
  return m_event_watchers.at(var).allocate_watch(int(type), constraint);
}

void solver::deallocate_watch(unsigned int var, watch_types::watch_type type,
                              watch_handle_t handle) {
  m_event_watchers.at(var).deallocate_watch(int(type), handle);
}

watch_handle_t solver::allocate_value_watch(unsigned int var, int value,
                                            unsigned int constraint) {
  return m_value_watchers.at(var).allocate_watch(value, constraint);
}

void solver::deallocate_value_watch(unsigned int var, int value, watch_handle_t handle) {
  m_value_watchers.at(var).deallocate_watch(value, handle);
}

//==== propagation scheduling ====================================================

bool solver::variable_event::comparator::operator()(const variable_event& a,
                                                    const variable_event& b) const {
  const unsigned int decision = m_stack->deepest_decision_modification();
  const assignment_stack::variable_state& va = m_stack->state(a.variable);
  const assignment_stack::variable_state& vb = m_stack->state(b.variable);
  // Exact in 64 bits (sizes up to 32, distances below 2^32), as the doubles were.
  const std::int64_t sa = va.domain.size();
  const std::int64_t sb = vb.domain.size();
  const std::int64_t lost_a = std::int64_t(a.previous_size) - sa;
  const std::int64_t lost_b = std::int64_t(b.previous_size) - sb;
  return sa * lost_b * std::int64_t(va.last_modification - decision) >
         sb * lost_a * std::int64_t(vb.last_modification - decision);
}

void solver::clear_event_heap() {
  for (const variable_event& event : m_event_heap)
    if (event.variable < m_event_marks.size()) m_event_marks[event.variable].in_heap = false;
  m_event_heap.clear();
}

// A constraint may narrow one variable twice in one activation (a table cuts a
// column to the values it lists, then to those it supports). The event starts at
// the first of those writes: starting at the last, the values the first one
// removed would never wake their value watchers, and a clause watching one of
// them would miss its conflict.
void solver::notify_modification(unsigned int var, int source) {
  event_mark& mark = m_event_marks[var];
  if (mark.in_heap) return;
  unsigned int first = m_stack.state(var).last_modification;
  if (source >= 0) {
    const assignment_stack::variable_modification_entry& last = m_stack.modification(first);
    for (;;) {
      const unsigned int prev = m_stack.modification(first).previous_modification;
      if (prev == assignment_stack::NO_PREVIOUS_MODIFICATION) break;
      const assignment_stack::variable_modification_entry& entry = m_stack.modification(prev);
      if (entry.time != last.time || entry.cause != source) break;
      first = prev;
    }
  }
  mark.in_heap = true;
  mark.handle = m_event_heap.push(
      variable_event{var, first == m_stack.state(var).last_modification
                              ? m_stack.state(var).previous_size
                              : m_stack.modification(first).previous_domain.size(),
                     first});
}

// The event of a complement covers every change of the variable at the present
// level, not only the newest. The decision that follows a complement at once
// shares its event, and a conflict at that decision's level drops the event
// before every watcher has seen it; the complement's own removal survives the
// backtrack, so a watcher that missed it must see it with the next event.
void solver::notify_level_changes(unsigned int var) {
  event_mark& mark = m_event_marks[var];
  if (mark.in_heap) return;
  const unsigned int depth = m_stack.depth();
  const unsigned int level_start = depth == 0 ? 0 : m_stack.decision_modification(depth);
  unsigned int first = m_stack.state(var).last_modification;
  for (;;) {
    const unsigned int prev = m_stack.modification(first).previous_modification;
    if (prev == assignment_stack::NO_PREVIOUS_MODIFICATION || prev < level_start) break;
    first = prev;
  }
  mark.in_heap = true;
  mark.handle = m_event_heap.push(
      variable_event{var, m_stack.modification(first).previous_domain.size(), first});
}

void solver::put_in_queue(unsigned int constraint, constraint_runtime_info::queue_type queue) {
  if (queue != constraint_runtime_info::CONSTRAINT_QUEUE)
    throw std::runtime_error("solver::put_in_queue() works only for CONSTRAINT_QUEUE");
  if (m_constraint_queue.max_elements() < m_propagators.size())
    m_constraint_queue.set_max_elements(m_propagators.size());
  m_constraint_queue.insert(constraint);
}

small_model::iset solver::removed_values(unsigned int var, unsigned int modification) const {
  return m_stack.modification(modification).previous_domain - m_stack.domain(var);
}

bool solver::propagate_one_constraint(unsigned int c, bool report) {
  constraint_connectivity_info& info = m_connectivity[c];
  info.clear_modified();
  const propagation_types::result_type r = m_propagators[c]->propagate(info);
  if (r == propagation_types::POSTPONE) {
    m_last_constraint = c;
    if (report_level > 0 || report) report_last_propagation(r, report);
  } else {
    if (r == propagation_types::VALID && c < m_constraint_queue.max_elements())
      m_constraint_queue.mark(c);
    info.finalize_prev_activation(m_time);
    m_last_constraint = c;
    if (report_level > 0 || report) report_last_propagation(r, report);
    tick();
  }
  if (info.modified_in_activation() && c >= m_first_learned && m_dependencies)
    m_dependencies->mark_used(c, m_conflicts);
  return r != propagation_types::UNSAT;
}

// What propagate_one_constraint records for an activation that answers "valid"
// and changes nothing, without calling the propagator.
void solver::note_valid_activation(unsigned int c) {
  constraint_connectivity_info& info = m_connectivity[c];
  info.clear_modified();
  if (c < m_constraint_queue.max_elements()) m_constraint_queue.mark(c);
  info.finalize_prev_activation(m_time);
  m_last_constraint = c;
  tick();
}

// Activates the watchers of the keys whose bit is set in `keys`, keys from the
// last to the first, each list from the back. An activation may release the
// present watcher or add watchers: the next position is taken before it, and the
// key entry is read again through its index, as the vector of keys may grow.
template <class Watchers>
bool solver::activate_watchers(Watchers& watchers, std::uint32_t keys) {
  typename Watchers::for_each_cleaner guard(watchers);
  for (std::size_t k = watchers.num_keys(); k-- > 0;) {
    const int key = watchers.key_at(k).key;
    if (unsigned(key) > 31u || !((keys >> unsigned(key)) & 1u)) continue;
    var_watchers_base::list_type& list = watchers.key_at(k).watchers;
    if (list.empty()) continue;
    auto current = std::prev(list.end());
    for (;;) {
      const bool first = current == watchers.key_at(k).watchers.begin();
      const auto next = first ? current : std::prev(current);
      const var_watchers_base::watcher_info_type& w = *current;
      if (!first) {
        // The next watcher's objects are scattered on the heap: ask for them while
        // this one runs.
        const unsigned int nc = next->constraint;
        __builtin_prefetch(m_propagators[nc].get());
        __builtin_prefetch(&m_connectivity[nc]);
      }
      if (w.filter_var != var_watchers_base::NO_FILTER && report_level == 0 &&
          (m_stack.domain(w.filter_var).bits() & ~w.filter_bits) == 0)
        note_valid_activation(w.constraint);
      else if (!propagate_one_constraint(w.constraint, false))
        return false;
      if (first) break;
      current = next;
    }
  }
  return true;
}

bool solver::propagate_constraints_touching_var(unsigned int var, unsigned int modification) {
  const small_model::iset before = m_stack.modification(modification).previous_domain;
  const small_model::iset now = m_stack.domain(var);
  // A value watch fires when its value was lost since the event's first change.
  if (!m_value_watchers[var].empty() &&
      !activate_watchers(m_value_watchers[var], (before - now).bits()))
    return false;
  var_event_watchers& watchers = m_event_watchers[var];
  if (watchers.empty()) return true;
  std::uint32_t mask = 1u << MODIFICATION_WATCH;
  if (now.is_singleton()) mask |= 1u << FINALIZATION_WATCH;
  if (!now.empty() && !before.empty()) {
    if (watchers.watches(LOWER_BOUND_WATCH) && now.min() != before.min())
      mask |= 1u << LOWER_BOUND_WATCH;
    if (watchers.watches(UPPER_BOUND_WATCH) && now.max() != before.max())
      mask |= 1u << UPPER_BOUND_WATCH;
  }
  return activate_watchers(watchers, mask);
}

bool solver::propagate_constraints_in_variable_queue() {
  m_originating_queue = constraint_runtime_info::VARIABLE_QUEUE;
  while (!m_event_heap.empty()) {
    const variable_event event = m_event_heap.top();
    m_event_heap.pop();
    m_event_marks[event.variable].in_heap = false;
    if (!propagate_constraints_touching_var(event.variable, event.modification)) return false;
  }
  return true;
}

bool solver::propagate_constraint_in_constraint_queue() {
  while (!m_constraint_queue.empty()) {
    m_originating_queue = constraint_runtime_info::CONSTRAINT_QUEUE;
    if (!propagate_one_constraint(m_constraint_queue.pop(), false)) return false;
    if (!m_event_heap.empty()) break;  // variable events go first
  }
  return true;
}

bool solver::propagate_dirty_learned_constraint(constraint_run_level& entry) {
  m_originating_queue = constraint_runtime_info::CONSTRAINT_QUEUE;
  const unsigned int depth = m_stack.depth();
  if (entry.level == UNINITIALIZED_LEVEL) {
    unsigned int m;
    if (depth > 0)
      m = m_stack.decision_modification(depth) - 1;
    else
      m = m_stack.num_modifications() == 0 ? assignment_stack::NO_PREVIOUS_MODIFICATION
                                           : m_stack.num_modifications() - 1;
    if (!init_one_constraint(entry.constraint, m, true)) return false;
  }
  const bool ok = propagate_one_constraint(entry.constraint, report_level >= 1);
  entry.level = depth;
  return ok;
}

bool solver::propagate_constraints() {
  std::vector<constraint_run_level>& dirty = m_dirty_learned_constraints;
  const std::size_t n = dirty.size();
  const unsigned int depth = m_stack.depth();
  std::size_t last_run = n;
  bool failed = false;
  for (std::size_t k = n; k-- > 0;) {
    if (dirty[k].level != UNINITIALIZED_LEVEL && dirty[k].level <= depth) break;
    last_run = k;
    if (!propagate_dirty_learned_constraint(dirty[k])) {
      failed = true;
      break;
    }
  }
  if (depth == 0) {
    dirty.clear();
  } else if (last_run < n) {
    // Clauses have proper watches by now; over-large constraints have none and
    // act once, at the level they assert at.
    std::size_t kept = last_run;
    for (std::size_t k = last_run; k < n; ++k) {
      const unsigned int c = dirty[k].constraint;
      if (!m_propagators[c] || is_clause(c) || m_connectivity[c].arity() > max_conflict_clause)
        continue;
      dirty[kept++] = dirty[k];
    }
    dirty.resize(kept);
  }
  if (failed) return false;
  while (!m_constraint_queue.empty() || !m_event_heap.empty()) {
    if (!propagate_constraints_in_variable_queue()) return false;
    if (!propagate_constraint_in_constraint_queue()) return false;
  }
  return true;
}

void solver::report_last_propagation(propagation_types::result_type result, bool forced) const {
  if (report_level == 0 && !forced) return;
  if (report_level == 1 && !forced && result != propagation_types::UNSAT) return;
  const unsigned int c = m_last_constraint;
  const constraint_connectivity_info& info = m_connectivity[c];
  const bool modified = info.modified_in_activation();
  const unsigned long long when = info.previous_activation_time();
  if (report_level > 2 || result == propagation_types::UNSAT) {
    std::cout << m_time << " " << result << " ";
    if (modified && m_stack.num_modifications() > 0) {
      constraint_aged_info view(info, m_stack, m_stack.num_modifications() - 1, 0);
      m_propagators[c]->print(std::cout, &view);
    } else {
      print_constraint(std::cout, c);
    }
    std::cout << "\n";
  }
  if ((report_level >= 2 && modified) || forced) {
    for (unsigned int i = 0; i < info.arity(); ++i) {
      const unsigned int var = info.params()[i];
      const unsigned int last = m_stack.state(var).last_modification;
      if (last == assignment_stack::NO_PREVIOUS_MODIFICATION ||
          m_stack.modification(last).time != when || m_stack.modification(last).cause != int(c))
        continue;
      std::cout << m_time << " constraint[" << c << "] changed param[" << i << "] ";
      m_stack.print_var_name(std::cout, var);
      std::cout << " := {" << m_stack.domain(var) << "}";
      if (forced && modified) {
        unsigned int first = last;
        while (true) {
          const unsigned int prev = m_stack.modification(first).previous_modification;
          if (prev == assignment_stack::NO_PREVIOUS_MODIFICATION ||
              m_stack.modification(prev).time != when)
            break;
          first = prev;
        }
        std::cout << " removed {" << removed_values(var, first) << "}";
      }
      std::cout << "\n";
    }
  }
}

//==== decision heuristic ==========================================================

int solver::choose_free_variable() {
  if (m_stack.find_best_free_variable() == 0xFFFFFFFFu) return -1;
  int best = m_last_chosen_variable;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < m_recent_conflict_variables.size(); ++i) {
    const unsigned int v = m_recent_conflict_variables[i];
    if (m_stack.domain(v).is_singleton()) continue;
    m_recent_conflict_variables[kept++] = v;
    if (m_stack.is_better_variable(int(v), best, 1)) best = int(v);
  }
  m_recent_conflict_variables.resize(kept);
  const int h = int(m_stack.find_best_free_variable());
  const int choice = m_stack.is_better_variable(h, best, int(conflict_cost_factor)) ? h : best;
  m_last_chosen_variable = choice;
  return choice;
}

void solver::add_constraint_cost_to_variables(unsigned int constraint, double amount,
                                              const std::vector<small_model::iset>* literals) {
  if (!literals && is_clause(constraint)) literals = &clause_literals(constraint);
  const std::vector<unsigned int>& params = m_connectivity[constraint].params();
  if (!literals) {
    for (std::size_t i = params.size(); i-- > 0;) m_stack.add_var_cost(int(params[i]), amount);
    return;
  }
  const std::size_t n = std::min(literals->size(), params.size());
  for (std::size_t i = n; i-- > 0;) {
    // A literal that can never hold does not count.
    if ((*literals)[i].intersects(m_stack.var_domain_end_level(params[i], 0)))
      m_stack.add_var_cost(int(params[i]), amount);
  }
}

//==== optimisation loop ============================================================

solver::result_type solver::optimize() {
  if (!quiet_optimization)
    std::cout << comment_prefix << " ==== Solving SAT problem at first ====" << std::endl;
  timer t;
  result_type r = solve_current_constraints(true);
  advance_iteration_time(t);
  if (r != SAT) {
    m_stack.clear();
    return r;
  }
  std::cout << status_prefix << " SATISFIABLE\n";
  while (improve_solution(t, r)) {
  }
  if (r == UNSAT) {
    std::cout << comment_prefix << " ==== went past best value ====" << std::endl;
    std::cout << status_prefix << " OPTIMUM FOUND\n";
    m_stack.clear();
  } else if (r != SAT) {
    std::cout << comment_prefix << " ==== run did not succeed, can't guarantee optimality "
              << "====" << std::endl;
    m_stack.clear();
  }
  restore_best_solution();
  if (quiet_optimization) print_solution(std::cout);
  return OPTIMAL;
}

bool solver::improve_solution(timer& t, result_type& result) {
  save_solution_as_best();
  m_stack.clear();
  const unsigned int objective = unsigned(objective_variable);
  small_model::iset d = m_stack.domain(objective);
  const int b = m_best_value;
  if (minimize)
    d.erase(small_iset::value_range_type(b, 31));
  else
    d.erase(small_iset::value_range_type(0, b));
  if (d.empty()) {
    std::cout << comment_prefix << " ==== no more values to try ====" << std::endl;
    result = SAT;
    return false;
  }
  set_var_domain(objective, d, -1);
  if (!quiet_optimization) {
    std::cout << comment_prefix << " ==== trying to ";
    if (minimize) {
      std::cout << "minimize ";
      m_stack.print_var_name(std::cout, objective);
      std::cout << " below " << b << ", but not" << " below " << d.min();
    } else {
      std::cout << "maximize ";
      m_stack.print_var_name(std::cout, objective);
      std::cout << " above " << b << ", but not" << " above " << d.max();
    }
    std::cout << " ==" << std::endl;
  }
  result = solve_current_constraints(false);
  advance_iteration_time(t);
  return result == SAT;
}

void solver::save_solution_as_best() {
  m_best_value = evaluate_objective();
  if (!quiet_optimization) {
    std::cout << comment_prefix << " best result so far:\n";
    std::cout << objective_prefix << " " << static_cast<long long>(m_best_value) + objective_offset
              << std::endl;
    print_solution(std::cout);
  }
  m_best_solution.resize(num_variables());
  for (unsigned int v = 0; v < m_best_solution.size(); ++v)
    m_best_solution[v] = m_stack.domain(v).min();
}

void solver::restore_best_solution() {
  for (unsigned int v = 0; v < m_best_solution.size(); ++v)
    set_var_domain(v, small_model::iset::singleton(m_best_solution[v]), -1);
  set_var_domain(unsigned(objective_variable), small_model::iset::singleton(m_best_value), -1);
}

void solver::advance_iteration_time(timer& t) {
  timer now;
  if (!quiet_optimization)
    std::cout << comment_prefix << " === iteration time " << now.cpu_diff_str(t) << std::endl;
  t = now;
}

//==== learned-constraint store =========================================================

unsigned int solver::insert_constraint(const learned_type& learned) {
  std::unique_ptr<constraint_propagator> propagator;
  if (learned.constraint())
    propagator = learned.constraint()->clone();
  else
    propagator = std::make_unique<clause_propagator>(learned.literals());
  const unsigned int index = num_constraints();
  constraint_connectivity_info& info = add_constraint(std::move(propagator));
  info.params().reserve(learned.nodes().size());
  for (const assignment_stack::implication_node& node : learned.nodes()) info << node.variable;
  if (m_learned_labelled.size() <= index) m_learned_labelled.resize(index + 1, false);
  m_learned_labelled[index] = true;
  if (index < m_constraint_labels.size()) m_constraint_labels[index] = 0;
  if (m_searching && report_level > 0) {
    std::cout << "Inserting ";
    print_constraint(std::cout, index);
    std::cout << "\n";
  }
  return index;
}

void solver::mark_used(unsigned int constraint) {
  if (constraint < m_first_learned || !m_dependencies) return;
  m_dependencies->mark_used(constraint, m_conflicts);
}

void solver::mark_dependency(unsigned int constraint, unsigned int depends_on) {
  if (depends_on < m_first_learned || !m_dependencies) return;
  m_dependencies->mark_dependency(constraint, depends_on);
}

void solver::remove_unused_conflict_constraints_maybe() {
  const unsigned int c = m_conflicts;
  if (erase_after_backtracks == 0 || c % erase_after_backtracks != 0 ||
      c < keep_constraints_from_conflicts || !m_dependencies)
    return;
  std::vector<unsigned int> keep = m_stack.get_busy_constraints(m_first_learned);
  const std::vector<unsigned int> active =
      m_dependencies->active_constraints(c - keep_constraints_from_conflicts);
  keep.insert(keep.end(), active.begin(), active.end());
  for (const constraint_run_level& entry : m_dirty_learned_constraints)
    keep.push_back(entry.constraint);
  const std::vector<unsigned int> erase = m_dependencies->other_constraints(keep);
  save_erased_prerequisites_for_proof(keep);
  if (erase.empty()) return;
  // Only the watch lists of the variables of removed constraints are visited.
  std::vector<bool> touched(num_variables(), false);
  for (unsigned int constraint : erase)
    for (unsigned int var : m_connectivity[constraint].params()) touched[var] = true;
  for (unsigned int constraint : erase) forget_conflict_constraint(constraint);
  const auto removed = [this](const var_watchers_base::watcher_info_type& w) {
    return w.constraint >= m_propagators.size() || !m_propagators[w.constraint];
  };
  for (unsigned int var = 0; var < touched.size(); ++var) {
    if (!touched[var]) continue;
    if (var < m_value_watchers.size()) m_value_watchers[var].deallocate_watches(removed);
    if (var < m_event_watchers.size()) m_event_watchers[var].deallocate_watches(removed);
  }
}

void solver::forget_conflict_constraint(unsigned int constraint) {
  if (report_level > 1) std::cout << "removing rare conflict constraint[" << constraint << "]\n";
  // While the constraint is still there: the proof keeps its clause or lets it go.
  m_proof_collector->forget_constraint(constraint);
  std::unique_ptr<constraint_propagator> victim = std::move(m_propagators[constraint]);
  std::vector<unsigned int>().swap(m_connectivity[constraint].params());
  victim.reset();
  m_dependencies->erase_constraint(constraint);
}

void solver::forget_learned_constraints() {
  if (m_first_learned == 0) return;
  m_connectivity.resize(m_first_learned);
  if (m_constraint_labels.size() > m_first_learned) m_constraint_labels.resize(m_first_learned);
  if (m_learned_labelled.size() > m_first_learned) m_learned_labelled.resize(m_first_learned);
  while (m_propagators.size() > m_first_learned) m_propagators.pop_back();
}

void solver::save_erased_prerequisites_for_proof(const std::vector<unsigned int>&) {
  // Nothing ahead of the erasure: forget_conflict_constraint hands each erased
  // constraint to the proof, which keeps the clause exactly when a kept record
  // cites it. Saving the whole closure of what stays, at every erasure, cost time
  // and copies of clauses still in the solver.
}

//==== conflict analysis ================================================================

int solver::analyze_conflict(int& asserted) {
  asserted = -1;
  const unsigned int depth = m_stack.depth();
  if (depth == 0 && !want_proof()) return -1;
  // Analysis sees the state before the failing propagator wrote anything.
  m_stack.erase_conflicting_modifications(m_last_constraint);
  learned_type learned(m_stack, *this);
  if (!generate_conflict_constraint(learned)) return int(depth) - 1;
  const int level = learned.asserting_level();
  if (level >= 0 && should_intersect_with_ground) learned.intersect_with_ground();
  asserted = int(insert_constraint(learned));
  m_proof_collector->name_conflict_clause(unsigned(asserted));
  if (depth == 0) return -1;
  return find_backtrack_level(learned, level);
}

bool solver::generate_conflict_constraint(learned_type& learned) {
  const unsigned int conflicting = m_last_constraint;
  add_constraint_cost_to_variables(conflicting, m_stack.cost_increment(), nullptr);
  learned.reset();
  m_recent_conflict_variables.clear();
  m_fallback_used = false;
  const unsigned int n = num_constraints();
  const unsigned int t = m_conflicts;
  if (conflicting >= m_first_learned) m_dependencies->mark_used(conflicting, t);
  m_dependencies->mark_used(n, t);
  if (conflicting >= m_first_learned) m_dependencies->mark_dependency(conflicting, n);
  m_connectivity[conflicting].increment_conflict_count();
  const unsigned int entry = conflicting_modification_entry();
  explanation_views views = get_constraint_explanation(
      conflicting, constraint_runtime_info::NO_PARAM, small_model::iset(), entry);
  collect_conflict_nodes(learned, views, conflicting, learned_type::POST_LAST_MODIFICATION);
  const bool resolved = resolve_conflicting_implications(learned);
  if (!m_fallback_used) ++m_non_fallback_learned;
  if (resolved && learned.constraint() && !learned.owns_constraint()) {
    // The analysis ended on a constraint the solver already has.
    learned.convert_to_clause();
    learned.relax_if_required();
  }
  ZELK_AUDIT_CHECK(learned.audit());
  return resolved;
}

unsigned int solver::conflicting_modification_entry() const {
  const unsigned int n = m_stack.num_modifications();
  if (n == 0) return 0;
  if (m_stack.modification(n - 1).cause != int(m_last_constraint)) return n;
  unsigned int first = n - 1;
  while (first > 0 && m_stack.modification(first - 1).cause == int(m_last_constraint)) --first;
  return first;
}

solver::explanation_views solver::get_constraint_explanation(unsigned int constraint,
                                                              unsigned int param,
                                                              const small_model::iset& literal,
                                                              unsigned int entry) const {
  static std::vector<small_model::iset> explanation;
  explanation_views views;
  const constraint_propagator& propagator = *m_propagators[constraint];
  if (const clause_propagator* clause = propagator.as_clause()) {
    views.explanation = &clause->literals();
    return views;
  }
  const constraint_connectivity_info& info = m_connectivity[constraint];
  const bool conflict = param == constraint_runtime_info::NO_PARAM;
  const small_model::iset after =
      conflict ? small_model::iset()
               : m_stack.var_domain_after_modification(info.to_variable(param), entry);
  const unsigned int count = info.conflict_count();
  const unsigned int effort =
      count > conflicts_before_boosting_effort ? count - conflicts_before_boosting_effort : 0;
  constraint_aged_info view(info, m_stack, entry, effort);
  view.set_use_ages(check_domain_ages);
  const small_model::iset asked = augment_explanations ? literal : small_model::iset::full();
  if (repeats_variable(constraint)) {
    // A propagator explains its parameters as if they were independent; the
    // trivial explanation stays implied when two of them are one variable.
    explanation_generators::explain_propagation(conflict ? 0 : param, asked, after, view,
                                                explanation);
  } else {
    propagator.explain_propagation(conflict ? 0 : param, asked, after, view, explanation);
    if (want_proof()) views.rule = propagator.rule(explanation);
  }
  if (report_level >= 2) report_explanation(std::cout, view, explanation);
  views.explanation = &explanation;
  return views;
}

bool solver::repeats_variable(unsigned int constraint) const {
  // Stamps per variable: one pass over the parameters, no allocation once sized.
  static std::vector<unsigned int> stamps;
  static unsigned int stamp = 0;
  if (stamps.size() < num_variables()) stamps.resize(num_variables(), 0);
  if (++stamp == 0) {
    std::fill(stamps.begin(), stamps.end(), 0);
    stamp = 1;
  }
  for (unsigned int var : m_connectivity[constraint].params()) {
    if (stamps[var] == stamp) return true;
    stamps[var] = stamp;
  }
  return false;
}

void solver::collect_conflict_nodes(learned_type& learned, explanation_views& views,
                                    unsigned int constraint, unsigned int time) {
  if (repeats_variable(constraint)) {
    // Nodes stand for distinct variables: such a constraint is learned from as
    // the clause of its explanation, with the literals of one variable joined.
    m_proof_collector->record_conflict(constraint, *views.explanation, std::move(views.rule));
    record_explanation_variables(m_connectivity[constraint], *views.explanation);
    learned.construct_clause_from(m_connectivity[constraint], *views.explanation, time);
    return;
  }
  if (want_proof()) {
    // Building the learned object relaxes it, and in constraint form that may
    // renew its explanation: the proof starts from the clause that the analysis
    // goes on with, so the object turns into that clause at once.
    record_explanation_variables(m_connectivity[constraint], *views.explanation);
    learned.construct_from(m_connectivity[constraint], *m_propagators[constraint],
                           *views.explanation, time);
    learned.update_explanation();
    const std::vector<small_model::iset>& start =
        learned.constraint() ? learned.literals() : *views.explanation;
    std::unique_ptr<explanation_rule> rule =
        learned.constraint() ? m_propagators[constraint]->rule(start) : std::move(views.rule);
    m_proof_collector->record_conflict(constraint, start, std::move(rule));
    learned.convert_to_clause();
    return;
  }
  m_proof_collector->record_conflict(constraint, *views.explanation, std::move(views.rule));
  record_explanation_variables(m_connectivity[constraint], *views.explanation);
  learned.construct_from(m_connectivity[constraint], *m_propagators[constraint],
                         *views.explanation, time);
}

void solver::record_explanation_variables(const constraint_connectivity_info& info,
                                          const std::vector<small_model::iset>& explanation) {
  const std::size_t n = std::min<std::size_t>(info.arity(), explanation.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (explanation[i].empty()) continue;
    const unsigned int var = info.to_variable(unsigned(i));
    if (explanation[i].intersects(m_stack.var_domain_end_level(var, 0)))
      m_recent_conflict_variables.push_back(var);
  }
}

bool solver::resolve_conflicting_implications(learned_type& learned) {
  unsigned int previous = assignment_stack::NO_PREVIOUS_MODIFICATION;
  const unsigned int t = m_conflicts;
  for (;;) {
    if (learned.conflict_analysis_complete()) {
      learned.add_vars_potentially_falsifying(m_recent_conflict_variables);
      m_dependencies->compact_prerequisites(num_constraints());
      return true;
    }
    const unsigned int i = learned.latest_node_index(constraint_runtime_info::NO_PARAM);
    const unsigned int entry = learned.nodes()[i].modification;
    const unsigned int variable = learned.nodes()[i].variable;
    const int cause =
        entry == assignment_stack::NO_PREVIOUS_MODIFICATION ? -1 : m_stack.modification(entry).cause;
    if (cause < 0) {
      // A decision, or a change with no constraint behind it: nothing to resolve with.
      if (report_level >= 2) {
        std::cout << "No cause for ";
        m_stack.print_var_name(std::cout, variable);
        std::cout << "\n";
      }
      return false;
    }
    if (unsigned(cause) >= m_first_learned) {
      m_dependencies->mark_used(unsigned(cause), t);
      m_dependencies->mark_dependency(unsigned(cause), num_constraints());
    }
    if (entry == previous) throw std::runtime_error("The conflict analysis loops infinitely");
    resolve(learned, variable, unsigned(cause));
    previous = entry;
  }
}

void solver::resolve(learned_type& learned, unsigned int variable, unsigned int constraint) {
  unsigned int param;
  const std::vector<small_model::iset>* explanation;
  if (!prepare_to_resolve(learned, variable, constraint, param, explanation)) return;
  const unsigned int entry = learned.nodes()[learned.node_of(variable)].modification;
  ++m_combines;
  // A proof replays clauses only: while one is wanted, every step is a clause step.
  // Interpolants rest on this too: every learned constraint is then a clause whose
  // derivation the replay walks, never a combined constraint of unknown part.
  if (combine_constraints && !want_proof() && !repeats_variable(constraint) &&
      learned.combine(*m_propagators[constraint], m_connectivity[constraint], param, entry)) {
    ++m_non_fallback_combines;
    return;
  }
  m_fallback_used = true;
  learned.convert_to_clause();
  resolve_clause(learned, m_connectivity[constraint], *explanation, param, entry);
  record_explanation_variables(m_connectivity[constraint], *explanation);
}

bool solver::prepare_to_resolve(learned_type& learned, unsigned int variable,
                                unsigned int constraint, unsigned int& param,
                                const std::vector<small_model::iset>*& explanation) {
  constraint_connectivity_info& info = m_connectivity[constraint];
  info.increment_conflict_count();
  const unsigned int node = learned.node_of(variable);
  const unsigned int entry = learned.nodes()[node].modification;
  if (report_level >= 2) report_resolution_start(std::cout, learned, constraint, entry);
  const std::vector<unsigned int>& params = info.params();
  const auto it = std::find(params.begin(), params.end(), variable);
  param = it == params.end() ? constraint_runtime_info::NO_PARAM : unsigned(it - params.begin());
  learned.update_explanation();
  const small_model::iset literal = node < learned.literals().size()
                                        ? learned.literals()[node]
                                        : small_model::iset::full();
  explanation_views views = get_constraint_explanation(constraint, param, literal, entry);
  explanation = views.explanation;
  add_constraint_cost_to_variables(constraint, m_stack.cost_increment(), explanation);
  if (param == constraint_runtime_info::NO_PARAM || param >= explanation->size()) return false;
  small_model::iset pivot_set;
  for (unsigned int i = 0; i < params.size() && i < explanation->size(); ++i)
    if (params[i] == variable) pivot_set |= (*explanation)[i];
  if (!pivot_set.intersects(m_stack.var_domain_after_modification(variable, entry))) return false;
  m_proof_collector->record_resolution(constraint, *explanation, int(variable),
                                       std::move(views.rule));
  if (report_level >= 2) {
    std::cout << "with pivot ";
    m_stack.print_var_name(std::cout, variable);
    std::cout << "\n";
  }
  return true;
}

void solver::resolve_clause(learned_type& learned, const constraint_connectivity_info& info,
                            const std::vector<small_model::iset>& explanation, unsigned int param,
                            unsigned int entry) const {
  const unsigned int n = std::min<unsigned int>(info.arity(), unsigned(explanation.size()));
  const unsigned int x = info.to_variable(param);
  small_model::iset pivot_set;
  for (unsigned int p = 0; p < n; ++p) {
    const unsigned int w = info.to_variable(p);
    if (w == x) {
      pivot_set |= explanation[p];  // all entries of the pivot's variable
      continue;
    }
    if (explanation[p].empty()) continue;
    learned.insert_literal(explanation[p], w, m_stack.var_modification_entry_before(w, entry));
    relax(learned, learned.node_of(w));
  }
  // The resolution proper: x in S and x in E give x in S intersected with E.
  const unsigned int position = learned.nodes()[learned.node_of(x)].modification;
  const bool survived = learned.intersect_literal(
      pivot_set, x, m_stack.var_modification_entry_before(x, position));
  if (relax_conflict_cause) learned.relax_cause();
  if (survived) relax(learned, learned.node_of(x));
  if (report_level >= 2) std::cout << "consequent: " << learned << "\n\n";
}

void solver::relax(learned_type& learned, unsigned int node) const {
  if (node >= learned.nodes().size()) return;
  if (relaxation_mode == 1)
    learned.relax_level(node, learned.literals()[node]);
  else if (relaxation_mode >= 2)
    learned.relax(node, learned.literals()[node]);
}

int solver::find_backtrack_level(const learned_type& learned, int asserting_level) const {
  if (learned.nodes().empty()) return -1;
  if (learned.nodes().size() > max_conflict_clause ||
      unsigned(asserting_level) < opportunistic_threshold)
    return asserting_level;
  const int opportunistic = learned.opportunistic_level();
  if (unsigned(asserting_level - opportunistic) >= opportunistic_threshold) return opportunistic;
  return asserting_level;
}

void solver::report_explanation(std::ostream& os, const constraint_runtime_info& info,
                                const std::vector<small_model::iset>& explanation) const {
  os << "Explanation:" << "[";
  bool first = true;
  for (unsigned int i = 0; i < explanation.size() && i < info.arity(); ++i) {
    if (explanation[i].empty()) continue;
    if (!first) os << ", ";
    first = false;
    info.print_param(os, i);
    literal_data::print_right_hand_side(os, explanation[i]);
  }
  os << "]\n";
}

void solver::report_resolution_start(std::ostream& os, const learned_type& learned,
                                     unsigned int constraint, unsigned int entry) const {
  os << "resolving constraint " << learned << "\nwith ";
  constraint_aged_info view(m_connectivity[constraint], m_stack, entry, 0);
  m_propagators[constraint]->print(os, &view);
  os << "\n";
}

}  // namespace zelk
