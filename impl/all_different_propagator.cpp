// all_different by matching and strongly connected components, its Hall-set
// explanations and their proof rule. Entry points: propagate, conflicts and
// explain_propagation, each with work buffers of its own, so that no call of one
// clobbers the graph of another.
#include "impl/all_different_propagator.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "impl/assignment_stack.h"

namespace zelk {

typedef small_model::iset iset;

namespace {

constexpr unsigned int NO_NODE = 0xFFFFFFFFu;
// 32 parameters can still be told apart by 32 values; one more can't.
constexpr unsigned int MAX_ARITY = 32;

// Empties the first `size` lists of a graph, keeping every list's capacity.
void reset(all_different_propagator::graph& g, std::size_t size) {
  if (g.size() < size) g.resize(size);
  for (std::size_t i = 0; i < size; ++i) g[i].clear();
}

}  // namespace

//==== the graph of one run =======================================================

// The bipartite graph of parameters and values of one list of domains, over the
// buffers of one entry point. Nodes 0..n-1 are parameters, n.. the values
// ascending, so the smaller end of every edge is its parameter.
class all_different_propagator::impl {
 public:
  struct workspace {
    graph edges, directed, reversed;
    std::vector<int> node_values;
    unsigned int value_to_node[32] = {};
    std::vector<unsigned int> matching, index, lowlink, component, tarjan_stack, walk;
    std::vector<unsigned char> visited, on_stack, reachable;
    std::vector<unsigned int> explaining_params, explaining_values;
  };

  impl(workspace& w, const constraint_runtime_info& info) : m_w(w) { construct(info); }

  // Writes the domain-consistent domains of the parameters to `next_domains`;
  // false if no matching covers every parameter.
  bool propagate(std::vector<iset>& next_domains);
  bool has_matching() { return maximal_matching() < 0; }
  // A Hall set behind the removal of `values` from `param`, or behind the failure
  // when no matching exists (then `param` and `values` are not read).
  void explain_propagation(unsigned int param, iset values, std::vector<iset>& explanation);

 private:
  void construct(const constraint_runtime_info& info);
  // Kuhn's augmenting paths, one parameter after the other; the first parameter
  // left unmatched, or -1 when all are matched.
  int maximal_matching();
  bool augment(unsigned int param);
  // Matched edges point from parameter to value, all others from value to parameter.
  void get_directed_edges();
  void mark_reachable_from_free_values();
  void get_scc_associations();
  void tarjan(unsigned int node, unsigned int& counter);
  void reverse_edges();

