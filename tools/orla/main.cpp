// orla: runs, validates and lists actions from the command line, on the
// native desktop or (with --sim) on the simulated one.
//
// Exit status: 0 when nothing failed, 1 when an action failed or was invalid,
// 2 for a usage error (unknown kind, malformed JSON, unreadable file).
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <optional>
#include <nlohmann/json.hpp>
#include <set>

#include <orla/models/input_limits.h>
#include <orla/models/json_codable.h>
#include <orla/models/text.h>
#include <orla/version.h>
#include "platform/sim/sim_state.h"
#include "plugins/scripts/network_credential_store.h"
#include "tools/orla/daemon_main.h"
#include "tools/orla/host_runner.h"
#include "tools/orla/input_files.h"
#include "tools/orla/state_file.h"

namespace orla::cli {
namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct UsageError {
  std::string message;
};

// PARAMS: inline JSON, "@FILE", "-" for standard input, or nothing for {}.
// A parameter value {"$file": PATH} is the text of that file.
ActionData readParams(const std::string& params) {
  if (params.empty()) return {};
  Checked<std::string> text = params == "-" ? readStandardInput()
                              : params.front() == '@' ? readTextFile(params.substr(1))
                                                      : Checked<std::string>(params);
  if (!text) throw UsageError{text.error()};
  static const JsonFileReader readFile = readParameterFile;
  auto data = actionDataFromJsonText(*text, &readFile, text->capacity());
  if (!data) throw UsageError{data.error()};
  return std::move(data).value();
}

void requireKnownKind(const std::string& kind) {
  for (const PluginInfo& info : PluginRegistry::table())
    if (info.pluginClass == kind) return;
  // Named only when it has the shape of a kind (letters alone): anything
  // else may be parameters put first by mistake, holding a key or password.
  const bool kindShaped = !kind.empty() && kind.size() <= 64 &&
                          std::all_of(kind.begin(), kind.end(), [](unsigned char c) { return std::isalpha(c); });
  if (kindShaped) throw UsageError{"unknown action kind " + orla::quoted(kind) + "; `orla list` shows them all"};
  throw UsageError{"the first argument is not an action kind; `orla list` shows them all"};
}

// `--sim` takes an optional state file: `--sim=FILE` anywhere, or `--sim
// FILE.json` before the subcommand. After the subcommand a separate argument
// is never taken, so `orla sequence --sim shortcut.json` runs that shortcut.
std::vector<std::string> splitSimArgument(int argc, char** argv) {
  static const std::set<std::string_view> subcommands{"list", "validate", "run", "sequence", "daemon"};
  std::vector<std::string> args;
  bool seenSubcommand = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.rfind("--sim=", 0) == 0) {
      args.push_back("--sim");
      args.push_back("--sim-state=" + arg.substr(6));
      continue;
    }
    if (subcommands.count(arg)) seenSubcommand = true;
    if (arg == "--sim" && !seenSubcommand && i + 1 < argc &&
        std::string_view(argv[i + 1]).ends_with(".json")) {
      args.push_back(arg);
      args.push_back("--sim-state=" + std::string(argv[++i]));
      continue;
    }
    args.push_back(std::move(arg));
  }
  std::reverse(args.begin(), args.end());  // CLI11 takes them reversed
  return args;
}

// CLI11's sentence when it names no value the user typed; otherwise one of
// ours, since a stray argument may be a key or a password.
std::string usageErrorText(const CLI::ParseError& e) {
  const std::string name = e.get_name();
  if (name == "RequiredError" || name == "RequiresError" || name == "ExcludesError") return e.what();
  if (name == "ExtrasError") return "more arguments than the command takes; `orla --help` shows its usage";
  return "the arguments could not be read; `orla --help` shows the usage";
}

struct Options {
  bool json = false;
  bool sim = false;
  std::string simState;
  bool trace = false;
  std::string stateOut;
};

std::shared_ptr<sim::SimDesktop> makeSimDesktop(const Options& options) {
  auto desktop = std::make_shared<sim::SimDesktop>();
  if (options.simState.empty()) return desktop;
  auto text = readTextFile(options.simState);
  if (!text) throw UsageError{text.error()};
  if (auto deep = jsonNestingProblem(*text, options.simState)) throw UsageError{*deep};
  auto json = parseJsonText(*text);
  if (!json) throw UsageError{options.simState + " is not valid JSON " + json.error()};
  if (auto loaded = sim::loadState(*desktop, *json); !loaded) throw UsageError{loaded.error()};
  return desktop;
}

