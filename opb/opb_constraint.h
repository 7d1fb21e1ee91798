// One OPB constraint in normal form, "sum >= rhs" or "sum = rhs" with every
// coefficient above 0, and its posting into the solver.
#ifndef ZELK_OPB_OPB_CONSTRAINT_H
#define ZELK_OPB_OPB_CONSTRAINT_H

#include <iosfwd>
#include <memory>

#include "opb/opb_expression.h"

namespace zelk {
namespace opb {

class context;

class constraint {
 public:
  enum direction { GREATER_EQUAL = 0, EQUAL = 1 };

  // Takes over the expression.
  constraint(expression* e, int rhs, direction d) : m_expression(e), m_rhs(rhs), m_direction(d) {}

  // Normalizes the sum; an empty sum makes the constraint trivially true or false.
  void normalize(context& ctx);
  // Posts the constraint. False: it can't be satisfied.
  [[nodiscard]] bool apply(context& ctx) const;

  const expression& expr() const { return *m_expression; }
  int rhs() const { return m_rhs; }
  direction dir() const { return m_direction; }
  bool trivially_true() const { return m_trivially_true; }
  bool trivially_false() const { return m_trivially_false; }
  void print(std::ostream& os) const;

 private:
  std::unique_ptr<expression> m_expression;
  int m_rhs;
  direction m_direction;
  bool m_trivially_true = false;
  bool m_trivially_false = false;
};

std::ostream& operator<<(std::ostream& os, const constraint& c);

}  // namespace opb
}  // namespace zelk

#endif
