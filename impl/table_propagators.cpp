// Table constraints over hash-consed decision diagrams.
//
// Construction builds, for each column f, a tree of the tuples whose levels are
// f and then the other columns ascending, and turns it bottom-up into pool
// nodes: a node is looked up by its edges, whose children are already unique,
// so equal sub-diagrams of all tables of a run exist once. Propagation walks the
// diagram of each column once, depth first, and marks every value on the first
// tuple it finds within the domains.
#include "impl/table_propagators.h"

#include <cstdint>
#include <exception>
#include <new>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace zelk {

namespace {

typedef small_model::iset iset;

// The column after `column` in the diagram whose first level is `first`.
unsigned int successor(unsigned int first, unsigned int column) {
  if (column == first) return first == 0 ? 1 : 0;
  unsigned int next = column + 1;
  if (next == first) next = first + 1;
  return next;
}

}  // namespace

//==== decision_node, decision_sub_tree ============================================

class table_propagator_base::decision_sub_tree {
 public:
  // Ascending values, each once; a null child ends the tuple at this level.
  std::vector<std::pair<int, std::unique_ptr<decision_sub_tree>>> edges;

  // Adds t from level `column` on, in the diagram of `first`.
  void insert(unsigned int first, unsigned int column, const std::vector<int>& t) {
    const int value = t[column];
    std::size_t i = 0;
    while (i < edges.size() && edges[i].first < value) ++i;
    if (i == edges.size() || edges[i].first != value) {
      edges.emplace(edges.begin() + static_cast<std::ptrdiff_t>(i), value, nullptr);
    }
    const unsigned int next = successor(first, column);
    if (next >= t.size()) return;
    if (!edges[i].second) edges[i].second = std::make_unique<decision_sub_tree>();
    edges[i].second->insert(first, next, t);
  }
};

class table_propagator_base::decision_node {
 public:
  typedef std::pair<int, const decision_node*> edge_type;

  explicit decision_node(std::vector<edge_type> e) : edges(std::move(e)) {}

  // Ascending values; a null child ends the tuple. Every node of one level of
  // one diagram has the same height, so a node met twice in one diagram stands
  // for the same column both times.
  std::vector<edge_type> edges;
  // Collection mark and search memo; neither is part of the node's identity.
  mutable bool m_marked = false;
  mutable std::uint64_t m_stamp = 0;

  bool operator==(const decision_node& other) const { return edges == other.edges; }

  struct hash_edges {
    std::size_t operator()(const decision_node& node) const {
      std::uint64_t h = 0;
      for (const edge_type& edge : node.edges) {
        const std::int32_t scaled = static_cast<std::int32_t>(
            static_cast<std::uint32_t>(edge.first) * 47u);
        const std::uint64_t x = h ^ reinterpret_cast<std::uintptr_t>(edge.second) ^
                                static_cast<std::uint64_t>(static_cast<std::int64_t>(scaled));
        const std::uint64_t y = x * 98317u;
        h = (y >> 16) | (y << 16);
      }
      return static_cast<std::size_t>(h);
    }
  };

  // Adds to supports[first] every value of the root's column that lies on a
  // tuple within the domains; values of other columns on those tuples come along.
  void collect_supports_iterating_children(unsigned int first, const constraint_runtime_info& info,
                                           std::vector<iset>& supports, std::uint64_t stamp) const {
    const iset domain = info.domain(first);
    if (supports[first].size() == domain.size()) return;
    const unsigned int next = successor(first, first);
    for (const edge_type& edge : edges) {
      if (!domain.contains(edge.first)) continue;
      if (!edge.second) {
        if (info.arity() == next) supports[first].insert(edge.first);
        continue;
      }
      if (supports[first].contains(edge.first)) continue;
      if (edge.second->supports_iterating_children(first, next, info, supports, stamp)) {
        supports[first].insert(edge.first);
      }
    }
  }

  // Depth-first search for one tuple within the domains; marks its values. A
  // node that failed once in this pass fails again (domains do not change
  // during a pass), which the stamp remembers.
  bool supports_iterating_children(unsigned int first, unsigned int column,
                                   const constraint_runtime_info& info,
                                   std::vector<iset>& supports, std::uint64_t stamp) const {
    if (m_stamp == stamp) return false;
    const iset domain = info.domain(column);
    const unsigned int next = successor(first, column);
    for (const edge_type& edge : edges) {
      if (!domain.contains(edge.first)) continue;
      if (!edge.second || edge.second->supports_iterating_children(first, next, info, supports, stamp)) {
        supports[column].insert(edge.first);
        return true;
      }
    }
    m_stamp = stamp;
    return false;
  }

