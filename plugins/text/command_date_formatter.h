// CommandDateFormatter: a date as text through a Unicode date-format pattern
// ("yyyy-MM-dd HH:mm:ss", "EEEE d MMMM", "'Week' w"), in a locale and time zone.
#pragma once

#include <string>
#include <string_view>

#include <orla/models/any_codable.h>
#include <orla/models/calendar.h>

namespace orla {

class CommandDateFormatter {
 public:
  static constexpr std::string_view defaultFormat = "yyyy-MM-dd HH:mm:ss";

  static std::string string(TimePoint date, std::string_view format, std::string_view locale,
                            std::string_view timeZone);
  // The pattern a date action asks for: the first non-empty text of
  // "dateFormat", "Format", "text" and "Text", else the default.
  static std::string format(const ActionData& data);
};

}  // namespace orla
