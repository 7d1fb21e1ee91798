// Small services used all over the engine: the non-copyable base, the shared
// vocabulary of the solver, the parse error, the stream state guard, the one
// random generator and the duplicate-free queue of small numbers.
#ifndef ZELK_IMPL_UTILITIES_H
#define ZELK_IMPL_UTILITIES_H

#include <cassert>
#include <cstdint>
#include <deque>
#include <ios>
#include <stdexcept>
#include <string>
#include <vector>

// Whole-structure checks (the stack, the heaps, the watch lists, the learned store)
// cost a walk over everything, so they run only in audit builds, and there as
// assertions at the points where a broken invariant would first show.
#ifdef ZELK_AUDIT
#define ZELK_AUDIT_CHECK(check) assert(check)
#else
#define ZELK_AUDIT_CHECK(check) ((void)0)
#endif

namespace zelk {

// Deriving from this forbids copying: copies of solvers, stacks and the like are errors.
class no_copy {
 protected:
  no_copy() = default;
  ~no_copy() = default;

 public:
  no_copy(const no_copy&) = delete;
  no_copy& operator=(const no_copy&) = delete;
};

// Vocabulary shared by the solver and the views.
class solver_types {
 public:
  typedef std::uint32_t label_type;
};

// Bad text in any reader.
class parse_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Saves a stream's format flags and state word; the destructor writes them back.
class ios_state_restore {
 public:
  explicit ios_state_restore(std::basic_ios<char>& stream)
      : m_stream(stream), m_flags(stream.flags()), m_state(stream.rdstate()) {}
  ~ios_state_restore() {
    m_stream.flags(m_flags);
    m_stream.clear(m_state);
  }
  ios_state_restore(const ios_state_restore&) = delete;
  ios_state_restore& operator=(const ios_state_restore&) = delete;

 private:
  std::basic_ios<char>& m_stream;
  std::ios_base::fmtflags m_flags;
  std::ios_base::iostate m_state;
};

// Raises std::runtime_error; keeps the raising code out of hot functions.
[[noreturn]] void throw_runtime_error(const char* what);

// The one random generator of the program, over the C library's rand() state.
class random {
 public:
  // 0 draws a seed from /dev/urandom (time() if unreadable). Returns the seed in force.
  static unsigned int set_seed(unsigned int seed);
  // A 32-bit pattern from three rand() calls.
  static std::uint32_t gen();
  // A number below n; n = 0 raises std::invalid_argument.
  static std::uint32_t gen(unsigned int n);
  static unsigned int range(unsigned int lo, unsigned int hi);
  static int range(int lo, int hi);
};

template <class T>
class unique_queue;

// First-in-first-out queue of unsigned numbers below a maximum, each at most once.
// A bit per number tells whether it is queued (or marked as not needing a place).
template <>
class unique_queue<void> {
 public:
  void set_max_elements(unsigned long n);
  unsigned long max_elements() const { return m_max_elements; }
  // False if x is already in the queue (or marked); otherwise appends it.
  bool insert(unsigned int x) {
    if (is_in_queue(x)) return false;
    m_bits[x >> 5] |= 1u << (x & 31u);
    m_queue.push_back(x);
    return true;
  }
  bool is_in_queue(unsigned int x) const {
    if (x >= m_max_elements) throw_out_of_range_element();
    return (m_bits[x >> 5] >> (x & 31u)) & 1u;
  }
  // Sets the bit of x without queueing it (a constraint that is VALID need not run).
  void mark(unsigned int x) {
    if (x >= m_max_elements) throw_out_of_range_element();
    m_bits[x >> 5] |= 1u << (x & 31u);
  }
  unsigned int pop();
  void clear();
  bool empty() const { return m_queue.empty(); }
  std::size_t size() const { return m_queue.size(); }
  void validate_all_elements_below(unsigned int n) const;

 private:
  [[noreturn]] static void throw_out_of_range_element();

  std::deque<unsigned int> m_queue;
  std::vector<std::uint32_t> m_bits;
  std::uint64_t m_max_elements = 0;
};

}  // namespace zelk

#endif
