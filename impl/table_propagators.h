// Table constraints: the parameters take one of the listed tuples.
//
//   support_table_propagator   (x0, ..., xn-1) in T
//
// A table keeps one decision diagram per column, whose first level is that
// column and whose further levels are the other columns ascending. Every node of
// every table of a run lives once in the pool of one memory_manager (hash
// consing), which the driver creates before the first file and which outlives
// every solver, so that files of one run share equal sub-diagrams.
//
// Generalised arc consistency in one pass: a value stays exactly when some tuple
// that uses it lies inside the current domains.
#ifndef ZELK_IMPL_TABLE_PROPAGATORS_H
#define ZELK_IMPL_TABLE_PROPAGATORS_H

#include <cstddef>
#include <memory>
#include <vector>

#include "impl/constraint_propagator.h"
#include "impl/constraint_runtime_info.h"
#include "impl/small_iset.h"

namespace zelk {

class table_propagator_base : public constraint_propagator {
 public:
  class decision_node;      // immutable, shared node of the pool
  class decision_sub_tree;  // build-time tree, owned by one construction
  class tuples;             // one per distinct table, shared by its clones

  // The pool of nodes of one run. All tables must be gone, or never be touched
  // again, when it is destroyed.
  class memory_manager {
   public:
    class impl;

    memory_manager();
    ~memory_manager();
    memory_manager(const memory_manager&) = delete;
    memory_manager& operator=(const memory_manager&) = delete;

    // Frees every node that no live table reaches.
    void garbage_collect();
    // For the end of the process, when freeing is a waste of time.
    void disable_garbage_collection();
    // Nodes in the pool, reachable or not.
    std::size_t node_count() const;
    // Distinct root nodes of the live tables.
    std::size_t root_count() const;

    impl& get_impl() { return *m_impl; }

   private:
    impl* m_impl;
  };

  // Builds the diagrams of the tuples, which need not be sorted; every tuple
  // has the width of the first. A value outside 0..31 raises the set's range
  // error "while inserting an element" and leaves the pool as it was.
  table_propagator_base(memory_manager& memory, const std::vector<std::vector<int>>& tuples);
  // Clones share the diagrams: one count up.
  table_propagator_base(const table_propagator_base& other);
  table_propagator_base& operator=(const table_propagator_base& other);
  ~table_propagator_base() override;

  // The width of the tuples; all bits set for a table without columns.
  unsigned int count_params() const override;
  // True if the smallest values of the domains form a listed tuple.
  bool find_tuple(const constraint_runtime_info& info) const;

 protected:
  tuples* m_tuples;
};

// Keeps each value that has a supporting tuple within the current domains.
// Explained by the default complement-of-domains generator; no value watches,
// never postponed, no part in combination.
class support_table_propagator : public table_propagator_base {
 public:
  support_table_propagator(memory_manager& memory, const std::vector<std::vector<int>>& tuples)
      : table_propagator_base(memory, tuples) {}

  // May write an empty domain, and then answers UNSAT in the same call.
  [[nodiscard]] result_type propagate(constraint_runtime_info& info) override;
  bool conflicts(const constraint_runtime_info& info) const override;
  bool constraint_check(const constraint_runtime_info& info) const override;
  std::unique_ptr<constraint_propagator> clone() const override;
};

}  // namespace zelk

#endif
