// The time text of the progress lines: [[h:]mm:]ss.mmm, rounded to the nearest millisecond.
#include "impl/timer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

TEST(timer, differences_print_with_hours_and_minutes_only_when_needed) {
  for (const auto& [us, text] : std::initializer_list<std::pair<std::uint64_t, const char*>>{
           {0, "0.000"}, {499, "0.000"}, {500, "0.001"}, {59999500, "1:00.000"},
           {60005000, "1:00.005"}, {727080000, "12:07.080"}, {3599999999, "1:00:00.000"},
           {3603000000, "1:00:03.000"}, {90600000000, "25:10:00.000"}}) {
    std::ostringstream out;
    out << std::hex << std::setfill('*');
    zelk::timer::impl::print_diff(out, 123456789, 123456789 + us);
    out << std::setw(4) << 255;  // the stream's base and fill are left alone
    EXPECT_EQ(out.str(), text + std::string("**ff"));
  }
  const zelk::timer earlier, copy(earlier);
  EXPECT_EQ(copy.cpu_diff_str(earlier), "0.000");
}
