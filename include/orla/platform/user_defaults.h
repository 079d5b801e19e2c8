// UserDefaults: the host application's standard user defaults.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>

namespace orla ORLA_EXPORT {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  virtual std::optional<AnyCodable> object(std::string_view key) const = 0;
  virtual void set(std::string_view key, AnyCodable value) = 0;
  virtual void remove(std::string_view key) = 0;

  // The Boolean reading of a default: a Boolean, or a non-zero integer;
  // false when absent or of another kind.
  bool boolValue(std::string_view key) const {
    const auto value = object(key);
    if (!value) return false;
    if (const bool* b = value->asBool()) return *b;
    if (const std::int64_t* i = value->asInt()) return *i != 0;
    return false;
  }
};

}  // namespace orla
