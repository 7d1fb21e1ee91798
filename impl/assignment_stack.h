// The trail of the solver: the domains of all variables, the complete history of
// every domain change of the present branch, the decision levels, and the cost
// heap of the decision heuristic.
//
// A modification number is a position in the list of all modification entries.
// NO_PREVIOUS_MODIFICATION (all bits set) stands for a moment before every entry
// and is ordered before every real number (is_earlier_modification).
// The entries of one variable form a chain through the list (previous
// modification), from the newest (the chain head in variable_state) to the oldest;
// history queries walk that chain, nothing is copied per level.
//
// The cost heap (a binary heap of variable numbers, best candidate at the root) is
// "off" while both of its vectors are empty: cost updates then touch the cost only.
#ifndef ZELK_IMPL_ASSIGNMENT_STACK_H
#define ZELK_IMPL_ASSIGNMENT_STACK_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "impl/small_iset.h"
#include "impl/utilities.h"

namespace zelk {

// Maps a variable number to text.
class variable_print_strategy {
 public:
  virtual ~variable_print_strategy() = default;
  virtual void print(std::ostream& os, unsigned int variable) const = 0;
};

// A strategy and a variable that can be streamed.
class variable_printer {
 public:
  variable_printer() = default;
  variable_printer(const variable_print_strategy* strategy, unsigned int variable)
      : m_strategy(strategy), m_variable(variable) {}
  const variable_print_strategy* strategy() const { return m_strategy; }
  unsigned int variable() const { return m_variable; }

 private:
  const variable_print_strategy* m_strategy = nullptr;
  unsigned int m_variable = 0;
};
// Writes the variable through its strategy; without strategy "V" and the number.
std::ostream& operator<<(std::ostream& os, const variable_printer& printer);

class assignment_stack : private no_copy {
 public:
  static constexpr unsigned int NO_PREVIOUS_MODIFICATION = 0xFFFFFFFFu;
  static constexpr unsigned int MAX_MODIFICATION_ENTRIES = 4294967294u;

  struct variable_state {
    small_model::iset domain;
    unsigned int last_modification;  // chain head, NO_PREVIOUS_MODIFICATION if none
    double cost;
    std::uint64_t assignment_time;   // time at which the domain last became a single value
    unsigned int previous_size;      // members just before the latest set_var_domain
  };

  struct variable_modification_entry {
    unsigned int previous_modification;  // older entry of the same variable
    small_model::iset previous_domain;   // the domain before this change
    std::uint64_t time;
    unsigned int variable;
    int cause;  // constraint index, or -1 for a decision / a change without constraint
  };

  struct single_decision_data {
    unsigned int variable;
    unsigned int modification;  // the entry the decision made
  };

  // A node of the implicit implication graph.
  struct implication_node {
    implication_node() = default;
    implication_node(unsigned int m, unsigned int v) : modification(m), variable(v) {}
    unsigned int modification = NO_PREVIOUS_MODIFICATION;
    unsigned int variable = 0;
  };

  // Value saving: the last single value a variable held.
  struct previous_value {
    bool has_value = false;
    int value = 0;
  };

  assignment_stack();

  // ---- building the model -------------------------------------------------
  unsigned int add_var(small_model::iset domain, const char* name, bool is_constant);
  unsigned int singleton_var(int value);
  void set_var_initial_domain(unsigned int var, small_model::iset domain);
  void print_var_name(std::ostream& os, unsigned int var) const;
  bool print_singleton_variables(std::ostream& os) const;

  // ---- changing the state -------------------------------------------------
  void set_var_domain(unsigned int var, small_model::iset domain, unsigned long long time,
                      int cause);
  // Opens a level: records (var, number of entries) as the decision of the new level.
  void push_decision(unsigned int var);
  void undo_level(unsigned int level);
  void clear();
  void erase_conflicting_modifications(unsigned int constraint);
  void construct_level0_domains();
  void forget_previously_assigned_var_values();

  // ---- plain access -------------------------------------------------------
  unsigned int num_variables() const { return unsigned(m_variables.size()); }
  unsigned int num_modifications() const { return unsigned(m_modifications.size()); }
  // Number of decisions, which is the present level.
  unsigned int depth() const { return unsigned(m_decisions.size()); }
  const small_model::iset& domain(unsigned int var) const { return m_variables[var].domain; }
  const variable_state& state(unsigned int var) const { return m_variables[var]; }
  const variable_modification_entry& modification(unsigned int m) const {
    return m_modifications[m];
  }
  const previous_value& previously_assigned_value(unsigned int var) const {
    return m_previously_assigned_value[var];
  }
  const std::string& var_name(unsigned int var) const { return m_names[var]; }
  const variable_print_strategy& print_strategy() const { return m_print_strategy; }
  bool has_level0_domain(unsigned int var) const { return var < m_level0_domains.size(); }

