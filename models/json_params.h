// The two readers behind actionDataFromJsonText, apart, so that tests and
// the fuzz target can hold them to one another.
#pragma once

#include <optional>
#include <string_view>

#include <orla/models/json_codable.h>

namespace orla::json_params {

// Reads with simdjson, which parses at gigabytes a second but tells little
// of where a text stops being JSON: nothing when it does not take the text
// whole (then `readStepwise` says why).
std::optional<Checked<ActionData>> readWhole(std::string_view text, const JsonFileReader* readFile,
                                             std::size_t bufferSize);

// Reads with nlohmann-json's event parser, a character at a time; its
// sentences say where a text stops being JSON.
Checked<ActionData> readStepwise(std::string_view text, const JsonFileReader* readFile);

}  // namespace orla::json_params
