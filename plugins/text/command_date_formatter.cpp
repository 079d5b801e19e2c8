#include "plugins/text/command_date_formatter.h"

#include "models/icu_support.h"
#include "models/parameter_readers.h"

#include <unicode/dtfmtsym.h>
#include <unicode/fieldpos.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <chrono>
#include <memory>

namespace orla {

namespace {

// ICU formats an unknown pattern letter ("j", "I") as nothing and reports no
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

}  // namespace

std::string CommandDateFormatter::string(TimePoint date, std::string_view format,
                                         std::string_view locale, std::string_view timeZone) {
  const icu::UnicodeString pattern = unicodeString(format);
  if (pattern.isBogus() || !hasOnlyKnownLetters(pattern)) return {};
  // A typo in a zone name must not quietly print GMT times.
  auto zone = knownTimeZone(timeZone);
  if (!zone) return {};

  // A formatter per call: SimpleDateFormat is not safe to share between
  // threads, and this is called rarely enough that building one costs nothing
  // the user could notice.
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat formatter(pattern, icu::Locale(std::string(locale).c_str()), status);
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
