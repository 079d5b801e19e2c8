// Reading the Finder's selection, shared by the plugins that act on it: the
// script's answer taken apart into one path per line.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/platform.h>

namespace orla {

// Runs the selection script on the main thread.
ScriptRun readFinderSelection(Platform& platform);

// The non-empty lines of a script's text answer, each trimmed.
std::vector<std::string> answerLines(std::string_view text);

// Whether a script's error text, lowercased, holds one of `needles` (each
// compared as written).
bool errorMentions(std::string_view error, std::initializer_list<std::string_view> needles);

}  // namespace orla
