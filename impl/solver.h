// The central object: variables (through the assignment stack), constraints, watch
// lists, queues, learned-constraint bookkeeping and the search.
//
// Format readers derive from it, fill it through add_var / singleton_var /
// set_var_domain / add_constraint, and the driver calls solve(). The main loop is
// solve_impl: propagate to a fixpoint; on failure analyse the conflict, jump back
// and run the learned constraint there; otherwise pick a variable by cost and fix
// it to a value. There is no wall-clock limit: the only limit is the number of
// backtracks, and TIMEOUT means that the 64-bit logical clock overflowed.
#ifndef ZELK_IMPL_SOLVER_H
#define ZELK_IMPL_SOLVER_H

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <boost/heap/fibonacci_heap.hpp>

#include "impl/assignment_stack.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_propagator.h"
#include "impl/pool_alloc.h"
#include "impl/small_iset.h"
#include "impl/utilities.h"
#include "impl/var_watchers.h"
#include "impl/watch_types.h"

namespace zelk {

class learned_type;
class conflict_constraint_dependency;
class proof_collector_interface;
class explanation_rule;
class timer;
class formula;

class solver : private solver_types, private no_copy, private watch_types {
 public:
  typedef solver_types::label_type label_type;
  // Every learned constraint carries this label from its insertion on: it is no
  // hypothesis of either part of an interpolant, whatever its other bits say.
  static constexpr label_type LEARNED_LABEL = 0x80000000u;

  enum result_type {
    SAT = 0,
    UNSAT = 1,
    BACKTRACK_LIMIT = 2,
    TIMEOUT = 3,
    MEMOUT = 4,
    SAT_DONE = 5,
    OPTIMAL = 6
  };

  class timeout_exception : public std::exception {
   public:
    const char* what() const noexcept override { return "timeout exception"; }
  };

  static constexpr unsigned int UNINITIALIZED_LEVEL = 0xFFFFFFFFu;

  // A learned constraint waiting to run (again) after a jump: the level at which it
  // last ran (UNINITIALIZED_LEVEL: not yet) and its index.
  struct constraint_run_level {
    unsigned int level;
    unsigned int constraint;
  };

  // An element of the queue of changed variables.
  struct variable_event {
    unsigned int variable;
    unsigned int previous_size;  // members before the change that queued the event
    unsigned int modification;   // the entry that queued it: the start of what it covers

    // True if b is to come off the heap before a: the event with the largest
    // (p - s) / (s * d) goes first, s the present size, p the previous size, d the
    // distance of the variable's newest entry from the deepest decision.
    class comparator {
     public:
      explicit comparator(const assignment_stack& stack) : m_stack(&stack) {}
      bool operator()(const variable_event& a, const variable_event& b) const;

     private:
      const assignment_stack* m_stack;
    };
  };
  // Heap nodes come from a pool: a steady search pushes and pops without reaching
  // the system allocator.
  typedef boost::heap::fibonacci_heap<variable_event,
                                      boost::heap::compare<variable_event::comparator>,
                                      boost::heap::allocator<pool_alloc<variable_event>>>
      event_heap_type;

  // The result of asking a constraint for an explanation. `explanation` points at
  // the literals of a clause or at one static vector overwritten by the next call.
  struct explanation_views {
    const std::vector<small_model::iset>* explanation = nullptr;
    std::unique_ptr<explanation_rule> rule;
  };

  solver();
  virtual ~solver();

  // ==== virtual operations the formats may override =========================
  virtual void print_solution(std::ostream& out) const;
  virtual int evaluate_objective() const;

  // ==== model building ======================================================
  unsigned int add_var(small_model::iset domain, const char* name = nullptr,
                       bool is_constant = false);
  unsigned int singleton_var(int value);
  // Appends the constraint; the caller then appends its variables in parameter
  // order to the returned object with operator<<.
  constraint_connectivity_info& add_constraint(std::unique_ptr<constraint_propagator> propagator);
  void set_var_domain(unsigned int var, small_model::iset domain, int cause);
  label_type variable_labels(unsigned int var) const;
  label_type variable_labels(unsigned int var, label_type label);
  label_type constraint_labels(unsigned int constraint) const;
  label_type constraint_labels(unsigned int constraint, label_type label);
  std::vector<label_type> variables_touched_by_labels() const;
  void get_constraint_variables(unsigned int constraint, std::vector<unsigned int>& out) const;
  void print_constraint(std::ostream& os, unsigned int constraint) const;
  bool is_clause(unsigned int constraint) const;
  const std::vector<small_model::iset>& clause_literals(unsigned int constraint) const;
  void produce_proof(bool produce);
  void print_recent_proof(std::ostream& os) const;
  // A Craig interpolant between the constraints labelled 1 (part A) and the others
  // (part B), from the refutation of the last solve; see proof_interpolant_visitor.
  // The caller labels the model and asks for a proof (produce_proof(true), ground
  // intersection off) before solving.
  formula get_interpolant() const;
  void show_self() const;
  void reset();

  // ==== running =============================================================
  result_type solve(std::ostream* out = nullptr);
  result_type solve_current_constraints(bool first_of_optimization);
  result_type solve_impl(bool first_of_optimization);

