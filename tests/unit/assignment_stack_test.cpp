// Tests of the trail: every history query against a naive model that copies all
// domains at every entry, the listed edge cases, and the cost heap.
#include "impl/assignment_stack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zelk {
namespace {

using iset = small_model::iset;
constexpr unsigned int NO = assignment_stack::NO_PREVIOUS_MODIFICATION;
constexpr unsigned int POST_LAST = 0xFFFFFFFEu;

iset bits(std::uint32_t b) { return iset::from_bits(b); }

std::string out_of_range_text(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::out_of_range& e) {
    return e.what();
  }
  return "no exception";
}

//==== the naive model ========================================================

// Copies every domain after every entry; answers each query from the description
// by scanning, never by following chains.
struct naive_trail {
  struct entry {
    unsigned int var;
    int cause;
    std::uint64_t time;
  };

  std::vector<iset> base;  // before every entry
  std::vector<iset> current;
  std::vector<entry> entries;
  std::vector<std::vector<iset>> after;  // after[k]: all domains right after entry k
  std::vector<unsigned int> decision_entries;
  std::vector<unsigned int> decision_vars;
  std::vector<assignment_stack::previous_value> saved;

  void record(unsigned int var) {
    if (current[var].is_singleton()) saved[var] = {true, current[var].min()};
  }
  iset domain_after(unsigned int var, unsigned int m) const {
    if (m == NO) return base[var];
    if (m >= entries.size()) return current[var];
    return after[m][var];
  }
  iset before_entry(unsigned int k, unsigned int var) const {
    return k == 0 ? base[var] : after[k - 1][var];
  }
  unsigned int depth() const { return unsigned(decision_entries.size()); }

  void set(unsigned int var, iset domain, std::uint64_t time, int cause) {
    entries.push_back({var, cause, time});
    current[var] = domain;
    after.push_back(current);
    record(var);
  }
  void truncate(unsigned int size) {
    entries.resize(size);
    after.resize(size);
    current = size == 0 ? base : after[size - 1];
  }
  void undo_level(unsigned int level) {
    const unsigned int first = decision_entries[level - 1];
    for (unsigned int k = first; k < entries.size(); ++k) record(entries[k].var);
    truncate(first);
    decision_entries.resize(level - 1);
    decision_vars.resize(level - 1);
  }
  void erase(unsigned int constraint) {
    while (!entries.empty() && entries.back().cause == int(constraint)) {
      record(entries.back().var);
      truncate(unsigned(entries.size() - 1));
    }
  }
  void clear() {
    truncate(0);
    decision_entries.clear();
    decision_vars.clear();
    saved.assign(base.size(), {});
    for (unsigned int v = 0; v < base.size(); ++v) record(v);
  }
  void forget() {
    for (unsigned int v = 0; v < base.size(); ++v) {
      saved[v] = {};
      record(v);
    }
  }

  unsigned int entry_before(unsigned int var, unsigned int m) const {
    if (m == NO) return NO;
    for (unsigned int k = std::min<unsigned int>(m, unsigned(entries.size())); k-- > 0;)
      if (entries[k].var == var) return k;
    return NO;
  }
  unsigned int before_propagation(unsigned int m) const {
    if (m == NO || entries.empty()) return NO;
    if (m >= entries.size()) return unsigned(entries.size() - 1);
    const int cause = entries[m].cause;
    if (cause < 0) return m == 0 ? NO : m - 1;
    for (unsigned int k = m; k-- > 0;)
      if (entries[k].cause != cause) return k;
    return NO;
  }
  unsigned int relax(unsigned int m, iset set) const {
    if (m == NO) return NO;
    const unsigned int var = entries[m].var;
    for (unsigned int k = m + 1; k-- > 0;)
      if (entries[k].var == var && before_entry(k, var).intersects(set)) return k;
    return NO;
  }
  unsigned int relax_before(unsigned int m, iset set, unsigned int limit) const {
    if (m == NO) return NO;
    const unsigned int var = entries[m].var;
    for (unsigned int k = m + 1; k-- > 0;) {
      if (entries[k].var != var) continue;
      if (limit != NO && k < limit) return k;
      if (before_entry(k, var).intersects(set)) return m;
    }
    return limit == NO ? m : NO;
  }
  unsigned int level_of(unsigned int m) const {
    unsigned int level = 0;
    for (unsigned int d : decision_entries)
      if (m != NO && d <= m) ++level;
    return level;
  }
  static unsigned int nth(unsigned int n, const std::vector<assignment_stack::implication_node>& nodes) {
    std::vector<unsigned int> sorted;
    for (const auto& node : nodes) sorted.push_back(node.modification);
    std::sort(sorted.begin(), sorted.end(),
              [](unsigned int a, unsigned int b) { return a + 1u < b + 1u; });
    return sorted[n];
  }
  int asserting_level(unsigned int n, const std::vector<assignment_stack::implication_node>& nodes,
                      const std::vector<iset>& sets) const {
    if (nodes.size() == 1) return 0;
    const unsigned int t = nth(n, nodes);
    if (t == NO) return 0;
    unsigned int r = NO;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const unsigned int m = nodes[i].modification;
      if (m == NO || m >= t) continue;
      const unsigned int x = relax(m, sets[i]);
      if (x != NO && (r == NO || x > r)) r = x;
    }
    if (r == NO) return 0;
    for (unsigned int level = depth(); level >= 1; --level)
      if (decision_entries[level - 1] <= r) return int(level);
    return 0;
  }
};

