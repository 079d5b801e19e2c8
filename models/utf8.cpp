#include "models/utf8.h"

#include <cstdint>
#include <cstring>

namespace orla {

bool isValidUtf8(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    // Eight ASCII bytes at a time: most text is mostly ASCII.
    if (i + 8 <= n) {
      std::uint64_t word;
      std::memcpy(&word, s + i, 8);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    const unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the second byte's range
    if (c >= 0xC2 && c <= 0xDF) length = 2;
    else if (c == 0xE0) length = 3, low = 0xA0;
    else if (c == 0xED) length = 3, high = 0x9F;  // no surrogates
    else if (c >= 0xE1 && c <= 0xEF) length = 3;
    else if (c == 0xF0) length = 4, low = 0x90;
    else if (c >= 0xF1 && c <= 0xF3) length = 4;
    else if (c == 0xF4) length = 4, high = 0x8F;  // nothing above U+10FFFF
    else return false;
    if (i + length > n || s[i + 1] < low || s[i + 1] > high) return false;
    for (size_t k = 2; k < length; ++k)
      if ((s[i + k] & 0xC0) != 0x80) return false;
    i += length;
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
