// Proof recording and replay.
#include "impl/proof_collector.h"

#include <stdexcept>

namespace zelk {

void proof_collector_dummy::print_proof(std::ostream&) const {
  throw std::runtime_error("solver::generate_proofs() was not called, no proof available");
}

}  // namespace zelk
