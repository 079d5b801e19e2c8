#include "plugins/apps/file_operation_plugin.h"

#include <filesystem>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/apps/file_transfer.h"
#include "plugins/apps/zip_archive.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

using Operation = FileOperationPlugin::Operation;

struct OperationName {
  std::string_view name;
  Operation operation;
};

// Compared lowercased.
constexpr OperationName kNames[] = {
    {"copy", Operation::copy},
    {"move", Operation::move},
    {"rename", Operation::rename},
    {"delete", Operation::remove},
    {"trash", Operation::remove},
    {"createdirectory", Operation::createDirectory},
    {"mkdir", Operation::createDirectory},
    {"directory", Operation::createDirectory},
    {"compress", Operation::compress},
    {"zip", Operation::compress},
    {"decompress", Operation::decompress},
    {"unzip", Operation::decompress},
    {"symlink", Operation::symlink},
    {"symlinkcreate", Operation::symlink},
    {"createsymlink", Operation::symlink},
    {"info", Operation::info},
    {"fileinfo", Operation::info},
};

std::string lastComponent(std::string_view path) {
  fs::path p = fs::path(path).lexically_normal();
  if (!p.has_filename()) p = p.parent_path();
  const std::string name = p.filename().string();
  return name.empty() ? std::string(path) : name;
}

std::string notFound(std::string_view word, std::string_view path) {
  std::string text(word);
  text += " failed: “";
  text += path;
  text += "” was not found.";
  return text;
}

std::string failedWith(std::string_view prefix, std::string_view error) {
  std::string text(prefix);
  text += error;
  return text;
}

bool endsWithSlash(std::string_view path) { return !path.empty() && path.back() == '/'; }

