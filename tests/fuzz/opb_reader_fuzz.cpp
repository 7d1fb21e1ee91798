// Fuzzing harness of the OPB reader: any bytes are read and built into an
// opb_solver, and a model that builds is solved under a small backtrack limit.
// A refused file must be refused by one of the reader's own messages: a syntax
// error with its location followed by "<name>: Parsing failed", or the range
// error of a sum beyond 31. A crash, a sanitizer report, another exception, or
// a model found that breaks a constraint as read is a fault (abort).
//
// With ZELK_FUZZ=ON (clang) libFuzzer drives this entry point; the ordinary
// build links it to fuzz_replay_main.cpp, which replays tests/fuzz/corpus/opb.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

#include "driver/flags.h"
#include "impl/solver.h"
#include "opb/opb_context.h"

namespace {

const char* const NAME = "fuzz.opb";

class redirect {
 public:
  redirect(std::ostream& stream, std::ostream& sink) : m_stream(stream), m_old(stream.rdbuf(sink.rdbuf())) {}
  ~redirect() { m_stream.rdbuf(m_old); }

 private:
  std::ostream& m_stream;
  std::streambuf* m_old;
};

bool starts_with(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The value of a normalized sum in the solver's present state must meet the
// constraint it came from.
void check_model(const zelk::opb::context& ctx) {
  for (const auto& c : ctx.constraints()) {
    if (c->trivially_true()) continue;
    if (c->trivially_false()) std::abort();  // a model was found anyway
    const long long value = c->expr().evaluate(ctx.get_solver());
    const bool holds = c->dir() == zelk::opb::constraint::EQUAL ? value == c->rhs() : value >= c->rhs();
    if (!holds) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zelk::table_propagator_base::memory_manager memory;
  zelk::zelk_flags flags;
  flags.seed = 1;
  flags.backtrack_limit = 200;
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  std::ostringstream out, err;
  redirect quiet_out(std::cout, out), quiet_err(std::cerr, err);
  std::unique_ptr<opb_solver> s;
  try {
    s = std::make_unique<opb_solver>(in, NAME, flags, memory);
  } catch (const std::runtime_error& e) {
    // A syntax error: the location and the message, then the file's refusal.
    if (std::string(e.what()) != std::string(NAME) + ": Parsing failed") std::abort();
    if (!starts_with(err.str(), std::string(NAME) + ":") ||
        err.str().find("syntax error") == std::string::npos)
      std::abort();
    return 0;
  } catch (const std::out_of_range&) {
    // A sum or a value beyond 0..31.
    return 0;
  } catch (const std::bad_alloc&) {
    return 0;
  }
  if (!err.str().empty()) std::abort();
  const zelk::solver::result_type result = s->solve(&out);
  if (result == zelk::solver::SAT || result == zelk::solver::OPTIMAL) check_model(s->context());
  return 0;
}
