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
// Recording keeps only what a replay can still reach. A step on a clause is one
// (id, pivot) pair; an explanation is its constraint and sets in flat arenas; the
// clause of an erased learned constraint is copied only if a kept record cites it.
// Each learned constraint counts the kept records that cite it: once it is erased
// and the count is zero, its own records go, and with them possibly the last
// citations of others (a long run would otherwise keep every analysis to its end).
//
// Clause ids:
//   0 and above   a constraint of the solver (a clause, live or saved before erasure)
//   -1 - k        the explanation of index k
//   below those   intermediate resolvents, which exist only during one traversal
#ifndef ZELK_IMPL_PROOF_COLLECTOR_H
#define ZELK_IMPL_PROOF_COLLECTOR_H

#include <deque>
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
  // A learned constraint is about to leave the solver (still there during the call).
  virtual void forget_constraint(unsigned int constraint) = 0;
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
  void forget_constraint(unsigned int) override {}
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
  // An explanation that is not a clause constraint of the solver, as recorded: the
  // constraint behind it and either its rule (a few numbers) or its sets, one per
  // parameter. A view into the collector, valid until the next recording call.
  struct explanation_data {
    unsigned int constraint = 0;
    const explanation_rule* rule = nullptr;     // may be null
    std::deque<small_model::iset>::const_iterator literals;  // used when there is no rule
    std::size_t literal_count = 0;
  };
  // (clause id, pivot); pivot -1 marks the entry that starts an analysis.
  typedef std::pair<int, int> resolution_entry;

  // The literals of one saved clause, in place in the collector.
  class saved_literals {
   public:
    typedef std::deque<literal_data>::const_iterator const_iterator;
    saved_literals(const_iterator first, std::size_t size) : m_first(first), m_size(size) {}
    const_iterator begin() const { return m_first; }
    const_iterator end() const { return m_first + std::ptrdiff_t(m_size); }
    std::size_t size() const { return m_size; }
    const literal_data& operator[](std::size_t i) const { return m_first[std::ptrdiff_t(i)]; }

   private:
    const_iterator m_first;
    std::size_t m_size;
  };
  // The saved clause of one constraint, or the end; valid until the next save.
  class saved_clause_iterator {
   public:
    struct value_type {
      unsigned int first;
      saved_literals second;
    };
    saved_clause_iterator() : m_value{0xFFFFFFFFu, saved_literals({}, 0)} {}
    saved_clause_iterator(unsigned int constraint, saved_literals literals)
        : m_value{constraint, literals} {}
    const value_type& operator*() const { return m_value; }
    const value_type* operator->() const { return &m_value; }
    bool operator==(const saved_clause_iterator& other) const {
      return m_value.first == other.m_value.first;
    }

   private:
    value_type m_value;
  };

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
  // Of several saves of one constraint the first counts.
  void save_clause(unsigned int constraint, const clause_data& clause) override;
  // An erased learned constraint that no kept record cites is released at once,
  // with its own records; one that is cited keeps (a copy of) its clause.
  void forget_constraint(unsigned int constraint) override;
  void prepare_to_print() override {}

  // ---- replay ----------------------------------------------------------------
  void print_proof(std::ostream& os) const override;
  // Raises "No unsatisfiability record available" when there is nothing to replay.
  void traverse_proof(proof_visitor& visitor) const override;

  // ---- queries ----------------------------------------------------------------
  const solver& get_solver() const { return *m_solver; }
  // Every explanation recorded, released ones included: ids never change.
  unsigned int explanation_count() const { return m_explanation_count; }
  bool is_explanation_clause(int id) const {
    return id < 0 && unsigned(~id) < m_explanation_count;
  }
  // Preconditions of the two: is_explanation_clause(id). Raises std::runtime_error
  // for an explanation whose record was released.
  unsigned int get_constraint_explained_by(int id) const {
    return get_explanation_data(id).constraint;
  }
  explanation_data get_explanation_data(int id) const;
  const std::deque<resolution_entry>& resolution_entries() const { return m_entries; }
  const std::vector<unsigned int>& conflict_starts() const { return m_conflict_starts; }
  unsigned int first_conflict_clause() const { return m_first_conflict_clause; }
  // Learned constraints of this solve whose records were released.
  unsigned int released_count() const { return m_released_count; }
  bool is_released(unsigned int constraint) const {
    const unsigned int k = learned_index(int(constraint));
    return k != NONE && (m_state[k] & RELEASED);
  }

  void get_clause(int id, clause_data& clause) const;
  // Whether get_solver_clause can give the clause of `constraint`.
  bool has_clause(unsigned int constraint) const;
  void get_solver_clause(unsigned int constraint, clause_data& clause) const;
  void get_explanation_clause(int id, clause_data& clause) const;
  // One literal per parameter (or per saved literal), each with an empty set.
  void get_constraint_variables(unsigned int constraint, clause_data& clause) const;
  // The first saved clause of `constraint`, or saved_clauses_end().
  saved_clause_iterator find_saved_clause(unsigned int constraint) const;
  saved_clause_iterator saved_clauses_end() const { return saved_clause_iterator(); }

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
  static constexpr unsigned int NONE = 0xFFFFFFFFu;

  // Replay state of one traversal: the intermediate id given out last.
  struct traversal {
    proof_visitor& visitor;
    int state;
    std::vector<bool> visited;  // by constraint index; model constraints start visited
    clause_data right;          // work space of each step, kept from step to step
    clause_data result;
  };
  // One explanation in the flat arenas: `count` sets from `begin` in m_sets, or,
  // with count RULE, the rule m_rules[begin].
  struct stored_explanation {
    unsigned int constraint;
    unsigned int begin;
    unsigned int count;
  };
  static constexpr unsigned int RULE = 0xFFFFFFFFu;
  struct saved_ref {
    unsigned int begin = NONE;
    unsigned int size = 0;
  };
  enum : unsigned char { ERASED = 1, RELEASED = 2 };

  void append_resolution_entry(unsigned int constraint,
                               const std::vector<small_model::iset>& explanation, int pivot,
                               std::unique_ptr<explanation_rule> rule);
  // The index of a learned constraint of this solve among the named ones, or NONE.
  unsigned int learned_index(int id) const;
  void cite(int id);
  void uncite(int id);
  // Drops the records of the analysis under way, which named nothing.
  void discard_current_analysis();
  // Frees the records of learned constraint k and of everything that only they cite.
  void release(unsigned int k);
  void drop_explanation_storage(const stored_explanation& e);
  std::size_t analysis_end(std::size_t start) const;
  void compact_records();
  void compact_saved_clauses();
  void traverse_constraint(traversal& t, unsigned int constraint) const;
  // Entries s to e - 1 of one analysis, its premises already replayed.
  void replay_analysis(traversal& t, unsigned int constraint, std::size_t s, std::size_t e) const;
  void process_resolution(traversal& t, unsigned int constraint, std::size_t entry,
                          int& current_id, clause_data& current) const;
  void process_conflict_with_initial(traversal& t, int current_id, clause_data& current) const;
  bool is_live(unsigned int constraint) const;

  const solver* m_solver;
  unsigned int m_current_start = NONE;
  // The analysis under way: where its explanations begin, and whether it named one.
  unsigned int m_current_explanation_id = 0;
  unsigned int m_current_explanation_pos = 0;
  unsigned int m_current_set_pos = 0;
  unsigned int m_current_rule_pos = 0;
  bool m_current_named = false;
  // The arenas are deques: they grow a block at a time, never copying what they
  // hold, and give back the blocks past their end when compacted.
  std::deque<resolution_entry> m_entries;
  unsigned int m_first_conflict_clause = NONE;
  // By named constraint k (constraint first conflict clause + k): where its entries
  // start, the id of its first explanation, where that is stored and how many it
  // has, how many kept
  // records cite it, and whether it is erased and released.
  std::vector<unsigned int> m_conflict_starts;
  std::vector<unsigned int> m_first_explanation_id;
  std::vector<unsigned int> m_first_explanation_pos;
  std::vector<unsigned int> m_explanations_of;
  std::vector<unsigned int> m_citations;
  std::vector<unsigned char> m_state;
  unsigned int m_released_count = 0;

  unsigned int m_explanation_count = 0;
  std::deque<stored_explanation> m_explanations;
  std::deque<small_model::iset> m_sets;
  std::vector<std::unique_ptr<explanation_rule>> m_rules;
  // Records of released constraints, still in the arenas until the next compaction.
  std::size_t m_dead_entries = 0;
  std::size_t m_dead_explanations = 0;
  std::size_t m_dead_sets = 0;

  // Saved clauses: by constraint index, the place of its literals in one arena.
  std::vector<saved_ref> m_saved_index;
  std::deque<literal_data> m_saved_literals;
  std::size_t m_dead_saved_literals = 0;
};

}  // namespace zelk

#endif
