// Byte-level UTF-8 checks for text that arrives from outside (network
// answers, keychain items) before it is treated as a string.
#pragma once

#include <orla/export.h>

#include <string_view>

namespace orla ORLA_EXPORT {

// Whether the bytes are well-formed UTF-8 (no surrogates, no overlong forms,
// nothing above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// `bytes` without a last character that was cut off in the middle of its
// encoding, as happens when a stream is read only up to a byte limit.
std::string_view withoutPartialLastCharacter(std::string_view bytes);

}  // namespace orla
