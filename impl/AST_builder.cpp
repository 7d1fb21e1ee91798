// Expression trees to variables and constraints, the equality bookkeeping, and
// the global constraints a model states directly.
//
// The solver's answers must agree with plain integer arithmetic on the tree (what
// an independent checker evaluates), while every variable lives in 0..31. Where an
// intermediate value could leave 0..31 the posting below would clip or fail where
// the arithmetic does not, and the model is refused with `unsupported` instead of
// answered wrongly; see check_range.
#include "impl/AST_builder.h"

#include <algorithm>
#include <climits>
#include <iostream>
#include <stdexcept>

#include "impl/all_different_propagator.h"
#include "impl/arithmetic_propagators.h"
#include "impl/clause_propagator.h"
#include "impl/comparison_propagators.h"
#include "impl/disjoint_propagation_algo.h"
#include "impl/interval_propagators.h"
#include "impl/neq_propagators.h"
#include "impl/solver.h"
#include "xcsp/AST.h"

namespace zelk {

using CSPXMLParser::AST;
using small_model::iset;
namespace xml = CSPXMLParser;

namespace {

const iset BOOLEAN = iset::clipped_range(0, 1);
const iset EMPTY;

// The power is posted strictly over 0..31 and the tree's is that of the integers:
// they agree only when no base and exponent of the domains give more than 31.
void post_pow(solver& s, const std::vector<unsigned int>& params) {
  const iset base = s.stack().domain(params[1]), exponent = s.stack().domain(params[2]);
  if (!base.empty() && !exponent.empty() &&
      pow_propagator::evaluate(base.max(), exponent.max()) > small_iset::MAX_DOMAIN)
    throw AST_builder::unsupported("Unsupported: a power can leave 0..31");
  add_constraint_on_distinct(s, std::make_unique<pow_propagator>(), params);
}

// The result, then the arguments; a repeated argument gets an equal copy.
void post_min(solver& s, const std::vector<unsigned int>& params) {
  add_constraint_on_distinct(s, std::make_unique<min_propagator>(), params);
}
void post_max(solver& s, const std::vector<unsigned int>& params) {
  add_constraint_on_distinct(s, std::make_unique<max_propagator>(), params);
}

bool is_boolean_valued(int type) {
  // xor is the bitwise one of its arguments: Boolean only on Boolean arguments.
  return type == xml::CST_BOOL ||
         (type >= xml::F_EQ && type <= xml::F_IFF && type != xml::F_XOR);
}

bool is_constant(const AST& ast) {
  return ast.getType() == xml::CST_INT || ast.getType() == xml::CST_BOOL;
}

int constant_value(const AST& ast) {
  if (ast.getType() == xml::CST_BOOL) return static_cast<const xml::ASTBoolean&>(ast).val;
  return static_cast<const xml::ASTInteger&>(ast).val;
}

bool in_universe(long long v) {
  return v >= small_iset::MIN_DOMAIN && v <= small_iset::MAX_DOMAIN;
}

const AST& arg(const AST& ast, int i) {
  const AST* a = ast.getArg(i);
  if (!a) throw std::runtime_error("missing argument for a function");
  return *a;
}

class solver_var_values : public xml::VariableValuation {
 public:
  explicit solver_var_values(const solver& s) : m_solver(s) {}
  int getVarValue(int id) const override { return m_solver.stack().domain(unsigned(id)).min(); }

 private:
  const solver& m_solver;
};

}  // namespace

//==== global constraints posted directly =========================================

// A variable named twice gets an equal copy (add_constraint_on_distinct), so that
// each parameter stands for a variable of its own: an all-different over it then
// fails, and the interval propagators see one value on both sides.
void post_all_different(solver& s, const std::vector<unsigned int>& vars) {
  add_constraint_on_distinct(s, std::make_unique<all_different_propagator>(unsigned(vars.size())),
                             vars);
}

void post_no_overlap(solver& s, int first_length, int second_length, unsigned int x0,
                     unsigned int x1) {
  // A length below 0 would wrap to a huge unsigned one and forbid both orders.
  if (first_length < 0 || second_length < 0)
    throw AST_builder::unsupported("Unsupported: a negative length in !overlap(...)");
  add_constraint_on_distinct(
      s, std::make_unique<no_overlap_propagator>(unsigned(first_length), unsigned(second_length)),
      {x0, x1});
}

void post_sub_interval(solver& s, int a, int b, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<sub_interval_propagator>(a, b), {x, y});
}

void post_no_sub_interval(solver& s, int a, int b, int k, unsigned int x, unsigned int y) {
  add_constraint_on_distinct(s, std::make_unique<no_sub_interval_propagator>(a, b, k), {x, y});
}

//==== basics ==================================================================

AST_builder::AST_builder(solver& s) : m_solver(s), m_connectivity(s) {}

eval_type AST_builder::to_eval_type(usage_type usage) {
  switch (usage) {
    case usage_exact: return eval_exact;
    case usage_at_most: return eval_at_most;
    case usage_at_least: return eval_at_least;
  }
  return eval_type(0);
}

AST_builder::usage_type AST_builder::to_usage_type(unsigned int eval) {
  if (eval == eval_at_most) return usage_at_most;
  if (eval == eval_at_least) return usage_at_least;
  return usage_exact;
}

const small_model::iset& AST_builder::domain(unsigned int var) const {
  return m_solver.stack().domain(var);
}

unsigned int AST_builder::rep(unsigned int var) const {
  return m_connectivity.equivalences().find(var);
}

unsigned int AST_builder::var_of(const std::vector<unsigned int>& vars, const AST& ast) const {
  const int id = static_cast<const xml::ASTVar&>(ast).id;
  if (id < 0 || std::size_t(id) >= vars.size())
    throw std::runtime_error("expression uses parameter " + std::to_string(id) + " but only " +
                             std::to_string(vars.size()) + " effective parameters are given");
  return vars[std::size_t(id)];
}

