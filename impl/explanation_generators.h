// Explanations of propagators that do not write their own.
//
// The solver keeps no reason for a propagation. When the analysis needs one, it
// asks the propagator afterwards; a propagator that does not know its own algebra
// answers through these generators, which treat it as a black box and run a clone
// of it again on made-up domains (a conflicting_info view), leaving the search
// state and the stored propagator untouched.
//
// - explain_propagation: the trivial clause, nothing of the present state may change.
// - explain_propagation_tightly / refined_explanation: a deletion filter over the
//   parameters; each one is widened to the full set in turn, and the widening is
//   kept as far as the propagator still reaches the same failure.
// - possibly_crippling_values: for each parameter, the values the constraint still
//   allows given all the others; a stand-in for the literals of a general constraint.
#ifndef ZELK_IMPL_EXPLANATION_GENERATORS_H
#define ZELK_IMPL_EXPLANATION_GENERATORS_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/assignment_stack.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"

namespace zelk {

// The compact, printable form of an explanation, kept by the proof in place of
// the set vector.
class explanation_rule {
 public:
  virtual ~explanation_rule() = default;
  virtual std::unique_ptr<explanation_rule> clone() const = 0;
  virtual void get_explanation(std::vector<small_model::iset>& explanation) const = 0;
  virtual void print(std::ostream& os, const variable_print_strategy& strategy,
                     const std::vector<unsigned int>& variables) const = 0;
};

class explanation_generators {
 public:
  typedef std::vector<small_model::iset> literal_vector;

  // A hypothetical state: reference domains (what is kept so far) and working
  // domains (what the propagator sees and writes; they may grow here).
  class conflicting_info : public constraint_runtime_info {
   public:
    // Copies the domains of `info`, replacing parameter `param` (if below the arity) by `set`.
    conflicting_info(const constraint_runtime_info& info, unsigned int param,
                     const small_model::iset& set);

    bool reduced_between_activations(unsigned int) const override { return true; }
    // CONSTRAINT_QUEUE, so that a propagator never postpones its work here.
    queue_type originating_queue() const override { return CONSTRAINT_QUEUE; }
    void put_in_queue(queue_type queue) override;
    const small_model::iset& read_domain(unsigned int param) const override {
      return m_working.at(param);
    }
    void set_domain(unsigned int param, small_model::iset set) override {
      if (set.size() == m_working[param].size()) return;
      if (!m_dirty[param]) {
        m_dirty[param] = 1;
        m_dirty_list.push_back(param);
      }
      m_working[param] = set;
    }
    unsigned int arity() const override { return unsigned(m_working.size()); }
    void deallocate_watch(unsigned int, watch_types::watch_type, watch_handle_t handle) override {
      m_watches.deallocate(handle);
    }
    watch_handle_t allocate_watch(unsigned int, watch_types::watch_type) override {
      return m_watches.allocate();
    }
    void deallocate_value_watch(unsigned int, int, watch_handle_t handle) override {
      m_watches.deallocate(handle);
    }
    watch_handle_t allocate_value_watch(unsigned int, int) override {
      return m_watches.allocate();
    }
    unsigned int effort() const override { return m_effort; }

    // Gives every parameter written by the last run its reference domain back.
    void reread_dirty_domains();
    small_model::iset& reference(unsigned int param) { return m_domains[param]; }
    const small_model::iset& reference(unsigned int param) const { return m_domains[param]; }

   private:
    literal_vector m_domains;
    literal_vector m_working;
    std::vector<char> m_dirty;
    std::vector<unsigned int> m_dirty_list;
    local_watch_list m_watches;
    unsigned int m_effort;
  };

  static void explain_propagation(unsigned int param, const small_model::iset& literal,
                                  const small_model::iset& after,
                                  const constraint_runtime_info& info,
                                  literal_vector& explanation);
  static void explain_propagation_tightly(constraint_propagator& propagator, unsigned int param,
                                          const small_model::iset& literal,
                                          const small_model::iset& after,
                                          const constraint_runtime_info& info,
                                          literal_vector& explanation);
  static void refined_explanation(constraint_propagator& propagator, unsigned int param,
                                  const small_model::iset& literal,
                                  const small_model::iset& after, const unsigned int* order_begin,
                                  const unsigned int* order_end,
                                  const constraint_runtime_info& info,
                                  literal_vector& explanation);
  static void possibly_crippling_values(constraint_propagator& propagator, unsigned int param,
                                        const small_model::iset& values,
                                        const constraint_runtime_info& info,
                                        literal_vector& out);
};

}  // namespace zelk

#endif
