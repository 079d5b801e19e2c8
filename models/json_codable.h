// AnyCodable to and from JSON, as the host reads actions and writes results:
// string, integral number (int), other number (double), true/false, null,
// array, object (dictionary), and {"$data": "<base64>"} for bytes.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "models/any_codable.h"
#include "models/checked.h"

namespace orla {

Checked<AnyCodable> anyFromJson(const nlohmann::json& json);
nlohmann::json anyToJson(const AnyCodable& value);

// Parses a JSON text that must be an object into ActionData; the failure
// sentence says what was wrong ("PARAMS must be a JSON object.", ...).
Checked<ActionData> actionDataFromJsonText(std::string_view text);

// Parses a JSON text; the failure completes "… is not valid JSON ": where
// it stops being JSON, as "at line L, column C" (columns count characters,
// from 1), or "with a number too large to hold".
Checked<nlohmann::json> parseJsonText(std::string_view text);

}  // namespace orla