//==== the randomised comparison ==============================================

class trail_check {
 public:
  explicit trail_check(unsigned int seed) : m_rng(seed) {}

  void run(unsigned int steps) {
    const unsigned int n = 1 + unsigned(m_rng() % 9);
    for (unsigned int v = 0; v < n; ++v) {
      iset d = random_initial_domain();
      const std::string name = "x" + std::to_string(v);
      m_stack.add_var(d, v % 3 == 0 ? nullptr : name.c_str(), false);
      m_model.base.push_back(d);
    }
    m_model.current = m_model.base;
    m_model.saved.assign(n, {});
    for (unsigned int v = 0; v < n; ++v) m_model.record(v);
    compare();
    for (m_step = 0; m_step < steps; ++m_step) {
      step();
      compare();
      if (::testing::Test::HasFailure()) return;
    }
  }

 private:
  unsigned int rnd(unsigned int bound) { return unsigned(m_rng() % bound); }

  iset random_initial_domain() {
    switch (rnd(5)) {
      case 0: return iset::singleton(int(rnd(32)));
      case 1: return iset::clipped_range(0, 3 + rnd(28));
      default: {
        std::uint32_t b = std::uint32_t(m_rng()) & std::uint32_t(m_rng());
        return bits(b == 0 ? 0x0Fu : b);
      }
    }
  }

  // A subset of the domain: usually smaller, sometimes equal or empty.
  iset narrow(iset d) {
    const unsigned int kind = rnd(20);
    if (kind == 0) return iset();
    if (kind == 1) return d;
    std::uint32_t b = d.bits() & std::uint32_t(m_rng());
    if (b == d.bits() && b != 0) b &= b - 1;  // drop the lowest member
    if (b == 0 && d.size() > 1 && rnd(4) != 0) b = 1u << unsigned(d.max());
    return bits(b);
  }

  void set(unsigned int var, iset d, int cause) {
    m_stack.set_var_domain(var, d, m_time, cause);
    m_model.set(var, d, m_time, cause);
    ++m_time;
  }

  void enable_heap() {
    m_stack.reset_var_costs(1.0);
    m_stack.disable_var_costs_heap();
    // Small integer costs: the cross-multiplied comparisons stay exact, and ties
    // are frequent enough to reach the assignment time and number tie-breaks.
    for (unsigned int v = 0; v < m_stack.num_variables(); ++v)
      m_stack.add_var_cost(int(v), double(1 + rnd(4)));
    m_stack.enable_var_costs_heap();
    m_heap_on = true;
  }

