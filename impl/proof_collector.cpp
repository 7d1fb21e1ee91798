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
#include <ostream>
#include <stdexcept>

#include "impl/explanation_generators.h"
#include "impl/proof_print_visitor.h"
#include "impl/solver.h"

namespace zelk {

void proof_collector_dummy::print_proof(std::ostream&) const {
  throw std::runtime_error("solver::generate_proofs() was not called, no proof available");
}

//==== explanation_data =========================================================

proof_collector::explanation_data::explanation_data() = default;

proof_collector::explanation_data::explanation_data(const explanation_data& other)
    : constraint(other.constraint),
      rule(other.rule ? other.rule->clone() : nullptr),
      literals(other.literals) {}

proof_collector::explanation_data::explanation_data(explanation_data&& other) noexcept = default;

proof_collector::explanation_data& proof_collector::explanation_data::operator=(
    const explanation_data& other) {
  if (this != &other) {
    std::unique_ptr<explanation_rule> copy = other.rule ? other.rule->clone() : nullptr;
    literals = other.literals;
    constraint = other.constraint;
    rule = std::move(copy);
  }
  return *this;
}

proof_collector::explanation_data& proof_collector::explanation_data::operator=(
    explanation_data&& other) noexcept = default;

proof_collector::explanation_data::~explanation_data() = default;

//==== recording ==================================================================

proof_collector::proof_collector(const solver* owner) : m_solver(owner) {}

proof_collector::~proof_collector() = default;

void proof_collector::name_conflict_clause(unsigned int constraint) {
  if (m_conflict_starts.empty()) m_first_conflict_clause = constraint;
  // The replay finds the analysis of a learned constraint by its index, which
  // relies on learned constraints taking consecutive indices within one solve.
  assert(constraint == m_first_conflict_clause + m_conflict_starts.size());
  m_conflict_starts.push_back(m_current_start);
}

void proof_collector::record_conflict(unsigned int constraint,
                                      const std::vector<small_model::iset>& explanation,
                                      std::unique_ptr<explanation_rule> rule) {
  m_current_start = unsigned(m_entries.size());
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
    return;
  }
  explanation_data data;
  data.constraint = constraint;
  if (rule)
    data.rule = std::move(rule);
  else
    data.literals = explanation;
  m_explanations.push_back(std::move(data));
  m_entries.emplace_back(~int(m_explanations.size() - 1), pivot);
}

void proof_collector::pop_resolution_entry() {
  if (m_entries.empty()) return;
  const int id = m_entries.back().first;
  m_entries.pop_back();
  if (!m_explanations.empty() && id == ~int(m_explanations.size() - 1)) m_explanations.pop_back();
}

void proof_collector::save_clause(unsigned int constraint, const clause_data& clause) {
  if (!m_saved_clauses.empty() && m_saved_clauses.back().first > constraint)
    m_saved_sorted = false;
  m_saved_clauses.emplace_back(constraint, clause);
}

void proof_collector::prepare_to_print() {
  // Stable: of several copies of one clause the first saved stays first.
  std::stable_sort(m_saved_clauses.begin(), m_saved_clauses.end(),
                   [](const saved_clause& a, const saved_clause& b) { return a.first < b.first; });
  m_saved_sorted = true;
}

proof_collector::saved_clause_iterator proof_collector::find_saved_clause(
    unsigned int constraint) const {
  if (!m_saved_sorted) {
    return std::find_if(m_saved_clauses.begin(), m_saved_clauses.end(),
                        [constraint](const saved_clause& s) { return s.first == constraint; });
  }
  const saved_clause_iterator it =
      std::lower_bound(m_saved_clauses.begin(), m_saved_clauses.end(), constraint,
                       [](const saved_clause& s, unsigned int c) { return s.first < c; });
  if (it != m_saved_clauses.end() && it->first == constraint) return it;
  return m_saved_clauses.end();
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
  if (it == m_saved_clauses.end()) throw std::runtime_error("Can't find this constraint_it");
  clause = it->second;
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
  if (it == m_saved_clauses.end()) throw std::runtime_error("Can't find this constraint_it");
  clause.reserve(it->second.size());
  for (const literal_data& l : it->second) clause.add(l.variable, small_model::iset());
}

void proof_collector::get_explanation_clause(int id, clause_data& clause) const {
  const explanation_data& data = get_explanation_data(id);
  get_constraint_variables(data.constraint, clause);
  const std::vector<small_model::iset>* sets = &data.literals;
  static std::vector<small_model::iset> from_rule;
  if (data.rule) {
    from_rule.clear();
    data.rule->get_explanation(from_rule);
    sets = &from_rule;
  }
  for (std::size_t i = 0; i < clause.size(); ++i)
    clause[i].set = i < sets->size() ? (*sets)[i] : small_model::iset();
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
  result.canonicalize();
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
  traversal t{visitor, -int(m_explanations.size()), std::vector<bool>(std::size_t(f) + n, false)};
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
    t.visited[c] = true;
    const std::size_t s = m_conflict_starts[c - m_first_conflict_clause];
    std::size_t e = s + 1;
    while (e < m_entries.size() && m_entries[e].second >= 0) ++e;
    stack.push_back(frame{c, s, e, s});
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
  clause_data right;
  get_clause(c, right);
  clause_data result;
  resolve(current, right, pivot, result);
  t.visitor.visit_resolution(pivot, current_id, current, c, right, result_id, result);
  current = std::move(result);
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
