// The handle side of formulas: reference counting and the operators, which hand
// the work to the nodes (impl/formula_impl.cpp).
#include "impl/formula.h"

#include <ostream>

#include "impl/formula_impl.h"

namespace zelk {

formula::formula(formula_impl* node) : m_node(node) { mark_linked(node); }

formula::formula(bool value)
    : formula(value ? static_cast<formula_impl*>(true_formula_impl::get())
                    : static_cast<formula_impl*>(false_formula_impl::get())) {}

formula::formula(const clause_data& clause)
    : formula(clause.empty() ? static_cast<formula_impl*>(false_formula_impl::get())
                             : new clause_formula_impl(clause)) {}

formula::formula(unsigned int variable, small_model::iset set) {
  formula_impl* node;
  if (set.empty()) {
    node = false_formula_impl::get();
  } else if (set.is_full()) {
    node = true_formula_impl::get();
  } else {
    clause_data clause;
    clause.add(variable, set);
    node = new clause_formula_impl(std::move(clause));
  }
  m_node = node;
  mark_linked(node);
}

formula::formula(const formula& other) : m_node(other.m_node) { mark_linked(m_node); }

formula& formula::operator=(const formula& other) {
  if (m_node == other.m_node) return *this;
  formula_impl* old = m_node;
  m_node = other.m_node;
  mark_linked(m_node);
  mark_unlinked(old);
  return *this;
}

formula& formula::operator=(formula&& other) noexcept {
  if (this == &other) return *this;
  formula_impl* old = m_node;
  m_node = other.m_node;
  other.m_node = nullptr;
  mark_unlinked(old);
  return *this;
}

formula::~formula() { mark_unlinked(m_node); }

void formula::mark_linked(formula_impl* node) {
  if (node) ++node->m_count;
}

void formula::mark_unlinked(formula_impl* node) {
  // A node that nothing has taken yet (count 0) belongs to whoever is building it.
  if (!node || node->m_count == 0) return;
  if (--node->m_count == 0) delete node;
}

bool formula::is_true() const { return m_node == true_formula_impl::get(); }
bool formula::is_false() const { return m_node == false_formula_impl::get(); }

void formula::constrain_solver(solver& s) const { m_node->constrain_solver(s); }

bool formula::evaluate(const solver& s) const { return m_node->evaluate(s); }

void formula::print(std::ostream& os, const variable_print_strategy& strategy) const {
  if (!m_node) {
    os << "NULL";
    return;
  }
  m_node->print(os, strategy, 0);
}

formula operator!(const formula& f) { return formula(f.m_node->make_not()); }

formula operator&&(const formula& a, const formula& b) {
  return formula(a.m_node->and_with(b.m_node, true));
}

formula operator||(const formula& a, const formula& b) {
  return formula(a.m_node->or_with(b.m_node, true));
}

}  // namespace zelk
