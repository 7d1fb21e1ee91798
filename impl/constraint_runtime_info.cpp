// Defaults of the view interface and the process-wide tuning bounds.
#include "impl/constraint_runtime_info.h"

#include <cstdlib>
#include <iostream>

namespace zelk {

namespace {

// Reads an environment variable once; strtoul base 0, so "0x20" and "040" work.
unsigned int environment_bound(const char* name, unsigned int fallback) {
  const char* text = std::getenv(name);
  if (!text) return fallback;
  return unsigned(std::strtoul(text, nullptr, 0));
}

}  // namespace

unsigned int constraint_runtime_info::latest_modified_param(unsigned int) const {
  return NO_PARAM;
}

unsigned int constraint_runtime_info::effort() const { return 0; }

bool constraint_runtime_info::is_querying() const { return false; }

void constraint_runtime_info::print(std::ostream&) const {}

void constraint_runtime_info::print_prefix(std::ostream&) const {}

void constraint_runtime_info::print_param(std::ostream&, unsigned int) const {}

unsigned int constraint_runtime_info::accurate_size_bound() const {
  static const unsigned int bound = environment_bound("ACCURATE_SIZE_BOUND", 10);
  return bound;
}

unsigned int constraint_runtime_info::accurate_size_pair_bound() const {
  static const unsigned int bound = environment_bound("ACCURATE_SIZE_PAIR_BOUND", 50);
  return bound;
}

unsigned int constraint_runtime_info::max_accurate_ranges() const {
  static const unsigned int bound = environment_bound("MAX_ACCURATE_RANGES", 20);
  return bound;
}

void constraint_runtime_info::set_domains(std::initializer_list<unsigned int> params,
                                          small_model::iset set) {
  auto it = params.begin();
  // Skip the parameters that already have the size of a non-empty set.
  while (it != params.end() && !set.empty() && domain(*it).size() == set.size()) ++it;
  if (it == params.end()) return;
  const unsigned int first = *it;
  set_domain(first, set);
  for (++it; it != params.end(); ++it) set_domain(*it, domain(first));
}

void constraint_runtime_info::show_self() const {
  print(std::cout);
  std::cout << "\n";
  for (unsigned int i = 0; i < arity(); ++i) std::cout << i << ": " << domain(i) << "\n";
  std::cout << std::flush;
}

}  // namespace zelk
