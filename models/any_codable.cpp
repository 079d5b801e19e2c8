#include <orla/models/any_codable.h>

#include <charconv>
#include <cmath>

#include <orla/models/text.h>

namespace orla {

std::optional<std::int64_t> AnyCodable::intValue() const {
  if (const auto* i = asInt()) return *i;
  if (const auto* d = asDouble()) {
    // 2^63 is exactly representable; anything at or above it does not fit.
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(*d) || std::trunc(*d) != *d || *d >= kLimit || *d < -kLimit)
      return std::nullopt;
    return static_cast<std::int64_t>(*d);
  }
  if (const auto* s = asString()) {
    std::string_view text = trimWhitespaceAndNewlines(*s);
    if (!text.empty() && text.front() == '+') {
      text.remove_prefix(1);
      if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    if (text.empty()) return std::nullopt;
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
  }
  return std::nullopt;
}

}  // namespace orla
