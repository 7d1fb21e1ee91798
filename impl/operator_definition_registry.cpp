// The operator definitions of expressions and the registry that finds them.
//
// Every value lives in 0..31. The arithmetic definitions post their operator
// strictly (a sum is r = a + b, not a clipped one); AST_builder refuses the
// expressions whose true value could leave 0..31, so that strict and clipped
// never disagree on a model it accepts.
#include "impl/operator_definition_registry.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "impl/AST_builder.h"
#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/neq_propagators.h"
#include "impl/operator_connectivity.h"
#include "impl/solver.h"

namespace zelk {

using small_model::iset;

//==== defaults ================================================================

std::optional<int> operator_definition::reverse_eval(small_model::iset, unsigned int) const {
  return std::nullopt;
}

eval_type operator_definition::arg_eval_type(const operator_connectivity&, eval_type,
                                             unsigned int, const unsigned int*,
                                             const unsigned int*, unsigned int) const {
  return eval_exact;
}

void operator_definition::canonize_order(const operator_connectivity&, unsigned int*,
                                         unsigned int*) const {}

eval_type swap_eval(eval_type eval) {
  if (eval == eval_at_most) return eval_at_least;
  if (eval == eval_at_least) return eval_at_most;
  return eval;
}

//==== posting helpers =========================================================

void add_constraint_on_distinct(solver& s, std::unique_ptr<constraint_propagator> propagator,
                                std::vector<unsigned int> params) {
  for (std::size_t i = 1; i < params.size(); ++i) {
    if (std::find(params.begin(), params.begin() + i, params[i]) == params.begin() + i) continue;
    const unsigned int original = params[i];
    const std::string name = "_equivalent_" + std::to_string(s.num_variables()) + "_of_" +
                             s.stack().var_name(original);
    const unsigned int copy = s.add_var(s.stack().domain(original), name.c_str(), false);
    s.add_constraint(std::make_unique<equal_propagator>()) << original << copy;
    params[i] = copy;
  }
  constraint_connectivity_info& info = s.add_constraint(std::move(propagator));
  for (unsigned int v : params) info << v;
}

void post_literal_or_difference_ge(solver& s, iset literal, int constant, unsigned int r,
                                   unsigned int a, unsigned int b) {
  add_constraint_on_distinct(
      s, std::make_unique<literal_or_difference_ge_propagator>(literal, constant), {r, a, b});
}

void post_literal_or_equal(solver& s, iset literal, unsigned int r, unsigned int a,
                           unsigned int b) {
  add_constraint_on_distinct(s, std::make_unique<literal_or_equal_propagator>(literal), {r, a, b});
}

namespace {

// The non-linear operators, each on its own propagator; parameters (r, x[, y]).
void post_abs(solver& s, unsigned int r, unsigned int x) {
  add_constraint_on_distinct(s, std::make_unique<abs_propagator>(), {r, x});
}
void post_less_equal_abs(solver& s, unsigned int r, unsigned int x) {
  add_constraint_on_distinct(s, std::make_unique<less_equal_abs_propagator>(), {r, x});
}
void post_greater_equal_abs(solver& s, unsigned int r, unsigned int x) {
  add_constraint_on_distinct(s, std::make_unique<greater_equal_abs_propagator>(), {r, x});
}
void post_mul_truncate(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<mul_truncate_propagator>(), {r, x, y});
}
void post_less_equal_mul(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<less_equal_mul_propagator>(), {r, x, y});
}
void post_greater_equal_mul(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<greater_equal_mul_propagator>(), {r, x, y});
}
void post_pow(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<pow_propagator>(), {r, x, y});
}
void post_div(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<div_propagator>(), {r, x, y});
}
void post_mod(solver& s, unsigned int r, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<mod_propagator>(), {r, x, y});
}

const iset& domain_of(const operator_connectivity& connectivity, unsigned int v) {
  return connectivity.var_domain(v);
}

