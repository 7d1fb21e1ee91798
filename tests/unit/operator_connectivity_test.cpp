// The common-subexpression table with test-only definitions that log their postings:
// entries, names, directions, posting order, and the tie a caller owes.
#include "impl/operator_connectivity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "impl/solver.h"

namespace zelk {
namespace {

using iset = small_model::iset;
const unsigned x = 0, y = 1, z = 2, NONE = operator_connectivity::NO_VARIABLE;

// What create_all_constraints asked for: name, eval, owner flag, result, arguments.
std::ostringstream g_log;

struct test_definition : operator_definition {
  test_definition(const char* name, double tightness, bool sorts)
      : m_name(name), m_tightness(tightness), m_sorts(sorts) {}
  int eval(const int*, const int*) const override { return 0; }
  unsigned int symbolic_eval(operator_connectivity&, eval_type, const unsigned int*,
                             const unsigned int*, unsigned int) const override { return 0; }
  void canonize_order(const operator_connectivity&, unsigned* b, unsigned* e) const override {
    if (m_sorts) std::sort(b, e);
  }
  void create_constraints(solver&, eval_type eval, unsigned flag, unsigned r, const unsigned* b,
                          const unsigned*) const override {
    g_log << m_name << ' ' << eval << ' ' << flag << " r" << r << " (" << *b << ',' << b[1] << ") ";
  }
  const char* name() const override { return m_name; }
  double tightness() const override { return m_tightness; }
  const char* m_name;
  double m_tightness;
  bool m_sorts;
};

const test_definition mul("mul", 0.999713, true), sum("sum", 0.996269, true),
    sub("sub", 0.996269, false), div_("div", 0.995025, false), lt("lt", 0.5, false);

struct fixture {
  solver s;
  operator_connectivity table{s};
  fixture() { g_log.str(""); for (const char* v : {"x", "y", "z"}) s.add_var(iset("0:9"), v); }
  unsigned record(const test_definition& d, eval_type eval, std::vector<unsigned> a,
                  unsigned result = NONE, iset domain = iset::full(), unsigned flag = 0) {
    return table.record_operator(d, eval, a.data(), a.data() + a.size(), result, domain, flag);
  }
};

TEST(operator_connectivity, entries_names_directions_and_posting_order) {
  fixture f;
  // y*x is x*y; the later direction merges, the later domain is ignored.
  const unsigned xy = f.record(mul, eval_at_most, {x, y}, NONE, iset("0:20"));
  EXPECT_EQ(f.record(mul, eval_at_least, {y, x}, NONE, iset("5")), xy);
  EXPECT_EQ(f.s.stack().domain(xy), iset("0:20"));
  // A given result takes no variable, but counts for the names.
  EXPECT_EQ(f.record(sum, eval_exact, {z, y}, x), x);
  f.record(sub, eval_exact, {x, z});
  f.record(sub, eval_exact, {z, x});  // order matters to a definition that does not sort
  f.record(div_, eval_at_least, {x, y});
  f.record(lt, eval_at_most, {x, y});
  f.record(lt, eval_exact, {x, y}, NONE, iset::full(), 1);  // owner flags merge too
  f.record(sum, eval_exact, {x, z});
  std::string names;
  for (unsigned v = 3; v < f.s.num_variables(); ++v) names += f.s.stack().var_name(v) + " ";
  EXPECT_EQ(names, "mul0 sub2 sub3 div4 lt5 sum6 ");
  // Tightest first; then by arguments, and by name where those are equal.
  f.table.create_all_constraints();
  EXPECT_EQ(g_log.str(), "mul 3 0 r3 (0,1) sub 7 0 r4 (0,2) sum 7 0 r8 (0,2) sum 7 0 r0 (1,2) "
                            "sub 7 0 r5 (2,0) div 2 0 r6 (0,1) lt 7 1 r7 (0,1) ");
}

// Two places wish for different variables for x + y. The second wish is ignored:
// one variable stands for x + y, and only it is defined by the posted constraint,
// so the caller must tie its own variable to the one returned.
TEST(operator_connectivity, a_second_wished_result_is_ignored_and_must_be_tied) {
  fixture f;
  const unsigned r1 = f.s.add_var(iset("0:18"), "r1"), r2 = f.s.add_var(iset("5"), "r2");
  EXPECT_EQ(f.record(sum, eval_at_most, {x, y}, r1), r1);
  EXPECT_EQ(f.record(sum, eval_at_least, {y, x}, r2), r1);
  f.table.create_all_constraints();
  EXPECT_EQ(g_log.str(), "sum 3 0 r3 (0,1) ");
}

}  // namespace
}  // namespace zelk
