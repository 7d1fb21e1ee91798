#include "text_formats/fzn_solver.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "fzn_parser.hpp"
#include "xcsp/AST.h"

namespace zelk {

namespace xml = CSPXMLParser;
using small_model::iset;
typedef parser_context::var_or_value var_or_value;

//==== the solver ===========================================================================

fzn_solver::fzn_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
                       table_propagator_base::memory_manager& memory)
    : context(*this, fzn_scanner_methods::get(), &memory, &in, name) {
  comment_prefix = "%";
  status_prefix = "% s";
  objective_prefix = "% previous objective";
  context.detect_all_different = flags.global_all_different != 0;
  register_constraint_types();
  // A file that could not be opened is no empty model, which would be satisfiable.
  if (in.fail() && !in.eof()) {
    std::cerr << name << ": can't read the input" << std::endl;
    throw std::runtime_error(name + ": Parsing failed");
  }
  yy::fzn_parser parser(context);
  flags.apply(*this);
  parser.set_debug_stream(std::cout);
  if (parser.parse() != 0) throw std::runtime_error(name + ": Parsing failed");
  if (!context.create_constraints(std::cout)) throw std::runtime_error(name + ": Parsing failed");
}

void fzn_solver::print_solution(std::ostream& out) const {
  context.print_solution(out);
  out << "----------\n";
}

int fzn_solver::evaluate_objective() const {
  return context.builder.evaluate(*context.objective_expression);
}

void fzn_solver::solve_and_print(std::ostream& out) {
  out << "% Solving " << std::flush;
  const result_type r = solve(&out);
  out << "% " << total_backtracks() << " backtracks";
  if (restarts() != 0) out << " " << restarts() << " restarts";
  out << "\n";
  out << "% " << non_fallback_combines() << " non-fallback combines "
      << "out of " << combines() << " total\n";
  out << "% learned " << non_fallback_learned() << " non-fallback constraints\n";
  switch (r) {
    case SAT: print_solution(out); break;
    case UNSAT: out << "=====UNSATISFIABLE=====\n"; break;
    case BACKTRACK_LIMIT: out << "% Too many backtracks\n" << "=====UNKNOWN=====\n"; break;
    case TIMEOUT: out << "% Timeout\n" << "=====UNKNOWN=====\n"; break;
    case MEMOUT: out << "% Out of memory\n" << "=====UNKNOWN=====\n"; break;
    case SAT_DONE: break;
    case OPTIMAL: out << "==========\n"; break;
  }
  out << "% ASSIGNMENTS " << assignments() << std::endl;
}