bool is_singleton_of(const operator_connectivity& connectivity, unsigned int v, int value) {
  return domain_of(connectivity, v) == iset::singleton(value);
}

int cut(long long value) { return int(std::clamp(value, 0LL, 31LL)); }

// Cuts the domain of v; an empty domain is the model's failure, seen at the start
// of the search.
void intersect(solver& s, unsigned int v, iset set) {
  const iset before = s.stack().domain(v);
  if ((before & set) != before) s.set_var_domain(v, before & set, -1);
}

// An entry recorded on the definition's own account found an older entry with
// another variable: both stand for one value.
void tie(operator_connectivity& connectivity, unsigned int wished, unsigned int got) {
  if (wished == got) return;
  solver& s = connectivity.get_solver();
  const iset both = s.stack().domain(wished) & s.stack().domain(got);
  intersect(s, wished, both);
  intersect(s, got, both);
  s.add_constraint(std::make_unique<equal_propagator>()) << wished << got;
  connectivity.equivalences().unite(wished, got);
}

void post(solver& s, std::unique_ptr<constraint_propagator> p, std::vector<unsigned int> params) {
  add_constraint_on_distinct(s, std::move(p), std::move(params));
}

// Two-argument definitions read their arguments here.
struct two {
  unsigned int a, b;
  explicit two(const unsigned int* args) : a(args[0]), b(args[1]) {}
};

//==== arithmetic ==============================================================

class mul_definition;

class sum_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return cut((long long)args[0] + args[1]);
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args_begin, const unsigned int* args_end,
                             unsigned int result) const override;
  eval_type arg_eval_type(const operator_connectivity&, eval_type eval, unsigned int,
                          const unsigned int*, const unsigned int*, unsigned int) const override {
    return eval;
  }
  void canonize_order(const operator_connectivity&, unsigned int* args_begin,
                      unsigned int* args_end) const override {
    if (args_end - args_begin == 2 && args_begin[1] < args_begin[0])
      std::swap(args_begin[0], args_begin[1]);
  }
  void create_constraints(solver& s, eval_type eval, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    const two x(args);
    if (x.a == x.b) {
      post_mul_truncate(s, r, s.singleton_var(2), x.a);
      return;
    }
    const iset da = s.stack().domain(x.a);
    const iset db = s.stack().domain(x.b);
    if (da.is_singleton()) {
      create_sum_with_constant(s, eval, r, x.b, da.min());
    } else if (db.is_singleton()) {
      create_sum_with_constant(s, eval, r, x.a, db.min());
    } else if (eval == eval_exact) {
      post(s, std::make_unique<sum_truncate_propagator>(), {r, x.a, x.b});
    } else {
      if (eval & eval_at_most)
        post(s, std::make_unique<linear_combination_ge_propagator>(0, std::vector<int>{-1, 1, 1}),
             {r, x.a, x.b});
      if (eval & eval_at_least)
        post(s, std::make_unique<linear_combination_ge_propagator>(0, std::vector<int>{1, -1, -1}),
             {r, x.a, x.b});
    }
  }
  static void create_sum_with_constant(solver& s, eval_type eval, unsigned int r, unsigned int x,
                                       int k) {
    if (k == 0) {
      post(s, std::make_unique<equal_propagator>(), {r, x});
    } else if (eval == eval_exact) {
      post(s, std::make_unique<sum_truncate_propagator>(), {r, x, s.singleton_var(k)});
    } else {
      if (eval & eval_at_most) post(s, std::make_unique<difference_ge_propagator>(-k), {x, r});
      if (eval & eval_at_least) post(s, std::make_unique<difference_ge_propagator>(k), {r, x});
    }
  }
  const char* name() const override { return "sum"; }
  double tightness() const override { return 0.996269; }
};

