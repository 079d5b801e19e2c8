// SimDocuments: the documents side of the simulated desktop: which
// application opens which address scheme and which kind of document, the
// system's recent documents, where the Trash is, and the printers with the
// jobs sent to them.
//
// The services built on it (sim_documents.cpp) open documents by launching
// the installed application that takes them (adding them to the recent
// documents, as the system does), move items into the Trash folder for real
// (the simulation shares this machine's file system), and answer the
// printing tools "/usr/bin/lpr", "/usr/bin/lpstat" and "/usr/bin/lpoptions"
// from the printers here, recording each job (category "print").
// Thread safety: every method may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/file_manager.h>
#include <orla/platform/file_workspace.h>
#include <orla/platform/printers.h>
#include <orla/platform/processes.h>

namespace orla::sim {

class SimDesktop;

struct SimPrinter {
  std::string name;
  bool accepting = true;  // false: it refuses jobs, as a paused queue does
  friend bool operator==(const SimPrinter&, const SimPrinter&) = default;
};

struct SimPrintJob {
  std::string printer;
  std::string document;
  friend bool operator==(const SimPrintJob&, const SimPrintJob&) = default;
};

inline constexpr std::string_view kLprTool = "/usr/bin/lpr";
inline constexpr std::string_view kLpstatTool = "/usr/bin/lpstat";
inline constexpr std::string_view kLpoptionsTool = "/usr/bin/lpoptions";

class SimDocuments {
 public:
  SimDocuments();

  // The application bundle that opens addresses of `scheme` (lowercase),
  // or none.
  std::optional<std::string> urlHandler(std::string_view scheme) const;
  void setURLHandler(std::string scheme, std::optional<std::string> applicationPath);
  std::map<std::string, std::string> urlHandlers() const;
  // The application bundle that opens documents with this extension
  // (lowercase, without the dot), or none.
  std::optional<std::string> documentHandler(std::string_view extension) const;
  void setDocumentHandler(std::string extension, std::optional<std::string> applicationPath);
  std::map<std::string, std::string> documentHandlers() const;

  std::vector<RecentDocument> recentDocuments() const;
  void setRecentDocuments(std::vector<RecentDocument> documents);
  // Puts `path` at the top of the recent documents, once.
  void noteOpened(std::string path);

  // The Trash folder; none: ".Trash" in the home folder.
  std::optional<std::string> trashFolder() const;
  void setTrashFolder(std::optional<std::string> folder);

  std::vector<SimPrinter> printers() const;
  void setPrinters(std::vector<SimPrinter> printers);
  std::optional<std::string> defaultPrinter() const;
  void setDefaultPrinter(std::optional<std::string> name);
  std::vector<SimPrintJob> printJobs() const;
  void addPrintJob(SimPrintJob job);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> urlHandlers_;
  std::map<std::string, std::string, std::less<>> documentHandlers_;
  std::vector<RecentDocument> recent_;
  std::optional<std::string> trashFolder_;
  std::vector<SimPrinter> printers_;
  std::optional<std::string> defaultPrinter_;
  std::vector<SimPrintJob> jobs_;
};

std::unique_ptr<FileWorkspace> makeSimFileWorkspace(std::shared_ptr<SimDesktop> desktop);
std::unique_ptr<FileManager> makeSimFileManager(std::shared_ptr<SimDesktop> desktop);
std::unique_ptr<Printers> makeSimPrinters(std::shared_ptr<SimDesktop> desktop);

// The printing tools' answer to `launch`, or none when it starts another
// program. Called by the simulated process service.
std::optional<Checked<ProcessExit>> runSimPrintTool(SimDesktop& desktop, const ProcessLaunch& launch,
                                                    OutputSink& standardOutput, OutputSink& standardError);

// "urlHandlers": {"https": "/Applications/Safari.app", "gopher": null},
// "documentHandlers": {"pdf": "/System/Applications/Preview.app"},
// "recentDocuments": ["/Users/ada/Notes.txt", {"path": "…", "name": "…"}],
// "trashFolder": "/Users/ada/.Trash",
// "printers": ["Office", {"name": "Home", "accepting": false}], "defaultPrinter": "Office",
// "printJobs": [{"printer": "Office", "document": "/Users/ada/Notes.pdf"}]
// Handlers given are laid over the defaults (null removes one). The saved
// state has a key only when it differs from a fresh desktop (the handlers
// as their changes).
Checked<void> loadDocumentsState(SimDocuments& documents, const nlohmann::json& state);
void saveDocumentsState(const SimDocuments& documents, nlohmann::json& state);

}  // namespace orla::sim
