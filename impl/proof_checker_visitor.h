// The check of an UNSAT answer (option -V): every step of the replayed
// refutation is verified on its own. Each resolvent and each initial-domain step
// must follow from its premises, each premise must be the clause the solver holds
// or held, and each id must keep one meaning throughout. Explanations are taken
// from the collector as they are; they are not checked against their constraints.
//
// The checker never throws on a bad proof: it clears its verdict, writes one
// complaint per fault and goes on, so one run lists every fault it finds.
#ifndef ZELK_IMPL_PROOF_CHECKER_VISITOR_H
#define ZELK_IMPL_PROOF_CHECKER_VISITOR_H

#include <iosfwd>
#include <limits>
#include <unordered_map>
#include <vector>

#include "impl/clause_data.h"
#include "impl/proof_collector.h"

namespace zelk {

class proof_checker_visitor : public proof_visitor {
 public:
  // `complaints` may be null: the verdict alone.
  proof_checker_visitor(const proof_collector& collector, std::ostream* complaints)
      : m_collector(&collector), m_complaints(complaints) {}

  void visit_explanation(int id) override;
  void visit_resolution(unsigned int pivot, int left_id, const clause_data& left, int right_id,
                        const clause_data& right, int result_id,
                        const clause_data& result) override;
  void visit_initial_resolution(unsigned int variable, const small_model::iset& initial, int id,
                                const clause_data& clause, int result_id,
                                const clause_data& result) override;

  // True while no fault has been found.
  [[nodiscard]] bool result() const { return m_result; }

 private:
  // A clause met under `id`: it must agree with what the id meant before, and a
  // premise (`must_match`) or explanation met for the first time must agree with
  // the collector's clause. A new resolvent is learned as it is.
  void visit_clause(int id, const clause_data& clause, bool must_match);
  std::ostream* complain();
  // clause_data::equivalent, in time linear in the two sizes.
  bool agree(const clause_data& a, const clause_data& b);
  // The clause known under `id`, or null; valid until the next call.
  const clause_data* find_known(int id);
  void mark(int id, unsigned char state);
  void store(int id, const clause_data& clause);
  void learn(int id, const clause_data& clause);
  // The analysis behind a learned constraint is complete: its explanations and
  // intermediate resolvents are never met again.
  void retire_chain();
  bool is_retired(int id) const { return id >= m_retired_low && id <= m_retired_high; }

  // Clauses of the solver (ids 0 and up) stay known to the end, since a learned
  // one may be a premise at any later step: as a copy, or, when they are the
  // clause the collector holds, as a mark alone. Explanations and intermediate
  // resolvents are known only within the chain of one analysis: kept to the end
  // they would be most of the memory of a check.
  enum : unsigned char { UNKNOWN, STORED, AS_RECORDED };
  std::vector<unsigned char> m_known;  // by id
  std::unordered_map<unsigned int, clause_data> m_stored;
  clause_data m_recorded;  // the collector's clause of a mark, fetched anew
  std::unordered_map<int, clause_data> m_chain;
  // Intermediate ids of finished chains, as one range: the replay gives them out
  // one after the other, and one met again is a fault of the replay.
  clause_data m_expected;  // the resolvent computed here; keeps its capacity
  // Work space of agree(), by variable; all clear between calls.
  struct variable_union {
    small_model::iset left;
    small_model::iset right;
    bool touched = false;
  };
  std::vector<variable_union> m_unions;
  std::vector<unsigned int> m_touched;
  int m_retired_low = std::numeric_limits<int>::max();
  int m_retired_high = std::numeric_limits<int>::min();
  const proof_collector* m_collector;
  bool m_result = true;
  std::ostream* m_complaints;
};

}  // namespace zelk

#endif
