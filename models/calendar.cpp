#include <orla/models/calendar.h>

#include <orla/models/icu_support.h>

#include <unicode/calendar.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <cstdio>
#include <memory>
#include <string>

namespace orla {

namespace {

double toMillis(TimePoint instant) {
  return static_cast<double>(
      std::chrono::duration_cast<std::chrono::milliseconds>(instant.time_since_epoch()).count());
}

}  // namespace

std::unique_ptr<icu::TimeZone> knownTimeZone(std::string_view id) {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(unicodeString(id)));
  icu::UnicodeString resolved;
  if (!zone || zone->getID(resolved) == icu::UnicodeString(UCAL_UNKNOWN_ZONE_ID)) return nullptr;
  return zone;
}

bool isKnownTimeZone(std::string_view timeZone) { return knownTimeZone(timeZone) != nullptr; }

namespace {

// Building a zone and a calendar costs more than reading one, and a
// shortcut asks the same zone and locale again and again: each thread keeps
// the last calendar it built (a calendar is not shared between threads).
struct CachedCalendar {
  std::string timeZone;
  std::string locale;
  std::unique_ptr<icu::Calendar> calendar;
};

Checked<icu::Calendar*> calendarFor(std::string_view timeZone, std::string_view locale) {
  thread_local CachedCalendar cached;
  if (cached.calendar && cached.timeZone == timeZone && cached.locale == locale) return cached.calendar.get();
  auto zone = knownTimeZone(timeZone);
  if (!zone) return fail("The time zone “" + std::string(timeZone) + "” is not known.");
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(
      zone.release(), icu::Locale(std::string(locale).c_str()), status));
  if (U_FAILURE(status)) return fail("The calendar could not be created.");
  cached = {std::string(timeZone), std::string(locale), std::move(calendar)};
  return cached.calendar.get();
}

}  // namespace

Checked<CalendarFields> calendarFields(TimePoint instant, std::string_view timeZone,
                                       std::string_view locale) {
  auto made = calendarFor(timeZone, locale);
  if (!made) return fail(made.error());
  icu::Calendar* calendar = *made;
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(toMillis(instant), status);
  CalendarFields f;
  f.year = calendar->get(UCAL_YEAR, status);
  f.month = calendar->get(UCAL_MONTH, status) + 1;
  f.day = calendar->get(UCAL_DATE, status);
  f.hour = calendar->get(UCAL_HOUR_OF_DAY, status);
  f.minute = calendar->get(UCAL_MINUTE, status);
  f.second = calendar->get(UCAL_SECOND, status);
  f.weekday = calendar->get(UCAL_DAY_OF_WEEK, status);
  if (U_FAILURE(status)) return fail("The calendar could not be read.");
  return f;
}

std::optional<TimePoint> parseLocalDateTime(std::string_view text, std::string_view timeZone) {
  auto zone = knownTimeZone(timeZone);
  if (!zone) return std::nullopt;
  int year, month, day, hour, minute, second = 0;
  char separator = 0;
  int consumed = 0;
  const std::string s(text);
  const int fields = std::sscanf(s.c_str(), "%4d-%2d-%2d%c%2d:%2d%n:%2d%n", &year, &month, &day,
                                 &separator, &hour, &minute, &consumed, &second, &consumed);
  if (fields < 6 || (separator != 'T' && separator != ' ') ||
      static_cast<size_t>(consumed) != s.size())
    return std::nullopt;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
      minute > 59 || second < 0 || second > 60)
    return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  icu::GregorianCalendar calendar(zone.release(), status);
  if (U_FAILURE(status)) return std::nullopt;
  calendar.setLenient(false);
  calendar.set(year, month - 1, day, hour, minute, second);
  calendar.set(UCAL_MILLISECOND, 0);
  const UDate millis = calendar.getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  // The clock counts in nanoseconds, so it reaches only from 1677 to 2262;
  // a date outside that cannot be one of its time points.
  constexpr auto kReach =
      std::chrono::duration_cast<std::chrono::milliseconds>(TimePoint::duration::max()).count();
  if (!(millis > -static_cast<double>(kReach) && millis < static_cast<double>(kReach))) return std::nullopt;
  return TimePoint(std::chrono::duration_cast<TimePoint::duration>(
      std::chrono::milliseconds(static_cast<long long>(millis))));
}

std::string formatLocalDateTime(TimePoint instant, std::string_view timeZone) {
  auto fields = calendarFields(instant, timeZone, "en_US@calendar=gregorian");
  if (!fields) return {};
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d", fields->year,
                fields->month, fields->day, fields->hour, fields->minute, fields->second);
  return buffer;
}

}  // namespace orla
