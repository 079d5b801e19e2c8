#include "platform/sim/sim_ui_state.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace orla::sim {

namespace {

using nlohmann::json;

Failure wrongType(std::string_view key, std::string_view expected) {
  std::string message = "Simulated desktop state: “";
  message.append(key).append("” must be ").append(expected).append(".");
  return fail(std::move(message));
}

// Returns the failure of a step, whatever the caller answers.
#define ORLA_TRY(expr)                             \
  do {                                             \
    if (auto r = (expr); !r) return fail(r.error()); \
  } while (0)

bool finiteNumbers(const json& list, std::size_t count) {
  if (!list.is_array() || list.size() != count) return false;
  for (const json& n : list)
    if (!n.is_number() || !std::isfinite(n.get<double>())) return false;
  return true;
}

Checked<Rect> readRect(const json& value, std::string_view key) {
  if (!finiteNumbers(value, 4) || value[2].get<double>() < 0 || value[3].get<double>() < 0)
    return wrongType(key, "[x, y, width, height], such as [0, 25, 1920, 1055]");
  return Rect{value[0].get<double>(), value[1].get<double>(), value[2].get<double>(), value[3].get<double>()};
}

Checked<Point> readPoint(const json& value, std::string_view key) {
  if (!finiteNumbers(value, 2)) return wrongType(key, "[x, y], such as [960, 540]");
  return Point{value[0].get<double>(), value[1].get<double>()};
}

json rectJson(const Rect& r) { return {r.x, r.y, r.width, r.height}; }

template <class T>
Checked<void> readOptional(const json& object, std::string_view key, T& out) {
  auto it = object.find(key);
  if (it == object.end()) return {};
  if constexpr (std::is_same_v<T, bool>) {
    if (!it->is_boolean()) return wrongType(key, "true or false");
  } else {
    if (!it->is_string()) return wrongType(key, "a text");
  }
  out = it->template get<T>();
  return {};
}

Checked<void> readStrings(const json& object, std::string_view key, std::vector<std::string>& out) {
  auto it = object.find(key);
  if (it == object.end()) return {};
  if (!it->is_array()) return wrongType(key, "a list of texts");
  out.clear();
  for (const json& s : *it) {
    if (!s.is_string()) return wrongType(key, "a list of texts");
    out.push_back(s.get<std::string>());
  }
  return {};
}

// Submenus nest at most this deep: real menus stop at a handful of levels,
// and each level of a menu is walked again for every path into it.
constexpr int kMenuDepthLimit = 32;

Checked<SimMenuItem> readMenuItem(const json& value, int depth = 0) {
  if (depth > kMenuDepthLimit)
    return fail("\"menuBar\" nests submenus deeper than " + std::to_string(kMenuDepthLimit) + " levels.");
  SimMenuItem item;
  if (value.is_string()) {
    item.title = value.get<std::string>();
    item.separator = item.title == "-";
    if (item.separator) item.title.clear();
    return item;
  }
  if (!value.is_object()) return wrongType("menuBar", "a list of menu items: titles, \"-\" or objects");
  ORLA_TRY(readOptional(value, "title", item.title));
  ORLA_TRY(readOptional(value, "separator", item.separator));
  ORLA_TRY(readOptional(value, "enabled", item.enabled));
  ORLA_TRY(readOptional(value, "mark", item.mark));
  ORLA_TRY(readOptional(value, "fillsWhenOpened", item.fillsWhenOpened));
  ORLA_TRY(readStrings(value, "actions", item.actions));
  if (auto items = value.find("items"); items != value.end()) {
    if (!items->is_array()) return wrongType("items", "a list of menu items");
    for (const json& sub : *items) {
      auto read = readMenuItem(sub, depth + 1);
      if (!read) return fail(read.error());
      item.items.push_back(std::move(read).value());
    }
  }
  return item;
}

json menuItemJson(const SimMenuItem& item) {
  if (item.separator) return "-";
  if (item.enabled && item.mark.empty() && !item.hasSubmenu() && item.actions.empty() && item.title != "-")
    return item.title;
  json out = {{"title", item.title}};
  if (!item.enabled) out["enabled"] = false;
  if (!item.mark.empty()) out["mark"] = item.mark;
  if (item.fillsWhenOpened) out["fillsWhenOpened"] = true;
  if (!item.actions.empty()) out["actions"] = item.actions;
  if (!item.items.empty()) {
    json items = json::array();
    for (const SimMenuItem& sub : item.items) items.push_back(menuItemJson(sub));
    out["items"] = std::move(items);
  }
  return out;
}

Checked<std::optional<SimScrollBar>> readScrollBar(const json& bars, std::string_view key) {
  auto it = bars.find(key);
  if (it == bars.end() || it->is_null()) return std::optional<SimScrollBar>();
  SimScrollBar bar;
  const json* value = &*it;
  if (it->is_object()) {
    ORLA_TRY(readOptional(*it, "arrows", bar.arrows));
    ORLA_TRY(readOptional(*it, "pages", bar.pages));
    auto v = it->find("value");
    if (v == it->end()) return std::optional(bar);
    value = &*v;
  }
  if (!value->is_number() || !(value->get<double>() >= 0 && value->get<double>() <= 1))
    return wrongType(key, "a scroll position from 0 to 1, or {\"value\", \"arrows\", \"pages\"}");
  bar.value = value->get<double>();
  return std::optional(bar);
}

json scrollBarJson(const SimScrollBar& bar) {
  if (bar.arrows && bar.pages) return bar.value;
  return {{"value", bar.value}, {"arrows", bar.arrows}, {"pages", bar.pages}};
}

// Controls nest at most this deep: the searches stop at 40 levels anyway.
constexpr int kControlDepthLimit = 64;

Checked<std::optional<AXValue>> readControlValue(const json& value) {
  if (value.is_null()) return std::optional<AXValue>();
  if (value.is_string()) return std::optional(AXValue(value.get<std::string>()));
  if (value.is_boolean()) return std::optional(AXValue(value.get<bool>()));
  if (value.is_number() && std::isfinite(value.get<double>())) return std::optional(AXValue(value.get<double>()));
  // A value of another kind, which no reader takes for a text or a number.
  if (finiteNumbers(value, 2)) return std::optional(AXValue(Point{value[0].get<double>(), value[1].get<double>()}));
  return wrongType("value", "a text, a number, true or false, [x, y] or null");
}

json controlValueJson(const AXValue& value) {
  if (const auto* text = value.asString()) return *text;
  if (const auto* on = value.asBool()) return *on;
  if (const auto* n = value.asNumber()) return *n;
  if (const auto* p = value.asPoint()) return {p->x, p->y};
  return nullptr;
}

Checked<SimControl> readControl(const json& value, int depth = 0) {
  if (depth > kControlDepthLimit)
    return fail("\"controls\" nest deeper than " + std::to_string(kControlDepthLimit) + " levels.");
  if (!value.is_object()) return wrongType("controls", "a list of objects");
  SimControl control;
  ORLA_TRY(readOptional(value, "role", control.role));
  ORLA_TRY(readOptional(value, "subrole", control.subrole));
  ORLA_TRY(readOptional(value, "title", control.title));
  ORLA_TRY(readOptional(value, "description", control.description));
  ORLA_TRY(readOptional(value, "label", control.label));
  ORLA_TRY(readOptional(value, "placeholder", control.placeholder));
  ORLA_TRY(readOptional(value, "identifier", control.identifier));
  ORLA_TRY(readOptional(value, "enabled", control.enabled));
  ORLA_TRY(readOptional(value, "settable", control.settable));
  ORLA_TRY(readOptional(value, "press", control.press));
  ORLA_TRY(readOptional(value, "opens", control.opens));
  if (!control.role.starts_with("AX")) return wrongType("role", "an accessibility role such as “AXButton”");
  if (std::find(std::begin(kSimControlPresses), std::end(kSimControlPresses), control.press) ==
      std::end(kSimControlPresses))
    return wrongType("press", "one of “nothing”, “toggle”, “open” and “refuse”");
  if (auto it = value.find("value"); it != value.end()) {
    auto read = readControlValue(*it);
    if (!read) return fail(read.error());
    control.value = *read;
  }
  if (auto it = value.find("appearsAfter"); it != value.end()) {
    if (!it->is_number() || !(it->get<double>() >= 0 && it->get<double>() <= 86400))
      return wrongType("appearsAfter", "a number of seconds from 0 to 86400");
    control.appearsAfter = std::chrono::microseconds(static_cast<std::int64_t>(std::llround(it->get<double>() * 1e6)));
  }
  if (auto it = value.find("children"); it != value.end()) {
    if (!it->is_array()) return wrongType("children", "a list of controls");
    for (const json& child : *it) {
      auto read = readControl(child, depth + 1);
      if (!read) return fail(read.error());
      control.children.push_back(std::move(read).value());
    }
  }
  return control;
}

json controlJson(const SimControl& control) {
  json out = {{"role", control.role}};
  for (const auto& [key, text] : {std::pair{"subrole", &control.subrole}, {"title", &control.title},
                                  {"description", &control.description}, {"label", &control.label},
                                  {"placeholder", &control.placeholder}, {"identifier", &control.identifier}})
    if (!text->empty()) out[key] = *text;
  if (control.value) out["value"] = controlValueJson(*control.value);
  if (!control.enabled) out["enabled"] = false;
  if (!control.settable) out["settable"] = false;
  if (control.press != "nothing") out["press"] = control.press;
  if (!control.opens.empty()) out["opens"] = control.opens;
  if (control.appearsAfter.count() > 0) out["appearsAfter"] = static_cast<double>(control.appearsAfter.count()) / 1e6;
  if (!control.children.empty()) {
    json children = json::array();
    for (const SimControl& child : control.children) children.push_back(controlJson(child));
    out["children"] = std::move(children);
  }
  return out;
}

Checked<SimWindow> readWindow(const json& value) {
  if (!value.is_object()) return wrongType("windows", "a list of objects");
  SimWindow window;
  ORLA_TRY(readOptional(value, "title", window.title));
  if (auto frame = value.find("frame"); frame != value.end()) {
    auto rect = readRect(*frame, "frame");
    if (!rect) return fail(rect.error());
    window.frame = *rect;
  }
  ORLA_TRY(readOptional(value, "minimized", window.minimized));
  ORLA_TRY(readOptional(value, "subrole", window.subrole));
  ORLA_TRY(readOptional(value, "toolbar", window.toolbarVisible));
  ORLA_TRY(readOptional(value, "movable", window.movable));
  ORLA_TRY(readOptional(value, "resizable", window.resizable));
  ORLA_TRY(readStrings(value, "buttons", window.buttons));
  for (const std::string& button : window.buttons)
    if (std::find(std::begin(kSimWindowButtons), std::end(kSimWindowButtons), button) == std::end(kSimWindowButtons))
      return wrongType("buttons", "a list of “close”, “minimize”, “zoom” and “toolbar”");
  if (auto bars = value.find("scrollBars"); bars != value.end()) {
    if (!bars->is_object()) return wrongType("scrollBars", "an object with “vertical” and “horizontal”");
    auto vertical = readScrollBar(*bars, "vertical");
    if (!vertical) return fail(vertical.error());
    auto horizontal = readScrollBar(*bars, "horizontal");
    if (!horizontal) return fail(horizontal.error());
    window.verticalScrollBar = *vertical;
    window.horizontalScrollBar = *horizontal;
  }
  if (auto controls = value.find("controls"); controls != value.end()) {
    if (!controls->is_array()) return wrongType("controls", "a list of objects");
    for (const json& item : *controls) {
      auto control = readControl(item);
      if (!control) return fail(control.error());
      window.controls.push_back(std::move(control).value());
    }
  }
  return window;
}

json windowJson(const SimWindow& window) {
  json out = {{"title", window.title},     {"frame", rectJson(window.frame)}, {"minimized", window.minimized},
              {"subrole", window.subrole}, {"buttons", window.buttons},       {"toolbar", window.toolbarVisible},
              {"movable", window.movable}, {"resizable", window.resizable}};
  if (window.verticalScrollBar || window.horizontalScrollBar) {
    json bars = json::object();
    if (window.verticalScrollBar) bars["vertical"] = scrollBarJson(*window.verticalScrollBar);
    if (window.horizontalScrollBar) bars["horizontal"] = scrollBarJson(*window.horizontalScrollBar);
    out["scrollBars"] = std::move(bars);
  }
  if (!window.controls.empty()) {
    json controls = json::array();
    for (const SimControl& control : window.controls) controls.push_back(controlJson(control));
    out["controls"] = std::move(controls);
  }
  return out;
}

}  // namespace

