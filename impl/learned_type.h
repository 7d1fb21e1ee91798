// The statement under construction in one conflict analysis: a constraint that
// must hold in every solution and that the present branch falsifies.
//
// Two forms:
// - clause form: a disjunction of literals, node i's variable in literals[i];
// - constraint form: a propagator whose parameter i is node i's variable; the
//   literal vector is then only a cache of a clause implied by the constraint and
//   falsified here (it may be empty or stale: see m_explanation_valid).
//
// Each node holds a position in the history of its variable: the statement counts
// as false when the variable is seen as it stood right after that entry
// (NO_PREVIOUS_MODIFICATION: the initial domain is enough). Relaxation moves
// positions back; the level of the object and the number of nodes at that level
// are kept incrementally, because they decide when the analysis ends.
#ifndef ZELK_IMPL_LEARNED_TYPE_H
#define ZELK_IMPL_LEARNED_TYPE_H

#include <iosfwd>
#include <memory>
#include <vector>

#include "impl/assignment_stack.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"
#include "impl/utilities.h"

namespace zelk {

class solver;

class learned_type : private no_copy {
 public:
  static constexpr unsigned int POST_LAST_MODIFICATION = 0xFFFFFFFEu;
  static constexpr unsigned int NO_PREVIOUS_MODIFICATION = 0xFFFFFFFFu;
  typedef assignment_stack::implication_node implication_node;
  typedef std::vector<small_model::iset> literal_vector;

  // The learned object seen as a constraint: parameter i is node i, shown as it
  // stood at the earlier of its position and `time`, unless overlaid.
  class info_type : public constraint_runtime_info {
   public:
    info_type(const learned_type& learned, unsigned int time, unsigned int effort,
              bool track_reductions, bool use_ages);

    bool reduced_between_activations(unsigned int param) const override;
    queue_type originating_queue() const override { return VARIABLE_QUEUE; }
    void put_in_queue(queue_type) override {}
    const small_model::iset& read_domain(unsigned int param) const override;
    void set_domain(unsigned int param, small_model::iset set) override;
    unsigned int arity() const override;
    void deallocate_watch(unsigned int, watch_types::watch_type, watch_handle_t handle) override {
      m_watches.deallocate(handle);
    }
    watch_handle_t allocate_watch(unsigned int, watch_types::watch_type) override {
      return m_watches.allocate();
    }
    void deallocate_value_watch(unsigned int, int, watch_handle_t handle) override {
      m_watches.deallocate(handle);
    }
    watch_handle_t allocate_value_watch(unsigned int, int) override { return m_watches.allocate(); }
    unsigned int latest_modified_param(unsigned int before) const override;
    unsigned int effort() const override { return m_effort; }
    void print(std::ostream& os) const override;
    void print_param(std::ostream& os, unsigned int param) const override;

    unsigned int to_variable(unsigned int param) const;
    unsigned int time() const { return m_time; }
    // Gives param a domain of its own, whatever its size.
    void set_overlay(unsigned int param, small_model::iset set);

   private:
    const learned_type* m_learned;
    unsigned int m_time;
    unsigned int m_effort;
    bool m_track_reductions;
    bool m_use_ages;
    std::vector<bool> m_overlaid;
    literal_vector m_overlay;
    local_watch_list m_watches;
    // domain() returns a reference: one slot per parameter.
    mutable literal_vector m_domains;
  };

  learned_type(const assignment_stack& stack, const solver& owner);
  ~learned_type();

  // ---- construction -----------------------------------------------------------
  void reset();
  void construct_from(const constraint_connectivity_info& info,
                      const constraint_propagator& constraint, const literal_vector& explanation,
                      unsigned int time);
  void construct_nodes_and_explanation(const constraint_connectivity_info& info,
                                       const literal_vector& explanation, unsigned int time);
  // Positions for the present nodes: each variable's last change below `time`.
  // A null explanation means none.
  void construct_from_variables(const literal_vector* explanation, unsigned int time);
  // Starts directly in clause form from the explanation of a constraint, the
  // literals of a variable that stands at several parameters joined.
  void construct_clause_from(const constraint_connectivity_info& info,
                             const literal_vector& explanation, unsigned int time);
  void insert_literal(const small_model::iset& set, unsigned int variable, unsigned int entry);
  // The resolution step on the pivot: false if the literal vanished (or has no node).
  bool intersect_literal(const small_model::iset& set, unsigned int variable, unsigned int entry);
  void erase_literal(unsigned int node);
  void compute_level();
  bool conflict_analysis_complete();
  unsigned int latest_node_index(unsigned int excluded) const;
  int asserting_level() const;
  int opportunistic_level() const;
  void update_explanation();
  void update_explanation(const constraint_runtime_info& info);
  void convert_to_clause();
  bool conflicts() const;
  // Parameters, literals and the variable index agree; false on a fault.
  bool audit() const;
  void print(std::ostream& os) const;
  void show_self() const;

