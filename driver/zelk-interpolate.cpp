// zelk-interpolate: a Craig interpolant between two OPB files.
//
//   zelk-interpolate [-l N] [-p] A.opb B.opb
//
// The two files are read as one model whose variables meet by name. The
// constraints of A are labelled 1 and those of B 2, and every variable that B
// names is visible to B. The model is refuted with a recorded proof (ground
// intersection off, so every learned constraint is a clause derived in the
// proof), and the interpolant is printed on an "i" line: a formula over variables
// of both files that A implies and that contradicts B. When A and B together are
// satisfiable there is none, and the solution is printed instead.
//
// Output: "s UNSATISFIABLE" and "i <formula>", or "s SATISFIABLE" and a "v" line,
// or "s UNKNOWN" when the backtrack limit of -b ends the search. Exit status 0 for
// an answer, 1 for an option error, an unreadable or malformed file, or an
// exception.
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <typeinfo>

#include "impl/formula.h"
#include "impl/solver.h"
#include "opb/opb_context.h"
#include "opb_parser.hpp"

namespace {

constexpr zelk::solver::label_type PART_A = 1;
constexpr zelk::solver::label_type PART_B = 2;

void usage(std::ostream& os) {
  os << "Usage: zelk-interpolate [-l N] [-p] [-b N] A.opb B.opb\n"
        "Prints a Craig interpolant of two OPB files whose variables meet by name:\n"
        "a formula over their shared variables that A implies and that contradicts B.\n"
        "  -l N Set the report level to 0<=N<=4 (default 0); 2 traces the interpolant\n"
        "  -p   Print the proof of unsatisfiability\n"
        "  -b N Stop after N backtracks\n";
}

bool open(std::ifstream& in, const char* name) {
  in.open(name);
  if (in) return true;
  std::cerr << name << ": can't read the input" << std::endl;
  return false;
}

bool no_objective(const zelk::opb::context& ctx, const char* name) {
  if (!ctx.objective()) return true;
  std::cerr << name << ": an objective has no place in a refutation" << std::endl;
  return false;
}

int main_impl(int argc, char** argv) {
  int report_level = 0;
  bool print_proof = false;
  long backtracks = -1;
  int c;
  while ((c = getopt(argc, argv, "l:pb:h")) != -1) {
    switch (c) {
      case 'l':
        report_level = std::atoi(optarg);
        if (report_level < 0 || report_level > 4) {
          usage(std::cerr);
          return 1;
        }
        break;
      case 'p':
        print_proof = true;
        break;
      case 'b':
        backtracks = std::atol(optarg);
        break;
      case 'h':
        usage(std::cout);
        return 0;
      default:
        usage(std::cerr);
        return 1;
    }
  }
  if (argc - optind != 2) {
    usage(std::cerr);
    return 1;
  }
  const char* name_a = argv[optind];
  const char* name_b = argv[optind + 1];
  std::ifstream in_a, in_b;
  if (!open(in_a, name_a) || !open(in_b, name_b)) return 1;

  zelk::solver s;
  s.report_level = report_level;
  s.should_intersect_with_ground = false;
  s.produce_proof(true);
  s.validate_unsat = true;
  s.print_proof = print_proof;
  if (backtracks >= 0) s.backtrack_limit = unsigned(backtracks);

  zelk::opb::context ctx(s, in_a, name_a);
  ctx.label_from_now_on(PART_A);
  yy::opb_parser parser(ctx);
  if (parser.parse() != 0 || !no_objective(ctx, name_a)) return 1;
  ctx.label_from_now_on(PART_B);
  if (!ctx.read_more(in_b, name_b) || !no_objective(ctx, name_b)) return 1;
  if (!ctx.build_solver()) {
    // One constraint is unsatisfiable by itself: its part alone is refuted, and
    // false (A refuted) or true (B refuted) is an interpolant.
    std::cout << "c a constraint of " << (ctx.unsatisfiable_label() == PART_A ? "A" : "B")
              << " is unsatisfiable by itself\n";
    std::cout << "s UNSATISFIABLE\ni " << (ctx.unsatisfiable_label() == PART_A ? "false" : "true")
              << std::endl;
    return 0;
  }

  std::ostringstream quiet;
  const zelk::solver::result_type result = s.solve(print_proof ? &std::cout : &quiet);
  if (result == zelk::solver::UNSAT) {
    const zelk::formula interpolant = s.get_interpolant();
    std::cout << "s UNSATISFIABLE\ni ";
    interpolant.print(std::cout, s.stack().print_strategy());
    std::cout << std::endl;
  } else if (result == zelk::solver::SAT) {
    std::cout << "c A and B together are satisfiable: there is no interpolant\n"
              << "s SATISFIABLE\n";
    ctx.print_solution(std::cout);
  } else {
    std::cout << "s UNKNOWN" << std::endl;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return main_impl(argc, argv);
  } catch (const std::exception& e) {
    const char* name = typeid(e).name();
    if (*name == '*') ++name;
    std::cout << "Exception(" << name << "):\n" << e.what() << std::endl;
    return 1;
  }
}
