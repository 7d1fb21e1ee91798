// The learned object: construction and level bookkeeping, combination with the
// cause of the latest node, and relaxation of positions.
#include "impl/learned_type.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "impl/clause_data.h"
#include "impl/clause_propagator.h"
#include "impl/constraint_aged_info.h"
#include "impl/constraint_explicit_info.h"
#include "impl/solver.h"

namespace zelk {

namespace {

const unsigned int NO_PREV = assignment_stack::NO_PREVIOUS_MODIFICATION;
const unsigned int NO_NODE = constraint_runtime_info::NO_PARAM;

// The later of two positions; NO_PREVIOUS_MODIFICATION is the earliest.
unsigned int later(unsigned int a, unsigned int b) {
  return assignment_stack::is_earlier_modification(a, b) ? b : a;
}

}  // namespace

std::vector<learned_type::implication_node> learned_type::m_implication_nodes_cache;
learned_type::literal_vector learned_type::m_literals_cache;
std::vector<unsigned int> learned_type::m_variable_to_literal_index_cache;

//==== info_type =====================================================================

learned_type::info_type::info_type(const learned_type& learned, unsigned int time,
                                   unsigned int effort, bool track_reductions, bool use_ages)
    : m_learned(&learned),
      m_time(time),
      m_effort(effort),
      m_track_reductions(track_reductions),
      m_use_ages(use_ages),
      m_domains(learned.m_nodes.size()) {}

bool learned_type::info_type::reduced_between_activations(unsigned int param) const {
  if (!m_track_reductions) return true;
  return param < m_overlaid.size() && m_overlaid[param];
}

const small_model::iset& learned_type::info_type::read_domain(unsigned int param) const {
  if (param < m_overlaid.size() && m_overlaid[param]) return m_overlay[param];
  const implication_node& node = m_learned->m_nodes[param];
  unsigned int e = node.modification;
  if (e == NO_PREV || m_time == NO_PREV)
    e = NO_PREV;
  else if (m_time < e)
    e = m_time;
  if (m_domains.size() <= param) m_domains.resize(param + 1);
  m_domains[param] = m_learned->m_stack->var_domain_after_modification(node.variable, e);
  return m_domains[param];
}

void learned_type::info_type::set_domain(unsigned int param, small_model::iset set) {
  if (set.size() == domain(param).size()) return;
  set_overlay(param, set);
}

void learned_type::info_type::set_overlay(unsigned int param, small_model::iset set) {
  if (m_overlaid.size() <= param) {
    const std::size_t n = std::max<std::size_t>(m_learned->m_nodes.size(), param + 1);
    m_overlaid.resize(n, false);
    m_overlay.resize(n);
  }
  m_overlaid[param] = true;
  m_overlay[param] = set;
}

unsigned int learned_type::info_type::arity() const { return unsigned(m_learned->m_nodes.size()); }

unsigned int learned_type::info_type::latest_modified_param(unsigned int before) const {
  if (!m_use_ages) return NO_PARAM;
  return m_learned->latest_node_index(before);
}

void learned_type::info_type::print(std::ostream& os) const {
  for (unsigned int i = 0; i < arity(); ++i) {
    if (i) os << ", ";
    print_param(os, i);
    os << "={" << domain(i) << "}";
  }
}

void learned_type::info_type::print_param(std::ostream& os, unsigned int param) const {
  m_learned->m_stack->print_var_name(os, to_variable(param));
}

unsigned int learned_type::info_type::to_variable(unsigned int param) const {
  return m_learned->m_nodes[param].variable;
}

//==== life cycle ========================================================================

learned_type::learned_type(const assignment_stack& stack, const solver& owner)
    : m_stack(&stack), m_solver(&owner) {
  m_nodes.swap(m_implication_nodes_cache);
  m_literals.swap(m_literals_cache);
  m_variable_to_literal_index.swap(m_variable_to_literal_index_cache);
  m_nodes.clear();
  m_literals.clear();
  if (m_variable_to_literal_index.size() < stack.num_variables())
    m_variable_to_literal_index.resize(stack.num_variables(), NO_NODE);
  m_level = stack.depth();
  m_nodes_at_level = 0;
}

learned_type::~learned_type() {
  if (m_nodes.capacity() > m_implication_nodes_cache.capacity())
    m_nodes.swap(m_implication_nodes_cache);
  if (m_literals.capacity() > m_literals_cache.capacity()) m_literals.swap(m_literals_cache);
  if (m_variable_to_literal_index.capacity() > m_variable_to_literal_index_cache.capacity())
    m_variable_to_literal_index.swap(m_variable_to_literal_index_cache);
}

void learned_type::reset() {
  m_owned_constraint.reset();
  m_constraint = nullptr;
  m_nodes.clear();
  m_literals.clear();
  m_explanation_valid = false;
  m_nodes_at_level = 0;
  m_level = m_stack->depth();
}

//==== bookkeeping ========================================================================

bool learned_type::at_level(unsigned int entry) const {
  if (m_level == 0) return true;
  const unsigned int d = m_stack->decision_modification(m_level);
  if (d == NO_PREV) return true;
  return entry != NO_PREV && entry >= d;
}

void learned_type::set_position(unsigned int node, unsigned int entry) {
  const unsigned int old = m_nodes[node].modification;
  if (old == entry) return;
  if (at_level(old)) --m_nodes_at_level;
  m_nodes[node].modification = entry;
  if (at_level(entry)) ++m_nodes_at_level;
  m_explanation_valid = false;
  if (m_nodes_at_level == 0 && m_level != 0) compute_level();
}

void learned_type::set_variable_index(unsigned int variable, unsigned int node) {
  if (m_variable_to_literal_index.size() <= variable)
    m_variable_to_literal_index.resize(variable + 1, NO_NODE);
  m_variable_to_literal_index[variable] = node;
}

unsigned int learned_type::node_of(unsigned int variable) const {
  if (variable >= m_variable_to_literal_index.size()) return NO_NODE;
  const unsigned int i = m_variable_to_literal_index[variable];
  return i < m_nodes.size() && m_nodes[i].variable == variable ? i : NO_NODE;
}

learned_type::info_type learned_type::usual_info() const {
  return info_type(*this, POST_LAST_MODIFICATION, m_effort, false, true);
}

void learned_type::compute_level() {
  unsigned int latest = NO_PREV;
  for (const implication_node& node : m_nodes) latest = later(latest, node.modification);
  m_level = m_nodes.empty() ? 0 : m_stack->decision_level_of(latest);
  m_nodes_at_level = 0;
  for (const implication_node& node : m_nodes)
    if (at_level(node.modification)) ++m_nodes_at_level;
}

unsigned int learned_type::latest_node_index(unsigned int excluded) const {
  unsigned int best = NO_NODE;
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    if (i == excluded) continue;
    if (best == NO_NODE) {
      best = i;
      continue;
    }
    const unsigned int e = m_nodes[i].modification;
    const unsigned int b = m_nodes[best].modification;
    if (e != NO_PREV && (b == NO_PREV || e > b)) best = i;
  }
  return best;
}

