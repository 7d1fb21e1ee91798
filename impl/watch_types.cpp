// Text of the watch kinds, for traces and proof output.
#include "impl/watch_types.h"

#include <ostream>

namespace zelk {

std::ostream& operator<<(std::ostream& os, watch_types::watch_type type) {
  switch (type) {
    case watch_types::MODIFICATION_WATCH:
      return os << "MODIFICATION_WATCH";
    case watch_types::FINALIZATION_WATCH:
      return os << "FINALIZATION_WATCH";
    case watch_types::LOWER_BOUND_WATCH:
      return os << "LOWER_BOUND_WATCH";
    case watch_types::UPPER_BOUND_WATCH:
      return os << "UPPER_BOUND_WATCH";
  }
  // A number that is no watch_type: show it rather than nothing.
  return os << "watch_type(" << static_cast<int>(type) << ")";
}

}  // namespace zelk
