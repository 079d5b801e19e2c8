#include <orla/models/input_limits.h>

namespace orla {

std::optional<std::string> jsonNestingProblem(std::string_view text, std::string_view what) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') ++i;
      else if (c == '"') inString = false;
      continue;
    }
    if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kJsonDepthLimit)
        return std::string(what) + " nests deeper than " + std::to_string(kJsonDepthLimit) + " levels.";
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return std::nullopt;
}

std::optional<std::string> nulProblem(std::string_view text, std::string_view what) {
  if (text.find('\0') == std::string_view::npos) return std::nullopt;
  return std::string(what) + " holds a NUL character, which cannot be passed on.";
}

}  // namespace orla
