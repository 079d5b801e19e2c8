#include "plugins/scripts/script_files.h"

#include <errno.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {

std::optional<std::string> scriptFileProblem(const std::string& path, std::string_view folderAdvice) {
  if (path.empty()) return "Choose a script file with Browse…";
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) return "The script file " + orla::quoted(path) + " can't be found. Choose it again with Browse…";
  if (std::filesystem::is_directory(status)) {
    std::string sentence = "The script file " + orla::quoted(path) + " is a folder, not a script file. ";
    sentence += folderAdvice;
    return sentence;
  }
  return std::nullopt;
}

Checked<std::string> readUtf8File(const std::string& path) {
  const std::string name = "“" + std::filesystem::path(path).filename().string() + "”";
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR)
      return fail("The file " + name + " couldn’t be opened because there is no such file.");
    if (errno == EACCES || errno == EPERM)
      return fail("The file " + name + " couldn’t be opened because you don’t have permission to view it.");
    return fail("The file " + name + " couldn’t be opened.");
  }
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) return fail("The file " + name + " couldn’t be opened.");
  if (!isValidUtf8(text)) return fail("The file " + name + " couldn’t be opened using text encoding Unicode (UTF-8).");
  return text;
}

}  // namespace orla