//==== construction ==========================================================================

void learned_type::construct_from(const constraint_connectivity_info& info,
                                  const constraint_propagator& constraint,
                                  const literal_vector& explanation, unsigned int time) {
  m_literals.clear();
  const unsigned int boost = m_solver->conflicts_before_boosting_effort;
  m_effort = info.conflict_count() > boost ? info.conflict_count() - boost : 0;
  if (&constraint != m_owned_constraint.get()) m_owned_constraint.reset();
  m_constraint = &constraint;
  m_explanation_valid = false;
  construct_nodes_and_explanation(info, explanation, time);
}

void learned_type::construct_nodes_and_explanation(const constraint_connectivity_info& info,
                                                   const literal_vector& explanation,
                                                   unsigned int time) {
  const unsigned int n = info.arity();
  m_nodes.resize(n);
  for (unsigned int i = 0; i < n; ++i) m_nodes[i].variable = info.to_variable(i);
  construct_from_variables(&explanation, time);
  if (m_solver->relax_conflict_cause) relax_cause();
  relax_if_required();
}

void learned_type::construct_from_variables(const literal_vector* explanation,
                                            unsigned int time) {
  if (explanation)
    m_literals = *explanation;
  else
    m_literals.clear();
  // Literals given here were computed for exactly these positions.
  m_explanation_valid = !m_literals.empty();
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    const unsigned int var = m_nodes[i].variable;
    set_variable_index(var, i);
    m_nodes[i].modification = m_stack->var_modification_entry_before(var, time);
  }
  if (m_literals.empty()) update_explanation();
  if (!m_literals.empty()) {
    for (unsigned int i = 0; i < m_nodes.size() && i < m_literals.size(); ++i)
      if (m_literals[i].empty()) m_nodes[i].modification = NO_PREV;
  }
  compute_level();
}

