// HostRunner: what the `orla` command does with actions, the way the real
// host application would: validate or run one action, or run a shortcut in
// order with the conditional skip rule, the quiet stop, and the requests the
// control plugin posts ("orOrlaPluginAction").
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <orla/platform/desktop_words.h>
#include <orla/platform/platform.h>
#include <orla/plugins/framework/plugin_registry.h>
#include "tools/orla/output.h"
#include "tools/orla/shortcut_file.h"

namespace orla::cli {

class HostRunner {
 public:
  // Nested "run by name" shortcuts deeper than this are refused, so a
  // shortcut that runs itself cannot recurse without end.
  static constexpr int kMaxNesting = 8;
  // One top-level run starts at most this many actions, nested shortcuts
  // included: within the nesting limit a shortcut that runs itself ten
  // times a level would otherwise start a hundred million.
  static constexpr int kMaxActions = 10000;

  HostRunner(std::shared_ptr<Platform> platform, Output& output,
             PluginRegistry::Making making = PluginRegistry::Making::atOnce);
  ~HostRunner();
  HostRunner(const HostRunner&) = delete;
  HostRunner& operator=(const HostRunner&) = delete;

  // The shortcuts "run by name" can find.
  void setLibrary(std::vector<Shortcut> library) {
    library_ = std::make_shared<const std::vector<Shortcut>>(std::move(library));
  }
  void setLibrary(std::shared_ptr<const std::vector<Shortcut>> library) { library_ = std::move(library); }
  // Carries out the control plugin's requests other than "run by name"
  // (which runs here, within the nesting limit); without one they are only
  // printed.
  void setRequestHandler(std::function<void(const std::string& action)> handler) {
    requestHandler_ = std::move(handler);
  }
  // Sees every action's result as it is printed.
  void setResultObserver(std::function<void(std::string_view kind, const PluginResult&)> observer) {
    resultObserver_ = std::move(observer);
  }
  // By default a shortcut stops at its first failed action, so that a step
  // that depends on it (a deletion after a confirmation that could not be
  // shown) never runs; with this set it goes on, reporting each failure.
  void setKeepGoing(bool keepGoing) { keepGoing_ = keepGoing; }
  const Shortcut* findShortcut(std::string_view name) const;

  // Each answers whether everything went well (no failure, valid).
  bool validate(std::string_view kind, const ActionData& data);
  bool run(std::string_view kind, const ActionData& data);
  bool runShortcut(const Shortcut& shortcut);

 private:
  struct Request {
    std::string action;
    std::string shortcutName;
  };

  // Runs one action and what it asked of the host; false on failure.
  bool runAction(std::string_view kind, const ActionData& data, PluginResult& result);
  bool runShortcut(const Shortcut& shortcut, int depth);
  PluginResult inDesktopWords(PluginResult result) const;
  bool handleRequests(int depth);

  std::shared_ptr<Platform> platform_;
  Output& output_;
  PluginRegistry registry_;
  std::shared_ptr<const std::vector<Shortcut>> library_ = std::make_shared<const std::vector<Shortcut>>();
  std::function<void(const std::string&)> requestHandler_;
  std::function<void(std::string_view, const PluginResult&)> resultObserver_;
  // Filled by the observer, which runs on the main thread, while the run
  // may be on another.
  std::mutex requestsMutex_;
  std::vector<Request> requests_;
  NotificationCenter::Token observer_ = 0;
  // The sentences as this desktop words them.
  DesktopWords words_;
  bool quitting_ = false;
  bool keepGoing_ = false;
  bool failed_ = false;
  int actionsStarted_ = 0;
  bool exhausted_ = false;  // the run reached kMaxActions and stops
};

}  // namespace orla::cli
