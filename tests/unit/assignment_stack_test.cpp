// The trail against a naive model that copies all domains at every entry, under random
// decisions, propagation, backtracks, conflicts, restarts, new variables and cost updates.
#include "impl/assignment_stack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

namespace zelk {
namespace {

using iset = small_model::iset;
typedef std::vector<assignment_stack::implication_node> node_list;
constexpr unsigned int NO = assignment_stack::NO_PREVIOUS_MODIFICATION;

// Answers every query by scanning the entries and the copies, never by following chains.
struct naive_trail {
  struct entry { unsigned int var; int cause; std::uint64_t time; };
  std::vector<iset> base, current;       // before every entry, and now
  std::vector<std::vector<iset>> after;  // after[k]: all domains right after entry k
  std::vector<entry> entries;
  std::vector<unsigned int> decisions;   // the entry of each decision
  std::vector<assignment_stack::previous_value> saved;

  void add_var(iset d) {
    base.push_back(d);
    current.push_back(d);
    for (std::vector<iset>& copy : after) copy.push_back(d);
    saved.push_back({d.is_singleton(), d.is_singleton() ? d.min() : 0});
  }
  void record(unsigned int v) { if (current[v].is_singleton()) saved[v] = {true, current[v].min()}; }
  iset domain_after(unsigned int var, unsigned int m) const {
    return m == NO ? base[var] : m >= entries.size() ? current[var] : after[m][var];
  }
  void set(unsigned int var, iset domain, std::uint64_t time, int cause) {
    entries.push_back({var, cause, time});
    current[var] = domain;
    after.push_back(current);
    record(var);
  }
  void truncate(unsigned int size) {  // the variables taken back save their values
    for (unsigned int k = size; k < entries.size(); ++k) record(entries[k].var);
    entries.resize(size);
    after.resize(size);
    current = size == 0 ? base : after[size - 1];
    decisions.resize(level_of(size - 1u));
  }
  unsigned int entry_before(unsigned int var, unsigned int m) const {
    for (unsigned int k = m == NO ? 0 : std::min(m, unsigned(entries.size())); k-- > 0;)
      if (entries[k].var == var) return k;
    return NO;
  }
  unsigned int before_propagation(unsigned int m) const {  // NO for entry 0, as for NO
    if (m >= entries.size()) return m == NO ? NO : unsigned(entries.size()) - 1u;
    for (unsigned int k = m; k-- > 0;)
      if (entries[m].cause < 0 || entries[k].cause != entries[m].cause) return k;
    return NO;
  }
  // The latest entry before which (var in set) could hold; bounded: m if it could at or after limit.
  unsigned int relax(unsigned int m, iset set, unsigned int limit = NO, bool bounded = false) const {
    for (unsigned int k = m + 1; m != NO && k-- > 0;) {
      if (entries[k].var != entries[m].var) continue;
      if (bounded && limit != NO && k < limit) return k;
      if (domain_after(entries[k].var, k - 1).intersects(set)) return bounded ? m : k;
    }
    return bounded && limit == NO ? m : NO;
  }
  unsigned int level_of(unsigned int m) const {
    const auto done = [&](unsigned int d) { return m != NO && d <= m; };
    return unsigned(std::count_if(decisions.begin(), decisions.end(), done));
  }
  static unsigned int nth(unsigned int n, const node_list& nodes) {
    std::vector<unsigned int> sorted;
    for (const auto& node : nodes) sorted.push_back(node.modification + 1u);  // NO first
    std::sort(sorted.begin(), sorted.end());
    return sorted[n] - 1u;
  }
  int asserting_level(unsigned int n, const node_list& nodes, const std::vector<iset>& sets) const {
    const unsigned int t = nth(n, nodes);
    unsigned int r = NO;
    for (std::size_t i = 0; i < nodes.size() && nodes.size() > 1 && t != NO; ++i) {
      const unsigned int m = nodes[i].modification, x = m == NO || m >= t ? NO : relax(m, sets[i]);
      if (x != NO && (r == NO || x > r)) r = x;
    }
    return r == NO ? 0 : int(level_of(r));
  }
  // The heap order: open first, then more cost per member, the later fixed, the lower number.
  static bool better(const assignment_stack& s, int a, int b, int factor) {
    if (a < 0 || b < 0) return b < 0 && a >= 0;
    const unsigned int sa = s.domain(unsigned(a)).size(), sb = s.domain(unsigned(b)).size();
    if (sa == 1 || sb == 1) return sa != 1;
    const double ca = sb * s.cost(unsigned(a)), cb = sa * s.cost(unsigned(b)) * factor;
    const auto time = [&](int v) { return s.state(unsigned(v)).assignment_time; };
    return ca != cb ? ca > cb : time(a) != time(b) ? time(a) > time(b) : a < b;
  }
};

struct trail_check {
  explicit trail_check(unsigned int seed) : rng(seed) { for (unsigned int v = 1 + rnd(9); v--;) add_var(); }
  unsigned int rnd(unsigned int bound) { return unsigned(rng() % bound); }
  iset random_set() { return iset::from_bits(std::uint32_t(rng() & rng())); }
  void add_var() {
    const iset d = (rnd(5) ? random_set() : iset()) | iset::singleton(int(rnd(32)));
    stack.add_var(d, "x", false);
    model.add_var(d);
    ASSERT_TRUE(stack.check_heap()) << "a new variable takes its place in the heap";
    if (stack.heap_enabled()) enable_heap();  // no cost 0: an empty domain of cost 0 ties with all
  }
  iset narrow(iset d) {  // usually smaller, sometimes equal or empty
    if (rnd(20) < 2) return rnd(2) ? iset() : d;
    const iset s = d & (random_set() | iset::singleton(d.empty() ? 0 : d.max()));
    return s == d && !s.empty() ? s - iset::singleton(s.min()) : s;
  }
  void set(unsigned int var, iset d, int cause) {
    stack.set_var_domain(var, d, time, cause);
    model.set(var, d, time++, cause);
  }
  void enable_heap() {  // small integer costs: exact comparisons and frequent ties
    stack.reset_var_costs(1.0);
    stack.set_cost_scale(rnd(2) ? 8.0 : 24.0 / 23);  // a large scale reaches the rescaling soon
    stack.disable_var_costs_heap();
    for (unsigned int v = 0; v < stack.num_variables(); ++v)
      stack.add_var_cost(int(v), double(1 + rnd(4)));
    stack.enable_var_costs_heap();
  }

