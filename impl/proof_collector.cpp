// Proof recording and replay.
//
// Recording only appends (clause id, pivot) pairs and, for constraints that are not
// clauses, their explanation; the replay (traverse_proof) rebuilds the resolvents.
// The replay of one learned constraint first replays the learned constraints its
// analysis used, so that every premise is derived before it is used; the final
// conflict then loses its remaining literals against the initial domains, down to
// the empty clause.
#include "impl/proof_collector.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>

#include "impl/explanation_generators.h"
#include "impl/proof_print_visitor.h"
#include "impl/solver.h"

namespace zelk {

void proof_collector_dummy::print_proof(std::ostream&) const {
  throw std::runtime_error("solver::generate_proofs() was not called, no proof available");
}

//==== recording ==================================================================

namespace {

// A quarter dead: compacting then costs at most three copies of each record over
// the run, and the peak stays within a third above what is kept.
bool worth_compacting(std::size_t size, std::size_t dead) {
  constexpr std::size_t SMALL = 4096;
  return size >= SMALL && 4 * dead >= size;
}

}  // namespace

proof_collector::proof_collector(const solver* owner) : m_solver(owner) {}

proof_collector::~proof_collector() = default;

unsigned int proof_collector::learned_index(int id) const {
  if (id < 0 || m_first_conflict_clause == NONE || unsigned(id) < m_first_conflict_clause)
    return NONE;
  const unsigned int k = unsigned(id) - m_first_conflict_clause;
  return k < m_conflict_starts.size() ? k : NONE;
}

void proof_collector::cite(int id) {
  const unsigned int k = learned_index(id);
  if (k != NONE) ++m_citations[k];
}

void proof_collector::uncite(int id) {
  const unsigned int k = learned_index(id);
  if (k == NONE) return;
  assert(m_citations[k] > 0);
  if (--m_citations[k] == 0 && (m_state[k] & (ERASED | RELEASED)) == ERASED) release(k);
}

void proof_collector::name_conflict_clause(unsigned int constraint) {
  if (m_conflict_starts.empty()) m_first_conflict_clause = constraint;
  // The replay finds the analysis of a learned constraint by its index, which
  // relies on learned constraints taking consecutive indices within one solve.
  assert(constraint == m_first_conflict_clause + m_conflict_starts.size());
  m_conflict_starts.push_back(m_current_start);
  m_first_explanation_id.push_back(m_current_explanation_id);
  m_first_explanation_pos.push_back(m_current_explanation_pos);
  m_explanations_of.push_back(unsigned(m_explanations.size()) - m_current_explanation_pos);
  m_citations.push_back(0);
  m_state.push_back(0);
  m_current_named = true;
}

void proof_collector::record_conflict(unsigned int constraint,
                                      const std::vector<small_model::iset>& explanation,
                                      std::unique_ptr<explanation_rule> rule) {
  // An analysis that named nothing is cited by nothing.
  if (m_current_start != NONE && !m_current_named) discard_current_analysis();
  if (worth_compacting(m_entries.size(), m_dead_entries) ||
      worth_compacting(m_explanations.size(), m_dead_explanations) ||
      worth_compacting(m_sets.size(), m_dead_sets))
    compact_records();
  m_current_start = unsigned(m_entries.size());
  m_current_explanation_id = m_explanation_count;
  m_current_explanation_pos = unsigned(m_explanations.size());
  m_current_set_pos = unsigned(m_sets.size());
  m_current_rule_pos = unsigned(m_rules.size());
  m_current_named = false;
  append_resolution_entry(constraint, explanation, -1, std::move(rule));
}

void proof_collector::record_resolution(unsigned int constraint,
                                        const std::vector<small_model::iset>& explanation,
                                        int pivot, std::unique_ptr<explanation_rule> rule) {
  append_resolution_entry(constraint, explanation, pivot, std::move(rule));
}

void proof_collector::append_resolution_entry(unsigned int constraint,
                                              const std::vector<small_model::iset>& explanation,
                                              int pivot, std::unique_ptr<explanation_rule> rule) {
  // A clause is its own explanation: its index says everything.
  if (m_solver->is_clause(constraint)) {
    m_entries.emplace_back(int(constraint), pivot);
    cite(int(constraint));
    return;
  }
  if (rule) {
    m_explanations.push_back(stored_explanation{constraint, unsigned(m_rules.size()), RULE});
    m_rules.push_back(std::move(rule));
  } else {
    m_explanations.push_back(
        stored_explanation{constraint, unsigned(m_sets.size()), unsigned(explanation.size())});
    m_sets.insert(m_sets.end(), explanation.begin(), explanation.end());
  }
  m_entries.emplace_back(~int(m_explanation_count++), pivot);
}

void proof_collector::drop_explanation_storage(const stored_explanation& e) {
  if (e.count == RULE)
    m_rules[e.begin].reset();
  else
    m_dead_sets += e.count;
  ++m_dead_explanations;
}

void proof_collector::pop_resolution_entry() {
  if (m_entries.empty()) return;
  const int id = m_entries.back().first;
  m_entries.pop_back();
  if (m_explanation_count > 0 && id == ~int(m_explanation_count - 1)) {
    --m_explanation_count;
    const stored_explanation e = m_explanations.back();
    m_explanations.pop_back();
    if (e.count == RULE)
      m_rules.pop_back();
    else
      m_sets.resize(e.begin);
    return;
  }
  uncite(id);
}

void proof_collector::discard_current_analysis() {
  for (std::size_t i = m_current_start; i < m_entries.size(); ++i) uncite(m_entries[i].first);
  m_entries.resize(m_current_start);
  m_explanations.resize(m_current_explanation_pos);
  m_sets.resize(m_current_set_pos);
  m_rules.resize(m_current_rule_pos);
}

std::size_t proof_collector::analysis_end(std::size_t start) const {
  std::size_t e = start + 1;
  while (e < m_entries.size() && m_entries[e].second >= 0) ++e;
  return e;
}

void proof_collector::release(unsigned int k) {
  // A worklist, not recursion: releasing one constraint may free a long chain.
  std::vector<unsigned int> work{k};
  while (!work.empty()) {
    const unsigned int r = work.back();
    work.pop_back();
    m_state[r] |= RELEASED;
    ++m_released_count;
    const unsigned int constraint = m_first_conflict_clause + r;
    if (constraint < m_saved_index.size() && m_saved_index[constraint].begin != NONE) {
      m_dead_saved_literals += m_saved_index[constraint].size;
      m_saved_index[constraint] = saved_ref();
    }
    const std::size_t s = m_conflict_starts[r];
    const std::size_t e = analysis_end(s);
    std::size_t explanation = m_first_explanation_pos[r];
    for (std::size_t i = s; i < e; ++i) {
      const int id = m_entries[i].first;
      if (is_explanation_clause(id)) {
        drop_explanation_storage(m_explanations[explanation++]);
        continue;
      }
      const unsigned int p = learned_index(id);
      if (p == NONE) continue;
      assert(m_citations[p] > 0);
      if (--m_citations[p] == 0 && (m_state[p] & (ERASED | RELEASED)) == ERASED)
        work.push_back(p);
    }
    m_dead_entries += e - s;
  }
}

void proof_collector::forget_constraint(unsigned int constraint) {
  const unsigned int k = learned_index(int(constraint));
  if (k == NONE || m_state[k] != 0) return;
  m_state[k] |= ERASED;
  if (m_citations[k] == 0) {
    release(k);
    return;
  }
  // Still a premise of some kept record: the replay will need its clause.
  if (find_saved_clause(constraint) == saved_clauses_end() && m_solver->is_clause(constraint)) {
    clause_data clause;
    get_solver_clause(constraint, clause);
    save_clause(constraint, clause);
  }
}

void proof_collector::compact_records() {
  // Analyses keep their order: the replay finds the end of one at the start of the
  // next. Every write goes below the read of the same place, so one forward pass.
  std::size_t entry_to = 0;
  std::size_t explanation_to = 0;
  std::size_t set_to = 0;
  for (std::size_t k = 0; k < m_conflict_starts.size(); ++k) {
    if (m_state[k] & RELEASED) continue;
    const std::size_t s = m_conflict_starts[k];
    const std::size_t e = analysis_end(s);
    std::size_t explanation = m_first_explanation_pos[k];
    m_first_explanation_pos[k] = unsigned(explanation_to);
    for (std::size_t i = s; i < e; ++i) {
      if (!is_explanation_clause(m_entries[i].first)) continue;
      stored_explanation x = m_explanations[explanation++];
      if (x.count != RULE) {
        std::copy(m_sets.begin() + std::ptrdiff_t(x.begin),
                  m_sets.begin() + std::ptrdiff_t(x.begin + x.count),
                  m_sets.begin() + std::ptrdiff_t(set_to));
        x.begin = unsigned(set_to);
        set_to += x.count;
      }
      m_explanations[explanation_to++] = x;
    }
    std::copy(m_entries.begin() + std::ptrdiff_t(s), m_entries.begin() + std::ptrdiff_t(e),
              m_entries.begin() + std::ptrdiff_t(entry_to));
    m_conflict_starts[k] = unsigned(entry_to);
    entry_to += e - s;
  }
  m_entries.resize(entry_to);
  m_explanations.resize(explanation_to);
  m_sets.resize(set_to);
  m_dead_entries = m_dead_explanations = m_dead_sets = 0;
}

void proof_collector::save_clause(unsigned int constraint, const clause_data& clause) {
  const unsigned int k = learned_index(int(constraint));
  if (k != NONE && (m_state[k] & RELEASED)) return;
  if (constraint >= m_saved_index.size())
    m_saved_index.resize(std::max<std::size_t>(constraint + 1, 2 * m_saved_index.size()));
  if (m_saved_index[constraint].begin != NONE) return;
  if (worth_compacting(m_saved_literals.size(), m_dead_saved_literals)) compact_saved_clauses();
  m_saved_index[constraint] =
      saved_ref{unsigned(m_saved_literals.size()), unsigned(clause.size())};
  m_saved_literals.insert(m_saved_literals.end(), clause.begin(), clause.end());
}

void proof_collector::compact_saved_clauses() {
  std::vector<std::pair<unsigned int, unsigned int>> order;  // (place, constraint)
  for (unsigned int c = 0; c < m_saved_index.size(); ++c)
    if (m_saved_index[c].begin != NONE) order.emplace_back(m_saved_index[c].begin, c);
  std::sort(order.begin(), order.end());
  std::size_t to = 0;
  for (const auto& [from, c] : order) {
    const unsigned int n = m_saved_index[c].size;
    std::copy(m_saved_literals.begin() + std::ptrdiff_t(from),
              m_saved_literals.begin() + std::ptrdiff_t(from + n),
              m_saved_literals.begin() + std::ptrdiff_t(to));
    m_saved_index[c].begin = unsigned(to);
    to += n;
  }
  m_saved_literals.resize(to);
  m_dead_saved_literals = 0;
}

proof_collector::saved_clause_iterator proof_collector::find_saved_clause(
    unsigned int constraint) const {
  if (constraint >= m_saved_index.size() || m_saved_index[constraint].begin == NONE)
    return saved_clauses_end();
  const saved_ref& r = m_saved_index[constraint];
  return saved_clause_iterator(
      constraint, saved_literals(m_saved_literals.begin() + std::ptrdiff_t(r.begin), r.size));
}

proof_collector::explanation_data proof_collector::get_explanation_data(int id) const {
  const unsigned int g = unsigned(~id);
  // The analysis that recorded it: the last whose first explanation is not after it.
  std::size_t pos;
  std::size_t end;
  if (m_current_start != NONE && !m_current_named && g >= m_current_explanation_id) {
    pos = m_current_explanation_pos + (g - m_current_explanation_id);
    end = m_explanations.size();
  } else {
    const auto it =
        std::upper_bound(m_first_explanation_id.begin(), m_first_explanation_id.end(), g);
    const std::size_t k = std::size_t(it - m_first_explanation_id.begin());
    if (k == 0 || (m_state[k - 1] & RELEASED))
      throw std::runtime_error("proof_collector: the record of explanation[" +
                               std::to_string(id) + "] was released");
    pos = m_first_explanation_pos[k - 1] + (g - m_first_explanation_id[k - 1]);
    end = m_first_explanation_pos[k - 1] + m_explanations_of[k - 1];
  }
  if (pos >= end)
    throw std::runtime_error("proof_collector: the record of explanation[" + std::to_string(id) +
                             "] was released");
  const stored_explanation& e = m_explanations[pos];
  explanation_data data;
  data.constraint = e.constraint;
  if (e.count == RULE) {
    data.rule = m_rules[e.begin].get();
  } else {
    data.literals = m_sets.begin() + std::ptrdiff_t(e.begin);
    data.literal_count = e.count;
  }
  return data;
}

//==== clauses by id ===============================================================

bool proof_collector::is_live(unsigned int constraint) const {
  return constraint < m_solver->num_constraints() && m_solver->propagator(constraint) != nullptr;
}

void proof_collector::get_clause(int id, clause_data& clause) const {
  if (id >= 0) {
    get_solver_clause(unsigned(id), clause);
  } else if (is_explanation_clause(id)) {
    get_explanation_clause(id, clause);
  } else {
    throw std::runtime_error(
        "proof_collector::get_clause(): non-explanation intermediate constraints are not "
        "supported");
  }
}

bool proof_collector::has_clause(unsigned int constraint) const {
  if (is_live(constraint)) return m_solver->is_clause(constraint);
  return find_saved_clause(constraint) != saved_clauses_end();
}

void proof_collector::get_solver_clause(unsigned int constraint, clause_data& clause) const {
  if (is_live(constraint)) {
    if (!m_solver->is_clause(constraint))
      throw std::runtime_error("proof_collector::get_solver_clause(): not a clause");
    get_constraint_variables(constraint, clause);
    const std::vector<small_model::iset>& literals = m_solver->clause_literals(constraint);
    for (std::size_t i = 0; i < clause.size() && i < literals.size(); ++i)
      clause[i].set = literals[i];
    return;
  }
  const saved_clause_iterator it = find_saved_clause(constraint);
  if (it == saved_clauses_end()) throw std::runtime_error("Can't find this constraint_it");
  clause.clear();
  clause.reserve(it->second.size());
  for (const literal_data& l : it->second) clause.add(l);
}

void proof_collector::get_constraint_variables(unsigned int constraint,
                                               clause_data& clause) const {
  clause.clear();
  if (is_live(constraint)) {
    const std::vector<unsigned int>& params = m_solver->connectivity(constraint).params();
    clause.reserve(params.size());
    for (unsigned int v : params) clause.add(v, small_model::iset());
    return;
  }
  const saved_clause_iterator it = find_saved_clause(constraint);
  if (it == saved_clauses_end()) throw std::runtime_error("Can't find this constraint_it");
  clause.reserve(it->second.size());
  for (const literal_data& l : it->second) clause.add(l.variable, small_model::iset());
}

void proof_collector::get_explanation_clause(int id, clause_data& clause) const {
  const explanation_data data = get_explanation_data(id);
  get_constraint_variables(data.constraint, clause);
  if (data.rule) {
    static std::vector<small_model::iset> from_rule;
    from_rule.clear();
    data.rule->get_explanation(from_rule);
    for (std::size_t i = 0; i < clause.size(); ++i)
      clause[i].set = i < from_rule.size() ? from_rule[i] : small_model::iset();
  } else {
    std::deque<small_model::iset>::const_iterator set = data.literals;
    for (std::size_t i = 0; i < clause.size(); ++i)
      clause[i].set = i < data.literal_count ? *set++ : small_model::iset();
  }
  // A parameter with an empty set takes no part in the clause; the last literal
  // fills the hole, which fixes the order of the printed explanation.
  clause_data::literal_vector& literals = clause.literals();
  for (std::size_t i = literals.size(); i-- > 0;) {
    if (!literals[i].set.empty()) continue;
    literals[i] = literals.back();
    literals.pop_back();
  }
}

//==== resolution ====================================================================

namespace {

// The normal form of clause_data::canonicalize (by variable, one literal each, no
// empty set), reached faster on what resolution hands over: the resolvent so far
// comes in normal form but for its last literal, the previous pivot, so only that
// and the other side's few literals need sorting, then one merge.
void normalize(clause_data::literal_vector& v) {
  const auto sorted_end = std::is_sorted_until(v.begin(), v.end());
  if (sorted_end != v.end()) {
    std::sort(sorted_end, v.end());
    static std::vector<literal_data> merged;  // keeps its capacity
    merged.clear();
    std::merge(v.begin(), sorted_end, sorted_end, v.end(), std::back_inserter(merged));
    std::copy(merged.begin(), merged.end(), v.begin());
  }
  std::size_t to = 0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (to > 0 && v[to - 1].variable == v[i].variable)
      v[to - 1].set |= v[i].set;
    else
      v[to++] = v[i];
  }
  v.resize(to);
  v.erase(std::remove_if(v.begin(), v.end(), [](const literal_data& l) { return l.set.empty(); }),
          v.end());
}

}  // namespace

