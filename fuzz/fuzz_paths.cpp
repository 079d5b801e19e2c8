// The menu-path and tile-position parsers: every level of a split path is
// trimmed and not empty, matching never crashes, and a parsed position
// names itself again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_input.h"
#include <orla/models/window_tiling.h>
#include "plugins/input/menu_path.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = orla::fuzz::split(data, size, 3);
  for (const std::string& level : orla::splitPathText(parts[0])) {
    if (level.empty()) std::abort();
    if (level.front() == ' ' || level.back() == ' ') std::abort();
  }
  for (int s = 2; s <= 5; ++s) {
    const auto selection = static_cast<orla::Selection>(s);
    const bool single = orla::titleMatches(parts[1], parts[2], selection);
    if (orla::NameMatcher(parts[2], selection).matches(parts[1]) != single) std::abort();
  }
  (void)orla::WindowTilePosition::parse(parts[0]);
  return 0;
}