  void step() {
    const unsigned int n = m_stack.num_variables();
    const unsigned int op = rnd(100);
    if (op < 22) {  // a decision
      std::vector<unsigned int> open;
      for (unsigned int v = 0; v < n; ++v)
        if (m_stack.domain(v).size() >= 2) open.push_back(v);
      if (open.empty()) return;
      const unsigned int var = open[rnd(unsigned(open.size()))];
      if (m_stack.depth() == 0 && rnd(2) == 0) m_stack.construct_level0_domains();
      m_stack.push_decision(var);
      m_model.decision_entries.push_back(unsigned(m_model.entries.size()));
      m_model.decision_vars.push_back(var);
      const iset d = m_stack.domain(var);
      std::vector<int> values;
      for (int v = 0; v < 32; ++v)
        if (d.contains(v)) values.push_back(v);
      set(var, iset::singleton(values[rnd(unsigned(values.size()))]), -1);
    } else if (op < 62) {  // a run of changes with one cause
      const int cause = rnd(6) == 0 ? -1 : int(rnd(5));
      const unsigned int run = 1 + rnd(4);
      for (unsigned int i = 0; i < run; ++i) {
        const unsigned int var = rnd(n);
        set(var, narrow(m_stack.domain(var)), cause);
      }
    } else if (op < 74) {
      if (m_stack.depth() == 0) return;
      const unsigned int level = 1 + rnd(m_stack.depth());
      m_stack.undo_level(level);
      m_model.undo_level(level);
    } else if (op < 84) {
      unsigned int constraint = rnd(5);
      if (!m_model.entries.empty() && m_model.entries.back().cause >= 0 && rnd(3) != 0)
        constraint = unsigned(m_model.entries.back().cause);
      m_stack.erase_conflicting_modifications(constraint);
      m_model.erase(constraint);
    } else if (op < 87) {
      m_stack.clear();
      m_model.clear();
      if (m_heap_on) enable_heap();  // the solver rebuilds the heap after a clear
    } else if (op < 90) {
      // As on a restart: at level 0, where no domain is empty.
      if (m_stack.depth() != 0) return;
      for (unsigned int v = 0; v < n; ++v)
        if (m_stack.domain(v).empty()) return;
      m_stack.forget_previously_assigned_var_values();
      m_model.forget();
    } else if (op < 93) {
      if (!m_heap_on) enable_heap();
    } else {
      // Conflict costs land on fixed variables; they climb when undone.
      for (unsigned int v = 0; v < n; ++v)
        if (m_stack.domain(v).is_singleton() && rnd(2) == 0)
          m_stack.add_var_cost(int(v), double(1 + rnd(3)));
    }
  }

  std::vector<unsigned int> probe_points() const {
    std::vector<unsigned int> points;
    const unsigned int size = unsigned(m_model.entries.size());
    for (unsigned int m = 0; m <= size + 1; ++m) points.push_back(m);
    points.push_back(NO);
    points.push_back(POST_LAST);
    return points;
  }

