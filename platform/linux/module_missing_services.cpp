#include "platform/linux/module_missing_services.h"

#include <signal.h>

#include <filesystem>

namespace orla::linux_desktop {

namespace {

// What needs no module still works: the processes, ending them, whether a
// file is there; nothing is in front, nothing opens.
class MissingWorkspace : public Workspace {
 public:
  explicit MissingWorkspace(std::string problem) : problem_(std::move(problem)) {}
  std::vector<RunningApplication> runningApplications() const override { return {}; }
  std::optional<RunningApplication> frontmostApplication() const override { return std::nullopt; }
  bool activate(ProcessId, unsigned) override { return false; }
  bool yieldActivation(ProcessId) override { return false; }
  bool hide(ProcessId) override { return false; }
  bool unhide(ProcessId) override { return false; }
  Checked<void> setHiddenThroughAccessibility(ProcessId, bool) override { return fail(problem_); }
  Checked<void> setHiddenThroughProcessManager(ProcessId, bool) override { return fail(problem_); }
  Checked<void> sendQuitEvent(ProcessId, std::chrono::milliseconds) override { return fail(problem_); }
  bool terminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGTERM) == 0; }
  bool forceTerminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGKILL) == 0; }
  Checked<void> openApplication(std::string_view, const OpenConfiguration&) override { return fail(problem_); }
  Checked<void> openApplicationWithBundleIdentifier(std::string_view, const OpenConfiguration&) override {
    return fail(problem_);
  }
  std::optional<std::string> applicationPath(std::string_view) const override { return std::nullopt; }
  Checked<void> openURL(std::string_view) override { return fail(problem_); }
  bool itemExists(std::string_view path) const override {
    std::error_code ec;
    return !path.empty() && std::filesystem::exists(std::filesystem::path(path), ec);
  }
  ObserverToken addActivationObserver(ActivationObserver) override { return 0; }
  void removeActivationObserver(ObserverToken) override {}

 private:
  std::string problem_;
};

class MissingFiles : public Files {
 public:
  explicit MissingFiles(std::string problem) : problem_(std::move(problem)) {}
  bool itemExists(std::string_view path) const override {
    std::error_code ec;
    return !path.empty() && std::filesystem::exists(std::filesystem::path(path), ec);
  }
  bool folderExists(std::string_view path) const override {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_directory(std::filesystem::path(path), ec);
  }
  Checked<FolderListing> listFolder(std::string_view) const override { return fail(problem_); }

 private:
  std::string problem_;
};

class MissingFileWorkspace : public FileWorkspace {
 public:
  explicit MissingFileWorkspace(std::string problem) : problem_(std::move(problem)) {}
  std::optional<std::string> applicationForURL(std::string_view) const override { return std::nullopt; }
  Checked<void> openDocument(std::string_view) override { return fail(problem_); }
  void openURLs(std::vector<std::string>, std::string, const OpenConfiguration&,
                OpenCompletion completion) override {
    if (completion) completion(problem_);
  }
  std::optional<std::string> bundleIdentifier(std::string_view) const override { return std::nullopt; }
  bool isPackage(std::string_view) const override { return false; }
  std::string displayName(std::string_view path) const override {
    return std::filesystem::path(path).filename().string();
  }
  Checked<void> reveal(std::string_view) override { return fail(problem_); }
  Checked<std::vector<std::string>> selectedItemURLs(std::string_view) const override { return fail(problem_); }

 private:
  std::string problem_;
};

class MissingFileManager : public FileManager {
 public:
  explicit MissingFileManager(std::string problem) : problem_(std::move(problem)) {}
  Checked<void> moveToTrash(std::string_view) override { return fail(problem_); }
  Checked<FileAttributes> attributes(std::string_view) const override { return fail(problem_); }
  std::string formatByteCount(std::uint64_t bytes) const override { return std::to_string(bytes) + " bytes"; }
  std::string formatDate(TimePoint) const override { return {}; }
  std::vector<RecentDocument> recentDocuments() const override { return {}; }

 private:
  std::string problem_;
};

}  // namespace

std::unique_ptr<Workspace> makeModuleMissingWorkspace(std::string problem) {
  return std::make_unique<MissingWorkspace>(std::move(problem));
}
std::unique_ptr<Files> makeModuleMissingFiles(std::string problem) {
  return std::make_unique<MissingFiles>(std::move(problem));
}
std::unique_ptr<FileWorkspace> makeModuleMissingFileWorkspace(std::string problem) {
  return std::make_unique<MissingFileWorkspace>(std::move(problem));
}
std::unique_ptr<FileManager> makeModuleMissingFileManager(std::string problem) {
  return std::make_unique<MissingFileManager>(std::move(problem));
}

}  // namespace orla::linux_desktop