  // True if a tuple of this sub-diagram (of roots[0]) lies within the domains.
  // A node seen before failed, since a success ends the whole search.
  bool has_support(unsigned int column, const constraint_runtime_info& info,
                   std::uint64_t stamp) const {
    if (m_stamp == stamp) return false;
    m_stamp = stamp;
    const iset domain = info.domain(column);
    for (const edge_type& edge : edges) {
      if (!domain.contains(edge.first)) continue;
      if (!edge.second || edge.second->has_support(column + 1, info, stamp)) return true;
    }
    return false;
  }

  void mark_accessible_nodes() const {
    if (m_marked) return;
    m_marked = true;
    for (const edge_type& edge : edges) {
      if (edge.second) edge.second->mark_accessible_nodes();
    }
  }
};

//==== memory_manager ===========================================================

class table_propagator_base::memory_manager::impl {
 public:
  impl() : nodes(10), roots(10) {}

  // Node addresses stay put: an unordered_set never moves its elements.
  std::unordered_set<decision_node, decision_node::hash_edges> nodes;
  // Root -> number of tuples objects that hold it. Equal tables share roots,
  // and a root stays until its last holder has gone.
  std::unordered_map<const decision_node*, unsigned int> roots;
  unsigned int removed_roots = 0;
  bool collection_enabled = true;
  // Stamp of the latest search; a node with this stamp failed in it.
  std::uint64_t search_stamp = 0;

  const decision_node* get_node(const decision_sub_tree* tree) {
    if (!tree || tree->edges.empty()) return nullptr;
    std::vector<decision_node::edge_type> edges;
    edges.reserve(tree->edges.size());
    for (const auto& edge : tree->edges) edges.emplace_back(edge.first, get_node(edge.second.get()));
    return &*nodes.emplace(std::move(edges)).first;
  }

  void add_root(const decision_node* root) {
    if (root) ++roots[root];
  }

  // Cannot throw: runs inside destructors.
  void release_root(const decision_node* root) noexcept {
    if (!root) return;
    const auto it = roots.find(root);
    if (it == roots.end() || --it->second != 0) return;
    roots.erase(it);
    ++removed_roots;
    if (2 * std::size_t(removed_roots) > roots.size()) garbage_collect();
  }

  // Marks live in the nodes themselves, so collecting allocates nothing and
  // cannot fail.
  void garbage_collect() noexcept {
    if (!collection_enabled) return;
    for (const auto& root : roots) root.first->mark_accessible_nodes();
    for (auto it = nodes.begin(); it != nodes.end();) {
      if (it->m_marked) {
        it->m_marked = false;
        ++it;
      } else {
        it = nodes.erase(it);
      }
    }
    removed_roots = 0;
  }
};

table_propagator_base::memory_manager::memory_manager() : m_impl(new impl()) {}

table_propagator_base::memory_manager::~memory_manager() {
  m_impl->collection_enabled = false;
  delete m_impl;
}

void table_propagator_base::memory_manager::garbage_collect() { m_impl->garbage_collect(); }

void table_propagator_base::memory_manager::disable_garbage_collection() {
  m_impl->collection_enabled = false;
}

std::size_t table_propagator_base::memory_manager::node_count() const {
  return m_impl->nodes.size();
}

std::size_t table_propagator_base::memory_manager::root_count() const {
  return m_impl->roots.size();
}

//==== tuples ===================================================================

class table_propagator_base::tuples {
 public:
  tuples(memory_manager::impl& pool, const std::vector<std::vector<int>>& list)
      : reference_count(1), pool(pool) {
    if (list.empty()) return;
    const std::size_t width = list.front().size();
    // Every value is checked before the pool sees any, so a bad table leaves
    // neither nodes nor roots behind.
    std::vector<iset> values(width);
    for (const std::vector<int>& t : list) {
      iset scratch;
      for (std::size_t c = 0; c < t.size(); ++c) {
        if (c < width) {
          values[c].insert(t[c]);
        } else {
          scratch.insert(t[c]);
        }
      }
    }
    std::vector<const decision_node*> built(width, nullptr);
    for (unsigned int c = 0; c < width; ++c) {
      decision_sub_tree top;
      for (const std::vector<int>& t : list) {
        if (c >= t.size()) continue;
        const int value = t[c];
        std::size_t i = 0;
        while (i < top.edges.size() && top.edges[i].first < value) ++i;
        if (i == top.edges.size() || top.edges[i].first != value) {
          top.edges.emplace(top.edges.begin() + static_cast<std::ptrdiff_t>(i), value, nullptr);
        }
        const unsigned int next = successor(c, c);
        if (next >= t.size()) continue;
        if (!top.edges[i].second) top.edges[i].second = std::make_unique<decision_sub_tree>();
        top.edges[i].second->insert(c, next, t);
      }
      built[c] = pool.get_node(&top);
    }
    // Nodes of a construction that fails from here on are unreachable and go
    // at the next collection; roots are registered all or none.
    std::size_t registered = 0;
    try {
      for (; registered < width; ++registered) pool.add_root(built[registered]);
    } catch (...) {
      for (std::size_t c = 0; c < registered; ++c) pool.release_root(built[c]);
      throw;
    }
    roots = std::move(built);
    column_values = std::move(values);
  }

