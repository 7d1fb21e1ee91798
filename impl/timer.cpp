// CPU timer: reading the user time and printing differences.
#include "impl/timer.h"

#include <sys/resource.h>

#include <ctime>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "impl/utilities.h"

namespace zelk {

std::uint64_t user_time_microseconds() {
  struct rusage usage;
  if (getrusage(RUSAGE_SELF, &usage) == 0)
    return std::uint64_t(usage.ru_utime.tv_sec) * 1000000u + std::uint64_t(usage.ru_utime.tv_usec);
  // POSIX fixes CLOCKS_PER_SEC at one million, so clock() counts microseconds too.
  return std::uint64_t(std::clock());
}

timer::timer() : m_impl(std::make_unique<impl>()) {}

timer::timer(const timer& other) : m_impl(std::make_unique<impl>(*other.m_impl)) {}

timer::~timer() = default;

timer& timer::operator=(const timer& other) {
  m_impl->m_user_microseconds = other.m_impl->m_user_microseconds;
  return *this;
}

void timer::construct() {
  if (m_impl)
    m_impl->m_user_microseconds = user_time_microseconds();
  else
    m_impl = std::make_unique<impl>();
}

std::string timer::cpu_diff_str(const timer& earlier) const {
  std::ostringstream out;
  print_cpu_diff(out, earlier);
  return out.str();
}

void timer::print_cpu_diff(std::ostream& out, const timer& earlier) const {
  impl::print_diff(out, earlier.m_impl->m_user_microseconds, m_impl->m_user_microseconds);
}

void timer::impl::print_diff(std::ostream& out, std::uint64_t from, std::uint64_t to) {
  const std::uint64_t ms = (to - from + 500) / 1000;
  const std::uint64_t hours = ms / 3600000;
  const std::uint64_t minutes = ms / 60000 % 60;

  ios_state_restore restore(out);  // the flags; the fill is put back by hand below
  const char old_fill = out.fill('0');
  out.setf(std::ios_base::dec, std::ios_base::basefield);
  int width = 0;
  if (hours != 0) {
    out << std::setw(width) << hours << ':';
    width = 2;
  }
  if (hours != 0 || minutes != 0) {
    out << std::setw(width) << minutes << ':';
    width = 2;
  }
  out << std::setw(width) << ms / 1000 % 60 << '.' << std::setw(3) << ms % 1000;
  out.fill(old_fill);
}

}  // namespace zelk