Checked<void> loadUserInterfaceState(SimUserInterface& ui, const json& state) {
  if (auto it = state.find("screens"); it != state.end()) {
    if (!it->is_array() || it->empty()) return wrongType("screens", "a list of at least one screen");
    std::vector<SimScreen> screens;
    for (const json& item : *it) {
      if (!item.is_object() || !item.contains("frame")) return wrongType("screens", "a list of {\"frame\", \"visibleFrame\"}");
      auto frame = readRect(item["frame"], "frame");
      if (!frame) return fail(frame.error());
      SimScreen screen{*frame, *frame};
      if (auto visible = item.find("visibleFrame"); visible != item.end()) {
        auto rect = readRect(*visible, "visibleFrame");
        if (!rect) return fail(rect.error());
        screen.visibleFrame = *rect;
      }
      screens.push_back(screen);
    }
    ui.setScreens(std::move(screens));
  }
  if (auto it = state.find("mainScreen"); it != state.end()) {
    if (!it->is_number_unsigned() || it->get<std::size_t>() >= ui.screens().size())
      return wrongType("mainScreen", "the index of one of the screens");
    ui.setMainScreenIndex(it->get<std::size_t>());
  }
  if (auto it = state.find("pointer"); it != state.end()) {
    auto point = readPoint(*it, "pointer");
    if (!point) return fail(point.error());
    ui.setPointer(*point);
  }
  return {};
}

