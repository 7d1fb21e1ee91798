// Which learned constraint was used when, and which earlier learned constraints
// each one was derived from. The erasure of learned constraints asks it what is
// active and what may go; the proof asks it what must be saved before erasing.
#ifndef ZELK_IMPL_CONFLICT_CONSTRAINT_DEPENDENCY_H
#define ZELK_IMPL_CONFLICT_CONSTRAINT_DEPENDENCY_H

#include <vector>

namespace zelk {

class conflict_constraint_dependency {
 public:
  static constexpr unsigned int ERASED = 0xFFFFFFFFu;

  // Vectors are indexed by constraint index less `first`, the first learned one.
  explicit conflict_constraint_dependency(unsigned int first) : m_first(first) {}

  void mark_used(unsigned int constraint, unsigned int when);
  // Appends prerequisite to the list of dependent; duplicates stay until compaction.
  void mark_dependency(unsigned int prerequisite, unsigned int dependent);
  void compact_prerequisites(unsigned int constraint);
  // Ascending: not erased and last used at `since` or later.
  std::vector<unsigned int> active_constraints(unsigned int since) const;
  // Ascending: not erased and not in `kept`.
  std::vector<unsigned int> other_constraints(const std::vector<unsigned int>& kept) const;
  void erase_constraint(unsigned int constraint);
  // Every live learned constraint the given ones rest on, in order of first visit.
  std::vector<unsigned int> prerequisite_closure(const std::vector<unsigned int>& constraints) const;

  unsigned int first_constraint() const { return m_first; }
  bool is_erased(unsigned int constraint) const;
  const std::vector<unsigned int>& prerequisites(unsigned int constraint) const;

 private:
  void grow_to(unsigned int constraint);

  unsigned int m_first;
  std::vector<std::vector<unsigned int>> m_prerequisites;
  std::vector<unsigned int> m_last_used;
};

}  // namespace zelk

#endif
