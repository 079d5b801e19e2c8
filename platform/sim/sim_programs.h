// SimPrograms: the programs of the simulated desktop. Most programs run for
// real, with this process's environment (the simulation shares this
// machine's file system, and a shell command means the same here as for the
// user); the ones only macOS has are modelled instead:
//
//  - "/usr/bin/shortcuts", the Shortcuts tool, answers `list` and `run NAME
//    --output-path FILE --output-type TYPE [--input-path FILE]` from a list
//    of Apple shortcuts, each with the text it produces, its exit status and
//    its error output; it can be cut off from its helper application, as
//    happens on a real Mac;
//  - "/usr/bin/open" answers `-a NAME` by opening the installed application
//    of that name, and `ADDRESS` by opening the address;
//  - the printing tools "/usr/bin/lpr", "/usr/bin/lpstat" and
//    "/usr/bin/lpoptions" answer from the simulated printers
//    (sim_documents.h), which the machine's own print system knows nothing of.
//
// Any program, modelled or real, can be marked missing, so that starting it
// fails as it does for a path with nothing there.
// Thread safety: every method may be called from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/processes.h>

namespace orla::sim {

class SimDesktop;

// A shortcut of the user's Shortcuts app.
struct AppleShortcut {
  std::string name;
  // What a run writes to the output file; none: it produces no text.
  std::optional<std::string> output;
  int exitStatus = 0;
  std::string errorOutput;
  friend bool operator==(const AppleShortcut&, const AppleShortcut&) = default;
};

inline constexpr std::string_view kShortcutsTool = "/usr/bin/shortcuts";
inline constexpr std::string_view kOpenTool = "/usr/bin/open";

class SimPrograms {
 public:
  std::vector<AppleShortcut> appleShortcuts() const;
  void setAppleShortcuts(std::vector<AppleShortcut> shortcuts);
  // Whether the Shortcuts tool reaches the system's Shortcuts service; when
  // it does not, every command fails with the tool's helper error.
  bool shortcutsReachHelper() const;
  void setShortcutsReachHelper(bool reaches);

  std::set<std::string> missingPrograms() const;
  void setMissing(std::string path, bool missing = true);
  bool isMissing(std::string_view path) const;

 private:
  mutable std::mutex mutex_;
  std::vector<AppleShortcut> shortcuts_;
  bool reachesHelper_ = true;
  std::set<std::string, std::less<>> missing_;
};

// The process service of the simulated desktop: the modelled programs
// answer from the model, the others run for real. Every start is recorded
// in the trace (category "process") with its program and arguments, and
// the Shortcuts tool records what it ran (category "shortcuts").
std::unique_ptr<Processes> makeSimProcesses(std::shared_ptr<SimDesktop> desktop);

// "appleShortcuts": [{"name": "Translate", "output": "Bonjour",
//                     "exitStatus": 0, "errorOutput": ""}],
// "shortcutsReachHelper": true, "missingPrograms": ["/usr/bin/shortcuts"]
// An absent key keeps the default: no shortcuts, the helper reached, no
// program missing. The saved state has the keys only when they differ from
// that default.
Checked<void> loadProgramsState(SimPrograms& programs, const nlohmann::json& state);
void saveProgramsState(const SimPrograms& programs, nlohmann::json& state);

}  // namespace orla::sim