unsigned int AST_builder::constant_var(long long value) {
  if (!in_universe(value))
    throw unsupported("Unsupported: the value " + std::to_string(value) +
                      " of an expression lies outside 0..31");
  return m_solver.singleton_var(int(value));
}

void AST_builder::mark_unsat() {
  if (m_solver.num_variables() == 0) m_solver.add_var(EMPTY, "_unsat_", false);
  m_solver.set_var_domain(0, EMPTY, -1);
}

bool AST_builder::is_marked_unsat() const {
  return m_solver.num_variables() > 0 && domain(0).empty();
}

const small_model::iset& AST_builder::intersect_variable(small_model::iset set, unsigned int var) {
  const iset d = domain(var);
  const iset i = d & set;
  if (i == d) return domain(var);
  if (i.empty()) mark_unsat();
  m_solver.set_var_domain(var, i, -1);
  return domain(var);
}

unsigned int AST_builder::add_auxiliary_var(const char* prefix, unsigned int number,
                                            small_model::iset domain) {
  return add_auxiliary_var(std::string(prefix) + std::to_string(number), domain);
}

unsigned int AST_builder::add_auxiliary_var(const std::string& name, small_model::iset domain) {
  return m_solver.add_var(domain, name.c_str(), false);
}

void AST_builder::post(std::unique_ptr<constraint_propagator> p,
                       std::vector<unsigned int> params) {
  add_constraint_on_distinct(m_solver, std::move(p), std::move(params));
}

//==== expressions =============================================================

void AST_builder::connect_expr(const std::vector<unsigned int>& vars, unsigned int result,
                               const AST& ast, usage_type usage) {
  if (domain(result).empty()) {
    mark_unsat();
    return;
  }
  const int type = ast.getType();
  // Comparisons and connectives are 0 or 1 whatever their arguments: a result of
  // any other value can't stand for them (eq(eq(x,y),5) has no solution).
  if (type != xml::CST_BOOL && is_boolean_valued(type) && intersect_variable(BOOLEAN, result).empty())
    return;
  if (type == xml::F_ABS && arg(ast, 0).getType() == xml::F_SUB) {
    equate_variables(result, abs_of_difference(vars, arg(ast, 0)));
    return;
  }
  if (const operator_definition* definition = operator_definition_registry::get().find(type)) {
    equate_variables(result, operator_to_variable(*definition, vars, ast, result, usage));
    return;
  }
  switch (type) {
    case xml::VAR: equate_variables(result, var_of(vars, ast)); return;
    case xml::CST_BOOL:
    case xml::CST_INT: {
      // A constant outside 0..31 is never the value of a variable.
      const int value = constant_value(ast);
      intersect_variable(in_universe(value) ? iset::singleton(value) : EMPTY, result);
      return;
    }
    case xml::LIST: connect_predicate(vars, result, ast); return;
    case xml::F_NEG: connect_neg(vars, result, ast); return;
    case xml::F_POW: post_pow(m_solver, connect_arguments(vars, result, ast)); return;
    case xml::F_IF: connect_if(vars, result, ast); return;
    case xml::F_MIN:
    case xml::F_MAX: {
      const std::vector<unsigned int> params = connect_arguments(vars, result, ast);
      bound_extremum(params, ast.getType() == xml::F_MIN);
      (ast.getType() == xml::F_MIN ? post_min : post_max)(m_solver, params);
      return;
    }
    case xml::F_EQ:
    case xml::F_IFF: connect_eq(vars, result, true, ast, usage); return;
    case xml::F_NE:
    case xml::F_XOR: connect_eq(vars, result, false, ast, usage); return;
    case xml::F_AND: connect_and(vars, result, ast, usage); return;
    case xml::F_OR: connect_or(vars, result, ast, usage); return;
    default: throw unsupported("Unsupported expression type");
  }
}

unsigned int AST_builder::expression_to_variable(const std::vector<unsigned int>& vars,
                                                 const AST& ast, unsigned int hint,
                                                 usage_type usage) {
  const int type = ast.getType();
  if (type == xml::F_ABS && arg(ast, 0).getType() == xml::F_SUB)
    return abs_of_difference(vars, arg(ast, 0));
  if (const operator_definition* definition = operator_definition_registry::get().find(type))
    return operator_to_variable(*definition, vars, ast, hint, usage);
  switch (type) {
    case xml::CST_BOOL:
    case xml::CST_INT: return constant_var(constant_value(ast));
    case xml::VAR: return rep(var_of(vars, ast));
    case xml::F_NE: return ne_to_var(vars, ast, hint, usage);
    default: break;
  }
  unsigned int v = hint;
  if (v == NO_VARIABLE)
    v = add_auxiliary_var("_internal_subexpression_", m_solver.num_variables(),
                          is_boolean_valued(type) ? BOOLEAN : iset::full());
  connect_expr(vars, v, ast, usage);
  return v;
}

unsigned int AST_builder::expression_to_bool_var(const std::vector<unsigned int>& vars,
                                                 const AST& ast, usage_type usage) {
  const unsigned int v = expression_to_variable(vars, ast, NO_VARIABLE, usage);
  const iset d = domain(v);
  if (d.subset_of(BOOLEAN)) return v;
  if (d.intersects(BOOLEAN)) return truth_of(v);
  throw std::runtime_error(ast.getType() == xml::CST_INT
                               ? "putting a non 0,1 constant in a boolean context"
                               : "putting a non 0,1 expression in a boolean context");
}

unsigned int AST_builder::truth_of(unsigned int v) {
  // Any value but 0 is true, as the arithmetic reads it: not(not v) over the
  // values of v, each not posted exactly.
  return var_not_var(var_not_var(v, usage_exact), usage_exact);
}

