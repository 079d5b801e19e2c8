#include "models/utf8.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace orla {

bool isValidUtf8(std::string_view bytes) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const auto length = static_cast<int64_t>(bytes.size());
  for (int64_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string_view withoutPartialLastCharacter(std::string_view bytes) {
  // Look back over at most three continuation bytes for the lead byte.
  std::size_t lead = bytes.size();
  for (std::size_t back = 1; back <= 4 && back <= bytes.size(); ++back) {
    const auto byte = static_cast<uint8_t>(bytes[bytes.size() - back]);
    if ((byte & 0xC0) != 0x80) {
      lead = bytes.size() - back;
      break;
    }
  }
  if (lead == bytes.size()) return bytes;
  const auto first = static_cast<uint8_t>(bytes[lead]);
  const std::size_t needed = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
  return bytes.size() - lead < needed ? bytes.substr(0, lead) : bytes;
}

}  // namespace orla
