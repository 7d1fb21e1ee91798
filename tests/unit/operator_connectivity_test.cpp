// The common-subexpression table with small test-only definitions: one entry
// per operator and canonized arguments, directions merged, auxiliary variables
// named by the entry count, posting in order of tightness, and the tie that a
// caller owes when its wished-for result loses to an older entry.
#include "impl/operator_connectivity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/arithmetic_propagators.h"
#include "impl/comparison_propagators.h"
#include "impl/solver.h"

namespace zelk {
namespace {

using iset = small_model::iset;

// What create_all_constraints asked of the definitions, one line per entry:
// name, eval, owner flag, result, arguments.
std::vector<std::string> g_posted;

// A definition that records its entry as is and logs its posting; a commutative
// one sorts its arguments; with `post_sum` it posts r = a + b for real.
class test_definition : public operator_definition {
 public:
  test_definition(const char* name, double tightness, bool commutative = false,
                  bool post_sum = false)
      : m_name(name), m_tightness(tightness), m_commutative(commutative), m_post_sum(post_sum) {}

  int eval(const int*, const int*) const override { return 0; }
  unsigned int symbolic_eval(operator_connectivity& c, eval_type eval, const unsigned int* begin,
                             const unsigned int* end, unsigned int result) const override {
    return c.record_operator(*this, eval, begin, end, result);
  }
  void canonize_order(const operator_connectivity&, unsigned int* begin,
                      unsigned int* end) const override {
    if (m_commutative) std::sort(begin, end);
  }
  void create_constraints(solver& s, eval_type eval, unsigned int owner_flag, unsigned int result,
                          const unsigned int* begin, const unsigned int* end) const override {
    std::ostringstream line;
    line << m_name << " eval " << eval << " flag " << owner_flag << " r " << result << " (";
    for (const unsigned int* a = begin; a != end; ++a) line << (a == begin ? "" : ",") << *a;
    line << ")";
    g_posted.push_back(line.str());
    if (m_post_sum) s.add_constraint(std::make_unique<sum_truncate_propagator>()) << result
                                                                                  << begin[0]
                                                                                  << begin[1];
  }
  const char* name() const override { return m_name; }
  double tightness() const override { return m_tightness; }