  // ==== queries of the constraint views =====================================
  watch_handle_t allocate_watch(unsigned int var, watch_types::watch_type type,
                                unsigned int constraint);
  void deallocate_watch(unsigned int var, watch_types::watch_type type, watch_handle_t handle);
  watch_handle_t allocate_value_watch(unsigned int var, int value, unsigned int constraint);
  void deallocate_value_watch(unsigned int var, int value, watch_handle_t handle);
  void put_in_queue(unsigned int constraint, constraint_runtime_info::queue_type queue);
  small_model::iset removed_values(unsigned int var, unsigned int modification) const;
  void notify_modification(unsigned int var, int source);
  constraint_runtime_info::queue_type originating_queue() const { return m_originating_queue; }

  // ==== plain access ==========================================================
  const assignment_stack& stack() const { return m_stack; }
  assignment_stack& stack() { return m_stack; }
  unsigned int num_variables() const { return m_stack.num_variables(); }
  unsigned int num_constraints() const { return unsigned(m_propagators.size()); }
  const constraint_propagator* propagator(unsigned int c) const { return m_propagators[c].get(); }
  const constraint_connectivity_info& connectivity(unsigned int c) const {
    return m_connectivity[c];
  }
  constraint_connectivity_info& connectivity(unsigned int c) { return m_connectivity[c]; }
  std::uint64_t time() const { return m_time; }
  bool searching() const { return m_searching; }
  unsigned int first_learned() const { return m_first_learned; }
  bool want_proof() const;
  proof_collector_interface& proof_collector() const { return *m_proof_collector; }
  const conflict_constraint_dependency* dependencies() const { return m_dependencies.get(); }
  const std::vector<unsigned int>& recent_conflict_variables() const {
    return m_recent_conflict_variables;
  }

  // ==== statistics ============================================================
  unsigned int total_backtracks() const { return m_total_backtracks; }
  unsigned int restarts() const { return m_restarts; }
  std::uint64_t assignments() const { return m_assignments; }
  std::uint64_t combines() const { return m_combines; }
  std::uint64_t non_fallback_combines() const { return m_non_fallback_combines; }
  unsigned int non_fallback_learned() const { return m_non_fallback_learned; }
  unsigned int conflicts() const { return m_conflicts; }

  // ==== options (zelk_flags::apply and the formats set them) ===================
  int report_level = 0;
  unsigned int backtrack_limit = 1000000000u;
  unsigned int restart_threshold = 16;
  bool check_domain_ages = true;
  bool should_intersect_with_ground = true;
  unsigned int relaxation_mode = 2;
  bool relax_conflict_cause = false;
  bool combine_constraints = true;
  bool augment_explanations = true;
  bool quiet_optimization = false;
  bool all_solutions = false;
  bool print_proof = false;
  bool validate_unsat = false;
  double analysis_cost_factor = 2.0;
  double conflict_cost_factor = 8.0;
  unsigned int opportunistic_threshold = 1000;
  unsigned int conflicts_before_boosting_effort = 4;
  unsigned int max_conflict_clause = 100;
  unsigned int erase_after_backtracks = 256;
  unsigned int keep_constraints_from_conflicts = 512;

  // ==== model description (the formats set them) ===============================
  unsigned int reported_variable_count = 0xFFFFFFFFu;  // print limit of print_solution
  int objective_variable = -1;                         // negative: satisfaction only
  bool minimize = true;
  std::string comment_prefix = "c";
  std::string status_prefix = "s";
  std::string objective_prefix = "o";
  // Added to the best value in the "o" lines: a format whose objective variable
  // holds its objective less a constant reports the objective itself.
  int objective_offset = 0;

  // ==== decision heuristic (variable_cost) =====================================
  int choose_free_variable();
  void add_constraint_cost_to_variables(unsigned int constraint, double amount,
                                        const std::vector<small_model::iset>* literals);

  // ==== learned-constraint store ================================================
  unsigned int insert_constraint(const learned_type& learned);
  void forget_learned_constraints();
  void mark_used(unsigned int constraint);
  void mark_dependency(unsigned int constraint, unsigned int depends_on);

  // ==== conflict analysis ========================================================
  int analyze_conflict(int& asserted);
  bool generate_conflict_constraint(learned_type& learned);
  unsigned int conflicting_modification_entry() const;
  explanation_views get_constraint_explanation(unsigned int constraint, unsigned int param,
                                               const small_model::iset& literal,
                                               unsigned int entry) const;
  void relax(learned_type& learned, unsigned int node) const;
  int find_backtrack_level(const learned_type& learned, int asserting_level) const;
  void report_explanation(std::ostream& os, const constraint_runtime_info& info,
                          const std::vector<small_model::iset>& explanation) const;

  // ==== optimisation ===============================================================
  result_type optimize();
  bool improve_solution(timer& t, result_type& result);
  void save_solution_as_best();
  void restore_best_solution();
  void advance_iteration_time(timer& t);
  int best_value() const { return m_best_value; }

