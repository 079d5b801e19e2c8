#include "platform/sim/sim_programs.h"

#include <errno.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include <orla/models/graphemes.h>
#include "platform/posix/posix_processes.h"
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

std::vector<AppleShortcut> SimPrograms::appleShortcuts() const {
  std::lock_guard lock(mutex_);
  return shortcuts_;
}

void SimPrograms::setAppleShortcuts(std::vector<AppleShortcut> shortcuts) {
  std::lock_guard lock(mutex_);
  shortcuts_ = std::move(shortcuts);
}

bool SimPrograms::shortcutsReachHelper() const {
  std::lock_guard lock(mutex_);
  return reachesHelper_;
}

void SimPrograms::setShortcutsReachHelper(bool reaches) {
  std::lock_guard lock(mutex_);
  reachesHelper_ = reaches;
}

std::set<std::string> SimPrograms::missingPrograms() const {
  std::lock_guard lock(mutex_);
  return {missing_.begin(), missing_.end()};
}

void SimPrograms::setMissing(std::string path, bool missing) {
  std::lock_guard lock(mutex_);
  if (missing) missing_.insert(std::move(path));
  else missing_.erase(path);
}

bool SimPrograms::isMissing(std::string_view path) const {
  std::lock_guard lock(mutex_);
  return missing_.find(path) != missing_.end();
}

