// The rules a host follows between the actions of a shortcut, so that every
// host runs a shortcut as `orla` does: the condition action's result decides
// whether the next action is skipped, the condition reads the previous
// result's message under `kPreviousResultKey`, a `stopSequence` result ends
// the shortcut quietly, and a failure stops it.
#pragma once

#include <orla/export.h>

#include <string_view>

#include <orla/models/plugin_result.h>

namespace orla ORLA_EXPORT {

// The parameter the host sets on a condition action: the message of the
// result before it.
inline constexpr std::string_view kPreviousResultKey = "_previousResult";

// Whether the action after one of kind `kind` that returned `result` is
// skipped (only a condition that came out false skips).
bool skipsFollowingAction(std::string_view kind, const PluginResult& result);

}  // namespace orla
