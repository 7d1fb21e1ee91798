// The trail: domains, the chained history of every change, decision levels, and
// the cost heap that keeps the best decision candidate at its root.
//
// Entry points: set_var_domain appends to the history, undo_level / clear /
// erase_conflicting_modifications take it back, and the history queries
// (var_domain_after_modification, relax, before_propagation, asserting_level_of_nth
// ...) answer conflict analysis by walking one variable's chain of entries.
#include "impl/assignment_stack.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace zelk {

namespace {

// Member counts and single values straight from the word: these run inside every
// heap comparison, so they must not cost a call.
inline unsigned int members(const small_model::iset& set) {
  return set.size();
}

inline int single_value(const small_model::iset& set) {
  return int(std::countr_zero(set.bits()));
}

// The increment grows by the scale at every backtrack; past 2^30 it and all costs
// are brought back by 2^-30, a power of two, so that every cost ratio stays exact.
constexpr double RESCALE_LIMIT = 1073741824.0;
constexpr double RESCALE_FACTOR = 1.0 / 1073741824.0;

constexpr unsigned int MAX_SKIP = 2147483647u;

}  // namespace

std::ostream& operator<<(std::ostream& os, const variable_printer& printer) {
  if (printer.strategy() != nullptr)
    printer.strategy()->print(os, printer.variable());
  else
    os << 'V' << printer.variable();
  return os;
}

void assignment_stack::assignment_variables_print_strategy::print(std::ostream& os,
                                                                  unsigned int variable) const {
  m_stack->print_var_name(os, variable);
}

assignment_stack::assignment_stack() : m_print_strategy(this) {}

void assignment_stack::throw_out_of_range(const char* name) {
  if (name == nullptr) throw std::out_of_range("Out of range");
  throw std::out_of_range(std::string("Out of range while calling ") + name);
}

void assignment_stack::record_value(unsigned int var) {
  previous_value& saved = m_previously_assigned_value[var];
  saved.has_value = true;
  saved.value = single_value(m_variables[var].domain);
}

//==== building the model ====================================================

unsigned int assignment_stack::add_var(small_model::iset domain, const char* name,
                                       bool is_constant) {
  const unsigned int var = num_variables();
  m_variables.push_back(
      variable_state{domain, NO_PREVIOUS_MODIFICATION, 0.0, 0, members(domain)});
  m_previously_assigned_value.emplace_back();
  m_labels.push_back(0);
  m_names.emplace_back(name != nullptr ? name : "");
  if (domain.is_singleton()) {
    record_value(var);
    if (is_constant) m_singletons.emplace(single_value(domain), var);
  }
  // A variable created while the heap is on must have a place in it, or the heap
  // moves of its first change would read a position that does not exist.
  if (heap_enabled()) {
    m_heap_positions.push_back(unsigned(m_heap.size()));
    m_heap.push_back(var);
    lower_var_heap_cost(var);
  }
  return var;
}

unsigned int assignment_stack::singleton_var(int value) {
  const auto found = m_singletons.find(value);
  if (found != m_singletons.end()) return found->second;
  small_model::iset domain;
  domain.insert(value);
  const std::string name = "the_constant_" + std::to_string(value);
  return add_var(domain, name.c_str(), true);
}

void assignment_stack::set_var_initial_domain(unsigned int var, small_model::iset domain) {
  m_variables[var].domain = domain;
  if (domain.is_singleton()) record_value(var);
}

void assignment_stack::print_var_name(std::ostream& os, unsigned int var) const {
  if (var < m_names.size() && !m_names[var].empty())
    os << m_names[var];
  else
    os << 'V' << var;
}

bool assignment_stack::print_singleton_variables(std::ostream& os) const {
  if (m_singletons.empty()) return false;
  os << "Singletons: ";
  bool first = true;
  for (const auto& [value, var] : m_singletons) {
    if (!first) os << ", ";
    first = false;
    print_var_name(os, var);
    os << '=' << value;
  }
  return true;
}

//==== changing the state ====================================================