 private:
  const char* m_name;
  double m_tightness;
  bool m_commutative;
  bool m_post_sum;
};

const test_definition mul("mul", 0.999713, true), sum("sum", 0.996269, true, true),
    sub("sub", 0.996269), div_("div", 0.995025), mod("mod", 0.995025), lt("lt", 0.5);

struct fixture {
  solver s;
  operator_connectivity table{s};
  unsigned x, y, z;
  fixture() {
    g_posted.clear();
    x = s.add_var(iset("0:9"), "x");
    y = s.add_var(iset("0:9"), "y");
    z = s.add_var(iset("0:9"), "z");
  }
  unsigned record(const operator_definition& d, eval_type eval, std::vector<unsigned> args,
                  unsigned result = operator_connectivity::NO_VARIABLE,
                  iset domain = operator_connectivity::everything(), unsigned flag = 0) {
    return table.record_operator(d, eval, args.data(), args.data() + args.size(), result, domain,
                                 flag);
  }
};

TEST(operator_connectivity, one_entry_per_operator_and_canonized_arguments) {
  fixture f;
  const unsigned xy = f.record(mul, eval_at_most, {f.x, f.y}, operator_connectivity::NO_VARIABLE,
                               iset("0:20"));
  EXPECT_EQ(xy, 3u);
  EXPECT_EQ(f.s.stack().var_name(xy), "mul0");
  EXPECT_EQ(f.table.var_domain(xy), iset("0:20"));
  // y*x is the same entry; the domain of a later request is ignored.
  EXPECT_EQ(f.record(mul, eval_at_most, {f.y, f.x}, operator_connectivity::NO_VARIABLE,
                     iset("5")),
            xy);
  EXPECT_EQ(f.table.var_domain(xy), iset("0:20"));
  // Order matters to a definition that does not canonize; an equal tightness
  // and equal arguments are told apart by the name.
  const unsigned xz = f.record(sub, eval_exact, {f.x, f.z});
  const unsigned zx = f.record(sub, eval_exact, {f.z, f.x});
  const unsigned sum_xz = f.record(sum, eval_exact, {f.x, f.z});
  EXPECT_NE(xz, zx);
  EXPECT_NE(sum_xz, xz);
  EXPECT_EQ(f.table.entries().size(), 4u);
  EXPECT_EQ(f.s.num_variables(), 7u);
  EXPECT_EQ(f.s.stack().var_name(sum_xz), "sum3");
  // A given result takes no variable, but counts for the names.
  EXPECT_EQ(f.record(sum, eval_exact, {f.y, f.z}, f.x), f.x);
  EXPECT_EQ(f.s.stack().var_name(f.record(lt, eval_exact, {f.x})), "lt5");
  EXPECT_THROW(f.table.var_domain(8), std::out_of_range);
  EXPECT_TRUE(operator_connectivity::everything().is_full());
}

TEST(operator_connectivity, directions_and_owner_flags_accumulate) {
  fixture f;
  const unsigned r = f.record(lt, eval_at_most, {f.x, f.y});
  f.record(lt, eval_at_least, {f.x, f.y}, operator_connectivity::NO_VARIABLE,
           operator_connectivity::everything(), 1);
  const unsigned s = f.record(div_, eval_at_least, {f.x, f.y});
  f.record(div_, eval_at_least, {f.x, f.y});
  const unsigned t = f.record(mod, eval_at_most, {f.x, f.y});
  f.record(mod, eval_exact, {f.x, f.y});
  f.table.create_all_constraints();
  EXPECT_EQ(g_posted, (std::vector<std::string>{
                          "div eval 2 flag 0 r " + std::to_string(s) + " (0,1)",
                          "mod eval 7 flag 0 r " + std::to_string(t) + " (0,1)",
                          "lt eval 3 flag 1 r " + std::to_string(r) + " (0,1)"}));
}

TEST(operator_connectivity, posting_follows_tightness_then_arguments_then_name) {
  fixture f;
  const unsigned a = f.record(lt, eval_exact, {f.x, f.y});
  const unsigned b = f.record(mod, eval_exact, {f.x, f.y});
  const unsigned c = f.record(sum, eval_exact, {f.z, f.y});  // canonized to (y, z)
  const unsigned d = f.record(div_, eval_exact, {f.x, f.y});
  const unsigned e = f.record(sum, eval_exact, {f.x, f.z});
  const unsigned m = f.record(mul, eval_exact, {f.y, f.y});
  f.table.create_all_constraints();
  const auto line = [](const char* name, unsigned r, const char* args) {
    return std::string(name) + " eval 7 flag 0 r " + std::to_string(r) + " " + args;
  };
  EXPECT_EQ(g_posted, (std::vector<std::string>{
                          line("mul", m, "(1,1)"), line("sum", e, "(0,2)"),
                          line("sum", c, "(1,2)"), line("div", d, "(0,1)"),
                          line("mod", b, "(0,1)"), line("lt", a, "(0,1)")}));
}

// Two places wish for different variables for x + y. The second wish is
// ignored, and only the entry's variable is defined by the posted constraint:
// the caller must tie its own variable to the one returned.
TEST(operator_connectivity, a_second_wished_result_is_ignored_and_must_be_tied) {
  for (const bool tie : {false, true}) {
    fixture f;
    const unsigned r1 = f.s.add_var(iset("0:18"), "r1");
    const unsigned r2 = f.s.add_var(iset("5"), "r2");
    const unsigned m = f.record(mul, eval_exact, {f.x, f.z});
    EXPECT_EQ(f.record(sum, eval_at_most, {f.x, f.y}, r1), r1);
    const unsigned got = f.record(sum, eval_at_least, {f.y, f.x}, r2);
    EXPECT_EQ(got, r1);
    EXPECT_EQ(f.s.num_variables(), 6u);  // only mul made one
    if (tie && got != r2) f.s.add_constraint(std::make_unique<equal_propagator>()) << got << r2;
    f.table.create_all_constraints();
    EXPECT_EQ(g_posted, (std::vector<std::string>{
                            "mul eval 7 flag 0 r " + std::to_string(m) + " (0,2)",
                            "sum eval 3 flag 0 r " + std::to_string(r1) + " (0,1)"}));
    std::ostringstream out;
    ASSERT_EQ(f.s.solve(&out), solver::SAT);
    const int x = f.s.stack().domain(f.x).min(), y = f.s.stack().domain(f.y).min();
    EXPECT_EQ(x + y, f.s.stack().domain(r1).min());
    // Without the tie nothing makes x + y = r2 = 5, and the first values taken
    // (the smallest) leave it at 0.
    EXPECT_EQ(x + y == 5, tie);
  }
}

}  // namespace
}  // namespace zelk
