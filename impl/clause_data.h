// Self-contained multi-valued clauses: each literal carries its variable index.
//
// Inside the search, clauses are positional (a vector of sets parallel to a
// constraint's parameters). This form is for clauses that must outlive or leave
// their constraint: the proof layer and the formula layer. A clause_data may hold
// several literals of one variable and literals with an empty set until
// canonicalize() brings it to normal form. The empty clause is legal: it is the
// end point of a refutation.
#ifndef ZELK_IMPL_CLAUSE_DATA_H
#define ZELK_IMPL_CLAUSE_DATA_H

#include <cstddef>
#include <iosfwd>
#include <vector>

#include "impl/assignment_stack.h"
#include "impl/pool_alloc.h"
#include "impl/small_iset.h"

namespace zelk {

// The statement "variable takes a value in set". Two words, no invariant.
struct literal_data {
  unsigned int variable = 0;
  small_model::iset set;

  literal_data() = default;
  literal_data(unsigned int var, small_model::iset values) : variable(var), set(values) {}

  // By variable alone: literals of one variable are equivalent for sorting.
  bool operator<(const literal_data& other) const { return variable < other.variable; }

  // The variable through `printer`, then the right-hand side.
  static void print(std::ostream& os, const variable_printer& printer,
                    const small_model::iset& set);
  // The shortest exact form: "=v", ":{}", "<=k", ">=k", "!=v", or ":{set text}".
  // Shared by the trace and the proof text.
  static void print_right_hand_side(std::ostream& os, const small_model::iset& set);
};

static_assert(sizeof(literal_data) == 8, "a literal is two words");

class clause_data {
 public:
  typedef std::vector<literal_data, pool_alloc<literal_data>> literal_vector;
  typedef literal_vector::const_iterator const_iterator;

  clause_data() = default;

  // ---- building -----------------------------------------------------------
  void add(const literal_data& literal) { m_literals.push_back(literal); }
  void add(unsigned int variable, small_model::iset set) {
    m_literals.push_back(literal_data(variable, set));
  }
  void reserve(std::size_t n) { m_literals.reserve(n); }
  void clear() { m_literals.clear(); }
  literal_vector& literals() { return m_literals; }

  // ---- reading ------------------------------------------------------------
  const literal_vector& literals() const { return m_literals; }
  std::size_t size() const { return m_literals.size(); }
  bool empty() const { return m_literals.empty(); }
  const literal_data& operator[](std::size_t i) const { return m_literals[i]; }
  literal_data& operator[](std::size_t i) { return m_literals[i]; }
  const_iterator begin() const { return m_literals.begin(); }
  const_iterator end() const { return m_literals.end(); }

  // ---- normal form --------------------------------------------------------
  // By variable, ascending; the order among literals of one variable is not defined.
  void sort();
  // Sorted, one literal per variable (the union of its sets), no empty sets.
  void canonicalize();
  // Both clauses say the same after normalising; neither changes.
  bool equivalent(const clause_data& other) const;

  // "[" literals joined by ", " "]"; each literal is the variable through
  // `strategy` followed by its right-hand side.
  void print(std::ostream& os, const variable_print_strategy& strategy) const;

 private:
  literal_vector m_literals;
};

}  // namespace zelk

#endif
