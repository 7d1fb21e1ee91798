// The model under construction for the text front ends (FlatZinc and the C-like
// format): symbol table, declarations turned into solver variables, constraint
// names looked up in a table of constraint_type objects, the objective, and the
// printing of a FlatZinc solution from the output annotations.
//
// A variable that FlatZinc marks as both defined and introduced is not built as a
// variable of its own: its defining constraint is held back and its expression is
// substituted into the constraints that use it, so that AST_builder sees whole
// expressions again after the flattening.
#ifndef ZELK_TEXT_FORMATS_PARSER_CONTEXT_H
#define ZELK_TEXT_FORMATS_PARSER_CONTEXT_H

#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "impl/AST_builder.h"
#include "impl/small_iset.h"
#include "impl/table_propagators.h"
#include "xcsp/AST.h"

namespace zelk {

class constraint_propagator;
class solver;

// A new copy of a tree of the front ends (symbols, variables, constants, functions).
std::unique_ptr<CSPXMLParser::AST> deep_copy(const CSPXMLParser::AST& ast);

class parser_context;

class scanner_methods {
 public:
  virtual ~scanner_methods() = default;
  virtual void start_scanner(parser_context& context) const = 0;
  virtual void destroy_scanner(parser_context& context) const = 0;
};

class fzn_scanner_methods : public scanner_methods {
 public:
  static const fzn_scanner_methods* get();
  void start_scanner(parser_context& context) const override;
  void destroy_scanner(parser_context& context) const override;
};

class parser_context {
 public:
  typedef CSPXMLParser::AST AST;
  static constexpr unsigned int NONE = 0xFFFFFFFFu;

  struct var_or_value {
    unsigned int id = NONE;
    int value = 0;
    bool is_constant() const { return id == NONE; }
    unsigned int to_id(parser_context& context) const;
  };

  struct var_or_set {
    unsigned int id = NONE;
    small_model::iset set;
    bool is_constant() const { return id == NONE; }
  };

  struct position_point {
    const std::string* file = nullptr;
    unsigned int line = 0;
    unsigned int column = 0;
  };

  class argument_type;
  typedef std::vector<std::unique_ptr<argument_type>> argument_vector;
  static argument_vector clone_arguments(const argument_vector& args);

  struct annotation_type {
    annotation_type() = default;
    explicit annotation_type(std::string n) : name(std::move(n)) {}
    annotation_type(const annotation_type& o);
    annotation_type& operator=(const annotation_type& o);
    annotation_type(annotation_type&&) = default;
    annotation_type& operator=(annotation_type&&) = default;

    std::string name;
    std::unique_ptr<argument_vector> args;  // null: no argument list
  };

  enum element_type {
    TYPE_INT = 1,
    TYPE_BOOL = 2,
    TYPE_SET = 4,
    TYPE_SET_OF_INT = 5,
    TYPE_SET_OF_BOOL = 6,
    TYPE_UNKNOWN = 8
  };
  enum direction { NO_DIRECTION = 0, MAXIMIZE = 1, MINIMIZE = 2 };

  struct postponed_constraint;

  struct symbol_info {
    std::vector<var_or_set> values;
    std::vector<annotation_type> annotations;
    position_point location;
    int type = TYPE_INT;
    std::shared_ptr<postponed_constraint> definition;
    std::shared_ptr<AST> expression;
    bool is_array = false;
    bool is_intermediate = false;

    void print(std::ostream& out, const std::string& name) const;
  };

  // ---- constraint arguments -----------------------------------------------
  class argument_type {
   public:
    virtual ~argument_type() = default;
    virtual std::unique_ptr<argument_type> clone() const = 0;
  };
  class var_argument : public argument_type {
   public:
    explicit var_argument(var_or_value v) : value(v) {}
    std::unique_ptr<argument_type> clone() const override;
    var_or_value value;
  };
  class array_argument : public argument_type {
   public:
    array_argument() = default;
    explicit array_argument(std::vector<var_or_value> v) : values(std::move(v)) {}
    std::unique_ptr<argument_type> clone() const override;
    std::vector<var_or_value> values;
  };
  class ast_argument : public argument_type {
   public:
    explicit ast_argument(std::unique_ptr<AST> a) : ast(std::move(a)) {}
    std::unique_ptr<argument_type> clone() const override;
    std::unique_ptr<AST> ast;
  };
  class ast_array_argument : public argument_type {
   public:
    ast_array_argument() = default;
    std::unique_ptr<argument_type> clone() const override;
    std::vector<std::unique_ptr<AST>> asts;
  };
  class array_dimension_argument : public argument_type {
   public:
    std::unique_ptr<argument_type> clone() const override;
    std::vector<std::pair<int, int>> dimensions;
  };
  class annotation_argument : public argument_type {
   public:
    explicit annotation_argument(annotation_type a) : annotation(std::move(a)) {}
    std::unique_ptr<argument_type> clone() const override;
    annotation_type annotation;
  };

  // What a constraint name stands for. connect_constraint returns false after a
  // message on `out`; a constraint that reduces to an expression leaves it in
  // `result` and posts nothing.
  class constraint_type {
   public:
    virtual ~constraint_type() = default;
    virtual bool connect_constraint(std::ostream& out, const position_point& where,
                                    parser_context& context, const argument_vector& args,
                                    symbol_info* defined, std::unique_ptr<AST>& result) = 0;

   protected:
    static std::unique_ptr<AST> to_ast(var_or_value v);
    static std::unique_ptr<AST> ast_var(unsigned int id);
    template <class F, class... Args>
    static std::unique_ptr<AST> make(Args&&... children) {
      std::unique_ptr<F> node = std::make_unique<F>();
      int i = 0;
      (node->setArg(i++, children.release()), ...);
      return node;
    }
  };

