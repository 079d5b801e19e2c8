#include "models/json_codable.h"

#include <algorithm>
#include <limits>
#include <string>
#include <nlohmann/json.hpp>

#include "models/base64.h"
#include "models/input_limits.h"

namespace orla {

namespace {

// `key` names the parameter the value belongs to, for the sentences.
Checked<AnyCodable> anyFromJsonAt(const nlohmann::json& json, std::size_t depth, const std::string& key) {
  if (depth > kJsonDepthLimit)
    return fail("The JSON nests deeper than " + std::to_string(kJsonDepthLimit) + " levels.");
  using Type = nlohmann::json::value_t;
  switch (json.type()) {
    case Type::string: {
      // The system cuts a text at its NUL, so a command, a path or a
      // condition would be acted on as a shorter one than was written
      // ("echo a\0; rm …" would run "echo a").
      const auto& text = json.get_ref<const std::string&>();
      if (text.find('\0') != std::string::npos)
        return fail((key.empty() ? std::string("A text") : "The parameter “" + key + "”") +
                    " holds a NUL character, which cannot be passed on.");
      return AnyCodable(text);
    }
    case Type::boolean: return AnyCodable(json.get<bool>());
    case Type::number_integer: return AnyCodable(json.get<std::int64_t>());
    case Type::number_unsigned: {
      const auto u = json.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return AnyCodable(static_cast<std::int64_t>(u));
      return AnyCodable(static_cast<double>(u));
    }
    case Type::number_float: return AnyCodable(json.get<double>());
    case Type::null: return AnyCodable(Null{});
    case Type::array: {
      AnyArray items;
      items.reserve(json.size());
      for (const auto& element : json) {
        auto item = anyFromJsonAt(element, depth + 1, key);
        if (!item) return item;
        items.push_back(std::move(item).value());
      }
      return AnyCodable(std::move(items));
    }
    case Type::object: {
      if (json.size() == 1 && json.contains("$data")) {
        const auto& encoded = json["$data"];
        if (!encoded.is_string()) return fail("A “$data” value must be a Base64 text.");
        auto bytes = base64Decode(encoded.get_ref<const std::string&>());
        if (!bytes) return fail("A “$data” value is not valid Base64.");
        return AnyCodable(std::move(*bytes));
      }
      AnyDictionary entries;
      for (const auto& [name, element] : json.items()) {
        if (name.find('\0') != std::string::npos)
          return fail("A parameter name holds a NUL character, which cannot be passed on.");
        auto item = anyFromJsonAt(element, depth + 1, name);
        if (!item) return item;
        entries.emplace(name, std::move(item).value());
      }
      return AnyCodable(std::move(entries));
    }
    case Type::binary:
    case Type::discarded: break;
  }
  return fail("That JSON value cannot be used as a parameter.");
}

}  // namespace

Checked<AnyCodable> anyFromJson(const nlohmann::json& json) { return anyFromJsonAt(json, 0, {}); }

nlohmann::json anyToJson(const AnyCodable& value) {
  using Kind = AnyCodable::Kind;
  switch (value.kind()) {
    case Kind::string: return *value.asString();
    case Kind::int_: return *value.asInt();
    case Kind::double_: return *value.asDouble();
    case Kind::bool_: return *value.asBool();
    case Kind::data: return nlohmann::json{{"$data", base64Encode(*value.asData())}};
    case Kind::array: {
      auto out = nlohmann::json::array();
      for (const auto& item : *value.asArray()) out.push_back(anyToJson(item));
      return out;
    }
    case Kind::dictionary: {
      auto out = nlohmann::json::object();
      for (const auto& [key, item] : *value.asDictionary()) out[key] = anyToJson(item);
      return out;
    }
    case Kind::null: return nullptr;
  }
  return nullptr;
}

namespace {

// The parser counts bytes from 1 up to the one it could not take; a person
// counts lines and the characters on a line.
std::string textPosition(std::string_view text, size_t byte) {
  const size_t end = std::min(byte > 0 ? byte - 1 : 0, text.size());
  size_t line = 1, column = 1;
  for (size_t i = 0; i < end; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++line;
      column = 1;
    } else if ((c & 0xC0) != 0x80) {  // not a UTF-8 continuation byte
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

Checked<nlohmann::json> parseJsonText(std::string_view text) {
  try {
    return nlohmann::json::parse(text.begin(), text.end());
  } catch (const nlohmann::json::parse_error& e) {
    return fail("at " + textPosition(text, e.byte));
  } catch (const nlohmann::json::exception&) {
    // Valid JSON all the same, but a number past what a double holds (1e400).
    return fail(std::string("with a number too large to hold"));
  }
}

Checked<ActionData> actionDataFromJsonText(std::string_view text) {
  if (auto deep = jsonNestingProblem(text, "PARAMS")) return fail(std::move(*deep));
  auto parsed = parseJsonText(text);
  if (!parsed) return fail("PARAMS is not valid JSON " + parsed.error() + ".");
  const nlohmann::json& json = *parsed;
  if (!json.is_object()) return fail("PARAMS must be a JSON object.");
  auto value = anyFromJson(json);
  if (!value) return fail(value.error());
  if (const auto* dict = value->asDictionary()) return *dict;
  // A lone {"$data": ...} object decodes to bytes, which is not a dictionary.
  return fail("PARAMS must be a JSON object of parameters.");
}

}  // namespace orla
