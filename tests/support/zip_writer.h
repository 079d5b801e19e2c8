// Writes small zip archives entry by entry, with any names and kinds the
// zip tool itself would refuse to make ("../x", absolute names, links that
// point anywhere), so that the tests can hand the decompression guard the
// archives an attacker would.
#pragma once

#include <string>
#include <vector>

namespace orla::testing {

struct ZipEntry {
  enum class Kind { file, folder, symlink };
  std::string name;
  std::string content;  // a link's target for a symbolic link
  Kind kind = Kind::file;
};

// Stored (uncompressed) entries, made on Unix with the usual modes.
void writeZip(const std::string& path, const std::vector<ZipEntry>& entries);

}  // namespace orla::testing
