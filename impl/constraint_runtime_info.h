// The view through which a propagator sees its parameters.
//
// A propagator never touches a variable: it numbers its arguments 0, 1, 2, ... and
// reads and narrows them only through this interface. The same propagator code thus
// filters the live state (constraint_connectivity_info), replays itself on a past
// state (constraint_aged_info), runs on hypothetical states during conflict analysis
// (learned_type::info_type, explanation_generators::conflicting_info,
// constraint_explicit_info) or on a slice of a larger disjunctive constraint
// (sliced_runtime_info). Each view decides what reads return, where writes go and
// what a watch means.
#ifndef ZELK_IMPL_CONSTRAINT_RUNTIME_INFO_H
#define ZELK_IMPL_CONSTRAINT_RUNTIME_INFO_H

#include <cassert>
#include <initializer_list>
#include <iosfwd>
#include <vector>

#include "impl/assignment_stack.h"
#include "impl/small_iset.h"
#include "impl/utilities.h"
#include "impl/var_watchers.h"
#include "impl/watch_types.h"

namespace zelk {

class constraint_runtime_info : protected watch_types, protected solver_types {
 public:
  enum queue_type { VARIABLE_QUEUE = 0, CONSTRAINT_QUEUE = 1 };
  static constexpr unsigned int NO_PARAM = 0xFFFFFFFFu;

  constraint_runtime_info() = default;
  // Moves must stay moves (the solver's vector of infos reallocates as constraints
  // are learned): the declared destructor would otherwise turn them into copies.
  constraint_runtime_info(const constraint_runtime_info&) = default;
  constraint_runtime_info(constraint_runtime_info&&) noexcept = default;
  constraint_runtime_info& operator=(const constraint_runtime_info&) = default;
  constraint_runtime_info& operator=(constraint_runtime_info&&) noexcept = default;
  virtual ~constraint_runtime_info() = default;

  // True if the domain of param may have changed since this constraint last
  // finished an activation.
  virtual bool reduced_between_activations(unsigned int param) const = 0;
  virtual queue_type originating_queue() const = 0;
  virtual void put_in_queue(queue_type queue) = 0;
  // The propagators' hottest read. An info over the solver's own parameters reads
  // the trail directly; every other kind answers through read_domain.
  const small_model::iset& domain(unsigned int param) const {
    if (m_trail) {
      assert(param < m_params.size());
      return m_trail->domain(m_params[param]);
    }
    return read_domain(param);
  }
  // The trail variable behind param; NO_VARIABLE for infos that do not read the trail.
  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;
  virtual unsigned int trail_variable(unsigned int param) const {
    return m_trail ? m_params[param] : NO_VARIABLE;
  }
  // Narrows param to set (a subset of its domain). Equal size means equal set:
  // such a write changes nothing.
  virtual void set_domain(unsigned int param, small_model::iset set) = 0;
  virtual unsigned int arity() const = 0;
  virtual void deallocate_watch(unsigned int param, watch_types::watch_type type,
                                watch_handle_t handle) = 0;
  virtual watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) = 0;
  virtual void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) = 0;
  virtual watch_handle_t allocate_value_watch(unsigned int param, int value) = 0;

  // Among the parameters other than `before`, the one modified last; NO_PARAM
  // (read as a negative int by the callers) when none is known.
  virtual unsigned int latest_modified_param(unsigned int before) const;
  // How hard a propagator may try on this activation; 0 is the normal level.
  virtual unsigned int effort() const;
  // True while reads are hypothetical (a querying slice).
  // Trail reads are never hypothetical; other kinds answer through is_querying.
  bool querying_domain() const { return m_trail ? false : is_querying(); }
  virtual void print(std::ostream& os) const;
  virtual void print_prefix(std::ostream& os) const;
  // Process-wide tuning bounds for approximated arithmetic, read once from the
  // environment (ACCURATE_SIZE_BOUND, ACCURATE_SIZE_PAIR_BOUND, MAX_ACCURATE_RANGES).
  virtual unsigned int accurate_size_bound() const;
  virtual unsigned int accurate_size_pair_bound() const;
  virtual unsigned int max_accurate_ranges() const;
  virtual void print_param(std::ostream& os, unsigned int param) const;

  // Gives several parameters the same set; parameters after the first one written
  // receive what that one reads back.
  void set_domains(std::initializer_list<unsigned int> params, small_model::iset set);
  // Debug aid: print, then one line per parameter.
  void show_self() const;

 protected:
  virtual const small_model::iset& read_domain(unsigned int param) const = 0;
  virtual bool is_querying() const;

  // Set only by infos whose parameters are variables of this trail.
  const assignment_stack* m_trail = nullptr;
  std::vector<unsigned int> m_params;
};

}  // namespace zelk

#endif