  struct postponed_constraint {
    position_point where;
    constraint_type* type = nullptr;
    argument_vector args;
    int visits = 0;
  };

  parser_context(zelk::solver& s, const scanner_methods* methods,
                 table_propagator_base::memory_manager* memory, std::istream* input,
                 const std::string& file_name);
  virtual ~parser_context();
  parser_context(const parser_context&) = delete;
  parser_context& operator=(const parser_context&) = delete;

  typedef std::pair<std::string, position_point> name_type;

  // ---- declarations ---------------------------------------------------------
  bool define_variable(std::ostream& out, small_model::iset domain, const name_type& name,
                       const var_or_value* alias, const std::vector<annotation_type>* annotations,
                       int type);
  bool define_variables(std::ostream& out, small_model::iset domain,
                        const std::vector<name_type>& names, const var_or_value* alias,
                        const std::vector<annotation_type>* annotations, int type);
  bool define_array(std::ostream& out, small_model::iset domain, int size, const name_type& name,
                    const std::vector<var_or_value>* elements,
                    const std::vector<annotation_type>* annotations, int type);
  bool define_arrays(std::ostream& out, small_model::iset domain, int size,
                     const std::vector<name_type>& names,
                     const std::vector<var_or_value>* elements,
                     const std::vector<annotation_type>* annotations, int type);
  bool define_scalar_constant(std::ostream& out, const name_type& name, int value);
  bool define_array_constant(std::ostream& out, const name_type& name,
                             const std::vector<int>& values);
  bool define_array_set_constant(std::ostream& out, const name_type& name,
                                 const std::vector<small_model::iset>& sets);

  // ---- lookups ---------------------------------------------------------------
  unsigned int var_id(const std::string& name) const;
  bool get_constant(const std::string& name, int& value) const;
  unsigned int array_element_id(const std::string& name, unsigned int i) const;
  bool get_const_array_element(const std::string& name, unsigned int i, int& value) const;
  small_model::iset domain(var_or_value v) const;
  std::string var_name(unsigned int id) const;
  bool is_intermediate_var(unsigned int id) const;

  // ---- building ----------------------------------------------------------------
  bool connect_constraint(std::ostream& out, const position_point& where,
                          const std::string& name, const argument_vector& args,
                          const std::vector<annotation_type>* annotations);
  bool create_constraints(std::ostream& out);
  bool set_objective(std::ostream& out, std::unique_ptr<AST> expression, direction dir,
                     unsigned int var);
  void connect_expr(unsigned int var, const AST& ast, AST_builder::usage_type usage);
  unsigned int expression_to_variable(const AST& ast, unsigned int var,
                                      AST_builder::usage_type usage);
  var_or_value from_ast(const AST& ast);
  argument_vector from_ast(const argument_vector& args);
  std::unique_ptr<AST> to_ast(var_or_value v) const;
  std::unique_ptr<AST> ast_var(unsigned int id) const;
  unsigned int singleton_var(int value, bool unique);
  void make_unique_vars(std::vector<unsigned int>& vars);
  unsigned int make_aliased_var(unsigned int x);
  void connect_constraint(const std::vector<unsigned int>& vars,
                          std::unique_ptr<constraint_propagator> propagator);
  void connect_table_propagator(const std::vector<unsigned int>& vars,
                                const std::vector<std::vector<int>>& tuples);
  bool instantiate_element_constraint(std::ostream& out, const position_point& where,
                                      unsigned int index, int offset,
                                      const std::vector<var_or_value>& array,
                                      unsigned int result);
  void print_solution(std::ostream& out) const;

  // ---- fields ------------------------------------------------------------------
  void* scanner = nullptr;
  std::istream* input;
  std::string file_name;
  direction objective_direction = NO_DIRECTION;
  std::unique_ptr<AST> objective_expression;
  unsigned int objective_var = NONE;
  std::map<std::string, symbol_info> symbols;
  std::vector<std::string> var_names;
  std::map<std::string, std::unique_ptr<constraint_type>> constraint_types;
  std::vector<unsigned int> variable_identity;
  AST_builder builder;
  bool detect_all_different = true;
  std::vector<std::unique_ptr<postponed_constraint>> postponed;
  zelk::solver* solver;
  const scanner_methods* methods;
  table_propagator_base::memory_manager* memory;

 private:
  bool check_redefinition(std::ostream& out, const name_type& name, const char* suffix,
                          int size);
  void record_var_name(unsigned int id, const std::string& name);
  symbol_info* symbol_from_annotation(std::ostream& out, const position_point& where,
                                      const annotation_type& annotation);
  bool has_defined_var(const argument_vector& args) const;
  bool instantiate_postponed(std::ostream& out, postponed_constraint& p, symbol_info* symbol,
                             std::unique_ptr<AST>& result);
  bool instantiate_var_define(std::ostream& out, unsigned int id, std::unique_ptr<AST>& ast);
  void update_variable_identity_function();
  void connect_minimization();
  void connect_maximization();
  void print_value(std::ostream& out, const symbol_info& symbol, const var_or_set& v) const;
  // A declared constant outside its domain has no solution: the model is marked
  // unsatisfiable instead of keeping a value the declaration forbids.
  void refuse_constant_outside(std::ostream& out, const position_point& where,
                               const std::string& name, int value, small_model::iset domain);
};

std::ostream& operator<<(std::ostream& out, const parser_context::position_point& p);

}  // namespace zelk

#endif
