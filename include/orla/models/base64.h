// Base64 (RFC 4648, standard alphabet, padded), fast enough for a clipboard
// holding tens of megabytes: AVX2 where the processor has it, a table-driven
// loop elsewhere, both giving the same bytes.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>

namespace orla ORLA_EXPORT {

std::string base64Encode(std::string_view bytes);
std::string base64Encode(const Bytes& bytes);

// Decoding. Padding may be left out, but nothing may follow it. Strict by
// default: white space is skipped, anything else outside the alphabet makes
// the text invalid. With `ignoreInvalid`, every character outside the
// alphabet is skipped instead, as forgiving decoders do.
std::optional<std::string> base64DecodeToString(std::string_view text, bool ignoreInvalid = false);
std::optional<Bytes> base64Decode(std::string_view text, bool ignoreInvalid = false);

}  // namespace orla
