#include <orla/models/file_formatting.h>

#include <gtest/gtest.h>

namespace orla {
namespace {

TEST(FileFormattingTest, ByteCountsUseDecimalUnitsWithTheirOwnPrecision) {
  const struct {
    std::uint64_t bytes;
    std::string locale, expected;
  } cases[] = {
      {0, "en_US", "0 bytes"},
      {1, "en_US", "1 byte"},
      {999, "en_US", "999 bytes"},
      {1000, "en_US", "1 kB"},
      {1499, "en_US", "1 kB"},
      {1500, "en_US", "2 kB"},
      {999'499, "en_US", "999 kB"},
      {999'999, "en_US", "1 MB"},
      {1'500'000, "en_US", "1.5 MB"},
      {2'000'000, "en_US", "2 MB"},
      {2'345'678'901, "en_US", "2.35 GB"},
      {1'000'000'000'000, "en_US", "1 TB"},
      {1'500'000, "de_DE", "1,5 MB"},
  };
  for (const auto& c : cases) EXPECT_EQ(formatFileByteCount(c.bytes, c.locale), c.expected) << c.bytes;
}

TEST(FileFormattingTest, DatesUseTheMediumDateAndShortTimeOfTheLocaleAndZone) {
  const TimePoint instant = std::chrono::sys_days{std::chrono::year{2026} / 11 / 21} + std::chrono::hours{8} +
                            std::chrono::minutes{30};
  EXPECT_EQ(formatMediumDateShortTime(instant, "Europe/Paris", "en_US"), "Nov 21, 2026, 9:30\u202fAM");
  EXPECT_EQ(formatMediumDateShortTime(instant, "America/New_York", "en_US"), "Nov 21, 2026, 3:30\u202fAM");
  EXPECT_EQ(formatMediumDateShortTime(instant, "Europe/Paris", "de_DE"), "21.11.2026, 09:30");
}

}  // namespace
}  // namespace orla
