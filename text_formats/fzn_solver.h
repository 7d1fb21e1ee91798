// The solver of FlatZinc models: its constructor reads the model through the
// FlatZinc grammar into a parser_context, whose constraint names stand for the
// constraint_type objects of namespace fzn_constraint, and it prints results in
// the FlatZinc output protocol. Most constraint types post nothing themselves:
// they build an expression tree and either hand it back as the definition of a
// symbol or require it to hold, so that the builder sees whole expressions.
#ifndef ZELK_TEXT_FORMATS_FZN_SOLVER_H
#define ZELK_TEXT_FORMATS_FZN_SOLVER_H

#include <iosfwd>
#include <memory>
#include <string>

#include "driver/flags.h"
#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "impl/table_propagators.h"
#include "text_formats/parser_context.h"

namespace zelk {

class fzn_solver : public solver {
 public:
  fzn_solver(std::istream& in, const std::string& name, const zelk_flags& flags,
             table_propagator_base::memory_manager& memory);

  void print_solution(std::ostream& out) const override;
  int evaluate_objective() const override;
  // Runs the search and prints in the FlatZinc output convention.
  void solve_and_print(std::ostream& out);

  parser_context context;

 private:
  void register_constraint_types();
};

namespace fzn_constraint {

typedef parser_context::constraint_type constraint_type;
typedef parser_context::argument_vector argument_vector;
typedef parser_context::position_point position_point;
typedef parser_context::symbol_info symbol_info;
typedef std::unique_ptr<CSPXMLParser::AST> tree;

// Two scalar arguments, each a variable, a constant or an instantiated tree.
class binary_constraint_type : public constraint_type {
 public:
  bool connect_constraint(std::ostream& out, const position_point& where,
                          parser_context& context, const argument_vector& args,
                          symbol_info* defined, tree& result) override;
  virtual void connect2(parser_context& context, tree& first, tree& second,
                        symbol_info* defined, tree& result) = 0;
};

// Three scalar arguments, all plain or all instantiated.
class binary_function_constraint_type : public constraint_type {
 public:
  bool connect_constraint(std::ostream& out, const position_point& where,
                          parser_context& context, const argument_vector& args,
                          symbol_info* defined, tree& result) override;
  virtual void connect3(parser_context& context, tree& first, tree& second, tree& third,
                        symbol_info* defined, tree& result) = 0;
};

template <class F>
class int_OP : public binary_constraint_type {
 public:
  void connect2(parser_context& context, tree& first, tree& second, symbol_info* defined,
                tree& result) override;
};

template <class F>
class int_FUNC : public binary_function_constraint_type {
 public:
  void connect3(parser_context& context, tree& first, tree& second, tree& third,
                symbol_info* defined, tree& result) override;
};

class bool_le : public binary_constraint_type {
 public:
  void connect2(parser_context& context, tree& first, tree& second, symbol_info* defined,
                tree& result) override;
};
class bool_lt : public binary_constraint_type {
 public:
  void connect2(parser_context& context, tree& first, tree& second, symbol_info* defined,
                tree& result) override;
};
class abs_constraint_type : public binary_constraint_type {
 public:
  void connect2(parser_context& context, tree& first, tree& second, symbol_info* defined,
                tree& result) override;
};
class bool_le_reif : public binary_function_constraint_type {
 public:
  void connect3(parser_context& context, tree& first, tree& second, tree& third,
                symbol_info* defined, tree& result) override;
};
class bool_lt_reif : public binary_function_constraint_type {
 public:
  void connect3(parser_context& context, tree& first, tree& second, tree& third,
                symbol_info* defined, tree& result) override;
};
// The defined variable may stand in any of the three places of a + b = c.
class plus_constraint_type : public binary_function_constraint_type {
 public:
  void connect3(parser_context& context, tree& first, tree& second, tree& third,
                symbol_info* defined, tree& result) override;
};

// r = fold of the array by connect_FUNC; initial() for an empty array.
class array_constraint_base : public constraint_type {
 public:
  bool connect_constraint(std::ostream& out, const position_point& where,
                          parser_context& context, const argument_vector& args,
                          symbol_info* defined, tree& result) override;
  virtual tree connect_FUNC(tree first, tree second) = 0;
  virtual int initial() const = 0;
};

template <class F, int I>
class array_FUNC : public array_constraint_base {
 public:
  tree connect_FUNC(tree first, tree second) override;
  int initial() const override { return I; }
};

// Linear (in)equalities: direction 0 equal, 1 at most, 2 not equal.
class lin_constraint_type : public constraint_type {
 public:
  explicit lin_constraint_type(int d) : direction(d) {}
  bool connect_constraint(std::ostream& out, const position_point& where,
                          parser_context& context, const argument_vector& args,
                          symbol_info* defined, tree& result) override;
  virtual bool is_reif() const { return false; }

  int direction;

  // Merges repeated variables (coefficients added in 64 bits) and drops zero
  // terms; a coefficient beyond int goes partly to an equal copy of its variable.
  static void make_unique_vars(parser_context& context, std::vector<int>& coefficients,
                               std::vector<unsigned int>& variables);

 private:
  static bool fits_in_domain(const parser_context& context,
                             const std::vector<parser_context::var_or_value>& coefficients,
                             const std::vector<parser_context::var_or_value>& variables);
  bool instantiate_big_m(std::ostream& out, const position_point& where, parser_context& context,
                         const std::vector<parser_context::var_or_value>& coefficients,
                         const std::vector<parser_context::var_or_value>& variables,
                         parser_context::var_or_value constant,
                         const parser_context::var_argument* reified) const;
  argument_vector from_ast(parser_context& context, const argument_vector& args) const;
  bool instantiate_weighted_sum(std::ostream& out, const position_point& where,
                                parser_context& context,
                                const std::vector<parser_context::var_or_value>& coefficients,
                                const std::vector<parser_context::var_or_value>& variables,
                                parser_context::var_or_value constant) const;
};

class lin_reif_constraint_type : public lin_constraint_type {
 public:
  explicit lin_reif_constraint_type(int d) : lin_constraint_type(d) {}
  bool is_reif() const override { return true; }
};

#define ZELK_FZN_PLAIN_CONSTRAINT(NAME)                                                  \
  class NAME : public constraint_type {                                                  \
   public:                                                                               \
    bool connect_constraint(std::ostream& out, const position_point& where,              \
                            parser_context& context, const argument_vector& args,        \
                            symbol_info* defined, tree& result) override;                \
  };

ZELK_FZN_PLAIN_CONSTRAINT(array_element)
ZELK_FZN_PLAIN_CONSTRAINT(all_different_type)
ZELK_FZN_PLAIN_CONSTRAINT(array_xor)
ZELK_FZN_PLAIN_CONSTRAINT(bool_clause)
ZELK_FZN_PLAIN_CONSTRAINT(table_constraint)
ZELK_FZN_PLAIN_CONSTRAINT(no_overlap_constraint)

#undef ZELK_FZN_PLAIN_CONSTRAINT

class sub_interval_constraint : public constraint_type {
 public:
  sub_interval_constraint(bool sub, unsigned int count)
      : is_sub_interval(sub), argument_count(count) {}
  bool connect_constraint(std::ostream& out, const position_point& where,
                          parser_context& context, const argument_vector& args,
                          symbol_info* defined, tree& result) override;

  bool is_sub_interval;
  unsigned int argument_count;
};

}  // namespace fzn_constraint

}  // namespace zelk

#endif
