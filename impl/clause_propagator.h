// The multi-valued clause: parameter i must take a value in literals[i], for at
// least one i. Model clauses, learned clauses and the clause half of the disjoint
// propagators all run on clause_propagation_algo.
//
// Watching is by value, not by literal: each of the two watch records holds one
// value of one parameter, lying in that parameter's literal, and the clause is
// woken only when that very value leaves the domain. Losing any other value costs
// nothing. When a watched value goes, the replacement search starts at the old
// value (wrapping round) and the scan for a new parameter starts after the old
// one, so that watches spread over the clause instead of piling up at the front.
//
// Invariant between activations of a live clause: a record with a non-null handle
// watches a value that lay in literals[param] and in the domain when it was chosen.
// A record that is falsified when the clause becomes unit keeps its watch: on
// backtracking that value comes back first, so no repair is needed.
//
// On a querying view (the tentative halves of a disjoint propagator) the clause goes
// on after a VALID record to repair the other one, and keeps a fallback watch when
// only one literal can hold: tentative reductions are not undone by a backtrack,
// so nothing may rely on one to bring a lost value back.
#ifndef ZELK_IMPL_CLAUSE_PROPAGATOR_H
#define ZELK_IMPL_CLAUSE_PROPAGATOR_H

#include <cassert>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <utility>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"
#include "impl/var_watchers.h"

namespace zelk {

class clause_propagation_algo : public propagation_types {
 public:
  typedef std::vector<small_model::iset> literal_vector;

  // One watched value. Record 0 is always filled first.
  struct watch_info {
    int param = -1;         // -1: no watch
    watch_handle_t handle;  // null: no value watch held (satisfied, unit, or forgotten)
    int value = -1;         // the watched value; forget_watches keeps it
    unsigned int variable = var_watchers_base::NO_FILTER;  // the trail variable of param
  };

  clause_propagation_algo() = default;
  explicit clause_propagation_algo(literal_vector literals) : m_literals(std::move(literals)) {}

  // ---- the algorithm interface of constraint_propagator_from_algo ---------
  unsigned int count_params() const { return unsigned(m_literals.size()); }
  [[nodiscard]] result_type init(constraint_runtime_info& info);
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) {
    // Fast path: both watched values still present. Nothing moves, and the answer
    // is only whether a watched parameter already lies within its literal.
    const watch_info& w0 = m_watches[0];
    const watch_info& w1 = m_watches[1];
    if (w0.param >= 0 && w1.param >= 0) {
      const std::uint32_t d0 = info.domain(unsigned(w0.param)).bits();
      const std::uint32_t d1 = info.domain(unsigned(w1.param)).bits();
      if (present(d0, w0.value) && present(d1, w1.value)) {
        if ((d0 & ~m_literals[unsigned(w0.param)].bits()) == 0 ||
            (d1 & ~m_literals[unsigned(w1.param)].bits()) == 0)
          return VALID;
        return CONSISTENT;
      }
    }
    return propagate_watch_lost(info);
  }
  // No literal meets its domain.
  bool conflicts(const constraint_runtime_info& info) const;
  // Some literal meets its domain (all domains singletons).
  bool constraint_check(const constraint_runtime_info& info) const;
  void print(std::ostream& os, const constraint_runtime_info* info) const;
  unsigned int watched_param_index(unsigned int i) const {
    assert(i < 2);
    return unsigned(m_watches[i].param);
  }
  unsigned int count_watches() const {
    return unsigned(!m_watches[0].handle.is_null()) + unsigned(!m_watches[1].handle.is_null());
  }
  // Drops both handles without releasing them; parameters and values stay.
  void forget_watches() {
    m_watches[0].handle = watch_handle_t();
    m_watches[1].handle = watch_handle_t();
  }
  // The clause is its own explanation, whatever is asked.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const;