void learned_type::construct_clause_from(const constraint_connectivity_info& info,
                                         const literal_vector& explanation, unsigned int time) {
  reset();
  const unsigned int boost = m_solver->conflicts_before_boosting_effort;
  m_effort = info.conflict_count() > boost ? info.conflict_count() - boost : 0;
  const unsigned int n = std::min<unsigned int>(info.arity(), unsigned(explanation.size()));
  for (unsigned int i = 0; i < n; ++i) {
    if (explanation[i].empty()) continue;
    const unsigned int var = info.to_variable(i);
    insert_literal(explanation[i], var, m_stack->var_modification_entry_before(var, time));
  }
  m_explanation_valid = true;
  compute_level();
  if (m_solver->relax_conflict_cause) relax_cause();
  relax_if_required();
}

void learned_type::insert_literal(const small_model::iset& set, unsigned int variable,
                                  unsigned int entry) {
  const unsigned int i = node_of(variable);
  if (i != NO_NODE) {
    m_literals[i] |= set;
    const unsigned int old = m_nodes[i].modification;
    const unsigned int chosen = later(old, entry);
    if (chosen != old) {
      if (at_level(old)) --m_nodes_at_level;
      m_nodes[i].modification = chosen;
      if (at_level(chosen)) ++m_nodes_at_level;
      m_explanation_valid = false;
    }
    return;
  }
  const unsigned int node = unsigned(m_nodes.size());
  m_nodes.emplace_back(entry, variable);
  m_literals.push_back(set);
  set_variable_index(variable, node);
  m_explanation_valid = false;
  if (at_level(entry)) ++m_nodes_at_level;
}

bool learned_type::intersect_literal(const small_model::iset& set, unsigned int variable,
                                     unsigned int entry) {
  const unsigned int i = node_of(variable);
  if (i == NO_NODE) return false;
  m_literals[i] &= set;
  if (m_literals[i].empty()) {
    erase_literal(i);
    return false;
  }
  const unsigned int old = m_nodes[i].modification;
  if (old != entry) {
    if (at_level(old)) --m_nodes_at_level;
    m_nodes[i].modification = entry;
    if (at_level(entry)) ++m_nodes_at_level;
    m_explanation_valid = false;
  }
  return true;
}

void learned_type::erase_literal(unsigned int node) {
  if (at_level(m_nodes[node].modification)) --m_nodes_at_level;
  const unsigned int erased = m_nodes[node].variable;
  const unsigned int last = unsigned(m_nodes.size()) - 1;
  if (node != last) {
    m_nodes[node] = m_nodes[last];
    if (node < m_literals.size() && last < m_literals.size()) m_literals[node] = m_literals[last];
    set_variable_index(m_nodes[node].variable, node);
  }
  m_nodes.pop_back();
  if (m_literals.size() > m_nodes.size()) m_literals.pop_back();
  set_variable_index(erased, NO_NODE);
}

