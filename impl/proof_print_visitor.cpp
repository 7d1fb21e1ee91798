// Writes each step of a replayed refutation as text.
#include "impl/proof_print_visitor.h"

#include <ostream>
#include <vector>

#include "impl/explanation_generators.h"
#include "impl/solver.h"

namespace zelk {

void proof_print_visitor::visit_explanation(int id) {
  // The clause first: a missing record raises before anything is written.
  clause_data clause;
  m_collector->get_clause(id, clause);
  const solver& s = m_collector->get_solver();
  const proof_collector::explanation_data& data = m_collector->get_explanation_data(id);
  if (data.rule) {
    clause_data params;
    m_collector->get_constraint_variables(data.constraint, params);
    std::vector<unsigned int> variables;
    variables.reserve(params.size());
    for (const literal_data& l : params) variables.push_back(l.variable);
    m_os << "rule ";
    data.rule->print(m_os, s.stack().print_strategy(), variables);
    m_os << ": ";
  }
  s.print_constraint(m_os, data.constraint);
  m_os << "\nconsequent: ";
  m_collector->print_clause(m_os, id, clause);
  m_os << "\n\n";
}

void proof_print_visitor::visit_resolution(unsigned int pivot, int left_id,
                                           const clause_data& left, int right_id,
                                           const clause_data& right, int result_id,
                                           const clause_data& result) {
  m_collector->print_resolution(m_os, pivot, left_id, left, right_id, right, result_id, result);
}

void proof_print_visitor::visit_initial_resolution(unsigned int variable,
                                                   const small_model::iset& initial, int id,
                                                   const clause_data& clause, int result_id,
                                                   const clause_data& result) {
  m_collector->print_initial_resolution(m_os, variable, initial, id, clause, result_id, result);
}

}  // namespace zelk
