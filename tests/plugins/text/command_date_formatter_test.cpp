#include "plugins/text/command_date_formatter.h"

#include <gtest/gtest.h>

namespace orla {
namespace {

// Tuesday 5 March 2024, 14:07:09 in Paris (UTC+1 then).
TimePoint sampleInstant() {
  auto instant = parseLocalDateTime("2024-03-05T14:07:09", "Europe/Paris");
  EXPECT_TRUE(instant.has_value());
  return instant.value_or(TimePoint{});
}

TEST(CommandDateFormatter, FormatsPatternsInLocaleAndZone) {
  struct Case {
    const char* format;
    const char* locale;
    const char* zone;
    const char* expected;
  };
  const Case cases[] = {
      {"yyyy-MM-dd HH:mm:ss", "en_US", "Europe/Paris", "2024-03-05 14:07:09"},
      {"yyyy-MM-dd HH:mm:ss", "en_US", "America/New_York", "2024-03-05 08:07:09"},
      {"yyyy-MM-dd HH:mm:ss", "en_US", "Asia/Tokyo", "2024-03-05 22:07:09"},
      {"EEEE d MMMM", "en_US", "Europe/Paris", "Tuesday 5 March"},
      {"EEEE d MMMM", "fr_FR", "Europe/Paris", "mardi 5 mars"},
      {"EEEE d MMMM", "en_US", "Pacific/Kiritimati", "Wednesday 6 March"},
      {"h:mm a", "en_US", "Europe/Paris", "2:07 PM"},
      {"dd.MM.yy", "de_DE", "Europe/Paris", "05.03.24"},
      {"ZZZZZ", "en_US", "Asia/Kolkata", "+05:30"},
      {"'Week' w", "en_US", "Europe/Paris", "Week 10"},
      {"'It''s' HH'h'", "en_US", "Europe/Paris", "It's 14h"},
      {"'o''clock: 'H", "en_US", "Europe/Paris", "o'clock: 14"},
      {"''", "en_US", "Europe/Paris", "'"},
      {"''''", "en_US", "Europe/Paris", "''"},
      {"'", "en_US", "Europe/Paris", ""},
      {"'jjj' yyyy", "en_US", "Europe/Paris", "jjj 2024"},  // letters in quotes are text
      // "j" is the locale's own hour, with a day period where it counts twelve hours.
      {"jj:mm", "en_US", "Europe/Paris", "02:07 PM"},
      {"jj:mm", "fr_FR", "Europe/Paris", "14:07"},
      {"j:mm a", "en_US", "Europe/Paris", "2:07 PM"},
      {"EEEE j 'jj'", "de_DE", "Europe/Paris", "Dienstag 14 jj"},
      {"j", "ja_JP", "Europe/Paris", "14"},
  };
  const TimePoint instant = sampleInstant();
  for (const auto& c : cases)
    EXPECT_EQ(CommandDateFormatter::string(instant, c.format, c.locale, c.zone), c.expected)
        << c.format << " / " << c.locale << " / " << c.zone;
}

TEST(CommandDateFormatter, IsEmptyForAnInvalidPatternOrZone) {
  struct Case {
    const char* format;
    const char* zone;
  };
  const Case cases[] = {
      {"yyyy III", "Europe/Paris"},  // "I" is no letter of a date pattern
      {"III", "Europe/Paris"},
      {"", "Europe/Paris"},
      {"yyyy", "Mars/Olympus_Mons"},
      {"yyyy", ""},
  };
  const TimePoint instant = sampleInstant();
  for (const auto& c : cases)
    EXPECT_EQ(CommandDateFormatter::string(instant, c.format, "en_US", c.zone), "")
        << c.format << " / " << c.zone;
}

}  // namespace
}  // namespace orla
