// Recording of the resolution steps of every conflict analysis, so that a
// refutation can be replayed, printed (-p) or checked (-V) afterwards.
//
// The solver always talks to proof_collector_interface. With no proof wanted it is
// a proof_collector_dummy whose operations do nothing, so recording costs nothing.
// With a proof wanted it is a proof_collector: each analysis appends the clause ids
// of its conflict and of its resolution steps, with their pivots; nothing is
// resolved while the search runs. traverse_proof replays the derivation of the
// final conflict, prerequisites first, computing each resolvent and handing every
// step to a proof_visitor (printer, checker, interpolant).
//
// Clause ids:
//   0 and above   a constraint of the solver (a clause, live or saved before erasure)
//   -1 - k        the explanation of index k
//   below those   intermediate resolvents, which exist only during one traversal
#ifndef ZELK_IMPL_PROOF_COLLECTOR_H
#define ZELK_IMPL_PROOF_COLLECTOR_H

#include <iosfwd>
#include <memory>
#include <utility>
#include <vector>

#include "impl/clause_data.h"
#include "impl/small_iset.h"
#include "impl/utilities.h"

namespace zelk {

class explanation_rule;
class proof_visitor;
class solver;

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

// Receives the steps of a replayed refutation, in the order in which they build on
// one another. Every clause handed over stays valid only during the call.
class proof_visitor {
 public:
  virtual ~proof_visitor() = default;
  // An explanation clause enters the proof.
  virtual void visit_explanation(int id) = 0;
  // One step of multi-valued resolution: (pivot in A or P) and (pivot in B or Q)
  // give (pivot in A and B, or P, or Q).
  virtual void visit_resolution(unsigned int pivot, int left_id, const clause_data& left,
                                int right_id, const clause_data& right, int result_id,
                                const clause_data& result) = 0;
  // The literals of `variable` in `clause` are false by its initial domain alone.
  virtual void visit_initial_resolution(unsigned int variable, const small_model::iset& initial,
                                        int id, const clause_data& clause, int result_id,
                                        const clause_data& result) = 0;
};

class proof_collector : public proof_collector_interface, private no_copy {
 public:
  // An explanation that is not a clause constraint of the solver: the constraint
  // behind it and either its rule (a few numbers) or a copy of its sets.
  struct explanation_data {
    unsigned int constraint = 0;
    std::unique_ptr<explanation_rule> rule;    // may be null
    std::vector<small_model::iset> literals;   // used when there is no rule

    explanation_data();
    explanation_data(const explanation_data& other);  // clones the rule
    explanation_data(explanation_data&& other) noexcept;
    explanation_data& operator=(const explanation_data& other);
    explanation_data& operator=(explanation_data&& other) noexcept;
    ~explanation_data();
  };
  // (clause id, pivot); pivot -1 marks the entry that starts an analysis.
  typedef std::pair<int, int> resolution_entry;
  typedef std::pair<unsigned int, clause_data> saved_clause;
  typedef std::vector<saved_clause>::const_iterator saved_clause_iterator;

  explicit proof_collector(const solver* owner);
  ~proof_collector() override;

  // ---- recording (by the conflict analysis) ----------------------------------
  bool want_proof() const override { return true; }
  void name_conflict_clause(unsigned int constraint) override;
  void record_conflict(unsigned int constraint, const std::vector<small_model::iset>& explanation,
                       std::unique_ptr<explanation_rule> rule) override;
  void record_resolution(unsigned int constraint,
                         const std::vector<small_model::iset>& explanation, int pivot,
                         std::unique_ptr<explanation_rule> rule) override;
  void pop_resolution_entry() override;
  void save_clause(unsigned int constraint, const clause_data& clause) override;
  void prepare_to_print() override;

  // ---- replay ----------------------------------------------------------------
  void print_proof(std::ostream& os) const override;
  // Raises "No unsatisfiability record available" when there is nothing to replay.
  void traverse_proof(proof_visitor& visitor) const override;

  // ---- queries ----------------------------------------------------------------
  const solver& get_solver() const { return *m_solver; }
  unsigned int explanation_count() const { return unsigned(m_explanations.size()); }
  bool is_explanation_clause(int id) const {
    return id < 0 && unsigned(~id) < m_explanations.size();
  }
  // Preconditions of the two: is_explanation_clause(id).
  unsigned int get_constraint_explained_by(int id) const { return m_explanations[~id].constraint; }
  const explanation_data& get_explanation_data(int id) const { return m_explanations[~id]; }
  const std::vector<resolution_entry>& resolution_entries() const { return m_entries; }
  const std::vector<unsigned int>& conflict_starts() const { return m_conflict_starts; }
  unsigned int first_conflict_clause() const { return m_first_conflict_clause; }

  void get_clause(int id, clause_data& clause) const;
  void get_solver_clause(unsigned int constraint, clause_data& clause) const;
  void get_explanation_clause(int id, clause_data& clause) const;
  // One literal per parameter (or per saved literal), each with an empty set.
  void get_constraint_variables(unsigned int constraint, clause_data& clause) const;
  // The first saved clause of `constraint`, or saved_clauses_end().
  saved_clause_iterator find_saved_clause(unsigned int constraint) const;
  saved_clause_iterator saved_clauses_end() const { return m_saved_clauses.end(); }

  // Resolvent of `left` and `right` on `pivot`: the other literals in normal form,
  // then the pivot with the intersection of both sides, if that is not empty.
  static void resolve(const clause_data& left, const clause_data& right, unsigned int pivot,
                      clause_data& result);

  // ---- the text of the proof ----------------------------------------------------
  // "[id] " and the clause.
  void print_clause(std::ostream& os, int id, const clause_data& clause) const;
  void print_resolution(std::ostream& os, unsigned int pivot, int left_id,
                        const clause_data& left, int right_id, const clause_data& right,
                        int result_id, const clause_data& result) const;
  void print_initial_resolution(std::ostream& os, unsigned int variable,
                                const small_model::iset& initial, int id,
                                const clause_data& clause, int result_id,
                                const clause_data& result) const;

 private:
  // Replay state of one traversal: the intermediate id given out last.
  struct traversal {
    proof_visitor& visitor;
    int state;
    std::vector<bool> visited;  // by constraint index; model constraints start visited
  };

  void append_resolution_entry(unsigned int constraint,
                               const std::vector<small_model::iset>& explanation, int pivot,
                               std::unique_ptr<explanation_rule> rule);
  void traverse_constraint(traversal& t, unsigned int constraint) const;
  // Entries s to e - 1 of one analysis, its premises already replayed.
  void replay_analysis(traversal& t, unsigned int constraint, std::size_t s, std::size_t e) const;
  void process_resolution(traversal& t, unsigned int constraint, std::size_t entry,
                          int& current_id, clause_data& current) const;
  void process_conflict_with_initial(traversal& t, int current_id, clause_data& current) const;
  bool is_live(unsigned int constraint) const;

  const solver* m_solver;
  unsigned int m_current_start = 0xFFFFFFFFu;
  std::vector<resolution_entry> m_entries;
  std::vector<unsigned int> m_conflict_starts;
  std::vector<explanation_data> m_explanations;
  std::vector<saved_clause> m_saved_clauses;  // by constraint after prepare_to_print
  unsigned int m_first_conflict_clause = 0xFFFFFFFFu;
  // The saved clauses are in constraint order, so find_saved_clause may bisect; a
  // save out of order clears it until the next prepare_to_print.
  bool m_saved_sorted = true;
};

}  // namespace zelk

#endif
