// Cutting long texts for display by characters as the user sees them
// (grapheme clusters: "é" written as e plus a combining accent, or a flag,
// is one character), never inside one.
#pragma once

#include <cstddef>
#include <string_view>

namespace orla {

struct CharacterPrefix {
  std::string_view text;  // a prefix of the input
  bool cut = false;       // whether characters were left out
};

// The first `count` characters of the UTF-8 `text`.
CharacterPrefix leadingCharacters(std::string_view text, std::size_t count);

}  // namespace orla
