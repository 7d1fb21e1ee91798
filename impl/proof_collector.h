// Recording of the resolution steps of every conflict analysis, so that a
// refutation can be replayed, printed (-p) or checked (-V) afterwards.
//
// The solver always talks to proof_collector_interface. With no proof wanted it is
// a proof_collector_dummy whose operations do nothing, so recording costs nothing.
#ifndef ZELK_IMPL_PROOF_COLLECTOR_H
#define ZELK_IMPL_PROOF_COLLECTOR_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/small_iset.h"

namespace zelk {

class clause_data;
class explanation_rule;
class proof_visitor;

class proof_collector_interface {
 public:
  virtual ~proof_collector_interface() = default;
  virtual bool want_proof() const = 0;
  // The analysis just ended gave this new constraint.
  virtual void name_conflict_clause(unsigned int constraint) = 0;
  // An analysis starts from this constraint.
  virtual void record_conflict(unsigned int constraint,
                               const std::vector<small_model::iset>& explanation,
                               std::unique_ptr<explanation_rule> rule) = 0;
  // One resolution step on variable `pivot`.
  virtual void record_resolution(unsigned int constraint,
                                 const std::vector<small_model::iset>& explanation, int pivot,
                                 std::unique_ptr<explanation_rule> rule) = 0;
  virtual void pop_resolution_entry() = 0;
  // Keeps a clause that is about to be erased.
  virtual void save_clause(unsigned int constraint, const clause_data& clause) = 0;
  virtual void prepare_to_print() = 0;
  virtual void print_proof(std::ostream& os) const = 0;
  virtual void traverse_proof(proof_visitor& visitor) const = 0;
};

class proof_collector_dummy : public proof_collector_interface {
 public:
  bool want_proof() const override { return false; }
  void name_conflict_clause(unsigned int) override {}
  void record_conflict(unsigned int, const std::vector<small_model::iset>&,
                       std::unique_ptr<explanation_rule>) override {}
  void record_resolution(unsigned int, const std::vector<small_model::iset>&, int,
                         std::unique_ptr<explanation_rule>) override {}
  void pop_resolution_entry() override {}
  void save_clause(unsigned int, const clause_data&) override {}
  void prepare_to_print() override {}
  void print_proof(std::ostream& os) const override;
  void traverse_proof(proof_visitor&) const override {}
};

}  // namespace zelk

#endif