bool learned_type::conflict_analysis_complete() {
  // Erasing the pivot can empty the level without a relaxer noticing.
  if (m_level != 0 && m_nodes_at_level == 0) compute_level();
  if (m_level != 0) return m_nodes_at_level == 1;
  if (m_nodes.empty()) return true;
  const unsigned int latest = latest_node_index(NO_NODE);
  if (m_nodes[latest].modification != NO_PREV) return false;
  if (!m_solver->should_intersect_with_ground) return true;
  m_owned_constraint.reset();
  m_constraint = nullptr;
  m_nodes.clear();
  m_literals.clear();
  m_explanation_valid = false;
  m_nodes_at_level = 0;
  return true;
}

int learned_type::asserting_level() const {
  const unsigned int n = unsigned(m_nodes.size());
  if (n == 0) return -1;
  if (!m_constraint) return m_stack->asserting_level_of_nth(n - 1, m_nodes, m_literals);
  int c = m_stack->asserting_level_of_nth(n - 1, m_nodes, possibly_crippling_values());
  if (c <= 0) return c;
  // The constraint can conflict earlier than its nodes show.
  std::unique_ptr<constraint_propagator> clone = m_constraint->clone();
  while (c > 0) {
    info_type info(*this, m_stack->decision_modification(unsigned(c)) - 1, m_effort, false, true);
    if (clone->init(info) != propagation_types::UNSAT &&
        clone->propagate(info) != propagation_types::UNSAT)
      break;
    --c;
  }
  return c;
}

int learned_type::opportunistic_level() const {
  const unsigned int n = unsigned(m_nodes.size());
  if (n == 0) return -1;
  const unsigned int nth = n >= 2 ? n - 2 : 0;
  if (!m_constraint) return m_stack->asserting_level_of_nth(nth, m_nodes, m_literals);
  return m_stack->asserting_level_of_nth(nth, m_nodes, possibly_crippling_values());
}

void learned_type::update_explanation() {
  if (!m_constraint || (!m_literals.empty() && m_explanation_valid)) return;
  info_type info(*this, POST_LAST_MODIFICATION, m_effort, false, m_solver->check_domain_ages);
  update_explanation(info);
}

void learned_type::update_explanation(const constraint_runtime_info& info) {
  if ((!m_literals.empty() && m_explanation_valid) || !m_constraint) return;
  if (!m_literals.empty() && m_constraint->as_clause()) return;
  static literal_vector previous;
  const bool report = m_solver->report_level >= 2;
  if (report) previous = m_literals;
  m_constraint->explain_propagation(0, small_model::iset::full(), small_model::iset(), info,
                                    m_literals);
  m_explanation_valid = true;
  if (report && previous != m_literals) report_explanation_change(previous);
}

void learned_type::report_explanation_change(const literal_vector&) const {
  info_type info = usual_info();
  m_solver->report_explanation(std::cout, info, m_literals);
}

void learned_type::convert_to_clause() {
  if (!m_constraint) return;
  if (m_literals.empty()) update_explanation();
  m_owned_constraint.reset();
  m_constraint = nullptr;
  unsigned int kept = 0;
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    if (i >= m_literals.size() || m_literals[i].empty()) continue;
    m_nodes[kept] = m_nodes[i];
    m_literals[kept] = m_literals[i];
    set_variable_index(m_nodes[kept].variable, kept);
    ++kept;
  }
  for (unsigned int i = kept; i < m_nodes.size(); ++i)
    if (node_of(m_nodes[i].variable) == i) set_variable_index(m_nodes[i].variable, NO_NODE);
  m_nodes.resize(kept);
  m_literals.resize(kept);
  m_explanation_valid = true;
  compute_level();
}

bool learned_type::conflicts() const {
  info_type info = usual_info();
  if (m_constraint) return m_constraint->conflicts(info);
  for (unsigned int i = 0; i < m_nodes.size(); ++i)
    if (m_literals[i].intersects(info.domain(i))) return false;
  return true;
}

