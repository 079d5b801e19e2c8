#include <orla/models/parameter_readers.h>

#include <charconv>
#include <cmath>

#include <orla/models/text.h>

namespace orla {

const AnyCodable* lookup(const ActionData& data, std::string_view key) {
  auto it = data.find(key);
  return it == data.end() ? nullptr : &it->second;
}

std::optional<std::string> readString(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    const std::string* text = value->asString();
    if (!text) continue;
    std::string_view trimmed = trimWhitespaceAndNewlines(*text);
    if (!trimmed.empty()) return std::string(trimmed);
  }
  return std::nullopt;
}

std::string readStringOr(const ActionData& data, Keys keys, std::string_view fallback) {
  auto text = readString(data, keys);
  return text ? std::move(*text) : std::string(fallback);
}

std::optional<std::string> readRawString(const ActionData& data, std::string_view key) {
  const AnyCodable* value = lookup(data, key);
  if (!value || !value->asString()) return std::nullopt;
  return *value->asString();
}

std::string readIdentifier(const ActionData& data, Keys keys, std::string_view fallback) {
  auto text = readString(data, keys);
  return text ? toLowercase(*text) : std::string(fallback);
}

std::optional<std::int64_t> readInt(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto n = value->intValue()) return n;
  }
  return std::nullopt;
}

std::int64_t readIntOr(const ActionData& data, Keys keys, std::int64_t fallback) {
  return readInt(data, keys).value_or(fallback);
}

namespace {

std::optional<double> parseDecimal(std::string_view text) {
  std::string normalized(trimWhitespaceAndNewlines(text));
  for (char& c : normalized)
    if (c == ',') c = '.';
  std::string_view digits = normalized;
  // from_chars rejects a leading plus, which a person may well type.
  if (!digits.empty() && digits.front() == '+') {
    digits.remove_prefix(1);
    if (!digits.empty() && digits.front() == '-') return std::nullopt;
  }
  if (digits.empty()) return std::nullopt;
  double value = 0;
  auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (ec != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<double> toDouble(const AnyCodable& value) {
  std::optional<double> result;
  if (const auto* s = value.asString()) result = parseDecimal(*s);
  else if (const auto* i = value.asInt()) result = static_cast<double>(*i);
  else if (const auto* d = value.asDouble()) result = *d;
  else if (const auto* b = value.asBool()) result = *b ? 1.0 : 0.0;
  if (result && !std::isfinite(*result)) return std::nullopt;
  return result;
}

std::optional<double> readDouble(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto d = toDouble(*value)) return d;
  }
  return std::nullopt;
}

double readDoubleOr(const ActionData& data, Keys keys, double fallback) {
  return readDouble(data, keys).value_or(fallback);
}

std::optional<bool> toSwitch(const AnyCodable& value) {
  if (const auto* b = value.asBool()) return *b;
  if (const auto* i = value.asInt()) return *i != 0;
  return std::nullopt;
}

std::optional<bool> readSwitch(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto on = toSwitch(*value)) return on;
  }
  return std::nullopt;
}

bool readSwitchOr(const ActionData& data, Keys keys, bool fallback) {
  return readSwitch(data, keys).value_or(fallback);
}

const AnyArray* readList(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (value && value->asArray()) return value->asArray();
  }
  return nullptr;
}

std::string expandTilde(std::string_view path, const HomeLookup& homeOf) {
  if (path.empty() || path.front() != '~') return std::string(path);
  const size_t slash = path.find('/');
  const std::string_view user = path.substr(1, slash == std::string_view::npos ? path.npos : slash - 1);
  std::optional<std::string> home = homeOf ? homeOf(user) : std::nullopt;
  if (!home || home->empty()) return std::string(path);
  std::string expanded = std::move(*home);
  if (slash == std::string_view::npos) return expanded;
  // "~/x" with a home of "/" must not become "//x".
  if (expanded.size() > 1 && expanded.back() == '/') expanded.pop_back();
  if (expanded == "/") expanded.clear();
  expanded += path.substr(slash);
  return expanded;
}

std::int64_t resolveCommandNumber(const ActionData& data, std::span<const CommandName> names) {
  if (!names.empty()) {
    if (auto sub = readRawString(data, "subAction")) {
      for (const CommandName& entry : names)
        if (entry.name == *sub) return entry.number;
    }
  }
  for (std::string_view key : {"actionType", "Action"}) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto n = value->intValue()) return static_cast<std::uint64_t>(*n) > 1 ? *n : 1;
  }
  return 1;
}

std::string unknownCommandMessage(std::string_view family) {
  std::string message = "Unknown ";
  message += family;
  message += ". Choose one from the menu.";
  return message;
}

}  // namespace orla
