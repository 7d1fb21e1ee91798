#include "text_formats/parser_context.h"

#include <algorithm>
#include <cstdlib>
#include <istream>
#include <ostream>
#include <set>
#include <sstream>

#include "impl/comparison_propagators.h"
#include "impl/constraint_propagator.h"
#include "impl/solver.h"
#include "xcsp/AST.h"

namespace zelk {

namespace xml = CSPXMLParser;
using small_model::iset;

//==== trees and arguments ==============================================================

std::unique_ptr<xml::AST> deep_copy(const xml::AST& ast) {
  switch (ast.getType()) {
    case xml::VAR: {
      const auto& v = static_cast<const xml::ASTVar&>(ast);
      return std::make_unique<xml::ASTVar>(v.name, v.id);
    }
    case xml::CST_INT:
      return std::make_unique<xml::ASTInteger>(static_cast<const xml::ASTInteger&>(ast).val);
    case xml::CST_BOOL:
      return std::make_unique<xml::ASTBoolean>(static_cast<const xml::ASTBoolean&>(ast).val);
    case xml::SYMB_NIL:
    case xml::SYMB_EQ:
    case xml::SYMB_NE:
    case xml::SYMB_GE:
    case xml::SYMB_GT:
    case xml::SYMB_LE:
    case xml::SYMB_LT:
      return std::make_unique<xml::ASTSymb>(ast.getType());
    case xml::DICT_KEY:
      return std::make_unique<xml::ASTDictKey>(static_cast<const xml::ASTDictKey&>(ast).key);
    default:
      break;
  }
  const auto* function = dynamic_cast<const xml::ASTAbstractFunction*>(&ast);
  if (function == nullptr) throw std::runtime_error("deep_copy: a tree node that cannot be copied");
  std::unique_ptr<xml::ASTAbstractFunction> copy(function->makeNode());
  for (int i = 0; i < function->nbArg(); ++i) {
    const xml::AST* child = function->getArg(i);
    if (child != nullptr) copy->setArg(i, deep_copy(*child).release());
  }
  return copy;
}

parser_context::argument_vector parser_context::clone_arguments(const argument_vector& args) {
  argument_vector copy;
  copy.reserve(args.size());
  for (const auto& a : args) copy.push_back(a ? a->clone() : nullptr);
  return copy;
}

parser_context::annotation_type::annotation_type(const annotation_type& o) : name(o.name) {
  if (o.args) args = std::make_unique<argument_vector>(clone_arguments(*o.args));
}

parser_context::annotation_type& parser_context::annotation_type::operator=(
    const annotation_type& o) {
  if (this != &o) {
    name = o.name;
    args = o.args ? std::make_unique<argument_vector>(clone_arguments(*o.args)) : nullptr;
  }
  return *this;
}

std::unique_ptr<parser_context::argument_type> parser_context::var_argument::clone() const {
  return std::make_unique<var_argument>(*this);
}
std::unique_ptr<parser_context::argument_type> parser_context::array_argument::clone() const {
  return std::make_unique<array_argument>(*this);
}
std::unique_ptr<parser_context::argument_type> parser_context::ast_argument::clone() const {
  return std::make_unique<ast_argument>(ast ? deep_copy(*ast) : nullptr);
}
std::unique_ptr<parser_context::argument_type> parser_context::ast_array_argument::clone()
    const {
  auto copy = std::make_unique<ast_array_argument>();
  for (const auto& a : asts) copy->asts.push_back(a ? deep_copy(*a) : nullptr);
  return copy;
}
std::unique_ptr<parser_context::argument_type>
parser_context::array_dimension_argument::clone() const {
  return std::make_unique<array_dimension_argument>(*this);
}
std::unique_ptr<parser_context::argument_type> parser_context::annotation_argument::clone()
    const {
  return std::make_unique<annotation_argument>(annotation);
}

unsigned int parser_context::var_or_value::to_id(parser_context& context) const {
  return is_constant() ? context.singleton_var(value, false) : id;
}

std::unique_ptr<xml::AST> parser_context::constraint_type::to_ast(var_or_value v) {
  if (v.is_constant()) return std::make_unique<xml::ASTInteger>(v.value);
  return ast_var(v.id);
}

std::unique_ptr<xml::AST> parser_context::constraint_type::ast_var(unsigned int id) {
  return std::make_unique<xml::ASTVar>("$" + std::to_string(id), int(id));
}

std::ostream& operator<<(std::ostream& out, const parser_context::position_point& p) {
  return out << (p.file ? *p.file : std::string()) << ":" << p.line << ":" << p.column;
}

void parser_context::symbol_info::print(std::ostream& out, const std::string& name) const {
  out << name;
  if (is_array) out << "[1.." << values.size() << "]";
}

//==== construction =====================================================================

parser_context::parser_context(zelk::solver& s, const scanner_methods* scanner_methods,
                               table_propagator_base::memory_manager* memory_manager,
                               std::istream* in, const std::string& name)
    : input(in),
      file_name(name),
      builder(s),
      solver(&s),
      methods(scanner_methods),
      memory(memory_manager) {
  input->unsetf(std::ios::skipws);
  methods->start_scanner(*this);
}

parser_context::~parser_context() { methods->destroy_scanner(*this); }

//==== declarations =====================================================================

namespace {

bool has_annotation(const std::vector<parser_context::annotation_type>& list, const char* name) {
  for (const auto& a : list)
    if (a.name == name) return true;
  return false;
}

void intersect_annotations(parser_context::symbol_info& a, parser_context::symbol_info& b) {
  const bool intermediate = a.is_intermediate && b.is_intermediate;
  a.is_intermediate = b.is_intermediate = intermediate;
  const bool in_a = has_annotation(a.annotations, "is_defined_var");
  const bool in_b = has_annotation(b.annotations, "is_defined_var");
  if (in_a == in_b) return;
  auto& list = in_a ? a.annotations : b.annotations;
  list.erase(std::remove_if(list.begin(), list.end(),
                            [](const parser_context::annotation_type& x) {
                              return x.name == "is_defined_var";
                            }),
             list.end());
}

}  // namespace

bool parser_context::check_redefinition(std::ostream& out, const name_type& name,
                                        const char* suffix, int size) {
  const auto it = symbols.find(name.first);
  if (it == symbols.end()) return true;
  out << name.second << ": redefinition of " << name.first;
  if (suffix) out << suffix << size << "]";
  out << "\n";
  out << it->second.location << ": ";
  it->second.print(out, it->first);
  out << " was previously defined here\n";
  return false;
}

void parser_context::record_var_name(unsigned int id, const std::string& name) {
  if (id >= var_names.size()) var_names.resize(2 * std::size_t(id) + 2);
  var_names[id] = name;
}

void parser_context::refuse_constant_outside(std::ostream& out, const position_point& where,
                                             const std::string& name, int value,
                                             iset domain) {
  if (domain.contains(value)) return;
  out << "% " << where << ": the value " << value << " of " << name
      << " lies outside its domain " << domain << "\n";
  builder.mark_unsat();
}

bool parser_context::define_variable(std::ostream& out, iset domain, const name_type& name,
                                     const var_or_value* alias,
                                     const std::vector<annotation_type>* annotations,
                                     int type) {
  if (type & TYPE_SET) {
    out << name.second << ": set variables are unsupported.\n";
    return false;
  }
  if (!check_redefinition(out, name, nullptr, 0)) return false;
  symbol_info& symbol = symbols[name.first];
  symbol_info* alias_symbol = nullptr;
  var_or_set entry;
  if (alias != nullptr && !alias->is_constant()) {
    const unsigned int v = alias->id;
    solver->set_var_domain(v, domain & solver->stack().domain(v), -1);
    if (solver->stack().domain(v).empty()) builder.mark_unsat();
    entry.id = v;
    if (v < var_names.size() && !var_names[v].empty()) {
      const auto it = symbols.find(var_names[v]);
      if (it != symbols.end() && &it->second != &symbol) alias_symbol = &it->second;
    }
  } else if (alias != nullptr) {
    entry.set = iset::singleton(alias->value);
    refuse_constant_outside(out, name.second, name.first, alias->value, domain);
  } else {
    const unsigned int v = solver->add_var(domain, name.first.c_str(), false);
    record_var_name(v, name.first);
    entry.id = v;
  }
  symbol.values.push_back(entry);
  if (annotations) symbol.annotations = *annotations;
  symbol.is_intermediate = has_annotation(symbol.annotations, "is_defined_var") &&
                           has_annotation(symbol.annotations, "var_is_introduced");
  symbol.location = name.second;
  symbol.type = type;
  if (alias_symbol) intersect_annotations(symbol, *alias_symbol);
  return true;
}

bool parser_context::define_variables(std::ostream& out, iset domain,
                                      const std::vector<name_type>& names,
                                      const var_or_value* alias,
                                      const std::vector<annotation_type>* annotations,
                                      int type) {
  for (const auto& name : names)
    if (!define_variable(out, domain, name, alias, annotations, type)) return false;
  return true;
}

bool parser_context::define_array(std::ostream& out, iset domain, int size,
                                  const name_type& name,
                                  const std::vector<var_or_value>* elements,
                                  const std::vector<annotation_type>* annotations, int type) {
  if (type & TYPE_SET) {
    out << name.second << ": set variables are unsupported.\n";
    return false;
  }
  if (!check_redefinition(out, name, "[1..", size)) return false;
  symbol_info& symbol = symbols[name.first];
  symbol.is_array = true;
  if (annotations) symbol.annotations = *annotations;
  symbol.location = name.second;
  symbol.type = type;
  for (int i = 0; i < size; ++i) {
    var_or_set entry;
    if (elements != nullptr && std::size_t(i) < elements->size()) {
      const var_or_value& e = (*elements)[std::size_t(i)];
      if (!e.is_constant()) {
        solver->set_var_domain(e.id, domain & solver->stack().domain(e.id), -1);
        if (solver->stack().domain(e.id).empty()) builder.mark_unsat();
        entry.id = e.id;
      } else {
        entry.set = iset::singleton(e.value);
        refuse_constant_outside(out, name.second, name.first + "[" + std::to_string(i + 1) + "]",
                                e.value, domain);
      }
    } else {
      const std::string element_name = name.first + "[" + std::to_string(i) + "]";
      entry.id = solver->add_var(domain, element_name.c_str(), false);
    }
    symbol.values.push_back(entry);
  }
  return true;
}

bool parser_context::define_arrays(std::ostream& out, iset domain, int size,
                                   const std::vector<name_type>& names,
                                   const std::vector<var_or_value>* elements,
                                   const std::vector<annotation_type>* annotations, int type) {
  for (const auto& name : names)
    if (!define_array(out, domain, size, name, elements, annotations, type)) return false;
  return true;
}

bool parser_context::define_scalar_constant(std::ostream& out, const name_type& name,
                                            int value) {
  if (!check_redefinition(out, name, nullptr, 0)) return false;
  symbol_info& symbol = symbols[name.first];
  var_or_set entry;
  entry.set = iset::singleton(value);
  symbol.values.push_back(entry);
  symbol.location = name.second;
  symbol.type = TYPE_INT;
  return true;
}

bool parser_context::define_array_constant(std::ostream& out, const name_type& name,
                                           const std::vector<int>& values) {
  if (!check_redefinition(out, name, "[1..", int(values.size()))) return false;
  symbol_info& symbol = symbols[name.first];
  for (int v : values) {
    var_or_set entry;
    entry.set = iset::singleton(v);
    symbol.values.push_back(entry);
  }
  symbol.location = name.second;
  symbol.type = TYPE_INT;
  symbol.is_array = true;
  return true;
}

bool parser_context::define_array_set_constant(std::ostream& out, const name_type& name,
                                               const std::vector<iset>& sets) {
  if (!check_redefinition(out, name, "[1..", int(sets.size()))) return false;
  symbol_info& symbol = symbols[name.first];
  for (iset s : sets) {
    var_or_set entry;
    entry.set = s;
    symbol.values.push_back(entry);
  }
  symbol.location = name.second;
  symbol.type = TYPE_SET_OF_INT;
  symbol.is_array = true;
  return true;
}

//==== lookups ==========================================================================

unsigned int parser_context::var_id(const std::string& name) const {
  const auto it = symbols.find(name);
  if (it == symbols.end() || it->second.is_array || it->second.values.empty()) return NONE;
  return it->second.values[0].id;
}

bool parser_context::get_constant(const std::string& name, int& value) const {
  const auto it = symbols.find(name);
  if (it == symbols.end() || it->second.is_array || (it->second.type & TYPE_SET) ||
      it->second.values.empty())
    return false;
  const var_or_set& v = it->second.values[0];
  if (!v.is_constant() || !v.set.is_singleton()) return false;
  value = v.set.min();
  return true;
}

unsigned int parser_context::array_element_id(const std::string& name, unsigned int i) const {
  const auto it = symbols.find(name);
  if (it == symbols.end() || i >= it->second.values.size()) return NONE;
  return it->second.values[i].id;
}

bool parser_context::get_const_array_element(const std::string& name, unsigned int i,
                                             int& value) const {
  const auto it = symbols.find(name);
  if (it == symbols.end() || (it->second.type & TYPE_SET) || i >= it->second.values.size())
    return false;
  const var_or_set& v = it->second.values[i];
  if (!v.is_constant() || !v.set.is_singleton()) return false;
  value = v.set.min();
  return true;
}

iset parser_context::domain(var_or_value v) const {
  if (v.is_constant()) return iset::singleton(v.value);
  return solver->stack().domain(v.id);
}

std::string parser_context::var_name(unsigned int id) const {
  std::ostringstream out;
  solver->stack().print_var_name(out, id);
  return out.str();
}

bool parser_context::is_intermediate_var(unsigned int id) const {
  if (id >= var_names.size() || var_names[id].empty()) return false;
  const auto it = symbols.find(var_names[id]);
  return it != symbols.end() && it->second.is_intermediate;
}

//==== building =========================================================================

parser_context::symbol_info* parser_context::symbol_from_annotation(
    std::ostream& out, const position_point& where, const annotation_type& annotation) {
  // "defines_var" without arguments names nothing.
  if (!annotation.args || annotation.args->empty()) return nullptr;
  const auto* arg = dynamic_cast<const annotation_argument*>(annotation.args->front().get());
  if (arg == nullptr) return nullptr;
  const auto it = symbols.find(arg->annotation.name);
  if (it == symbols.end()) {
    out << "% " << where << ": unknown defines_var(" << arg->annotation.name << ")\n";
    return nullptr;
  }
  return &it->second;
}

bool parser_context::has_defined_var(const argument_vector& args) const {
  for (const auto& a : args) {
    if (const auto* v = dynamic_cast<const var_argument*>(a.get())) {
      if (!v->value.is_constant() && is_intermediate_var(v->value.id)) return true;
    } else if (const auto* array = dynamic_cast<const array_argument*>(a.get())) {
      for (const var_or_value& e : array->values)
        if (!e.is_constant() && is_intermediate_var(e.id)) return true;
    }
  }
  return false;
}

bool parser_context::connect_constraint(std::ostream& out, const position_point& where,
                                        const std::string& name, const argument_vector& args,
                                        const std::vector<annotation_type>* annotations) {
  const auto type = constraint_types.find(name);
  if (type == constraint_types.end()) {
    out << where << " constraint " << name << " is unknown\n";
    return false;
  }
  symbol_info* defined = nullptr;
  if (annotations)
    for (const annotation_type& a : *annotations)
      if (a.name == "defines_var") defined = symbol_from_annotation(out, where, a);
  // A second definition of one symbol would silently drop the first: the later
  // one is an ordinary constraint over the symbol.
  if (defined && defined->is_intermediate && defined->definition) defined = nullptr;
  if (defined && defined->is_intermediate) {
    auto p = std::make_shared<postponed_constraint>();
    p->where = where;
    p->type = type->second.get();
    p->args = clone_arguments(args);
    defined->definition = std::move(p);
    return true;
  }
  if (has_defined_var(args)) {
    auto p = std::make_unique<postponed_constraint>();
    p->where = where;
    p->type = type->second.get();
    p->args = clone_arguments(args);
    postponed.push_back(std::move(p));
    return true;
  }
  std::unique_ptr<AST> result;
  if (!type->second->connect_constraint(out, where, *this, args, defined, result)) return false;
  if (result) {
    if (defined == nullptr || defined->values.empty())
      connect_expr(singleton_var(1, false), *result, AST_builder::usage_exact);
    else
      connect_expr(defined->values[0].is_constant() ? singleton_var(defined->values[0].set.min(), false)
                                                    : defined->values[0].id,
                   *result, AST_builder::usage_exact);
  }
  return true;
}

bool parser_context::instantiate_postponed(std::ostream& out, postponed_constraint& p,
                                           symbol_info* symbol, std::unique_ptr<AST>& result) {
  ++p.visits;
  // The defined symbol's own place stays its variable, so that the constraint can
  // recognise it; only other uses of it close a cycle.
  const unsigned int self = symbol && !symbol->values.empty() ? symbol->values[0].id : NONE;
  const auto instantiate = [&](const var_or_value& v, std::unique_ptr<AST>& ast) {
    if (!v.is_constant() && v.id == self) return true;
    return instantiate_var_define(out, v.id, ast);
  };
  argument_vector args;
  args.reserve(p.args.size());
  for (const auto& a : p.args) {
    if (const auto* v = dynamic_cast<const var_argument*>(a.get())) {
      std::unique_ptr<AST> ast;
      if (!instantiate(v->value, ast)) return false;
      if (!ast) ast = to_ast(v->value);
      args.push_back(std::make_unique<ast_argument>(std::move(ast)));
    } else if (const auto* array = dynamic_cast<const array_argument*>(a.get())) {
      auto converted = std::make_unique<ast_array_argument>();
      for (const var_or_value& e : array->values) {
        std::unique_ptr<AST> ast;
        if (!instantiate(e, ast)) return false;
        if (!ast) ast = to_ast(e);
        converted->asts.push_back(std::move(ast));
      }
      args.push_back(std::move(converted));
    } else {
      args.push_back(a ? a->clone() : nullptr);
    }
  }
  return p.type->connect_constraint(out, p.where, *this, args, symbol, result);
}

bool parser_context::instantiate_var_define(std::ostream& out, unsigned int id,
                                            std::unique_ptr<AST>& ast) {
  if (id == NONE || id >= var_names.size()) return true;
  const auto it = symbols.find(var_names[id]);
  if (it == symbols.end()) return true;
  symbol_info& symbol = it->second;
  if (symbol.expression) {
    ast = deep_copy(*symbol.expression);
    return true;
  }
  if (symbol.definition && symbol.definition->visits == 0) {
    // Hold the definition: building it may reach this symbol again.
    const std::shared_ptr<postponed_constraint> definition = symbol.definition;
    if (!instantiate_postponed(out, *definition, &symbol, ast)) return false;
    if (ast) {
      symbol.expression = std::shared_ptr<AST>(deep_copy(*ast));
      // The variable keeps its declared domain, which the compiler may have cut
      // below what the expression reaches, and a cycle of definitions may have
      // used the variable itself: so it equals the expression. Later copies of the
      // expression meet it again as a common subexpression.
      connect_expr(id, *ast, AST_builder::usage_exact);
    }
  }
  return true;
}

void parser_context::update_variable_identity_function() {
  const unsigned int n = solver->num_variables();
  while (variable_identity.size() < n) variable_identity.push_back(unsigned(variable_identity.size()));
}

void parser_context::connect_expr(unsigned int var, const AST& ast,
                                  AST_builder::usage_type usage) {
  update_variable_identity_function();
  builder.connect_expr(variable_identity, var, ast, usage);
}

unsigned int parser_context::expression_to_variable(const AST& ast, unsigned int var,
                                                    AST_builder::usage_type usage) {
  update_variable_identity_function();
  return builder.expression_to_variable(variable_identity, ast, var, usage);
}

parser_context::var_or_value parser_context::from_ast(const AST& ast) {
  var_or_value v;
  if (ast.getType() == xml::CST_INT) {
    v.value = static_cast<const xml::ASTInteger&>(ast).val;
  } else if (ast.getType() == xml::CST_BOOL) {
    v.value = static_cast<const xml::ASTBoolean&>(ast).val ? 1 : 0;
  } else {
    v.id = expression_to_variable(ast, AST_builder::NO_VARIABLE, AST_builder::usage_exact);
  }
  return v;
}

parser_context::argument_vector parser_context::from_ast(const argument_vector& args) {
  argument_vector converted;
  converted.reserve(args.size());
  for (const auto& a : args) {
    if (const auto* t = dynamic_cast<const ast_argument*>(a.get())) {
      converted.push_back(std::make_unique<var_argument>(from_ast(*t->ast)));
    } else if (const auto* array = dynamic_cast<const ast_array_argument*>(a.get())) {
      auto plain = std::make_unique<array_argument>();
      for (const auto& e : array->asts) plain->values.push_back(from_ast(*e));
      converted.push_back(std::move(plain));
    } else {
      converted.push_back(a ? a->clone() : nullptr);
    }
  }
  return converted;
}

std::unique_ptr<xml::AST> parser_context::to_ast(var_or_value v) const {
  if (v.is_constant()) return std::make_unique<xml::ASTInteger>(v.value);
  return ast_var(v.id);
}

std::unique_ptr<xml::AST> parser_context::ast_var(unsigned int id) const {
  return std::make_unique<xml::ASTVar>(var_name(id), int(id));
}

unsigned int parser_context::singleton_var(int value, bool unique) {
  if (!unique) return solver->singleton_var(value);
  iset domain;
  domain.insert(value);
  std::string name = "V" + std::to_string(solver->num_variables()) + "_constant_";
  name += value < 0 ? "minus_" + std::to_string(-(long long)value) : std::to_string(value);
  return solver->add_var(domain, name.c_str(), false);
}

void parser_context::make_unique_vars(std::vector<unsigned int>& vars) {
  std::set<unsigned int> seen;
  for (unsigned int& v : vars) {
    const iset d = solver->stack().domain(v);
    if (d.is_singleton() && !seen.insert(v).second) v = singleton_var(d.min(), true);
    else seen.insert(v);
  }
}

unsigned int parser_context::make_aliased_var(unsigned int x) {
  const std::string name =
      var_name(x) + ".alias" + std::to_string(solver->num_variables());
  const unsigned int v = solver->add_var(solver->stack().domain(x), name.c_str(), false);
  solver->add_constraint(std::make_unique<equal_propagator>()) << v << x;
  return v;
}

void parser_context::connect_constraint(const std::vector<unsigned int>& vars,
                                        std::unique_ptr<constraint_propagator> propagator) {
  std::vector<std::pair<unsigned int, std::size_t>> order;
  order.reserve(vars.size());
  for (std::size_t i = 0; i < vars.size(); ++i) order.emplace_back(vars[i], i);
  std::sort(order.begin(), order.end());
  std::vector<unsigned int> scope(vars);
  for (std::size_t i = 1; i < order.size(); ++i)
    if (order[i].first == order[i - 1].first) scope[order[i].second] = make_aliased_var(vars[order[i].second]);
  constraint_connectivity_info& info = solver->add_constraint(std::move(propagator));
  for (unsigned int v : scope) info << v;
}

void parser_context::connect_table_propagator(const std::vector<unsigned int>& vars,
                                              const std::vector<std::vector<int>>& tuples) {
  connect_constraint(vars, std::make_unique<support_table_propagator>(*memory, tuples));
}

bool parser_context::instantiate_element_constraint(std::ostream& out,
                                                    const position_point& where,
                                                    unsigned int index, int offset,
                                                    const std::vector<var_or_value>& array,
                                                    unsigned int result) {
  const iset d = solver->stack().domain(index) &
                 iset::clipped_range(offset, (long long)offset + (long long)array.size() - 1);
  solver->set_var_domain(index, d, -1);
  const int lo = d.min(), hi = d.max();
  std::vector<unsigned int> scope;
  scope.push_back(index);
  for (int v = lo; v <= hi; ++v) scope.push_back(array[std::size_t(v - offset)].to_id(*this));
  scope.push_back(result);
  if (d.is_singleton()) {
    if (solver->report_level > 1)
      out << "% " << where << ": the constraint is equivalent with equality\n";
    builder.equate_variables(scope[1], result);
    return true;
  }
  make_unique_vars(scope);
  connect_constraint(scope, std::make_unique<element_propagator>(lo));
  return true;
}

bool parser_context::create_constraints(std::ostream& out) {
  for (std::size_t i = 0; i < postponed.size(); ++i) {
    std::unique_ptr<AST> result;
    if (!instantiate_postponed(out, *postponed[i], nullptr, result)) return false;
    if (result) connect_expr(singleton_var(1, false), *result, AST_builder::usage_exact);
  }
  // A definition that no constraint reached still ties its variable: left free,
  // the variable would take every value of its domain in an enumeration of
  // solutions, each one printing the same.
  for (auto& [name, symbol] : symbols) {
    if (!symbol.is_intermediate || !symbol.definition || symbol.definition->visits != 0 ||
        symbol.values.empty() || symbol.values[0].is_constant())
      continue;
    std::unique_ptr<AST> ast;
    if (!instantiate_var_define(out, symbol.values[0].id, ast)) return false;
  }
  if (detect_all_different) builder.detect_all_diff();
  builder.connectivity().create_all_constraints();
  return true;
}

bool parser_context::set_objective(std::ostream& out, std::unique_ptr<AST> expression,
                                   direction dir, unsigned int var) {
  if (!expression && var != NONE) {
    expression = ast_var(var);
    objective_var = var;
    if (is_intermediate_var(var)) {
      // The objective must equal its definition: a definition that came back
      // as an expression ties the variable to it instead of being dropped.
      std::unique_ptr<AST> definition;
      if (!instantiate_var_define(out, var, definition)) return false;
      if (definition) connect_expr(var, *definition, AST_builder::usage_exact);
    }
  }
  objective_expression = std::move(expression);
  objective_direction = dir;
  if (dir == MINIMIZE)
    connect_minimization();
  else
    connect_maximization();
  return true;
}

void parser_context::connect_minimization() {
  const unsigned int v = solver->add_var(iset::clipped_range(0, 31), "min::objective", false);
  connect_expr(v, *objective_expression, AST_builder::usage_at_least);
  solver->objective_variable = int(objective_var != NONE ? objective_var : v);
  solver->minimize = true;
}

void parser_context::connect_maximization() {
  const unsigned int v = solver->add_var(iset::clipped_range(0, 31), "max::objective", false);
  connect_expr(v, *objective_expression, AST_builder::usage_at_most);
  solver->objective_variable = int(objective_var != NONE ? objective_var : v);
  solver->minimize = false;
}

//==== solution =========================================================================

void parser_context::print_value(std::ostream& out, const symbol_info& symbol,
                                 const var_or_set& v) const {
  const iset value = v.is_constant() ? v.set : solver->stack().domain(v.id);
  if (symbol.type == TYPE_BOOL)
    out << (!value.empty() && value.min() != 0 ? "true" : "false");
  else if (symbol.type == TYPE_UNKNOWN)
    out << "UNKNOWN_TYPE{" << value << "}";
  else
    out << value;
}

void parser_context::print_solution(std::ostream& out) const {
  for (const auto& [name, symbol] : symbols) {
    for (const annotation_type& a : symbol.annotations) {
      if (a.name == "output_var") {
        out << name << " = ";
        if (!symbol.values.empty()) print_value(out, symbol, symbol.values[0]);
        out << ";\n";
        break;
      }
      if (a.name == "output_array") {
        out << name << " = ";
        const array_dimension_argument* dims = nullptr;
        if (a.args && !a.args->empty())
          dims = dynamic_cast<const array_dimension_argument*>(a.args->front().get());
        if (dims == nullptr) {
          out << "[];\n";
          break;
        }
        out << "array" << dims->dimensions.size() << "d(";
        for (const auto& [first, last] : dims->dimensions) out << first << ".." << last << ", ";
        out << "[";
        for (std::size_t i = 0; i < symbol.values.size(); ++i) {
          if (i) out << ", ";
          print_value(out, symbol, symbol.values[i]);
        }
        out << "]);\n";
        break;
      }
    }
  }
}

}  // namespace zelk