 protected:
  bool has_empty_domains() const;
  // The whole state at a quiet point: the stack, the event heap's bookkeeping, the
  // watch lists and the learned store agree with each other; false on a fault.
  bool audit() const;

 private:
  friend class constraint_connectivity_info;
  // Test hook: lets the unit tests drive the search loop step by step.
  friend struct solver_test_access;

  // ---- search loop (solver.cpp) ------------------------------------------------
  void validate_flags_consistency() const;
  void prepare_for_solve();
  bool first_time_propagate_constraints();
  void initial_intersect_with_ground(unsigned int constraint);
  bool init_one_constraint(unsigned int constraint, unsigned int modification, bool dirty);
  void restrict_variable(unsigned int var, bool first_of_optimization);
  result_type backtrack(int level, int asserted);
  void complement_decision(unsigned int var, small_model::iset set);
  bool compute_restart(int level);
  void restart();
  void manage_unsat();
  bool is_correctly_unsat() const;
  void forget_all_watches();
  void tick();

  // ---- propagation scheduling ----------------------------------------------------
  bool propagate_constraints();
  bool propagate_constraints_in_variable_queue();
  bool propagate_constraint_in_constraint_queue();
  bool propagate_constraints_touching_var(unsigned int var, unsigned int modification);
  template <class Watchers>
  bool activate_watchers(Watchers& watchers, std::uint32_t keys);
  void note_valid_activation(unsigned int c);
  bool propagate_one_constraint(unsigned int constraint, bool report);
  bool propagate_dirty_learned_constraint(constraint_run_level& entry);
  void report_last_propagation(propagation_types::result_type result, bool forced) const;
  void clear_event_heap();
  void notify_level_changes(unsigned int var);

  // ---- learned-constraint store -------------------------------------------------
  void remove_unused_conflict_constraints_maybe();
  void forget_conflict_constraint(unsigned int constraint);
  void save_erased_prerequisites_for_proof(const std::vector<unsigned int>& kept);

  // ---- conflict analysis ---------------------------------------------------------
  void collect_conflict_nodes(learned_type& learned, explanation_views& views,
                              unsigned int constraint, unsigned int time);
  void record_explanation_variables(const constraint_connectivity_info& info,
                                    const std::vector<small_model::iset>& explanation);
  bool resolve_conflicting_implications(learned_type& learned);
  void resolve(learned_type& learned, unsigned int variable, unsigned int constraint);
  bool prepare_to_resolve(learned_type& learned, unsigned int variable,
                          unsigned int constraint, unsigned int& param,
                          const std::vector<small_model::iset>*& explanation);
  void resolve_clause(learned_type& learned, const constraint_connectivity_info& info,
                      const std::vector<small_model::iset>& explanation, unsigned int param,
                      unsigned int entry) const;
  void report_resolution_start(std::ostream& os, const learned_type& learned,
                               unsigned int constraint, unsigned int entry) const;
  // Whether a variable stands at two parameters of the constraint.
  bool repeats_variable(unsigned int constraint) const;

  // ---- state (in the order of the solver's table) ---------------------------------
  std::uint64_t m_time = 2;
  unsigned int m_last_constraint = 0;
  constraint_runtime_info::queue_type m_originating_queue = constraint_runtime_info::VARIABLE_QUEUE;
  bool m_searching = false;
  unsigned int m_total_backtracks = 0;
  unsigned int m_conflicts = 0;
  unsigned int m_backtracks_since_restart = 0;
  unsigned int m_current_restart_threshold = 16;
  unsigned int m_restarts = 0;
  std::uint64_t m_assignments = 0;
  std::uint64_t m_combines = 0;
  std::uint64_t m_non_fallback_combines = 0;
  unsigned int m_non_fallback_learned = 0;
  bool m_fallback_used = false;
  std::vector<unsigned int> m_level_backtracks;
  std::unique_ptr<proof_collector_interface> m_proof_collector;
  std::vector<constraint_connectivity_info> m_connectivity;
  // Labels by constraint, missing entries 0; a learned constraint's LEARNED_LABEL is
  // one bit (every learned constraint has it, and they are most constraints).
  std::vector<label_type> m_constraint_labels;
  std::vector<bool> m_learned_labelled;
  unsigned int m_first_learned = 0;
  std::vector<std::unique_ptr<constraint_propagator>> m_propagators;
  unique_queue<void> m_constraint_queue;
  std::vector<constraint_run_level> m_dirty_learned_constraints;
  std::unique_ptr<conflict_constraint_dependency> m_dependencies;
  assignment_stack m_stack;
  std::vector<var_event_watchers> m_event_watchers;
  std::vector<var_value_watchers> m_value_watchers;
  event_heap_type m_event_heap;
  struct event_mark {
    event_heap_type::handle_type handle;
    bool in_heap = false;
  };
  std::vector<event_mark> m_event_marks;
  int m_last_chosen_variable = -1;
  std::vector<unsigned int> m_recent_conflict_variables;
  std::vector<int> m_best_solution;
  int m_best_value = 0;
  std::ostream* m_proof_stream;
};

std::ostream& operator<<(std::ostream& os, solver::result_type result);

}  // namespace zelk

#endif
