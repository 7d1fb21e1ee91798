// Turns expression trees into solver variables and constraints. connect_expr ties
// an expression to a given variable, expression_to_variable finds or makes the
// variable of an expression. Constants fold, variables known equal share a class,
// variables known different are recorded, Boolean connectives become clauses, and
// only the directions a use needs are posted. Operators of the registry go through
// the common-subexpression table and are posted at its create_all_constraints.
#ifndef ZELK_IMPL_AST_BUILDER_H
#define ZELK_IMPL_AST_BUILDER_H

#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "impl/operator_connectivity.h"
#include "impl/operator_definition_registry.h"
#include "impl/small_iset.h"

namespace CSPXMLParser {
class AST;
}

namespace zelk {

class constraint_propagator;
class solver;

class AST_builder {
 public:
  // What is needed of the variable r of a sub-expression e: r = e, r <= e (r
  // implies e), r >= e (e implies r).
  enum usage_type { usage_exact = 0, usage_at_most = 1, usage_at_least = 2 };

  // A model uses something this solver cannot build; the driver reports the file
  // as unsupported and goes on.
  class unsupported : public std::exception {
   public:
    explicit unsupported(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

   private:
    std::string m_message;
  };

  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;

  explicit AST_builder(solver& s);
  AST_builder(const AST_builder&) = delete;
  AST_builder& operator=(const AST_builder&) = delete;

  static eval_type to_eval_type(usage_type usage);
  static usage_type to_usage_type(unsigned int eval);

  // ==== expressions =========================================================
  // `vars` maps the id of each ASTVar to a solver variable.
  void connect_expr(const std::vector<unsigned int>& vars, unsigned int result,
                    const CSPXMLParser::AST& ast, usage_type usage);
  // `hint` is a variable to use for the expression, or NO_VARIABLE.
  unsigned int expression_to_variable(const std::vector<unsigned int>& vars,
                                      const CSPXMLParser::AST& ast, unsigned int hint,
                                      usage_type usage);
  unsigned int expression_to_bool_var(const std::vector<unsigned int>& vars,
                                      const CSPXMLParser::AST& ast, usage_type usage);
  unsigned int operator_to_variable(const operator_definition& definition,
                                    const std::vector<unsigned int>& vars,
                                    const CSPXMLParser::AST& ast, unsigned int hint,
                                    usage_type usage);
  unsigned int known_var_of_arg(const operator_definition& definition,
                                const std::vector<unsigned int>& vars, unsigned int hint,
                                const CSPXMLParser::AST& ast, unsigned int arg_index);
  unsigned int evaluate_if_singletons(const operator_definition& definition,
                                      const unsigned int* args_begin,
                                      const unsigned int* args_end);
  unsigned int var_not_var(unsigned int x, usage_type usage);

  // ==== equality bookkeeping ================================================
  void equate_variables(unsigned int x, unsigned int y);
  void differentiate_variables(unsigned int x, unsigned int y);
  void mark_unequal_variables(unsigned int x, unsigned int y);
  bool are_eq(unsigned int x, unsigned int y) const;
  bool are_ne(unsigned int x, unsigned int y) const;
  // Cuts the domain of `var`; an empty result marks the model unsatisfiable.
  const small_model::iset& intersect_variable(small_model::iset set, unsigned int var);
  unsigned int add_auxiliary_var(const char* prefix, unsigned int number,
                                 small_model::iset domain);
  unsigned int add_auxiliary_var(const std::string& name, small_model::iset domain);

  void mark_unsat();
  bool is_marked_unsat() const;

  // ==== connectives =========================================================
  void connect_eq(const std::vector<unsigned int>& vars, unsigned int result, bool is_eq,
                  const CSPXMLParser::AST& ast, usage_type usage);
  void connect_eq_by_vars(unsigned int result, bool is_eq, bool must_eq, bool must_ne,
                          unsigned int x, unsigned int y, usage_type usage);
  bool connect_if_simple_eq(const std::vector<unsigned int>& vars, const CSPXMLParser::AST& a,
                            const CSPXMLParser::AST& b);
  bool connect_if_simple_ne(const std::vector<unsigned int>& vars, const CSPXMLParser::AST& a,
                            const CSPXMLParser::AST& b);
  unsigned int ne_to_var(const std::vector<unsigned int>& vars, const CSPXMLParser::AST& ast,
                         unsigned int hint, usage_type usage);
  void connect_if(const std::vector<unsigned int>& vars, unsigned int result,
                  const CSPXMLParser::AST& ast);
  void bound_extremum(const std::vector<unsigned int>& params, bool is_min);
  void connect_and(const std::vector<unsigned int>& vars, unsigned int result,
                   const CSPXMLParser::AST& ast, usage_type usage);
  void connect_or(const std::vector<unsigned int>& vars, unsigned int result,
                  const CSPXMLParser::AST& ast, usage_type usage);
  void collect_and_vars(std::vector<unsigned int>& out, const CSPXMLParser::AST& ast,
                        const std::vector<unsigned int>& vars, usage_type usage);
  void collect_or_vars(std::vector<unsigned int>& out, const CSPXMLParser::AST& ast,
                       const std::vector<unsigned int>& vars, usage_type usage);
  static void insert_descendants(const CSPXMLParser::AST& ast, int type,
                                 std::vector<const CSPXMLParser::AST*>& list);
  void insert_clause(unsigned int x, small_model::iset x_set, unsigned int y,
                     small_model::iset y_set);
  void insert_clause(unsigned int x, small_model::iset x_set, unsigned int y,
                     small_model::iset y_set, unsigned int z, small_model::iset z_set);
  void insert_clause(const unsigned int* vars, const small_model::iset* const* sets,
                     unsigned int n);

