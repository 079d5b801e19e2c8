// Zip archives for the file operations: compressing with "/usr/bin/zip",
// and decompressing with "/usr/bin/unzip" behind a guard that reads the
// whole archive's list first and refuses it, before anything is extracted,
// when one entry would land outside the target folder.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>
#include <orla/platform/platform.h>
#include "plugins/apps/tool_run.h"

namespace orla {

inline constexpr std::string_view kZipTool = "/usr/bin/zip";
inline constexpr std::string_view kUnzipTool = "/usr/bin/unzip";
// The longest link target read from an archive or the disk; a longer one
// counts as pointing outside.
inline constexpr std::size_t kLinkTargetLimit = 4096;

// One entry of an archive's list; a symbolic link carries its target.
struct ArchiveEntry {
  std::string name;
  std::optional<std::string> linkTarget;
};

// The symbolic link already on disk at a path inside the target folder
// (relative to it, "/"-separated): its target, or none when the item there
// is not a link (or there is nothing).
using DiskLinkLookup = std::function<std::optional<std::string>(const std::string& relativePath)>;

// The first entry that would reach outside `root` (the target folder,
// standardized and with its own links resolved): an absolute name, a name
// whose ".." steps climb out, a link whose target points out, or a path that
// runs through a link (of the archive or already on disk) to outside. An
// entry that lands on the folder itself counts as outside too. A link on
// disk at an entry's own place is not walked through: extraction replaces it. Links are
// followed to a depth of 40, as the system does; deeper counts as outside.
std::optional<std::string> firstUnsafeEntry(const std::vector<ArchiveEntry>& entries, const std::filesystem::path& root,
                                            const DiskLinkLookup& diskLink);

// The archive's entries as its central directory lists them (read with a
// zip library, never from a tool's text), each link with its target.
Checked<std::vector<ArchiveEntry>> readArchiveEntries(const std::string& archivePath);

// The first entry whose name, read as a place below the folder, repeats an
// earlier one: unzip would write both there, so a listing could not tell
// what lands (a link's target read by name would be both contents).
std::optional<std::string> firstDuplicateEntry(const std::vector<ArchiveEntry>& entries);

// The archive a compression writes: into a destination folder (one that
// ends with "/" or exists) as the source's name plus ".zip"; to another
// destination as given, with ".zip" added unless it ends so (any case);
// without a destination beside the source.
std::string archivePathFor(std::string_view source, std::string_view destination, bool destinationIsFolder);

// Compresses `source` into `archive`: the tool writes to a fresh name beside
// the archive, which then takes the archive's place, so an archive already
// there is replaced only by a whole new one. Answers the tool's error text.
Checked<void> compress(Processes& processes, const std::string& source, const std::string& archive);

// Why a decompression stopped.
struct DecompressionProblem {
  enum class Kind { unreadable, blocked, folder, extraction };
  Kind kind;
  std::string detail;  // the tool's output, the unsafe entry, or the error text
};

// Reads `archive`'s list, checks every entry, creates `target` (with the
// folders above it) and extracts: into a fresh private folder first, whose
// items are checked again as they lie on disk (never following a link) and
// then renamed into place, replacing what is there item by item. Nothing
// is created when the list cannot be read or an entry is unsafe, and
// nothing the target held is touched when the extraction fails (a full
// disk, a damaged entry).
std::optional<DecompressionProblem> decompress(Processes& processes, const std::string& archive,
                                               const std::string& target);

}  // namespace orla
