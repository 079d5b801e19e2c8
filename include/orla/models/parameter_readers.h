// The readers every plugin uses for its parameters. Each plugin states its
// own readers as one or two calls to these, with its alias keys in order:
//
//   static std::string shortcutName(const ActionData& d) {
//     return readStringOr(d, {"shortcutName", "shortcut", "Name"});
//   }
//
// Rules shared by all: lookup is by exact key; a missing key and a value of a
// case the reader does not accept are both absent, and the next alias is
// tried; text is trimmed of white space and line breaks, and empty text is
// absent.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>

namespace orla ORLA_EXPORT {

using Keys = std::initializer_list<std::string_view>;

// The value under `key`, or null when the key is missing.
const AnyCodable* lookup(const ActionData& data, std::string_view key);

// Text of the first alias holding a `string` that is non-empty after trimming.
std::optional<std::string> readString(const ActionData& data, Keys keys);
std::string readStringOr(const ActionData& data, Keys keys, std::string_view fallback = {});

// The `string` under `key` exactly as stored (no trimming), for the few
// parameters that are compared or searched verbatim.
std::optional<std::string> readRawString(const ActionData& data, std::string_view key);

// A name from a fixed set (a provider, a method): trimmed and lowercased; the
// fallback when absent.
std::string readIdentifier(const ActionData& data, Keys keys, std::string_view fallback);

// The first alias whose value yields an integer by `AnyCodable::intValue`.
std::optional<std::int64_t> readInt(const ActionData& data, Keys keys);
std::int64_t readIntOr(const ActionData& data, Keys keys, std::int64_t fallback);

// The floating conversion: a string is trimmed, "," becomes ".", and it must
// parse whole as a decimal number; int converts; double as is; bool is 1.0 or
// 0.0; other cases, and infinite or NaN results, are absent.
std::optional<double> toDouble(const AnyCodable& value);
std::optional<double> readDouble(const ActionData& data, Keys keys);
double readDoubleOr(const ActionData& data, Keys keys, double fallback);

// A switch: `bool`, or `int` where non-zero is true; other cases are absent.
std::optional<bool> toSwitch(const AnyCodable& value);
std::optional<bool> readSwitch(const ActionData& data, Keys keys);
bool readSwitchOr(const ActionData& data, Keys keys, bool fallback = false);

// The first alias holding an `array`.
const AnyArray* readList(const ActionData& data, Keys keys);

// Looks up the home folder of a user; the empty name means the current user.
using HomeLookup = std::function<std::optional<std::string>(std::string_view user)>;

// Expands a leading "~" or "~user" to that user's home folder. A path without
// one, or naming a user with no known home, comes back unchanged.
std::string expandTilde(std::string_view path, const HomeLookup& homeOf);

// One name accepted in "subAction" for a command number.
struct CommandName {
  std::string_view name;
  std::int64_t number;
};

// The command number of a plugin with several commands:
//  1. a "subAction" string equal (exactly) to one of `names` wins, first
//     match in table order;
//  2. else the integer under "actionType", else under "Action";
//  3. 0, 1 and absence all mean 1. The test is unsigned, so a negative
//     number is kept and later rejected as an unknown command.
std::int64_t resolveCommandNumber(const ActionData& data, std::span<const CommandName> names = {});

// "Unknown " + family + ". Choose one from the menu."
std::string unknownCommandMessage(std::string_view family);

}  // namespace orla
