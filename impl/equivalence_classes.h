// Union-find over small unsigned numbers, used to merge variables that must be
// equal. The representative of a class is always its highest number, so that
// joining variables leaves the last-made one to stand for all of them.
#ifndef ZELK_IMPL_EQUIVALENCE_CLASSES_H
#define ZELK_IMPL_EQUIVALENCE_CLASSES_H

#include <cstdint>
#include <vector>

namespace zelk {

class equivalence_classes {
 public:
  // The representative of x. A number never united, or beyond the links, is its own.
  // Compresses the path it walks, hence the mutable links.
  unsigned int find(unsigned int x) const;

  // Joins the classes of a and b; the higher of the two representatives stays one.
  void unite(unsigned int a, unsigned int b);

  // The link of x as it stands, x itself for a root; no compression. For audits.
  unsigned int parent(unsigned int x) const {
    return x >= m_parent.size() || m_parent[x] == ROOT ? x : m_parent[x];
  }

 private:
  static constexpr std::uint32_t ROOT = ~std::uint32_t(0);

  // Invariant: m_parent[x] is ROOT or a number above x, so the links only climb
  // and every path ends in a root.
  mutable std::vector<std::uint32_t> m_parent;
};

}  // namespace zelk

#endif