void proof_collector::resolve(const clause_data& left, const clause_data& right,
                              unsigned int pivot, clause_data& result) {
  result.clear();
  result.reserve(left.size() + right.size());
  small_model::iset a;
  small_model::iset b;
  for (const literal_data& l : left) {
    if (l.variable == pivot)
      a |= l.set;
    else
      result.add(l);
  }
  for (const literal_data& l : right) {
    if (l.variable == pivot)
      b |= l.set;
    else
      result.add(l);
  }
  normalize(result.literals());
  const small_model::iset both = a & b;
  if (!both.empty()) result.add(pivot, both);
}

//==== replay ==========================================================================

void proof_collector::traverse_proof(proof_visitor& visitor) const {
  // Nothing to start from: no analysis at all, none that named a constraint (an
  // analysis at level 0 that gave up), or a last analysis that named none. In the
  // last two cases the records of a refutation are incomplete, and replaying the
  // constraint named last would "prove" a clause that is not the empty one.
  if (m_entries.empty() || m_conflict_starts.empty() || m_conflict_starts.back() != m_current_start)
    throw std::runtime_error("No unsatisfiability record available");
  const unsigned int f = m_first_conflict_clause;
  const unsigned int n = unsigned(m_conflict_starts.size());
  traversal t{visitor, -int(m_explanation_count), std::vector<bool>(std::size_t(f) + n, false), {},
              {}};
  std::fill(t.visited.begin(), t.visited.begin() + f, true);
  traverse_constraint(t, f + n - 1);
}

