// Reading a file as text, whatever its extension: rich text (RTF, and the
// RTFD folder form) as its plain string, otherwise the bytes decoded as UTF-8,
// then Mac OS Roman, then Windows-1252, then ISO Latin-1.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>

namespace orla {

// The plain text of an RTF document; none when `rtf` is not RTF.
std::optional<std::string> plainTextFromRtf(std::string_view rtf);

// The first non-empty decoding of `bytes` in the order above, as UTF-8.
std::optional<std::string> decodeText(const Bytes& bytes);

// The text of the file or RTFD folder at `path`; none when it cannot be read
// or holds no text.
std::optional<std::string> readTextFromFile(const std::string& path);

}  // namespace orla