class sub_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return cut((long long)args[0] - args[1]);
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args_begin, const unsigned int* args_end,
                             unsigned int result) const override;
  eval_type arg_eval_type(const operator_connectivity&, eval_type eval, unsigned int arg_index,
                          const unsigned int*, const unsigned int*, unsigned int) const override {
    return arg_index == 0 ? eval : swap_eval(eval);
  }
  // The sum recorded beside it posts a = r + b.
  void create_constraints(solver&, eval_type, unsigned int, unsigned int, const unsigned int*,
                          const unsigned int*) const override {}
  const char* name() const override { return "sub"; }
  double tightness() const override { return 0.996269; }
};

class mul_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return cut((long long)args[0] * args[1]);
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    const two x(args);
    if (is_singleton_of(connectivity, x.a, 0)) return x.a;
    if (is_singleton_of(connectivity, x.b, 0)) return x.b;
    if (is_singleton_of(connectivity, x.a, 1)) return x.b;
    if (is_singleton_of(connectivity, x.b, 1)) return x.a;
    const iset da = domain_of(connectivity, x.a);
    const iset db = domain_of(connectivity, x.b);
    return connectivity.record_operator(
        *this, eval, args, args_end, result,
        da.empty() || db.empty() ? iset()
                                 : iset::clipped_range((long long)da.min() * db.min(),
                                                       (long long)da.max() * db.max()));
  }
  eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                          unsigned int arg_index, const unsigned int* args, const unsigned int*,
                          unsigned int) const override {
    if (!args) return eval_exact;
    const unsigned int other = args[1 - arg_index];
    if (other == operator_connectivity::NO_VARIABLE) return eval_exact;
    const iset d = domain_of(connectivity, other);
    if (d.empty()) return eval_exact;
    if (d.min() >= 0) return eval;
    if (d.max() > 0) return eval_exact;
    return swap_eval(eval);
  }
  void canonize_order(const operator_connectivity&, unsigned int* args_begin,
                      unsigned int* args_end) const override {
    if (args_end - args_begin == 2 && args_begin[1] < args_begin[0])
      std::swap(args_begin[0], args_begin[1]);
  }
  void create_constraints(solver& s, eval_type eval, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    const two x(args);
    if (x.a == x.b) {
      post_pow(s, r, x.a, s.singleton_var(2));
    } else if (eval == eval_exact) {
      post_mul_truncate(s, r, x.a, x.b);
    } else {
      if (eval & eval_at_most) post_less_equal_mul(s, r, x.a, x.b);
      if (eval & eval_at_least) post_greater_equal_mul(s, r, x.a, x.b);
    }
  }
  const char* name() const override { return "mul"; }
  double tightness() const override { return 0.999713; }
};

unsigned int sum_definition::symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                                           const unsigned int* args, const unsigned int* args_end,
                                           unsigned int result) const {
  const two x(args);
  if (is_singleton_of(connectivity, x.a, 0)) return x.b;
  if (is_singleton_of(connectivity, x.b, 0)) return x.a;
  const iset da = domain_of(connectivity, x.a);
  const iset db = domain_of(connectivity, x.b);
  if (da.is_singleton() && db.is_singleton() && da.min() + db.min() <= 0)
    return connectivity.get_solver().singleton_var(da.min() + db.min());
  const operator_definition_registry& registry = operator_definition_registry::get();
  if (x.a == x.b) {
    const unsigned int mul_args[2] = {x.a, connectivity.get_solver().singleton_var(2)};
    return connectivity.record_operator(
        *registry.find(9), eval, mul_args, mul_args + 2, result,
        da.empty() ? iset() : iset::clipped_range(2LL * da.min(), 2LL * da.max()));
  }
  // A new result starts with the range the sum can reach, so that an enclosing
  // sum or difference is judged by what this one can really take.
  const unsigned int r = connectivity.record_operator(
      *this, eval, args, args_end, result,
      da.empty() || db.empty()
          ? iset()
          : iset::clipped_range((long long)da.min() + db.min(), (long long)da.max() + db.max()));
  // r - a is b and r - b is a: a later difference finds them without a new variable.
  const operator_definition& sub = *registry.find(8);
  const unsigned int minus_a[2] = {r, x.a};
  tie(connectivity, x.b, connectivity.record_operator(sub, eval, minus_a, minus_a + 2, x.b));
  const unsigned int minus_b[2] = {r, x.b};
  tie(connectivity, x.a, connectivity.record_operator(sub, eval, minus_b, minus_b + 2, x.a));
  return r;
}

