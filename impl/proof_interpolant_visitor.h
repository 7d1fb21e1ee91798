// Craig interpolants from a replayed refutation (McMillan's system, on
// multi-valued clauses).
//
// The model is split by labels: a constraint with bit PART_A is in A, every other
// constraint is in B. A variable is seen by B when some constraint of B has it,
// or its own label or that of a constraint has bit VISIBLE_TO_B; any other
// variable is local to A. Each clause of the proof gets a partial interpolant I:
//   a clause of A         its literals on variables seen by B (false if none)
//   a clause of B         true
//   resolvent on pivot x  I1 && I2 if B sees x, else I1 || I2
//   initial domain of x   unchanged (a fact of B if B sees x, else one of A with
//                         nothing left for B, so I && true or I || false)
// and the formula of the empty clause is implied by A, contradicts B, and speaks
// only of variables that both parts have.
//
// Learned constraints are no hypotheses: the formula of a learned clause is that of
// its derivation. That needs a recorded proof, under which combination is off and
// every learned constraint is a clause whose derivation the replay walks. A
// constraint learned outside this refutation (in an earlier solve, possibly a
// combined general constraint) has no derivation here and belongs to neither
// part: meeting one raises an error instead of counting it as a clause of B.
#ifndef ZELK_IMPL_PROOF_INTERPOLANT_VISITOR_H
#define ZELK_IMPL_PROOF_INTERPOLANT_VISITOR_H

#include <map>
#include <vector>

#include "impl/clause_data.h"
#include "impl/formula.h"
#include "impl/proof_collector.h"
#include "impl/solver.h"

namespace zelk {

class proof_interpolant_visitor : public proof_visitor {
 public:
  typedef solver::label_type label_type;
  static constexpr label_type PART_A = 1;
  static constexpr label_type VISIBLE_TO_B = 2;

  proof_interpolant_visitor(const proof_collector& collector, const solver& s);

  void visit_explanation(int id) override;
  void visit_resolution(unsigned int pivot, int left_id, const clause_data& left, int right_id,
                        const clause_data& right, int result_id,
                        const clause_data& result) override;
  void visit_initial_resolution(unsigned int variable, const small_model::iset& initial, int id,
                                const clause_data& clause, int result_id,
                                const clause_data& result) override;

  // The formula of the empty clause. Raises std::runtime_error when the traversal
  // met no empty clause: any formula returned then would mean nothing.
  formula get_interpolant() const;

  // Labels by variable after the rule above: bit VISIBLE_TO_B for those B sees.
  const std::vector<label_type>& variable_labels() const { return m_variable_labels; }

 private:
  formula get_formula(int id);
  formula introduce_clause_in_A(int id);
  formula learned_formula(unsigned int constraint);
  bool in_A(unsigned int constraint) const;
  bool visible_to_B(unsigned int variable) const {
    return (m_variable_labels[variable] & VISIBLE_TO_B) != 0;
  }
  bool is_learned(unsigned int constraint) const;
  // A learned clause used as a premise must be the clause its derivation gave, or
  // weaker; otherwise the formula of that derivation says nothing about it.
  void check_learned_premise(int id, const clause_data& clause) const;
  void set(int id, const formula& f);
  void print(const formula& f) const;

  const proof_collector* m_collector;
  const solver* m_solver;
  std::map<int, formula> m_formulas;
  std::vector<label_type> m_variable_labels;
  // -1 is also the id of the first explanation: whether a root was met is kept apart.
  int m_root_id = -1;
  bool m_has_root = false;
  bool m_trace;
  // The clause that the derivation of each learned constraint gave.
  std::map<int, clause_data> m_derived;
};

}  // namespace zelk

#endif
