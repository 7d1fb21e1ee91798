// The shared empty list behind null watch handles, and the out-of-line error of
// watch release.
#include "impl/var_watchers.h"

#include <stdexcept>

namespace zelk {

var_watchers_base::list_type watch_handle_t::null_watch_list;

void var_watchers_base::throw_nonexistent_watch() {
  throw std::out_of_range("Can't deallocate nonexistent watch");
}

}  // namespace zelk