  void compare() {
    SCOPED_TRACE("step " + std::to_string(m_step));
    const unsigned int n = m_stack.num_variables();
    const unsigned int size = unsigned(m_model.entries.size());
    ASSERT_EQ(m_stack.num_modifications(), size);
    ASSERT_EQ(m_stack.depth(), m_model.depth());
    ASSERT_TRUE(m_stack.audit());
    for (unsigned int v = 0; v < n; ++v) {
      ASSERT_EQ(m_stack.domain(v), m_model.current[v]) << "var " << v;
      const auto& saved = m_stack.previously_assigned_value(v);
      ASSERT_EQ(saved.has_value, m_model.saved[v].has_value) << "var " << v;
      if (saved.has_value) {
        ASSERT_EQ(saved.value, m_model.saved[v].value) << "var " << v;
      }
      const unsigned int newest = m_model.entry_before(v, size);
      ASSERT_EQ(m_stack.var_modification_time(v),
                newest == NO ? 1u : m_model.entries[newest].time);
    }
    const std::vector<unsigned int> points = probe_points();
    for (unsigned int m : points) {
      for (unsigned int v = 0; v < n; ++v) {
        ASSERT_EQ(m_stack.var_domain_after_modification(v, m), m_model.domain_after(v, m))
            << "var " << v << " entry " << m;
        ASSERT_EQ(m_stack.var_modification_entry_before(v, m), m_model.entry_before(v, m))
            << "var " << v << " entry " << m;
      }
      ASSERT_EQ(m_stack.before_propagation(m), m_model.before_propagation(m)) << "entry " << m;
      if (m != POST_LAST && (m == NO || m < size)) {
        ASSERT_EQ(m_stack.decision_level_of(m), m_model.level_of(m)) << "entry " << m;
      }
    }
    const int depth = int(m_model.depth());
    for (int level = -1; level <= depth; ++level) {
      for (unsigned int v = 0; v < n; ++v) {
        iset expected;
        if (level == -1)
          expected = m_model.base[v];
        else if (level == depth)
          expected = m_model.current[v];
        else
          expected = m_model.domain_after(v, m_model.decision_entries[level] - 1u);
        ASSERT_EQ(m_stack.var_domain_end_level(v, level), expected)
            << "var " << v << " level " << level;
      }
    }
    ASSERT_THROW((void)m_stack.var_domain_end_level(0, depth + 1), std::out_of_range);
    for (int level = 1; level <= depth; ++level) {
      const unsigned int var = m_model.decision_vars[level - 1];
      const unsigned int entry = m_model.decision_entries[level - 1];
      ASSERT_EQ(m_stack.decision_variable(level), var);
      ASSERT_EQ(m_stack.decision_modification(level), entry);
      const iset d = m_model.current[var].empty() ? m_model.domain_after(var, entry)
                                                  : m_model.current[var];
      ASSERT_EQ(m_stack.decision_value(level), d.max());
    }
    for (unsigned int m = 0; m < size; ++m) {
      ASSERT_EQ(m_stack.value_before_modification(m),
                m_model.before_entry(m, m_model.entries[m].var));
      for (unsigned int k = 0; k < 3; ++k) {
        const iset set = k == 0 ? iset::singleton(int(rnd(32))) : bits(std::uint32_t(m_rng()) & std::uint32_t(m_rng()));
        ASSERT_EQ(m_stack.relax(m, set), m_model.relax(m, set)) << "entry " << m << " set " << set;
        unsigned int limit = NO;
        switch (rnd(3)) {
          case 0: limit = rnd(size + 1); break;
          case 1:
            if (depth > 0) limit = m_model.decision_entries[rnd(unsigned(depth))];
            break;
          default: break;
        }
        ASSERT_EQ(m_stack.relax_before(m, set, limit), m_model.relax_before(m, set, limit))
            << "entry " << m << " set " << set << " limit " << limit;
      }
    }
    ASSERT_EQ(m_stack.relax(NO, iset::full()), NO);
    for (unsigned int first = 0; first < 6; ++first) {
      std::vector<unsigned int> expected;
      for (const auto& e : m_model.entries)
        if (e.cause >= 0 && unsigned(e.cause) >= first) expected.push_back(unsigned(e.cause));
      ASSERT_EQ(m_stack.get_busy_constraints(first), expected);
    }
    for (unsigned int k = 0; k < 8; ++k) {
      std::vector<assignment_stack::implication_node> nodes;
      std::vector<iset> sets;
      const unsigned int count = 1 + rnd(6);
      for (unsigned int i = 0; i < count; ++i) {
        const unsigned int m = size == 0 || rnd(5) == 0 ? NO : rnd(size);
        nodes.emplace_back(m, m == NO ? 0u : m_model.entries[m].var);
        sets.push_back(bits(std::uint32_t(m_rng()) & std::uint32_t(m_rng())));
      }
      for (unsigned int i = 0; i < count; ++i) {
        ASSERT_EQ(m_stack.nth_modification(i, nodes), naive_trail::nth(i, nodes));
        ASSERT_EQ(m_stack.asserting_level_of_nth(i, nodes, sets),
                  m_model.asserting_level(i, nodes, sets))
            << "n " << i << " of " << count;
      }
    }
    if (m_heap_on) {
      ASSERT_TRUE(m_stack.check_heap());
      unsigned int best = ~0u;
      for (unsigned int v = 0; v < n; ++v)
        if (!m_stack.domain(v).is_singleton() &&
            (best == ~0u || m_stack.is_better_variable(int(v), int(best), 1)))
          best = v;
      ASSERT_EQ(m_stack.find_best_free_variable(), best);
    }
  }

  std::mt19937 m_rng;
  assignment_stack m_stack;
  naive_trail m_model;
  std::uint64_t m_time = 2;
  unsigned int m_step = 0;
  bool m_heap_on = false;
};

TEST(assignment_stack, history_matches_naive_copying_model) {
  for (unsigned int seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    trail_check check(seed);
    check.run(300);
    if (HasFailure()) return;
  }
}

//==== relax on long chains ===================================================

