// Calendar arithmetic over ICU: the local fields of an instant in a time zone
// and locale, and the instant of a local date-time. Used by the conditions on
// the hour and weekday and by the simulated clock's seed.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

using TimePoint = std::chrono::system_clock::time_point;

struct CalendarFields {
  int year = 0;
  int month = 0;    // 1 = January
  int day = 0;
  int hour = 0;     // 0 to 23
  int minute = 0;
  int second = 0;
  int weekday = 0;  // 1 = Sunday ... 7 = Saturday
};

// The fields of `instant` in the calendar of `locale` (its default calendar)
// and in `timeZone` (an IANA name such as "Europe/Paris").
Checked<CalendarFields> calendarFields(TimePoint instant, std::string_view timeZone,
                                       std::string_view locale);

// Whether ICU knows `timeZone`.
bool isKnownTimeZone(std::string_view timeZone);

// The instant of an ISO local date-time ("2026-11-21T09:30" or with seconds,
// "T" or a space between) in `timeZone`; none when malformed.
std::optional<TimePoint> parseLocalDateTime(std::string_view text, std::string_view timeZone);

// The ISO local date-time of `instant` in `timeZone`, to the second.
std::string formatLocalDateTime(TimePoint instant, std::string_view timeZone);

}  // namespace orla
