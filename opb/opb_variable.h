// A Boolean variable of an OPB instance: its name and, once build_solver has run,
// the solver variable (domain {0, 1}) that stands for it.
//
// The context keeps its variables in a std::set ordered by strcmp of the names, so
// a variable never moves and literals may point at it; the solver numbers them in
// that order, which makes the model independent of the order of first use.
#ifndef ZELK_OPB_OPB_VARIABLE_H
#define ZELK_OPB_OPB_VARIABLE_H

#include <cstdint>
#include <cstring>

namespace zelk {

class solver;

namespace opb {

class variable {
 public:
  static constexpr unsigned int NO_VARIABLE = 0xFFFFFFFFu;

  // Takes over `name`, which must come from malloc (strdup); it is freed here.
  explicit variable(char* name) : m_name(name) {}
  variable(variable&& other) noexcept
      : m_name(other.m_name), m_solver_variable(other.m_solver_variable) {
    other.m_name = nullptr;
  }
  variable(const variable&) = delete;
  variable& operator=(const variable&) = delete;
  variable& operator=(variable&&) = delete;
  ~variable();

  const char* name() const { return m_name; }
  unsigned int solver_variable() const { return m_solver_variable; }
  // h := h * 1523 + character, from 1, in 64 bits.
  std::uint64_t hash() const;
  // Adds the solver variable {0, 1} under the variable's name. The set holds its
  // elements as const; the solver number is not part of the order.
  void associate(solver& s) const;

  // strcmp order, usable with a plain name as key.
  struct less {
    typedef void is_transparent;
    bool operator()(const variable& a, const variable& b) const {
      return std::strcmp(a.m_name, b.m_name) < 0;
    }
    bool operator()(const variable& a, const char* b) const { return std::strcmp(a.m_name, b) < 0; }
    bool operator()(const char* a, const variable& b) const { return std::strcmp(a, b.m_name) < 0; }
  };

 private:
  char* m_name;
  mutable unsigned int m_solver_variable = NO_VARIABLE;
};

}  // namespace opb
}  // namespace zelk

#endif
