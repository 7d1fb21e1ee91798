// Time format of the progress lines, and timers as values.
#include "impl/timer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>

namespace zelk {
namespace {

std::string diff_text(std::uint64_t from, std::uint64_t to) {
  std::ostringstream out;
  timer::impl::print_diff(out, from, to);
  return out.str();
}

TEST(timer, format_of_differences) {
  const std::uint64_t ms = 1000, second = 1000 * ms, minute = 60 * second, hour = 60 * minute;
  struct format_case {
    std::uint64_t microseconds;
    const char* text;
  };
  const format_case cases[] = {
      {0, "0.000"},
      {3004 * ms, "3.004"},
      {59 * second + 999 * ms, "59.999"},
      {minute, "1:00.000"},
      {minute + 5 * ms, "1:00.005"},
      {12 * minute + 7 * second + 80 * ms, "12:07.080"},
      {59 * minute + 59 * second + 999 * ms, "59:59.999"},
      {hour, "1:00:00.000"},
      {hour + 2 * minute + 3004 * ms, "1:02:03.004"},
      {hour + 3 * second, "1:00:03.000"},  // zero minutes still printed under hours
      {25 * hour + 10 * minute, "25:10:00.000"},
      // Rounded to the nearest millisecond, half up.
      {499, "0.000"},
      {500, "0.001"},
      {59 * second + 999 * ms + 500, "1:00.000"},
      {hour - 1, "1:00:00.000"},
  };
  for (const format_case& c : cases) EXPECT_EQ(diff_text(0, c.microseconds), c.text) << c.microseconds;
  // Only the difference counts.
  EXPECT_EQ(diff_text(123456789, 123456789 + 3004 * ms), "3.004");
}

TEST(timer, leaves_stream_format_alone) {
  std::ostringstream out;
  out << std::hex << std::setfill('*');
  timer::impl::print_diff(out, 0, 3600000000ull + 11000000ull);  // 1:00:11.000, decimal
  out << ' ' << std::setw(4) << 255;
  EXPECT_EQ(out.str(), "1:00:11.000 **ff");
}

TEST(timer, timers_are_values) {
  const timer earlier;
  volatile std::uint64_t sink = 0;
  for (std::uint64_t i = 0; i < 2000000; ++i) sink = sink + i;
  timer later;
  // Under a minute of work: seconds, a point, three digits.
  const std::string text = later.cpu_diff_str(earlier);
  ASSERT_GE(text.size(), 5u);
  EXPECT_EQ(text.find_first_not_of("0123456789."), std::string::npos) << text;
  EXPECT_EQ(text.find('.'), text.size() - 4) << text;
  // Assignment copies the time taken; the copy does not share state with its source.
  const std::string measured = later.cpu_diff_str(earlier);
  timer copy;
  copy = earlier;
  EXPECT_EQ(copy.cpu_diff_str(earlier), "0.000");
  EXPECT_EQ(later.cpu_diff_str(copy), measured);
  copy.construct();
  EXPECT_EQ(later.cpu_diff_str(earlier), measured);
  std::ostringstream out;
  later.print_cpu_diff(out, later);
  EXPECT_EQ(out.str(), "0.000");
  // User time never runs backwards.
  const std::uint64_t t1 = user_time_microseconds();
  const std::uint64_t t2 = user_time_microseconds();
  EXPECT_LE(t1, t2);
}

}  // namespace
}  // namespace zelk
