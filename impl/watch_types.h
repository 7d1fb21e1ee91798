// The kinds of event a constraint can wait for on a variable. The numbers are also
// the bit positions of the event mask built by the propagation loop.
#ifndef ZELK_IMPL_WATCH_TYPES_H
#define ZELK_IMPL_WATCH_TYPES_H

#include <iosfwd>

namespace zelk {

class watch_types {
 public:
  enum watch_type {
    MODIFICATION_WATCH = 0,  // the domain changed
    FINALIZATION_WATCH = 1,  // the domain is a single value
    LOWER_BOUND_WATCH = 2,   // the minimum changed
    UPPER_BOUND_WATCH = 3    // the maximum changed
  };
};

std::ostream& operator<<(std::ostream& os, watch_types::watch_type type);

}  // namespace zelk

#endif