void AST_builder::check_range(int type, unsigned int a, unsigned int b) const {
  // The arithmetic of the tree is that of the integers, the posting of sum and
  // sub is strict over 0..31 (sum_truncate_propagator: r = a + b, and sub as
  // a = r + b). Both agree exactly when the value provably stays in 0..31 given
  // the domains of the arguments; otherwise the model is refused rather than
  // answered with a clipped value. The same holds for folded constants, which
  // are singletons here.
  const iset da = domain(a);
  const iset db = domain(b);
  switch (type) {
    case xml::F_ADD:
      if ((long long)da.max() + db.max() > small_iset::MAX_DOMAIN)
        throw unsupported("Unsupported: a sum of values up to " + std::to_string(da.max()) +
                          " and " + std::to_string(db.max()) + " can leave 0..31");
      return;
    case xml::F_SUB:
      if (a != b && da.min() < db.max())
        throw unsupported("Unsupported: a difference of " + std::to_string(da.min()) + " and " +
                          std::to_string(db.max()) + " can be negative");
      return;
    case xml::F_MUL:
      if (da != iset::singleton(0) && db != iset::singleton(0) &&
          (long long)da.max() * db.max() > small_iset::MAX_DOMAIN)
        throw unsupported("Unsupported: a product can leave 0..31");
      return;
    case xml::F_DIV:
    case xml::F_MOD:
      if (db.contains(0)) throw unsupported("Unsupported: a division by a value that can be 0");
      return;
    default: return;
  }
}

unsigned int AST_builder::operator_to_variable(const operator_definition& definition,
                                               const std::vector<unsigned int>& vars,
                                               const AST& ast, unsigned int hint,
                                               usage_type usage) {
  const int n = ast.nbArg();
  std::vector<unsigned int> args(std::size_t(n), NO_VARIABLE);
  for (int i = 0; i < n; ++i)
    args[std::size_t(i)] = known_var_of_arg(definition, vars, hint, arg(ast, i), unsigned(i));
  const eval_type eval = to_eval_type(usage);
  for (int i = 0; i < n; ++i) {
    const usage_type arg_usage = to_usage_type(definition.arg_eval_type(
        m_connectivity, eval, unsigned(i), args.data(), args.data() + n, hint));
    args[std::size_t(i)] = expression_to_variable(vars, arg(ast, i), args[std::size_t(i)], arg_usage);
  }
  for (unsigned int v : args)
    if (domain(v).empty()) {
      mark_unsat();
      return m_solver.singleton_var(0);
    }
  if (n == 2) check_range(ast.getType(), args[0], args[1]);
  const unsigned int folded = evaluate_if_singletons(definition, args.data(), args.data() + n);
  if (folded != NO_VARIABLE) return folded;
  return definition.symbolic_eval(m_connectivity, eval, args.data(), args.data() + n, hint);
}

unsigned int AST_builder::known_var_of_arg(const operator_definition& definition,
                                           const std::vector<unsigned int>& vars,
                                           unsigned int hint, const AST& ast,
                                           unsigned int arg_index) {
  if (ast.getType() == xml::CST_INT) return constant_var(constant_value(ast));
  if (ast.getType() == xml::VAR) return var_of(vars, ast);
  if (hint == NO_VARIABLE) return NO_VARIABLE;
  const std::optional<int> value = definition.reverse_eval(domain(hint), arg_index);
  return value ? m_solver.singleton_var(*value) : NO_VARIABLE;
}

unsigned int AST_builder::evaluate_if_singletons(const operator_definition& definition,
                                                 const unsigned int* args_begin,
                                                 const unsigned int* args_end) {
  std::vector<int> values;
  for (const unsigned int* p = args_begin; p != args_end; ++p) {
    if (*p == NO_VARIABLE || !domain(*p).is_singleton()) return NO_VARIABLE;
    values.push_back(domain(*p).min());
  }
  return m_solver.singleton_var(definition.eval(values.data(), values.data() + values.size()));
}

unsigned int AST_builder::var_not_var(unsigned int x, usage_type usage) {
  if (domain(x).empty()) {
    mark_unsat();
    return x;
  }
  const unsigned int args[1] = {x};
  return operator_definition_registry::get().find(xml::F_NOT)->symbolic_eval(
      m_connectivity, to_eval_type(usage), args, args + 1, NO_VARIABLE);
}

unsigned int AST_builder::abs_of_difference(const std::vector<unsigned int>& vars,
                                            const AST& sub) {
  // |a - b| with a, b in 0..31 always lies in 0..31: posted exactly, whatever the
  // sign of the difference, so that ne(abs(sub(x,y)),k) keeps the solutions with
  // x < y.
  const unsigned int a = expression_to_variable(vars, arg(sub, 0), NO_VARIABLE, usage_exact);
  const unsigned int b = expression_to_variable(vars, arg(sub, 1), NO_VARIABLE, usage_exact);
  const iset da = domain(a), db = domain(b);
  if (da.empty() || db.empty()) {
    mark_unsat();
    return m_solver.singleton_var(0);
  }
  const operator_definition& minus = *operator_definition_registry::get().find(xml::F_SUB);
  const auto difference = [&](unsigned int x, unsigned int y) {
    const unsigned int args[2] = {x, y};
    const unsigned int folded = evaluate_if_singletons(minus, args, args + 2);
    if (folded != NO_VARIABLE) return folded;
    return minus.symbolic_eval(m_connectivity, eval_exact, args, args + 2, NO_VARIABLE);
  };
  if (a == b) return m_solver.singleton_var(0);
  if (da.min() >= db.max()) return difference(a, b);
  if (db.min() >= da.max()) return difference(b, a);
  const std::pair<unsigned int, unsigned int> key(std::min(a, b), std::max(a, b));
  const auto found = m_abs_differences.find(key);
  if (found != m_abs_differences.end()) return found->second;
  const long long top = std::max(da.max() - db.min(), db.max() - da.min());
  const unsigned int r = add_auxiliary_var("_abs_diff_", m_solver.num_variables(),
                                           iset::clipped_range(0, top));
  const unsigned int s = add_auxiliary_var("_abs_diff_sign_", m_solver.num_variables(), BOOLEAN);
  // r >= a - b and r >= b - a; s = 1 gives r <= a - b, s = 0 gives r <= b - a.
  post(std::make_unique<linear_combination_ge_propagator>(0, std::vector<int>{1, -1, 1}),
       {r, a, b});
  post(std::make_unique<linear_combination_ge_propagator>(0, std::vector<int>{1, 1, -1}),
       {r, a, b});
  typedef disjoint_propagator<linear_combination_ge_propagator, clause_propagation_algo>
      linear_or_clause;
  const linear_combination_ge_propagator at_most(0, std::vector<int>{1, -1, -1});
  auto positive = std::make_unique<linear_or_clause>(at_most);
  positive->update_literals() = {iset::singleton(0)};
  post(std::move(positive), {a, b, r, s});
  auto negative = std::make_unique<linear_or_clause>(at_most);
  negative->update_literals() = {iset::singleton(1)};
  post(std::move(negative), {b, a, r, s});
  m_abs_differences.emplace(key, r);
  return r;
}

