// Set arithmetic modulo 32 under the exact sum propagators: the values that the
// sum, the difference or the negation of domains can take.
//
// plus and minus work a whole arithmetic progression at a time: each progression
// of one operand (small_iset::iterator::find_stride) is added to the complete
// word of the other operand by a logarithmic number of word rotations, so no loop
// ever runs over the members of both operands. Every function only narrows `out`,
// and stops as soon as the sums reached so far cover it.
#ifndef ZELK_IMPL_PROPAGATION_H
#define ZELK_IMPL_PROPAGATION_H

#include "impl/small_iset.h"

namespace zelk::propagation {

// Cuts out to {(x + y) mod 32 : x in a, y in b}.
void plus(small_model::iset a, small_model::iset b, small_model::iset& out);
// Cuts out to {(x - y) mod 32 : x in a, y in b}.
void minus(small_model::iset a, small_model::iset b, small_model::iset& out);
// Cuts out to {(32 - x) mod 32 : x in a}.
void neg(small_model::iset a, small_model::iset& out);
// {(32 - x) mod 32 : x in a}, computed on the word.
small_model::iset negated(small_model::iset a);

}  // namespace zelk::propagation

#endif