  workspace& m_w;
  unsigned int m_params = 0;
  unsigned int m_nodes = 0;
};

void all_different_propagator::impl::construct(const constraint_runtime_info& info) {
  m_params = info.arity();
  iset all;
  for (unsigned int p = 0; p < m_params; ++p) all |= info.domain(p);
  m_nodes = m_params + all.size();
  m_w.node_values.assign(m_nodes, 0);
  unsigned int node = m_params;
  for (int v : all) {
    m_w.node_values[node] = v;
    m_w.value_to_node[v] = node++;
  }
  reset(m_w.edges, m_nodes);
  for (unsigned int p = 0; p < m_params; ++p)
    for (int v : info.domain(p)) {
      const unsigned int value_node = m_w.value_to_node[v];
      m_w.edges[p].push_back(value_node);
      m_w.edges[value_node].push_back(p);
    }
}

bool all_different_propagator::impl::augment(unsigned int param) {
  for (unsigned int value_node : m_w.edges[param]) {
    if (m_w.visited[value_node]) continue;
    m_w.visited[value_node] = 1;
    const unsigned int partner = m_w.matching[value_node];
    if (partner == NO_NODE || augment(partner)) {
      m_w.matching[value_node] = param;
      m_w.matching[param] = value_node;
      return true;
    }
  }
  return false;
}

int all_different_propagator::impl::maximal_matching() {
  m_w.matching.assign(m_nodes, NO_NODE);
  int unmatched = -1;
  for (unsigned int p = 0; p < m_params; ++p) {
    m_w.visited.assign(m_nodes, 0);
    // A parameter that finds no augmenting path now never will: a maximum matching
    // leaves it out.
    if (!augment(p) && unmatched < 0) unmatched = int(p);
  }
  return unmatched;
}

void all_different_propagator::impl::get_directed_edges() {
  reset(m_w.directed, m_nodes);
  for (unsigned int p = 0; p < m_params; ++p)
    for (unsigned int value_node : m_w.edges[p]) {
      if (m_w.matching[p] == value_node)
        m_w.directed[p].push_back(value_node);
      else
        m_w.directed[value_node].push_back(p);
    }
}

void all_different_propagator::impl::mark_reachable_from_free_values() {
  m_w.reachable.assign(m_nodes, 0);
  m_w.walk.clear();
  for (unsigned int node = m_params; node < m_nodes; ++node)
    if (m_w.matching[node] == NO_NODE) {
      m_w.reachable[node] = 1;
      m_w.walk.push_back(node);
    }
  while (!m_w.walk.empty()) {
    const unsigned int node = m_w.walk.back();
    m_w.walk.pop_back();
    for (unsigned int next : m_w.directed[node])
      if (!m_w.reachable[next]) {
        m_w.reachable[next] = 1;
        m_w.walk.push_back(next);
      }
  }
}

void all_different_propagator::impl::tarjan(unsigned int node, unsigned int& counter) {
  m_w.index[node] = m_w.lowlink[node] = counter++;
  m_w.visited[node] = 1;
  m_w.on_stack[node] = 1;
  m_w.tarjan_stack.push_back(node);
  for (unsigned int next : m_w.directed[node]) {
    if (!m_w.visited[next]) {
      tarjan(next, counter);
      m_w.lowlink[node] = std::min(m_w.lowlink[node], m_w.lowlink[next]);
    } else if (m_w.on_stack[next]) {
      m_w.lowlink[node] = std::min(m_w.lowlink[node], m_w.index[next]);
    }
  }
  if (m_w.lowlink[node] != m_w.index[node]) return;
  for (;;) {
    const unsigned int top = m_w.tarjan_stack.back();
    m_w.tarjan_stack.pop_back();
    m_w.on_stack[top] = 0;
    m_w.component[top] = node;
    if (top == node) break;
  }
}

void all_different_propagator::impl::get_scc_associations() {
  m_w.index.assign(m_nodes, 0);
  m_w.lowlink.assign(m_nodes, 0);
  m_w.component.assign(m_nodes, 0);
  m_w.visited.assign(m_nodes, 0);
  m_w.on_stack.assign(m_nodes, 0);
  m_w.tarjan_stack.clear();
  unsigned int counter = 0;
  for (unsigned int node = 0; node < m_nodes; ++node)
    if (!m_w.visited[node]) tarjan(node, counter);
}

void all_different_propagator::impl::reverse_edges() {
  reset(m_w.reversed, m_nodes);
  for (unsigned int node = 0; node < m_nodes; ++node)
    for (unsigned int next : m_w.directed[node]) m_w.reversed[next].push_back(node);
}

bool all_different_propagator::impl::propagate(std::vector<iset>& next_domains) {
  if (maximal_matching() >= 0) return false;
  get_directed_edges();
  mark_reachable_from_free_values();
  get_scc_associations();
  next_domains.assign(m_params, iset());
  // An edge survives when it is matched, lies on an alternating path from a free
  // value, or lies on an alternating cycle.
  for (unsigned int node = 0; node < m_nodes; ++node)
    for (unsigned int next : m_w.directed[node]) {
      const unsigned int param = std::min(node, next), value_node = std::max(node, next);
      if (m_w.matching[param] == value_node || m_w.reachable[node] ||
          m_w.component[node] == m_w.component[next])
        next_domains[param].insert(m_w.node_values[value_node]);
    }
  return true;
}

void all_different_propagator::impl::explain_propagation(unsigned int param, iset values,
                                                         std::vector<iset>& explanation) {
  const int unmatched = maximal_matching();
  get_directed_edges();
  mark_reachable_from_free_values();
  get_scc_associations();
  reverse_edges();
  const unsigned int start = unmatched >= 0 ? unsigned(unmatched) : param;
  std::vector<unsigned char>& seen = m_w.reachable;
  m_w.explaining_params.assign(1, start);
  m_w.explaining_values.clear();
  m_w.walk.clear();
  if (unmatched < 0)
    for (int v : values) m_w.explaining_values.push_back(m_w.value_to_node[v]);
  if (m_w.explaining_values.empty())
    m_w.walk.push_back(start);
  else
    m_w.walk = m_w.explaining_values;
  seen[start] = 1;
  for (unsigned int node : m_w.walk) seen[node] = 1;
  // Backwards along the residual graph: a value is reached from the parameter
  // matched to it, a parameter from its other values. What reaches the start this
  // way is the Hall set that confines it.
  while (!m_w.walk.empty()) {
    const unsigned int node = m_w.walk.back();
    m_w.walk.pop_back();
    for (unsigned int w : m_w.reversed[node]) {
      if (seen[w] || m_w.component[w] == m_w.component[start]) continue;
      seen[w] = 1;
      m_w.walk.push_back(w);
      (w < node ? m_w.explaining_params : m_w.explaining_values).push_back(w);
    }
  }
  iset hall;
  for (unsigned int node : m_w.explaining_values) hall.insert(m_w.node_values[node]);
  explanation.assign(m_params, iset());
  for (unsigned int p : m_w.explaining_params) explanation[p] = ~hall;
}

//==== reference_info ============================================================

void all_different_propagator::reference_info::put_in_queue(queue_type) {
  throw std::domain_error("Can't put_in_queue for reference_info");
}
void all_different_propagator::reference_info::set_domain(unsigned int, iset) {
  throw std::domain_error("Can't domain_update for reference_info");
}
void all_different_propagator::reference_info::deallocate_watch(unsigned int,
                                                                watch_types::watch_type,
                                                                watch_handle_t) {
  throw std::domain_error("Can't deallocate_watch reference_info");
}
watch_handle_t all_different_propagator::reference_info::allocate_watch(unsigned int,
                                                                        watch_types::watch_type) {
  throw std::domain_error("Can't allocate_watch reference_info");
}
void all_different_propagator::reference_info::deallocate_value_watch(unsigned int, int,
                                                                      watch_handle_t) {
  throw std::domain_error("Can't deallocate_watch reference_info");
}
watch_handle_t all_different_propagator::reference_info::allocate_value_watch(unsigned int, int) {
  throw std::domain_error("Can't allocate_watch reference_info");
}

//==== big parameters ==============================================================

unsigned int all_different_propagator::count_unique_singletons(const constraint_runtime_info& info) {
  iset singles, elsewhere;
  for (unsigned int i = 0; i < info.arity(); ++i) {
    const iset& d = info.domain(i);
    (d.is_singleton() ? singles : elsewhere) |= d;
  }
  return (singles - elsewhere).size();
}

void all_different_propagator::find_big_parameters(const constraint_runtime_info& info,
                                                   std::vector<unsigned char>& big) {
  const unsigned int n = info.arity();
  big.assign(n, 0);
  const unsigned int r = n - count_unique_singletons(info);
  if (r == 0) return;
  // The k-th parameter set aside keeps a value of its own after the r - k others
  // (and the earlier big ones, each with more room) have taken theirs.
  const unsigned int t = r != 1 ? r - 1 : 1;
  unsigned int threshold = t, next = t;
  for (bool marked = true; marked;) {
    marked = false;
    for (unsigned int i = 0; i < n; ++i) {
      if (big[i] || info.domain(i).size() <= threshold) continue;
      big[i] = 1;
      marked = true;
      if (next == 0) return;
      threshold = next--;
    }
  }
}

iset all_different_propagator::get_small_domain_values(const constraint_runtime_info& info,
                                                       const std::vector<unsigned char>& big) {
  iset values;
  for (unsigned int i = 0; i < info.arity(); ++i)
    if (!big[i]) values |= info.domain(i);
  return values;
}

iset all_different_propagator::get_big_domain(const constraint_runtime_info& info,
                                              const std::vector<unsigned char>& big,
                                              iset small_set) {
  iset result;
  bool outside = false;
  for (unsigned int i = 0; i < info.arity(); ++i) {
    if (!big[i]) continue;
    const iset& d = info.domain(i);
    outside |= !d.subset_of(small_set);
    result |= d & small_set;
  }
  // One value outside the small set stands for every such value: the small
  // parameters can never take it, so the pseudo-parameter can.
  if (outside && !result.empty() && result.size() < info.arity() && !small_set.empty()) {
    const int lo = small_set.min();
    if (lo >= 1) {
      result.insert(lo - 1);
    } else {
      const int end_of_first_run = int(small_set.begin().current_range().second);
      if (end_of_first_run < 31) result.insert(end_of_first_run + 1);
    }
  }
  return result;
}

bool all_different_propagator::get_small_parameters(const constraint_runtime_info& info,
                                                    const std::vector<unsigned char>& big,
                                                    std::vector<iset>& domains,
                                                    bool& has_big_domain) {
  const iset small_set = get_small_domain_values(info, big);
  domains.clear();
  for (unsigned int i = 0; i < info.arity(); ++i)
    if (!big[i]) domains.push_back(info.domain(i));
  const std::size_t small_count = domains.size();
  const iset pseudo = get_big_domain(info, big, small_set);
  has_big_domain = !pseudo.empty();
  if (has_big_domain) domains.push_back(pseudo);
  return small_count <= small_set.size();
}

void all_different_propagator::extend_propagation_for_big_domains(
    const constraint_runtime_info& info, const std::vector<iset>& domains,
    const std::vector<unsigned char>& big, bool has_big_domain, std::vector<iset>& next_domains) {
  // next_domains holds the filtered small ones (and the pseudo-parameter last);
  // it is rebuilt in place from the back so that no entry is read after its write.
  const iset removed = has_big_domain ? domains.back() - next_domains.back() : iset();
  std::size_t k = next_domains.size() - (has_big_domain ? 1 : 0);
  next_domains.resize(std::max<std::size_t>(next_domains.size(), info.arity()));
  for (unsigned int i = info.arity(); i-- > 0;)
    next_domains[i] = big[i] ? info.domain(i) - removed : next_domains[--k];
}

void all_different_propagator::update_domains(constraint_runtime_info& info,
                                              const std::vector<iset>& next_domains) {
  for (unsigned int i = 0; i < info.arity(); ++i)
    if (next_domains[i] != info.domain(i)) info.set_domain(i, next_domains[i]);
}

//==== all_different_propagator ==================================================

propagation_types::result_type all_different_propagator::propagate(
    constraint_runtime_info& info) {
  if (info.originating_queue() == constraint_runtime_info::VARIABLE_QUEUE) {
    info.put_in_queue(constraint_runtime_info::CONSTRAINT_QUEUE);
    return POSTPONE;
  }
  const unsigned int n = info.arity();
  if (n > MAX_ARITY) return UNSAT;
  // Two equal single values fail at once, whatever the filter below skips.
  iset singles;
  unsigned int old_singles = 0;
  for (unsigned int i = 0; i < n; ++i) {
    const iset& d = info.domain(i);
    if (d.empty()) return UNSAT;
    if (!d.is_singleton()) continue;
    if (singles.intersects(d)) return UNSAT;
    singles |= d;
    old_singles += !info.reduced_between_activations(i);
  }
  // Graph work only when a parameter reduced since the last run is small enough
  // to belong to a Hall set.
  bool worth = false;
  for (unsigned int i = 0; i < n && !worth; ++i)
    worth = info.reduced_between_activations(i) && info.domain(i).size() + old_singles < n;
  if (!worth) return CONSISTENT;

  static impl::workspace work;
  static std::vector<unsigned char> big;
  static std::vector<iset> domains, next_domains;
  find_big_parameters(info, big);
  const auto big_count = std::count(big.begin(), big.end(), 1);
  if (big_count == long(n)) return CONSISTENT;
  if (big_count == 0) {
    impl graph(work, info);
    if (!graph.propagate(next_domains)) return UNSAT;
  } else {
    bool has_big_domain = false;
    if (!get_small_parameters(info, big, domains, has_big_domain)) return UNSAT;
    const reference_info small(domains);
    impl graph(work, small);
    if (!graph.propagate(next_domains)) return UNSAT;
    extend_propagation_for_big_domains(info, domains, big, has_big_domain, next_domains);
    for (unsigned int i = 0; i < n; ++i)
      if (next_domains[i].empty()) return UNSAT;
  }
  update_domains(info, next_domains);
  return CONSISTENT;
}

bool all_different_propagator::conflicts(const constraint_runtime_info& info) const {
  const unsigned int n = info.arity();
  if (n > MAX_ARITY) return true;
  iset singles;
  for (unsigned int i = 0; i < n; ++i) {
    const iset& d = info.domain(i);
    if (d.empty() || (d.is_singleton() && singles.intersects(d))) return true;
    if (d.is_singleton()) singles |= d;
  }
  static impl::workspace work;
  static std::vector<unsigned char> big;
  static std::vector<iset> domains;
  find_big_parameters(info, big);
  const auto big_count = std::count(big.begin(), big.end(), 1);
  if (big_count == long(n)) return false;
  if (big_count == 0) return !impl(work, info).has_matching();
  bool has_big_domain = false;
  if (!get_small_parameters(info, big, domains, has_big_domain)) return true;
  const reference_info small(domains);
  return !impl(work, small).has_matching();
}

bool all_different_propagator::constraint_check(const constraint_runtime_info& info) const {
  iset values;
  for (unsigned int i = 0; i < info.arity(); ++i) {
    const iset& d = info.domain(i);
    if (d.empty()) return false;
    values.insert(d.min());
  }
  return values.size() == info.arity();
}

void all_different_propagator::print(std::ostream& os, const constraint_runtime_info* info) const {
  if (!info) {
    os << "all_different";
    return;
  }
  info->print_prefix(os);
  os << " all_different(";
  for (unsigned int i = 0; i < info->arity(); ++i) {
    if (i) os << ", ";
    info->print_param(os, i);
    os << "{" << info->domain(i) << "}";
  }
  os << ")";
}

void all_different_propagator::explain_propagation(unsigned int param, const iset& literal,
                                                   const iset& after,
                                                   const constraint_runtime_info& info,
                                                   literal_vector& explanation) const {
  // The whole graph, big parameters included: a removal that the pseudo-parameter
  // found has a Hall set among the small parameters there too, and a failure of
  // any kind (two equal single values, too many parameters) leaves a parameter
  // unmatched.
  iset values;
  if (!after.empty()) {
    const iset removed = info.domain(param) - after;
    values = removed & literal;
    if (values.empty()) values = removed;
  }
  static impl::workspace work;
  impl graph(work, info);
  graph.explain_propagation(param, values, explanation);
}

std::unique_ptr<explanation_rule> all_different_propagator::rule(
    const literal_vector& explanation) const {
  return std::make_unique<all_diff_rule>(explanation);
}

std::unique_ptr<constraint_propagator> all_different_propagator::clone() const {
  return std::make_unique<all_different_propagator>(*this);
}

//==== all_diff_rule ===============================================================

all_different_propagator::all_diff_rule::all_diff_rule(const std::vector<iset>& explanation)
    : m_arity(unsigned(explanation.size())), m_values(iset::full()) {
  for (unsigned int i = 0; i < m_arity; ++i) {
    if (explanation[i].empty()) continue;
    if (m_params.empty()) m_values = ~explanation[i];
    m_params.push_back(i);
  }
}

std::unique_ptr<explanation_rule> all_different_propagator::all_diff_rule::clone() const {
  return std::make_unique<all_diff_rule>(*this);
}

void all_different_propagator::all_diff_rule::get_explanation(std::vector<iset>& explanation) const {
  explanation.assign(m_arity, iset());
  for (unsigned int p : m_params) explanation.at(p) = ~m_values;
}

void all_different_propagator::all_diff_rule::print(std::ostream& os,
                                                    const variable_print_strategy& strategy,
                                                    const std::vector<unsigned int>& variables) const {
  os << "ALL_DIFF({" << m_values << "}";
  for (unsigned int p : m_params) {
    os << ", ";
    strategy.print(os, variables.at(p));
  }
  os << ")";
}

}  // namespace zelk