bool isFolder(const std::string& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

bool isLink(const std::string& path) {
  std::error_code ec;
  return fs::is_symlink(path, ec);
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

FileOperationPlugin::FileOperationPlugin() : FileOperationPlugin(Platform::current()) {}
FileOperationPlugin::FileOperationPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

Operation FileOperationPlugin::operation(const ActionData& data) {
  if (auto text = readString(data, {"subAction", "operation"})) {
    const std::string name = toLowercase(*text);
    for (const OperationName& entry : kNames)
      if (entry.name == name) return entry.operation;
  }
  if (auto code = readInt(data, {"actionType", "Action"}); code && *code >= 0 && *code < 9)
    return operations[static_cast<std::size_t>(*code)];
  // Copy by design: the most harmless reading of a damaged action.
  return Operation::copy;
}

std::string_view FileOperationPlugin::subAction(Operation operation) {
  switch (operation) {
    case Operation::copy: return "copy";
    case Operation::move: return "move";
    case Operation::rename: return "rename";
    case Operation::remove: return "delete";
    case Operation::createDirectory: return "createDirectory";
    case Operation::compress: return "compress";
    case Operation::decompress: return "decompress";
    case Operation::symlink: return "symlink";
    case Operation::info: return "info";
  }
  return "copy";
}

std::string_view FileOperationPlugin::operationWord(Operation operation) {
  switch (operation) {
    case Operation::copy: return "Copy";
    case Operation::move: return "Move";
    case Operation::rename: return "Rename";
    case Operation::remove: return "Delete";
    case Operation::createDirectory: return "Create Directory";
    case Operation::compress: return "Compress";
    case Operation::decompress: return "Decompress";
    case Operation::symlink: return "Symlink";
    case Operation::info: return "Info";
  }
  return "Copy";
}

std::string FileOperationPlugin::source(const ActionData& data) {
  return readStringOr(data, {"source", "sourcePath", "Source"});
}

std::string FileOperationPlugin::destination(const ActionData& data) {
  return readStringOr(data, {"destination", "destPath", "dest", "Destination"});
}

std::string FileOperationPlugin::newName(const ActionData& data) { return readStringOr(data, {"newName", "name", "Name"}); }

std::string FileOperationPlugin::folderPath(const ActionData& data) {
  if (auto path = readString(data, {"destination", "destPath", "dest", "Destination"})) return *path;
  if (auto path = readString(data, {"path", "folderPath"})) return *path;
  return source(data);
}

std::string FileOperationPlugin::expandPath(std::string_view path) const {
  return platform_->environment().expandTilde(path);
}

std::optional<std::string> FileOperationPlugin::validate(const ActionData& data) const {
  const Operation op = operation(data);
  const std::string src = source(data);
  const std::string word(operationWord(op));
  switch (op) {
    case Operation::copy:
    case Operation::move:
      if (src.empty() || destination(data).empty()) return word + " needs a source and a destination.";
      break;
    case Operation::rename: {
      if (src.empty()) return "Rename needs a source path.";
      const std::string name = newName(data);
      if (name.empty()) return "Rename needs a new name.";
      if (name.find('/') != std::string::npos)
        return "New name cannot contain a slash. Use Move to put the file in another folder.";
      break;
    }
    case Operation::remove:
      if (src.empty()) return "Delete needs a source path.";
      break;
    case Operation::createDirectory:
      if (folderPath(data).empty()) return "Create Directory needs a folder path.";
      return std::nullopt;
    case Operation::compress:
      if (src.empty()) return "Compress needs a source path.";
      break;
    case Operation::decompress:
      if (src.empty()) return "Decompress needs a zip file path.";
      break;
    case Operation::symlink:
      if (src.empty() || destination(data).empty()) return "Create Symlink needs the original path and the link path.";
      break;
    case Operation::info:
      if (src.empty()) return "Get File Info needs a source path.";
      if (!platform_->files().itemExists(expandPath(src)))
        return "Failed to get file info: “" + expandPath(src) + "” was not found.";
      return std::nullopt;
  }
  const std::string path = expandPath(src);
  if (!platform_->files().itemExists(path)) return notFound(word, path);
  return std::nullopt;
}

PluginResult FileOperationPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  const Operation op = operation(data);
  // The system would read a path only up to a NUL, and so act on another
  // item than the one named (the source is checked by its existence above).
  for (const std::string& text : {destination(data), newName(data), folderPath(data)})
    if (text.find('\0') != std::string::npos)
      return PluginResult::failure(std::string(operationWord(op)) +
                                   " failed: a path holds a NUL character, which cannot be passed on.");
  const std::string src = expandPath(source(data));
  switch (op) {
    case Operation::copy:
    case Operation::move: return transfer(op, src, expandPath(destination(data)));
    case Operation::rename: return rename(src, newName(data));
    case Operation::remove: return moveToTrash(src);
    case Operation::createDirectory: return createDirectory(expandPath(folderPath(data)));
    case Operation::compress: return compress(src, expandPath(destination(data)));
    case Operation::decompress: return decompress(src, expandPath(destination(data)));
    case Operation::symlink: return symlink(src, expandPath(destination(data)));
    case Operation::info: return info(src);
  }
  return PluginResult::failure("Unknown file operation: " + std::to_string(static_cast<int>(op)));
}

PluginResult FileOperationPlugin::transfer(Operation op, const std::string& source, const std::string& destination) {
  const std::string word(operationWord(op));
  // Into a folder the item keeps its name; anywhere else the destination is
  // its new path.
  std::string target = withoutTrailingSlashes(destination);
  if (endsWithSlash(destination) || isFolder(destination)) target = (fs::path(target) / lastComponent(source)).string();
  if (samePlace(source, target)) return PluginResult::failure(word + " failed: source and destination are the same.");
  // A folder copied or moved into itself would never end.
  if (isFolder(source) && !isLink(source) && isInside(target, source))
    return PluginResult::failure(word + " failed: a folder cannot be put inside itself.");
  const auto done = op == Operation::copy ? copyReplacing(source, target) : moveReplacing(source, target);
  if (!done) return PluginResult::failure(failedWith(word + " failed: ", done.error()));
  return PluginResult::success((op == Operation::copy ? "Copied " : "Moved ") + source + " to " + target);
}

PluginResult FileOperationPlugin::rename(const std::string& source, const std::string& name) {
  // "." and ".." are not names: they would put the item over its own folder.
  if (name == "." || name == "..")
    return PluginResult::failure("Rename failed: “" + name + "” cannot be the name of a file.");
  const fs::path item = fs::path(withoutTrailingSlashes(source));
  const std::string renamed = (item.parent_path() / name).string();
  if (samePlace(item.string(), renamed)) return PluginResult::success("Renamed to " + name);
  if (auto moved = moveReplacing(item.string(), renamed); !moved)
    return PluginResult::failure(failedWith("Rename failed: ", moved.error()));
  return PluginResult::success("Renamed to " + name);
}

PluginResult FileOperationPlugin::moveToTrash(const std::string& source) {
  if (!platform_->supports(Capability::trash))
    return PluginResult::failure("Delete failed: the Trash is not available on this desktop in this build of Orla.");
  if (auto trashed = platform_->fileManager().moveToTrash(source); !trashed)
    return PluginResult::failure(failedWith("Delete failed: ", trashed.error()));
  return PluginResult::success("Moved “" + lastComponent(source) + "” to the Trash.");
}

PluginResult FileOperationPlugin::createDirectory(const std::string& folder) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec || !isFolder(folder)) {
    if (!ec) ec = std::make_error_code(std::errc::file_exists);
    return PluginResult::failure("Create directory failed: " + fileErrorText(ec, folder));
  }
  return PluginResult::success("Created the folder " + folder);
}