  // ---- history ------------------------------------------------------------
  unsigned int decision_variable(unsigned int level) const;
  int decision_value(unsigned int level) const;
  unsigned int decision_modification(unsigned int level) const;
  unsigned int decision_level_of(unsigned int modification) const;
  const small_model::iset& value_before_modification(unsigned int modification) const;
  small_model::iset var_domain_after_modification(unsigned int var,
                                                  unsigned int modification) const;
  small_model::iset var_domain_end_level(unsigned int var, int level) const;
  std::uint64_t var_modification_time(unsigned int var) const;
  unsigned int var_modification_entry_before(unsigned int var, unsigned int modification) const;
  unsigned int before_propagation(unsigned int modification) const;
  unsigned int relax(unsigned int modification, const small_model::iset& set) const;
  unsigned int relax_before(unsigned int modification, const small_model::iset& set,
                            unsigned int limit) const;
  unsigned int nth_modification(unsigned int n, const std::vector<implication_node>& nodes) const;
  int asserting_level_of_nth(unsigned int n, const std::vector<implication_node>& nodes,
                             const std::vector<small_model::iset>& sets) const;
  static bool is_earlier_modification(unsigned int a, unsigned int b) {
    return a + 1u < b + 1u;  // NO_PREVIOUS_MODIFICATION wraps to 0
  }
  std::vector<unsigned int> get_busy_constraints(unsigned int first) const;

  solver_types::label_type variable_labels(unsigned int var) const { return m_labels[var]; }
  solver_types::label_type variable_labels(unsigned int var, solver_types::label_type label);

  // The invariants of the whole stack: every chain of entries runs back through
  // older entries of its own variable, domains only narrow along a chain, decisions
  // are ordered entries, a saved value agrees with a single value, and the cost heap (when
  // enabled) matches its positions and keeps fixed variables below open ones; false
  // on a fault.
  bool audit() const;

  // ---- cost heuristic -------------------------------------------------------
  bool is_better_variable(int a, int b, int factor) const;
  // The sifts' form of the comparison above, factor 1: inline, as the cost heap runs
  // it a few times on every domain change and every restore.
  bool beats(unsigned int a, unsigned int b) const {
    const variable_state& va = m_variables[a];
    const variable_state& vb = m_variables[b];
    const unsigned int sa = va.domain.size();
    const unsigned int sb = vb.domain.size();
    // A fixed variable beats nothing; an empty domain counts as open here.
    if (sa == 1) return false;
    if (sb == 1) return true;
    // Cost per member, cross-multiplied.
    const double left = double(sb) * va.cost;
    const double right = double(sa) * vb.cost;
    if (left != right) return left > right;
    if (va.assignment_time != vb.assignment_time) return va.assignment_time > vb.assignment_time;
    return a < b;
  }
  // The newest decision's entry, NO_PREVIOUS_MODIFICATION at level 0.
  unsigned int deepest_decision_modification() const {
    return m_decisions.empty() ? NO_PREVIOUS_MODIFICATION : m_decisions.back().modification;
  }
  unsigned int find_best_free_variable() const;
  void add_var_cost(int var, double amount);
  void lower_var_costs();
  void reset_var_costs(double increment);
  void disable_var_costs_heap();
  void enable_var_costs_heap();
  void raise_var_heap_cost(unsigned int var);  // towards the leaves
  void lower_var_heap_cost(unsigned int var);  // towards the root
  double cost(unsigned int var) const { return m_variables[var].cost; }
  double cost_increment() const { return m_cost_increment; }
  double cost_scale() const { return m_cost_scale; }
  void set_cost_scale(double scale) { m_cost_scale = scale; }
  bool heap_enabled() const { return !m_heap.empty(); }
  const std::vector<unsigned int>& heap() const { return m_heap; }
  // Audit: the heap property and the position vector; false on a fault.
  bool check_heap() const;

 private:
  class assignment_variables_print_strategy : public variable_print_strategy {
   public:
    explicit assignment_variables_print_strategy(const assignment_stack* stack)
        : m_stack(stack) {}
    void print(std::ostream& os, unsigned int variable) const override;

   private:
    const assignment_stack* m_stack;
  };

  [[noreturn]] static void throw_out_of_range(const char* name);
  void record_value(unsigned int var);
  // Gives the entry's variable back the domain and chain head from before the
  // entry, with the matching heap move and value saving.
  void restore_entry(const variable_modification_entry& entry);

  std::vector<variable_state> m_variables;
  std::vector<small_model::iset> m_level0_domains;
  std::vector<unsigned int> m_heap;
  std::vector<unsigned int> m_heap_positions;
  double m_cost_increment = 1.0;
  double m_cost_scale = 1.0434782608695652;
  std::vector<previous_value> m_previously_assigned_value;
  std::vector<single_decision_data> m_decisions;
  std::vector<variable_modification_entry> m_modifications;
  std::vector<solver_types::label_type> m_labels;
  assignment_variables_print_strategy m_print_strategy;
  std::vector<std::string> m_names;
  std::map<int, unsigned int> m_singletons;
};

static_assert(sizeof(assignment_stack::variable_modification_entry) == 24,
              "trail entries stay packed");

}  // namespace zelk

#endif