int realMain(int argc, char** argv) {
  CLI::App app{"orla: run, validate and list automation actions"};
  app.require_subcommand(1);
  app.fallthrough();
  app.set_version_flag("--version", std::string("orla ") + kVersion);
  Options options;
  app.add_flag("--json", options.json, "Print one JSON object per line");
  app.add_flag("--sim", options.sim, "Run on the simulated desktop (--sim [STATE.json])");
  app.add_option("--sim-state", options.simState, "State file of the simulated desktop")
      ->group("");  // reached through --sim FILE
  app.add_flag("--trace", options.trace, "After the results, print what the simulated desktop recorded");
  app.add_option("--state-out", options.stateOut, "Write the simulated desktop's final state to FILE");

  auto* list = app.add_subcommand("list", "List every action kind and whether it is available");
  std::string kind, params, path, shortcutName;
  auto* validate = app.add_subcommand("validate", "Check an action's parameters");
  validate->add_option("KIND", kind, "Action kind (pluginClass)")->required();
  validate->add_option("PARAMS", params, "JSON object, @FILE, or - for standard input");
  auto* run = app.add_subcommand("run", "Run one action");
  run->add_option("KIND", kind, "Action kind (pluginClass)")->required();
  run->add_option("PARAMS", params, "JSON object, @FILE, or - for standard input");
  auto* sequence = app.add_subcommand("sequence", "Run a shortcut file, or one shortcut of a folder");
  sequence->add_option("PATH", path, "Shortcut file, or a folder of shortcut files")->required();
  sequence->add_option("NAME", shortcutName, "With a folder: the shortcut to run");
  bool keepGoing = false;
  sequence->add_flag("--keep-going", keepGoing,
                     "Run the remaining actions after one fails (by default the shortcut stops there)");

  auto* daemon = app.add_subcommand("daemon", "Run shortcuts when their hotkeys are pressed");
  std::string folder;
  bool check = false;
  daemon->add_option("FOLDER", folder, "Folder of shortcut files (default: $XDG_CONFIG_HOME/orla/shortcuts)");
  daemon->add_flag("--check", check, "Check every shortcut and hotkey of the folder, then exit");

  try {
    auto args = splitSimArgument(argc, argv);
    app.parse(args);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "orla: " << usageErrorText(e) << "\n";
    return kUsage;
  }

  try {
    if ((!options.simState.empty() || !options.stateOut.empty() || options.trace) && !options.sim)
      throw UsageError{"--trace, --state-out and a state file need --sim"};

    if (daemon->parsed()) {
      if (options.sim || options.json) throw UsageError{"`orla daemon` runs on the desktop, without --sim or --json"};
      const std::filesystem::path where = folder.empty() ? defaultShortcutFolder() : std::filesystem::path(folder);
      if (check) return checkShortcutFolder(Platform::current(), where);
      return runDaemon(Platform::current(), where);
    }

    Output output(std::cout, options.json);
    std::shared_ptr<sim::SimDesktop> desktop;
    std::shared_ptr<Platform> platform;
    if (options.sim) {
      desktop = makeSimDesktop(options);
      desktop->setRecording(options.trace);
      platform = sim::makeSimPlatform(desktop);
      Platform::setCurrent(platform);
      // Mount passwords of a simulated run stay in memory: the simulated
      // keychain is written out with the state, and a password never is.
      NetworkCredentialStore::setBackend(std::make_shared<InMemorySecretBackend>());
    } else if (validate->parsed()) {
      // Checking connects to nothing: no window system, no session bus.
      platform = makeNativeCheckingPlatform();
      Platform::setCurrent(platform);
    } else {
      platform = Platform::current();
    }
    if (list->parsed()) {
      for (const PluginInfo& info : PluginRegistry::table())
        output.plugin(info, PluginRegistry::worksOn(*platform, info.pluginClass));
      return kOk;
    }

    // Every input is read and checked before anything acts or is written.
    // One action, and the process ends: only its plugin is made (a shell
    // command does not start following the front application).
    const bool oneAction = validate->parsed() || run->parsed();
    HostRunner host(platform, output,
                    oneAction ? PluginRegistry::Making::onFirstUse : PluginRegistry::Making::atOnce);
    host.setKeepGoing(keepGoing);
    ActionData data;
    std::optional<Shortcut> single;
    const Shortcut* start = nullptr;
    if (validate->parsed() || run->parsed()) {
      requireKnownKind(kind);
      data = readParams(params);
    } else if (sequence->parsed()) {
      std::error_code ec;
      if (std::filesystem::is_directory(path, ec)) {
        auto library = loadLibrary(path);
        if (!library) throw UsageError{library.error()};
        if (library->empty()) throw UsageError{"no shortcut files (*.json) in " + path};
        host.setLibrary(std::move(library).value());
        if (shortcutName.empty()) throw UsageError{"name the shortcut of " + path + " to run"};
        start = host.findShortcut(shortcutName);
        if (!start) throw UsageError{"no shortcut named " + orla::quoted(shortcutName) + " in " + path};
      } else {
        auto shortcut = loadShortcut(path);
        if (!shortcut) throw UsageError{shortcut.error()};
        single = std::move(shortcut).value();
        start = &*single;
      }
    }

    // Made before the run, beside the target, so a folder that cannot be
    // written stops it before any action has acted; it takes the target's
    // place only when whole.
    std::optional<StateFileWriter> stateOut;
    if (!options.stateOut.empty()) {
      auto writer = StateFileWriter::open(options.stateOut);
      if (!writer) throw UsageError{writer.error()};
      stateOut.emplace(std::move(writer).value());
    }

    bool ok = true;
    if (validate->parsed()) ok = host.validate(kind, data);
    else if (run->parsed()) ok = host.run(kind, data);
    else if (start) ok = host.runShortcut(*start);

    // A clipboard restore scheduled by the last action belongs to the run.
    platform->scheduler().waitUntilIdle();
    if (desktop && options.trace)
      for (const sim::TraceEntry& entry : desktop->trace()) output.trace(entry);
    if (desktop && stateOut) {
      const auto state = sim::saveState(*desktop).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
      if (auto written = stateOut->commit(state + "\n"); !written) {
        std::cerr << "orla: " << written.error() << "\n";
        return kFailed;
      }
    }
    return ok ? kOk : kFailed;
  } catch (const UsageError& e) {
    std::cerr << "orla: " << e.message << "\n";
    return kUsage;
  }
}

}  // namespace
}  // namespace orla::cli

int main(int argc, char** argv) {
  try {
    return orla::cli::realMain(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "orla: internal error: " << e.what() << "\n";
    return 1;
  }
}