void saveUserInterfaceState(const SimUserInterface& ui, json& state) {
  json screens = json::array();
  for (const SimScreen& screen : ui.screens())
    screens.push_back({{"frame", rectJson(screen.frame)}, {"visibleFrame", rectJson(screen.visibleFrame)}});
  state["screens"] = std::move(screens);
  state["mainScreen"] = ui.mainScreenIndex();
  const Point pointer = ui.pointer();
  state["pointer"] = {pointer.x, pointer.y};
}

Checked<void> loadApplicationInterface(SimUserInterface& ui, ProcessId pid, const json& app) {
  if (auto it = app.find("accessible"); it != app.end()) {
    if (!it->is_boolean()) return wrongType("accessible", "true or false");
    ui.setAccessible(pid, it->get<bool>());
  }
  if (auto it = app.find("menuBar"); it != app.end()) {
    if (it->is_null()) {
      ui.setMenuBar(pid, std::nullopt);
    } else {
      if (!it->is_array()) return wrongType("menuBar", "a list of menu items, or null");
      std::vector<SimMenuItem> bar;
      for (const json& item : *it) {
        auto read = readMenuItem(item);
        if (!read) return fail(read.error());
        bar.push_back(std::move(read).value());
      }
      ui.setMenuBar(pid, std::move(bar));
    }
  }
  if (auto it = app.find("windows"); it != app.end()) {
    if (!it->is_array()) return wrongType("windows", "a list of objects");
    std::vector<SimWindow> windows;
    for (const json& item : *it) {
      auto window = readWindow(item);
      if (!window) return fail(window.error());
      windows.push_back(std::move(window).value());
    }
    ui.setWindows(pid, std::move(windows));
  }
  return {};
}

void saveApplicationInterface(const SimUserInterface& ui, ProcessId pid, json& app) {
  if (!ui.hasInterface(pid)) return;
  app["accessible"] = ui.accessible(pid);
  if (auto bar = ui.menuBar(pid)) {
    json items = json::array();
    for (const SimMenuItem& item : *bar) items.push_back(menuItemJson(item));
    app["menuBar"] = std::move(items);
  } else {
    app["menuBar"] = nullptr;
  }
  json windows = json::array();
  for (const SimWindow& window : ui.windows(pid)) windows.push_back(windowJson(window));
  app["windows"] = std::move(windows);
}

#undef ORLA_TRY

}  // namespace orla::sim
