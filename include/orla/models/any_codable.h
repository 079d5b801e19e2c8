// AnyCodable: the value type of every action parameter, and ActionData, the
// parameter dictionary the host hands to each plugin call.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orla ORLA_EXPORT {

class AnyCodable;

using Bytes = std::vector<std::uint8_t>;
using AnyArray = std::vector<AnyCodable>;
// Transparent comparator so lookups by string_view do not allocate.
using AnyDictionary = std::map<std::string, AnyCodable, std::less<>>;

// The parameter dictionary of one action. Keys are exact and case-sensitive.
using ActionData = AnyDictionary;

struct Null {
  friend bool operator==(Null, Null) { return true; }
};

// A closed sum of eight cases. Plugins test the case by kind (`isString()`,
// `asString()`, ...), never by position.
class AnyCodable {
 public:
  enum class Kind { string, int_, double_, bool_, data, array, dictionary, null };

  AnyCodable() : value_(Null{}) {}
  AnyCodable(std::string v) : value_(std::move(v)) {}
  AnyCodable(const char* v) : value_(std::string(v)) {}
  AnyCodable(std::string_view v) : value_(std::string(v)) {}
  AnyCodable(std::int64_t v) : value_(v) {}
  AnyCodable(int v) : value_(static_cast<std::int64_t>(v)) {}
  AnyCodable(double v) : value_(v) {}
  AnyCodable(bool v) : value_(v) {}
  AnyCodable(Bytes v) : value_(std::move(v)) {}
  AnyCodable(AnyArray v) : value_(std::move(v)) {}
  AnyCodable(AnyDictionary v) : value_(std::move(v)) {}
  AnyCodable(Null) : value_(Null{}) {}

  Kind kind() const { return static_cast<Kind>(value_.index()); }

  const std::string* asString() const { return std::get_if<std::string>(&value_); }
  const std::int64_t* asInt() const { return std::get_if<std::int64_t>(&value_); }
  const double* asDouble() const { return std::get_if<double>(&value_); }
  const bool* asBool() const { return std::get_if<bool>(&value_); }
  const Bytes* asData() const { return std::get_if<Bytes>(&value_); }
  const AnyArray* asArray() const { return std::get_if<AnyArray>(&value_); }
  const AnyDictionary* asDictionary() const { return std::get_if<AnyDictionary>(&value_); }
  bool isNull() const { return kind() == Kind::null; }

  // The integer this value stands for, if any. One rule for every plugin:
  //  - int: its value;
  //  - double: its value when finite, whole and within the 64-bit range
  //    (3.0 is 3; 3.5, NaN and 1e300 are none);
  //  - string: the text, trimmed of white space and line breaks, when it is
  //    an optionally signed run of ASCII decimal digits within the 64-bit
  //    range ("  42 " is 42; "4.0", "0x10" and "" are none);
  //  - bool, data, array, dictionary, null: none. A Boolean is a switch, not
  //    a number; the switch readers accept it on their own.
  std::optional<std::int64_t> intValue() const;

  friend bool operator==(const AnyCodable&, const AnyCodable&) = default;

 private:
  std::variant<std::string, std::int64_t, double, bool, Bytes, AnyArray, AnyDictionary, Null>
      value_;
};

}  // namespace orla
