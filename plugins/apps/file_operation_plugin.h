// FileOperationPlugin ("FileOperationAction"): copies, moves, renames,
// moves to the Trash, creates folders, compresses to and decompresses from
// zip archives, makes symbolic links and reports file information, on the
// paths the action names.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class FileOperationPlugin : public PluginBase<FileOperationPlugin> {
 public:
  static constexpr std::string_view pluginClass = "FileOperationAction";

  // The codes are the integers "actionType" accepts.
  enum class Operation { copy, move, rename, remove, createDirectory, compress, decompress, symlink, info };
  static constexpr std::array<Operation, 9> operations{Operation::copy,           Operation::move,
                                                       Operation::rename,         Operation::remove,
                                                       Operation::createDirectory, Operation::compress,
                                                       Operation::decompress,     Operation::symlink,
                                                       Operation::info};

  FileOperationPlugin();
  explicit FileOperationPlugin(std::shared_ptr<Platform> platform);

  // A name in "subAction" (then "operation"), else a code 0 to 8 in
  // "actionType" (then "Action"); anything else, nothing included, is copy.
  static Operation operation(const ActionData& data);
  // The operation's name in text, as written back into "subAction".
  static std::string_view subAction(Operation operation);
  // "Copy", "Move", "Rename", "Delete", "Create Directory", "Compress",
  // "Decompress", "Symlink", "Info".
  static std::string_view operationWord(Operation operation);

  // Trimmed, "~" not yet expanded; empty when absent.
  static std::string source(const ActionData& data);
  static std::string destination(const ActionData& data);
  static std::string newName(const ActionData& data);
  // The folder create directory makes: the destination, the folder keys,
  // then the source.
  static std::string folderPath(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  std::string expandPath(std::string_view path) const;
  PluginResult transfer(Operation operation, const std::string& source, const std::string& destination);
  PluginResult rename(const std::string& source, const std::string& name);
  PluginResult moveToTrash(const std::string& source);
  PluginResult createDirectory(const std::string& folder);
  PluginResult compress(const std::string& source, const std::string& destination);
  PluginResult decompress(const std::string& archive, const std::string& destination);
  PluginResult symlink(const std::string& original, const std::string& link);
  PluginResult info(const std::string& path);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
