#include "plugins/apps/finder_selection.h"

#include <orla/models/text.h>
#include <orla/platform/finder_scripts.h>

namespace orla {

ScriptRun readFinderSelection(Platform& platform) {
  return runScript(platform.scripting(), platform.mainThread(), kFinderSelectionScript);
}

std::vector<std::string> answerLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const auto end = text.find_first_of("\r\n");
    std::string_view line = trimWhitespaceAndNewlines(text.substr(0, end));
    if (!line.empty()) lines.emplace_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

bool errorMentions(std::string_view error, std::initializer_list<std::string_view> needles) {
  const std::string lower = toLowercase(error);
  for (std::string_view needle : needles)
    if (lower.find(needle) != std::string::npos) return true;
  return false;
}

}  // namespace orla
