#include <orla/models/plugin_result.h>

namespace orla {

std::string_view kindName(PluginResult::Kind kind) {
  switch (kind) {
    case PluginResult::Kind::success: return "success";
    case PluginResult::Kind::conditionResult: return "conditionResult";
    case PluginResult::Kind::failure: return "failure";
    case PluginResult::Kind::silentSuccess: return "silentSuccess";
    case PluginResult::Kind::stopSequence: return "stopSequence";
  }
  return "failure";
}

}  // namespace orla