TEST(assignment_stack, relax_gallops_to_the_same_entry_as_a_scan) {
  for (unsigned int seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    assignment_stack stack;
    naive_trail model;
    const unsigned int x = stack.add_var(iset::full(), "x", false);
    const unsigned int y = stack.add_var(iset::full(), "y", false);
    model.base = {iset::full(), iset::full()};
    model.current = model.base;
    model.saved.assign(2, {});
    // x keeps its domain for long stretches, so that the chain holds many entries
    // that are equally live or dead; y's entries make the gaps in numbers uneven.
    std::uint64_t time = 2;
    for (unsigned int i = 0; i < 2000; ++i) {
      const bool on_x = rng() % 4 != 0;
      const unsigned int var = on_x ? x : y;
      iset d = stack.domain(var);
      if (rng() % 60 == 0 && d.size() > 1) d.erase(d.min() + int(rng() % 3));
      if (!on_x && rng() % 8 == 0) {
        for (unsigned int k = rng() % 200; k > 0; --k) {
          stack.set_var_domain(y, stack.domain(y), time, 1);
          model.set(y, model.current[y], time++, 1);
        }
      }
      stack.set_var_domain(var, d, time, 0);
      model.set(var, d, time++, 0);
    }
    const unsigned int size = stack.num_modifications();
    for (unsigned int m = 0; m < size; m += 1 + rng() % 7) {
      for (int v = 0; v < 32; v += 3) {
        const iset set = iset::singleton(v);
        ASSERT_EQ(stack.relax(m, set), model.relax(m, set)) << "entry " << m << " value " << v;
      }
    }
  }
}

//==== edge cases =============================================================

TEST(assignment_stack, building_records_values_names_and_singletons) {
  assignment_stack stack;
  const unsigned int a = stack.add_var(iset::singleton(7), "a", false);
  const unsigned int b = stack.add_var(bits(0x6), nullptr, false);
  EXPECT_TRUE(stack.previously_assigned_value(a).has_value);
  EXPECT_EQ(stack.previously_assigned_value(a).value, 7);
  EXPECT_FALSE(stack.previously_assigned_value(b).has_value);
  EXPECT_EQ(stack.var_name(b), "");
  EXPECT_EQ(stack.var_modification_time(a), 1u);

  std::ostringstream names;
  stack.print_var_name(names, a);
  names << ' ' << variable_printer(&stack.print_strategy(), b) << ' ' << variable_printer(nullptr, 9);
  EXPECT_EQ(names.str(), "a V1 V9");

  std::ostringstream none;
  EXPECT_FALSE(stack.print_singleton_variables(none));
  EXPECT_EQ(none.str(), "");

  const unsigned int three = stack.singleton_var(3);
  EXPECT_EQ(stack.singleton_var(3), three);
  EXPECT_EQ(stack.var_name(three), "the_constant_3");
  EXPECT_EQ(stack.domain(three), iset::singleton(3));
  const unsigned int other = stack.add_var(iset::singleton(3), "c", true);
  EXPECT_NE(other, three);
  EXPECT_EQ(stack.singleton_var(3), three);  // the first entry stays
  const unsigned int one = stack.add_var(iset::singleton(1), "one", true);
  EXPECT_EQ(stack.singleton_var(1), one);
  std::ostringstream singletons;
  EXPECT_TRUE(stack.print_singleton_variables(singletons));
  EXPECT_EQ(singletons.str(), "Singletons: one=1, the_constant_3=3");
  EXPECT_EQ(out_of_range_text([&] { stack.singleton_var(32); }),
            "small_iset out of range while inserting an element");
  EXPECT_THROW(stack.singleton_var(-1), std::out_of_range);

  EXPECT_EQ(stack.variable_labels(b), 0u);
  EXPECT_EQ(stack.variable_labels(b, 5), 0u);
  EXPECT_EQ(stack.variable_labels(b, 2), 5u);
  EXPECT_EQ(stack.variable_labels(b), 2u);

  stack.set_var_initial_domain(b, iset::singleton(2));
  EXPECT_TRUE(stack.previously_assigned_value(b).has_value);
  EXPECT_EQ(stack.previously_assigned_value(b).value, 2);
  EXPECT_EQ(stack.num_modifications(), 0u);
}