void assignment_stack::set_var_domain(unsigned int var, small_model::iset domain,
                                      unsigned long long time, int cause) {
  variable_state& state = m_variables[var];
  if (m_decisions.empty() && var < m_level0_domains.size()) m_level0_domains[var] = domain;
  state.previous_size = members(state.domain);
  if (m_modifications.size() >= MAX_MODIFICATION_ENTRIES)
    throw std::overflow_error("Too many modification entries");
  const bool fixed = domain.is_singleton();
  if (fixed) state.assignment_time = time;
  const unsigned int entry = num_modifications();
  m_modifications.push_back(
      variable_modification_entry{state.last_modification, state.domain, time, var, cause});
  state.domain = domain;
  state.last_modification = entry;
  // A fixed variable can no longer be chosen; a smaller open domain raises the
  // cost per member, so the variable can only have become a better candidate.
  if (fixed) {
    raise_var_heap_cost(var);
    record_value(var);
  } else {
    lower_var_heap_cost(var);
  }
}

void assignment_stack::push_decision(unsigned int var) {
  m_decisions.push_back(single_decision_data{var, num_modifications()});
}

void assignment_stack::restore_entry(const variable_modification_entry& entry) {
  const unsigned int var = entry.variable;
  variable_state& state = m_variables[var];
  if (state.domain.is_singleton()) {
    // Value saving: the value held last is the one the next decision tries.
    record_value(var);
    state.domain = entry.previous_domain;
    lower_var_heap_cost(var);
  } else {
    state.domain = entry.previous_domain;
    raise_var_heap_cost(var);
  }
  state.last_modification = entry.previous_modification;
}

void assignment_stack::undo_level(unsigned int level) {
  if (level == 0 || level > depth()) throw_out_of_range("undo_level(level_to_forget)");
  const unsigned int first = std::min(m_decisions[level - 1].modification, num_modifications());
  const unsigned int end = num_modifications();
  // Oldest first: a variable is restored from its oldest entry in the range, after
  // which its chain head lies below the range and its later entries are skipped.
  for (unsigned int m = first; m < end; ++m) {
    const variable_modification_entry& entry = m_modifications[m];
    const unsigned int head = m_variables[entry.variable].last_modification;
    if (head == NO_PREVIOUS_MODIFICATION || head < m) continue;
    restore_entry(entry);
  }
  m_modifications.resize(first);
  m_decisions.resize(level - 1);
}

void assignment_stack::clear() {
  m_level0_domains.clear();
  m_previously_assigned_value.assign(m_variables.size(), previous_value());
  // Newest first, so that each variable ends with the previous domain of its
  // oldest entry.
  for (std::size_t m = m_modifications.size(); m-- > 0;) {
    const variable_modification_entry& entry = m_modifications[m];
    variable_state& state = m_variables[entry.variable];
    state.domain = entry.previous_domain;
    state.last_modification = NO_PREVIOUS_MODIFICATION;
  }
  for (unsigned int var = 0; var < num_variables(); ++var)
    if (m_variables[var].domain.is_singleton()) record_value(var);
  m_modifications.clear();
  m_decisions.clear();
}

void assignment_stack::erase_conflicting_modifications(unsigned int constraint) {
  while (!m_modifications.empty()) {
    const variable_modification_entry& entry = m_modifications.back();
    if (entry.cause < 0 || unsigned(entry.cause) != constraint) break;
    restore_entry(entry);
    // Before the first decision the level-0 vector follows the present domains
    // (set_var_domain step 1), so taking a change back must take it back there too.
    if (m_decisions.empty() && entry.variable < m_level0_domains.size())
      m_level0_domains[entry.variable] = m_variables[entry.variable].domain;
    m_modifications.pop_back();
  }
}

void assignment_stack::construct_level0_domains() {
  m_level0_domains.reserve(m_variables.size());
  for (std::size_t var = m_level0_domains.size(); var < m_variables.size(); ++var)
    m_level0_domains.push_back(m_variables[var].domain);
}

void assignment_stack::forget_previously_assigned_var_values() {
  for (unsigned int var = 0; var < num_variables(); ++var) {
    if (m_variables[var].domain.is_singleton())
      record_value(var);
    else
      m_previously_assigned_value[var] = previous_value();
  }
}

