#include "platform/sim/sim_finder.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include <orla/models/text.h>
#include <orla/platform/finder_scripts.h>

namespace orla::sim {

std::vector<std::string> SimFinder::selection() const {
  std::lock_guard lock(mutex_);
  return selection_;
}

void SimFinder::setSelection(std::vector<std::string> paths) {
  std::lock_guard lock(mutex_);
  selection_ = std::move(paths);
}

std::optional<std::vector<std::string>> SimFinder::accessibilitySelection() const {
  std::lock_guard lock(mutex_);
  return accessibilitySelection_;
}

void SimFinder::setAccessibilitySelection(std::optional<std::vector<std::string>> paths) {
  std::lock_guard lock(mutex_);
  accessibilitySelection_ = std::move(paths);
}

std::vector<SimFinderWindow> SimFinder::windows() const {
  std::lock_guard lock(mutex_);
  return windows_;
}

void SimFinder::setWindows(std::vector<SimFinderWindow> windows) {
  std::lock_guard lock(mutex_);
  windows_ = std::move(windows);
}

void SimFinder::openWindow(std::string folder) {
  std::lock_guard lock(mutex_);
  SimFinderWindow window;
  window.target = std::move(folder);
  windows_.insert(windows_.begin(), std::move(window));
}

bool SimFinder::automationAllowed() const {
  std::lock_guard lock(mutex_);
  return automationAllowed_;
}

void SimFinder::setAutomationAllowed(bool allowed) {
  std::lock_guard lock(mutex_);
  automationAllowed_ = allowed;
}

namespace {

constexpr std::string_view kTellFinder = "tell application \"Finder\"";

bool isDirectory(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}

// A POSIX path as the Finder writes it: a folder's ends with "/".
std::string finderPath(std::string path) {
  if (isDirectory(path) && (path.empty() || path.back() != '/')) path += '/';
  return path;
}

ScriptOutcome finished(std::optional<std::string> result = std::nullopt) { return {std::move(result), std::nullopt}; }

ScriptOutcome finderError(std::string message, std::int64_t number) {
  return {std::nullopt, ScriptError{std::move(message), std::nullopt, number}};
}

bool consume(std::string_view& text, std::string_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// An AppleScript string literal at the start of `text`, unescaped; the text
// after it is left in `text`.
std::optional<std::string> stringLiteral(std::string_view& text) {
  if (!consume(text, "\"")) return std::nullopt;
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      text.remove_prefix(i + 1);
      return value;
    }
    if (c != '\\') {
      value += c;
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    switch (text[i]) {
      case 'n': value += '\n'; break;
      case 'r': value += '\r'; break;
      case 't': value += '\t'; break;
      case '"':
      case '\\': value += text[i]; break;
      default: return std::nullopt;  // AppleScript refuses to compile it
    }
  }
  return std::nullopt;
}

// `POSIX file "…" as alias`, the whole of `text`.
std::optional<std::string> posixFileAlias(std::string_view text) {
  if (!consume(text, "POSIX file ")) return std::nullopt;
  auto path = stringLiteral(text);
  if (!path || text != " as alias") return std::nullopt;
  return path;
}

// "{100, 100, 900, 700}"
std::optional<std::array<int, 4>> boundsLiteral(std::string_view text) {
  if (text.size() < 2 || text.front() != '{' || text.back() != '}') return std::nullopt;
  text = text.substr(1, text.size() - 2);
  std::array<int, 4> bounds{};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto comma = text.find(',');
    if ((comma == std::string_view::npos) != (i == 3)) return std::nullopt;
    std::string number(trimWhitespaceAndNewlines(text.substr(0, comma)));
    std::size_t used = 0;
    try {
      bounds[i] = std::stoi(number, &used);
    } catch (...) {
      return std::nullopt;
    }
    if (used != number.size()) return std::nullopt;
    if (comma != std::string_view::npos) text.remove_prefix(comma + 1);
  }
  return bounds;
}

std::vector<std::string_view> statements(std::string_view source) {
  std::vector<std::string_view> lines;
  while (!source.empty()) {
    const auto end = source.find('\n');
    std::string_view line = trimWhitespaceAndNewlines(source.substr(0, end));
    if (!line.empty()) lines.push_back(line);
    if (end == std::string_view::npos) break;
    source.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

std::optional<ScriptOutcome> SimFinder::answer(std::string_view source, const Recorder& record) {
  const auto lines = statements(source);
  if (lines.size() < 2 || lines.front() != kTellFinder || lines.back() != "end tell") return std::nullopt;
  std::unique_lock lock(mutex_);
  if (!automationAllowed_) return finderError("Not authorized to send Apple events to Finder.", -1743);

  if (source == kFinderSelectionScript) {
    std::string paths;
    for (const std::string& path : selection_) paths += finderPath(path) + "\n";
    return finished(std::move(paths));
  }
  if (source == kFinderFrontFolderScript)
    return finished(windows_.empty() ? std::string() : finderPath(windows_.front().target));

  // The window statements run on a copy, so that a script that stops on an
  // error leaves what it changed before, as the Finder does.
  struct Branch {
    bool taken;
    bool inElse = false;
  };
  std::vector<Branch> branches;
  std::optional<std::size_t> w;  // index of the window `w` names, while it is the front one
  std::vector<std::string> changes;
  auto active = [&] {
    return std::all_of(branches.begin(), branches.end(), [](const Branch& b) { return b.taken != b.inElse; });
  };
  auto setTarget = [&](std::size_t index, const std::string& path) -> std::optional<ScriptOutcome> {
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) return finderError("File " + path + " wasn’t found.", -43);
    windows_[index].target = path;
    changes.push_back("window " + std::to_string(index + 1) + " shows " + path);
    return std::nullopt;
  };
  auto needFront = [&]() -> std::optional<ScriptOutcome> {
    if (windows_.empty()) return finderError("Finder got an error: Can’t get Finder window 1.", -1728);
    return std::nullopt;
  };

  std::optional<ScriptOutcome> failure;
  for (std::size_t i = 1; i + 1 < lines.size() && !failure; ++i) {
    std::string_view line = lines[i];
    if (line == "if (count of Finder windows) is 0 then") {
      branches.push_back({windows_.empty()});
      continue;
    }
    if (line == "else") {
      if (branches.empty() || branches.back().inElse) return std::nullopt;
      branches.back().inElse = true;
      continue;
    }
    if (line == "end if") {
      if (branches.empty()) return std::nullopt;
      branches.pop_back();
      continue;
    }
    const bool run = active();
    if (line == "activate") continue;
    if (line == "close every Finder window") {
      if (run) {
        windows_.clear();
        w.reset();
        changes.push_back("closed every window");
      }
    } else if (line == "set w to make new Finder window") {
      if (run) {
        // A new window shows the user's default folder until its target is set.
        SimFinderWindow window;
        windows_.insert(windows_.begin(), std::move(window));
        w = 0;
        changes.push_back("new window");
      }
    } else if (std::string_view rest = line; consume(rest, "set target of w to ")) {
      auto path = posixFileAlias(rest);
      if (!path) return std::nullopt;
      if (run) {
        if (!w) failure = finderError("The variable w is not defined.", -2753);
        else failure = setTarget(*w, *path);
      }
    } else if (rest = line; consume(rest, "set target of front Finder window to ")) {
      auto path = posixFileAlias(rest);
      if (!path) return std::nullopt;
      if (run && !(failure = needFront())) failure = setTarget(0, *path);
    } else if (rest = line; consume(rest, "set current view of front Finder window to ")) {
      std::string view;
      for (std::string_view name : {"icon", "list", "column"})
        if (rest == std::string(name) + " view") view = name;
      if (view.empty()) return std::nullopt;
      if (run && !(failure = needFront())) {
        windows_.front().view = view;
        changes.push_back("view " + view);
      }
    } else if (rest = line; consume(rest, "set bounds of front Finder window to ")) {
      auto bounds = boundsLiteral(rest);
      if (!bounds) return std::nullopt;
      if (run && !(failure = needFront())) {
        windows_.front().bounds = *bounds;
        changes.push_back("bounds {" + std::to_string((*bounds)[0]) + ", " + std::to_string((*bounds)[1]) + ", " +
                          std::to_string((*bounds)[2]) + ", " + std::to_string((*bounds)[3]) + "}");
      }
    } else {
      return std::nullopt;
    }
  }
  if (!failure && !branches.empty()) return std::nullopt;
  lock.unlock();
  for (std::string& change : changes) record(std::move(change));
  return failure ? *failure : finished();
}

using nlohmann::json;

namespace {

Failure finderStateError(std::string_view what) {
  return fail("Simulated desktop state: “finder” " + std::string(what) + ".");
}

Checked<std::vector<std::string>> pathList(const json& list, std::string_view key) {
  std::vector<std::string> paths;
  if (!list.is_array()) return finderStateError("“" + std::string(key) + "” must be a list of paths");
  for (const json& path : list) {
    if (!path.is_string()) return finderStateError("“" + std::string(key) + "” must be a list of paths");
    paths.push_back(path.get<std::string>());
  }
  return paths;
}

}  // namespace

Checked<void> loadFinderState(SimFinder& finder, const json& state) {
  auto it = state.find("finder");
  if (it == state.end()) return {};
  if (!it->is_object()) return finderStateError("must be an object");
  if (auto sel = it->find("selection"); sel != it->end()) {
    auto paths = pathList(*sel, "selection");
    if (!paths) return fail(paths.error());
    finder.setSelection(std::move(paths).value());
  }
  if (auto sel = it->find("accessibilitySelection"); sel != it->end()) {
    if (sel->is_null()) {
      finder.setAccessibilitySelection(std::nullopt);
    } else {
      auto paths = pathList(*sel, "accessibilitySelection");
      if (!paths) return fail(paths.error());
      finder.setAccessibilitySelection(std::move(paths).value());
    }
  }
  if (auto list = it->find("windows"); list != it->end()) {
    const auto bad = [] {
      return finderStateError(
          "“windows” must be a list of {\"target\": folder, \"view\": \"icon\", \"list\" or \"column\", "
          "\"bounds\": [left, top, right, bottom]}");
    };
    if (!list->is_array()) return bad();
    std::vector<SimFinderWindow> windows;
    for (const json& item : *list) {
      if (!item.is_object() || !item.contains("target") || !item["target"].is_string()) return bad();
      SimFinderWindow window;
      window.target = item["target"].get<std::string>();
      if (auto view = item.find("view"); view != item.end()) {
        if (!view->is_string()) return bad();
        window.view = view->get<std::string>();
        if (window.view != "icon" && window.view != "list" && window.view != "column") return bad();
      }
      if (auto bounds = item.find("bounds"); bounds != item.end()) {
        if (!bounds->is_array() || bounds->size() != 4) return bad();
        for (std::size_t i = 0; i < 4; ++i) {
          const json& n = (*bounds)[i];
          // Within a screen coordinate's range, so that no number wraps.
          if (!n.is_number_integer() || n.get<std::int64_t>() < -1'000'000 || n.get<std::int64_t>() > 1'000'000)
            return bad();
          window.bounds[i] = n.get<int>();
        }
      }
      windows.push_back(std::move(window));
    }
    finder.setWindows(std::move(windows));
  }
  if (auto allowed = it->find("automationAllowed"); allowed != it->end()) {
    if (!allowed->is_boolean()) return finderStateError("“automationAllowed” must be true or false");
    finder.setAutomationAllowed(allowed->get<bool>());
  }
  return {};
}

void saveFinderState(const SimFinder& finder, json& state) {
  const auto selection = finder.selection();
  const auto accessibility = finder.accessibilitySelection();
  const auto windows = finder.windows();
  const bool allowed = finder.automationAllowed();
  if (selection.empty() && !accessibility && windows.empty() && allowed) return;
  json out = {{"selection", selection}, {"automationAllowed", allowed}};
  out["accessibilitySelection"] = accessibility ? json(*accessibility) : json(nullptr);
  json list = json::array();
  for (const SimFinderWindow& window : windows)
    list.push_back({{"target", window.target}, {"view", window.view}, {"bounds", window.bounds}});
  out["windows"] = std::move(list);
  state["finder"] = std::move(out);
}

}  // namespace orla::sim
