// CommandDateFormatter: a date as text through a Unicode date-format pattern
// ("yyyy-MM-dd HH:mm:ss", "EEEE d MMMM", "'Week' w"), in a locale and time zone.
#pragma once

#include <string>
#include <string_view>

#include "models/calendar.h"

namespace orla {

class CommandDateFormatter {
 public:
  static std::string string(TimePoint date, std::string_view format, std::string_view locale,
                            std::string_view timeZone);
};

}  // namespace orla
