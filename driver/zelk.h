// The outer shell of the solver executable: option parsing, one solver object per
// input file, the result lines. It holds no search logic.
#ifndef ZELK_DRIVER_ZELK_H
#define ZELK_DRIVER_ZELK_H

#include <iosfwd>
#include <string>

#include "driver/flags.h"
#include "impl/table_propagators.h"

namespace zelk {
class solver;
}

int main_impl(int argc, char** argv);
void solve_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                zelk::table_propagator_base::memory_manager& memory, bool destroy_solver);
template <class T>
void solve_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                zelk::table_propagator_base::memory_manager& memory, bool destroy_solver);
void solve_fzn_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                    zelk::table_propagator_base::memory_manager& memory, bool destroy_solver);
template <class T>
T* construct(std::istream& in, const char* file_name, const std::string& prefix,
             const per_format_flags& flags, zelk::table_propagator_base::memory_manager& memory);
void solve(zelk::solver& s);

#endif
