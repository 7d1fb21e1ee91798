// The XCSP 2.1 model loader: the events of one document (CSPParserCallback) turned
// into variables and constraints of an xcsp_solver.
//
// Symbol ids index the tables below, and the variables are created in id order, so
// the id of every variable in a tree or a parameter list is its solver variable.
// Binary relations that say "different", "equal" or something that implies
// "different" are recognised and handed to the builder as such, which is much
// cheaper than a table; predicates go through AST_builder; an objective is a
// weighted sum with a reserved name and one term of coefficient 0.
#ifndef ZELK_XCSP_XCSP_CALLBACKS_H
#define ZELK_XCSP_XCSP_CALLBACKS_H

#include <memory>
#include <string>
#include <vector>

#include "impl/AST_builder.h"
#include "impl/small_iset.h"
#include "impl/table_propagators.h"
#include "impl/tuple_set.h"
#include "xcsp/CSPParserCallback.h"

namespace zelk {

class xcsp_solver;

class xcsp_callbacks : public CSPXMLParser::CSPParserCallback {
 public:
  // What a binary relation is equivalent to, or implies, within its
  // precondition domains.
  enum shortcut_type {
    NO_SHORTCUT = 0,
    IMPLIES_DIFF = 1,
    EQUIVALENT_DIFF = 2,
    EQUIVALENT_EQUAL = 3
  };

  struct domain_info_type {
    std::string name;  // empty until declared
    small_model::iset values;
  };

  struct predicate_info_type {
    std::unique_ptr<CSPXMLParser::AST> tree;  // null until the functional expression arrives
    std::string name;
    unsigned int formal_count = 0;  // parameters of the definition: a call must pass as many
    int max_var_id = -1;            // the highest position the tree reads
  };

  struct relation_info_type {
    std::string name;  // empty until beginRelation
    int arity = 0;
    bool is_conflict_set = false;
    std::vector<std::vector<int>> tuples;
    tuple_set conflict_cubes;
    std::unique_ptr<constraint_propagator> table;  // support_table_propagator prototype
    int shortcut = NO_SHORTCUT;
    // Where the shortcut of a conflict set is exact, one set per position.
    std::vector<small_model::iset> precondition_domains;
    // What a support relation with a shortcut still says about each position.
    std::vector<small_model::iset> tuple_domains;

    // Sorts the tuples, classifies them, and builds the cubes or the table.
    void build(table_propagator_base::memory_manager& memory);
    void instantiate(xcsp_callbacks& callbacks, const std::vector<unsigned int>& vars) const;

    // The classification; each needs sorted, duplicate-free tuples and is false
    // unless the relation is binary and has tuples.
    bool tuples_equivalent_with_diff() const;
    bool tuples_equivalent_with_equality() const;
    bool tuples_imply_diff() const;
    bool tuples_are_complementary_equal_pairs() const;
    bool tuples_have_all_equal_pairs() const;
    bool tuples_are_all_different() const;
    bool tuples_are_diagonal() const;
    void collect_tuple_domains(std::vector<small_model::iset>& out) const;
  };

  xcsp_callbacks(xcsp_solver& s, table_propagator_base::memory_manager& memory);
  ~xcsp_callbacks() override;

  // Off: the cliques of disequalities stay pairwise (option -a twice).
  void set_detect_all_diff(bool detect) { m_detect_all_diff = detect; }

  void beginInstance(const std::string& name) override;

  void beginDomainsSection(int nbDomains) override;
  void beginDomain(const std::string& name, int id, int nbValues) override;
  void addDomainValue(int value) override;
  void addDomainValue(int first, int last) override;
  void endDomain() override;
  void endDomainsSection() override {}

  void beginVariablesSection(int nbVariables) override;
  void addVariable(const std::string& name, int id, const std::string& domainName,
                   int domainId) override;
  void endVariablesSection() override;

  void beginRelationsSection(int nbRelations) override;
  void beginRelation(const std::string& name, int id, int arity, int nbTuples,
                     CSPXMLParser::RelType type) override;
  void addRelationTuple(int arity, int* tuple) override;
  void addRelationTuple(int arity, int* tuple, int cost) override;
  void endRelation() override;
  void endRelationsSection() override {}

  void beginPredicatesSection(int) override {}
  void beginPredicate(const std::string& name, int id) override;
  void addFormalParameter(int position, const std::string& name, const std::string& type) override;
  void predicateExpression(CSPXMLParser::AST* tree) override;
  void predicateExpression(const std::string& expression) override;
  void endPredicate() override {}
  void endPredicatesSection() override {}

  void beginConstraintsSection(int) override {}
  void beginConstraint(const std::string& name, int id, int arity, const std::string& reference,
                       CSPXMLParser::CSPDefinitionType type, int referenceId,
                       const CSPXMLParser::ASTList& scope) override;
  void constraintParameters(const CSPXMLParser::ASTList& arguments) override;
  void endConstraint() override {}
  void endConstraintsSection() override;

  void endInstance() override {}

  xcsp_solver& get_solver() { return m_solver; }
  AST_builder& builder() { return m_builder; }

 private:
  // Codes of the global constraints the reader passes as referenceId.
  static constexpr int GLOBAL_ALL_DIFFERENT = 0;
  static constexpr int GLOBAL_WEIGHTED_SUM = 5;

  void parameters_to_variables(const CSPXMLParser::ASTList& list, std::vector<unsigned int>& vars);
  void instantiate_predicate(const std::vector<unsigned int>& vars);
  void instantiate_weighted_sum_or_objective(const CSPXMLParser::ASTList& arguments);
  bool maybe_set_objective(const std::vector<int>& coefficients,
                           const std::vector<unsigned int>& vars);
  std::string overwriting(const std::string& name, const std::string& old_name) const;

  xcsp_solver& m_solver;
  AST_builder m_builder;
  std::string m_instance_name;
  int m_current_domain = -1;
  std::vector<domain_info_type> m_domains;
  std::vector<domain_info_type> m_variables;
  int m_current_relation = -1;
  std::string m_constraint_name;
  std::vector<relation_info_type> m_relations;
  std::vector<predicate_info_type> m_predicates;
  int m_reference_id = -1;
  CSPXMLParser::CSPDefinitionType m_reference_type = CSPXMLParser::UNDEF;
  table_propagator_base::memory_manager& m_memory;
  bool m_detect_all_diff = true;
};

}  // namespace zelk

#endif