TEST(assignment_stack, range_errors_name_the_call) {
  assignment_stack stack;
  stack.add_var(bits(0xF), "x", false);
  EXPECT_EQ(stack.decision_modification(0), NO);
  EXPECT_EQ(stack.decision_level_of(NO), 0u);
  EXPECT_EQ(out_of_range_text([&] { (void)stack.decision_variable(1); }),
            "Out of range while calling decision_variable(level)");
  EXPECT_EQ(out_of_range_text([&] { (void)stack.decision_variable(0); }),
            "Out of range while calling decision_variable(level)");
  EXPECT_EQ(out_of_range_text([&] { (void)stack.decision_value(1); }),
            "Out of range while calling decision_value()");
  EXPECT_EQ(out_of_range_text([&] { (void)stack.decision_modification(1); }),
            "Out of range while calling decision_modification(level)");
  EXPECT_EQ(out_of_range_text([&] { (void)stack.var_domain_end_level(0, 1); }),
            "Out of range while calling var_domain_end_level(variable, level)");
  EXPECT_EQ(out_of_range_text([&] { stack.undo_level(0); }),
            "Out of range while calling undo_level(level_to_forget)");
  std::vector<assignment_stack::implication_node> nodes;
  EXPECT_EQ(out_of_range_text([&] { (void)stack.asserting_level_of_nth(0, nodes, {}); }),
            "Can't pass an empty vector to asserting_level(variables)");
  nodes.emplace_back(NO, 0);
  EXPECT_EQ(stack.asserting_level_of_nth(0, nodes, {iset()}), 0);
  EXPECT_THROW((void)stack.nth_modification(1, nodes), std::out_of_range);
}

TEST(assignment_stack, level0_domain_survives_later_changes) {
  assignment_stack stack;
  const unsigned int x = stack.add_var(bits(0xFF), "x", false);
  const unsigned int y = stack.add_var(bits(0xFF), "y", false);
  stack.construct_level0_domains();
  stack.set_var_domain(x, bits(0x7F), 2, 0);
  stack.push_decision(y);
  stack.set_var_domain(y, iset::singleton(1), 3, -1);
  stack.set_var_domain(x, bits(0x3), 4, 1);
  EXPECT_EQ(stack.var_domain_end_level(x, 0), bits(0x7F));
  EXPECT_EQ(stack.var_domain_end_level(x, -1), bits(0xFF));
  EXPECT_EQ(stack.var_domain_end_level(x, 1), bits(0x3));
  EXPECT_EQ(stack.decision_value(1), 1);

  // A conflict at level 0 after a restart is taken back from the level-0 vector too.
  stack.undo_level(1);
  stack.set_var_domain(x, bits(0x1F), 5, 2);
  stack.erase_conflicting_modifications(2);
  stack.push_decision(y);
  stack.set_var_domain(y, iset::singleton(0), 6, -1);
  EXPECT_EQ(stack.var_domain_end_level(x, 0), bits(0x7F));
}

TEST(assignment_stack, undo_restores_first_domain_and_saves_last_value) {
  assignment_stack stack;
  const unsigned int x = stack.add_var(bits(0xF0), "x", false);
  const unsigned int y = stack.add_var(bits(0xF), "y", false);
  stack.push_decision(y);
  stack.set_var_domain(y, iset::singleton(2), 2, -1);
  stack.set_var_domain(x, bits(0x70), 3, 4);
  stack.push_decision(x);
  stack.set_var_domain(x, iset::singleton(5), 4, -1);
  stack.set_var_domain(y, iset(), 5, 7);
  EXPECT_EQ(stack.decision_value(1), 2);  // y is empty now: the decided value counts
  EXPECT_EQ(stack.var_modification_time(x), 4u);

  stack.undo_level(1);
  EXPECT_EQ(stack.domain(x), bits(0xF0));
  EXPECT_EQ(stack.domain(y), bits(0xF));
  EXPECT_EQ(stack.depth(), 0u);
  EXPECT_EQ(stack.num_modifications(), 0u);
  EXPECT_EQ(stack.previously_assigned_value(x).value, 5);
  EXPECT_EQ(stack.previously_assigned_value(y).value, 2);
  EXPECT_EQ(stack.var_modification_time(x), 1u);
  EXPECT_EQ(stack.relax(NO, bits(1)), NO);

  stack.forget_previously_assigned_var_values();
  EXPECT_FALSE(stack.previously_assigned_value(x).has_value);
}

