#include "tools/orla/output.h"

#include <nlohmann/json.hpp>

#include <orla/models/text.h>

namespace orla::cli {

// Keys keep the order they are written in: kind first, then the result.
using json = nlohmann::ordered_json;

namespace {

// Lines go out one by one as they happen, so a long shortcut shows progress.
// Texts that are not UTF-8 (a file name in another encoding) go out with
// U+FFFD in place of each bad byte, so that every line stays valid JSON.
void emit(std::ostream& out, const json& object) {
  out << object.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
}

}  // namespace

void Output::result(std::string_view kind, const PluginResult& result) {
  const std::string_view name = kindName(result.kind());
  if (json_) {
    json object = {{"kind", kind}, {"result", name}};
    if (result.hasMessage()) object["message"] = result.message();
    if (result.kind() == PluginResult::Kind::conditionResult) object["value"] = result.conditionValue();
    emit(out_, object);
    return;
  }
  out_ << kind << ": " << name;
  if (result.hasMessage()) out_ << ": " << result.message();
  if (result.kind() == PluginResult::Kind::conditionResult)
    out_ << ": " << (result.conditionValue() ? "true" : "false");
  out_ << std::endl;
}

void Output::validation(std::string_view kind, const std::optional<std::string>& problem) {
  if (json_) {
    json object = {{"kind", kind}, {"valid", !problem}};
    if (problem) object["message"] = *problem;
    emit(out_, object);
    return;
  }
  if (problem) out_ << kind << ": invalid: " << *problem << std::endl;
  else out_ << kind << ": valid" << std::endl;
}

void Output::skipped(std::string_view kind) {
  if (json_) emit(out_, {{"kind", kind}, {"skipped", true}});
  else out_ << kind << ": skipped" << std::endl;
}

void Output::host(std::string_view action, std::string_view shortcutName, std::string_view error) {
  if (json_) {
    json object = {{"host", action}};
    if (!shortcutName.empty()) object["shortcutName"] = shortcutName;
    if (!error.empty()) object["error"] = error;
    emit(out_, object);
    return;
  }
  out_ << "host: " << action;
  if (!shortcutName.empty()) out_ << " " << orla::quoted(shortcutName);
  if (!error.empty()) out_ << ": " << error;
  out_ << std::endl;
}

void Output::trace(const sim::TraceEntry& entry) {
  if (json_) emit(out_, {{"trace", entry.category}, {"text", entry.text}});
  else out_ << "trace: " << entry.category << " " << entry.text << std::endl;
}

void Output::plugin(const PluginInfo& info, bool worksHere) {
  if (json_) {
    emit(out_, {{"pluginClass", info.pluginClass},
                {"className", info.className},
                {"available", info.available && worksHere}});
    return;
  }
  std::string line(info.pluginClass);
  line.resize(std::max<size_t>(line.size() + 2, 24), ' ');
  line += info.className;
  line.resize(std::max<size_t>(line.size() + 2, 48), ' ');
  line += !info.available ? "not in this build" : worksHere ? "available" : "not on this desktop";
  out_ << line << std::endl;
}

}  // namespace orla::cli