unsigned int sub_definition::symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                                           const unsigned int* args, const unsigned int* args_end,
                                           unsigned int result) const {
  const two x(args);
  if (is_singleton_of(connectivity, x.b, 0)) return x.a;
  if (x.a == x.b) return connectivity.get_solver().singleton_var(0);
  const iset da = domain_of(connectivity, x.a);
  const iset db = domain_of(connectivity, x.b);
  const unsigned int r = connectivity.record_operator(
      *this, eval, args, args_end, result,
      da.empty() || db.empty()
          ? iset()
          : iset::clipped_range((long long)da.min() - db.max(), (long long)da.max() - db.min()));
  const unsigned int minus_r[2] = {x.a, r};
  tie(connectivity, x.b, connectivity.record_operator(*this, eval, minus_r, minus_r + 2, x.b));
  const unsigned int plus[2] = {r, x.b};
  const operator_definition& sum = *operator_definition_registry::get().find(7);
  tie(connectivity, x.a,
      connectivity.record_operator(sum, swap_eval(eval), plus, plus + 2, x.a));
  return r;
}

class div_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return args[1] == 0 ? 0 : int((long long)args[0] / args[1]);
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    const iset da = domain_of(connectivity, args[0]);
    const iset db = domain_of(connectivity, args[1]);
    iset range = operator_connectivity::everything();
    if (da.empty() || db.empty())
      range = iset();
    else if (db.min() > 0)
      range = iset::clipped_range(da.min() / db.max(), da.max() / db.min());
    return connectivity.record_operator(*this, eval_exact, args, args_end, result, range);
  }
  void create_constraints(solver& s, eval_type, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    post_div(s, r, args[0], args[1]);
  }
  const char* name() const override { return "div"; }
  double tightness() const override { return 0.995025; }
};

class mod_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return args[1] == 0 ? 0 : int((long long)args[0] % args[1]);
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    const iset da = domain_of(connectivity, args[0]);
    const iset db = domain_of(connectivity, args[1]);
    const iset range = da.empty() || db.empty()
                           ? iset()
                           : iset::clipped_range(0, std::min(da.max(), std::max(db.max() - 1, 0)));
    return connectivity.record_operator(*this, eval_exact, args, args_end, result, range);
  }
  void create_constraints(solver& s, eval_type, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    post_mod(s, r, args[0], args[1]);
  }
  const char* name() const override { return "mod"; }
  double tightness() const override { return 0.995025; }
};

class abs_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return int(std::min(std::llabs((long long)args[0]), 31LL));
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    const iset d = domain_of(connectivity, args[0]);
    if (d.empty() || d.min() >= 0) return args[0];
    return connectivity.record_operator(*this, eval, args, args_end, result);
  }
  eval_type arg_eval_type(const operator_connectivity&, eval_type eval, unsigned int,
                          const unsigned int*, const unsigned int*, unsigned int) const override {
    return eval == eval_at_least ? eval_both_bounds : eval_exact;
  }
  void create_constraints(solver& s, eval_type eval, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    const unsigned int x = args[0];
    if (x == r) {
      intersect(s, r, iset::clipped_range(0, 31));
    } else if (eval == eval_exact) {
      post_abs(s, r, x);
    } else {
      if (eval & eval_at_most) post_less_equal_abs(s, r, x);
      if (eval & eval_at_least) post_greater_equal_abs(s, r, x);
    }
  }
  const char* name() const override { return "abs"; }
  double tightness() const override { return 0.990099; }
};

