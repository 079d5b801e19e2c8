#include <orla/models/file_formatting.h>

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

#include <array>
#include <cmath>
#include <memory>

#include <orla/models/icu_support.h>

namespace orla {

namespace {

icu::Locale localeOf(std::string_view name) { return icu::Locale(std::string(name).c_str()); }

}  // namespace

std::string formatFileByteCount(std::uint64_t bytes, std::string_view locale) {
  using namespace icu::number;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale loc = localeOf(locale);
  if (bytes < 1000) {
    // Bytes are counted whole and spelled out, as "1 byte" and "12 bytes".
    auto text = NumberFormatter::withLocale(loc)
                    .unit(icu::MeasureUnit::getByte())
                    .unitWidth(UNUM_UNIT_WIDTH_FULL_NAME)
                    .formatInt(static_cast<int64_t>(bytes), status)
                    .toString(status);
    return U_SUCCESS(status) ? utf8String(text) : std::to_string(bytes) + " bytes";
  }
  struct Unit {
    icu::MeasureUnit unit;
    int fractionDigits;
  };
  const std::array<Unit, 5> units{{{icu::MeasureUnit::getKilobyte(), 0},
                                   {icu::MeasureUnit::getMegabyte(), 1},
                                   {icu::MeasureUnit::getGigabyte(), 2},
                                   {icu::MeasureUnit::getTerabyte(), 2},
                                   {icu::MeasureUnit::getPetabyte(), 2}}};
  double value = static_cast<double>(bytes) / 1000.0;
  std::size_t index = 0;
  for (;;) {
    const double scale = std::pow(10.0, units[index].fractionDigits);
    const double rounded = std::round(value * scale) / scale;
    if (rounded < 1000.0 || index + 1 == units.size()) {
      value = rounded;
      break;
    }
    value /= 1000.0;
    ++index;
  }
  auto text = NumberFormatter::withLocale(loc)
                  .unit(units[index].unit)
                  .unitWidth(UNUM_UNIT_WIDTH_SHORT)
                  .precision(Precision::maxFraction(units[index].fractionDigits))
                  .formatDouble(value, status)
                  .toString(status);
  return U_SUCCESS(status) ? utf8String(text) : std::to_string(bytes) + " bytes";
}

std::string formatMediumDateShortTime(TimePoint date, std::string_view timeZone, std::string_view locale) {
  std::unique_ptr<icu::DateFormat> format(
      icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort, localeOf(locale)));
  if (!format) return formatLocalDateTime(date, timeZone);
  if (auto zone = knownTimeZone(timeZone)) format->adoptTimeZone(zone.release());
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
  icu::UnicodeString text;
  format->format(static_cast<UDate>(millis), text);
  return utf8String(text);
}

}  // namespace orla
