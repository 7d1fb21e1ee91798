// The text of a proof (option -p): each step of the replayed refutation as it
// comes, explanations with the constraint behind them, resolutions with their
// premises and consequent. The formats live in proof_collector's printing aids.
#ifndef ZELK_IMPL_PROOF_PRINT_VISITOR_H
#define ZELK_IMPL_PROOF_PRINT_VISITOR_H

#include <iosfwd>

#include "impl/proof_collector.h"

namespace zelk {

class proof_print_visitor : public proof_visitor {
 public:
  proof_print_visitor(std::ostream& os, const proof_collector& collector)
      : m_os(os), m_collector(&collector) {}

  void visit_explanation(int id) override;
  void visit_resolution(unsigned int pivot, int left_id, const clause_data& left, int right_id,
                        const clause_data& right, int result_id,
                        const clause_data& result) override;
  void visit_initial_resolution(unsigned int variable, const small_model::iset& initial, int id,
                                const clause_data& clause, int result_id,
                                const clause_data& result) override;

 private:
  std::ostream& m_os;
  const proof_collector* m_collector;
};

}  // namespace zelk

#endif
