// A product of Boolean literals, the "x ~y z" of an OPB term, and the solver
// variables that stand for coefficient * product.
//
// Conjunctions are normalized when read (sorted, duplicates removed, x ~x found to
// be constant false) and then made unique by the context, so that the same product
// met twice is one object, compared by address.
//
// Each conjunction has at most one base variable, tied to the product itself by
// clauses, and one further variable per pair of values (value if false, value if
// true) that a coefficient asks for; those follow the base through two-literal
// clauses. Links are added one direction at a time, as the uses ask for them: a
// lower bound on a sum only needs "atom at its true value implies product", so the
// other clauses are never made for it.
#ifndef ZELK_OPB_OPB_CONJUNCTION_H
#define ZELK_OPB_OPB_CONJUNCTION_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <utility>
#include <vector>

#include "impl/operator_definition_registry.h"
#include "impl/small_iset.h"

namespace zelk {

class solver;

namespace opb {

class context;
class variable;

// A two-literal clause: var_a in set_a, or var_b in set_b.
void insert_clause(solver& s, unsigned int var_a, small_model::iset set_a, unsigned int var_b,
                   small_model::iset set_b);

class conjunction {
 public:
  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;
  // (sign, variable); the sign is +1 or -1 once normalized.
  typedef std::pair<int, const variable*> literal_type;
  // The value of an atom variable when the product is false, and when it is true.
  typedef std::pair<int, int> atom_values_t;

  // Which way an atom variable is tied to the product.
  struct atom_connectivity_t {
    atom_connectivity_t() = default;
    // Bit 0 of eval (a use that needs an upper bound on the atom) asks for "true
    // atom implies product", bit 1 for the converse. A negative coefficient and a
    // negated atom each turn the roles round.
    atom_connectivity_t(int coefficient, bool negated, eval_type eval);
    void set_equals_variable(unsigned int var) {
      variable = var;
      true_atom_implies_product = true;
      product_implies_true_atom = true;
    }
    // Every link that other has, this has.
    bool is_as_strong_as(const atom_connectivity_t& other) const {
      return (true_atom_implies_product || !other.true_atom_implies_product) &&
             (product_implies_true_atom || !other.product_implies_true_atom);
    }

    unsigned int variable = NO_VARIABLE;
    bool true_atom_implies_product = false;
    bool product_implies_true_atom = false;
  };

  // Literal order of a normalized product: by name, and ~x before x.
  struct literal_variable_comparator {
    bool operator()(const literal_type& a, const literal_type& b) const;
  };

  conjunction(int sign, const variable* v) { m_literals.emplace_back(sign, v); }
  conjunction(const conjunction&) = delete;
  conjunction& operator=(const conjunction&) = delete;

  void append_literal(int sign, const variable* v) { m_literals.emplace_back(sign, v); }
  void normalize();
  // 0 for a constant false product; otherwise, from 1,
  // h := hash(variable) * sign + h * 98321 for each literal, in 64 bits.
  std::uint64_t hash() const;
  // Constant false first (all equal); otherwise literal by literal, a prefix first.
  bool operator<(const conjunction& other) const;

  const std::vector<literal_type>& literals() const { return m_literals; }
  bool always_false() const { return m_always_false; }
  unsigned int base_variable() const { return m_base_variable; }
  atom_values_t atom_values() const { return m_atom_values; }
  const std::map<atom_values_t, atom_connectivity_t>& variables_by_value() const {
    return m_variables_by_value;
  }

  // The unique conjunction of the opposite literal, for a single literal only;
  // null otherwise.
  conjunction* get_not(context& ctx) const;

  // The variable that takes coefficient * atom (the atom being the product, or its
  // negation when `negated`), tied to the product as `eval` needs. `name` names a
  // variable created here.
  unsigned int get_atom_variable(context& ctx, int coefficient, bool negated, eval_type eval,
                                 const char* name);

  // Every literal true in the present (fixed) state; false when constant false.
  bool evaluate(const solver& s) const;
  void print(std::ostream& os) const;

 private:
  unsigned int variable_for_coefficient(context& ctx, atom_values_t values,
                                        const atom_connectivity_t& connectivity,
                                        const char* name);
  void strengthen_variable(context& ctx, atom_values_t values,
                           const atom_connectivity_t& connectivity, atom_connectivity_t& entry);
  void strengthen_conjunction_result(context& ctx, const atom_connectivity_t& connectivity);
  void a_false_literal_implies_zero_atom(context& ctx, unsigned int base);
  void true_literals_imply_conjunction(context& ctx, unsigned int base);

  std::vector<literal_type> m_literals;
  atom_values_t m_atom_values{0, 0};
  unsigned int m_base_variable = NO_VARIABLE;
  bool m_false_literal_link_made = false;
  bool m_true_literals_link_made = false;
  std::map<atom_values_t, atom_connectivity_t> m_variables_by_value;
  bool m_always_false = false;
};

std::ostream& operator<<(std::ostream& os, const conjunction& c);

}  // namespace opb
}  // namespace zelk

#endif
