#include "plugins/text/command_date_formatter.h"

#include <orla/models/icu_support.h>
#include <orla/models/parameter_readers.h>

#include <unicode/dtfmtsym.h>
#include <unicode/dtptngen.h>
#include <unicode/fieldpos.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <chrono>
#include <memory>

namespace orla {

namespace {

// ICU formats an unknown pattern letter ("I", "j") as nothing and reports no
// error, so "yyyy jjj" would come out as "2024 " without a word. Such a
// pattern is a mistake in the user's format; it is refused as a whole so that
// the user sees that the format is wrong instead of a half-formatted date.
bool hasOnlyKnownLetters(const icu::UnicodeString& pattern) {
  const icu::UnicodeString letters(icu::DateFormatSymbols::getPatternUChars());
  bool quoted = false;
  for (int32_t i = 0; i < pattern.length(); ++i) {
    const char16_t c = pattern.charAt(i);
    if (c == u'\'') {
      quoted = !quoted;  // '' toggles twice: a literal quote, in or out of a quoted run
      continue;
    }
    if (quoted) continue;
    const bool asciiLetter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
    if (asciiLetter && letters.indexOf(c) < 0) return false;
  }
  return true;
}

// "j" asks for the hour as the locale writes it, as it does in ICU's
// skeletons: it becomes "h", "H", "K" or "k" by the locale's hour cycle, as
// many times as it was written, and a 12-hour locale gets its day period
// ("a") at the end when the pattern has none. The day period's place is
// where most locales put it; a pattern that needs it elsewhere can say "h"
// and "a" itself. "I" is no letter of patterns or skeletons and stays
// refused.
icu::UnicodeString withPreferredHour(const icu::UnicodeString& pattern, const icu::Locale& locale) {
  bool quoted = false, hasJ = false, hasPeriod = false;
  for (int32_t i = 0; i < pattern.length(); ++i) {
    const char16_t c = pattern.charAt(i);
    if (c == u'\'') quoted = !quoted;
    else if (!quoted && c == u'j') hasJ = true;
    else if (!quoted && (c == u'a' || c == u'b' || c == u'B')) hasPeriod = true;
  }
  if (!hasJ) return pattern;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateTimePatternGenerator> generator(icu::DateTimePatternGenerator::createInstance(locale, status));
  UDateFormatHourCycle cycle = U_SUCCESS(status) ? generator->getDefaultHourCycle(status) : UDAT_HOUR_CYCLE_23;
  if (U_FAILURE(status)) cycle = UDAT_HOUR_CYCLE_23;
  const char16_t hour = cycle == UDAT_HOUR_CYCLE_12 ? u'h' : cycle == UDAT_HOUR_CYCLE_11 ? u'K'
                        : cycle == UDAT_HOUR_CYCLE_24 ? u'k' : u'H';
  icu::UnicodeString out;
  quoted = false;
  for (int32_t i = 0; i < pattern.length(); ++i) {
    const char16_t c = pattern.charAt(i);
    if (c == u'\'') quoted = !quoted;
    out.append(!quoted && c == u'j' ? hour : c);
  }
  if (!hasPeriod && (hour == u'h' || hour == u'K')) out.append(u" a");
  return out;
}

}  // namespace

std::string CommandDateFormatter::string(TimePoint date, std::string_view format,
                                         std::string_view locale, std::string_view timeZone) {
  const icu::Locale where(std::string(locale).c_str());
  const icu::UnicodeString pattern = withPreferredHour(unicodeString(format), where);
  if (pattern.isBogus() || !hasOnlyKnownLetters(pattern)) return {};
  // A typo in a zone name must not quietly print GMT times.
  auto zone = knownTimeZone(timeZone);
  if (!zone) return {};

  // A formatter per call: SimpleDateFormat is not safe to share between
  // threads, and this is called rarely enough that building one costs nothing
  // the user could notice.
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat formatter(pattern, where, status);
  if (U_FAILURE(status)) return {};
  formatter.adoptTimeZone(zone.release());

  // Floor, not truncate: an instant a fraction of a millisecond before 1970
  // still belongs to the previous second.
  const auto millis = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch());
  icu::UnicodeString text;
  icu::FieldPosition position;
  formatter.format(static_cast<UDate>(millis.count()), text, position, status);
  if (U_FAILURE(status)) return {};
  return utf8String(text);
}

std::string CommandDateFormatter::format(const ActionData& data) {
  for (std::string_view key : {"dateFormat", "Format", "text", "Text"})
    if (auto text = readRawString(data, key); text && !text->empty()) return *text;
  return std::string(defaultFormat);
}

}  // namespace orla
