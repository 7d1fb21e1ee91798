// Normal form, comparison and printing of self-contained clauses.
#include "impl/clause_data.h"

#include <algorithm>
#include <ostream>

namespace zelk {

//==== literal_data ============================================================

void literal_data::print(std::ostream& os, const variable_printer& printer,
                         const small_model::iset& set) {
  os << printer;
  print_right_hand_side(os, set);
}

void literal_data::print_right_hand_side(std::ostream& os, const small_model::iset& set) {
  const std::uint32_t w = set.bits();
  const std::uint32_t missing = ~w;
  if (set.is_singleton()) {
    os << "=" << set.min();
  } else if (w == 0) {
    os << ":{}";
  } else if ((w & 1u) && (w & (w + 1u)) == 0) {
    // One run from 0; the full set wraps w + 1 to 0 and lands here as <=31.
    os << "<=" << set.max();
  } else if ((w >> 31) && (missing & (missing + 1u)) == 0) {
    // One run up to 31; the missing values are one run from 0.
    os << ">=" << set.min();
  } else if (small_iset::from_bits(missing).is_singleton()) {
    // Bits 0 and 31 are both set here, otherwise a branch above had matched.
    os << "!=" << small_iset::from_bits(missing).min();
  } else {
    os << ":{" << set << "}";
  }
}

//==== clause_data =============================================================

void clause_data::sort() { std::sort(m_literals.begin(), m_literals.end()); }

void clause_data::canonicalize() {
  sort();
  // A run of one variable collects all its values in its last member.
  for (std::size_t i = 1; i < m_literals.size(); ++i) {
    if (m_literals[i].variable == m_literals[i - 1].variable) {
      m_literals[i].set |= m_literals[i - 1].set;
      m_literals[i - 1].set.clear();
    }
  }
  m_literals.erase(std::remove_if(m_literals.begin(), m_literals.end(),
                                  [](const literal_data& l) { return l.set.empty(); }),
                   m_literals.end());
}

bool clause_data::equivalent(const clause_data& other) const {
  if (other.size() > size()) return other.equivalent(*this);
  const clause_data& shorter = other;
  // Cheap rejection without copies: with a short clause on one side, a variable of
  // the longer clause that the shorter one never mentions decides at once.
  if (shorter.size() < 5) {
    for (const literal_data& l : m_literals) {
      if (l.set.empty()) continue;
      bool found = false;
      for (const literal_data& s : shorter.m_literals) {
        if (s.variable == l.variable) {
          found = true;
          break;
        }
      }
      if (!found) return false;
    }
  }
  clause_data a(*this);
  clause_data b(shorter);
  a.canonicalize();
  b.canonicalize();
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].variable != b[i].variable || a[i].set != b[i].set) return false;
  }
  return true;
}

void clause_data::print(std::ostream& os, const variable_print_strategy& strategy) const {
  os << "[";
  for (std::size_t i = 0; i < m_literals.size(); ++i) {
    if (i) os << ", ";
    strategy.print(os, m_literals[i].variable);
    literal_data::print_right_hand_side(os, m_literals[i].set);
  }
  os << "]";
}

}  // namespace zelk
