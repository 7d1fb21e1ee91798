// The zelk executable: from main to the exit status.
//
// Each operand (or standard input, as "<stdin>") is read and solved by the
// solver class of the chosen format; the result lines follow the competition
// conventions ("c" comments, "s" status, "v" values, "d" statistics; "%" and
// "=====UNKNOWN=====" style lines for FlatZinc). The exit status is 0 for every
// finished run, whatever its answer, and 1 for an option error or an exception.
#include "driver/zelk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "impl/AST_builder.h"
#include "impl/solver.h"
#include "opb/opb_context.h"
#include "text_formats/c_like_solver.h"
#include "text_formats/fzn_solver.h"
#include "xcsp/xcsp_solver.h"

using zelk::table_propagator_base;

template <class T>
T* construct(std::istream& in, const char* file_name, const std::string& prefix,
             const per_format_flags& flags, table_propagator_base::memory_manager& memory) {
  std::cout << prefix << " Constructing " << file_name << " " << std::flush;
  const std::string name(file_name);
  std::unique_ptr<T> result(new T(in, name, flags, memory));
  std::cout << prefix << " with " << result->num_constraints() << " constraints\n";
  return result.release();
}

void solve(zelk::solver& s) {
  std::cout << "c Solving " << std::flush;
  const zelk::solver::result_type result = s.solve(&std::cout);
  std::cout << s.total_backtracks() << " backtracks";
  if (s.restarts() != 0) std::cout << " " << s.restarts() << " restarts";
  std::cout << "\n";
  std::cout << "c " << s.non_fallback_combines() << " non-fallback combines "
            << "out of " << s.combines() << " total\n";
  std::cout << "c learned " << s.non_fallback_learned() << " non-fallback constraints\n";
  switch (result) {
    case zelk::solver::SAT:
      std::cout << "s SATISFIABLE\n";
      s.print_solution(std::cout);
      break;
    case zelk::solver::UNSAT: std::cout << "s UNSATISFIABLE\n"; break;
    case zelk::solver::BACKTRACK_LIMIT: std::cout << "s UNKNOWN\n" << "c Too many backtracks\n"; break;
    case zelk::solver::TIMEOUT: std::cout << "s UNKNOWN\n" << "c Timeout\n"; break;
    case zelk::solver::MEMOUT: std::cout << "s UNKNOWN\n" << "c Out of memory\n"; break;
    case zelk::solver::SAT_DONE:
    case zelk::solver::OPTIMAL: break;
  }
  std::cout << "d ASSIGNMENTS " << s.assignments() << std::endl;
}

template <class T>
void solve_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                table_propagator_base::memory_manager& memory, bool destroy_solver) {
  const std::string prefix = "c";
  T* s = nullptr;
  try {
    s = construct<T>(in, file_name, prefix, flags, memory);
  } catch (const std::bad_alloc&) {
    std::cout << "s UNKNOWN\n" << "c Out of memory while constructing the problem\n";
    return;
  } catch (const zelk::AST_builder::unsupported& e) {
    std::cout << "\ns UNSUPPORTED\n" << "c " << e.what() << std::endl;
    return;
  }
  try {
    solve(*s);
  } catch (...) {
    delete s;
    throw;
  }
  // The last solver is left to process exit: its teardown would only cost time.
  if (destroy_solver) delete s;
}

void solve_fzn_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                    table_propagator_base::memory_manager& memory, bool destroy_solver) {
  const std::string prefix = "%";
  zelk::fzn_solver* s = nullptr;
  try {
    s = construct<zelk::fzn_solver>(in, file_name, prefix, flags, memory);
  } catch (const std::bad_alloc&) {
    std::cout << "% Out of memory while constructing the problem\n" << "=====UNKNOWN=====\n";
    return;
  } catch (const zelk::AST_builder::unsupported& e) {
    std::cout << "\n% UNSUPPORTED\n" << "% " << e.what() << "\n" << "=====UNKNOWN=====" << std::endl;
    return;
  }
  try {
    s->solve_and_print(std::cout);
  } catch (...) {
    delete s;
    throw;
  }
  if (destroy_solver) delete s;
}

void solve_file(std::istream& in, const char* file_name, const per_format_flags& flags,
                table_propagator_base::memory_manager& memory, bool destroy_solver) {
  switch (flags.format) {
    case per_format_flags::XCSP:
      solve_file<zelk::xcsp_solver>(in, file_name, flags, memory, destroy_solver);
      return;
    case per_format_flags::OPB:
      solve_file<opb_solver>(in, file_name, flags, memory, destroy_solver);
      return;
    case per_format_flags::FZN:
      solve_fzn_file(in, file_name, flags, memory, destroy_solver);
      return;
    case per_format_flags::C_LIKE:
      solve_file<zelk::c_like_solver>(in, file_name, flags, memory, destroy_solver);
      return;
  }
  std::cerr << "Unknown input format " << flags.format << "\n";
}

namespace {

// A file that can't be read is no model, and a directory reads as an empty one
// (or fails only at its first read): both are refused before any reader sees
// them, with the file and the system's reason.
[[noreturn]] void refuse_input(const char* file_name, int error) {
  throw std::runtime_error(std::string(file_name) + ": " + std::strerror(error));
}

void check_readable(int fd, const char* file_name) {
  struct stat status;
  if (fstat(fd, &status) != 0) refuse_input(file_name, errno);
  if (S_ISDIR(status.st_mode)) refuse_input(file_name, EISDIR);
}

void open_input(std::ifstream& in, const char* file_name) {
  const int fd = open(file_name, O_RDONLY);
  if (fd < 0) refuse_input(file_name, errno);
  try {
    check_readable(fd, file_name);
  } catch (...) {
    close(fd);
    throw;
  }
  close(fd);
  errno = 0;
  in.open(file_name);
  if (!in.is_open()) refuse_input(file_name, errno != 0 ? errno : EIO);
}

}  // namespace

int main_impl(int argc, char** argv) {
  per_format_flags flags;
  if (!flags.parse(argc, argv)) return 1;
  if (flags.help) return 0;
  // One per process, shared by all files, never freed.
  table_propagator_base::memory_manager* memory = new table_propagator_base::memory_manager();
  if (argv[optind] == nullptr) {
    check_readable(STDIN_FILENO, "<stdin>");
    solve_file(std::cin, "<stdin>", flags, *memory, false);
    return 0;
  }
  for (int i = optind; argv[i] != nullptr; ++i) {
    std::ifstream in;
    open_input(in, argv[i]);
    solve_file(in, argv[i], flags, *memory, argv[i + 1] != nullptr);
  }
  return 0;
}

int main(int argc, char** argv) {
  try {
    return main_impl(argc, argv);
  } catch (const std::exception& e) {
    const char* name = typeid(e).name();
    if (*name == '*') ++name;
    std::cout << "Exception(" << name << "):\n" << e.what() << std::endl;
    return 1;
  } catch (...) {
    std::cout << "unknown exception" << std::endl;
    return 1;
  }
}
