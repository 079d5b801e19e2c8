// SimFinder: the Finder of the simulated desktop: its selection, its
// windows (front first), and whether the user let Orla control it. It
// answers the scripts sent to the Finder from this model:
//
//  - the reader scripts of include/orla/platform/finder_scripts.h (the selection's POSIX
//    paths, the front window's folder);
//  - the window scripts, statement by statement: "close every Finder
//    window", "set w to make new Finder window", "set target of w (or of
//    front Finder window) to POSIX file "…" as alias", "if (count of Finder
//    windows) is 0 then" with "else" and "end if", "set current view of
//    front Finder window to icon/list/column view", "set bounds of front
//    Finder window to {l, t, r, b}" and "activate". String literals take the
//    escapes \" \\ \n \r \t, as AppleScript reads them.
//
// A script with any other statement is not the Finder model's to answer.
// With automation refused, every script told to the Finder fails with the
// system's -1743 error. Changes are recorded (category "finder").
// Thread safety: every method may be called from any thread.
#pragma once

#include <array>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/scripting.h>

namespace orla::sim {

struct SimFinderWindow {
  std::string target;          // the folder it shows
  std::string view = "icon";   // "icon", "list" or "column"
  std::array<int, 4> bounds{100, 100, 900, 700};  // left, top, right, bottom
  friend bool operator==(const SimFinderWindow&, const SimFinderWindow&) = default;
};

class SimFinder {
 public:
  using Recorder = std::function<void(std::string)>;

  std::vector<std::string> selection() const;
  void setSelection(std::vector<std::string> paths);
  // What the accessibility interface sees selected; none: the selection.
  std::optional<std::vector<std::string>> accessibilitySelection() const;
  void setAccessibilitySelection(std::optional<std::vector<std::string>> paths);
  std::vector<SimFinderWindow> windows() const;
  void setWindows(std::vector<SimFinderWindow> windows);
  // Opens a window on `folder` in front, as revealing an item does.
  void openWindow(std::string folder);
  bool automationAllowed() const;
  void setAutomationAllowed(bool allowed);

  // The outcome of a script told to the Finder; none when the script is not
  // one this model understands.
  std::optional<ScriptOutcome> answer(std::string_view source, const Recorder& record);

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> selection_;
  std::optional<std::vector<std::string>> accessibilitySelection_;
  std::vector<SimFinderWindow> windows_;
  bool automationAllowed_ = true;
};

// "finder": {"selection": ["/Users/ada/Notes.txt"], "accessibilitySelection": null,
//            "windows": [{"target": "/Users/ada", "view": "list", "bounds": [100, 100, 900, 700]}],
//            "automationAllowed": true}
// The saved state has the key only when the Finder differs from its default
// (nothing selected, no window, automation allowed).
Checked<void> loadFinderState(SimFinder& finder, const nlohmann::json& state);
void saveFinderState(const SimFinder& finder, nlohmann::json& state);

}  // namespace orla::sim