TEST(assignment_stack, relax_of_a_set_missing_the_initial_domain_is_unbounded) {
  assignment_stack stack;
  const unsigned int x = stack.add_var(bits(0xF0), "x", false);
  stack.set_var_domain(x, bits(0x70), 2, 0);
  stack.set_var_domain(x, bits(0x30), 3, 1);
  EXPECT_EQ(stack.relax(1, bits(0x3)), NO);
  EXPECT_EQ(stack.relax(1, bits(0x40)), 1u);
  EXPECT_EQ(stack.relax(1, bits(0x80)), 0u);
  EXPECT_EQ(stack.relax_before(1, bits(0x80), 1), 0u);
  EXPECT_EQ(stack.relax_before(1, bits(0x40), 1), 1u);
  EXPECT_EQ(stack.relax_before(1, bits(0x3), 0), NO);
  EXPECT_EQ(stack.relax_before(1, bits(0x3), NO), 1u);
}

//==== the cost heap ==========================================================

TEST(assignment_stack, better_variable_ranks_cost_per_member_then_time_then_number) {
  assignment_stack stack;
  const int a = int(stack.add_var(bits(0x3), "a", false));     // 2 members
  const int b = int(stack.add_var(bits(0xF), "b", false));     // 4 members
  const int f = int(stack.add_var(iset::singleton(0), "f", false));
  const int e = int(stack.add_var(bits(0x3), "e", false));
  stack.add_var_cost(a, 2.0);
  stack.add_var_cost(b, 4.0);
  stack.add_var_cost(f, 1e300);
  EXPECT_FALSE(stack.is_better_variable(-1, a, 1));
  EXPECT_TRUE(stack.is_better_variable(a, -1, 1));
  // Equal cost per member and time: the lower number wins.
  EXPECT_TRUE(stack.is_better_variable(a, b, 1));
  EXPECT_FALSE(stack.is_better_variable(b, a, 1));
  // A fixed variable with a huge cost beats nothing; an open one of cost 0 beats it.
  EXPECT_FALSE(stack.is_better_variable(f, e, 1));
  EXPECT_TRUE(stack.is_better_variable(e, f, 1));
  EXPECT_FALSE(stack.is_better_variable(f, f, 1));
  // The factor scales b's side: with factor 0 any positive cost wins.
  EXPECT_FALSE(stack.is_better_variable(a, b, 2));
  EXPECT_FALSE(stack.is_better_variable(e, a, 0));
  EXPECT_TRUE(stack.is_better_variable(b, e, 0));
  // The most recently fixed wins a tie in cost per member.
  stack.push_decision(unsigned(b));
  stack.set_var_domain(unsigned(b), iset::singleton(1), 10, -1);
  stack.undo_level(1);
  EXPECT_EQ(stack.state(unsigned(b)).assignment_time, 10u);
  EXPECT_TRUE(stack.is_better_variable(b, a, 1));
  // An empty domain counts as open.
  stack.set_var_domain(unsigned(e), iset(), 11, 0);
  EXPECT_TRUE(stack.is_better_variable(e, f, 1));
  EXPECT_FALSE(stack.is_better_variable(f, e, 1));
}

TEST(assignment_stack, fixed_variables_sink_and_climb_back_when_freed) {
  assignment_stack stack;
  for (unsigned int v = 0; v < 7; ++v) stack.add_var(bits(0xF), nullptr, false);
  EXPECT_EQ(stack.find_best_free_variable(), ~0u);  // heap off
  for (unsigned int v = 0; v < 7; ++v) stack.add_var_cost(int(v), double(v % 3));
  stack.enable_var_costs_heap();
  ASSERT_TRUE(stack.check_heap());
  EXPECT_EQ(stack.find_best_free_variable(), 2u);  // cost 2, the lowest such number
  std::uint64_t time = 2;
  for (unsigned int v = 0; v < 7; ++v) {
    stack.push_decision(v);
    stack.set_var_domain(v, iset::singleton(0), time++, -1);
    ASSERT_TRUE(stack.check_heap());
  }
  EXPECT_EQ(stack.find_best_free_variable(), ~0u);
  stack.undo_level(5);  // frees 4, 5 and 6
  ASSERT_TRUE(stack.check_heap());
  EXPECT_EQ(stack.find_best_free_variable(), 5u);
  stack.undo_level(1);
  EXPECT_EQ(stack.find_best_free_variable(), 5u);  // 2 and 5 tie, 5 was fixed later

  // A variable created while the heap is on takes its place in it.
  const unsigned int late = stack.add_var(bits(0x3), "late", false);
  ASSERT_TRUE(stack.check_heap());
  stack.push_decision(late);
  stack.set_var_domain(late, iset::singleton(0), time++, -1);
  stack.add_var_cost(int(late), 100.0);
  stack.undo_level(1);
  ASSERT_TRUE(stack.check_heap());
  EXPECT_EQ(stack.find_best_free_variable(), late);
  stack.disable_var_costs_heap();
  EXPECT_FALSE(stack.heap_enabled());
  EXPECT_EQ(stack.find_best_free_variable(), ~0u);
}