//==== Boolean and comparisons =================================================

const iset BOOLEAN = iset::clipped_range(0, 1);

// not x is 1 exactly when x is 0, whatever else x may take.
class not_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override { return args[0] == 0; }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    const unsigned int x = args[0];
    const iset d = domain_of(connectivity, x);
    solver& s = connectivity.get_solver();
    if (!d.contains(0)) return s.singleton_var(0);
    if (d == iset::singleton(0)) return s.singleton_var(1);
    // The result is Boolean whatever x is: {0, 1}, not all values.
    const unsigned int r =
        connectivity.record_operator(*this, eval, args, args_end, result, BOOLEAN, 1);
    // not(not x) is x only for a Boolean x; over more values it is x != 0.
    if (domain_of(connectivity, x).subset_of(BOOLEAN)) {
      const unsigned int back[1] = {r};
      tie(connectivity, x,
          connectivity.record_operator(*this, swap_eval(eval), back, back + 1, x, BOOLEAN, 0));
    }
    return r;
  }
  std::optional<int> reverse_eval(iset result_domain, unsigned int) const override {
    if (result_domain == iset::singleton(0)) return 1;
    if (result_domain == iset::singleton(1)) return 0;
    return std::nullopt;
  }
  eval_type arg_eval_type(const operator_connectivity&, eval_type eval, unsigned int,
                          const unsigned int*, const unsigned int*, unsigned int) const override {
    return swap_eval(eval);
  }
  void create_constraints(solver& s, eval_type eval, unsigned int owner_flag, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    if (owner_flag != 1) return;
    const unsigned int x = args[0];
    const iset dx = s.stack().domain(x);
    if (dx.empty()) return;
    intersect(s, r, BOOLEAN);
    const iset nonzero = ~iset::singleton(0);
    if (eval == eval_at_least) {
      post(s, std::make_unique<clause_propagator>(
                  std::initializer_list<iset>{iset::singleton(1), nonzero}),
           {r, x});
    } else if (eval == eval_at_most) {
      post(s, std::make_unique<clause_propagator>(
                  std::initializer_list<iset>{iset::singleton(0), iset::singleton(0)}),
           {r, x});
    } else if (dx.subset_of(BOOLEAN)) {
      post(s, std::make_unique<neq_propagator>(), {r, x});
    } else {
      post(s, std::make_unique<is_equal_propagator>(), {r, x, s.singleton_var(0)});
    }
  }
  const char* name() const override { return "not"; }
  double tightness() const override { return 0.5; }
};

