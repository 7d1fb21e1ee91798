// Union-find with path compression; the higher root always becomes the parent.
#include "impl/equivalence_classes.h"

namespace zelk {

unsigned int equivalence_classes::find(unsigned int x) const {
  if (x >= m_parent.size() || m_parent[x] == ROOT) return x;
  unsigned int root = m_parent[x];
  while (root < m_parent.size() && m_parent[root] != ROOT) root = m_parent[root];
  // Second pass: point everything on the path straight at the root.
  while (x != root) {
    const unsigned int next = m_parent[x];
    m_parent[x] = root;
    x = next;
  }
  return root;
}

void equivalence_classes::unite(unsigned int a, unsigned int b) {
  const unsigned int root_a = find(a);
  const unsigned int root_b = find(b);
  if (root_a == root_b) return;
  const unsigned int lower = root_a < root_b ? root_a : root_b;
  const unsigned int higher = root_a < root_b ? root_b : root_a;
  // The higher root may lie beyond the links: it is a root there as well.
  if (lower >= m_parent.size()) m_parent.resize(std::size_t(lower) + 1, ROOT);
  m_parent[lower] = higher;
}

}  // namespace zelk
