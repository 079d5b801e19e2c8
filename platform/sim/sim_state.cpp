#include "platform/sim/sim_state.h"

#include <nlohmann/json.hpp>

#include "models/calendar.h"
#include "models/text.h"
#include "models/typing_target_context.h"

namespace orla::sim {

namespace {

using nlohmann::json;

Failure wrongType(std::string_view key, std::string_view expected) {
  return fail("Simulated desktop state: “" + std::string(key) + "” must be " +
              std::string(expected) + ".");
}

// Reads `object[key]` into `out` when present; a wrong type is an error.
template <class T>
Checked<void> readField(const json& object, std::string_view key, T& out) {
  auto it = object.find(key);
  if (it == object.end()) return {};
  if constexpr (std::is_same_v<T, bool>) {
    if (!it->is_boolean()) return wrongType(key, "true or false");
  } else if constexpr (std::is_integral_v<T>) {
    if (!it->is_number_integer()) return wrongType(key, "an integer");
  } else {
    if (!it->is_string()) return wrongType(key, "a text");
  }
  out = it->template get<T>();
  return {};
}

#define ORLA_TRY(expr)              \
  do {                              \
    if (auto r = (expr); !r) return r; \
  } while (0)

// "textField": {"value": "Dear Ada,", "selection": [5, 4]}: the selection is
// a start and a length in UTF-16 units; absent, the caret ends the text.
Checked<void> readTextField(SimDesktop& desktop, ProcessId pid, const json& owner) {
  auto it = owner.find("textField");
  if (it == owner.end() || it->is_null()) return {};
  if (!it->is_object()) return wrongType("textField", "an object");
  std::string value;
  ORLA_TRY(readField(*it, "value", value));
  SimTextField field{toUtf16(value), 0, 0};
  field.selectionStart = field.value.size();
  if (auto sel = it->find("selection"); sel != it->end()) {
    if (!sel->is_array() || sel->size() != 2 || !(*sel)[0].is_number_unsigned() ||
        !(*sel)[1].is_number_unsigned())
      return wrongType("selection", "a start and a length, such as [0, 5]");
    field.selectionStart = (*sel)[0].get<size_t>();
    field.selectionLength = (*sel)[1].get<size_t>();
    if (field.selectionStart + field.selectionLength > field.value.size())
      return wrongType("selection", "within the text field's value");
  }
  desktop.setTextField(pid, std::move(field));
  return {};
}

json writeTextField(const std::optional<SimTextField>& field) {
  if (!field) return nullptr;
  return {{"value", toUtf8(field->value)}, {"selection", {field->selectionStart, field->selectionLength}}};
}

Checked<void> loadApplications(SimDesktop& desktop, const json& list) {
  if (!list.is_array()) return wrongType("applications", "a list");
  desktop.removeAllApplications();
  std::optional<ProcessId> frontmost;
  ProcessId nextPid = 200;
  for (const json& item : list) {
    if (!item.is_object()) return wrongType("applications", "a list of objects");
    RunningApplication app;
    app.processIdentifier = nextPid;
    bool isFront = false;
    ORLA_TRY(readField(item, "name", app.localizedName));
    ORLA_TRY(readField(item, "bundleIdentifier", app.bundleIdentifier));
    ORLA_TRY(readField(item, "pid", app.processIdentifier));
    ORLA_TRY(readField(item, "path", app.bundlePath));
    ORLA_TRY(readField(item, "executablePath", app.executablePath));
    ORLA_TRY(readField(item, "hidden", app.hidden));
    ORLA_TRY(readField(item, "frontmost", isFront));
    nextPid = std::max(nextPid, app.processIdentifier) + 1;
    if (isFront) frontmost = app.processIdentifier;
    const ProcessId pid = app.processIdentifier;
    desktop.addApplication(std::move(app));
    ORLA_TRY(readTextField(desktop, pid, item));
    bool refuses = false;
    ORLA_TRY(readField(item, "refusesActivation", refuses));
    desktop.setRefusesActivation(pid, refuses);
  }
  if (frontmost) desktop.setFrontmost(frontmost);
  return {};
}

}  // namespace

Checked<void> loadState(SimDesktop& desktop, const json& state) {
  if (!state.is_object()) return fail("Simulated desktop state must be a JSON object.");

  bool trusted = desktop.accessibilityTrusted();
  ORLA_TRY(readField(state, "accessibilityTrusted", trusted));
  desktop.setAccessibilityTrusted(trusted);

  std::string timeZone = desktop.timeZone();
  ORLA_TRY(readField(state, "timeZone", timeZone));
  if (!isKnownTimeZone(timeZone))
    return fail("Simulated desktop state: the time zone “" + timeZone + "” is not known.");
  desktop.setTimeZone(timeZone);

  std::string locale = desktop.locale();
  ORLA_TRY(readField(state, "locale", locale));
  desktop.setLocale(locale);

  if (auto it = state.find("now"); it != state.end()) {
    if (!it->is_string()) return wrongType("now", "an ISO local date-time such as 2026-11-21T09:30:00");
    auto instant = parseLocalDateTime(it->get<std::string>(), timeZone);
    if (!instant) return wrongType("now", "an ISO local date-time such as 2026-11-21T09:30:00");
    desktop.setNow(*instant);
  }

  if (auto it = state.find("environment"); it != state.end()) {
    if (!it->is_object()) return wrongType("environment", "an object of texts");
    std::map<std::string, std::string> env;
    for (const auto& [key, value] : it->items()) {
      if (!value.is_string()) return wrongType("environment", "an object of texts");
      env[key] = value.get<std::string>();
    }
    desktop.setEnvironment(std::move(env));
  }

  if (auto it = state.find("clipboard"); it != state.end()) {
    if (it->is_null()) desktop.setClipboardText(std::nullopt);
    else if (it->is_string()) desktop.setClipboardText(it->get<std::string>());
    else return wrongType("clipboard", "a text or null");
  }

  // Applications before the host, so that a host marked frontmost wins.
  if (auto it = state.find("applications"); it != state.end())
    ORLA_TRY(loadApplications(desktop, *it));

  if (auto it = state.find("host"); it != state.end()) {
    if (!it->is_object()) return wrongType("host", "an object");
    HostIdentity host = desktop.host();
    bool frontmost = desktop.hostIsFrontmost();
    ORLA_TRY(readField(*it, "bundleIdentifier", host.bundleIdentifier));
    ORLA_TRY(readField(*it, "name", host.name));
    ORLA_TRY(readField(*it, "pid", host.processIdentifier));
    ORLA_TRY(readField(*it, "frontmost", frontmost));
    desktop.setHost(host);
    if (frontmost) desktop.setFrontmost(host.processIdentifier);
    ORLA_TRY(readTextField(desktop, host.processIdentifier, *it));
  }

  ORLA_TRY(loadKeychainState(desktop.keychain(), state));

  if (auto it = state.find("lastUserApp"); it != state.end()) {
    if (it->is_null()) TypingTargetContext::setLastUserAppBundleID(std::nullopt);
    else if (it->is_string()) TypingTargetContext::setLastUserAppBundleID(it->get<std::string>());
    else return wrongType("lastUserApp", "a bundle identifier or null");
  }

  return {};
}

#undef ORLA_TRY

json saveState(const SimDesktop& desktop) {
  json state;
  state["accessibilityTrusted"] = desktop.accessibilityTrusted();
  state["now"] = formatLocalDateTime(desktop.now(), desktop.timeZone());
  state["timeZone"] = desktop.timeZone();
  state["locale"] = desktop.locale();
  state["environment"] = desktop.environment();
  if (auto text = desktop.clipboardText()) state["clipboard"] = *text;
  else state["clipboard"] = nullptr;
  const HostIdentity host = desktop.host();
  state["host"] = {{"bundleIdentifier", host.bundleIdentifier},
                   {"name", host.name},
                   {"pid", host.processIdentifier},
                   {"frontmost", desktop.hostIsFrontmost()}};
  if (auto field = desktop.textField(host.processIdentifier)) state["host"]["textField"] = writeTextField(field);
  if (auto last = TypingTargetContext::lastUserAppBundleID()) state["lastUserApp"] = *last;
  else state["lastUserApp"] = nullptr;
  json apps = json::array();
  for (const RunningApplication& app : desktop.applications()) {
    if (app.processIdentifier == host.processIdentifier) continue;
    json item = {{"name", app.localizedName},
                 {"bundleIdentifier", app.bundleIdentifier},
                 {"pid", app.processIdentifier},
                 {"path", app.bundlePath},
                 {"frontmost", app.active},
                 {"hidden", app.hidden}};
    if (!app.executablePath.empty()) item["executablePath"] = app.executablePath;
    if (auto field = desktop.textField(app.processIdentifier)) item["textField"] = writeTextField(field);
    apps.push_back(std::move(item));
  }
  state["applications"] = std::move(apps);
  saveKeychainState(desktop.keychain(), state);
  return state;
}

}  // namespace orla::sim