void fzn_solver::register_constraint_types() {
  using namespace fzn_constraint;
  auto& types = context.constraint_types;
  types["all_different_int"] = std::make_unique<all_different_type>();
  types["array_bool_and"] = std::make_unique<array_FUNC<xml::FunctionAnd, 1>>();
  types["array_bool_or"] = std::make_unique<array_FUNC<xml::FunctionOr, 0>>();
  types["array_bool_xor"] = std::make_unique<array_xor>();
  for (const char* name : {"array_bool_element", "array_int_element", "array_var_bool_element",
                           "array_var_int_element"})
    types[name] = std::make_unique<array_element>();
  for (const char* name : {"bool2int", "bool_eq", "int_eq"})
    types[name] = std::make_unique<int_OP<xml::FunctionEQ>>();
  for (const char* name : {"bool_not", "int_ne"})
    types[name] = std::make_unique<int_OP<xml::FunctionNE>>();
  types["int_le"] = std::make_unique<int_OP<xml::FunctionLE>>();
  types["int_lt"] = std::make_unique<int_OP<xml::FunctionLT>>();
  types["bool_and"] = std::make_unique<int_FUNC<xml::FunctionAnd>>();
  types["bool_or"] = std::make_unique<int_FUNC<xml::FunctionOr>>();
  types["bool_xor"] = std::make_unique<int_FUNC<xml::FunctionXor>>();
  for (const char* name : {"bool_eq_reif", "int_eq_reif"})
    types[name] = std::make_unique<int_FUNC<xml::FunctionEQ>>();
  types["int_ne_reif"] = std::make_unique<int_FUNC<xml::FunctionNE>>();
  types["int_le_reif"] = std::make_unique<int_FUNC<xml::FunctionLE>>();
  types["int_lt_reif"] = std::make_unique<int_FUNC<xml::FunctionLT>>();
  types["int_div"] = std::make_unique<int_FUNC<xml::FunctionDiv>>();
  types["int_mod"] = std::make_unique<int_FUNC<xml::FunctionMod>>();
  types["int_times"] = std::make_unique<int_FUNC<xml::FunctionMul>>();
  types["int_min"] = std::make_unique<int_FUNC<xml::FunctionMin>>();
  types["int_max"] = std::make_unique<int_FUNC<xml::FunctionMax>>();
  types["int_plus"] = std::make_unique<plus_constraint_type>();
  types["int_abs"] = std::make_unique<abs_constraint_type>();
  types["bool_clause"] = std::make_unique<bool_clause>();
  types["bool_le"] = std::make_unique<fzn_constraint::bool_le>();
  types["bool_lt"] = std::make_unique<fzn_constraint::bool_lt>();
  types["bool_le_reif"] = std::make_unique<fzn_constraint::bool_le_reif>();
  types["bool_lt_reif"] = std::make_unique<fzn_constraint::bool_lt_reif>();
  types["bool_lin_eq"] = std::make_unique<lin_constraint_type>(0);
  types["int_lin_eq"] = std::make_unique<lin_constraint_type>(0);
  types["bool_lin_le"] = std::make_unique<lin_constraint_type>(1);
  types["int_lin_le"] = std::make_unique<lin_constraint_type>(1);
  types["int_lin_ne"] = std::make_unique<lin_constraint_type>(2);
  types["int_lin_eq_reif"] = std::make_unique<lin_reif_constraint_type>(0);
  types["int_lin_le_reif"] = std::make_unique<lin_reif_constraint_type>(1);
  types["int_lin_ne_reif"] = std::make_unique<lin_reif_constraint_type>(2);
  types["zelk_table_bool"] = std::make_unique<table_constraint>();
  types["zelk_table_int"] = std::make_unique<table_constraint>();
  types["zelk_no_overlap"] = std::make_unique<no_overlap_constraint>();
  types["zelk_sub_interval"] = std::make_unique<sub_interval_constraint>(true, 4);
  types["zelk_no_sub_interval"] = std::make_unique<sub_interval_constraint>(false, 4);
  types["zelk_no_sub_interval_k"] = std::make_unique<sub_interval_constraint>(false, 5);
}

//==== constraint types =====================================================================

