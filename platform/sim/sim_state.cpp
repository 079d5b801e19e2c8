#include "platform/sim/sim_state.h"

#include "platform/sim/sim_ui_state.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include <orla/models/base64.h>
#include <orla/models/calendar.h>
#include <orla/models/json_codable.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>
#include <orla/models/typing_target_context.h>

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
    // A number outside the type's range would wrap to another one.
    const bool fits = it->is_number_unsigned()
                          ? it->template get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<T>::max())
                          : it->is_number_integer() && it->template get<std::int64_t>() >= std::numeric_limits<T>::min() &&
                                it->template get<std::int64_t>() <= std::numeric_limits<T>::max();
    if (!it->is_number_integer()) return wrongType(key, "an integer");
    if (!fits)
      return wrongType(key, "an integer from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
                                std::to_string(std::numeric_limits<T>::max()));
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

// Clipboard items: a list of items, each a list of representations
// {"type": "public.rtf", "text": "{\\rtf1 …}"} or, for bytes that are not
// text, {"type": "public.png", "base64": "iVBORw0…"}.
Checked<PasteboardSnapshot> readItems(const json& list, std::string_view key) {
  const auto bad = [&] {
    return wrongType(key, "a list of items, each a list of {\"type\", \"text\" or \"base64\"}");
  };
  if (!list.is_array()) return bad();
  PasteboardSnapshot items;
  for (const json& item : list) {
    if (!item.is_array()) return bad();
    PasteboardItem out;
    for (const json& rep : item) {
      if (!rep.is_object() || !rep.contains("type") || !rep["type"].is_string()) return bad();
      PasteboardRepresentation r{rep["type"].get<std::string>(), {}};
      if (auto text = rep.find("text"); text != rep.end() && text->is_string()) {
        r.bytes = text->get<std::string>();
      } else if (auto data = rep.find("base64"); data != rep.end() && data->is_string()) {
        auto bytes = base64Decode(data->get<std::string>());
        if (!bytes) return wrongType(key, "items whose “base64” is valid Base64");
        r.bytes.assign(bytes->begin(), bytes->end());
      } else {
        return bad();
      }
      out.representations.push_back(std::move(r));
    }
    items.push_back(std::move(out));
  }
  return items;
}

json writeItems(const PasteboardSnapshot& items) {
  json list = json::array();
  for (const PasteboardItem& item : items) {
    json reps = json::array();
    for (const PasteboardRepresentation& r : item.representations) {
      if (isValidUtf8(r.bytes)) reps.push_back({{"type", r.type}, {"text", r.bytes}});
      else reps.push_back({{"type", r.type}, {"base64", base64Encode(Bytes(r.bytes.begin(), r.bytes.end()))}});
    }
    list.push_back(std::move(reps));
  }
  return list;
}

// The clipboard as a state file shows it: a text when it holds exactly one
// item of plain text, null when empty, the list of items otherwise.
json writeClipboard(const PasteboardSnapshot& items) {
  if (items.empty()) return nullptr;
  if (items.size() == 1 && items[0].representations.size() == 1 &&
      items[0].representations[0].type == pasteboard_types::plainText && isValidUtf8(items[0].representations[0].bytes))
    return items[0].representations[0].bytes;
  return writeItems(items);
}

// "textField": {"value": "Dear Ada,", "selection": [5, 4]}: the selection is
// a start and a length in UTF-16 units; absent, the caret ends the text.
// "selectionContent" (items, as for the clipboard) is what copying the
// selection yields instead of its text, as for a selected image.
Checked<void> readTextField(SimDesktop& desktop, ProcessId pid, const json& owner) {
  auto it = owner.find("textField");
  if (it == owner.end() || it->is_null()) return {};
  if (!it->is_object()) return wrongType("textField", "an object");
  std::string value;
  ORLA_TRY(readField(*it, "value", value));
  SimTextField field{toUtf16(value), 0, 0, std::nullopt};
  field.selectionStart = field.value.size();
  if (auto sel = it->find("selection"); sel != it->end()) {
    if (!sel->is_array() || sel->size() != 2 || !(*sel)[0].is_number_unsigned() ||
        !(*sel)[1].is_number_unsigned())
      return wrongType("selection", "a start and a length, such as [0, 5]");
    field.selectionStart = (*sel)[0].get<size_t>();
    field.selectionLength = (*sel)[1].get<size_t>();
    // Compared so that no sum wraps around.
    if (field.selectionStart > field.value.size() || field.selectionLength > field.value.size() - field.selectionStart)
      return wrongType("selection", "within the text field's value");
  }
  if (auto content = it->find("selectionContent"); content != it->end() && !content->is_null()) {
    auto items = readItems(*content, "selectionContent");
    if (!items) return fail(items.error());
    field.selectionContent = std::move(*items);
  }
  desktop.setTextField(pid, std::move(field));
  return {};
}

