// Normal form and posting of one OPB constraint.
#include "opb/opb_constraint.h"

#include <iostream>

#include "impl/small_iset.h"
#include "impl/solver.h"
#include "opb/opb_context.h"

namespace zelk {
namespace opb {

void constraint::normalize(context& ctx) {
  m_expression->normalize(ctx, m_rhs);
  if (!m_expression->empty()) return;
  if ((m_direction == EQUAL && m_rhs != 0) || (m_direction == GREATER_EQUAL && m_rhs >= 1))
    m_trivially_false = true;
  else
    m_trivially_true = true;
}

bool constraint::apply(context& ctx) const {
  if (ctx.trace_construction()) std::cout << "[" << *this << "].apply()\n";
  if (m_trivially_true) return true;
  if (m_trivially_false) {
    if (ctx.trace_failure()) std::cout << "constraint is trivially false: " << *this << "\n";
    return false;
  }
  if (m_direction == GREATER_EQUAL && m_rhs == 1) {
    // Normalized coefficients are all positive: the sum reaches 1 iff a term is true.
    m_expression->add_or_between_conjunctions(ctx);
    return true;
  }
  const expression::constraint_type type =
      m_direction == GREATER_EQUAL ? expression::LOWER_BOUND : expression::EQUALITY;
  const unsigned int v = m_expression->get_evaluating_variable(ctx, type, nullptr);
  solver& s = ctx.get_solver();
  const small_model::iset domain = s.stack().domain(v);
  if (m_direction == EQUAL) {
    if (domain.contains(m_rhs)) {
      s.set_var_domain(v, small_model::iset::singleton(m_rhs), -1);
      return true;
    }
  } else {
    // v is at most the sum, and any value up to the sum is open to it: the sum
    // reaches rhs iff v can be rhs or above.
    if (m_rhs <= 0) return true;
    if (m_rhs <= domain.max()) {
      if (domain.contains(m_rhs))
        s.set_var_domain(v, small_model::iset::singleton(m_rhs), -1);
      else
        s.set_var_domain(v, domain & small_model::iset::clipped_range(m_rhs, 31), -1);
      return true;
    }
  }
  if (ctx.trace_failure()) std::cout << "can't satisfy constraint: " << *this << "\n";
  return false;
}

void constraint::print(std::ostream& os) const {
  os << *m_expression << (m_direction == EQUAL ? " = " : " >= ") << m_rhs;
}

std::ostream& operator<<(std::ostream& os, const constraint& c) {
  c.print(os);
  return os;
}

}  // namespace opb
}  // namespace zelk