  void step() {
    const unsigned int n = stack.num_variables(), op = rnd(100), var = rnd(n);
    if (op < 22 && stack.domain(var).size() >= 2) {  // a decision
      if (stack.depth() == 0 && rnd(2) == 0) stack.construct_level0_domains();
      stack.push_decision(var);
      model.decisions.push_back(unsigned(model.entries.size()));
      set(var, iset::singleton(rnd(2) ? stack.domain(var).min() : stack.domain(var).max()), -1);
    } else if (op < 62) {  // a run of changes with one cause, now and then a long one
      const int cause = rnd(6) == 0 ? -1 : int(rnd(5));
      for (unsigned int i = rnd(8) ? 1 + rnd(4) : 1 + rnd(150), v = var; i-- > 0; v = rnd(n))
        set(v, rnd(3) ? narrow(stack.domain(v)) : stack.domain(v), cause);
    } else if (op < 74 && stack.depth() > 0) {  // a backtrack: the cost increment grows
      const unsigned int level = 1 + rnd(stack.depth());
      const double first = stack.cost(0), last = stack.cost(n - 1);
      stack.undo_level(level);
      model.truncate(model.decisions[level - 1]);
      stack.lower_var_costs();
      ASSERT_LE(stack.cost_increment(), 1073741824.0) << "the increment is brought back in time";
      ASSERT_EQ(stack.cost(n - 1) * first, last * stack.cost(0)) << "cost ratios are kept";
    } else if (op < 84) {  // a conflict takes back the trailing run of its constraint
      const int last = model.entries.empty() ? -1 : model.entries.back().cause;
      const unsigned int constraint = last >= 0 && rnd(3) != 0 ? unsigned(last) : rnd(5);
      stack.erase_conflicting_modifications(constraint);
      while (!model.entries.empty() && model.entries.back().cause == int(constraint))
        model.truncate(unsigned(model.entries.size() - 1));
    } else if (op < 90 && (op < 87 || stack.depth() == 0)) {  // all taken back, or a restart
      (op < 87 ? stack.clear() : stack.forget_previously_assigned_var_values());
      if (op < 87) model.truncate(0);
      model.saved.assign(n, {});
      for (unsigned int v = 0; v < n; ++v) model.record(v);
      if (op < 87 && stack.heap_enabled()) enable_heap();  // the solver rebuilds it after a clear
    } else if (op < 93) {
      enable_heap();
    } else if (op < 96 && n < 14) {
      add_var();
    } else {  // conflict costs land on fixed variables; they climb when undone
      for (unsigned int v = 0; v < n; ++v)
        if (stack.domain(v).is_singleton() && rnd(2)) stack.add_var_cost(int(v), stack.cost_increment());
    }
    compare();
  }