json writeTextField(const std::optional<SimTextField>& field) {
  if (!field) return nullptr;
  json out = {{"value", toUtf8(field->value)}, {"selection", {field->selectionStart, field->selectionLength}}};
  if (field->selectionContent) out["selectionContent"] = writeItems(*field->selectionContent);
  return out;
}

constexpr std::pair<ActivationPolicy, const char*> kPolicies[] = {
    {ActivationPolicy::regular, "regular"},
    {ActivationPolicy::accessory, "accessory"},
    {ActivationPolicy::prohibited, "prohibited"},
};
constexpr std::pair<QuitBehaviour, const char*> kQuitBehaviours[] = {
    {QuitBehaviour::quits, "quits"},
    {QuitBehaviour::asksToSave, "asksToSave"},
    {QuitBehaviour::refuses, "refuses"},
};

// A named value of one of the tables above.
template <class T, std::size_t N>
Checked<void> readNamed(const json& object, std::string_view key,
                        const std::pair<T, const char*> (&names)[N], std::string_view expected, T& out) {
  auto it = object.find(key);
  if (it == object.end()) return {};
  if (it->is_string())
    for (const auto& [value, name] : names)
      if (it->get<std::string>() == name) {
        out = value;
        return {};
      }
  return wrongType(key, expected);
}

template <class T, std::size_t N>
const char* nameOf(T value, const std::pair<T, const char*> (&names)[N]) {
  for (const auto& [v, name] : names)
    if (v == value) return name;
  return "";
}

// The largest process id a Linux system hands out, leaving the simulated
// desktop room for the ids of the applications it launches.
constexpr ProcessId kLargestPid = 4'194'304;
constexpr std::string_view kPidRange = "a process id from 1 to 4194304";

constexpr std::string_view kPolicyNames = "“regular”, “accessory” or “prohibited”";
constexpr std::string_view kQuitNames = "“quits”, “asksToSave” or “refuses”";

Checked<void> readLaunchDate(const json& item, const std::string& timeZone, RunningApplication& app) {
  auto it = item.find("launchDate");
  if (it == item.end() || it->is_null()) return {};
  if (it->is_string())
    if (auto instant = parseLocalDateTime(it->get<std::string>(), timeZone)) {
      app.launchDate = *instant;
      return {};
    }
  return wrongType("launchDate", "an ISO local date-time such as 2026-11-21T09:30:00, or null");
}

// A wait in milliseconds that reads back as it was written: a whole number
// of microseconds, not negative, at most about 31 years.
Checked<std::chrono::microseconds> readMilliseconds(const json& value, std::string_view key) {
  constexpr double kMaxMs = 1e12;
  const auto bad = [&] { return wrongType(key, "a number of milliseconds from 0 to 10¹², in whole microseconds, or null"); };
  if (!value.is_number()) return bad();
  if (value.is_number_integer()) {
    if (value.is_number_unsigned() ? value.get<std::uint64_t>() > kMaxMs : value.get<std::int64_t>() < 0) return bad();
    return std::chrono::microseconds(value.get<std::int64_t>() * 1000);
  }
  const double ms = value.get<double>();
  if (!(ms >= 0 && ms <= kMaxMs)) return bad();
  const double us = ms * 1000;
  if (us != std::floor(us) || static_cast<double>(static_cast<std::int64_t>(us)) / 1000 != ms) return bad();
  return std::chrono::microseconds(static_cast<std::int64_t>(us));
}

json writeMilliseconds(std::chrono::microseconds duration) {
  if (duration.count() % 1000 == 0) return duration.count() / 1000;
  return static_cast<double>(duration.count()) / 1000;
}