bool learned_type::audit() const {
  if (m_constraint) {
    const unsigned int count = m_constraint->count_params();
    if (count != constraint_propagator::ANY_NUMBER_OF_PARAMS && count != m_nodes.size()) return false;
  }
  if ((!m_literals.empty() || !m_constraint) && m_literals.size() != m_nodes.size()) return false;
  for (unsigned int i = 0; i < m_nodes.size(); ++i)
    if (node_of(m_nodes[i].variable) != i) return false;
  return true;
}

void learned_type::print(std::ostream& os) const {
  if (m_constraint) {
    info_type info = usual_info();
    m_constraint->print(os, &info);
    return;
  }
  os << "[";
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    if (i) os << ", ";
    literal_data::print(os, variable_printer(&m_stack->print_strategy(), m_nodes[i].variable),
                        m_literals[i]);
  }
  os << "]";
}

void learned_type::show_self() const {
  print(std::cout);
  std::cout << std::endl;
}

std::ostream& operator<<(std::ostream& os, const learned_type& learned) {
  learned.print(os);
  return os;
}

//==== combination ================================================================================

bool learned_type::combine(const constraint_propagator& other,
                           const constraint_connectivity_info& other_info, unsigned int pivot,
                           unsigned int entry) {
  std::vector<unsigned int> out;
  std::unique_ptr<constraint_propagator> combined;
  if (m_constraint) combined = combine_as_constraint(other, other_info, pivot, entry, out);
  if (!combined) {
    if (m_constraint && (m_literals.empty() || !m_explanation_valid)) {
      info_type info(*this, POST_LAST_MODIFICATION, m_effort, false, m_solver->check_domain_ages);
      update_explanation(info);
    }
    combined = combine_as_clause(other, other_info, pivot, entry, out);
    if (!combined) return false;
  }
  if (!combined_conflicts(other_info, *combined, out, entry)) {
    if (m_solver->report_level >= 2)
      std::cout << "combined doesn't meet the requirements, "
                << " falling back to the explanations\n";
    return false;
  }
  reconstruct_from_combined(other_info, combined, out, entry);
  if (m_solver->report_level >= 2) {
    info_type info = usual_info();
    std::cout << "after combine: ";
    m_constraint->print(std::cout, &info);
    std::cout << "\n\n";
  }
  if (!conflicts()) {
    info_type info = usual_info();
    std::cout << "Failing assumption for domains ";
    info.print(std::cout);
    std::cout << "\n";
    throw std::runtime_error("learned_type::combine(): Assumption violated");
  }
  if (m_solver->relax_conflict_cause || (m_level != 0 && m_nodes_at_level >= 2)) relax_cause();
  relax_if_required();
  return true;
}

std::unique_ptr<constraint_propagator> learned_type::combine_as_constraint(
    const constraint_propagator& other, const constraint_connectivity_info& other_info,
    unsigned int pivot, unsigned int entry, std::vector<unsigned int>& out) {
  if (!m_constraint || !m_constraint->may_combine(other)) return nullptr;
  info_type left = usual_info();
  constraint_aged_info right(other_info, *m_stack, entry, 0xFFFFFFFFu);
  const unsigned int n = unsigned(m_nodes.size());
  std::vector<unsigned int> map(other_info.arity());
  for (unsigned int j = 0; j < map.size(); ++j) {
    const unsigned int node = node_of(other_info.to_variable(j));
    map[j] = node != NO_NODE ? node : j + n;
  }
  return m_constraint->combine(left, other, right, map, pivot, out);
}

