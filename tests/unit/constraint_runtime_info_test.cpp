// The views through which propagators see their parameters.
#include "impl/constraint_runtime_info.h"

#include <gtest/gtest.h>

#include "brute_force.h"
#include "impl/arithmetic_propagators.h"
#include "impl/constraint_aged_info.h"
#include "impl/sliced_runtime_info.h"
#include "impl/solver.h"

namespace zelk {
namespace {

using small_model::iset;
using enum constraint_runtime_info::queue_type;
constexpr unsigned int NONE = constraint_runtime_info::NO_PARAM;

TEST(constraint_runtime_info, set_domains_writes_the_first_size_change_and_copies_it) {
  std::mt19937 rng(8);
  for (int i = 0; i < 20000; ++i) {
    const auto four_or_one = [&] { return iset::from_bits((rng() % 4 ? 0xFu : 1u) << rng() % 8); };
    constraint_explicit_info info(3);
    for (iset& d : info.domains()) d = four_or_one();
    std::vector<iset> want = info.domains();
    const iset set = rng() % 8 ? four_or_one() : iset();
    const unsigned int a = rng() % 3, b = rng() % 3;
    // Sizes of a non-empty set are skipped, the next gets it, the later ones what it then holds.
    const unsigned int first = !set.empty() && want[a].size() == set.size() ? b : a;
    if (want[first].size() != set.size()) want[first] = set;
    if (first == a && want[b].size() != want[a].size()) want[b] = want[a];
    info.set_domains({a, b}, set);
    ASSERT_EQ(info.domains(), want) << i;
  }
}

struct ordered_info : brute_force::recording_info {  // the first of two not excluded is latest
  using recording_info::recording_info;
  unsigned int latest_modified_param(unsigned int before) const override {
    return order[0] != before ? order[0] : order[1];
  }
  std::vector<unsigned int> order;
};

TEST(sliced_runtime_info, writes_wait_for_the_commit_while_querying) {
  ordered_info outer(std::vector<iset>(4, iset("0:9")), VARIABLE_QUEUE);
  sliced_runtime_info slice(outer, 1, 3);
  slice.set_domain(0, iset("0:5"));
  slice.set_domain(0, iset("2:3"));  // the second write wins
  EXPECT_TRUE(slice.domain(0) == iset("2:3") && slice.pending_commit() && outer.writes == 0);
  slice.commit();
  EXPECT_TRUE(outer.domain(1) == iset("2:3") && outer.writes == 1 && !slice.pending_commit());
  slice.set_domain(1, iset("4:9"));
  slice.set_querying_domain(false);  // commits, then writes through
  slice.set_domain(0, iset("2"));
  slice.put_in_queue(CONSTRAINT_QUEUE);
  EXPECT_TRUE(outer.domain(2) == iset("4:9") && outer.domain(1) == iset("2") && outer.writes == 3);
  EXPECT_EQ(outer.queued.size(), 1u);
  // Slice 2..3; left out, outer 3 gives 0, outside, so the slice asks once more and gets 3.
  const sliced_runtime_info upper(static_cast<const constraint_runtime_info&>(outer), 2, 4);
  outer.order = {3, 0};
  EXPECT_EQ(upper.latest_modified_param(NONE), 1u);
  EXPECT_EQ(upper.latest_modified_param(1), 1u);
  outer.order = {0, 4};
  EXPECT_EQ(upper.latest_modified_param(NONE), NONE);
}

TEST(constraint_aged_info, past_and_live_views_over_a_solver) {
  solver s;
  const unsigned int x = s.add_var(iset("0:9"), "x"), y = s.add_var(iset("0:9"), "y");
  auto& info = s.add_constraint(std::make_unique<neg_propagator>()) << x << y;
  assignment_stack& stack = s.stack();
  stack.set_var_domain(x, iset("0:5"), 2, -1);  // 0: a change without constraint
  stack.set_var_domain(y, iset("1:9"), 3, 7);   // 1: constraint 7
  stack.set_var_domain(x, iset("2:5"), 3, 7);   // 2: constraint 7, same activation
  stack.push_decision(y);
  stack.set_var_domain(y, iset("4"), 4, -1);    // 3: a decision
  constraint_aged_info view(std::as_const(info), stack, 2, 0);  // before the activation that made 2
  std::ostringstream trace;  // as the trace shows it
  view.print(trace);
  EXPECT_EQ(trace.str(), "x={0:5}, y={0:9}");
  EXPECT_THROW(view.set_domain(0, iset("1")), std::domain_error);
  EXPECT_EQ(view.latest_modified_param(NONE), 0u);
  view.set_use_ages(false);
  EXPECT_EQ(view.latest_modified_param(NONE), NONE);
  constraint_aged_info at_decision(info, stack, 3, 0xFFFFFFFFu);  // right before the decision
  EXPECT_EQ(at_decision.latest_modified_param(0), 1u);
  info.set_domain(1, iset("7"));  // the same size: nothing happens
  EXPECT_TRUE(info.domain(1) == iset("4") && !info.modified_in_activation());
  info.set_domain(1, iset("3:4"));  // outside a search: the initial domain
  EXPECT_TRUE(stack.domain(y) == iset("3:4") && info.modified_in_activation() &&
              stack.num_modifications() == 4);
}

TEST(constraint_watchless_info, keeps_watches_local_and_forwards_the_rest) {
  brute_force::recording_info inner(std::vector<iset>(2, iset("0:9")), VARIABLE_QUEUE);
  constraint_watchless_info view(inner, CONSTRAINT_QUEUE);
  EXPECT_EQ(view.originating_queue(), CONSTRAINT_QUEUE);
  const watch_handle_t a = view.allocate_watch(0, watch_types::MODIFICATION_WATCH);
  view.deallocate_watch(0, watch_types::MODIFICATION_WATCH, a);
  view.deallocate_value_watch(1, 2, view.allocate_value_watch(1, 2));
  view.set_domain(1, iset("1"));
  EXPECT_TRUE(view.count_watches() == 0 && inner.watches.empty() && inner.domain(1) == iset("1"));
  view.put_in_queue(CONSTRAINT_QUEUE);  // the override ends once the propagator queues itself
  EXPECT_TRUE(inner.queued.size() == 1 && view.originating_queue() == VARIABLE_QUEUE);
}

}  // namespace
}  // namespace zelk