namespace fzn_constraint {

namespace {

typedef parser_context::var_argument var_argument;
typedef parser_context::array_argument array_argument;
typedef parser_context::ast_argument ast_argument;
typedef parser_context::ast_array_argument ast_array_argument;

template <class F, class... Args>
tree node(Args&&... children) {
  std::unique_ptr<F> n = std::make_unique<F>();
  int i = 0;
  (n->setArg(i++, children.release()), ...);
  return n;
}

tree plain_tree(var_or_value v) {
  if (v.is_constant()) return std::make_unique<xml::ASTInteger>(v.value);
  return std::make_unique<xml::ASTVar>("$" + std::to_string(v.id), int(v.id));
}

void require(parser_context& context, const tree& e) {
  context.connect_expr(context.singleton_var(1, false), *e, AST_builder::usage_exact);
}

bool is_defined_var(const tree& c, const symbol_info* defined) {
  return defined != nullptr && !defined->is_array && !defined->values.empty() &&
         c->getType() == xml::VAR &&
         static_cast<const xml::ASTVar&>(*c).id == int(defined->values[0].id) &&
         !defined->values[0].is_constant();
}

// c = e: the expression of the defined symbol when c is that symbol, otherwise a
// requirement.
void define(parser_context& context, tree c, tree e, symbol_info* defined, tree& result) {
  if (is_defined_var(c, defined)) {
    result = std::move(e);
    return;
  }
  require(context, node<xml::FunctionEQ>(std::move(c), std::move(e)));
}

// A scalar argument as a tree; null when it is none.
tree scalar_tree(const parser_context::argument_type* a) {
  if (const auto* v = dynamic_cast<const var_argument*>(a)) return plain_tree(v->value);
  if (const auto* t = dynamic_cast<const ast_argument*>(a)) return deep_copy(*t->ast);
  return nullptr;
}

const array_argument* as_array(const argument_vector& args, std::size_t i) {
  return dynamic_cast<const array_argument*>(args[i].get());
}
const var_argument* as_scalar(const argument_vector& args, std::size_t i) {
  return dynamic_cast<const var_argument*>(args[i].get());
}

bool count_is(std::ostream& out, const position_point& where, const argument_vector& args,
              std::size_t n) {
  if (args.size() == n) return true;
  out << where << " got " << args.size() << " arguments when expecting " << n << "\n";
  return false;
}

// The largest value of a tree that is a variable or a constant; 31 otherwise.
int largest_value(const parser_context& context, const tree& t) {
  if (t->getType() == xml::CST_INT) return static_cast<const xml::ASTInteger&>(*t).val;
  if (t->getType() == xml::VAR) {
    const iset d = context.solver->stack().domain(unsigned(static_cast<const xml::ASTVar&>(*t).id));
    return d.empty() ? 0 : d.max();
  }
  return small_iset::MAX_DOMAIN;
}

bool sum_fits(const parser_context& context, const tree& a, const tree& b) {
  return (long long)largest_value(context, a) + largest_value(context, b) <=
         small_iset::MAX_DOMAIN;
}

// terms[0] + terms[1] = terms[2] as two weighted sums.
void post_linear_sum(parser_context& context, const std::vector<var_or_value>& terms) {
  std::vector<int> coefficients{1, 1, -1};
  std::vector<unsigned int> vars;
  for (const var_or_value& v : terms) vars.push_back(v.to_id(context));
  lin_constraint_type::make_unique_vars(context, coefficients, vars);
  context.builder.instantiate_weighted_sum(coefficients, vars, false, 0);
  context.builder.instantiate_weighted_sum(coefficients, vars, true, 0);
}

}  // namespace

bool binary_constraint_type::connect_constraint(std::ostream& out, const position_point& where,
                                                parser_context& context,
                                                const argument_vector& args,
                                                symbol_info* defined, tree& result) {
  if (!count_is(out, where, args, 2)) return false;
  tree first = scalar_tree(args[0].get()), second = scalar_tree(args[1].get());
  if (!first || !second) {
    out << where << " expecting variable/constant argument\n";
    return false;
  }
  connect2(context, first, second, defined, result);
  return true;
}

bool binary_function_constraint_type::connect_constraint(std::ostream& out,
                                                         const position_point& where,
                                                         parser_context& context,
                                                         const argument_vector& args,
                                                         symbol_info* defined,
                                                         tree& result) {
  if (!count_is(out, where, args, 3)) return false;
  tree t[3];
  bool all_trees = true;
  for (std::size_t i = 0; i < 3; ++i)
    all_trees = all_trees && dynamic_cast<const ast_argument*>(args[i].get()) != nullptr;
  for (std::size_t i = 0; i < 3; ++i) {
    if (all_trees)
      t[i] = deep_copy(*static_cast<const ast_argument&>(*args[i]).ast);
    else if (const var_argument* v = as_scalar(args, i))
      t[i] = plain_tree(v->value);
    if (!t[i]) {
      out << where << " expecting variable/constant argument\n";
      return false;
    }
  }
  connect3(context, t[0], t[1], t[2], defined, result);
  return true;
}

template <class F>
void int_OP<F>::connect2(parser_context& context, tree& first, tree& second, symbol_info*,
                         tree&) {
  require(context, node<F>(std::move(first), std::move(second)));
}

template <class F>
void int_FUNC<F>::connect3(parser_context& context, tree& first, tree& second, tree& third,
                           symbol_info* defined, tree& result) {
  define(context, std::move(third), node<F>(std::move(first), std::move(second)), defined,
         result);
}

void bool_le::connect2(parser_context& context, tree& first, tree& second, symbol_info*,
                       tree&) {
  require(context, node<xml::FunctionOr>(node<xml::FunctionNot>(std::move(first)),
                                         std::move(second)));
}

void bool_lt::connect2(parser_context& context, tree& first, tree& second, symbol_info*,
                       tree&) {
  require(context, node<xml::FunctionAnd>(node<xml::FunctionNot>(std::move(first)),
                                          std::move(second)));
}

void abs_constraint_type::connect2(parser_context& context, tree& first, tree& second,
                                   symbol_info* defined, tree& result) {
  define(context, std::move(second), node<xml::FunctionAbs>(std::move(first)), defined, result);
}

void bool_le_reif::connect3(parser_context& context, tree& first, tree& second, tree& third,
                            symbol_info* defined, tree& result) {
  define(context, std::move(third),
         node<xml::FunctionOr>(node<xml::FunctionNot>(std::move(first)), std::move(second)),
         defined, result);
}

void bool_lt_reif::connect3(parser_context& context, tree& first, tree& second, tree& third,
                            symbol_info* defined, tree& result) {
  define(context, std::move(third),
         node<xml::FunctionAnd>(node<xml::FunctionNot>(std::move(first)), std::move(second)),
         defined, result);
}

void plus_constraint_type::connect3(parser_context& context, tree& a, tree& b, tree& c,
                                    symbol_info* defined, tree& result) {
  if (is_defined_var(c, defined))
    result = node<xml::FunctionAdd>(std::move(a), std::move(b));
  else if (is_defined_var(a, defined))
    result = node<xml::FunctionSub>(std::move(c), std::move(b));
  else if (is_defined_var(b, defined))
    result = node<xml::FunctionSub>(std::move(c), std::move(a));
  else if (!sum_fits(context, a, b))
    // a + b can pass 31 on the way to c, which the builder refuses as a tree; as a
    // linear equation a + b - c = 0 it is exact.
    post_linear_sum(context, {context.from_ast(*a), context.from_ast(*b), context.from_ast(*c)});
  else
    require(context,
            node<xml::FunctionEQ>(node<xml::FunctionAdd>(std::move(a), std::move(b)), std::move(c)));
}

bool array_constraint_base::connect_constraint(std::ostream& out, const position_point& where,
                                               parser_context& context,
                                               const argument_vector& args,
                                               symbol_info* defined, tree& result) {
  if (!count_is(out, where, args, 2)) return false;
  std::vector<tree> elements;
  if (const array_argument* a = as_array(args, 0)) {
    for (const var_or_value& v : a->values) elements.push_back(plain_tree(v));
  } else if (const auto* t = dynamic_cast<const ast_array_argument*>(args[0].get())) {
    for (const auto& e : t->asts) elements.push_back(deep_copy(*e));
  } else {
    out << where << " argument 1 should be an array\n";
    return false;
  }
  tree r = scalar_tree(args[1].get());
  if (!r) {
    out << where << " argument 2 should be either a variable or a value\n";
    return false;
  }
  tree fold;
  if (elements.empty()) {
    fold = std::make_unique<xml::ASTInteger>(initial());
  } else {
    fold = std::move(elements[0]);
    for (std::size_t i = 1; i < elements.size(); ++i)
      fold = connect_FUNC(std::move(fold), std::move(elements[i]));
  }
  define(context, std::move(r), std::move(fold), defined, result);
  return true;
}

template <class F, int I>
tree array_FUNC<F, I>::connect_FUNC(tree first, tree second) {
  return node<F>(std::move(first), std::move(second));
}

//---- array_element ------------------------------------------------------------------------

bool array_element::connect_constraint(std::ostream& out, const position_point& where,
                                       parser_context& context, const argument_vector& given,
                                       symbol_info*, tree&) {
  if (!count_is(out, where, given, 3)) return false;
  const argument_vector args = context.from_ast(given);
  const var_argument* index_arg = as_scalar(args, 0);
  const var_argument* result_arg = as_scalar(args, 2);
  if (!index_arg || !result_arg) {
    out << where << " the first and last arguments should be variable/constant\n";
    return false;
  }
  const array_argument* array = as_array(args, 1);
  if (!array) {
    out << where << " the second argument should be an array\n";
    return false;
  }
  const unsigned int index = index_arg->value.to_id(context);
  const unsigned int result = result_arg->value.to_id(context);
  solver& s = *context.solver;
  iset indices = s.stack().domain(index);
  iset results;
  if (array->values.empty()) {
    indices.clear();
  } else {
    indices &= iset::clipped_range(1, (long long)array->values.size());
    const iset r = s.stack().domain(result);
    for (int i : indices) {
      const iset d = context.domain(array->values[std::size_t(i - 1)]) & r;
      if (d.empty())
        indices.erase(i);
      else
        results |= d;
    }
  }
  s.set_var_domain(result, results, -1);
  if (indices.empty()) {
    out << "% " << where << ": the constraint is initially falsified\n";
    context.builder.mark_unsat();
    return true;
  }
  s.set_var_domain(index, indices, -1);
  return context.instantiate_element_constraint(out, where, index, 1, array->values, result);
}

//---- all_different_type -------------------------------------------------------------------

bool all_different_type::connect_constraint(std::ostream& out, const position_point& where,
                                            parser_context& context,
                                            const argument_vector& given, symbol_info*, tree&) {
  if (given.size() != 1) {
    out << where << " got " << given.size() << " arguments when expecting 1 array argument\n";
    return false;
  }
  const argument_vector args = context.from_ast(given);
  const array_argument* array = as_array(args, 0);
  if (!array) {
    out << where << " expecting array argument\n";
    return false;
  }
  std::vector<unsigned int> vars;
  iset constants;
  for (const var_or_value& v : array->values) {
    if (!v.is_constant()) {
      vars.push_back(v.id);
      continue;
    }
    if (constants.contains(v.value)) {
      out << "% " << where << ": all_different is trivially UNSAT since value " << v.value
          << " repeats\n";
      context.builder.mark_unsat();
      return true;
    }
    constants.insert(v.value);
  }
  if (!constants.empty()) {
    solver& s = *context.solver;
    for (unsigned int x : vars) {
      const iset d = s.stack().domain(x) - constants;
      if (d.empty()) {
        out << "% " << where << ": all_different is trivially UNSAT since value "
            << context.var_name(x) << " conflicts values {" << constants << "}\n";
        context.builder.mark_unsat();
        return true;
      }
      s.set_var_domain(x, d, -1);
    }
  }
  context.builder.instantiate_all_different(vars);
  return true;
}

//---- array_xor ------------------------------------------------------------------------------

bool array_xor::connect_constraint(std::ostream& out, const position_point& where,
                                   parser_context& context, const argument_vector& given,
                                   symbol_info*, tree&) {
  if (!count_is(out, where, given, 1)) return false;
  const argument_vector args = context.from_ast(given);
  const array_argument* array = as_array(args, 0);
  if (!array) {
    out << where << " argument 1 should be an array\n";
    return false;
  }
  bool parity = true;
  std::vector<unsigned int> vars;
  for (const var_or_value& v : array->values) {
    if (v.is_constant()) {
      if (v.value != 0) parity = !parity;
    } else {
      vars.push_back(v.id);
    }
  }
  context.builder.connect_parity(vars, parity);
  return true;
}

//---- bool_clause ------------------------------------------------------------------------------

bool bool_clause::connect_constraint(std::ostream& out, const position_point& where,
                                     parser_context& context, const argument_vector& given,
                                     symbol_info*, tree&) {
  if (!count_is(out, where, given, 2)) return false;
  const argument_vector args = context.from_ast(given);
  const array_argument* positive = as_array(args, 0);
  const array_argument* negative = as_array(args, 1);
  if (!positive || !negative) {
    out << where << ": The first two arguments should be arrays\n";
    return false;
  }
  tree fold;
  const auto add = [&fold](tree literal) {
    fold = fold ? node<xml::FunctionOr>(std::move(fold), std::move(literal)) : std::move(literal);
  };
  for (const var_or_value& v : positive->values) add(plain_tree(v));
  for (const var_or_value& v : negative->values) add(node<xml::FunctionNot>(plain_tree(v)));
  if (!fold) fold = std::make_unique<xml::ASTInteger>(0);
  require(context, fold);
  return true;
}

//---- table_constraint --------------------------------------------------------------------------

bool table_constraint::connect_constraint(std::ostream& out, const position_point& where,
                                          parser_context& context, const argument_vector& given,
                                          symbol_info*, tree&) {
  if (!count_is(out, where, given, 2)) return false;
  const argument_vector args = context.from_ast(given);
  const array_argument* variables = as_array(args, 0);
  const array_argument* table = as_array(args, 1);
  if (!variables || !table) {
    out << where << " expecting two array arguments\n";
    return false;
  }
  const std::size_t arity = variables->values.size();
  if (arity == 0) {
    out << where << " expecting non-empty array of variables\n";
    return false;
  }
  if (table->values.size() % arity != 0) {
    out << where << " table-spec array must be dividable by arity (" << arity << ")\n";
    return false;
  }
  std::vector<std::vector<int>> tuples(table->values.size() / arity);
  for (std::size_t i = 0; i < table->values.size(); ++i) {
    const var_or_value& v = table->values[i];
    if (!v.is_constant()) {
      out << where << " second array must contain constants\n";
      return false;
    }
    tuples[i / arity].push_back(v.value);
  }
  std::vector<unsigned int> vars;
  for (const var_or_value& v : variables->values) vars.push_back(v.to_id(context));
  context.connect_table_propagator(vars, tuples);
  return true;
}

//---- intervals -----------------------------------------------------------------------------------

bool no_overlap_constraint::connect_constraint(std::ostream& out, const position_point& where,
                                               parser_context& context,
                                               const argument_vector& given, symbol_info*,
                                               tree&) {
  if (!count_is(out, where, given, 4)) return false;
  const argument_vector args = context.from_ast(given);
  for (std::size_t i = 0; i < 4; ++i)
    if (!as_scalar(args, i)) {
      out << where << " expecting only variables/constants\n";
      return false;
    }
  if (!as_scalar(args, 1)->value.is_constant() || !as_scalar(args, 3)->value.is_constant()) {
    out << where << " expecting second and forth const arguments\n";
    return false;
  }
  std::vector<unsigned int> vars;
  for (std::size_t i = 0; i < 4; ++i) vars.push_back(as_scalar(args, i)->value.to_id(context));
  context.builder.connect_overlap(context.singleton_var(0, false), vars);
  return true;
}

bool sub_interval_constraint::connect_constraint(std::ostream& out, const position_point& where,
                                                 parser_context& context,
                                                 const argument_vector& given, symbol_info*,
                                                 tree&) {
  if (given.size() != argument_count) {
    out << where << " got " << given.size() << " arguments when expecting " << argument_count
        << "\n";
    return false;
  }
  const argument_vector args = context.from_ast(given);
  for (std::size_t i = 0; i < args.size(); ++i)
    if (!as_scalar(args, i)) {
      out << where << " expecting only variables/constants\n";
      return false;
    }
  for (std::size_t i = 2; i < args.size(); ++i)
    if (!as_scalar(args, i)->value.is_constant()) {
      out << where << " expecting argument " << i << " to be a constraint\n";
      return false;
    }
  std::vector<unsigned int> vars;
  for (std::size_t i = 0; i < args.size(); ++i)
    vars.push_back(as_scalar(args, i)->value.to_id(context));
  context.builder.connect_sub_interval(context.singleton_var(is_sub_interval ? 1 : 0, false),
                                       vars);
  return true;
}

//---- linear constraints ----------------------------------------------------------------------------

argument_vector lin_constraint_type::from_ast(parser_context& context,
                                              const argument_vector& args) const {
  const auto* terms =
      args.size() > 1 ? dynamic_cast<const ast_array_argument*>(args[1].get()) : nullptr;
  if (!terms || is_reif() || direction != 1) return context.from_ast(args);
  // An at-most sum needs one side of each term only.
  argument_vector plain;
  argument_vector first_and_third;
  first_and_third.push_back(args[0] ? args[0]->clone() : nullptr);
  first_and_third.push_back(args[2] ? args[2]->clone() : nullptr);
  argument_vector converted = context.from_ast(first_and_third);
  const array_argument* coefficients = dynamic_cast<const array_argument*>(converted[0].get());
  auto variables = std::make_unique<array_argument>();
  for (std::size_t i = 0; i < terms->asts.size(); ++i) {
    const xml::AST& e = *terms->asts[i];
    if (dynamic_cast<const xml::ASTAbstractFunction*>(&e) != nullptr) {
      AST_builder::usage_type usage = AST_builder::usage_exact;
      if (coefficients && i < coefficients->values.size() &&
          coefficients->values[i].is_constant())
        usage = coefficients->values[i].value < 1 ? AST_builder::usage_at_most
                                                  : AST_builder::usage_at_least;
      var_or_value v;
      v.id = context.expression_to_variable(e, AST_builder::NO_VARIABLE, usage);
      variables->values.push_back(v);
    } else {
      variables->values.push_back(context.from_ast(e));
    }
  }
  plain.push_back(std::move(converted[0]));
  plain.push_back(std::move(variables));
  plain.push_back(std::move(converted[1]));
  for (std::size_t i = 3; i < args.size(); ++i) plain.push_back(args[i] ? args[i]->clone() : nullptr);
  return plain;
}

bool lin_constraint_type::connect_constraint(std::ostream& out, const position_point& where,
                                             parser_context& context,
                                             const argument_vector& given, symbol_info*,
                                             tree&) {
  const std::size_t m = is_reif() ? 4 : 3;
  if (!count_is(out, where, given, m)) return false;
  const argument_vector args = from_ast(context, given);
  const array_argument* coefficients = as_array(args, 0);
  const array_argument* variables = as_array(args, 1);
  if (!coefficients || !variables) {
    out << where << ": The first two arguments should be arrays\n";
    return false;
  }
  const var_argument* constant = as_scalar(args, 2);
  if (!constant) {
    out << where << ": The third arguments should be a scalar\n";
    return false;
  }
  const var_argument* reified = is_reif() ? as_scalar(args, 3) : nullptr;
  if (is_reif() && !reified) {
    out << where << ": The last arguments should be a scalar\n";
    return false;
  }
  if (coefficients->values.size() != variables->values.size()) {
    out << where << ": The first two arguments should be arrays of same size\n";
    return false;
  }
  if (!is_reif() && direction != 2)
    return instantiate_weighted_sum(out, where, context, coefficients->values, variables->values,
                                    constant->value);
  if (!fits_in_domain(context, coefficients->values, variables->values))
    return instantiate_big_m(out, where, context, coefficients->values, variables->values,
                             constant->value, reified);
  tree sum;
  for (std::size_t i = 0; i < variables->values.size(); ++i) {
    tree term = node<xml::FunctionMul>(plain_tree(coefficients->values[i]),
                                       plain_tree(variables->values[i]));
    sum = sum ? node<xml::FunctionAdd>(std::move(sum), std::move(term)) : std::move(term);
  }
  if (!sum) sum = std::make_unique<xml::ASTInteger>(0);
  tree comparison;
  if (direction == 0)
    comparison = node<xml::FunctionEQ>(std::move(sum), plain_tree(constant->value));
  else if (direction == 1)
    comparison = node<xml::FunctionLE>(std::move(sum), plain_tree(constant->value));
  else
    comparison = node<xml::FunctionNE>(std::move(sum), plain_tree(constant->value));
  if (reified) comparison = node<xml::FunctionEQ>(plain_tree(reified->value), std::move(comparison));
  require(context, comparison);
  return true;
}

bool lin_constraint_type::fits_in_domain(const parser_context& context,
                                         const std::vector<var_or_value>& coefficients,
                                         const std::vector<var_or_value>& variables) {
  long long most = 0;
  for (std::size_t i = 0; i < variables.size(); ++i) {
    if (!coefficients[i].is_constant()) return true;  // the tree reports it
    const iset d = context.domain(variables[i]);
    if (d.empty()) continue;
    const long long k = coefficients[i].value;
    most += k > 0 ? k * d.max() : 0;
    if (k < 0) return true;
  }
  return most <= small_iset::MAX_DOMAIN;
}

// The sum as a tree can pass 31, which the builder refuses; two weighted sums with
// a large enough constant M state the same exactly, guarded by the reification
// variable r (when there is one) and, for a disequality, by a free choice b of the
// side: sum <= c - 1 + M*b and sum >= c + 1 - M*(1 - b).
bool lin_constraint_type::instantiate_big_m(std::ostream& out, const position_point& where,
                                            parser_context& context,
                                            const std::vector<var_or_value>& coefficients,
                                            const std::vector<var_or_value>& variables,
                                            var_or_value constant,
                                            const parser_context::var_argument* reified) const {
  std::vector<int> c;
  long long most = 0;
  for (std::size_t i = 0; i < coefficients.size(); ++i) {
    if (!coefficients[i].is_constant()) {
      out << where << ": first argument should be a list of int but got "
          << context.var_name(coefficients[i].id) << "\n";
      return false;
    }
    c.push_back(coefficients[i].value);
    const iset d = context.domain(variables[i]);
    if (!d.empty()) most += (long long)std::abs(c.back()) * d.max();
  }
  if (!constant.is_constant()) {
    out << where << ": last argument should be an int but got " << context.var_name(constant.id)
        << "\n";
    return false;
  }
  const long long big = most + 64, k = constant.value;
  std::vector<unsigned int> vars;
  for (const var_or_value& v : variables) vars.push_back(v.to_id(context));
  // guard g: 1 when the comparison must hold (no reification: the constant 1), and
  // for a disequality of the reified kind the statement holds when g is 0.
  const unsigned int r = reified ? reified->value.to_id(context) : context.singleton_var(1, false);
  const auto post = [&](std::vector<std::pair<unsigned int, long long>> extra, bool is_ge,
                        long long limit) {
    std::vector<int> cc(c);
    std::vector<unsigned int> vv(vars);
    for (const auto& [v, k2] : extra) {
      vv.push_back(v);
      cc.push_back(int(k2));
    }
    make_unique_vars(context, cc, vv);
    context.builder.instantiate_weighted_sum(cc, vv, is_ge, limit);
  };
  const auto equal_when = [&](unsigned int g, bool when_one) {
    // when_one: g = 1 forces sum = k; otherwise g = 0 forces it.
    if (when_one) {
      post({{g, big}}, false, k + big);   // sum + M g <= k + M
      post({{g, -big}}, true, k - big);   // sum - M g >= k - M
    } else {
      post({{g, -big}}, false, k);        // sum - M g <= k
      post({{g, big}}, true, k);          // sum + M g >= k
    }
  };
  const auto differ_when = [&](unsigned int g, bool when_one) {
    const unsigned int b = context.builder.add_auxiliary_var("lin_side", context.solver->num_variables(),
                                                             iset::clipped_range(0, 1));
    // sum <= k - 1 + M b (+ M when g is off), sum >= k + 1 - M (1 - b) (- M when g is off)
    if (when_one) {
      post({{b, -big}, {g, big}}, false, k - 1 + big);
      post({{b, -big}, {g, -big}}, true, k + 1 - 2 * big);
    } else {
      post({{b, -big}, {g, -big}}, false, k - 1);
      post({{b, -big}, {g, big}}, true, k + 1 - big);
    }
  };
  if (direction == 0) {
    equal_when(r, true);
    if (reified) differ_when(r, false);
  } else if (direction == 1) {
    post({{r, big}}, false, k + big);     // r = 1: sum <= k
    if (reified) post({{r, big}}, true, k + 1);  // r = 0: sum >= k + 1
  } else {
    differ_when(r, true);
    if (reified) equal_when(r, false);
  }
  return true;
}

bool lin_constraint_type::instantiate_weighted_sum(
    std::ostream& out, const position_point& where, parser_context& context,
    const std::vector<var_or_value>& coefficients, const std::vector<var_or_value>& variables,
    var_or_value constant) const {
  std::vector<int> c;
  for (const var_or_value& k : coefficients) {
    if (!k.is_constant()) {
      out << where << ": first argument should be a list of int but got "
          << context.var_name(k.id) << "\n";
      return false;
    }
    c.push_back(k.value);
  }
  std::vector<unsigned int> vars;
  for (const var_or_value& v : variables) vars.push_back(v.to_id(context));
  if (!constant.is_constant()) {
    out << where << ": last argument should be an int but got " << context.var_name(constant.id)
        << "\n";
    return false;
  }
  make_unique_vars(context, c, vars);
  context.builder.instantiate_weighted_sum(c, vars, false, constant.value);
  if (direction == 0) context.builder.instantiate_weighted_sum(c, vars, true, constant.value);
  return true;
}

void lin_constraint_type::make_unique_vars(parser_context& context,
                                           std::vector<int>& coefficients,
                                           std::vector<unsigned int>& variables) {
  std::vector<std::pair<unsigned int, long long>> pairs;
  pairs.reserve(variables.size());
  for (std::size_t i = 0; i < variables.size(); ++i)
    pairs.emplace_back(variables[i], (long long)coefficients[i]);
  std::sort(pairs.begin(), pairs.end());
  bool changed = false;
  for (std::size_t i = 1; i < pairs.size(); ++i)
    if (pairs[i].first == pairs[i - 1].first) {
      pairs[i].second += pairs[i - 1].second;
      pairs[i - 1].second = 0;
      changed = true;
    }
  const std::size_t before = pairs.size();
  pairs.erase(std::remove_if(pairs.begin(), pairs.end(),
                             [](const std::pair<unsigned int, long long>& p) { return p.second == 0; }),
              pairs.end());
  changed = changed || pairs.size() != before;
  // A merged coefficient beyond int keeps the largest int, and the rest rides on an
  // equal copy of the variable: a sum over int coefficients stays exact.
  constexpr long long LARGEST = 2147483647LL, SMALLEST = -2147483647LL - 1;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const long long k = pairs[i].second;
    if (k > LARGEST || k < SMALLEST) {
      const long long kept = k > LARGEST ? LARGEST : SMALLEST;
      pairs[i].second = kept;
      pairs.emplace_back(context.make_aliased_var(pairs[i].first), k - kept);
      changed = true;
    }
  }
  // Rewritten on any change, not only on a change of length: a merge and a split
  // together keep the count, and the old vectors would hold a variable twice.
  if (!changed) return;
  coefficients.clear();
  variables.clear();
  for (const auto& p : pairs) {
    variables.push_back(p.first);
    coefficients.push_back(int(p.second));
  }
}

}  // namespace fzn_constraint

}  // namespace zelk