//==== history ===============================================================

unsigned int assignment_stack::decision_variable(unsigned int level) const {
  if (level == 0 || level > depth()) throw_out_of_range("decision_variable(level)");
  return m_decisions[level - 1].variable;
}

int assignment_stack::decision_value(unsigned int level) const {
  if (level == 0 || level > depth()) throw_out_of_range("decision_value()");
  const single_decision_data& decision = m_decisions[level - 1];
  small_model::iset domain = m_variables[decision.variable].domain;
  // A conflict may have emptied the decision variable since; the value decided is
  // then the one its domain had right after the decision.
  if (domain.empty()) domain = var_domain_after_modification(decision.variable, decision.modification);
  if (domain.empty()) throw_out_of_range("decision_value()");
  return 31 - std::countl_zero(domain.bits());
}

unsigned int assignment_stack::decision_modification(unsigned int level) const {
  if (level == 0) return NO_PREVIOUS_MODIFICATION;
  if (level > depth()) throw_out_of_range("decision_modification(level)");
  return m_decisions[level - 1].modification;
}

unsigned int assignment_stack::decision_level_of(unsigned int modification) const {
  if (modification == NO_PREVIOUS_MODIFICATION) return 0;
  // Decision entries never fall, so the levels whose decision entry is not above
  // the modification form a prefix; its length is the level.
  const auto after = std::upper_bound(
      m_decisions.begin(), m_decisions.end(), modification,
      [](unsigned int m, const single_decision_data& d) { return m < d.modification; });
  return unsigned(after - m_decisions.begin());
}

const small_model::iset& assignment_stack::value_before_modification(
    unsigned int modification) const {
  assert(modification < m_modifications.size());
  return m_modifications[modification].previous_domain;
}

small_model::iset assignment_stack::var_domain_after_modification(
    unsigned int var, unsigned int modification) const {
  const variable_state& state = m_variables[var];
  unsigned int entry = state.last_modification;
  if (entry == NO_PREVIOUS_MODIFICATION || !is_earlier_modification(modification, entry))
    return state.domain;
  // entry is newer than the modification; find the oldest such entry.
  for (;;) {
    const variable_modification_entry& e = m_modifications[entry];
    const unsigned int older = e.previous_modification;
    if (older == NO_PREVIOUS_MODIFICATION || !is_earlier_modification(modification, older))
      return e.previous_domain;
    entry = older;
  }
}

small_model::iset assignment_stack::var_domain_end_level(unsigned int var, int level) const {
  if (level < -1 || level > int(depth()))
    throw_out_of_range("var_domain_end_level(variable, level)");
  if (level == -1) return var_domain_after_modification(var, NO_PREVIOUS_MODIFICATION);
  if (unsigned(level) == depth()) return m_variables[var].domain;
  if (level == 0 && var < m_level0_domains.size()) return m_level0_domains[var];
  // Right before the decision of level + 1; a decision at entry 0 wraps to
  // NO_PREVIOUS_MODIFICATION, the state before all entries.
  return var_domain_after_modification(var, m_decisions[unsigned(level)].modification - 1u);
}

std::uint64_t assignment_stack::var_modification_time(unsigned int var) const {
  const unsigned int entry = m_variables[var].last_modification;
  return entry == NO_PREVIOUS_MODIFICATION ? 1 : m_modifications[entry].time;
}

unsigned int assignment_stack::var_modification_entry_before(unsigned int var,
                                                             unsigned int modification) const {
  if (modification == NO_PREVIOUS_MODIFICATION) return NO_PREVIOUS_MODIFICATION;
  unsigned int entry = m_variables[var].last_modification;
  while (entry != NO_PREVIOUS_MODIFICATION && entry >= modification)
    entry = m_modifications[entry].previous_modification;
  return entry;
}

unsigned int assignment_stack::before_propagation(unsigned int modification) const {
  if (modification == NO_PREVIOUS_MODIFICATION || m_modifications.empty())
    return NO_PREVIOUS_MODIFICATION;
  if (modification >= m_modifications.size()) return num_modifications() - 1;
  const int cause = m_modifications[modification].cause;
  if (cause < 0) return modification - 1;  // entry 0 wraps to NO_PREVIOUS_MODIFICATION
  while (modification > 0) {
    --modification;
    if (m_modifications[modification].cause != cause) return modification;
  }
  return NO_PREVIOUS_MODIFICATION;
}