  // The only way a tuples object goes.
  void remove_reference() noexcept {
    if (--reference_count != 0) return;
    for (const decision_node* root : roots) pool.release_root(root);
    delete this;
  }

  bool find_tuple(const constraint_runtime_info& info) const {
    const unsigned int arity = info.arity();
    if (roots.empty() || arity == 0) return false;
    const decision_node* node = roots[0];
    for (unsigned int i = 0; i < arity; ++i) {
      // A tuple that ends early leaves the remaining parameters free.
      if (!node) return true;
      const iset domain = info.domain(i);
      if (domain.empty()) return false;
      const int value = domain.min();
      const decision_node* next = nullptr;
      bool found = false;
      for (const decision_node::edge_type& edge : node->edges) {
        if (edge.first == value) {
          next = edge.second;
          found = true;
          break;
        }
      }
      if (!found) return false;
      node = next;
    }
    return true;
  }

  std::uint32_t reference_count;
  // roots[c]: the diagram whose first level is column c.
  std::vector<const decision_node*> roots;
  // column_values[c]: the values column c takes in some tuple. Empty for a
  // table built from no tuples.
  std::vector<iset> column_values;
  memory_manager::impl& pool;

 private:
  ~tuples() = default;
};

//==== table_propagator_base ====================================================

table_propagator_base::table_propagator_base(memory_manager& memory,
                                             const std::vector<std::vector<int>>& list)
    : m_tuples(new tuples(memory.get_impl(), list)) {}

table_propagator_base::table_propagator_base(const table_propagator_base& other)
    : constraint_propagator(other), m_tuples(other.m_tuples) {
  if (m_tuples) ++m_tuples->reference_count;
}

table_propagator_base& table_propagator_base::operator=(const table_propagator_base& other) {
  if (m_tuples == other.m_tuples) return *this;
  if (m_tuples) m_tuples->remove_reference();
  m_tuples = other.m_tuples;
  if (m_tuples) ++m_tuples->reference_count;
  return *this;
}

table_propagator_base::~table_propagator_base() {
  if (m_tuples) m_tuples->remove_reference();
}

unsigned int table_propagator_base::count_params() const {
  if (!m_tuples || m_tuples->roots.empty()) return 0xFFFFFFFFu;
  return static_cast<unsigned int>(m_tuples->roots.size());
}

bool table_propagator_base::find_tuple(const constraint_runtime_info& info) const {
  return m_tuples && m_tuples->find_tuple(info);
}

//==== support_table_propagator =================================================

propagation_types::result_type support_table_propagator::propagate(constraint_runtime_info& info) {
  const unsigned int arity = info.arity();
  bool reduced = false;
  for (unsigned int i = 0; i < arity && !reduced; ++i) reduced = info.reduced_between_activations(i);
  if (!reduced) return CONSISTENT;
  const std::vector<iset>& column_values = m_tuples->column_values;
  if (column_values.empty()) return UNSAT;
  const std::vector<const decision_node*>& roots = m_tuples->roots;
  const unsigned int columns = static_cast<unsigned int>(roots.size());
  for (unsigned int i = 0; i < columns; ++i) {
    const iset domain = info.domain(i);
    if (domain.empty()) return UNSAT;
    const iset kept = domain & column_values[i];
    if (kept != domain) info.set_domain(i, kept);
  }
  // Not re-entered: propagate never runs inside another propagate.
  static std::vector<iset> supports;
  supports.assign(columns, iset());
  for (unsigned int i = 0; i < columns; ++i) {
    const std::uint64_t stamp = ++m_tuples->pool.search_stamp;
    roots[i]->collect_supports_iterating_children(i, info, supports, stamp);
    if (supports[i].empty()) return UNSAT;
    info.set_domain(i, supports[i]);
  }
  return CONSISTENT;
}

bool support_table_propagator::conflicts(const constraint_runtime_info& info) const {
  const std::vector<iset>& column_values = m_tuples->column_values;
  if (column_values.empty()) return info.arity() != 0;
  for (std::size_t i = 0; i < column_values.size(); ++i) {
    if (info.domain(static_cast<unsigned int>(i)).disjoint(column_values[i])) return true;
  }
  const std::uint64_t stamp = ++m_tuples->pool.search_stamp;
  return !m_tuples->roots[0]->has_support(0, info, stamp);
}

bool support_table_propagator::constraint_check(const constraint_runtime_info& info) const {
  return find_tuple(info);
}

std::unique_ptr<constraint_propagator> support_table_propagator::clone() const {
  return std::make_unique<support_table_propagator>(*this);
}

}  // namespace zelk
