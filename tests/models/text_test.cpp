#include <orla/models/text.h>

#include <gtest/gtest.h>

#include <orla/models/calendar.h>

namespace orla {
namespace {

TEST(Trim, RemovesUnicodeWhiteSpaceAndLineBreaksOnly) {
  struct Case {
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {"  a b  ", "a b"},
      {"\t\r\n\v\fa", "a"},
      {"\u00A0a\u2003", "a"},        // no-break space, em space
      {"\u2028a\u2029", "a"},        // line and paragraph separators
      {"\u0085a", "a"},              // next line
      {"\u200Ba\u200B", "\u200Ba\u200B"},  // zero-width space is a format character
      {"\xFF a \xFE", "\xFF a \xFE"},      // invalid bytes are kept
      {"   ", ""},
      {"", ""},
      {"é", "é"},
  };
  for (const auto& c : cases) EXPECT_EQ(trimWhitespaceAndNewlines(c.text), c.expected) << c.text;
}

TEST(CaseInsensitive, FoldsCaseAndCanonicalForms) {
  struct Case {
    const char* a;
    const char* b;
    bool equal;
  };
  const Case cases[] = {
      {"Finder", "finder", true},
      {"com.apple.Finder", "COM.APPLE.FINDER", true},
      {"Finder", "Finde", false},
      {"Caf\u00E9", "CAFE\u0301", true},  // precomposed and combining forms
      {"cafe", "café", false},            // diacritics count
      {"Straße", "STRASSE", true},        // full case folding
      {"", "", true},
  };
  for (const auto& c : cases) EXPECT_EQ(equalsIgnoringCase(c.a, c.b), c.equal) << c.a << " / " << c.b;
  EXPECT_EQ(toLowercase("ÀB c"), "àb c");
  EXPECT_EQ(quoted("Name"), "\u201CName\u201D");
}

TEST(Calendar, ReadsLocalFieldsInTheGivenZone) {
  auto instant = parseLocalDateTime("2026-11-21T23:30:00", "Europe/Paris");
  ASSERT_TRUE(instant);
  auto paris = calendarFields(*instant, "Europe/Paris", "en_US");
  ASSERT_TRUE(paris);
  EXPECT_EQ(paris->hour, 23);
  EXPECT_EQ(paris->weekday, 7);  // a Saturday
  auto tokyo = calendarFields(*instant, "Asia/Tokyo", "en_US");
  ASSERT_TRUE(tokyo);
  EXPECT_EQ(tokyo->hour, 7);
  EXPECT_EQ(tokyo->weekday, 1);  // already Sunday there
  EXPECT_EQ(formatLocalDateTime(*instant, "Europe/Paris"), "2026-11-21T23:30:00");
  EXPECT_FALSE(calendarFields(*instant, "Mars/Olympus", "en_US"));
  for (const char* bad : {"2026-13-01T00:00", "2026-11-21", "yesterday", "2026-11-21T10:00:00Z"})
    EXPECT_FALSE(parseLocalDateTime(bad, "UTC")) << bad;
  EXPECT_TRUE(parseLocalDateTime("2026-11-21 10:00", "UTC"));
}

}  // namespace
}  // namespace orla