unsigned int assignment_stack::relax(unsigned int modification,
                                     const small_model::iset& set) const {
  if (modification == NO_PREVIOUS_MODIFICATION) return NO_PREVIOUS_MODIFICATION;
  assert(modification < m_modifications.size());
  const auto live = [&](unsigned int entry) {
    return m_modifications[entry].previous_domain.intersects(set);
  };
  if (live(modification)) return modification;

  // Domains only shrink, so along the chain (newest to oldest) the entries are
  // first not live, then live. Gallop back over the chain to bracket the boundary...
  unsigned int newer = modification;  // known not live
  unsigned int older;                 // known live
  unsigned int skip = 0;
  for (;;) {
    unsigned int probe = newer;
    for (unsigned int i = 0; i <= skip; ++i) {
      const unsigned int previous = m_modifications[probe].previous_modification;
      if (previous == NO_PREVIOUS_MODIFICATION) break;
      probe = previous;
    }
    // The chain ended at a dead entry: the literal was false from the start.
    if (probe == newer) return NO_PREVIOUS_MODIFICATION;
    if (live(probe)) {
      older = probe;
      break;
    }
    newer = probe;
    if (skip < MAX_SKIP) skip = 2 * skip + 1;
  }

  // ... then halve the bracket by entry numbers. The probe is always strictly
  // inside it: the newest chain entry not above the middle, or the last one before
  // `older` if every entry in between lies above the middle.
  for (;;) {
    unsigned int probe = m_modifications[newer].previous_modification;
    if (probe == older) return older;
    const unsigned int middle = older + (newer - older) / 2;
    while (probe > middle) {
      const unsigned int previous = m_modifications[probe].previous_modification;
      if (previous == older) break;
      probe = previous;
    }
    if (live(probe))
      older = probe;
    else
      newer = probe;
  }
}

unsigned int assignment_stack::relax_before(unsigned int modification,
                                            const small_model::iset& set,
                                            unsigned int limit) const {
  assert(modification == NO_PREVIOUS_MODIFICATION || modification < m_modifications.size());
  unsigned int entry = modification;
  // Entries at or after the limit must all be dead for the literal to have been
  // false before the limit; a live one means it was falsified after it.
  while (entry != NO_PREVIOUS_MODIFICATION && !is_earlier_modification(entry, limit)) {
    const variable_modification_entry& e = m_modifications[entry];
    if (e.previous_domain.intersects(set)) return modification;
    entry = e.previous_modification;
  }
  return limit == NO_PREVIOUS_MODIFICATION ? modification : entry;
}

unsigned int assignment_stack::nth_modification(
    unsigned int n, const std::vector<implication_node>& nodes) const {
  const std::size_t count = nodes.size();
  if (n >= count) throw_out_of_range("nth_modification(n, nodes)");
  // The latest and the second latest node are what analysis asks for almost
  // always: one pass each, no copy.
  if (n + 1 == count) {
    unsigned int best = NO_PREVIOUS_MODIFICATION;
    for (const implication_node& node : nodes)
      if (is_earlier_modification(best, node.modification)) best = node.modification;
    return best;
  }
  if (n + 2 == count) {
    unsigned int first = NO_PREVIOUS_MODIFICATION;
    unsigned int second = NO_PREVIOUS_MODIFICATION;
    for (const implication_node& node : nodes) {
      const unsigned int m = node.modification;
      if (is_earlier_modification(first, m)) {
        second = first;
        first = m;
      } else if (is_earlier_modification(second, m)) {
        second = m;
      }
    }
    return second;
  }
  static std::vector<unsigned int> ordered;
  ordered.clear();
  for (const implication_node& node : nodes) ordered.push_back(node.modification);
  std::nth_element(ordered.begin(), ordered.begin() + n, ordered.end(),
                   &is_earlier_modification);
  return ordered[n];
}

