// Script files as the shell-command and AppleScript plugins take them: the
// checks of the chosen path, and reading the file as UTF-8 text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla {

// None when `path` (already expanded) names a file; otherwise the sentence
// for an empty path, a path with nothing there, or a folder, whose advice
// after "is a folder, not a script file." each plugin words itself.
std::optional<std::string> scriptFileProblem(const std::string& path, std::string_view folderAdvice);

// The file's text, which must be well-formed UTF-8; otherwise the sentence
// saying why it could not be read ("The file “run.sh” couldn’t be opened
// because there is no such file.").
Checked<std::string> readUtf8File(const std::string& path);

}  // namespace orla
