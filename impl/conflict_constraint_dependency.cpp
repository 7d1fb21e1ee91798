// Bookkeeping of learned-constraint use and derivation.
#include "impl/conflict_constraint_dependency.h"

#include <algorithm>
#include <set>

#include "impl/pool_alloc.h"

namespace zelk {

void conflict_constraint_dependency::grow_to(unsigned int constraint) {
  const unsigned int i = constraint - m_first;
  if (i >= m_last_used.size()) {
    m_last_used.resize(i + 1, 0);
    m_prerequisites.resize(i + 1);
  }
}

void conflict_constraint_dependency::mark_used(unsigned int constraint, unsigned int when) {
  if (constraint < m_first) return;
  grow_to(constraint);
  m_last_used[constraint - m_first] = when;
}

void conflict_constraint_dependency::mark_dependency(unsigned int prerequisite,
                                                     unsigned int dependent) {
  if (dependent < m_first) return;
  grow_to(dependent);
  m_prerequisites[dependent - m_first].push_back(prerequisite);
}

void conflict_constraint_dependency::compact_prerequisites(unsigned int constraint) {
  if (constraint < m_first) return;
  const unsigned int i = constraint - m_first;
  if (i < m_prerequisites.size() &&
      m_prerequisites[i].capacity() > m_prerequisites[i].size())
    m_prerequisites[i].shrink_to_fit();
}

std::vector<unsigned int> conflict_constraint_dependency::active_constraints(
    unsigned int since) const {
  std::vector<unsigned int> result;
  for (unsigned int i = 0; i < m_last_used.size(); ++i)
    if (m_last_used[i] != ERASED && m_last_used[i] >= since) result.push_back(m_first + i);
  return result;
}

std::vector<unsigned int> conflict_constraint_dependency::other_constraints(
    const std::vector<unsigned int>& kept) const {
  std::vector<unsigned int> sorted = kept;
  std::sort(sorted.begin(), sorted.end());
  std::vector<unsigned int> result;
  for (unsigned int i = 0; i < m_last_used.size(); ++i) {
    if (m_last_used[i] == ERASED) continue;
    if (!std::binary_search(sorted.begin(), sorted.end(), m_first + i))
      result.push_back(m_first + i);
  }
  return result;
}

void conflict_constraint_dependency::erase_constraint(unsigned int constraint) {
  if (constraint < m_first) return;
  grow_to(constraint);
  const unsigned int i = constraint - m_first;
  std::vector<unsigned int>().swap(m_prerequisites[i]);
  m_last_used[i] = ERASED;
}

bool conflict_constraint_dependency::is_erased(unsigned int constraint) const {
  if (constraint < m_first) return false;
  const unsigned int i = constraint - m_first;
  return i < m_last_used.size() && m_last_used[i] == ERASED;
}

const std::vector<unsigned int>& conflict_constraint_dependency::prerequisites(
    unsigned int constraint) const {
  static const std::vector<unsigned int> none;
  const unsigned int i = constraint - m_first;
  return constraint >= m_first && i < m_prerequisites.size() ? m_prerequisites[i] : none;
}

std::vector<unsigned int> conflict_constraint_dependency::prerequisite_closure(
    const std::vector<unsigned int>& constraints) const {
  std::set<unsigned int, std::less<unsigned int>, pool_alloc<unsigned int>> visited;
  std::vector<unsigned int> result;
  for (unsigned int c : constraints) {
    if (is_erased(c)) continue;
    // Depth-first: each prerequisite is walked as soon as it is first visited.
    std::vector<std::pair<unsigned int, std::size_t>> path{{c, 0}};
    while (!path.empty()) {
      auto& [node, next] = path.back();
      const std::vector<unsigned int>& pre = prerequisites(node);
      if (next >= pre.size()) {
        path.pop_back();
        continue;
      }
      const unsigned int p = pre[next++];
      if (!visited.insert(p).second) continue;
      if (is_erased(p)) continue;
      result.push_back(p);
      path.emplace_back(p, 0);
    }
  }
  return result;
}

}  // namespace zelk