void proof_collector::traverse_constraint(traversal& t, unsigned int constraint) const {
  // Depth first, premises before the constraint that uses them, so that every
  // learned constraint is derived before it is used. The walk keeps its own stack:
  // a chain of learned constraints each resting on the one before can be as long
  // as the search, far deeper than the call stack allows.
  struct frame {
    unsigned int constraint;
    std::size_t start;  // entry of its conflict
    std::size_t end;    // entry after its last step
    std::size_t next;   // next entry whose premise is to be walked
  };
  std::vector<frame> stack;
  const auto push = [&](unsigned int c) {
    // Every learned constraint of the solve was named; an index past them has no
    // recorded derivation.
    if (c >= t.visited.size())
      throw std::runtime_error(
          "proof_collector::traverse_proof(): no derivation recorded for a learned constraint");
    if (m_state[c - m_first_conflict_clause] & RELEASED)
      throw std::runtime_error("Can't find this constraint_it");
    t.visited[c] = true;
    const std::size_t s = m_conflict_starts[c - m_first_conflict_clause];
    stack.push_back(frame{c, s, analysis_end(s), s});
  };
  if (t.visited[constraint]) return;
  push(constraint);
  while (!stack.empty()) {
    frame& top = stack.back();
    bool descended = false;
    while (top.next < top.end) {
      const int id = m_entries[top.next++].first;
      if (id < 0 || (unsigned(id) < t.visited.size() && t.visited[unsigned(id)])) continue;
      push(unsigned(id));  // `top` is invalid from here on
      descended = true;
      break;
    }
    if (descended) continue;
    const frame done = stack.back();
    stack.pop_back();
    replay_analysis(t, done.constraint, done.start, done.end);
  }
}

