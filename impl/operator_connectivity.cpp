// The common-subexpression table and the posting of its entries.
#include "impl/operator_connectivity.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "impl/solver.h"

namespace zelk {

bool operator_connectivity::operator_entry_key::operator<(
    const operator_entry_key& other) const {
  const double mine = definition->tightness();
  const double theirs = other.definition->tightness();
  if (mine != theirs) return mine > theirs;
  if (arguments == other.arguments)
    return std::strcmp(definition->name(), other.definition->name()) < 0;
  return std::lexicographical_compare(arguments.begin(), arguments.end(),
                                      other.arguments.begin(), other.arguments.end());
}

operator_connectivity::operator_connectivity(solver& s)
    : m_solver(s), m_entries(std::make_unique<std::map<operator_entry_key, entry>>()) {}

operator_connectivity::~operator_connectivity() = default;

const small_model::iset& operator_connectivity::var_domain(unsigned int variable) const {
  if (variable >= m_solver.num_variables())
    throw std::out_of_range("operator_connectivity::var_domain(variable): no such variable");
  return m_solver.stack().domain(variable);
}

unsigned int operator_connectivity::record_operator(const operator_definition& definition,
                                                    eval_type eval,
                                                    const unsigned int* args_begin,
                                                    const unsigned int* args_end,
                                                    unsigned int result,
                                                    small_model::iset domain,
                                                    unsigned int owner_flag) {
  // The caller's array is constant: the key's own copy is put in order.
  operator_entry_key key{&definition, std::vector<unsigned int>(args_begin, args_end)};
  definition.canonize_order(*this, key.arguments.data(),
                            key.arguments.data() + key.arguments.size());
  const auto found = m_entries->find(key);
  if (found != m_entries->end()) {
    found->second.eval |= unsigned(eval);
    found->second.owner_flag |= owner_flag;
    return found->second.result;
  }
  if (result == NO_VARIABLE) {
    // Named by the entry count, so that a name is never taken twice even when
    // some entries came with a result of their own.
    const std::string name = definition.name() + std::to_string(m_entries->size());
    result = m_solver.add_var(domain, name.c_str(), false);
  }
  m_entries->emplace(std::move(key), entry{result, unsigned(eval), owner_flag});
  return result;
}

void operator_connectivity::create_all_constraints() {
  for (const auto& [key, e] : *m_entries)
    key.definition->create_constraints(m_solver, eval_type(e.eval), e.owner_flag, e.result,
                                       key.arguments.data(),
                                       key.arguments.data() + key.arguments.size());
}

const small_model::iset& operator_connectivity::everything() {
  static const small_model::iset all = small_model::iset::full();
  return all;
}

}  // namespace zelk
