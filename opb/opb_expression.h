// A linear sum of OPB terms, coefficient * product or coefficient * (not product),
// with its normal form and the two ways of posting it: one clause for a sum of
// at least 1, and otherwise a chain of partial sums with three parameters each.
#ifndef ZELK_OPB_OPB_EXPRESSION_H
#define ZELK_OPB_OPB_EXPRESSION_H

#include <iosfwd>
#include <vector>

namespace zelk {

class solver;

namespace opb {

class conjunction;
class context;

class expression {
 public:
  // The use of the sum's variable. The numbering is the reverse of
  // constraint::direction.
  enum constraint_type { EQUALITY = 0, LOWER_BOUND = 1 };

  struct atom_type {
    int coefficient;
    bool negated;  // the term is coefficient * (1 - product)
    conjunction* conj;  // owned by the context, shared
  };

  expression() = default;
  expression(int coefficient, conjunction* conj) { add_atom(coefficient, conj); }

  void add_atom(int coefficient, conjunction* conj) { m_atoms.push_back({coefficient, false, conj}); }
  void negate_coefficients();

  // Brings `this >= rhs` or `this = rhs` to normal form: no negated single
  // literal, no repeated or constant-false product, every coefficient above 0,
  // atoms sorted. rhs follows the rewriting.
  void normalize(context& ctx, int& rhs);
  // Step 1 of normalize alone: a term over one negative literal ~x becomes the
  // negated term over x. Also used for the objective, which is not normalized.
  void make_single_literals_positive(context& ctx);
  void merge_similar_conjunctions();
  void make_atoms_positive(int& rhs);
  // For the objective, which is not normalized: equal atoms (same product, same
  // sign) are summed, and atoms worth nothing are dropped while others remain.
  void merge_repeated_atoms();
  // Products in their order, then plain before negated.
  static bool compare_conjunctions(const atom_type& a, const atom_type& b);

  // The clause "some term is true", for a normalized sum >= 1.
  void add_or_between_conjunctions(context& ctx) const;
  // A variable for the sum: exact for EQUALITY, at most the sum for LOWER_BOUND.
  // `name` goes to the variable that holds the whole sum.
  unsigned int get_evaluating_variable(context& ctx, constraint_type type,
                                       const char* name) const;

  // The value of the sum in the present (fixed) state, clipped to int.
  int evaluate(const solver& s) const;
  void print(std::ostream& os) const;

  const std::vector<atom_type>& atoms() const { return m_atoms; }
  bool empty() const { return m_atoms.empty(); }

 private:
  std::vector<atom_type> m_atoms;
};

std::ostream& operator<<(std::ostream& os, const expression& e);

}  // namespace opb
}  // namespace zelk

#endif