TEST(assignment_stack, rescaling_keeps_cost_ratios) {
  assignment_stack stack;
  for (unsigned int v = 0; v < 3; ++v) stack.add_var(bits(0xF), nullptr, false);
  stack.reset_var_costs(2.0);
  EXPECT_EQ(stack.cost_increment(), 2.0);
  EXPECT_DOUBLE_EQ(stack.cost_scale(), 24.0 / 23.0);
  stack.add_var_cost(0, 3.0);
  stack.add_var_cost(1, 1.5);
  stack.add_var_cost(2, 1e-3);
  unsigned int rescales = 0;
  for (unsigned int i = 0; i < 2000; ++i) {
    const double before = stack.cost_increment();
    const double c0 = stack.cost(0), c1 = stack.cost(1), c2 = stack.cost(2);
    stack.lower_var_costs();
    ASSERT_LE(stack.cost_increment(), 1073741824.0);
    if (stack.cost_increment() < before) {
      ++rescales;
      EXPECT_EQ(stack.cost_increment(), before * stack.cost_scale() / 1073741824.0);
      EXPECT_EQ(stack.cost(0), c0 / 1073741824.0);
      EXPECT_EQ(stack.cost(1) / stack.cost(0), c1 / c0);
      EXPECT_EQ(stack.cost(2) / stack.cost(0), c2 / c0);
    } else {
      EXPECT_EQ(stack.cost(0), c0);
    }
    stack.add_var_cost(int(i % 3), stack.cost_increment());
  }
  EXPECT_GE(rescales, 3u);
  stack.reset_var_costs(1.0);
  EXPECT_EQ(stack.cost(0), 0.0);
  EXPECT_EQ(stack.state(0).assignment_time, 0u);
}

// A small search: decisions fix variables, conflicts add the growing increment to
// fixed variables, backtracks undo random levels. The root must stay the best of
// all open variables.
TEST(assignment_stack, best_free_variable_matches_scan_under_cost_updates) {
  for (unsigned int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    assignment_stack stack;
    const unsigned int n = 5 + rng() % 40;
    for (unsigned int v = 0; v < n; ++v)
      stack.add_var(bits(std::uint32_t(rng()) | 0x3u), nullptr, false);
    stack.reset_var_costs(2.0);
    for (unsigned int v = 0; v < n; ++v) stack.add_var_cost(int(v), double(rng() % 5));
    stack.enable_var_costs_heap();
    std::uint64_t time = 2;
    for (unsigned int step = 0; step < 600; ++step) {
      const unsigned int best = stack.find_best_free_variable();
      unsigned int naive = ~0u;
      for (unsigned int v = 0; v < n; ++v)
        if (!stack.domain(v).is_singleton() &&
            (naive == ~0u || stack.is_better_variable(int(v), int(naive), 1)))
          naive = v;
      ASSERT_EQ(best, naive) << "step " << step;
      ASSERT_TRUE(stack.check_heap()) << "step " << step;
      if (best != ~0u && rng() % 3 != 0) {
        stack.push_decision(best);
        stack.set_var_domain(best, iset::singleton(stack.domain(best).min()), time++, -1);
        const unsigned int other = rng() % n;
        iset d = stack.domain(other);
        if (d.size() > 1) stack.set_var_domain(other, d - iset::singleton(d.max()), time++, 1);
      } else if (stack.depth() > 0) {
        for (unsigned int v = 0; v < n; ++v)
          if (stack.domain(v).is_singleton() && rng() % 4 == 0)
            stack.add_var_cost(int(v), stack.cost_increment());
        stack.lower_var_costs();
        stack.undo_level(1 + rng() % stack.depth());
      }
    }
  }
}

}  // namespace
}  // namespace zelk
