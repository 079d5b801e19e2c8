#include <orla/plugins/framework/shortcut_rules.h>

#include "plugins/flow/conditional_plugin.h"

namespace orla {

bool skipsFollowingAction(std::string_view kind, const PluginResult& result) {
  return ConditionalPlugin::skipsFollowingAction(kind, result);
}

}  // namespace orla
