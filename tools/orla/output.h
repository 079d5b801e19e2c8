// How the host prints: plain lines for people, or one JSON object per line
// with --json for scripts and tests.
//
//   text                                        --json
//   OrlaShortcut: success: Opened the editor.   {"kind":"OrlaShortcut","result":"success","message":"Opened the editor."}
//   ConditionalAction: conditionResult: false   {"kind":"ConditionalAction","result":"conditionResult","value":false}
//   KeyShortcut: skipped                        {"kind":"KeyShortcut","skipped":true}
//   OrlaShortcut: valid                         {"kind":"OrlaShortcut","valid":true}
//   host: runByName “Tidy up”                   {"host":"runByName","shortcutName":"Tidy up"}
//   trace: sleep 5ms                            {"trace":"sleep","text":"5ms"}
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include <orla/models/plugin_result.h>
#include "platform/sim/sim_desktop.h"
#include <orla/plugins/framework/plugin_registry.h>

namespace orla::cli {

class Output {
 public:
  Output(std::ostream& out, bool json) : out_(out), json_(json) {}

  void result(std::string_view kind, const PluginResult& result);
  void validation(std::string_view kind, const std::optional<std::string>& problem);
  void skipped(std::string_view kind);
  // What the control plugin asked of the host; `error` when it could not act.
  void host(std::string_view action, std::string_view shortcutName = {},
            std::string_view error = {});
  void trace(const sim::TraceEntry& entry);
  // One row of `orla list`: whether the kind is in this build and can do
  // its work on the desktop it would run on.
  void plugin(const PluginInfo& info, bool worksHere);

 private:
  std::ostream& out_;
  bool json_;
};

}  // namespace orla::cli
