// Menu paths: how a stored action names a menu item level by level
// ("File > Export > PDF…", "3 > 2"), and how one level's name matches a
// menu item's title.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orla {

// How one level of a path picks its element; the raw values are stored.
enum class Selection : int {
  index = 0,         // 1-based position among the level's items
  indexReverse = 1,  // 1-based position counted from the end
  nameFull = 2,      // title equal to the name
  nameContains = 3,  // title contains the name
  namePrefix = 4,    // title starts with the name
  nameSuffix = 5,    // title ends with the name
};

// A stored selection; a value outside 0 to 5 is `fallback`.
Selection selectionFromRaw(std::int64_t raw, Selection fallback = Selection::index);
bool selectsByIndex(Selection selection);

struct PathStep {
  std::string name;  // trimmed
  std::int64_t index = 0;
  Selection selection = Selection::nameFull;

  // "#3" for an index, "#-3" for an index from the end, else the name.
  std::string label() const;
  friend bool operator==(const PathStep&, const PathStep&) = default;
};

// The labels of the levels joined with " > ".
std::string pathLabel(std::span<const PathStep> steps);

// Splits a path text into level texts: at line breaks when it has any, else
// at " > ", else at ">"; each piece trimmed, empty ones dropped. The order
// matters: a name that itself holds ">" survives only one level per line.
std::vector<std::string> splitPathText(std::string_view text);

// Whether a title matches a level name under a name selection: "..." counts
// as "…", spaces around are ignored, and case and diacritics do not matter.
bool titleMatches(std::string_view title, std::string_view name, Selection selection);

// The same for one name against many titles: the name is brought into the
// compared form once.
class NameMatcher {
 public:
  NameMatcher(std::string_view name, Selection selection);
  bool matches(std::string_view title) const;

 private:
  std::u16string name_;
  Selection selection_;
};

}  // namespace orla