  // ---- watch maintenance --------------------------------------------------
  // The watched value of record `which` has gone (or the record stands alone in a
  // querying view): move the watch, or find the clause satisfied, unit or false.
  [[nodiscard]] result_type refresh_watch(constraint_runtime_info& info, unsigned int which);
  // Restricts param to its literal: VALID, or UNSAT when they are disjoint.
  [[nodiscard]] result_type unit_propagate(constraint_runtime_info& info, unsigned int param);
  // Watches the best value of param (see get_best_watch_value) in the first free record.
  void add_watch(constraint_runtime_info& info, unsigned int param, int start);
  // Releases the value watch of record `which` (if one is held) and frees the record.
  void remove_watch(constraint_runtime_info& info, unsigned int which);
  // Moves record `which` to param, searching from its old value.
  void change_watch(constraint_runtime_info& info, unsigned int which, unsigned int param);
  // Smallest value >= start in literals[param] and the domain, wrapping round to the
  // smallest one. Precondition: the intersection is not empty.
  int get_best_watch_value(const constraint_runtime_info& info, unsigned int param,
                           int start) const;

  // ---- data ---------------------------------------------------------------
  const literal_vector& literals() const { return m_literals; }
  // For filling a clause before init; raises "Modifying the clause at runtime"
  // while a value watch is held.
  literal_vector& update_literals() {
    if (!m_watches[0].handle.is_null() || !m_watches[1].handle.is_null())
      throw_modifying_clause_at_runtime();
    return m_literals;
  }
  const watch_info& watch(unsigned int which) const { return m_watches[which]; }
  [[noreturn]] static void throw_modifying_clause_at_runtime();

 private:
  static bool present(std::uint32_t domain, int value) {
    return unsigned(value) <= 31u && ((domain >> unsigned(value)) & 1u) != 0;
  }
  // Steps 1 to 5 of propagation, once a watched value is known to be gone (or a
  // record is missing).
  result_type propagate_watch_lost(constraint_runtime_info& info);
  unsigned int first_free_record() const { return m_watches[0].param >= 0 ? 1u : 0u; }
  // Gives each held watch the other watched literal as its filter: while that
  // literal holds, a lost watched value finds the clause valid and moves nothing.
  void sync_filters();

  literal_vector m_literals;  // one per parameter; an empty set can never hold
  watch_info m_watches[2];
};

class clause_propagator : public constraint_propagator_from_algo<clause_propagation_algo> {
 public:
  clause_propagator() = default;
  clause_propagator(std::initializer_list<small_model::iset> literals)
      : constraint_propagator_from_algo(clause_propagation_algo(literal_vector(literals))) {}
  explicit clause_propagator(literal_vector literals)
      : constraint_propagator_from_algo(clause_propagation_algo(std::move(literals))) {}
  const clause_propagator* as_clause() const override { return this; }

  // The solver reads the literals of a clause constraint directly (explanations,
  // is_clause / clause_literals).
  const literal_vector& literals() const { return m_algo.literals(); }
  // Public entry for whoever fills a new clause; refused once watches are held.
  literal_vector& update_literals() { return m_algo.update_literals(); }

  std::unique_ptr<constraint_propagator> clone() const override;
  // The clause with each literal cut to the domains in `info` and the empty
  // literals dropped; null when every literal already lies within its domain.
  std::unique_ptr<constraint_propagator> intersect_with(const constraint_runtime_info& info,
                                                        std::vector<unsigned int>& kept) const override;
  bool potentially_falsifying(const constraint_runtime_info& info,
                              unsigned int param) const override;
  // All literals, no base constraint.
  bool get_disjunction_specification(disjunction_specification& spec) const override;
  // Clauses meet by resolution, not by combination: false against another clause;
  // otherwise the other constraint decides.
  bool may_combine(const constraint_propagator& other) const override;
  // The other constraint does the work (combine_other_first).
  std::unique_ptr<constraint_propagator> combine(const constraint_runtime_info& info,
                                                 const constraint_propagator& right,
                                                 const constraint_runtime_info& right_info,
                                                 const std::vector<unsigned int>& map,
                                                 unsigned int pivot,
                                                 std::vector<unsigned int>& out) const override;
};

}  // namespace zelk

#endif