std::unique_ptr<constraint_propagator> learned_type::combine_as_clause(
    const constraint_propagator& other, const constraint_connectivity_info& other_info,
    unsigned int pivot, unsigned int entry, std::vector<unsigned int>& out) {
  if (m_constraint && (m_literals.empty() || !m_explanation_valid)) {
    info_type info(*this, POST_LAST_MODIFICATION, m_effort, false, m_solver->check_domain_ages);
    update_explanation(info);
  }
  clause_propagator clause;
  clause.update_literals().swap(m_literals);
  std::unique_ptr<constraint_propagator> result;
  if (other.may_combine(clause)) {
    info_type info = usual_info();
    constraint_aged_info clause_view(info, *m_stack, entry, m_effort);
    constraint_aged_info other_view(other_info, *m_stack, entry, 0xFFFFFFFFu);
    std::vector<unsigned int> map;
    const int common = get_this_on_right_common_param(other_info, pivot, map);
    if (common >= 0) {
      result = other.combine(other_view, clause, clause_view, map, unsigned(common), out);
      if (result) {
        const unsigned int n = unsigned(m_nodes.size());
        const unsigned int a = other_info.arity();
        for (unsigned int& e : out) e = (e + n) % (n + a);
      }
    }
  }
  clause.update_literals().swap(m_literals);
  return result;
}

int learned_type::get_this_on_right_common_param(const constraint_connectivity_info& other_info,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& map) const {
  const unsigned int a = other_info.arity();
  map.resize(m_nodes.size());
  for (unsigned int i = 0; i < map.size(); ++i) map[i] = i + a;
  int result = -1;
  for (unsigned int j = 0; j < a; ++j) {
    const unsigned int node = node_of(other_info.to_variable(j));
    if (node == NO_NODE) continue;
    map[node] = j;
    if (j == pivot) result = int(node);
  }
  return result;
}

bool learned_type::combined_conflicts(const constraint_connectivity_info& other_info,
                                      const constraint_propagator& combined,
                                      const std::vector<unsigned int>& out,
                                      unsigned int entry) const {
  constraint_explicit_info view(unsigned(out.size()));
  info_type info = usual_info();
  constraint_aged_info other_view(other_info, *m_stack, entry, m_effort);
  const unsigned int n = unsigned(m_nodes.size());
  const std::vector<unsigned int>& params = other_info.params();
  for (unsigned int k = 0; k < out.size(); ++k) {
    const unsigned int e = out[k];
    if (e < n) {
      const auto it = std::find(params.begin(), params.end(), m_nodes[e].variable);
      view.domains()[k] = it == params.end() ? info.domain(e)
                                             : other_view.domain(unsigned(it - params.begin()));
    } else {
      view.domains()[k] = other_view.domain(e - n);
    }
  }
  return combined.conflicts(view);
}

void learned_type::reconstruct_from_combined(const constraint_connectivity_info& other_info,
                                             std::unique_ptr<constraint_propagator>& combined,
                                             const std::vector<unsigned int>& out,
                                             unsigned int entry) {
  const unsigned int n = unsigned(m_nodes.size());
  static std::vector<unsigned int> variables;
  variables.clear();
  for (unsigned int e : out)
    variables.push_back(e < n ? m_nodes[e].variable : other_info.to_variable(e - n));
  m_nodes.resize(variables.size());
  for (unsigned int i = 0; i < variables.size(); ++i) m_nodes[i].variable = variables[i];
  m_owned_constraint = std::move(combined);
  m_constraint = m_owned_constraint.get();
  m_explanation_valid = false;
  m_literals.clear();
  m_effort = std::max(m_effort, other_info.effort());
  construct_from_variables(nullptr, entry);
}

void learned_type::add_vars_potentially_falsifying(std::vector<unsigned int>& variables) const {
  if (!m_constraint) {
    for (unsigned int i = 0; i < m_nodes.size(); ++i) {
      const unsigned int var = m_nodes[i].variable;
      if (m_literals[i].intersects(m_stack->var_domain_end_level(var, 0))) variables.push_back(var);
    }
    return;
  }
  info_type info = usual_info();
  const unsigned int entry =
      m_stack->depth() >= 1 ? m_stack->decision_modification(1) : m_stack->num_modifications();
  constraint_aged_info view(info, *m_stack, entry, 0xFFFFFFFFu);
  for (unsigned int i = 0; i < m_nodes.size(); ++i)
    if (m_constraint->potentially_falsifying(view, i)) variables.push_back(m_nodes[i].variable);
}

