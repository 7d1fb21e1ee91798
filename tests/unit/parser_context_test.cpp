// The parts of the FlatZinc reader that whole runs cannot reach: coefficient
// merging beyond the range of int (FlatZinc coefficients stay within 0..31),
// fresh constants for a scope that holds one twice, and the maximum on the empty
// argument domains of conflict views. Everything else is checked by the
// end-to-end cases of tests/e2e/fzn and the FlatZinc differential test.
#include "text_formats/parser_context.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "driver/flags.h"
#include "impl/comparison_propagators.h"
#include "impl/solver.h"
#include "unit/test_support.h"
#include "impl/table_propagators.h"
#include "text_formats/fzn_solver.h"

namespace {

using iset = zelk::small_model::iset;
using zelk::fzn_constraint::lin_constraint_type;
using zelk::test_support::captured_cout;

struct model {
  explicit model(const std::string& text) : in(text), solver(in, "t.fzn", flags, memory) {}
  captured_cout quiet;
  zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  std::istringstream in;
  zelk::fzn_solver solver;
};

long long weighted(const std::vector<long long>& coefficients, const std::vector<unsigned>& vars,
                   const std::vector<int>& value) {
  long long sum = 0;
  for (std::size_t i = 0; i < vars.size(); ++i) sum += coefficients[i] * value[vars[i]];
  return sum;
}

// Merging repeated variables keeps the sum for every assignment, leaves no
// variable twice and no coefficient 0, also when merged coefficients pass int
// and a merge and a split together keep the number of terms.
TEST(parser_context, merged_coefficients_keep_the_sum_and_the_variables_distinct) {
  model m("var 0..3: a;\nvar 0..3: b;\nvar 0..3: c;\n");
  const unsigned first = m.solver.context.var_id("a");
  std::mt19937 random(5);
  const std::vector<int> choices{INT_MAX, INT_MAX - 1, INT_MIN, INT_MIN + 1, 1, -1, 2, 0, 31};
  for (int round = 0; round < 300; ++round) {
    const unsigned n = 1 + random() % 5;
    std::vector<int> coefficients;
    std::vector<unsigned> vars;
    for (unsigned i = 0; i < n; ++i) {
      coefficients.push_back(choices[random() % choices.size()]);
      vars.push_back(first + random() % 3);
    }
    std::vector<int> merged_coefficients(coefficients);
    std::vector<unsigned> merged_vars(vars);
    const unsigned before = m.solver.num_variables();
    lin_constraint_type::make_unique_vars(m.solver.context, merged_coefficients, merged_vars);
    std::set<unsigned> seen(merged_vars.begin(), merged_vars.end());
    EXPECT_EQ(seen.size(), merged_vars.size()) << "round " << round;
    for (int k : merged_coefficients) EXPECT_NE(k, 0);
    // A split adds a copy of its variable; the next test follows that case.
    if (m.solver.num_variables() != before) continue;
    std::vector<long long> given(coefficients.begin(), coefficients.end());
    std::vector<long long> merged(merged_coefficients.begin(), merged_coefficients.end());
    std::vector<int> value(m.solver.num_variables(), 0);
    for (int x = 0; x < 4; ++x)
      for (int y = 0; y < 4; ++y)
        for (int z = 0; z < 4; ++z) {
          value[first] = x;
          value[first + 1] = y;
          value[first + 2] = z;
          EXPECT_EQ(weighted(given, vars, value), weighted(merged, merged_vars, value));
        }
  }
}

// Two terms of INT_MAX on one variable and one term on another: the merged
// coefficient passes int and is split, which leaves three terms as before; the
// vectors must still be rewritten, with each variable once.
TEST(parser_context, a_split_beside_a_merge_rewrites_the_terms) {
  model m("var 0..3: a;\nvar 0..3: b;\n");
  const unsigned a = m.solver.context.var_id("a"), b = m.solver.context.var_id("b");
  std::vector<int> coefficients{INT_MAX, INT_MAX, 1};
  std::vector<unsigned> vars{a, a, b};
  lin_constraint_type::make_unique_vars(m.solver.context, coefficients, vars);
  ASSERT_EQ(vars.size(), 3u);
  EXPECT_EQ(std::set<unsigned>(vars.begin(), vars.end()).size(), 3u);
  long long total = 0;
  for (std::size_t i = 0; i < vars.size(); ++i)
    if (vars[i] != b) total += coefficients[i];
  EXPECT_EQ(total, 2LL * INT_MAX);
}

// A scope with one shared constant twice gets a fresh variable of that value in
// the second place; variables repeated are left to the aliasing of the scope.
TEST(parser_context, a_repeated_constant_gets_a_fresh_variable) {
  model m("var 0..3: a;\n");
  zelk::parser_context& context = m.solver.context;
  const unsigned three = context.singleton_var(3, false);
  const unsigned a = context.var_id("a");
  std::vector<unsigned> vars{three, a, three, a};
  context.make_unique_vars(vars);
  EXPECT_EQ(vars[0], three);
  EXPECT_NE(vars[2], three);
  EXPECT_EQ(m.solver.stack().domain(vars[2]), iset::singleton(3));
  EXPECT_EQ(vars[1], a);
  EXPECT_EQ(vars[3], a);
}

// Conflict views may hold an empty argument: the maximum answers a conflict
// instead of raising.
TEST(parser_context, maximum_over_an_empty_argument_is_a_conflict) {
  zelk::min_max_propagator::domain_vector d{iset::clipped_range(0, 5), iset(),
                                            iset::clipped_range(2, 3)};
  bool result = true;
  EXPECT_NO_THROW(result = zelk::min_max_propagator::propagate_max(d));
  EXPECT_FALSE(result);
  d = {iset(), iset::clipped_range(2, 3)};
  EXPECT_NO_THROW(result = zelk::min_max_propagator::propagate_max(d));
  EXPECT_FALSE(result);
}

}  // namespace