std::vector<unsigned int> AST_builder::connect_arguments(const std::vector<unsigned int>& vars,
                                                         unsigned int result, const AST& ast) {
  // A propagator never has one variable as two of its parameters.
  std::vector<unsigned int> params{result};
  for (int i = 0; i < ast.nbArg(); ++i) {
    unsigned int v = expression_to_variable(vars, arg(ast, i), NO_VARIABLE, usage_exact);
    if (std::find(params.begin(), params.end(), v) != params.end() &&
        !domain(v).is_singleton()) {
      const std::string name = "_equivalent_" + std::to_string(m_solver.num_variables()) +
                               "_of_" + m_solver.stack().var_name(v);
      const unsigned int copy = add_auxiliary_var(name, domain(v));
      equate_variables(copy, v);
      v = copy;
    }
    params.push_back(v);
  }
  return params;
}

void AST_builder::connect_neg(const std::vector<unsigned int>& vars, unsigned int result,
                              const AST& ast) {
  // -x is negative for every positive x: only x = 0 keeps it in 0..31.
  const std::vector<unsigned int> params = connect_arguments(vars, result, ast);
  const iset d = domain(params[1]);
  if (!d.subset_of(iset::singleton(0)))
    throw unsupported("Unsupported: the negation of a value that can be positive");
  intersect_variable(d, result);
}

//==== equality bookkeeping ====================================================

bool AST_builder::are_eq(unsigned int x, unsigned int y) const {
  const unsigned int a = rep(x), b = rep(y);
  return a == b || (domain(a).is_singleton() && domain(a) == domain(b));
}

bool AST_builder::are_ne(unsigned int x, unsigned int y) const {
  const unsigned int a = rep(x), b = rep(y);
  if (domain(a).disjoint(domain(b))) return true;
  return a < m_diff_sets.size() && m_diff_sets[a].count(b) != 0;
}

void AST_builder::equate_variables(unsigned int x, unsigned int y) {
  const unsigned int a = rep(x), b = rep(y);
  if (a == b) return;
  if (are_ne(a, b)) {
    mark_unsat();
    return;
  }
  intersect_variable(domain(x), y);
  intersect_variable(domain(y), x);
  m_connectivity.equivalences().unite(a, b);
  m_solver.add_constraint(std::make_unique<equal_propagator>()) << x << y;
  const unsigned int stays = rep(a);
  replace_var_in_diff_set(stays == a ? b : a, stays);
}

void AST_builder::differentiate_variables(unsigned int x, unsigned int y) {
  if (x == y) {
    mark_unsat();
    return;
  }
  m_solver.add_constraint(std::make_unique<neq_propagator>()) << x << y;
  mark_unequal_variables(x, y);
}

void AST_builder::mark_unequal_variables(unsigned int x, unsigned int y) {
  const unsigned int a = rep(x), b = rep(y);
  if (a == b) {
    mark_unsat();
    return;
  }
  if (m_diff_sets.size() <= std::max(a, b)) m_diff_sets.resize(std::max(a, b) + 1);
  m_diff_sets[a].insert(b);
  m_diff_sets[b].insert(a);
}

void AST_builder::replace_var_in_diff_set(unsigned int from, unsigned int to) {
  if (from >= m_diff_sets.size() || m_diff_sets[from].empty()) return;
  if (m_diff_sets.size() <= to) m_diff_sets.resize(to + 1);
  const std::set<unsigned int> partners = std::move(m_diff_sets[from]);
  m_diff_sets[from].clear();
  for (unsigned int p : partners) {
    m_diff_sets[p].erase(from);
    if (p == to) continue;
    m_diff_sets[p].insert(to);
    m_diff_sets[to].insert(p);
  }
}

bool AST_builder::is_diff_with_all(unsigned int v, const std::vector<unsigned int>& list) const {
  if (v >= m_diff_sets.size() || m_diff_sets[v].size() < list.size()) return false;
  for (unsigned int w : list)
    if (!m_diff_sets[v].count(w)) return false;
  return true;
}

//==== equalities and disequalities ============================================

