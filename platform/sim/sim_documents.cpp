#include "platform/sim/sim_documents.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include <orla/models/file_formatting.h>
#include <orla/models/text.h>
#include <orla/models/url.h>
#include <orla/platform/finder_scripts.h>
#include "platform/posix/posix_services.h"
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kSafari = "/Applications/Safari.app";
constexpr std::string_view kPreview = "/System/Applications/Preview.app";
constexpr std::string_view kTextEdit = "/System/Applications/TextEdit.app";

std::string lowercaseASCII(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string fileName(std::string_view path) {
  const std::string standard = standardizedPath(path);
  const std::string name = fs::path(standard).filename().string();
  return name.empty() ? standard : name;
}

// The extension of a path's last component, lowercased, without the dot.
std::string extensionOf(std::string_view path) {
  std::string ext = fs::path(standardizedPath(path)).extension().string();
  if (!ext.empty()) ext.erase(0, 1);
  return lowercaseASCII(ext);
}

}  // namespace

SimDocuments::SimDocuments()
    : urlHandlers_{{"http", std::string(kSafari)},
                   {"https", std::string(kSafari)},
                   {"mailto", "/System/Applications/Mail.app"},
                   {"file", "/System/Library/CoreServices/Finder.app"},
                   {"shortcuts", "/System/Applications/Shortcuts.app"}},
      documentHandlers_{{"txt", std::string(kTextEdit)},  {"rtf", std::string(kTextEdit)},
                        {"rtfd", std::string(kTextEdit)}, {"pdf", std::string(kPreview)},
                        {"png", std::string(kPreview)},   {"jpg", std::string(kPreview)},
                        {"jpeg", std::string(kPreview)},  {"gif", std::string(kPreview)},
                        {"tif", std::string(kPreview)},   {"tiff", std::string(kPreview)},
                        {"heic", std::string(kPreview)},  {"html", std::string(kSafari)},
                        {"htm", std::string(kSafari)}} {}

std::optional<std::string> SimDocuments::urlHandler(std::string_view scheme) const {
  std::lock_guard lock(mutex_);
  auto it = urlHandlers_.find(scheme);
  if (it == urlHandlers_.end()) return std::nullopt;
  return it->second;
}

void SimDocuments::setURLHandler(std::string scheme, std::optional<std::string> applicationPath) {
  std::lock_guard lock(mutex_);
  scheme = lowercaseASCII(scheme);
  if (applicationPath) urlHandlers_.insert_or_assign(std::move(scheme), std::move(*applicationPath));
  else urlHandlers_.erase(scheme);
}

std::map<std::string, std::string> SimDocuments::urlHandlers() const {
  std::lock_guard lock(mutex_);
  return {urlHandlers_.begin(), urlHandlers_.end()};
}

std::optional<std::string> SimDocuments::documentHandler(std::string_view extension) const {
  std::lock_guard lock(mutex_);
  auto it = documentHandlers_.find(extension);
  if (it == documentHandlers_.end()) return std::nullopt;
  return it->second;
}

void SimDocuments::setDocumentHandler(std::string extension, std::optional<std::string> applicationPath) {
  std::lock_guard lock(mutex_);
  extension = lowercaseASCII(extension);
  if (applicationPath) documentHandlers_.insert_or_assign(std::move(extension), std::move(*applicationPath));
  else documentHandlers_.erase(extension);
}

std::map<std::string, std::string> SimDocuments::documentHandlers() const {
  std::lock_guard lock(mutex_);
  return {documentHandlers_.begin(), documentHandlers_.end()};
}

std::vector<RecentDocument> SimDocuments::recentDocuments() const {
  std::lock_guard lock(mutex_);
  return recent_;
}

void SimDocuments::setRecentDocuments(std::vector<RecentDocument> documents) {
  std::lock_guard lock(mutex_);
  recent_ = std::move(documents);
}

void SimDocuments::noteOpened(std::string path) {
  std::lock_guard lock(mutex_);
  std::erase_if(recent_, [&](const RecentDocument& d) { return d.path == path; });
  recent_.insert(recent_.begin(), RecentDocument{std::move(path), {}});
}