namespace {

// An argument as the trace shows it: its first line, at most 200
// characters, in quotes when it is empty or holds blanks or quotes.
std::string traceArgument(std::string_view argument) {
  std::string_view line = argument.substr(0, argument.find('\n'));
  const GraphemePrefix shown = graphemePrefix(line, 200);
  std::string text(shown.prefix);
  const bool cut = shown.truncated || line.size() < argument.size();
  if (cut) text += "…";
  if (!cut && !text.empty() && text.find_first_of(" \t\"'“”") == std::string::npos) return text;
  return "“" + text + "”";
}

std::string traceLaunch(std::string_view verb, const ProcessLaunch& launch) {
  std::string text(verb);
  text += " ";
  text += launch.executable;
  for (const std::string& argument : launch.arguments) {
    text += " ";
    text += traceArgument(argument);
  }
  return text;
}

// A sink for the output of a program started without anyone waiting.
class Discard : public OutputSink {
 public:
  void append(std::string_view) override {}
};

ProcessExit exited(int status) { return {ProcessExit::Reason::exited, status}; }

class SimProcesses : public Processes {
 public:
  explicit SimProcesses(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<ProcessExit> run(const ProcessLaunch& launch, OutputSink& out, OutputSink& err) override {
    desktop_->record("process", traceLaunch("run", launch));
    if (desktop_->programs().isMissing(launch.executable))
      return fail(posix::launchErrorDescription(ENOENT, launch.executable));
    if (launch.executable == kShortcutsTool) return shortcutsTool(launch.arguments, out, err);
    if (launch.executable == kOpenTool) return openTool(launch.arguments, err);
    if (auto printed = runSimPrintTool(*desktop_, launch, out, err)) return std::move(*printed);
    return real_.run(launch, out, err);
  }

  Checked<void> start(const ProcessLaunch& launch) override {
    desktop_->record("process", traceLaunch("start", launch));
    if (desktop_->programs().isMissing(launch.executable))
      return fail(posix::launchErrorDescription(ENOENT, launch.executable));
    // A modelled program does its work at once; nobody waits for its end.
    Discard discard;
    if (launch.executable == kShortcutsTool) {
      (void)shortcutsTool(launch.arguments, discard, discard);
      return {};
    }
    if (launch.executable == kOpenTool) {
      (void)openTool(launch.arguments, discard);
      return {};
    }
    return real_.start(launch);
  }

 private:
  static constexpr std::string_view kHelperError = "Error: Couldn’t communicate with a helper application.\n";

  Checked<ProcessExit> shortcutsTool(const std::vector<std::string>& args, OutputSink& out, OutputSink& err) {
    SimPrograms& programs = desktop_->programs();
    if (args.empty() || (args[0] != "list" && args[0] != "run")) {
      err.append("Error: Choose a subcommand: list or run.\n");
      return exited(64);
    }
    if (!programs.shortcutsReachHelper()) {
      desktop_->record("shortcuts", "helper not reached");
      err.append(kHelperError);
      return exited(1);
    }
    const auto shortcuts = programs.appleShortcuts();
    if (args[0] == "list") {
      desktop_->record("shortcuts", "list");
      std::string names;
      for (const AppleShortcut& s : shortcuts) names += s.name + "\n";
      out.append(names);
      return exited(0);
    }

    if (args.size() < 2) {
      err.append("Error: Missing the name of the shortcut to run.\n");
      return exited(64);
    }
    const std::string& name = args[1];
    std::optional<std::string> outputPath, inputPath;
    for (std::size_t i = 2; i < args.size(); i += 2) {
      if (i + 1 >= args.size()) {
        err.append("Error: Missing value for option '" + args[i] + "'.\n");
        return exited(64);
      }
      if (args[i] == "--output-path" || args[i] == "-o") outputPath = args[i + 1];
      else if (args[i] == "--input-path" || args[i] == "-i") inputPath = args[i + 1];
      else if (args[i] != "--output-type") {
        err.append("Error: Unknown option '" + args[i] + "'.\n");
        return exited(64);
      }
    }
    std::string record = "run “" + name + "”";
    if (inputPath) {
      std::ifstream file(*inputPath, std::ios::binary);
      if (!file) {
        err.append("Error: The input file couldn’t be read.\n");
        return exited(1);
      }
      record += " with input “" + std::string(std::istreambuf_iterator<char>(file), {}) + "”";
    }
    desktop_->record("shortcuts", record);
    auto it = std::find_if(shortcuts.begin(), shortcuts.end(), [&](const AppleShortcut& s) { return s.name == name; });
    if (it == shortcuts.end()) {
      err.append("Error: The shortcut “" + name + "” couldn’t be found.\n");
      return exited(1);
    }
    if (it->output && outputPath) {
      std::ofstream file(*outputPath, std::ios::binary | std::ios::trunc);
      file << *it->output;
    }
    if (!it->errorOutput.empty()) err.append(it->errorOutput);
    return exited(it->exitStatus);
  }

  Checked<ProcessExit> openTool(const std::vector<std::string>& args, OutputSink& err) {
    if (args.size() == 2 && args[0] == "-a") {
      for (const SimApplicationBundle& bundle : desktop_->installedApplications()) {
        const std::string name =
            bundle.name.empty() ? std::filesystem::path(bundle.path).stem().string() : bundle.name;
        if (name != args[1]) continue;
        if (desktop_->openApplication(bundle.path, OpenConfiguration{})) return exited(0);
        break;
      }
      err.append("Unable to find application named '" + args[1] + "'\n");
      return exited(1);
    }
    if (args.size() == 1) {
      if (desktop_->openURL(args[0])) return exited(0);
      err.append("The file " + args[0] + " does not exist.\n");
      return exited(1);
    }
    err.append("Usage: open [-a application] file-or-address\n");
    return exited(1);
  }

  std::shared_ptr<SimDesktop> desktop_;
  posix::PosixProcesses real_;
};

using nlohmann::json;

Failure programsError(std::string_view key, std::string_view what) {
  return fail("Simulated desktop state: “" + std::string(key) + "” " + std::string(what) + ".");
}

}  // namespace

std::unique_ptr<Processes> makeSimProcesses(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimProcesses>(std::move(desktop));
}

Checked<void> loadProgramsState(SimPrograms& programs, const json& state) {
  if (auto it = state.find("appleShortcuts"); it != state.end()) {
    const auto bad = [] {
      return programsError("appleShortcuts",
                           "must be a list of objects with a “name” text and optional “output”, “exitStatus” "
                           "and “errorOutput”");
    };
    if (!it->is_array()) return bad();
    std::vector<AppleShortcut> list;
    for (const json& item : *it) {
      if (!item.is_object() || !item.contains("name") || !item["name"].is_string()) return bad();
      AppleShortcut shortcut{item["name"].get<std::string>(), std::nullopt, 0, {}};
      if (auto output = item.find("output"); output != item.end() && !output->is_null()) {
        if (!output->is_string()) return bad();
        shortcut.output = output->get<std::string>();
      }
      if (auto status = item.find("exitStatus"); status != item.end()) {
        // An exit status is 0 to 255; anything else would be another one on the way.
        if (!status->is_number_integer() || status->get<std::int64_t>() < 0 || status->get<std::int64_t>() > 255)
          return bad();
        shortcut.exitStatus = status->get<int>();
      }
      if (auto error = item.find("errorOutput"); error != item.end()) {
        if (!error->is_string()) return bad();
        shortcut.errorOutput = error->get<std::string>();
      }
      list.push_back(std::move(shortcut));
    }
    programs.setAppleShortcuts(std::move(list));
  }
  if (auto it = state.find("shortcutsReachHelper"); it != state.end()) {
    if (!it->is_boolean()) return programsError("shortcutsReachHelper", "must be true or false");
    programs.setShortcutsReachHelper(it->get<bool>());
  }
  if (auto it = state.find("missingPrograms"); it != state.end()) {
    if (!it->is_array()) return programsError("missingPrograms", "must be a list of paths");
    for (const json& path : *it) {
      if (!path.is_string()) return programsError("missingPrograms", "must be a list of paths");
      programs.setMissing(path.get<std::string>());
    }
  }
  return {};
}

void saveProgramsState(const SimPrograms& programs, json& state) {
  if (auto shortcuts = programs.appleShortcuts(); !shortcuts.empty()) {
    json list = json::array();
    for (const AppleShortcut& s : shortcuts) {
      json item = {{"name", s.name}};
      item["output"] = s.output ? json(*s.output) : json(nullptr);
      if (s.exitStatus != 0) item["exitStatus"] = s.exitStatus;
      if (!s.errorOutput.empty()) item["errorOutput"] = s.errorOutput;
      list.push_back(std::move(item));
    }
    state["appleShortcuts"] = std::move(list);
  }
  if (!programs.shortcutsReachHelper()) state["shortcutsReachHelper"] = false;
  if (auto missing = programs.missingPrograms(); !missing.empty()) state["missingPrograms"] = missing;
}

}  // namespace orla::sim