//==== relaxation ===================================================================================

bool learned_type::relax(unsigned int node, const small_model::iset& set) {
  const unsigned int old = m_nodes[node].modification;
  const unsigned int moved = m_stack->relax(old, set);
  if (moved == old) return false;
  set_position(node, moved);
  return true;
}

bool learned_type::relax_all() {
  if (m_nodes_at_level == 0) return false;
  update_explanation();
  bool any = false;
  for (;;) {
    bool changed = false;
    for (unsigned int i = 0; i < m_nodes.size() && m_nodes_at_level != 0; ++i)
      if (i < m_literals.size() && relax(i, m_literals[i])) changed = true;
    any = any || changed;
    if (!m_constraint || !changed || m_nodes.empty() || m_nodes_at_level == 0) break;
    update_explanation();
  }
  return any;
}

bool learned_type::relax_level(unsigned int node, const small_model::iset& set) {
  if (m_level == 0) return false;
  const unsigned int d = m_stack->decision_modification(m_level);
  const unsigned int e = m_nodes[node].modification;
  if (assignment_stack::is_earlier_modification(e, d)) return false;
  const unsigned int moved = m_stack->relax_before(e, set, d);
  if (moved == e) return false;
  set_position(node, moved);
  return true;
}

bool learned_type::relax_level_all() {
  if (m_nodes_at_level == 0) return false;
  update_explanation();
  return relax_level_all(m_literals);
}

bool learned_type::relax_level_all(const literal_vector& literals) {
  bool any = false;
  for (;;) {
    const unsigned int old_level = m_level;
    for (unsigned int i = 0; i < m_nodes.size() && m_nodes_at_level != 0; ++i)
      if (i < literals.size() && relax_level(i, literals[i])) any = true;
    if (m_level == old_level) break;
  }
  return any;
}

bool learned_type::relax_if_required() {
  bool any = false;
  if (m_level != 0) {
    if (m_nodes_at_level == 1 && m_constraint) any = relax_cause() || any;
    while (m_level != 0 && m_nodes_at_level == 1 && m_constraint) {
      const unsigned int d = m_stack->decision_modification(m_level);
      info_type info = usual_info();
      constraint_aged_info view(info, *m_stack, d - 1, 0);
      if (!m_constraint->conflicts(view)) break;
      // The constraint was in conflict before this level began.
      construct_from_variables(nullptr, d - 1);
      if (m_solver->relax_conflict_cause || (m_level != 0 && m_nodes_at_level == 1))
        any = relax_cause() || any;
    }
  }
  if (m_solver->relaxation_mode == 1)
    any = relax_level_all() || any;
  else if (m_solver->relaxation_mode >= 2)
    any = relax_all() || any;
  return any;
}

bool learned_type::relax_cause() {
  if (m_nodes_at_level == 0) return false;
  if (!m_constraint) return relax_cause_for_clause(m_literals);
  bool changed = false;
  if (!m_literals.empty() && explanation_conflicts()) changed = relax_cause_for_clause(m_literals);
  if (m_level == 0) return changed;
  std::unique_ptr<constraint_propagator> clone = m_constraint->clone();
  const unsigned int ground_time = m_stack->decision_modification(1) - 1;
  info_type ground_view(*this, ground_time, m_effort, false, true);
  info_type view(*this, POST_LAST_MODIFICATION, m_effort, false, true);
  std::vector<const small_model::iset*> ground(m_nodes.size(), nullptr);
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    const unsigned int e = m_nodes[i].modification;
    if (e != NO_PREV && assignment_stack::is_earlier_modification(ground_time, e)) {
      ground[i] = &ground_view.domain(i);
      view.set_overlay(i, *ground[i]);
    }
  }
  if (clone->init(view) == propagation_types::UNSAT) return changed;
  if (relax_cause_for_constraint(*clone, view, ground)) {
    if (!m_literals.empty() && !explanation_conflicts()) m_literals.clear();
    return true;
  }
  return changed;
}