void proof_collector::replay_analysis(traversal& t, unsigned int constraint, std::size_t s,
                                      std::size_t e) const {
  int current_id = m_entries[s].first;
  clause_data current;
  get_clause(current_id, current);
  if (is_explanation_clause(current_id)) t.visitor.visit_explanation(current_id);
  for (std::size_t i = s + 1; i < e; ++i) process_resolution(t, constraint, i, current_id, current);
  // Only the final conflict meets the initial domains.
  if (e == m_entries.size() && !current.empty())
    process_conflict_with_initial(t, current_id, current);
}

void proof_collector::process_resolution(traversal& t, unsigned int constraint, std::size_t entry,
                                         int& current_id, clause_data& current) const {
  // The last step of an analysis gives the learned constraint itself.
  const bool more = entry + 1 < m_entries.size() && m_entries[entry + 1].second >= 0;
  const int result_id = more ? --t.state : int(constraint);
  const int c = m_entries[entry].first;
  const unsigned int pivot = unsigned(m_entries[entry].second);
  if (is_explanation_clause(c)) t.visitor.visit_explanation(c);
  get_clause(c, t.right);
  resolve(current, t.right, pivot, t.result);
  t.visitor.visit_resolution(pivot, current_id, current, c, t.right, result_id, t.result);
  std::swap(current, t.result);
  current_id = result_id;
}