// r = (a - b >= c) over the arguments (a, b, k), k the singleton of c.
class difference_ge_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override {
    return (long long)args[0] - args[1] >= args[2];
  }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int* args_end,
                             unsigned int result) const override {
    solver& s = connectivity.get_solver();
    const iset dk = domain_of(connectivity, args[2]);
    if (dk.empty()) return s.singleton_var(1);
    const long long c = dk.min();
    if (args[0] == args[1]) return s.singleton_var(c < 1);
    const iset da = domain_of(connectivity, args[0]);
    const iset db = domain_of(connectivity, args[1]);
    if (da.empty() || db.empty() || (long long)da.min() - db.max() >= c)
      return s.singleton_var(1);
    if (c > (long long)da.max() - db.min()) return s.singleton_var(0);
    return connectivity.record_operator(*this, eval, args, args_end, result, BOOLEAN);
  }
  eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                          unsigned int arg_index, const unsigned int*, const unsigned int*,
                          unsigned int result) const override {
    if (eval == eval_at_most || eval == eval_at_least)
      return arg_index == 0 ? eval : swap_eval(eval);
    if (result == operator_connectivity::NO_VARIABLE) return eval_both_bounds;
    const iset d = domain_of(connectivity, result);
    if (!d.contains(1)) return arg_index == 0 ? eval_at_least : eval_at_most;
    if (d.contains(0)) return eval_both_bounds;
    return arg_index == 0 ? eval_at_most : eval_at_least;
  }
  void create_constraints(solver& s, eval_type eval, unsigned int, unsigned int r,
                          const unsigned int* args, const unsigned int*) const override {
    const unsigned int a = args[0], b = args[1];
    const iset da = s.stack().domain(a), db = s.stack().domain(b), dk = s.stack().domain(args[2]);
    if (da.empty() || db.empty() || dk.empty()) return;
    const int c = dk.min();
    if ((long long)da.min() - db.max() >= c) {
      if (eval != eval_at_most) intersect(s, r, iset::singleton(1));
      return;
    }
    if ((a == b && c >= 1) || c > (long long)da.max() - db.min()) {
      if (eval != eval_at_least) intersect(s, r, iset::singleton(0));
      return;
    }
    intersect(s, r, BOOLEAN);
    const iset dr = s.stack().domain(r);
    if (dr.empty()) return;
    if (dr == iset::singleton(1)) {
      if (eval != eval_at_least) post(s, std::make_unique<difference_ge_propagator>(c), {a, b});
      return;
    }
    if (dr == iset::singleton(0)) {
      if (eval == eval_at_most) return;
      if (c == INT_MIN) throw std::runtime_error("Unsupported: x-y < k when k is INT_MIN");
      post(s, std::make_unique<difference_ge_propagator>(1 - c), {b, a});
      return;
    }
    if (eval & eval_at_most) post_literal_or_difference_ge(s, iset::singleton(0), c, r, a, b);
    if (eval & eval_at_least) post_literal_or_difference_ge(s, iset::singleton(1), 1 - c, r, b, a);
  }
  const char* name() const override { return "diff_ge"; }
  double tightness() const override { return 0.5; }
};

const difference_ge_definition& difference_ge() {
  return static_cast<const difference_ge_definition&>(
      *operator_definition_registry::get().find_predicate("difference_ge"));
}

// a >= b is a - b >= 0.
class ge_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override { return args[0] >= args[1]; }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int*,
                             unsigned int result) const override {
    const unsigned int diff[3] = {args[0], args[1], connectivity.get_solver().singleton_var(0)};
    return difference_ge().symbolic_eval(connectivity, eval, diff, diff + 3, result);
  }
  eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                          unsigned int arg_index, const unsigned int*, const unsigned int*,
                          unsigned int result) const override {
    return difference_ge().arg_eval_type(connectivity, eval, arg_index, nullptr, nullptr, result);
  }
  void create_constraints(solver&, eval_type, unsigned int, unsigned int, const unsigned int*,
                          const unsigned int*) const override {
    throw std::runtime_error(
        "ge_definition::create_constraints should not be called, use difference_ge instead");
  }
  const char* name() const override { return "ge"; }
  double tightness() const override { return difference_ge().tightness(); }
};

// a < b is b - a >= 1.
class lt_definition : public operator_definition {
 public:
  int eval(const int* args, const int*) const override { return args[0] < args[1]; }
  unsigned int symbolic_eval(operator_connectivity& connectivity, eval_type eval,
                             const unsigned int* args, const unsigned int*,
                             unsigned int result) const override {
    const unsigned int diff[3] = {args[1], args[0], connectivity.get_solver().singleton_var(1)};
    return difference_ge().symbolic_eval(connectivity, eval, diff, diff + 3, result);
  }
  eval_type arg_eval_type(const operator_connectivity& connectivity, eval_type eval,
                          unsigned int arg_index, const unsigned int*, const unsigned int*,
                          unsigned int result) const override {
    return difference_ge().arg_eval_type(connectivity, eval, 1 - arg_index, nullptr, nullptr,
                                         result);
  }
  void create_constraints(solver&, eval_type, unsigned int, unsigned int, const unsigned int*,
                          const unsigned int*) const override {
    throw std::runtime_error(
        "lt_definition::create_constraints should not be called, used difference_ge_definition "
        "instead");
  }
  const char* name() const override { return "lt"; }
  double tightness() const override { return 0.5; }
};

