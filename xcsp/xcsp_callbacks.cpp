// The XCSP 2.1 model loader; see xcsp_callbacks.h. Entry point: the reader calls
// the events in document order, and endConstraintsSection posts what the builder
// has collected.
#include "xcsp/xcsp_callbacks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "impl/clause_propagator.h"
#include "impl/operator_connectivity.h"
#include "xcsp/AST.h"
#include "xcsp/xcsp_solver.h"

namespace zelk {

using CSPXMLParser::AST;
using CSPXMLParser::ASTList;

namespace {

std::string infix(const AST& node) {
  std::ostringstream os;
  node.infixExpression(os);
  return os.str();
}

// Read once: the environment does not change during a run.
bool imply_disabled() {
  static const bool disabled = std::getenv("DISABLE_IMPLY") != nullptr;
  return disabled;
}

int max_var_id(const AST& node) {
  if (node.getType() == CSPXMLParser::VAR) return static_cast<const CSPXMLParser::ASTVar&>(node).id;
  int result = -1;
  if (node.getType() == CSPXMLParser::CST_INT || node.getType() == CSPXMLParser::CST_BOOL)
    return result;
  for (int i = 0; i < node.nbArg(); ++i)
    if (const AST* child = node.getArg(i)) result = std::max(result, max_var_id(*child));
  return result;
}

bool starts_with(const std::string& text, const char* prefix) {
  return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

}  // namespace

//==== relations ==================================================================

void xcsp_callbacks::relation_info_type::build(table_propagator_base::memory_manager& memory) {
  if (!std::is_sorted(tuples.begin(), tuples.end())) std::sort(tuples.begin(), tuples.end());
  tuples.erase(std::unique(tuples.begin(), tuples.end()), tuples.end());
  if (tuples_equivalent_with_diff())
    shortcut = EQUIVALENT_DIFF;
  else if (tuples_equivalent_with_equality())
    shortcut = EQUIVALENT_EQUAL;
  else if (tuples_imply_diff())
    shortcut = IMPLIES_DIFF;
  if (shortcut != NO_SHORTCUT)
    collect_tuple_domains(is_conflict_set ? precondition_domains : tuple_domains);
  if (is_conflict_set) {
    conflict_cubes.insert(tuples);
    return;
  }
  table = std::make_unique<support_table_propagator>(memory, tuples);
  std::vector<std::vector<int>>().swap(tuples);
}

void xcsp_callbacks::relation_info_type::collect_tuple_domains(
    std::vector<small_model::iset>& out) const {
  out.clear();
  if (tuples.empty()) return;
  out.resize(std::size_t(arity));
  for (const std::vector<int>& tuple : tuples)
    for (std::size_t i = 0; i < tuple.size(); ++i) out[i].insert(tuple[i]);
}

bool xcsp_callbacks::relation_info_type::tuples_equivalent_with_diff() const {
  if (arity != 2 || tuples.empty()) return false;
  return is_conflict_set ? tuples_are_diagonal() : tuples_are_complementary_equal_pairs();
}

bool xcsp_callbacks::relation_info_type::tuples_equivalent_with_equality() const {
  if (arity != 2 || tuples.empty()) return false;
  return is_conflict_set ? tuples_are_complementary_equal_pairs() : tuples_are_diagonal();
}

bool xcsp_callbacks::relation_info_type::tuples_imply_diff() const {
  if (imply_disabled() || arity != 2 || tuples.empty()) return false;
  return is_conflict_set ? tuples_have_all_equal_pairs() : tuples_are_all_different();
}

bool xcsp_callbacks::relation_info_type::tuples_are_diagonal() const {
  return std::all_of(tuples.begin(), tuples.end(),
                     [](const std::vector<int>& t) { return t[0] == t[1]; });
}

bool xcsp_callbacks::relation_info_type::tuples_are_all_different() const {
  return std::none_of(tuples.begin(), tuples.end(),
                      [](const std::vector<int>& t) { return t[0] == t[1]; });
}

// All ordered pairs of distinct values of one set S: k(k-1) of them for |S| = k.
bool xcsp_callbacks::relation_info_type::tuples_are_complementary_equal_pairs() const {
  if (arity != 2 || tuples.empty()) return false;
  const std::size_t n = tuples.size();
  const std::size_t k = std::size_t((std::sqrt(4.0 * double(n) + 1.0) + 1.1) / 2.0);
  if (k * (k - 1) != n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    if (tuples[i][0] == tuples[i][1]) return false;
    if (i > 0 && !(tuples[i - 1] < tuples[i])) return false;
  }
  std::vector<small_model::iset> domains;
  collect_tuple_domains(domains);
  return domains[0] == domains[1] && domains[0].size() == k;
}

// The whole diagonal of the values that occur: within those values x = y is forbidden.
bool xcsp_callbacks::relation_info_type::tuples_have_all_equal_pairs() const {
  if (arity != 2 || tuples.empty()) return false;
  small_model::iset first, diagonal;
  for (const std::vector<int>& t : tuples) {
    first.insert(t[0]);
    if (t[0] == t[1]) diagonal.insert(t[0]);
  }
  if (!first.subset_of(diagonal)) return false;
  std::vector<small_model::iset> domains;
  collect_tuple_domains(domains);
  return domains[0] == domains[1];
}

void xcsp_callbacks::relation_info_type::instantiate(xcsp_callbacks& callbacks,
                                                     const std::vector<unsigned int>& vars) const {
  solver& s = callbacks.get_solver();
  if (vars.size() != std::size_t(arity)) {
    throw std::runtime_error("relation " + name + " of arity " + std::to_string(arity) +
                             " is given " + std::to_string(vars.size()) + " variables");
  }
  bool post = true;
  if (shortcut != NO_SHORTCUT) {
    bool within = true;
    for (std::size_t i = 0; i < precondition_domains.size(); ++i)
      within = within && s.stack().domain(vars[i]).subset_of(precondition_domains[i]);
    if (within) {
      switch (shortcut) {
        case EQUIVALENT_DIFF:
          callbacks.builder().differentiate_variables(vars[0], vars[1]);
          post = false;
          break;
        case EQUIVALENT_EQUAL:
          callbacks.builder().equate_variables(vars[0], vars[1]);
          post = false;
          break;
        case IMPLIES_DIFF:
          callbacks.builder().mark_unequal_variables(vars[0], vars[1]);
          break;
        default:
          break;
      }
    }
  }
  if (post && is_conflict_set) {
    // Each cube of forbidden tuples is one clause: some position leaves its set.
    for (const std::vector<small_model::iset>& cube : conflict_cubes.rows) {
      std::vector<small_model::iset> literals(cube.size());
      for (std::size_t i = 0; i < cube.size(); ++i) literals[i] = ~cube[i];
      constraint_connectivity_info& c =
          s.add_constraint(std::make_unique<clause_propagator>(std::move(literals)));
      for (unsigned int var : vars) c << var;
    }
  } else if (post) {
    constraint_connectivity_info& c = s.add_constraint(table->clone());
    for (unsigned int var : vars) c << var;
  }
  for (std::size_t i = 0; i < tuple_domains.size(); ++i) {
    const small_model::iset domain = s.stack().domain(vars[i]);
    if (!domain.subset_of(tuple_domains[i]))
      s.set_var_domain(vars[i], domain & tuple_domains[i], -1);
  }
}

//==== the loader =================================================================

xcsp_callbacks::xcsp_callbacks(xcsp_solver& s, table_propagator_base::memory_manager& memory)
    : m_solver(s), m_builder(s), m_memory(memory) {}

xcsp_callbacks::~xcsp_callbacks() = default;

std::string xcsp_callbacks::overwriting(const std::string& name,
                                        const std::string& old_name) const {
  return name + ": overwriting existing " + old_name;
}

void xcsp_callbacks::beginInstance(const std::string& name) {
  m_instance_name = name;
  m_domains.clear();
}

void xcsp_callbacks::beginDomainsSection(int nbDomains) {
  m_domains.resize(std::size_t(nbDomains));
}

void xcsp_callbacks::beginDomain(const std::string& name, int id, int) {
  if (m_current_domain != -1) throw std::runtime_error("did not finish previous domain");
  domain_info_type& domain = m_domains.at(std::size_t(id));
  if (!domain.name.empty()) throw std::runtime_error(overwriting(name, domain.name));
  domain.name = name;
  m_current_domain = id;
}

void xcsp_callbacks::addDomainValue(int value) {
  m_domains.at(std::size_t(m_current_domain)).values.insert(value);
}

void xcsp_callbacks::addDomainValue(int first, int last) {
  small_model::iset& values = m_domains.at(std::size_t(m_current_domain)).values;
  // A value outside 0..31 raises at once, so the loop stays short.
  for (long long v = first; v <= last; ++v) values.insert(int(v));
}

void xcsp_callbacks::endDomain() { m_current_domain = -1; }

void xcsp_callbacks::beginVariablesSection(int nbVariables) {
  m_variables.resize(std::size_t(nbVariables));
}

void xcsp_callbacks::addVariable(const std::string& name, int id, const std::string& domainName,
                                 int domainId) {
  domain_info_type& variable = m_variables.at(std::size_t(id));
  if (!variable.name.empty()) throw std::runtime_error(overwriting(name, variable.name));
  variable.name = name;
  const domain_info_type& domain = m_domains.at(std::size_t(domainId));
  if (domain.name != domainName) throw std::runtime_error("mismatch domain name");
  variable.values = domain.values;
}

void xcsp_callbacks::endVariablesSection() {
  for (const domain_info_type& variable : m_variables) {
    if (!variable.name.empty())
      m_solver.add_var(variable.values, variable.name.c_str(), true);
    else  // announced by nbVariables, never declared
      m_solver.add_var(small_model::iset::singleton(0), "a_dummy_0_var", true);
  }
  m_variables.clear();
  m_solver.reported_variable_count = m_solver.num_variables();
}

void xcsp_callbacks::beginRelationsSection(int nbRelations) {
  m_relations.resize(std::size_t(nbRelations));
}

void xcsp_callbacks::beginRelation(const std::string& name, int id, int arity, int nbTuples,
                                   CSPXMLParser::RelType type) {
  if (m_current_relation != -1) throw std::runtime_error("did not finish previous relation");
  relation_info_type& relation = m_relations.at(std::size_t(id));
  if (!relation.name.empty()) throw std::runtime_error(overwriting(name, relation.name));
  if (type == CSPXMLParser::REL_SOFT)
    throw AST_builder::unsupported("REL_SOFT: soft relations are not supported");
  relation.name = name;
  relation.arity = arity;
  relation.is_conflict_set = type == CSPXMLParser::REL_CONFLICT;
  relation.tuples.reserve(std::size_t(std::max(nbTuples, 0)));
  m_current_relation = id;
}

void xcsp_callbacks::addRelationTuple(int arity, int* tuple) {
  relation_info_type& relation = m_relations.at(std::size_t(m_current_relation));
  if (arity != relation.arity) throw std::runtime_error("Mismatch arity");
  relation.tuples.emplace_back(tuple, tuple + arity);
}

void xcsp_callbacks::addRelationTuple(int, int*, int) {
  throw AST_builder::unsupported("Soft tuples are not supported");
}

void xcsp_callbacks::endRelation() {
  m_relations.at(std::size_t(m_current_relation)).build(m_memory);
  m_current_relation = -1;
}

void xcsp_callbacks::beginPredicate(const std::string& name, int id) {
  if (std::size_t(id) != m_predicates.size())
    throw std::runtime_error("Expecting a different predicate ID");
  m_predicates.emplace_back();
  m_predicates.back().name = name;
}

void xcsp_callbacks::addFormalParameter(int position, const std::string&, const std::string&) {
  if (m_predicates.empty()) return;
  unsigned int& count = m_predicates.back().formal_count;
  count = std::max(count, unsigned(position) + 1);
}

void xcsp_callbacks::predicateExpression(AST* tree) {
  std::unique_ptr<AST> owned(tree);
  if (m_predicates.empty() || m_predicates.back().tree)
    throw std::runtime_error("Updating an expression for an old predicate");
  m_predicates.back().max_var_id = max_var_id(*owned);
  m_predicates.back().tree = std::move(owned);
}

void xcsp_callbacks::predicateExpression(const std::string&) {
  throw AST_builder::unsupported("predicateExpression unsupported");
}

//==== constraints ================================================================

void xcsp_callbacks::beginConstraint(const std::string& name, int, int,
                                     const std::string& reference,
                                     CSPXMLParser::CSPDefinitionType type, int referenceId,
                                     const ASTList&) {
  m_constraint_name = name;
  m_reference_id = referenceId;
  m_reference_type = type;
  switch (type) {
    case CSPXMLParser::RELATION:
      if (m_relations.at(std::size_t(referenceId)).name != reference)
        throw std::runtime_error("relation name mismatch");
      return;
    case CSPXMLParser::PREDICATE:
      if (m_predicates.at(std::size_t(referenceId)).name != reference)
        throw std::runtime_error("reference name mismatch");
      return;
    case CSPXMLParser::GLOBAL_CONSTRAINT:
      if (referenceId != GLOBAL_ALL_DIFFERENT && referenceId != GLOBAL_WEIGHTED_SUM)
        throw AST_builder::unsupported("GlobalConstraintType unsupported");
      return;
    default:
      throw AST_builder::unsupported("Unsupported reference type");
  }
}

void xcsp_callbacks::constraintParameters(const ASTList& arguments) {
  if (m_reference_type == CSPXMLParser::GLOBAL_CONSTRAINT &&
      m_reference_id == GLOBAL_WEIGHTED_SUM) {
    instantiate_weighted_sum_or_objective(arguments);
    return;
  }
  // Built afresh for each constraint: the positions of one predicate call must
  // not reach into the next.
  std::vector<unsigned int> vars;
  parameters_to_variables(arguments, vars);
  switch (m_reference_type) {
    case CSPXMLParser::PREDICATE:
      instantiate_predicate(vars);
      break;
    case CSPXMLParser::RELATION:
      m_relations.at(std::size_t(m_reference_id)).instantiate(*this, vars);
      break;
    case CSPXMLParser::GLOBAL_CONSTRAINT:
      m_builder.instantiate_all_different(vars);
      break;
    default:
      break;
  }
}

void xcsp_callbacks::parameters_to_variables(const ASTList& list, std::vector<unsigned int>& vars) {
  for (std::size_t i = 0; i < list.list.size(); ++i) {
    const AST* node = list.list[i];
    switch (node == nullptr ? CSPXMLParser::SYMB_NIL : node->getType()) {
      case CSPXMLParser::VAR:
        vars.push_back(unsigned(static_cast<const CSPXMLParser::ASTVar*>(node)->id));
        break;
      case CSPXMLParser::CST_INT:
        vars.push_back(
            m_solver.singleton_var(static_cast<const CSPXMLParser::ASTInteger*>(node)->val));
        break;
      case CSPXMLParser::CST_BOOL:
        vars.push_back(
            m_solver.singleton_var(static_cast<const CSPXMLParser::ASTBoolean*>(node)->val));
        break;
      case CSPXMLParser::LIST:
        parameters_to_variables(static_cast<const ASTList&>(*node), vars);
        break;
      default:
        throw AST_builder::unsupported("Unsupported expression in parameter " + std::to_string(i) +
                                       ":" + (node == nullptr ? std::string() : infix(*node)));
    }
  }
}

void xcsp_callbacks::instantiate_predicate(const std::vector<unsigned int>& vars) {
  const predicate_info_type& predicate = m_predicates.at(std::size_t(m_reference_id));
  if (!predicate.tree) {
    throw std::runtime_error("constraint " + m_constraint_name + ": predicate " + predicate.name +
                             " has no expression in functional syntax");
  }
  // The reader keeps the names of earlier predicates, so a tree may name a
  // parameter that its own predicate does not declare.
  if (predicate.max_var_id >= int(predicate.formal_count)) {
    throw std::runtime_error("constraint " + m_constraint_name + ": predicate " + predicate.name +
                             " names a variable that is not one of its " +
                             std::to_string(predicate.formal_count) + " parameters");
  }
  // The tree reads its parameters by position: a short call would read past them.
  if (vars.size() < predicate.formal_count) {
    throw std::runtime_error("constraint " + m_constraint_name + " passes " +
                             std::to_string(vars.size()) + " parameters to predicate " +
                             predicate.name + ", which has " +
                             std::to_string(predicate.formal_count));
  }
  m_builder.connect_expr(vars, m_solver.singleton_var(1), *predicate.tree,
                         AST_builder::usage_exact);
}

// [ { coef var } ... ] operator bound
void xcsp_callbacks::instantiate_weighted_sum_or_objective(const ASTList& arguments) {
  const std::string where = "constraint " + m_constraint_name + ": global:weightedsum ";
  if (arguments.list.size() != 3 || arguments.list[0] == nullptr ||
      arguments.list[0]->getType() != CSPXMLParser::LIST) {
    throw std::runtime_error(where + "expects a list of terms, an operator and a bound");
  }
  const AST* bound_node = arguments.list[2];
  if (bound_node == nullptr || bound_node->getType() != CSPXMLParser::CST_INT)
    throw std::runtime_error(where + "needs an integer bound");
  // In 64 bits: the bound of gt or lt may stand at the limit of int.
  long long bound = static_cast<const CSPXMLParser::ASTInteger*>(bound_node)->val;
  bool is_ge = false;
  bool is_le = false;
  const AST* op = arguments.list[1];
  switch (op == nullptr ? CSPXMLParser::F_NEG : op->getType()) {
    case CSPXMLParser::SYMB_EQ:
      is_ge = is_le = true;
      break;
    case CSPXMLParser::SYMB_GE:
      is_ge = true;
      break;
    case CSPXMLParser::SYMB_GT:
      is_ge = true;
      bound += 1;
      break;
    case CSPXMLParser::SYMB_LE:
      is_le = true;
      break;
    case CSPXMLParser::SYMB_LT:
      is_le = true;
      bound -= 1;
      break;
    default:
      throw AST_builder::unsupported("global:weightedsum does not support '" +
                                     (op == nullptr ? std::string() : infix(*op)) + "'");
  }
  std::vector<int> coefficients;
  std::vector<unsigned int> vars;
  for (const AST* term : static_cast<const ASTList&>(*arguments.list[0]).list) {
    if (term == nullptr || term->getType() != CSPXMLParser::DICT)
      throw std::runtime_error(where + "expects { coef var } terms");
    const auto& entries = static_cast<const CSPXMLParser::ASTDict&>(*term).entries;
    const auto coef = entries.find("coef");
    const auto var = entries.find("var");
    if (coef == entries.end() || coef->second == nullptr ||
        coef->second->getType() != CSPXMLParser::CST_INT)
      throw std::runtime_error(where + "needs an integer coef in every term");
    if (var == entries.end() || var->second == nullptr ||
        var->second->getType() != CSPXMLParser::VAR)
      throw std::runtime_error(where + "needs a variable in every term");
    coefficients.push_back(static_cast<const CSPXMLParser::ASTInteger*>(coef->second)->val);
    vars.push_back(unsigned(static_cast<const CSPXMLParser::ASTVar*>(var->second)->id));
  }
  if (maybe_set_objective(coefficients, vars)) return;
  if (is_ge) m_builder.instantiate_weighted_sum(coefficients, vars, true, bound);
  if (is_le) m_builder.instantiate_weighted_sum(coefficients, vars, false, bound);
}

// The objective rides on a weighted sum with a reserved name and one term of
// coefficient 0, which constrains nothing.
bool xcsp_callbacks::maybe_set_objective(const std::vector<int>& coefficients,
                                         const std::vector<unsigned int>& vars) {
  if (coefficients.size() != 1 || coefficients[0] != 0) return false;
  const bool maximize = starts_with(m_constraint_name, "Optimize:maximize");
  if (!maximize && !starts_with(m_constraint_name, "Optimize:minimize")) return false;
  m_solver.objective_variable = int(vars[0]);
  m_solver.minimize = !maximize;
  return true;
}

void xcsp_callbacks::endConstraintsSection() {
  if (m_detect_all_diff) m_builder.detect_all_diff();
  m_builder.connectivity().create_all_constraints();
}

}  // namespace zelk