void proof_collector::process_conflict_with_initial(traversal& t, int current_id,
                                                    clause_data& current) const {
  const assignment_stack& stack = m_solver->stack();
  clause_data result;
  while (!current.empty()) {
    const int new_id = --t.state;
    const unsigned int x = current.literals().back().variable;
    // Every literal of x goes at once: the initial domain refutes them all, and a
    // clause that was never brought to normal form may hold several.
    result.clear();
    for (const literal_data& l : current)
      if (l.variable != x) result.add(l);
    t.visitor.visit_initial_resolution(
        x, stack.var_domain_after_modification(x, assignment_stack::NO_PREVIOUS_MODIFICATION),
        current_id, current, new_id, result);
    std::swap(current, result);
    current_id = new_id;
  }
}

void proof_collector::print_proof(std::ostream& os) const {
  proof_print_visitor printer(os, *this);
  traverse_proof(printer);
  os.flush();
}

//==== the text of the proof ==============================================================

void proof_collector::print_clause(std::ostream& os, int id, const clause_data& clause) const {
  os << "[" << id << "] ";
  clause.print(os, m_solver->stack().print_strategy());
}

void proof_collector::print_resolution(std::ostream& os, unsigned int pivot, int left_id,
                                       const clause_data& left, int right_id,
                                       const clause_data& right, int result_id,
                                       const clause_data& result) const {
  os << "resolve[";
  m_solver->stack().print_strategy().print(os, pivot);
  os << "] ";
  print_clause(os, left_id, left);
  os << " with ";
  print_clause(os, right_id, right);
  os << "\nconsequent: ";
  print_clause(os, result_id, result);
  // No flush per step: a proof of a million lines would go at the pace of write calls.
  os << "\n\n";
}

void proof_collector::print_initial_resolution(std::ostream& os, unsigned int variable,
                                               const small_model::iset& initial, int id,
                                               const clause_data& clause, int result_id,
                                               const clause_data& result) const {
  const variable_print_strategy& strategy = m_solver->stack().print_strategy();
  os << "resolve[";
  strategy.print(os, variable);
  os << "] ";
  print_clause(os, id, clause);
  os << " with initial domain (";
  strategy.print(os, variable);
  if (initial.is_singleton())
    os << "=" << initial;
  else
    os << ":{" << initial << "}";
  os << ")\nconsequent: ";
  print_clause(os, result_id, result);
  os << "\n\n";
}

}  // namespace zelk
