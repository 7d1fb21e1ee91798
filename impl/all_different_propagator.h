// all_different: the parameters take pairwise different values.
//
// Generalised arc consistency by matching (Regin 1994): a maximum matching of
// parameters to values, then every edge that lies on an alternating path from a
// free value or inside a strongly connected component of the residual graph
// survives, and every other value leaves its parameter. Explanations are Hall sets:
// a set S of values and parameters confined to S.
//
// Two choices keep it cheap. It never runs from the variable queue: it puts itself
// on the constraint queue, behind every cheaper propagator. And before any graph is
// built it sets aside the "big" parameters, whose domains are too large to belong
// to a Hall set: whatever values the others take, each big one keeps a value of
// its own. One pseudo-parameter, the union of their values that small parameters
// also hold plus one value for all the rest, stands in for them, so the graph stays
// small and the values a Hall set of the small ones consumes still leave the big ones.
#ifndef ZELK_IMPL_ALL_DIFFERENT_PROPAGATOR_H
#define ZELK_IMPL_ALL_DIFFERENT_PROPAGATOR_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/explanation_generators.h"
#include "impl/small_iset.h"

namespace zelk {

class all_different_propagator : public constraint_propagator {
 public:
  // Adjacency list indexed by node: parameters 0..n-1, then the values ascending.
  typedef std::vector<std::vector<unsigned int>> graph;
  class impl;

  // A read-only view over a list of domains that belongs to no solver.
  class reference_info : public constraint_runtime_info {
   public:
    explicit reference_info(const std::vector<small_model::iset>& domains) : m_domains(domains) {}
    bool reduced_between_activations(unsigned int) const override { return true; }
    queue_type originating_queue() const override { return CONSTRAINT_QUEUE; }
    void put_in_queue(queue_type) override;
    const small_model::iset& read_domain(unsigned int param) const override { return m_domains[param]; }
    void set_domain(unsigned int param, small_model::iset set) override;
    unsigned int arity() const override { return unsigned(m_domains.size()); }
    void deallocate_watch(unsigned int param, watch_types::watch_type type,
                          watch_handle_t handle) override;
    watch_handle_t allocate_watch(unsigned int param, watch_types::watch_type type) override;
    void deallocate_value_watch(unsigned int param, int value, watch_handle_t handle) override;
    watch_handle_t allocate_value_watch(unsigned int param, int value) override;

   private:
    const std::vector<small_model::iset>& m_domains;
  };

  // The clause "one of these parameters takes a value outside S".
  class all_diff_rule : public explanation_rule {
   public:
    explicit all_diff_rule(const std::vector<small_model::iset>& explanation);
    std::unique_ptr<explanation_rule> clone() const override;
    void get_explanation(std::vector<small_model::iset>& explanation) const override;
    // "ALL_DIFF({" S "}" then ", " and each parameter's variable, then ")".
    void print(std::ostream& os, const variable_print_strategy& strategy,
               const std::vector<unsigned int>& variables) const override;

   private:
    unsigned int m_arity;
    small_model::iset m_values;
    std::vector<unsigned int> m_params;
  };

  explicit all_different_propagator(unsigned int arity) : m_arity(arity) {}

  unsigned int count_params() const override { return m_arity; }
  // POSTPONE from the variable queue; otherwise domain consistent.
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  // Exact: no matching of all parameters exists.
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  void print(std::ostream& os, const constraint_runtime_info* info) const override;
  // A Hall set: for a failure, the parameters that share too few values with the one
  // left unmatched; for a removal, those that consume the removed values.
  void explain_propagation(unsigned int param, const small_model::iset& literal,
                           const small_model::iset& after, const constraint_runtime_info& info,
                           literal_vector& explanation) const override;
  std::unique_ptr<explanation_rule> rule(const literal_vector& explanation) const override;
  std::unique_ptr<constraint_propagator> clone() const override;

  // One byte per parameter, 1 for a big one.
  static void find_big_parameters(const constraint_runtime_info& info,
                                  std::vector<unsigned char>& big);
  static unsigned int count_unique_singletons(const constraint_runtime_info& info);

 private:
  // The domains of the small parameters, then the pseudo-parameter if it has a
  // value; false when the small ones have fewer values than members.
  static bool get_small_parameters(const constraint_runtime_info& info,
                                   const std::vector<unsigned char>& big,
                                   std::vector<small_model::iset>& domains, bool& has_big_domain);
  static small_model::iset get_small_domain_values(const constraint_runtime_info& info,
                                                   const std::vector<unsigned char>& big);
  static small_model::iset get_big_domain(const constraint_runtime_info& info,
                                          const std::vector<unsigned char>& big,
                                          small_model::iset small_set);
  static void extend_propagation_for_big_domains(const constraint_runtime_info& info,
                                                 const std::vector<small_model::iset>& domains,
                                                 const std::vector<unsigned char>& big,
                                                 bool has_big_domain,
                                                 std::vector<small_model::iset>& next_domains);
  static void update_domains(constraint_runtime_info& info,
                             const std::vector<small_model::iset>& next_domains);

  unsigned int m_arity;
};

}  // namespace zelk

#endif