  // ==== global constraints and difference sets ==============================
  void connect_predicate(const std::vector<unsigned int>& vars, unsigned int result,
                         const CSPXMLParser::AST& list);
  void connect_overlap(unsigned int result, const std::vector<unsigned int>& args);
  void connect_sub_interval(unsigned int result, const std::vector<unsigned int>& args);
  void connect_all_diff(const std::vector<unsigned int>& vars, bool print_prefix);
  void connect_parity(const std::vector<unsigned int>& vars, bool parity);
  void instantiate_all_different(const std::vector<unsigned int>& vars);
  void instantiate_weighted_sum(const std::vector<int>& coefficients,
                                const std::vector<unsigned int>& vars, bool is_ge,
                                long long limit);
  void detect_all_diff();
  bool is_diff_with_all(unsigned int v, const std::vector<unsigned int>& list) const;
  void replace_var_in_diff_set(unsigned int from, unsigned int to);

  // The value of `ast` under the solver's present (fixed) values.
  int evaluate(const CSPXMLParser::AST& ast) const;

  operator_connectivity& connectivity() { return m_connectivity; }
  const operator_connectivity& connectivity() const { return m_connectivity; }
  solver& get_solver() const { return m_solver; }

 public:
  virtual ~AST_builder() = default;

 protected:
  // Where detect_all_diff sends each clique it finds; tests watch it here.
  virtual void post_detected_all_diff(const std::vector<unsigned int>& clique,
                                      bool print_prefix);

 private:
  struct ne_entry {
    usage_type usage = usage_exact;
    unsigned int variable = 0;  // 0: unfilled
  };

  const small_model::iset& domain(unsigned int var) const;
  unsigned int rep(unsigned int var) const;
  // The variable of an ASTVar; a parameter beyond `vars` is an error of the model.
  unsigned int var_of(const std::vector<unsigned int>& vars, const CSPXMLParser::AST& ast) const;
  // The singleton variable of a value; a value outside 0..31 is refused.
  unsigned int constant_var(long long value);
  void post(std::unique_ptr<constraint_propagator> p, std::vector<unsigned int> params);
  // A {0, 1} variable that is 1 exactly when v is not 0.
  unsigned int truth_of(unsigned int v);
  void require_true(const std::vector<unsigned int>& vars, const CSPXMLParser::AST& ast);
  void check_range(int type, unsigned int a, unsigned int b) const;
  unsigned int abs_of_difference(const std::vector<unsigned int>& vars,
                                 const CSPXMLParser::AST& sub);
  std::vector<unsigned int> connect_arguments(const std::vector<unsigned int>& vars,
                                              unsigned int result, const CSPXMLParser::AST& ast);
  void connect_neg(const std::vector<unsigned int>& vars, unsigned int result,
                   const CSPXMLParser::AST& ast);
  void post_literal_or_neq(small_model::iset literal, unsigned int r, unsigned int a,
                           unsigned int b);

  solver& m_solver;
  operator_connectivity m_connectivity;
  std::map<std::pair<unsigned int, unsigned int>, ne_entry> m_ne_vars;
  std::vector<std::set<unsigned int>> m_diff_sets;
  // |a - b| by the ordered pair of its variables.
  std::map<std::pair<unsigned int, unsigned int>, unsigned int> m_abs_differences;
};

// The global constraints as the model layers post them, on solver variables.
// A variable named twice in an all-different makes it fail.
void post_all_different(solver& s, const std::vector<unsigned int>& vars);
// x0 + first_length <= x1, or x1 + second_length <= x0; negative lengths are
// refused as unsupported.
void post_no_overlap(solver& s, int first_length, int second_length, unsigned int x0,
                     unsigned int x1);
// x > y, or a <= x and y <= b.
void post_sub_interval(solver& s, int a, int b, unsigned int x, unsigned int y);
// x <= y - k, and x < a or y - k > b.
void post_no_sub_interval(solver& s, int a, int b, int k, unsigned int x, unsigned int y);

}  // namespace zelk

#endif
