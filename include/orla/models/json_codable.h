// AnyCodable to and from JSON, as the host reads actions and writes results:
// string, integral number (int), other number (double), true/false, null,
// array, object (dictionary), and {"$data": "<base64>"} for bytes; on the
// command line also {"$file": PATH} for the text of a file.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <orla/export.h>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/any_codable.h>
#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

Checked<AnyCodable> anyFromJson(const nlohmann::json& json);
nlohmann::json anyToJson(const AnyCodable& value);

// Reads the text that a {"$file": PATH} value stands for; `key` names the
// parameter it is for, in the sentence of a failure.
using JsonFileReader = std::function<Checked<std::string>(const std::string& path, const std::string& key)>;

// The bytes past a text's end that the parser reads when they are there:
// see `bufferSize` below.
inline constexpr std::size_t kJsonReadPadding = 64;

// Parses a JSON text that must be an object into ActionData; the failure
// sentence says what was wrong ("PARAMS must be a JSON object.", ...). With
// `readFile`, a {"$file": PATH} value is the text of that file (the command
// line's way to hand over a large text without escaping it); without, it is
// an ordinary dictionary, so that JSON from elsewhere never reads files.
// `bufferSize`: how many bytes from text.data() may be read, when the text
// sits in a larger buffer (a std::string's capacity()); with
// kJsonReadPadding or more past its end, the text is parsed where it is,
// otherwise a copy is.
Checked<ActionData> actionDataFromJsonText(std::string_view text, const JsonFileReader* readFile = nullptr,
                                           std::size_t bufferSize = 0);

// The two readers behind actionDataFromJsonText, apart, so that tests and
// the fuzz target can hold them to one another.
namespace json_params {

// Reads with simdjson, which parses at gigabytes a second but tells little
// of where a text stops being JSON: nothing when it does not take the text
// whole (then `readStepwise` says why).
std::optional<Checked<ActionData>> readWhole(std::string_view text, const JsonFileReader* readFile,
                                             std::size_t bufferSize);

// Reads with nlohmann-json's event parser, a character at a time; its
// sentences say where a text stops being JSON.
Checked<ActionData> readStepwise(std::string_view text, const JsonFileReader* readFile);

}  // namespace json_params

// Parses a JSON text; the failure completes "… is not valid JSON ": where
// it stops being JSON, as "at line L, column C" (columns count characters,
// from 1), or "with a number too large to hold".
Checked<nlohmann::json> parseJsonText(std::string_view text);

}  // namespace orla
