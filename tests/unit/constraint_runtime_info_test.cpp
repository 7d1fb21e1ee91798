// The views through which propagators see their parameters: the base class's
// set_domains and tuning bounds, the stand-alone view, the slice with pending
// writes, the past view over a real history, the live view and the watch-free one.
#include "impl/constraint_runtime_info.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>

#include "impl/constraint_aged_info.h"
#include "impl/constraint_connectivity_info.h"
#include "impl/constraint_explicit_info.h"
#include "impl/constraint_propagator.h"
#include "impl/sliced_runtime_info.h"
#include "impl/solver.h"

namespace zelk {
namespace {

using iset = small_model::iset;
iset set(const char* text) { return iset(std::string(text)); }

// Records what reaches the view underneath a slice or a watch-free view.
class recording_info : public constraint_explicit_info {
 public:
  explicit recording_info(unsigned int arity) : constraint_explicit_info(arity) {}
  void set_domain(unsigned int param, iset s) override {
    ++writes;
    constraint_explicit_info::set_domain(param, s);
  }
  queue_type originating_queue() const override { return VARIABLE_QUEUE; }
  void put_in_queue(queue_type) override { ++queued; }
  unsigned int latest_modified_param(unsigned int before) const override {
    for (unsigned int p : order)
      if (p != before) return p;
    return NO_PARAM;
  }
  int writes = 0;
  int queued = 0;
  std::vector<unsigned int> order;
};

TEST(constraint_runtime_info, set_domains_skips_equal_sizes_and_copies_the_first_write) {
  constraint_explicit_info info(3);
  info.domains() = {set("0:3"), set("4:7"), set("0:9")};
  // Every parameter already has four members: nothing changes.
  info.set_domains({0, 1}, set("10:13"));
  EXPECT_EQ(info.domain(0), set("0:3"));
  EXPECT_EQ(info.domain(1), set("4:7"));
  // Parameters of the same size are skipped; the first that differs is written and
  // the later ones receive what it reads back.
  info.domains()[1] = set("1:3");
  info.set_domains({1, 0, 2}, set("1:3"));
  EXPECT_EQ(info.domain(1), set("1:3"));
  EXPECT_EQ(info.domain(0), set("1:3"));
  EXPECT_EQ(info.domain(2), set("1:3"));
  // An empty set empties the first parameter and is copied to the rest.
  info.set_domains({1, 0}, iset());
  EXPECT_TRUE(info.domain(1).empty());
  EXPECT_TRUE(info.domain(0).empty());
  info.set_domains({}, set("3"));
}

TEST(constraint_runtime_info, tuning_bounds_come_from_the_environment_once) {
  // This is the only test of the binary that reads the bounds: they are cached.
  setenv("ACCURATE_SIZE_BOUND", "0", 1);
  setenv("MAX_ACCURATE_RANGES", "0x20", 1);
  unsetenv("ACCURATE_SIZE_PAIR_BOUND");
  constraint_explicit_info info(1);
  EXPECT_EQ(info.accurate_size_bound(), 0u);
  EXPECT_EQ(info.max_accurate_ranges(), 32u);
  EXPECT_EQ(info.accurate_size_pair_bound(), 50u);
  setenv("ACCURATE_SIZE_BOUND", "7", 1);
  EXPECT_EQ(info.accurate_size_bound(), 0u);
}

TEST(constraint_runtime_info, explicit_view_prints_compact_forms) {
  constraint_explicit_info info(6);
  info.domains() = {iset(), set("5"), iset::full(), set("0:4"), set("9:31"), set("1,3")};
  std::ostringstream os;
  info.print(os);
  EXPECT_EQ(os.str(), "constraint (P0={}, P1=5, P2={*}, P3<=4, P4>=9, P5={1,3})");
  // Equal size means no write.
  info.set_domain(5, set("7,8"));
  EXPECT_EQ(info.domain(5), set("1,3"));
  EXPECT_TRUE(info.reduced_between_activations(0));
  EXPECT_EQ(info.originating_queue(), constraint_runtime_info::CONSTRAINT_QUEUE);
}

TEST(sliced_runtime_info, querying_slice_keeps_writes_until_commit) {
  recording_info outer(4);
  outer.domains() = {set("0:9"), set("0:9"), set("0:9"), set("0:9")};
  sliced_runtime_info slice(outer, 1, 3);
  EXPECT_EQ(slice.arity(), 2u);
  EXPECT_TRUE(slice.querying_domain());
  EXPECT_FALSE(slice.pending_commit());
  slice.set_domain(0, set("0:5"));
  slice.set_domain(0, set("2:3"));  // the second write wins
  EXPECT_EQ(slice.domain(0), set("2:3"));
  EXPECT_EQ(outer.domain(1), set("0:9"));
  EXPECT_TRUE(slice.reduced_between_activations(0));
  EXPECT_TRUE(slice.pending_commit());
  slice.commit();
  EXPECT_EQ(outer.domain(1), set("2:3"));
  EXPECT_EQ(outer.writes, 1);
  EXPECT_FALSE(slice.pending_commit());
  slice.commit();  // nothing pending: nothing written
  EXPECT_EQ(outer.writes, 1);
}

TEST(sliced_runtime_info, leaving_the_querying_state_commits_and_writes_through) {
  recording_info outer(3);
  outer.domains() = {set("0:9"), set("0:9"), set("0:9")};
  sliced_runtime_info slice(outer, 1, 3);
  slice.set_domain(1, set("4:9"));
  slice.set_querying_domain(false);
  EXPECT_EQ(outer.domain(2), set("4:9"));
  slice.set_domain(0, set("1"));
  EXPECT_EQ(outer.domain(1), set("1"));
  slice.put_in_queue(constraint_runtime_info::CONSTRAINT_QUEUE);
  EXPECT_EQ(outer.queued, 1);
}

TEST(sliced_runtime_info, latest_modified_param_translates_to_the_slice) {
  recording_info outer(5);
  sliced_runtime_info slice(static_cast<const constraint_runtime_info&>(outer), 2, 4);
  outer.order = {3, 0};
  EXPECT_EQ(slice.latest_modified_param(constraint_runtime_info::NO_PARAM), 1u);
  // Asking to exclude slice parameter 1 (outer 3) gives outer 0, outside: asked once
  // more with 0 excluded, the outer gives 3 back, which lies inside.
  EXPECT_EQ(slice.latest_modified_param(1), 1u);
  outer.order = {0, 4};
  EXPECT_EQ(slice.latest_modified_param(constraint_runtime_info::NO_PARAM),
            constraint_runtime_info::NO_PARAM);
  std::ostringstream os;
  outer.domains()[2] = set("1:2");
  outer.domains()[3] = set("5");
  slice.print(os);
  EXPECT_EQ(os.str(), "P2={1,2},P3={5})");
}

// A solver whose history the past view reads.
struct history {
  solver s;
  unsigned int x, y;
  history() {
    x = s.add_var(set("0:9"), "x");
    y = s.add_var(set("0:9"), "y");
  }
};

class probe : public constraint_propagator {
 public:
  result_type propagate(constraint_runtime_info&) override { return CONSISTENT; }
  bool conflicts(const constraint_runtime_info&) const override { return false; }
  bool constraint_check(const constraint_runtime_info&) const override { return true; }
  std::unique_ptr<constraint_propagator> clone() const override {
    return std::make_unique<probe>(*this);
  }
};

TEST(constraint_aged_info, shows_the_state_before_the_activation_that_wrote_an_entry) {
  history h;
  constraint_connectivity_info& info = h.s.add_constraint(std::make_unique<probe>()) << h.x << h.y;
  assignment_stack& stack = h.s.stack();
  stack.set_var_domain(h.x, set("0:5"), 2, -1);  // 0: a change without constraint
  stack.set_var_domain(h.y, set("1:9"), 3, 7);   // 1: constraint 7
  stack.set_var_domain(h.x, set("2:5"), 3, 7);   // 2: constraint 7, same activation
  stack.push_decision(h.y);
  stack.set_var_domain(h.y, set("4"), 4, -1);    // 3: a decision
  const constraint_connectivity_info& const_info = info;
  {
    constraint_aged_info view(const_info, stack, 2, 0);
    EXPECT_EQ(view.domain(0), set("0:5"));  // before both entries of constraint 7
    EXPECT_EQ(view.domain(1), set("0:9"));
    EXPECT_THROW(view.set_domain(0, set("1")), std::domain_error);
    EXPECT_THROW(view.put_in_queue(constraint_runtime_info::CONSTRAINT_QUEUE), std::domain_error);
    EXPECT_THROW(view.allocate_watch(0, watch_types::MODIFICATION_WATCH), std::domain_error);
    EXPECT_FALSE(view.reduced_between_activations(0));
    EXPECT_EQ(view.latest_modified_param(constraint_runtime_info::NO_PARAM), 0u);
    view.set_use_ages(false);
    EXPECT_EQ(view.latest_modified_param(constraint_runtime_info::NO_PARAM),
              constraint_runtime_info::NO_PARAM);
  }
  {
    // At a decision entry: the state just before the decision.
    constraint_aged_info view(const_info, stack, 3, 0xFFFFFFFFu);
    EXPECT_EQ(view.domain(1), set("1:9"));
    EXPECT_EQ(view.domain(0), set("2:5"));
    EXPECT_EQ(view.effort(), 0u);
    EXPECT_EQ(view.latest_modified_param(constraint_runtime_info::NO_PARAM), 0u);
    EXPECT_EQ(view.latest_modified_param(0), 1u);
    std::ostringstream os;
    view.print(os);
    EXPECT_EQ(os.str(), "x={2:5}, y={1:9}");
  }
}

TEST(constraint_connectivity_info, live_view_checks_parameters_and_skips_equal_sizes) {
  history h;
  constraint_connectivity_info& info = h.s.add_constraint(std::make_unique<probe>()) << h.x << h.y;
  EXPECT_THROW(info.domain(2), std::out_of_range);
  EXPECT_EQ(info.to_variable(1), h.y);
  info.set_domain(0, set("10:19"));  // same size: nothing happens
  EXPECT_EQ(info.domain(0), set("0:9"));
  EXPECT_FALSE(info.modified_in_activation());
  info.set_domain(0, set("3:4"));  // not searching: the initial domain changes
  EXPECT_EQ(h.s.stack().domain(h.x), set("3:4"));
  EXPECT_TRUE(info.modified_in_activation());
  EXPECT_EQ(h.s.stack().num_modifications(), 0u);
  std::ostringstream os;
  info.print(os);
  EXPECT_EQ(os.str(), "constraint[0] (x,y)");
  constraint_connectivity_info orphan;
  std::ostringstream name;
  orphan.print_param(name, 0);
  EXPECT_EQ(name.str(), "NULL_var_printer");
}

TEST(constraint_watchless_info, hands_out_local_watches_and_forwards_the_rest) {
  recording_info inner(2);
  inner.domains() = {set("0:3"), set("0:3")};
  constraint_watchless_info view(inner, constraint_runtime_info::CONSTRAINT_QUEUE);
  EXPECT_EQ(view.originating_queue(), constraint_runtime_info::CONSTRAINT_QUEUE);
  watch_handle_t a = view.allocate_watch(0, watch_types::MODIFICATION_WATCH);
  watch_handle_t b = view.allocate_value_watch(1, 2);
  EXPECT_EQ(view.count_watches(), 2u);
  view.deallocate_watch(0, watch_types::MODIFICATION_WATCH, a);
  view.deallocate_value_watch(1, 2, b);
  EXPECT_EQ(view.count_watches(), 0u);
  view.set_domain(1, set("1"));
  EXPECT_EQ(inner.domain(1), set("1"));
  // Once the propagator queues itself the override ends.
  view.put_in_queue(constraint_runtime_info::CONSTRAINT_QUEUE);
  EXPECT_EQ(inner.queued, 1);
  EXPECT_EQ(view.originating_queue(), constraint_runtime_info::VARIABLE_QUEUE);
}

}  // namespace
}  // namespace zelk