  void compare() {
    const unsigned int n = stack.num_variables(), size = unsigned(model.entries.size());
    const int depth = int(model.decisions.size());
    ASSERT_TRUE(stack.num_modifications() == size && stack.depth() == unsigned(depth));
    for (unsigned int v = 0; v < n; ++v) {
      SCOPED_TRACE("var " + std::to_string(v));
      const assignment_stack::previous_value& saved = stack.previously_assigned_value(v);
      ASSERT_EQ(stack.domain(v), model.current[v]);
      ASSERT_TRUE(saved.has_value == model.saved[v].has_value && saved.value == model.saved[v].value);
      for (unsigned int k = 0; k < 12; ++k) {  // NO, one past the end, and any entry
        const unsigned int at = k == 0 ? NO : k == 1 ? size : rnd(size + 1);
        ASSERT_EQ(stack.var_domain_after_modification(v, at), model.domain_after(v, at)) << at;
        ASSERT_EQ(stack.var_modification_entry_before(v, at), model.entry_before(v, at)) << at;
        ASSERT_EQ(stack.before_propagation(at), model.before_propagation(at)) << at;
        ASSERT_TRUE(at == size || stack.decision_level_of(at) == model.level_of(at)) << at;
      }
      for (int level = -1; level <= depth; ++level) {  // a level ends before the next decision
        const unsigned int end = level == depth ? size : level < 0 ? NO : model.decisions[level] - 1u;
        ASSERT_EQ(stack.var_domain_end_level(v, level), model.domain_after(v, end)) << level;
      }
    }
      ASSERT_EQ(stack.decision_modification(0), NO);
    for (int level = 1; level <= depth; ++level) {
      const unsigned int entry = model.decisions[level - 1], var = model.entries[entry].var;
      ASSERT_TRUE(stack.decision_variable(level) == var && stack.decision_modification(level) == entry);
      const iset d = model.current[var].empty() ? model.domain_after(var, entry) : model.current[var];
      ASSERT_EQ(stack.decision_value(level), d.max());
    }
    for (unsigned int k = 0; k < 60 && size > 0; ++k) {
      const unsigned int m = rnd(size), limit = rnd(3) == 0 ? NO : rnd(size + 1);
      const iset set = k % 2 ? iset::singleton(int(rnd(32))) : random_set();
      ASSERT_EQ(stack.relax(m, set), model.relax(m, set)) << m << " " << set;
      ASSERT_EQ(stack.relax_before(m, set, limit), model.relax(m, set, limit, true)) << m << " " << limit;
    }
    std::vector<unsigned int> busy;
    for (const auto& e : model.entries) if (e.cause >= 2) busy.push_back(unsigned(e.cause));
    ASSERT_EQ(stack.get_busy_constraints(2), busy);
    for (unsigned int k = 0; k < 8; ++k) {
      node_list nodes;
      std::vector<iset> sets;
      for (unsigned int i = 1 + rnd(6); i-- > 0;) {
        const unsigned int m = size == 0 || rnd(5) == 0 ? NO : rnd(size);
        nodes.emplace_back(m, m == NO ? 0u : model.entries[m].var);
        sets.push_back(random_set());
      }
      for (unsigned int i = 0; i < nodes.size(); ++i) {
        ASSERT_EQ(stack.nth_modification(i, nodes), naive_trail::nth(i, nodes));
        ASSERT_EQ(stack.asserting_level_of_nth(i, nodes, sets), model.asserting_level(i, nodes, sets));
      }
    }
    unsigned int best = ~0u;
    for (int a = -1; a < int(n); ++a) {
      const int b = int(rnd(n + 1)) - 1, factor = int(rnd(3));
      ASSERT_EQ(stack.is_better_variable(a, b, factor), naive_trail::better(stack, a, b, factor));
      if (a >= 0 && stack.domain(a).size() != 1 && naive_trail::better(stack, a, int(best), 1)) best = a;
    }
    ASSERT_TRUE(stack.check_heap());
    ASSERT_TRUE(stack.audit());
    ASSERT_EQ(stack.find_best_free_variable(), stack.heap_enabled() ? best : ~0u);
  }

  std::mt19937 rng;
  assignment_stack stack;
  naive_trail model;
  std::uint64_t time = 2;
};

TEST(assignment_stack, history_matches_naive_copying_model) {
  for (unsigned int seed = 1; seed <= 25; ++seed) {
    trail_check check(seed);
    for (unsigned int step = 0; step < 300 && !HasFailure(); ++step) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
      check.step();
    }
  }
}

TEST(assignment_stack, names_and_constants) {
  assignment_stack stack;
  std::ostringstream names;
  EXPECT_FALSE(stack.print_singleton_variables(names));
  stack.print_var_name(names, stack.add_var(iset::singleton(7), "a", false));
  const unsigned int nameless = stack.add_var(iset("1:2"), nullptr, false);
  names << ' ' << variable_printer(&stack.print_strategy(), nameless) << ' ';
  const unsigned int three = stack.singleton_var(3);
  EXPECT_TRUE(stack.singleton_var(3) == three && stack.domain(three) == iset::singleton(3));
  (void)stack.add_var(iset::singleton(3), "c", true);  // the first constant of a value stays
  (void)stack.add_var(iset::singleton(1), "one", true);
  EXPECT_TRUE(stack.print_singleton_variables(names));
  EXPECT_EQ(names.str(), "a V1 Singletons: one=1, the_constant_3=3");
}

}  // namespace
}  // namespace zelk
