// Shared pieces of the fuzz targets: splitting one input into several
// texts, so that a target taking two or three texts still takes one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orla::fuzz {

// The input cut at each "\x00\x01" pair, into at most `count` texts (the
// last takes the rest); missing texts are empty.
inline std::vector<std::string_view> split(const std::uint8_t* data, std::size_t size, std::size_t count) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> parts;
  while (parts.size() + 1 < count) {
    const auto at = rest.find(std::string_view("\x00\x01", 2));
    if (at == std::string_view::npos) break;
    parts.push_back(rest.substr(0, at));
    rest.remove_prefix(at + 2);
  }
  parts.push_back(rest);
  parts.resize(count);
  return parts;
}

}  // namespace orla::fuzz
