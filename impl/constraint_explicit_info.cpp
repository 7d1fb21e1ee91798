// Printing of the stand-alone view.
#include "impl/constraint_explicit_info.h"

#include <ostream>

namespace zelk {

void constraint_explicit_info::print(std::ostream& os) const {
  print_prefix(os);
  os << " (";
  for (unsigned int i = 0; i < m_domains.size(); ++i) {
    if (i) os << ", ";
    print_param(os, i);
    const small_model::iset& d = m_domains[i];
    const std::uint32_t w = d.bits();
    if (d.empty()) {
      os << "={}";
    } else if (d.is_singleton()) {
      os << "=" << d.min();
    } else if (d.is_full()) {
      os << "={*}";
    } else if (d.min() == 0 && (w & (w + 1)) == 0) {
      os << "<=" << d.max();  // one run from 0
    } else if (d.max() == 31 && ((~w) & ((~w) + 1)) == 0) {
      os << ">=" << d.min();  // one run up to 31
    } else {
      os << "={" << d << "}";
    }
  }
  os << ")";
}

void constraint_explicit_info::print_prefix(std::ostream& os) const { os << "constraint"; }

void constraint_explicit_info::print_param(std::ostream& os, unsigned int param) const {
  if (param < m_printers.size() && m_printers[param].strategy())
    os << m_printers[param];
  else
    os << "P" << param;
}

void constraint_explicit_info::set_var_printer(unsigned int param,
                                               const variable_printer& printer) {
  if (m_printers.size() <= param) m_printers.resize(param + 1);
  m_printers[param] = printer;
}

}  // namespace zelk