void AST_builder::connect_eq(const std::vector<unsigned int>& vars, unsigned int result,
                             bool is_eq, const AST& ast, usage_type usage) {
  const AST& left = arg(ast, 0);
  const AST& right = arg(ast, 1);
  if (ast.getType() == xml::F_XOR) {
    // xor is bitwise in the arithmetic: it is a != b only over 0 and 1.
    const unsigned int a = expression_to_variable(vars, left, NO_VARIABLE, usage_exact);
    const unsigned int b = expression_to_variable(vars, right, NO_VARIABLE, usage_exact);
    if (!domain(a).subset_of(BOOLEAN) || !domain(b).subset_of(BOOLEAN))
      throw unsupported("Unsupported: xor of values other than 0 and 1");
    if (intersect_variable(BOOLEAN, result).empty()) return;
    const iset r = domain(result);
    connect_eq_by_vars(result, false, r == iset::singleton(0), r == iset::singleton(1), a, b,
                       usage);
    return;
  }
  // Only 0 and 1 can be the value of an equality.
  if (intersect_variable(BOOLEAN, result).empty()) return;
  const iset r = domain(result);
  const int holds = is_eq ? 1 : 0;
  bool must_eq = false, must_ne = false;
  unsigned int hint = NO_VARIABLE;
  unsigned int a;
  if (!r.is_singleton()) {
    a = expression_to_variable(vars, left, NO_VARIABLE, usage_exact);
  } else if (r.min() == holds) {
    if (connect_if_simple_eq(vars, left, right) || connect_if_simple_eq(vars, right, left)) return;
    a = expression_to_variable(vars, left, NO_VARIABLE, usage_exact);
    must_eq = true;
    hint = a;
  } else {
    if (connect_if_simple_ne(vars, left, right) || connect_if_simple_ne(vars, right, left)) return;
    a = expression_to_variable(vars, left, NO_VARIABLE, usage_exact);
    must_ne = true;
  }
  const unsigned int b = expression_to_variable(vars, right, hint, usage_exact);
  connect_eq_by_vars(result, is_eq, must_eq, must_ne, a, b, usage);
}

bool AST_builder::connect_if_simple_eq(const std::vector<unsigned int>& vars, const AST& a,
                                       const AST& b) {
  unsigned int v;
  if (a.getType() == xml::VAR) {
    v = rep(var_of(vars, a));
  } else if (is_constant(a)) {
    const int value = constant_value(a);
    if (!in_universe(value)) {
      // No variable takes it; a refused expression still refuses.
      expression_to_variable(vars, b, NO_VARIABLE, usage_exact);
      mark_unsat();
      return true;
    }
    v = rep(m_solver.singleton_var(value));
  } else {
    return false;
  }
  connect_expr(vars, v, b, usage_exact);
  return true;
}

bool AST_builder::connect_if_simple_ne(const std::vector<unsigned int>& vars, const AST& a,
                                       const AST& b) {
  int v;
  if (is_constant(a)) {
    v = constant_value(a);
  } else if (a.getType() == xml::VAR && domain(rep(var_of(vars, a))).is_singleton()) {
    v = domain(rep(var_of(vars, a))).min();
  } else {
    return false;
  }
  if (is_boolean_valued(b.getType())) {
    if (v < 0 || v > 1) return true;
    connect_expr(vars, rep(m_solver.singleton_var(v ^ 1)), b, usage_exact);
    return true;
  }
  if (b.getType() == xml::VAR) {
    if (in_universe(v)) intersect_variable(~iset::singleton(v), rep(var_of(vars, b)));
    return true;
  }
  return false;
}

void AST_builder::connect_eq_by_vars(unsigned int result, bool is_eq, bool must_eq, bool must_ne,
                                     unsigned int x, unsigned int y, usage_type usage) {
  const unsigned int a = rep(x), b = rep(y);
  if (are_eq(a, b)) {
    equate_variables(m_solver.singleton_var(is_eq), result);
    return;
  }
  if (are_ne(a, b)) {
    equate_variables(m_solver.singleton_var(!is_eq), result);
    return;
  }
  if (must_eq) {
    equate_variables(a, b);
    return;
  }
  if (must_ne) {
    differentiate_variables(a, b);
    return;
  }
  if (usage != usage_exact) {
    const iset literal = iset::singleton(usage == usage_at_most ? 0 : 1);
    if ((usage == usage_at_most) == is_eq)
      post_literal_or_equal(m_solver, literal, result, a, b);
    else
      post_literal_or_neq(literal, result, a, b);
    return;
  }
  if (domain(a).subset_of(BOOLEAN) && domain(b).subset_of(BOOLEAN)) {
    connect_parity({result, a, b}, is_eq);
    return;
  }
  const unsigned int r = is_eq ? result : var_not_var(result, usage_exact);
  post(std::make_unique<is_equal_propagator>(), {r, a, b});
}

void AST_builder::post_literal_or_neq(small_model::iset literal, unsigned int r, unsigned int a,
                                      unsigned int b) {
  post(std::make_unique<literal_or_neq_propagator>(literal), {r, a, b});
}

unsigned int AST_builder::ne_to_var(const std::vector<unsigned int>& vars, const AST& ast,
                                    unsigned int hint, usage_type usage) {
  const AST& left = arg(ast, 0);
  const AST& right = arg(ast, 1);
  if (left.getType() != xml::VAR || right.getType() != xml::VAR) {
    const unsigned int v =
        add_auxiliary_var("_internal_subexpression_", m_solver.num_variables(), BOOLEAN);
    connect_expr(vars, v, ast, usage);
    return v;
  }
  const unsigned int x = var_of(vars, left), y = var_of(vars, right);
  ne_entry& entry = m_ne_vars[{std::min(x, y), std::max(x, y)}];
  unsigned int old = 0;
  if (entry.variable != 0) {
    if (entry.usage == usage_exact || entry.usage == usage) return entry.variable;
    old = entry.variable;
    entry = ne_entry{usage_exact, hint};
    if (hint != NO_VARIABLE) {
      connect_expr(vars, hint, ast, usage_exact);
      equate_variables(old, hint);
      return hint;
    }
  } else {
    entry = ne_entry{usage, hint};
    if (hint != NO_VARIABLE) {
      connect_expr(vars, hint, ast, usage);
      return hint;
    }
  }
  const std::string name = "_internal_" + m_solver.stack().var_name(std::min(x, y)) + "_ne_" +
                           m_solver.stack().var_name(std::max(x, y));
  const unsigned int v = add_auxiliary_var(name, BOOLEAN);
  // The map may have moved while connecting: look the entry up again.
  m_ne_vars[{std::min(x, y), std::max(x, y)}].variable = v;
  const usage_type entry_usage = m_ne_vars[{std::min(x, y), std::max(x, y)}].usage;
  connect_expr(vars, v, ast, entry_usage);
  if (old != 0) equate_variables(old, v);
  return v;
}