PluginResult FileOperationPlugin::compress(const std::string& source, const std::string& destination) {
  const std::string archive =
      archivePathFor(source, destination, !destination.empty() && (endsWithSlash(destination) || isFolder(destination)));
  if (samePlace(source, archive)) return PluginResult::failure("Compression failed: source and archive are the same.");
  if (auto done = orla::compress(platform_->processes(), source, archive); !done)
    return PluginResult::failure(failedWith("Compression failed: ", done.error()));
  return PluginResult::success("Compressed to " + archive);
}

PluginResult FileOperationPlugin::decompress(const std::string& archive, const std::string& destination) {
  const std::string target =
      destination.empty() ? fs::path(withoutTrailingSlashes(archive)).parent_path().string() : destination;
  auto problem = orla::decompress(platform_->processes(), archive, target);
  if (!problem) return PluginResult::success("Decompressed into " + target);
  using Kind = DecompressionProblem::Kind;
  switch (problem->kind) {
    case Kind::unreadable:
      return PluginResult::failure(failedWith("Decompression failed: could not read archive. ", problem->detail));
    case Kind::blocked:
      return PluginResult::failure("Decompression blocked: unsafe path in archive (" + problem->detail + ")");
    case Kind::folder: return PluginResult::failure(failedWith("Decompress failed: ", problem->detail));
    case Kind::extraction: return PluginResult::failure(failedWith("Decompression failed: ", problem->detail));
  }
  return PluginResult::failure("Decompression failed.");
}

PluginResult FileOperationPlugin::symlink(const std::string& original, const std::string& link) {
  // Replacing the original by a link to itself would lose it.
  if (samePlace(original, link)) return PluginResult::failure("Symlink failed: source and destination are the same.");
  if (auto made = symlinkReplacing(original, link); !made)
    return PluginResult::failure(failedWith("Symlink failed: ", made.error()));
  return PluginResult::success("Created a symlink at " + link);
}

PluginResult FileOperationPlugin::info(const std::string& path) {
  FileManager& files = platform_->fileManager();
  auto attributes = files.attributes(path);
  if (!attributes) return PluginResult::failure(failedWith("Failed to get file info: ", attributes.error()));
  std::string report = path;
  report += "\nSize: ";
  report += files.formatByteCount(attributes->size);
  report += "\nModified: ";
  report += attributes->modificationDate ? files.formatDate(*attributes->modificationDate) : std::string("unknown");
  // The report goes on the clipboard too; a desktop without one still gets
  // the report.
  (void)platform_->pasteboard().setText(report);
  return PluginResult::success(std::move(report));
}

}  // namespace orla