int assignment_stack::asserting_level_of_nth(unsigned int n,
                                             const std::vector<implication_node>& nodes,
                                             const std::vector<small_model::iset>& sets) const {
  if (nodes.empty())
    throw std::out_of_range("Can't pass an empty vector to asserting_level(variables)");
  if (nodes.size() == 1) return 0;
  assert(sets.size() >= nodes.size());
  const unsigned int last = nth_modification(n, nodes);
  if (last == NO_PREVIOUS_MODIFICATION) return 0;
  // The latest falsifying modification among the other literals, each relaxed.
  unsigned int latest = NO_PREVIOUS_MODIFICATION;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const unsigned int m = nodes[i].modification;
    if (m == NO_PREVIOUS_MODIFICATION || m >= last) continue;
    // relax never moves forward: a node not after the best cannot improve on it.
    if (!is_earlier_modification(latest, m)) continue;
    const unsigned int relaxed = relax(m, sets[i]);
    if (is_earlier_modification(latest, relaxed)) latest = relaxed;
  }
  return int(decision_level_of(latest));
}

std::vector<unsigned int> assignment_stack::get_busy_constraints(unsigned int first) const {
  std::vector<unsigned int> busy;
  for (const variable_modification_entry& entry : m_modifications)
    if (entry.cause >= 0 && unsigned(entry.cause) >= first) busy.push_back(unsigned(entry.cause));
  return busy;
}

solver_types::label_type assignment_stack::variable_labels(unsigned int var,
                                                           solver_types::label_type label) {
  const solver_types::label_type old = m_labels[var];
  m_labels[var] = label;
  return old;
}

bool assignment_stack::audit() const {
  const std::size_t n = m_variables.size();
  if (m_previously_assigned_value.size() != n || m_names.size() != n) return false;
  for (unsigned int var = 0; var < n; ++var) {
    const variable_state& state = m_variables[var];
    small_model::iset later = state.domain;
    for (unsigned int m = state.last_modification; m != NO_PREVIOUS_MODIFICATION;) {
      if (m >= m_modifications.size()) return false;
      const variable_modification_entry& entry = m_modifications[m];
      if (entry.variable != var || !later.subset_of(entry.previous_domain)) return false;
      if (entry.previous_modification != NO_PREVIOUS_MODIFICATION && entry.previous_modification >= m)
        return false;
      later = entry.previous_domain;
      m = entry.previous_modification;
    }
    // A single value has no saved counterpart necessarily: a restart forgets them all.
    const previous_value& saved = m_previously_assigned_value[var];
    if (state.domain.is_singleton() && saved.has_value && saved.value != single_value(state.domain))
      return false;
  }
  for (std::size_t level = 0; level < m_decisions.size(); ++level) {
    const single_decision_data& d = m_decisions[level];
    if (d.variable >= n || d.modification > m_modifications.size()) return false;
    if (level > 0 && d.modification < m_decisions[level - 1].modification) return false;
  }
  // The cost order itself is kept loosely on purpose (a cost raised in a conflict moves
  // its variable only towards the leaves), but a fixed variable above an open one
  // would hide that open variable from the choice and end a search too early.
  if (m_heap.empty()) return m_heap_positions.empty();
  if (m_heap.size() != n || m_heap_positions.size() != n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    if (m_heap[i] >= n || m_heap_positions[m_heap[i]] != i) return false;
    if (i > 0 && m_variables[m_heap[(i - 1) / 2]].domain.is_singleton() &&
        !m_variables[m_heap[i]].domain.is_singleton())
      return false;
  }
  return true;
}

//==== cost heuristic ========================================================

bool assignment_stack::is_better_variable(int a, int b, int factor) const {
  if (a < 0) return false;
  if (b < 0) return true;
  const variable_state& va = m_variables[unsigned(a)];
  const variable_state& vb = m_variables[unsigned(b)];
  const unsigned int sa = members(va.domain);
  const unsigned int sb = members(vb.domain);
  // A fixed variable beats nothing; an empty domain counts as open here.
  if (sa == 1) return false;
  if (sb == 1) return true;
  // Cost per member, cross-multiplied.
  const double left = double(sb) * va.cost;
  const double right = double(sa) * vb.cost * double(factor);
  if (left != right) return left > right;
  if (va.assignment_time != vb.assignment_time) return va.assignment_time > vb.assignment_time;
  return a < b;
}

