// User CPU time for the progress lines of the optimisation loop: a timer takes
// the time when made, and the difference of two timers prints as
// [[h:]mm:]ss.mmm (hours and minutes only when they are not zero).
#ifndef ZELK_IMPL_TIMER_H
#define ZELK_IMPL_TIMER_H

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

namespace zelk {

// User CPU time of the process in microseconds: getrusage(RUSAGE_SELF), or clock()
// if that fails.
std::uint64_t user_time_microseconds();

class timer {
 public:
  class impl;

  // Takes the time now.
  timer();
  timer(const timer& other);
  ~timer();
  // Copies the time taken by other.
  timer& operator=(const timer& other);

  // Takes the time again (allocating the impl if this timer has none).
  void construct();

  // The time from earlier to this timer, in the format above.
  std::string cpu_diff_str(const timer& earlier) const;
  void print_cpu_diff(std::ostream& out, const timer& earlier) const;

 private:
  std::unique_ptr<impl> m_impl;
};

class timer::impl {
 public:
  impl() : m_user_microseconds(user_time_microseconds()) {}

  // Writes the time from `from` to `to` (microseconds), rounded to milliseconds.
  // Leaves the stream's flags and fill character as they were.
  static void print_diff(std::ostream& out, std::uint64_t from, std::uint64_t to);

  std::uint64_t m_user_microseconds;
};

}  // namespace zelk

#endif