std::optional<std::string> SimDocuments::trashFolder() const {
  std::lock_guard lock(mutex_);
  return trashFolder_;
}

void SimDocuments::setTrashFolder(std::optional<std::string> folder) {
  std::lock_guard lock(mutex_);
  trashFolder_ = std::move(folder);
}

std::vector<SimPrinter> SimDocuments::printers() const {
  std::lock_guard lock(mutex_);
  return printers_;
}

void SimDocuments::setPrinters(std::vector<SimPrinter> printers) {
  std::lock_guard lock(mutex_);
  printers_ = std::move(printers);
}

std::optional<std::string> SimDocuments::defaultPrinter() const {
  std::lock_guard lock(mutex_);
  return defaultPrinter_;
}

void SimDocuments::setDefaultPrinter(std::optional<std::string> name) {
  std::lock_guard lock(mutex_);
  defaultPrinter_ = std::move(name);
}

std::vector<SimPrintJob> SimDocuments::printJobs() const {
  std::lock_guard lock(mutex_);
  return jobs_;
}

void SimDocuments::addPrintJob(SimPrintJob job) {
  std::lock_guard lock(mutex_);
  jobs_.push_back(std::move(job));
}

namespace {

std::optional<SimApplicationBundle> installedBundle(const SimDesktop& desktop, std::string_view path) {
  const std::string standard = standardizedPath(path);
  for (SimApplicationBundle& bundle : desktop.installedApplications())
    if (bundle.path == standard) return std::move(bundle);
  return std::nullopt;
}

std::string bundleDisplayName(const SimApplicationBundle& bundle) {
  return bundle.name.empty() ? fs::path(bundle.path).stem().string() : bundle.name;
}

class SimFileWorkspace : public FileWorkspace {
 public:
  explicit SimFileWorkspace(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  std::optional<std::string> applicationForURL(std::string_view url) const override {
    auto parsed = parseURL(url);
    if (!parsed || parsed->scheme.empty()) return std::nullopt;
    return desktop_->documents().urlHandler(lowercaseASCII(parsed->scheme));
  }

  Checked<void> openDocument(std::string_view path) override {
    const std::string standard = standardizedPath(path);
    std::error_code ec;
    if (!fs::exists(standard, ec)) {
      desktop_->record("open", standard + " (no such file)");
      return fail("The file “" + fileName(standard) + "” couldn’t be opened because there is no such file.");
    }
    // A folder opens in the Finder; a document in the application that takes its kind.
    std::optional<std::string> handler;
    if (fs::is_directory(standard, ec) && !isPackage(standard)) handler = "/System/Library/CoreServices/Finder.app";
    else handler = desktop_->documents().documentHandler(extensionOf(standard));
    if (!handler) {
      desktop_->record("open", standard + " (no application)");
      return fail("There is no application set to open the document “" + fileName(standard) + "”.");
    }
    desktop_->record("open", standard + " with " + *handler);
    desktop_->documents().noteOpened(standard);
    return {};
  }

  void openURLs(std::vector<std::string> urls, std::string applicationPath, const OpenConfiguration& configuration,
                OpenCompletion completion) override {
    std::string shown;
    for (const std::string& url : urls) shown += (shown.empty() ? "" : ", ") + url;
    desktop_->record("open", shown + " with " + applicationPath + (configuration.activates ? "" : " (in the background)"));
    const auto bundle = installedBundle(*desktop_, applicationPath);
    if (!bundle) {
      completion("The application “" + fileName(applicationPath) + "” can’t be opened.");
      return;
    }
    // An application that never comes up never answers the request.
    if (!bundle->launchDelay) return;
    if (!bundle->opensDocuments) {
      completion("The application “" + bundleDisplayName(*bundle) + "” can’t open these items.");
      return;
    }
    for (const std::string& url : urls)
      if (auto path = filePathFromURL(url)) desktop_->documents().noteOpened(standardizedPath(*path));
    completion(std::nullopt);
  }

  std::optional<std::string> bundleIdentifier(std::string_view path) const override {
    auto bundle = installedBundle(*desktop_, path);
    if (!bundle || bundle->bundleIdentifier.empty()) return std::nullopt;
    return bundle->bundleIdentifier;
  }

  bool isPackage(std::string_view path) const override {
    if (installedBundle(*desktop_, path)) return true;
    std::error_code ec;
    if (!fs::is_directory(std::string(path), ec)) return false;
    // The folder kinds macOS declares as packages.
    static constexpr std::string_view kPackageExtensions[] = {
        "app", "bundle", "framework", "plugin", "kext", "pkg", "mpkg", "rtfd", "pages", "numbers", "key",
        "scptd", "photoslibrary", "xcodeproj", "playground", "qlgenerator", "saver", "prefpane"};
    const std::string ext = extensionOf(path);
    return std::find(std::begin(kPackageExtensions), std::end(kPackageExtensions), ext) != std::end(kPackageExtensions);
  }

  // Applications show without their ".app", as the Finder shows them.
  std::string displayName(std::string_view path) const override {
    if (auto bundle = installedBundle(*desktop_, path)) return bundleDisplayName(*bundle);
    return fileName(path);
  }

  Checked<void> reveal(std::string_view path) override {
    const std::string standard = standardizedPath(path);
    desktop_->record("reveal", standard);
    std::error_code ec;
    if (!fs::exists(standard, ec) && !installedBundle(*desktop_, standard))
      return fail("The item “" + fileName(standard) + "” can’t be shown because it can’t be found.");
    const bool folder = fs::is_directory(standard, ec) && !isPackage(standard);
    desktop_->finder().openWindow(folder ? standard : fs::path(standard).parent_path().string());
    return {};
  }

  Checked<std::vector<std::string>> selectedItemURLs(std::string_view bundleIdentifier) const override {
    if (!desktop_->accessibilityTrusted()) return fail("Orla is not trusted for accessibility.");
    const auto apps = desktop_->applications();
    if (std::none_of(apps.begin(), apps.end(), [&](const RunningApplication& a) { return a.bundleIdentifier == bundleIdentifier; }))
      return fail("No running application has the bundle identifier “" + std::string(bundleIdentifier) + "”.");
    std::vector<std::string> urls;
    if (bundleIdentifier != kFinderBundleIdentifier) return urls;
    const SimFinder& finder = desktop_->finder();
    for (std::string path : finder.accessibilitySelection().value_or(finder.selection())) {
      std::error_code ec;
      if (fs::is_directory(path, ec) && !path.ends_with('/')) path += '/';
      urls.push_back(fileURLFromPath(path));
    }
    return urls;
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

// "Notes.txt", "Notes 2.txt", "Notes 3.txt": the Finder's names for items
// that meet one of the same name in the Trash.
fs::path trashName(const fs::path& name, int n) {
  if (n == 1) return name;
  return name.stem().string() + " " + std::to_string(n) + name.extension().string();
}

// Moves the item into the Trash folder under the first free name, in one
// step that never replaces: a name another process takes at the same moment
// is passed over, so two deletes never land on one name. Answers errno.
int renameToFreeName(const std::string& from, const fs::path& folder, const fs::path& name) {
  constexpr int kNameLimit = 100000;
  for (int n = 1; n <= kNameLimit; ++n) {
    const fs::path candidate = folder / trashName(name, n);
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, candidate.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno == EEXIST) continue;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // A file system without that kind of rename: a hard link claims the
    // name of a file, an empty folder made first the name of a folder.
    struct stat info {};
    if (::lstat(from.c_str(), &info) != 0) return errno;
    if (!S_ISDIR(info.st_mode)) {
      if (::link(from.c_str(), candidate.c_str()) != 0) {
        if (errno == EEXIST) continue;
        return errno;
      }
      return ::unlink(from.c_str()) == 0 ? 0 : errno;
    }
    if (::mkdir(candidate.c_str(), S_IRWXU) != 0) {
      if (errno == EEXIST) continue;
      return errno;
    }
    if (std::rename(from.c_str(), candidate.c_str()) == 0) return 0;
    const int error = errno;
    ::rmdir(candidate.c_str());
    if (error != ENOTEMPTY && error != EEXIST) return error;
  }
  return EEXIST;
}

class SimFileManager : public FileManager {
 public:
  explicit SimFileManager(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<void> moveToTrash(std::string_view path) override {
    const std::string standard = standardizedPath(path);
    desktop_->record("trash", standard);
    const std::string name = fileName(standard);
    std::error_code ec;
    if (standard.empty() || !fs::exists(fs::symlink_status(standard, ec)))
      return fail("“" + name + "” couldn’t be moved to the Trash because it doesn’t exist.");
    std::string folder;
    if (auto chosen = desktop_->documents().trashFolder()) {
      folder = *chosen;
    } else {
      const auto env = desktop_->environment();
      auto home = env.find("HOME");
      if (home == env.end() || home->second.empty())
        return fail("“" + name + "” couldn’t be moved to the Trash because there is no home folder.");
      folder = home->second + "/.Trash";
    }
    fs::create_directories(folder, ec);
    if (ec) return fail("“" + name + "” couldn’t be moved to the Trash: " + ec.message() + ".");
    if (const int error = renameToFreeName(standard, folder, fs::path(standard).filename()); error != 0) {
      if (error == EXDEV) return fail("“" + name + "” couldn’t be moved to the Trash because it is on another volume.");
      return fail("“" + name + "” couldn’t be moved to the Trash: " + std::strerror(error) + ".");
    }
    return {};
  }

  Checked<FileAttributes> attributes(std::string_view path) const override { return posix::fileAttributes(path); }

  std::string formatByteCount(std::uint64_t bytes) const override {
    return formatFileByteCount(bytes, desktop_->locale());
  }
  std::string formatDate(TimePoint date) const override {
    return formatMediumDateShortTime(date, desktop_->timeZone(), desktop_->locale());
  }

  std::vector<RecentDocument> recentDocuments() const override { return desktop_->documents().recentDocuments(); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimPrinters : public Printers {
 public:
  explicit SimPrinters(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::vector<std::string> printerNames() const override {
    std::vector<std::string> names;
    for (const SimPrinter& printer : desktop_->documents().printers()) names.push_back(printer.name);
    return names;
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

ProcessExit exited(int status) { return {ProcessExit::Reason::exited, status}; }

// Printer names are matched ignoring case, as the print system does.
std::optional<SimPrinter> findPrinter(const SimDocuments& documents, std::string_view name) {
  for (SimPrinter& printer : documents.printers())
    if (lowercaseASCII(printer.name) == lowercaseASCII(name)) return std::move(printer);
  return std::nullopt;
}

Checked<ProcessExit> lpstat(SimDocuments& documents, const std::vector<std::string>& args, OutputSink& out,
                            OutputSink& err) {
  if (args.size() == 1 && args[0] == "-d") {
    if (auto name = documents.defaultPrinter()) out.append("system default destination: " + *name + "\n");
    else out.append("no system default destination\n");
    return exited(0);
  }
  if (args.size() == 1 && args[0] == "-p") {
    for (const SimPrinter& printer : documents.printers())
      out.append("printer " + printer.name + (printer.accepting ? " is idle.  enabled\n" : " disabled\n"));
    return exited(0);
  }
  err.append("lpstat: This simulation answers only -d and -p.\n");
  return exited(1);
}

Checked<ProcessExit> lpoptions(SimDocuments& documents, const std::vector<std::string>& args, OutputSink&,
                               OutputSink& err) {
  if (args.size() != 2 || args[0] != "-d") {
    err.append("lpoptions: This simulation answers only -d NAME.\n");
    return exited(1);
  }
  auto printer = findPrinter(documents, args[1]);
  if (!printer) {
    err.append("lpoptions: Unknown printer or class.\n");
    return exited(1);
  }
  documents.setDefaultPrinter(printer->name);
  return exited(0);
}

Checked<ProcessExit> lpr(SimDesktop& desktop, const std::vector<std::string>& args, OutputSink&, OutputSink& err) {
  SimDocuments& documents = desktop.documents();
  std::optional<std::string> destination;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-P" && i + 1 < args.size()) destination = args[++i];
    else if (args[i].starts_with("-P") && args[i].size() > 2) destination = args[i].substr(2);
    else files.push_back(args[i]);
  }
  if (!destination) destination = documents.defaultPrinter();
  if (!destination) {
    err.append("lpr: Error - no default destination available.\n");
    return exited(1);
  }
  auto printer = findPrinter(documents, *destination);
  if (!printer) {
    err.append("lpr: Error - The printer or class does not exist.\n");
    return exited(1);
  }
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      err.append("lpr: Error - unable to access \"" + file + "\" - " + std::strerror(errno) + "\n");
      return exited(1);
    }
  }
  if (!printer->accepting) {
    err.append("lpr: Error - Destination \"" + printer->name + "\" is not accepting jobs.\n");
    return exited(1);
  }
  for (const std::string& file : files) {
    documents.addPrintJob({printer->name, file});
    desktop.record("print", file + " on " + printer->name);
  }
  return exited(0);
}

}  // namespace

std::unique_ptr<FileWorkspace> makeSimFileWorkspace(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimFileWorkspace>(std::move(desktop));
}

std::unique_ptr<FileManager> makeSimFileManager(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimFileManager>(std::move(desktop));
}

std::unique_ptr<Printers> makeSimPrinters(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimPrinters>(std::move(desktop));
}

std::optional<Checked<ProcessExit>> runSimPrintTool(SimDesktop& desktop, const ProcessLaunch& launch, OutputSink& out,
                                                    OutputSink& err) {
  if (launch.executable == kLpstatTool) return lpstat(desktop.documents(), launch.arguments, out, err);
  if (launch.executable == kLpoptionsTool) return lpoptions(desktop.documents(), launch.arguments, out, err);
  if (launch.executable == kLprTool) return lpr(desktop, launch.arguments, out, err);
  return std::nullopt;
}

using nlohmann::json;

namespace {

Failure documentsError(std::string_view key, std::string_view what) {
  return fail("Simulated desktop state: “" + std::string(key) + "” " + std::string(what) + ".");
}

Checked<void> loadHandlers(const json& state, std::string_view key,
                           void (SimDocuments::*set)(std::string, std::optional<std::string>), SimDocuments& documents) {
  auto it = state.find(key);
  if (it == state.end()) return {};
  if (!it->is_object()) return documentsError(key, "must be an object of application paths (or null)");
  for (const auto& [name, app] : it->items()) {
    if (app.is_null()) (documents.*set)(name, std::nullopt);
    else if (app.is_string()) (documents.*set)(name, app.get<std::string>());
    else return documentsError(key, "must be an object of application paths (or null)");
  }
  return {};
}

}  // namespace

Checked<void> loadDocumentsState(SimDocuments& documents, const json& state) {
  if (auto r = loadHandlers(state, "urlHandlers", &SimDocuments::setURLHandler, documents); !r) return r;
  if (auto r = loadHandlers(state, "documentHandlers", &SimDocuments::setDocumentHandler, documents); !r) return r;
  if (auto it = state.find("recentDocuments"); it != state.end()) {
    const auto bad = [] { return documentsError("recentDocuments", "must be a list of paths or {\"path\", \"name\"}"); };
    if (!it->is_array()) return bad();
    std::vector<RecentDocument> recent;
    for (const json& item : *it) {
      if (item.is_string()) {
        recent.push_back({item.get<std::string>(), {}});
      } else if (item.is_object() && item.contains("path") && item["path"].is_string()) {
        RecentDocument document{item["path"].get<std::string>(), {}};
        if (auto name = item.find("name"); name != item.end()) {
          if (!name->is_string()) return bad();
          document.name = name->get<std::string>();
        }
        recent.push_back(std::move(document));
      } else {
        return bad();
      }
    }
    documents.setRecentDocuments(std::move(recent));
  }
  if (auto it = state.find("trashFolder"); it != state.end()) {
    if (it->is_null()) documents.setTrashFolder(std::nullopt);
    else if (it->is_string()) documents.setTrashFolder(it->get<std::string>());
    else return documentsError("trashFolder", "must be a folder path or null");
  }
  if (auto it = state.find("printers"); it != state.end()) {
    const auto bad = [] { return documentsError("printers", "must be a list of names or {\"name\", \"accepting\"}"); };
    if (!it->is_array()) return bad();
    std::vector<SimPrinter> printers;
    for (const json& item : *it) {
      if (item.is_string()) {
        printers.push_back({item.get<std::string>(), true});
      } else if (item.is_object() && item.contains("name") && item["name"].is_string()) {
        SimPrinter printer{item["name"].get<std::string>(), true};
        if (auto accepting = item.find("accepting"); accepting != item.end()) {
          if (!accepting->is_boolean()) return bad();
          printer.accepting = accepting->get<bool>();
        }
        printers.push_back(std::move(printer));
      } else {
        return bad();
      }
    }
    documents.setPrinters(std::move(printers));
  }
  if (auto it = state.find("defaultPrinter"); it != state.end()) {
    if (it->is_null()) documents.setDefaultPrinter(std::nullopt);
    else if (it->is_string()) documents.setDefaultPrinter(it->get<std::string>());
    else return documentsError("defaultPrinter", "must be a printer name or null");
  }
  if (auto it = state.find("printJobs"); it != state.end()) {
    const auto bad = [] { return documentsError("printJobs", "must be a list of {\"printer\", \"document\"}"); };
    if (!it->is_array()) return bad();
    for (const json& item : *it) {
      if (!item.is_object() || !item.contains("printer") || !item["printer"].is_string() ||
          !item.contains("document") || !item["document"].is_string())
        return bad();
      documents.addPrintJob({item["printer"].get<std::string>(), item["document"].get<std::string>()});
    }
  }
  return {};
}

namespace {

// The handlers that differ from a fresh desktop's: changed or added ones
// with their application, removed ones as null.
json handlerChanges(const std::map<std::string, std::string>& current,
                    const std::map<std::string, std::string>& defaults) {
  json changes = json::object();
  for (const auto& [key, app] : current)
    if (auto it = defaults.find(key); it == defaults.end() || it->second != app) changes[key] = app;
  for (const auto& [key, app] : defaults)
    if (!current.count(key)) changes[key] = nullptr;
  return changes;
}

}  // namespace

void saveDocumentsState(const SimDocuments& documents, json& state) {
  const SimDocuments fresh;
  if (auto changes = handlerChanges(documents.urlHandlers(), fresh.urlHandlers()); !changes.empty())
    state["urlHandlers"] = std::move(changes);
  if (auto changes = handlerChanges(documents.documentHandlers(), fresh.documentHandlers()); !changes.empty())
    state["documentHandlers"] = std::move(changes);
  json recent = json::array();
  for (const RecentDocument& document : documents.recentDocuments()) {
    if (document.name.empty()) recent.push_back(document.path);
    else recent.push_back({{"path", document.path}, {"name", document.name}});
  }
  if (!recent.empty()) state["recentDocuments"] = std::move(recent);
  if (auto folder = documents.trashFolder()) state["trashFolder"] = *folder;
  json printers = json::array();
  for (const SimPrinter& printer : documents.printers()) {
    if (printer.accepting) printers.push_back(printer.name);
    else printers.push_back({{"name", printer.name}, {"accepting", false}});
  }
  if (!printers.empty()) state["printers"] = std::move(printers);
  if (auto name = documents.defaultPrinter()) state["defaultPrinter"] = *name;
  json jobs = json::array();
  for (const SimPrintJob& job : documents.printJobs()) jobs.push_back({{"printer", job.printer}, {"document", job.document}});
  if (!jobs.empty()) state["printJobs"] = std::move(jobs);
}

}  // namespace orla::sim