unsigned int assignment_stack::find_best_free_variable() const {
  if (m_heap.empty()) return ~0u;
  const unsigned int root = m_heap[0];
  if (m_variables[root].domain.is_singleton()) return ~0u;
  return root;
}

void assignment_stack::add_var_cost(int var, double amount) {
  m_variables[unsigned(var)].cost += amount;
  // Deliberately towards the leaves only: a variable in a conflict is mostly fixed
  // now and climbs to its place when undo_level frees it.
  raise_var_heap_cost(unsigned(var));
}

void assignment_stack::lower_var_costs() {
  m_cost_increment *= m_cost_scale;
  if (m_cost_increment > RESCALE_LIMIT) {
    m_cost_increment *= RESCALE_FACTOR;
    for (variable_state& state : m_variables) state.cost *= RESCALE_FACTOR;
  }
}

void assignment_stack::reset_var_costs(double increment) {
  for (variable_state& state : m_variables) {
    state.cost = 0.0;
    state.assignment_time = 0;
  }
  m_cost_increment = increment;
}

void assignment_stack::disable_var_costs_heap() {
  m_heap.clear();
  m_heap_positions.clear();
}

void assignment_stack::enable_var_costs_heap() {
  if (!m_heap.empty()) return;
  const unsigned int n = num_variables();
  m_heap.resize(n);
  m_heap_positions.resize(n);
  for (unsigned int var = 0; var < n; ++var) {
    m_heap[var] = var;
    m_heap_positions[var] = var;
  }
  // Bottom-up construction: sift every inner node down, the last one first.
  for (unsigned int i = n / 2; i-- > 0;) raise_var_heap_cost(m_heap[i]);
}

void assignment_stack::lower_var_heap_cost(unsigned int var) {
  if (m_heap.empty()) return;
  // A hole moves up instead of repeated swaps; the result is the same.
  std::size_t pos = m_heap_positions[var];
  while (pos > 0) {
    const std::size_t parent_pos = (pos - 1) / 2;
    const unsigned int parent = m_heap[parent_pos];
    if (!beats(var, parent)) break;
    m_heap[pos] = parent;
    m_heap_positions[parent] = unsigned(pos);
    pos = parent_pos;
  }
  m_heap[pos] = var;
  m_heap_positions[var] = unsigned(pos);
}

void assignment_stack::raise_var_heap_cost(unsigned int var) {
  if (m_heap.empty()) return;
  const std::size_t size = m_heap.size();
  std::size_t pos = m_heap_positions[var];
  for (;;) {
    const std::size_t left = 2 * pos + 1;
    if (left >= size) break;
    const std::size_t right = left + 1;
    const unsigned int left_var = m_heap[left];
    const bool left_beats = beats(left_var, var);
    std::size_t child;
    if (right < size) {
      const unsigned int right_var = m_heap[right];
      const bool right_beats = beats(right_var, var);
      if (left_beats && right_beats)
        child = beats(left_var, right_var) ? left : right;
      else if (left_beats)
        child = left;
      else if (right_beats)
        child = right;
      else
        break;
    } else if (left_beats) {
      child = left;
    } else {
      break;
    }
    const unsigned int moved = m_heap[child];
    m_heap[pos] = moved;
    m_heap_positions[moved] = unsigned(pos);
    pos = child;
  }
  m_heap[pos] = var;
  m_heap_positions[var] = unsigned(pos);
}

bool assignment_stack::check_heap() const {
  if (m_heap.empty()) return m_heap_positions.empty();
  const std::size_t n = m_variables.size();
  if (m_heap.size() != n || m_heap_positions.size() != n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned int var = m_heap[i];
    if (var >= n || m_heap_positions[var] != i) return false;
  }
  for (std::size_t i = 1; i < n; ++i)
    if (is_better_variable(int(m_heap[i]), int(m_heap[(i - 1) / 2]), 1)) return false;
  return true;
}

}  // namespace zelk
