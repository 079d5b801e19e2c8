// Sizes and dates as the file manager shows them, formatted by ICU for the
// desktops that have no formatter of their own.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <orla/models/calendar.h>

namespace orla ORLA_EXPORT {

// A byte count in the file manager's style: decimal units (1 KB is 1000
// bytes), whole bytes and kilobytes, one decimal for megabytes and two
// above, trailing zeros dropped: "12 bytes", "4 kB", "1.5 MB", "2.05 GB".
// A value that would round to 1000 of a unit is shown in the next one.
std::string formatFileByteCount(std::uint64_t bytes, std::string_view locale);

// Medium date style and short time style: "Nov 21, 2026, 9:30 AM" in en_US.
std::string formatMediumDateShortTime(TimePoint date, std::string_view timeZone, std::string_view locale);

}  // namespace orla
