// Names, hashing and solver association of OPB variables.
#include "opb/opb_variable.h"

#include <cstdlib>

#include "impl/small_iset.h"
#include "impl/solver.h"

namespace zelk {
namespace opb {

variable::~variable() { std::free(m_name); }

std::uint64_t variable::hash() const {
  std::uint64_t h = 1;
  for (const char* p = m_name; *p != '\0'; ++p)
    h = h * 1523u + std::uint64_t(static_cast<unsigned char>(*p));
  return h;
}

void variable::associate(solver& s) const {
  small_model::iset boolean;
  boolean.insert(0);
  boolean.insert(1);
  m_solver_variable = s.add_var(boolean, m_name);
}

}  // namespace opb
}  // namespace zelk