class gt_definition : public reversed_definition {
 public:
  const operator_definition& reversed_op() const override {
    return *operator_definition_registry::get().find(21);
  }
  const char* name() const override { return "gt"; }
};

class le_definition : public reversed_definition {
 public:
  const operator_definition& reversed_op() const override {
    return *operator_definition_registry::get().find(18);
  }
  const char* name() const override { return "le"; }
};

}  // namespace

//==== reversed operators ======================================================

int reversed_definition::eval(const int* args, const int*) const {
  const int swapped[2] = {args[1], args[0]};
  return reversed_op().eval(swapped, swapped + 2);
}

unsigned int reversed_definition::symbolic_eval(operator_connectivity& connectivity,
                                                eval_type eval, const unsigned int* args,
                                                const unsigned int*, unsigned int result) const {
  const unsigned int swapped[2] = {args[1], args[0]};
  return reversed_op().symbolic_eval(connectivity, eval, swapped, swapped + 2, result);
}

eval_type reversed_definition::arg_eval_type(const operator_connectivity& connectivity,
                                             eval_type eval, unsigned int arg_index,
                                             const unsigned int* args, const unsigned int*,
                                             unsigned int result) const {
  if (!args)
    return reversed_op().arg_eval_type(connectivity, eval, 1 - arg_index, nullptr, nullptr,
                                       result);
  const unsigned int swapped[2] = {args[1], args[0]};
  return reversed_op().arg_eval_type(connectivity, eval, 1 - arg_index, swapped, swapped + 2,
                                     result);
}

void reversed_definition::create_constraints(solver&, eval_type, unsigned int, unsigned int,
                                             const unsigned int*, const unsigned int*) const {
  throw std::runtime_error(
      std::string(name()) +
      "_definition::create_constraints should not be called, use the reversed operator instead ");
}

//==== the registry ============================================================

operator_definition_registry::operator_definition_registry() {
  m_by_type.emplace_back(6, std::make_unique<abs_definition>());
  m_by_type.emplace_back(7, std::make_unique<sum_definition>());
  m_by_type.emplace_back(8, std::make_unique<sub_definition>());
  m_by_type.emplace_back(9, std::make_unique<mul_definition>());
  m_by_type.emplace_back(10, std::make_unique<div_definition>());
  m_by_type.emplace_back(11, std::make_unique<mod_definition>());
  m_by_type.emplace_back(18, std::make_unique<ge_definition>());
  m_by_type.emplace_back(19, std::make_unique<gt_definition>());
  m_by_type.emplace_back(20, std::make_unique<le_definition>());
  m_by_type.emplace_back(21, std::make_unique<lt_definition>());
  m_by_type.emplace_back(22, std::make_unique<not_definition>());
  m_by_name.emplace_back("difference_ge", std::make_unique<difference_ge_definition>());
}

const operator_definition_registry& operator_definition_registry::get() {
  static const operator_definition_registry registry;
  return registry;
}

const operator_definition* operator_definition_registry::find(int node_type) const {
  const auto it = std::lower_bound(m_by_type.begin(), m_by_type.end(), node_type,
                                   [](const auto& entry, int t) { return entry.first < t; });
  return it != m_by_type.end() && it->first == node_type ? it->second.get() : nullptr;
}

const operator_definition* operator_definition_registry::find_predicate(
    const std::string& name) const {
  const auto it =
      std::lower_bound(m_by_name.begin(), m_by_name.end(), name,
                       [](const auto& entry, const std::string& n) { return entry.first < n; });
  return it != m_by_name.end() && it->first == name ? it->second.get() : nullptr;
}

}  // namespace zelk