bool learned_type::relax_cause_for_clause(const literal_vector& literals) {
  if (m_nodes.empty()) return false;
  unsigned int i = latest_node_index(NO_NODE);
  bool any = false;
  while (i < literals.size() && relax(i, literals[i])) {
    any = true;
    const unsigned int next = latest_node_index(NO_NODE);
    if (next == i) break;
    i = next;
  }
  return any;
}

bool learned_type::relax_cause_for_constraint(constraint_propagator& clone, info_type& view,
                                              const std::vector<const small_model::iset*>& ground) {
  unsigned int prev = NO_NODE;
  bool moved = false;
  for (;;) {
    if (m_level == 0) return moved;
    const unsigned int i = latest_node_index(NO_NODE);
    if (i == prev) return true;
    if (ground[i]) view.set_overlay(i, *ground[i]);
    if (clone.propagate(view) == propagation_types::UNSAT) {
      // The constraint fails at level 0 whatever i does.
      set_position(i, m_stack->var_modification_entry_before(m_nodes[i].variable,
                                                             m_stack->decision_modification(1)));
    } else if (!relax(i, view.domain(i))) {
      return moved;
    }
    moved = true;
    prev = i;
  }
}

bool learned_type::explanation_conflicts() const {
  info_type info = usual_info();
  for (unsigned int i = 0; i < m_nodes.size() && i < m_literals.size(); ++i)
    if (m_literals[i].intersects(info.domain(i))) return false;
  return true;
}

learned_type::literal_vector learned_type::possibly_crippling_values() const {
  if (!m_constraint) return m_literals;
  literal_vector out;
  info_type info = usual_info();
  m_constraint->possibly_crippling_values(0, small_model::iset(), info, out);
  if (out.size() < m_nodes.size()) out.resize(m_nodes.size());
  return out;
}

void learned_type::intersect_with_ground() {
  if (m_constraint) {
    intersect_general_constraint_with_ground();
    return;
  }
  unsigned int kept = 0;
  for (unsigned int i = 0; i < m_nodes.size(); ++i) {
    const small_model::iset ground =
        m_literals[i] & m_stack->var_domain_end_level(m_nodes[i].variable, 0);
    if (ground.empty()) continue;
    m_nodes[kept] = m_nodes[i];
    m_literals[kept] = ground;
    set_variable_index(m_nodes[kept].variable, kept);
    ++kept;
  }
  m_nodes.resize(kept);
  m_literals.resize(kept);
  compute_level();
}

void learned_type::intersect_general_constraint_with_ground() {
  info_type info = usual_info();
  const unsigned int entry =
      m_stack->depth() >= 1 ? m_stack->decision_modification(1) : m_stack->num_modifications();
  constraint_aged_info view(info, *m_stack, entry, 0xFFFFFFFFu);
  std::vector<unsigned int> kept;
  std::unique_ptr<constraint_propagator> simplified = m_constraint->intersect_with(view, kept);
  if (!simplified) return;
  m_owned_constraint = std::move(simplified);
  m_constraint = m_owned_constraint.get();
  m_explanation_valid = false;
  m_literals.clear();
  if (!kept.empty()) {
    if (kept.size() > m_nodes.size())
      throw std::runtime_error("constraint::intersect_with returns too many arguments");
    std::vector<implication_node> nodes;
    nodes.reserve(kept.size());
    for (unsigned int k : kept) nodes.push_back(m_nodes[k]);
    m_nodes.assign(nodes.begin(), nodes.end());
    for (unsigned int i = 0; i < m_nodes.size(); ++i) set_variable_index(m_nodes[i].variable, i);
  } else if (m_constraint->count_params() == 0) {
    // Simplified to a constraint without parameters (false at level 0).
    m_nodes.clear();
  }
  compute_level();
}

}  // namespace zelk