//==== conditionals and connectives ============================================

void AST_builder::bound_extremum(const std::vector<unsigned int>& params, bool is_min) {
  // Cut the result to the range an extremum of the arguments can reach, so that
  // an enclosing sum is judged by it rather than by 0..31.
  long long lo = is_min ? 31 : 0, hi = is_min ? 31 : 0;
  for (std::size_t i = 1; i < params.size(); ++i) {
    const iset d = domain(params[i]);
    if (d.empty()) return;  // the model is unsatisfiable; the propagator says so
    if (is_min) {
      lo = std::min<long long>(lo, d.min());
      hi = std::min<long long>(hi, d.max());
    } else {
      lo = std::max<long long>(lo, d.min());
      hi = std::max<long long>(hi, d.max());
    }
  }
  if (params.size() > 1) intersect_variable(iset::clipped_range(lo, hi), params[0]);
}

void AST_builder::connect_if(const std::vector<unsigned int>& vars, unsigned int result,
                             const AST& ast) {
  const unsigned int c = expression_to_bool_var(vars, arg(ast, 0), usage_exact);
  const iset dc = domain(c);
  if (dc.empty()) {
    mark_unsat();
  } else if (dc == iset::singleton(1)) {
    connect_expr(vars, result, arg(ast, 1), usage_exact);
  } else if (dc == iset::singleton(0)) {
    connect_expr(vars, result, arg(ast, 2), usage_exact);
  } else {
    const unsigned int t = expression_to_variable(vars, arg(ast, 1), NO_VARIABLE, usage_exact);
    const unsigned int e = expression_to_variable(vars, arg(ast, 2), NO_VARIABLE, usage_exact);
    // The result starts within what the two branches can take, so that an
    // enclosing sum is judged by it rather than by 0..31.
    intersect_variable(domain(t) | domain(e), result);
    post(std::make_unique<if_then_else_propagator>(), {result, c, t, e});
  }
}

void AST_builder::insert_descendants(const AST& ast, int type, std::vector<const AST*>& list) {
  if (ast.getType() != type) {
    list.push_back(&ast);
    return;
  }
  for (int i = 0; i < ast.nbArg(); ++i) insert_descendants(arg(ast, i), type, list);
}