Checked<void> loadInstalled(SimDesktop& desktop, const json& list) {
  if (!list.is_array()) return wrongType("installedApplications", "a list");
  std::set<std::string> paths;
  for (const json& item : list) {
    if (!item.is_object()) return wrongType("installedApplications", "a list of objects");
    SimApplicationBundle bundle;
    ORLA_TRY(readField(item, "path", bundle.path));
    if (bundle.path.empty()) return wrongType("path", "the application's path");
    if (!paths.insert(standardizedPath(bundle.path)).second)
      return fail("Simulated desktop state: “installedApplications” lists “" + standardizedPath(bundle.path) +
                  "” twice; each path is one application.");
    ORLA_TRY(readField(item, "opensDocuments", bundle.opensDocuments));
    ORLA_TRY(readField(item, "bundleIdentifier", bundle.bundleIdentifier));
    ORLA_TRY(readField(item, "name", bundle.name));
    ORLA_TRY(readField(item, "executablePath", bundle.executablePath));
    ORLA_TRY(readNamed(item, "activationPolicy", kPolicies, kPolicyNames, bundle.activationPolicy));
    ORLA_TRY(readNamed(item, "quit", kQuitBehaviours, kQuitNames, bundle.quit));
    if (auto delay = item.find("launchDelayMs"); delay != item.end()) {
      if (delay->is_null()) {
        bundle.launchDelay.reset();
      } else {
        auto wait = readMilliseconds(*delay, "launchDelayMs");
        if (!wait) return fail(wait.error());
        bundle.launchDelay = *wait;
      }
    }
    desktop.installApplication(std::move(bundle));
  }
  return {};
}

Checked<void> loadScripts(SimDesktop& desktop, const json& state) {
  if (auto it = state.find("menuChoices"); it != state.end()) {
    if (!it->is_array()) return wrongType("menuChoices", "a list of item titles or nulls");
    for (const json& choice : *it) {
      if (choice.is_null()) desktop.scriptMenuChoice(std::nullopt);
      else if (choice.is_string()) desktop.scriptMenuChoice(choice.get<std::string>());
      else return wrongType("menuChoices", "a list of item titles or nulls");
    }
  }
  if (auto it = state.find("alertAnswers"); it != state.end()) {
    if (!it->is_array()) return wrongType("alertAnswers", "a list of button titles or numbers");
    for (const json& answer : *it) {
      if (answer.is_string()) desktop.scriptAlertAnswer(answer.get<std::string>());
      else if (answer.is_number_integer()) desktop.scriptAlertAnswer(std::to_string(answer.get<std::int64_t>()));
      else return wrongType("alertAnswers", "a list of button titles or numbers");
    }
  }
  if (auto it = state.find("userDefaults"); it != state.end()) {
    if (!it->is_object()) return wrongType("userDefaults", "an object");
    for (const auto& [key, value] : it->items()) {
      auto any = anyFromJson(value);
      if (!any) return wrongType("userDefaults", "an object of JSON values");
      desktop.userDefaults().set(key, std::move(any).value());
    }
  }
  return {};
}

