// What the command line reads whole: parameters from a file or standard
// input, shortcut and state files, and the text of a {"$file": PATH}
// parameter value. Each is read with read(2) into one buffer, sized from the
// file where it has a size, and bounded, so that `@/dev/zero` ends in a
// sentence rather than in the memory running out.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla::cli {

// The whole of a file, up to the input limit.
Checked<std::string> readTextFile(const std::filesystem::path& path);
// The whole of standard input, up to the input limit.
Checked<std::string> readStandardInput();
// The text of a {"$file": PATH} value for the parameter `key`: any size up
// to the largest text a step may make, and UTF-8. The sentences name the
// path and the parameter, never the other parameters.
Checked<std::string> readParameterFile(const std::string& path, const std::string& key);

}  // namespace orla::cli