  // ---- combination ----------------------------------------------------------------
  bool combine(const constraint_propagator& other, const constraint_connectivity_info& other_info,
               unsigned int pivot, unsigned int entry);
  std::unique_ptr<constraint_propagator> combine_as_constraint(
      const constraint_propagator& other, const constraint_connectivity_info& other_info,
      unsigned int pivot, unsigned int entry, std::vector<unsigned int>& out);
  std::unique_ptr<constraint_propagator> combine_as_clause(
      const constraint_propagator& other, const constraint_connectivity_info& other_info,
      unsigned int pivot, unsigned int entry, std::vector<unsigned int>& out);
  int get_this_on_right_common_param(const constraint_connectivity_info& other_info,
                                     unsigned int pivot, std::vector<unsigned int>& map) const;
  bool combined_conflicts(const constraint_connectivity_info& other_info,
                          const constraint_propagator& combined,
                          const std::vector<unsigned int>& out, unsigned int entry) const;
  void reconstruct_from_combined(const constraint_connectivity_info& other_info,
                                 std::unique_ptr<constraint_propagator>& combined,
                                 const std::vector<unsigned int>& out, unsigned int entry);
  void add_vars_potentially_falsifying(std::vector<unsigned int>& variables) const;

  // ---- relaxation -------------------------------------------------------------------
  bool relax(unsigned int node, const small_model::iset& set);
  bool relax_all();
  bool relax_level(unsigned int node, const small_model::iset& set);
  bool relax_level_all();
  bool relax_level_all(const literal_vector& literals);
  bool relax_if_required();
  bool relax_cause();
  bool relax_cause_for_clause(const literal_vector& literals);
  bool relax_cause_for_constraint(constraint_propagator& clone, info_type& view,
                                  const std::vector<const small_model::iset*>& ground);
  bool explanation_conflicts() const;
  literal_vector possibly_crippling_values() const;
  void intersect_with_ground();
  void intersect_general_constraint_with_ground();

  // ---- read access ------------------------------------------------------------------
  const std::vector<implication_node>& nodes() const { return m_nodes; }
  const literal_vector& literals() const { return m_literals; }
  const constraint_propagator* constraint() const { return m_constraint; }
  bool owns_constraint() const { return m_constraint && m_constraint == m_owned_constraint.get(); }
  unsigned int level() const { return m_level; }
  unsigned int nodes_at_level() const { return m_nodes_at_level; }
  unsigned int effort() const { return m_effort; }
  bool explanation_valid() const { return m_explanation_valid; }
  // The node of a variable, or NO_PARAM.
  unsigned int node_of(unsigned int variable) const;
  const assignment_stack& stack() const { return *m_stack; }

 private:
  bool at_level(unsigned int entry) const;
  // Moves a node, keeping the count at the level; recomputes the level when the
  // count falls to 0.
  void set_position(unsigned int node, unsigned int entry);
  void set_variable_index(unsigned int variable, unsigned int node);
  info_type usual_info() const;
  void report_explanation_change(const literal_vector& previous) const;

  const assignment_stack* m_stack;
  const solver* m_solver;
  bool m_explanation_valid = false;
  std::vector<implication_node> m_nodes;
  literal_vector m_literals;
  const constraint_propagator* m_constraint = nullptr;
  std::unique_ptr<constraint_propagator> m_owned_constraint;
  std::vector<unsigned int> m_variable_to_literal_index;
  unsigned int m_level = 0;
  unsigned int m_nodes_at_level = 0;
  unsigned int m_effort = 0;

  // Storage kept between analyses: a steady search allocates nothing here.
  static std::vector<implication_node> m_implication_nodes_cache;
  static literal_vector m_literals_cache;
  static std::vector<unsigned int> m_variable_to_literal_index_cache;
};

std::ostream& operator<<(std::ostream& os, const learned_type& learned);

}  // namespace zelk

#endif