Checked<void> loadApplications(SimDesktop& desktop, const json& list) {
  if (!list.is_array()) return wrongType("applications", "a list");
  desktop.removeAllApplications();
  std::optional<ProcessId> frontmost;
  std::set<ProcessId> pids;
  ProcessId nextPid = 200;  // for an application without a "pid"
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
    ORLA_TRY(readNamed(item, "activationPolicy", kPolicies, kPolicyNames, app.activationPolicy));
    ORLA_TRY(readLaunchDate(item, desktop.timeZone(), app));
    QuitBehaviour quit = QuitBehaviour::quits;
    ORLA_TRY(readNamed(item, "quit", kQuitBehaviours, kQuitNames, quit));
    bool answersAppleEvents = true;
    ORLA_TRY(readField(item, "answersAppleEvents", answersAppleEvents));
    // Two applications with one id would be one application to every lookup.
    if (app.processIdentifier < 1 || app.processIdentifier > kLargestPid) return wrongType("pid", kPidRange);
    if (!pids.insert(app.processIdentifier).second)
      return fail("Simulated desktop state: two applications have the “pid” " + std::to_string(app.processIdentifier) +
                  "; each needs its own.");
    nextPid = std::max(nextPid, app.processIdentifier + 1);
    if (isFront) frontmost = app.processIdentifier;
    const ProcessId pid = app.processIdentifier;
    desktop.addApplication(std::move(app));
    ORLA_TRY(readTextField(desktop, pid, item));
    ORLA_TRY(loadApplicationInterface(desktop.ui(), pid, item));
    bool refuses = false;
    ORLA_TRY(readField(item, "refusesActivation", refuses));
    desktop.setRefusesActivation(pid, refuses);
    desktop.setQuitBehaviour(pid, quit);
    desktop.setAnswersAppleEvents(pid, answersAppleEvents);
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
    else if (it->is_array()) {
      auto items = readItems(*it, "clipboard");
      if (!items) return fail(items.error());
      desktop.setClipboardItems(std::move(*items));
    } else {
      return wrongType("clipboard", "a text, null, or a list of items");
    }
  }

  // "scripts": [{"source": "…", "result": "…"}, {"source": "…", "error":
  // {"message": "…", "number": -1743}}, {"source": "…", "compiles": false}]
  if (auto it = state.find("scripts"); it != state.end()) {
    if (!it->is_array()) return wrongType("scripts", "a list of objects");
    for (const json& item : *it) {
      if (!item.is_object()) return wrongType("scripts", "a list of objects");
      std::string source;
      ORLA_TRY(readField(item, "source", source));
      SimScriptAnswer answer;
      ORLA_TRY(readField(item, "compiles", answer.compiles));
      if (auto result = item.find("result"); result != item.end() && !result->is_null()) {
        if (!result->is_string()) return wrongType("result", "a text or null");
        answer.result = result->get<std::string>();
      }
      if (auto error = item.find("error"); error != item.end() && !error->is_null()) {
        if (!error->is_object()) return wrongType("error", "an object");
        ScriptError e;
        if (error->contains("message")) ORLA_TRY(readField(*error, "message", e.message.emplace()));
        if (error->contains("briefMessage")) ORLA_TRY(readField(*error, "briefMessage", e.briefMessage.emplace()));
        if (error->contains("number")) ORLA_TRY(readField(*error, "number", e.number.emplace()));
        answer.error = std::move(e);
      }
      desktop.setScriptAnswer(std::move(source), std::move(answer));
    }
  }

  // Installed applications first, so that a running one's behaviour on
  // relaunch comes from the state; applications before the host, so that a
  // host marked frontmost wins.
  if (auto it = state.find("installedApplications"); it != state.end())
    ORLA_TRY(loadInstalled(desktop, *it));
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
    ORLA_TRY(readNamed(*it, "activationPolicy", kPolicies, kPolicyNames, host.activationPolicy));
    ORLA_TRY(readField(*it, "titledWindow", host.hasTitledWindow));
    if (host.processIdentifier < 1 || host.processIdentifier > kLargestPid) return wrongType("pid", kPidRange);
    desktop.setHost(host);
    if (frontmost) desktop.setFrontmost(host.processIdentifier);
    ORLA_TRY(readTextField(desktop, host.processIdentifier, *it));
  }

  // The host is an application too; another with its id would hide it.
  const ProcessId hostPid = desktop.host().processIdentifier;
  const auto apps = desktop.applications();
  if (std::count_if(apps.begin(), apps.end(), [&](const RunningApplication& a) { return a.processIdentifier == hostPid; }) > 1)
    return fail("Simulated desktop state: an application has the host's “pid” " + std::to_string(hostPid) +
                "; each needs its own.");

  ORLA_TRY(loadKeychainState(desktop.keychain(), state));
  ORLA_TRY(loadProgramsState(desktop.programs(), state));
  ORLA_TRY(loadSoundsState(desktop.sounds(), state));
  ORLA_TRY(loadSpeechState(desktop.speech(), state));
  ORLA_TRY(loadFocusState(desktop.focus(), state));
  ORLA_TRY(loadNetworkState(desktop.network(), state));
  ORLA_TRY(loadUserInterfaceState(desktop.ui(), state));
  ORLA_TRY(loadDocumentsState(desktop.documents(), state));
  ORLA_TRY(loadFinderState(desktop.finder(), state));

  if (auto it = state.find("lastUserApp"); it != state.end()) {
    if (it->is_null()) TypingTargetContext::setLastUserAppBundleID(std::nullopt);
    else if (it->is_string()) TypingTargetContext::setLastUserAppBundleID(it->get<std::string>());
    else return wrongType("lastUserApp", "a bundle identifier or null");
  }

  // A scene can end the next JavaScript run at its time limit or memory
  // ceiling at once.
  if (auto it = state.find("nextJavaScriptOutcome"); it != state.end()) {
    const std::string wanted = it->is_string() ? it->get<std::string>() : std::string();
    if (wanted == "timeLimit") desktop.forceNextJavaScriptOutcome(JavaScriptOutcome::Kind::timedOut);
    else if (wanted == "memory") desktop.forceNextJavaScriptOutcome(JavaScriptOutcome::Kind::memoryExceeded);
    else return wrongType("nextJavaScriptOutcome", "\"timeLimit\" or \"memory\"");
  }

  ORLA_TRY(loadScripts(desktop, state));
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
  state["clipboard"] = writeClipboard(desktop.clipboardItems());
  if (auto scripts = desktop.scriptAnswers(); !scripts.empty()) {
    json list = json::array();
    for (const auto& [source, answer] : scripts) {
      json item = {{"source", source}};
      if (!answer.compiles) item["compiles"] = false;
      if (answer.result) item["result"] = *answer.result;
      if (answer.error) {
        json error = json::object();
        if (answer.error->message) error["message"] = *answer.error->message;
        if (answer.error->briefMessage) error["briefMessage"] = *answer.error->briefMessage;
        if (answer.error->number) error["number"] = *answer.error->number;
        item["error"] = std::move(error);
      }
      list.push_back(std::move(item));
    }
    state["scripts"] = std::move(list);
  }
  const HostIdentity host = desktop.host();
  state["host"] = {{"bundleIdentifier", host.bundleIdentifier},
                   {"name", host.name},
                   {"pid", host.processIdentifier},
                   {"frontmost", desktop.hostIsFrontmost()},
                   {"activationPolicy", nameOf(host.activationPolicy, kPolicies)},
                   {"titledWindow", host.hasTitledWindow}};
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
                 {"hidden", app.hidden},
                 {"activationPolicy", nameOf(app.activationPolicy, kPolicies)},
                 {"quit", nameOf(desktop.quitBehaviour(app.processIdentifier), kQuitBehaviours)}};
    if (app.launchDate) item["launchDate"] = formatLocalDateTime(*app.launchDate, desktop.timeZone());
    if (!app.executablePath.empty()) item["executablePath"] = app.executablePath;
    if (desktop.refusesActivation(app.processIdentifier)) item["refusesActivation"] = true;
    if (!desktop.answersAppleEvents(app.processIdentifier)) item["answersAppleEvents"] = false;
    if (auto field = desktop.textField(app.processIdentifier)) item["textField"] = writeTextField(field);
    saveApplicationInterface(desktop.ui(), app.processIdentifier, item);
    apps.push_back(std::move(item));
  }
  state["applications"] = std::move(apps);
  json installed = json::array();
  for (const SimApplicationBundle& bundle : desktop.installedApplications()) {
    json item = {{"path", bundle.path},
                 {"bundleIdentifier", bundle.bundleIdentifier},
                 {"name", bundle.name},
                 {"activationPolicy", nameOf(bundle.activationPolicy, kPolicies)},
                 {"quit", nameOf(bundle.quit, kQuitBehaviours)}};
    if (!bundle.executablePath.empty()) item["executablePath"] = bundle.executablePath;
    if (!bundle.opensDocuments) item["opensDocuments"] = false;
    if (bundle.launchDelay) item["launchDelayMs"] = writeMilliseconds(*bundle.launchDelay);
    else item["launchDelayMs"] = nullptr;
    installed.push_back(std::move(item));
  }
  state["installedApplications"] = std::move(installed);
  json choices = json::array();
  for (const auto& choice : desktop.pendingMenuChoices()) {
    if (choice) choices.push_back(*choice);
    else choices.push_back(nullptr);
  }
  state["menuChoices"] = std::move(choices);
  state["alertAnswers"] = desktop.pendingAlertAnswers();
  json defaults = json::object();
  for (const auto& [key, value] : desktop.userDefaults().all()) defaults[key] = anyToJson(value);
  state["userDefaults"] = std::move(defaults);
  saveKeychainState(desktop.keychain(), state);
  saveProgramsState(desktop.programs(), state);
  saveSoundsState(desktop.sounds(), state);
  saveSpeechState(desktop.speech(), state);
  saveFocusState(desktop.focus(), state);
  saveNetworkState(desktop.network(), state);
  saveUserInterfaceState(desktop.ui(), state);
  saveDocumentsState(desktop.documents(), state);
  saveFinderState(desktop.finder(), state);
  return state;
}

}  // namespace orla::sim
