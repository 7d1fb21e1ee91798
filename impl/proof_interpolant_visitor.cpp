// Partial interpolants along the replayed refutation; see the header for the rules.
#include "impl/proof_interpolant_visitor.h"

#include <deque>
#include <iostream>
#include <stdexcept>
#include <string>

namespace zelk {

namespace {

// Whether every literal of `derived` lies within the literals of `used` on the same
// variable, so that `derived` implies `used`.
bool implies(const clause_data& derived, const clause_data& used) {
  for (const literal_data& l : derived) {
    small_model::iset covering;
    for (const literal_data& m : used)
      if (m.variable == l.variable) covering |= m.set;
    if (!l.set.subset_of(covering)) return false;
  }
  return true;
}

}  // namespace

proof_interpolant_visitor::proof_interpolant_visitor(const proof_collector& collector,
                                                     const solver& s)
    : m_collector(&collector),
      m_solver(&s),
      m_variable_labels(s.variables_touched_by_labels()),
      m_trace(s.report_level >= 2) {
  // A constraint outside A is in B whether it carries a label or not, so B sees its
  // variables: a caller that labels only A still gets an interpolant that holds.
  for (unsigned int c = 0; c < s.first_learned() && c < s.num_constraints(); ++c) {
    if (!s.propagator(c) || in_A(c) || is_learned(c)) continue;
    for (unsigned int v : s.connectivity(c).params()) m_variable_labels[v] |= VISIBLE_TO_B;
  }
}

bool proof_interpolant_visitor::in_A(unsigned int constraint) const {
  return (m_solver->constraint_labels(constraint) & PART_A) != 0;
}

bool proof_interpolant_visitor::is_learned(unsigned int constraint) const {
  return constraint >= m_solver->first_learned() ||
         (m_solver->constraint_labels(constraint) & solver::LEARNED_LABEL) != 0;
}

void proof_interpolant_visitor::set(int id, const formula& f) { m_formulas.insert_or_assign(id, f); }

void proof_interpolant_visitor::print(const formula& f) const {
  f.print(std::cout, m_solver->stack().print_strategy());
}

formula proof_interpolant_visitor::get_formula(int id) {
  const std::map<int, formula>::const_iterator it = m_formulas.find(id);
  if (it != m_formulas.end()) return it->second;
  if (m_collector->is_explanation_clause(id)) {
    visit_explanation(id);
    return m_formulas.at(id);
  }
  if (id < 0)
    throw std::runtime_error("proof_interpolant_visitor: clause[" + std::to_string(id) +
                             "] is used before it is derived");
  const unsigned int constraint = unsigned(id);
  if (is_learned(constraint)) return learned_formula(constraint);
  if (in_A(constraint)) return introduce_clause_in_A(id);
  const formula f(true);
  set(id, f);
  if (m_trace) {
    std::cout << "HypC-B" << " (clause[" << id << "])\n---> ";
    print(f);
    std::cout << "\n";
  }
  return f;
}

formula proof_interpolant_visitor::introduce_clause_in_A(int id) {
  clause_data clause;
  m_collector->get_clause(id, clause);
  clause_data::literal_vector& literals = clause.literals();
  std::size_t kept = 0;
  for (std::size_t i = 0; i < literals.size(); ++i)
    if (visible_to_B(literals[i].variable)) literals[kept++] = literals[i];
  literals.resize(kept);
  const formula f(clause);
  set(id, f);
  if (m_trace) {
    std::cout << "HypC-A" << " (clause[" << id << "])\n---> ";
    print(f);
    std::cout << "\n";
  }
  return f;
}

formula proof_interpolant_visitor::learned_formula(unsigned int constraint) {
  // A learned constraint of this refutation whose formula is not known yet came
  // from an analysis of one entry: no resolution, the learned clause is the clause
  // that the analysis started from, and so is its formula.
  const unsigned int first = m_collector->first_conflict_clause();
  const std::vector<unsigned int>& starts = m_collector->conflict_starts();
  if (constraint < m_solver->first_learned() || constraint < first ||
      constraint - first >= starts.size())
    throw std::runtime_error("proof_interpolant_visitor: constraint[" + std::to_string(constraint) +
                             "] was learned outside this refutation, so it belongs to neither part");
  const std::deque<proof_collector::resolution_entry>& entries = m_collector->resolution_entries();
  const std::size_t s = starts[constraint - first];
  if (s + 1 < entries.size() && entries[s + 1].second >= 0)
    throw std::runtime_error("proof_interpolant_visitor: learned constraint[" +
                             std::to_string(constraint) + "] is used before its derivation");
  const int start = entries[s].first;
  const formula f = get_formula(start);
  clause_data clause;
  m_collector->get_clause(start, clause);
  m_derived.insert_or_assign(int(constraint), std::move(clause));
  set(int(constraint), f);
  return f;
}

void proof_interpolant_visitor::check_learned_premise(int id, const clause_data& clause) const {
  if (id < 0 || !is_learned(unsigned(id))) return;
  const std::map<int, clause_data>::const_iterator it = m_derived.find(id);
  if (it == m_derived.end() || !implies(it->second, clause))
    throw std::runtime_error("proof_interpolant_visitor: learned constraint[" + std::to_string(id) +
                             "] is not the clause that its derivation gives");
}

void proof_interpolant_visitor::visit_explanation(int id) {
  const unsigned int constraint = m_collector->get_constraint_explained_by(id);
  // Under a recorded proof every learned constraint is a clause and enters by its
  // own id; one that enters as an explanation was learned elsewhere, possibly by
  // combination, and its part is unknown.
  if (is_learned(constraint))
    throw std::runtime_error("proof_interpolant_visitor: learned constraint[" +
                             std::to_string(constraint) +
                             "] enters the proof as an explanation, so it belongs to neither part");
  clause_data clause;
  m_collector->get_clause(id, clause);
  const bool a = in_A(constraint);
  formula f(true);
  if (a) {
    clause_data shared;
    for (const literal_data& l : clause)
      if (visible_to_B(l.variable)) shared.add(l);
    f = formula(shared);
  }
  set(id, f);
  // An explanation that is empty by itself refutes the model with no step after it.
  if (clause.empty() && !m_has_root) {
    m_root_id = id;
    m_has_root = true;
  }
  if (m_trace) {
    std::cout << (a ? "HypC-A" : "HypC-B") << " (constraint[" << constraint << "] explanation["
              << id << "])\n---> ";
    print(f);
    std::cout << "\n";
  }
}

void proof_interpolant_visitor::visit_resolution(unsigned int pivot, int left_id,
                                                 const clause_data& left, int right_id,
                                                 const clause_data& right, int result_id,
                                                 const clause_data& result) {
  const formula f1 = get_formula(left_id);
  const formula f2 = get_formula(right_id);
  check_learned_premise(left_id, left);
  check_learned_premise(right_id, right);
  const bool b = visible_to_B(pivot);
  const formula f = b ? f1 && f2 : f1 || f2;
  set(result_id, f);
  if (result_id >= 0) m_derived.insert_or_assign(result_id, result);
  if (result.empty()) {
    m_root_id = result_id;
    m_has_root = true;
  }
  if (m_trace) {
    std::cout << (b ? "Res-B[" : "Res-A[");
    m_solver->stack().print_strategy().print(std::cout, pivot);
    std::cout << "] { " << left_id << ": ";
    print(f1);
    std::cout << "}\n           { " << right_id << ": ";
    print(f2);
    std::cout << "}\n---> " << result_id << ": ";
    print(f);
    std::cout << "\n";
  }
}

void proof_interpolant_visitor::visit_initial_resolution(unsigned int variable,
                                                         const small_model::iset&, int id,
                                                         const clause_data& clause, int result_id,
                                                         const clause_data& result) {
  const formula f = get_formula(id);
  check_learned_premise(id, clause);
  set(result_id, f);
  if (result.empty()) {
    m_root_id = result_id;
    m_has_root = true;
  }
  if (m_trace) {
    std::cout << (visible_to_B(variable) ? "HypC-B + Res-B" : "HypC-A + Res-A")
              << " (initial domain of ";
    m_solver->stack().print_strategy().print(std::cout, variable);
    std::cout << " with clause[" << id << "])\n---> ";
    print(f);
    std::cout << "\n";
  }
}

formula proof_interpolant_visitor::get_interpolant() const {
  if (!m_has_root)
    throw std::runtime_error(
        "solver::get_interpolant(): the proof derives no empty clause, so there is no interpolant");
  return m_formulas.at(m_root_id);
}

}  // namespace zelk