void AST_builder::collect_or_vars(std::vector<unsigned int>& out, const AST& ast,
                                  const std::vector<unsigned int>& vars, usage_type usage) {
  std::vector<const AST*> list;
  insert_descendants(ast, ast.getType(), list);
  for (const AST* d : list) out.push_back(expression_to_bool_var(vars, *d, usage));
  for (std::size_t i = 0; i < out.size();) {
    out[i] = rep(out[i]);
    const iset d = domain(out[i]);
    if (!d.contains(0)) {
      out.assign(1, m_solver.singleton_var(1));
      return;
    }
    if (d == iset::singleton(0)) {
      out[i] = out.back();
      out.pop_back();
      continue;
    }
    ++i;
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
}

void AST_builder::collect_and_vars(std::vector<unsigned int>& out, const AST& ast,
                                   const std::vector<unsigned int>& vars, usage_type usage) {
  std::vector<const AST*> list;
  insert_descendants(ast, ast.getType(), list);
  for (const AST* d : list) out.push_back(expression_to_bool_var(vars, *d, usage));
  for (std::size_t i = 0; i < out.size();) {
    out[i] = rep(out[i]);
    const iset d = domain(out[i]);
    if (d == iset::singleton(0) || d.empty()) {
      out.assign(1, m_solver.singleton_var(0));
      return;
    }
    if (!d.contains(0)) {
      out[i] = out.back();
      out.pop_back();
      continue;
    }
    ++i;
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
}

void AST_builder::connect_or(const std::vector<unsigned int>& vars, unsigned int result,
                             const AST& ast, usage_type usage) {
  if (intersect_variable(BOOLEAN, result).empty()) return;
  const bool r_true = domain(result) == iset::singleton(1);
  const bool r_false = domain(result) == iset::singleton(0);
  std::vector<unsigned int> out;
  collect_or_vars(out, ast, vars, r_true ? usage_at_most : usage);
  const iset one = iset::singleton(1), zero = iset::singleton(0);
  if (usage != usage_at_least && !(r_false && usage == usage_at_most)) {
    // r implies the disjunction.
    std::vector<unsigned int> clause_vars(out);
    std::vector<const iset*> sets(out.size(), &one);
    clause_vars.push_back(result);
    sets.push_back(&zero);
    insert_clause(clause_vars.data(), sets.data(), unsigned(clause_vars.size()));
  }
  if (usage != usage_at_most && !r_true)
    for (unsigned int x : out) insert_clause(result, one, x, zero);  // each disjunct implies r
}

void AST_builder::connect_and(const std::vector<unsigned int>& vars, unsigned int result,
                              const AST& ast, usage_type usage) {
  if (intersect_variable(BOOLEAN, result).empty()) return;
  const bool r_true = domain(result) == iset::singleton(1);
  const bool r_false = domain(result) == iset::singleton(0);
  // r true and the conjunction implying r, or r false and r implying it: nothing to say.
  if ((r_true && usage == usage_at_least) || (r_false && usage == usage_at_most)) return;
  if (r_true) {
    for (int i = 0; i < 2; ++i) require_true(vars, arg(ast, i));
    return;
  }
  std::vector<unsigned int> out;
  collect_and_vars(out, ast, vars, r_false ? usage_at_least : usage);
  const iset one = iset::singleton(1), zero = iset::singleton(0);
  if (usage != usage_at_most) {
    // The conjunction implies r.
    std::vector<unsigned int> clause_vars(out);
    std::vector<const iset*> sets(out.size(), &zero);
    clause_vars.push_back(result);
    sets.push_back(&one);
    insert_clause(clause_vars.data(), sets.data(), unsigned(clause_vars.size()));
  }
  if (!r_false && usage != usage_at_least)
    for (unsigned int x : out) insert_clause(result, zero, x, one);  // r implies each conjunct
}

void AST_builder::require_true(const std::vector<unsigned int>& vars, const AST& ast) {
  const int type = ast.getType();
  if (type == xml::VAR) {
    // Any value but 0 is true.
    intersect_variable(~iset::singleton(0), rep(var_of(vars, ast)));
  } else if (is_constant(ast)) {
    if (constant_value(ast) == 0) mark_unsat();
  } else if (is_boolean_valued(type)) {
    connect_expr(vars, m_solver.singleton_var(1), ast, usage_exact);
  } else {
    intersect_variable(iset::singleton(1), expression_to_bool_var(vars, ast, usage_at_most));
  }
}

//==== clauses =================================================================

void AST_builder::insert_clause(unsigned int x, small_model::iset x_set, unsigned int y,
                                small_model::iset y_set) {
  const unsigned int v[2] = {x, y};
  const iset* s[2] = {&x_set, &y_set};
  insert_clause(v, s, 2);
}

void AST_builder::insert_clause(unsigned int x, small_model::iset x_set, unsigned int y,
                                small_model::iset y_set, unsigned int z,
                                small_model::iset z_set) {
  const unsigned int v[3] = {x, y, z};
  const iset* s[3] = {&x_set, &y_set, &z_set};
  insert_clause(v, s, 3);
}

void AST_builder::insert_clause(const unsigned int* vars, const small_model::iset* const* sets,
                                unsigned int n) {
  // One literal per variable: a variable named twice takes the union of its sets.
  std::vector<unsigned int> clause_vars;
  std::vector<iset> clause_sets;
  for (unsigned int i = 0; i < n; ++i) {
    const auto at = std::find(clause_vars.begin(), clause_vars.end(), vars[i]);
    if (at != clause_vars.end()) {
      clause_sets[std::size_t(at - clause_vars.begin())] =
          clause_sets[std::size_t(at - clause_vars.begin())] | *sets[i];
    } else {
      clause_vars.push_back(vars[i]);
      clause_sets.push_back(*sets[i]);
    }
  }
  unsigned int count = 0;
  std::size_t last = 0;
  for (std::size_t i = 0; i < clause_vars.size(); ++i) {
    const iset d = domain(clause_vars[i]);
    const iset m = d & clause_sets[i];
    if (m == d) return;
    if (!m.empty()) {
      ++count;
      last = i;
    }
  }
  if (count == 0) {
    mark_unsat();
    return;
  }
  if (count == 1) {
    intersect_variable(clause_sets[last], clause_vars[last]);
    return;
  }
  std::vector<iset> literals;
  std::vector<unsigned int> params;
  for (std::size_t i = 0; i < clause_vars.size(); ++i)
    if (domain(clause_vars[i]).intersects(clause_sets[i])) {
      literals.push_back(clause_sets[i]);
      params.push_back(clause_vars[i]);
    }
  constraint_connectivity_info& info =
      m_solver.add_constraint(std::make_unique<clause_propagator>(std::move(literals)));
  for (unsigned int v : params) info << v;
}

//==== global constraints ======================================================

void AST_builder::connect_predicate(const std::vector<unsigned int>& vars, unsigned int result,
                                    const AST& list) {
  if (list.nbArg() == 0 || arg(list, 0).getType() != xml::VAR)
    throw unsupported("Unsupported expression type");
  const std::string& name = static_cast<const xml::ASTVar&>(arg(list, 0)).name;
  if (name != "overlap" && name != "sub_interval" && name != "all_diff")
    throw unsupported(name + ": unsupported predicate");
  std::vector<unsigned int> args;
  for (int i = 1; i < list.nbArg(); ++i)
    args.push_back(expression_to_variable(vars, arg(list, i), NO_VARIABLE, usage_exact));
  if (name == "overlap")
    connect_overlap(result, args);
  else if (name == "sub_interval")
    connect_sub_interval(result, args);
  else if (domain(result) != iset::singleton(1))
    // The global constraint has no negated or reified form.
    throw unsupported("Only an unconditional all_diff(...) is supported");
  else
    connect_all_diff(args, true);
}

void AST_builder::connect_overlap(unsigned int result, const std::vector<unsigned int>& args) {
  if (domain(result) != iset::singleton(0))
    throw unsupported("Only an unconditional !overlap(...) is supported");
  if (args.size() != 4)
    throw unsupported("Expecting exactly 4 arguments for overlap(start1,len1,start2,len2)");
  if (!domain(args[1]).is_singleton() || !domain(args[3]).is_singleton())
    throw unsupported(
        "Expecting singletons for the length in overlap(start1,len1,start2,len2)");
  post_no_overlap(m_solver, domain(args[1]).min(), domain(args[3]).min(), args[0], args[2]);
}

void AST_builder::connect_sub_interval(unsigned int result,
                                       const std::vector<unsigned int>& args) {
  const iset r = domain(result);
  if (!r.is_singleton()) throw unsupported("Only an unconditional sub_interval(...) is supported");
  if (args.size() < 4 || (r.min() == 0 && args.size() > 5))
    throw unsupported(
        "Expecting 4 or 5 arguments for sub_interval(from1,to1,from2,to2[,k]), which means "
        "[from1, to1-k] subseteq[from2,to2]");
  if (!domain(args[2]).is_singleton() || !domain(args[3]).is_singleton() ||
      (args.size() > 4 && domain(args[4]).size() > 1))
    throw unsupported(
        "Need constant arguments const_from2,const_to2,k for "
        "sub_interval(from1,to1,const_from2,const_to2[,k])");
  // An offset whose variable has no value left: no interval satisfies the predicate.
  if (args.size() > 4 && domain(args[4]).empty()) {
    mark_unsat();
    return;
  }
  const int from2 = domain(args[2]).min(), to2 = domain(args[3]).min();
  const int k = args.size() > 4 ? domain(args[4]).min() : 0;
  // The positive propagator has no offset: [from1, to1-k] for k other than 0 would be
  // read as [from1, to1].
  if (r.min() != 0 && k != 0)
    throw unsupported("Only sub_interval(from1,to1,from2,to2) without an offset is supported");
  if (r.min() != 0)
    post_sub_interval(m_solver, from2, to2, args[0], args[1]);
  else
    post_no_sub_interval(m_solver, from2, to2, k, args[0], args[1]);
}

void AST_builder::connect_all_diff(const std::vector<unsigned int>& vars, bool print_prefix) {
  post_all_different(m_solver, vars);
  // One whole comment line per constraint. The first ends the line the driver left
  // open ("Constructing <file> "); each leaves the cursor at the start of a line.
  if (print_prefix) std::cout << "\n";
  std::cout << m_solver.comment_prefix << " deduced all_different(";
  for (std::size_t i = 0; i < vars.size(); ++i) {
    if (i) std::cout << ",";
    std::cout << m_solver.stack().var_name(vars[i]);
  }
  std::cout << ")\n";
}

void AST_builder::connect_parity(const std::vector<unsigned int>& vars, bool parity) {
  bool p = parity;
  std::vector<unsigned int> free;
  for (unsigned int v : vars) {
    const iset d = domain(v);
    if (d.empty() || d.min() > 1) {
      // No value of v is 0 or 1.
      mark_unsat();
      return;
    }
    if (d.is_singleton())
      p = p != (d.min() != 0);
    else
      free.push_back(v);
  }
  // x xor x is 0: a variable named twice drops out.
  std::sort(free.begin(), free.end());
  std::vector<unsigned int> distinct;
  for (std::size_t i = 0; i < free.size(); ++i) {
    if (i + 1 < free.size() && free[i] == free[i + 1]) {
      ++i;
      continue;
    }
    distinct.push_back(free[i]);
  }
  if (distinct.empty()) {
    if (!p) return;
    mark_unsat();
    std::cout << m_solver.comment_prefix << " UNSAT because XOR of ";
    for (unsigned int v : vars) std::cout << m_solver.stack().var_name(v) << ", ";
    std::cout << "does not give " << parity << "\n";
    return;
  }
  if (distinct.size() == 1) {
    intersect_variable(iset::singleton(p), distinct[0]);
  } else if (distinct.size() == 2 && !p) {
    equate_variables(distinct[0], distinct[1]);
  } else {
    post(std::make_unique<sum_mod_propagator>(2, p), distinct);
  }
}

void AST_builder::instantiate_weighted_sum(const std::vector<int>& coefficients,
                                           const std::vector<unsigned int>& vars, bool is_ge,
                                           long long limit) {
  // sum c*x <= limit is posted as sum -c*x >= -limit.
  std::vector<int> c(coefficients);
  if (!is_ge)
    for (int& k : c) {
      if (k == INT_MIN) throw unsupported("coefficients of weightedsum are overflowing");
      k = -k;
    }
  if (limit == LLONG_MIN) throw unsupported("Limit of weightedsum is overflowing");
  const long long wide_bound = is_ge ? limit : -limit;
  if (wide_bound < INT_MIN || wide_bound > INT_MAX)
    throw unsupported("Limit of weightedsum is overflowing");
  const int bound = int(wide_bound);
  if (vars.empty()) {
    if (bound > 0) mark_unsat();
    return;
  }
  post(std::make_unique<linear_combination_ge_propagator>(bound, std::move(c)), vars);
}

void AST_builder::instantiate_all_different(const std::vector<unsigned int>& vars) {
  // Up to 31 variables, the disequalities propagate at once and the global
  // constraint (from 4 on) finds the Hall sets behind them; from 32 on, the global
  // constraint alone, which fails past 32.
  if (vars.size() < 32)
    for (std::size_t i = 1; i < vars.size(); ++i)
      for (std::size_t j = 0; j < i; ++j) {
        if (vars[i] == vars[j]) {
          mark_unsat();
          continue;
        }
        m_solver.add_constraint(std::make_unique<neq_propagator>()) << vars[i] << vars[j];
      }
  if (vars.size() >= 4) post_all_different(m_solver, vars);
}

void AST_builder::detect_all_diff() {
  std::vector<bool> done(m_diff_sets.size(), false);
  unsigned int found = 0;
  for (unsigned int i = 0; i < m_diff_sets.size(); ++i) {
    if (done[i] || m_diff_sets[i].size() < 2) continue;
    std::vector<unsigned int> candidates;
    for (unsigned int p : m_diff_sets[i])
      if (p < m_diff_sets.size() && m_diff_sets[p].size() > 1) candidates.push_back(p);
    if (candidates.size() < 2) continue;
    std::vector<unsigned int> clique;
    for (unsigned int c : candidates)
      if (is_diff_with_all(c, clique)) clique.push_back(c);
    clique.push_back(i);
    if (clique.size() < 3) continue;
    post_detected_all_diff(clique, found == 0);
    for (unsigned int v : clique) done[v] = true;
    ++found;
  }
}

void AST_builder::post_detected_all_diff(const std::vector<unsigned int>& clique,
                                         bool print_prefix) {
  connect_all_diff(clique, print_prefix);
}

int AST_builder::evaluate(const AST& ast) const {
  return ast.value(solver_var_values(m_solver));
}

}  // namespace zelk
