// Base64 (RFC 4648, standard alphabet, padded).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "models/any_codable.h"

namespace orla {

std::string base64Encode(const Bytes& bytes);

// Strict decoding: white space is skipped, anything else outside the alphabet
// or a malformed padding makes the text invalid. With `ignoreInvalid`, every
// character outside the alphabet is skipped instead, as forgiving decoders do.
std::optional<Bytes> base64Decode(std::string_view text, bool ignoreInvalid = false);

}  // namespace orla
