#include "platform/sim/sim_user_interface.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <orla/models/text.h>

namespace orla::sim {

namespace {

struct SimElementHandle : AXElement::Handle {
  SimElementHandle(const SimUserInterface* o, ProcessId p, std::uint64_t n) : owner(o), pid(p), node(n) {}
  bool sameElement(const Handle& other) const override {
    const auto* o = dynamic_cast<const SimElementHandle*>(&other);
    return o && o->owner == owner && o->pid == pid && o->node == node;
  }
  const SimUserInterface* owner;
  ProcessId pid;
  std::uint64_t node;
};

constexpr std::uint64_t kApplicationNode = 1;

const std::pair<const char*, const char*> kButtonSubroles[] = {
    {"close", "AXCloseButton"},
    {"minimize", "AXMinimizeButton"},
    {"zoom", "AXZoomButton"},
    {"toolbar", "AXToolbarButton"},
};

const char* buttonSubrole(std::string_view name) {
  for (const auto& [n, subrole] : kButtonSubroles)
    if (name == n) return subrole;
  return nullptr;
}

const char* buttonName(std::string_view subrole) {
  for (const auto& [n, s] : kButtonSubroles)
    if (subrole == s) return n;
  return "";
}

// "100", "12.5": a coordinate as the trace prints it.
std::string number(double value) {
  char text[32];
  if (std::isfinite(value) && value == std::floor(value) && std::abs(value) < 1e15)
    std::snprintf(text, sizeof text, "%.0f", value);
  else
    std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string pointText(Point p) {
  std::string text = "(";
  text += number(p.x);
  text += ", ";
  text += number(p.y);
  text += ")";
  return text;
}

const char* mouseTypeName(MouseEventType type) {
  switch (type) {
    case MouseEventType::leftMouseDown: return "leftDown";
    case MouseEventType::leftMouseUp: return "leftUp";
    case MouseEventType::rightMouseDown: return "rightDown";
    case MouseEventType::rightMouseUp: return "rightUp";
    case MouseEventType::mouseMoved: return "moved";
    case MouseEventType::leftMouseDragged: return "leftDragged";
  }
  return "?";
}

bool allows(const std::vector<std::string>& actions, std::string_view action) {
  if (actions.empty()) return action == "AXPress" || action == "AXPick" || action == "AXCancel";
  return std::find(actions.begin(), actions.end(), action) != actions.end();
}

}  // namespace

std::string_view axErrorName(AXError error) {
  switch (error) {
    case AXError::success: return "success";
    case AXError::failure: return "failure";
    case AXError::illegalArgument: return "illegalArgument";
    case AXError::invalidUIElement: return "invalidUIElement";
    case AXError::cannotComplete: return "cannotComplete";
    case AXError::attributeUnsupported: return "attributeUnsupported";
    case AXError::actionUnsupported: return "actionUnsupported";
    case AXError::notImplemented: return "notImplemented";
    case AXError::apiDisabled: return "apiDisabled";
    case AXError::noValue: return "noValue";
  }
  return "failure";
}

SimUserInterface::SimUserInterface()
    : screens_{{{0, 0, 1920, 1080}, {0, 25, 1920, 1055}}}, pointer_{960, 540} {}

std::vector<SimScreen> SimUserInterface::screens() const {
  std::lock_guard lock(mutex_);
  return screens_;
}

void SimUserInterface::setScreens(std::vector<SimScreen> screens) {
  std::lock_guard lock(mutex_);
  if (screens.empty()) return;
  screens_ = std::move(screens);
  mainScreen_ = std::min(mainScreen_, screens_.size() - 1);
}

std::size_t SimUserInterface::mainScreenIndex() const {
  std::lock_guard lock(mutex_);
  return mainScreen_;
}

void SimUserInterface::setMainScreenIndex(std::size_t index) {
  std::lock_guard lock(mutex_);
  mainScreen_ = std::min(index, screens_.size() - 1);
}

Point SimUserInterface::pointer() const {
  std::lock_guard lock(mutex_);
  return pointer_;
}

void SimUserInterface::setPointer(Point location) {
  std::lock_guard lock(mutex_);
  pointer_ = location;
}

Checked<void> SimUserInterface::postMouse(const MouseEvent& event, std::string& trace) {
  std::lock_guard lock(mutex_);
  trace = mouseTypeName(event.type);
  trace += ' ';
  trace += pointText(event.location);
  if (event.type != MouseEventType::mouseMoved && event.type != MouseEventType::leftMouseDragged)
    trace.append(" click=").append(std::to_string(event.clickState)).append(" button=").append(std::to_string(event.buttonNumber));
  if (mouseEventsBeforeFailure_) {
    if (*mouseEventsBeforeFailure_ == 0) {
      trace += " (could not be created)";
      return fail("The event could not be created.");
    }
    --*mouseEventsBeforeFailure_;
  }
  mouseEvents_.push_back(event);
  if (event.type == MouseEventType::mouseMoved || event.type == MouseEventType::leftMouseDragged)
    pointer_ = event.location;
  return {};
}

Checked<void> SimUserInterface::postScroll(std::int32_t lines, std::string& trace) {
  std::lock_guard lock(mutex_);
  trace = "scroll ";
  trace += std::to_string(lines);
  trace += lines == 1 || lines == -1 ? " line" : " lines";
  if (mouseEventsBeforeFailure_) {
    if (*mouseEventsBeforeFailure_ == 0) {
      trace += " (could not be created)";
      return fail("The event could not be created.");
    }
    --*mouseEventsBeforeFailure_;
  }
  scrolls_.push_back(lines);
  return {};
}

std::vector<MouseEvent> SimUserInterface::mouseEvents() const {
  std::lock_guard lock(mutex_);
  return mouseEvents_;
}

std::vector<std::int32_t> SimUserInterface::scrolls() const {
  std::lock_guard lock(mutex_);
  return scrolls_;
}

void SimUserInterface::failMouseEventsAfter(std::optional<std::size_t> count) {
  std::lock_guard lock(mutex_);
  mouseEventsBeforeFailure_ = count;
}

// --- Trees -----------------------------------------------------------------

SimUserInterface::Tree& SimUserInterface::treeLocked(ProcessId pid) {
  auto [it, added] = trees_.try_emplace(pid);
  if (added) it->second.nodes.emplace(kApplicationNode, Node{});
  return it->second;
}

SimUserInterface::NodeId SimUserInterface::add(Tree& tree, NodeId parent, Node node) {
  const NodeId id = tree.nextId++;
  node.parent = parent;
  tree.nodes.emplace(id, std::move(node));
  if (parent) tree.nodes.at(parent).children.push_back(id);
  return id;
}

void SimUserInterface::removeSubtree(Tree& tree, NodeId id) {
  auto it = tree.nodes.find(id);
  if (it == tree.nodes.end()) return;
  const std::vector<NodeId> children = it->second.children;
  for (NodeId child : children) removeSubtree(tree, child);
  if (const NodeId label = it->second.label) tree.nodes.erase(label);
  if (tree.focusedControl == id) tree.focusedControl = 0;
  if (auto parent = tree.nodes.find(it->second.parent); parent != tree.nodes.end())
    std::erase(parent->second.children, id);
  std::erase(tree.windows, id);
  if (tree.menuBar == id) tree.menuBar = 0;
  tree.nodes.erase(id);
}

SimUserInterface::NodeId SimUserInterface::addMenuItem(Tree& tree, NodeId parent, const SimMenuItem& item,
                                                       bool inMenuBar) {
  Node node;
  node.kind = item.separator ? Kind::separator : inMenuBar ? Kind::menuBarItem : Kind::menuItem;
  node.title = item.separator ? std::string() : item.title;
  node.enabled = item.separator ? false : item.enabled;
  node.mark = item.mark;
  node.actions = item.actions;
  const NodeId id = add(tree, parent, std::move(node));
  if (!item.separator && item.hasSubmenu()) {
    Node menu;
    menu.kind = Kind::menu;
    menu.fillsWhenOpened = item.fillsWhenOpened;
    const NodeId menuId = add(tree, id, std::move(menu));
    for (const SimMenuItem& sub : item.items) addMenuItem(tree, menuId, sub, false);
  }
  return id;
}

SimUserInterface::NodeId SimUserInterface::addWindow(Tree& tree, const SimWindow& window) {
  Node node;
  node.kind = Kind::window;
  node.title = window.title;
  node.subrole = window.subrole;
  node.frame = window.frame;
  node.minimized = window.minimized;
  node.toolbarVisible = window.toolbarVisible;
  node.movable = window.movable;
  node.resizable = window.resizable;
  const NodeId id = add(tree, kApplicationNode, std::move(node));
  for (const std::string& name : window.buttons) {
    const char* subrole = buttonSubrole(name);
    if (!subrole) continue;
    Node button;
    button.kind = Kind::button;
    button.subrole = subrole;
    add(tree, id, std::move(button));
  }
  if (window.verticalScrollBar || window.horizontalScrollBar) {
    Node area;
    area.kind = Kind::scrollArea;
    const NodeId areaId = add(tree, id, std::move(area));
    for (const auto& [bar, vertical] : {std::pair{window.verticalScrollBar, true}, std::pair{window.horizontalScrollBar, false}}) {
      if (!bar) continue;
      Node barNode;
      barNode.kind = Kind::scrollBar;
      barNode.vertical = vertical;
      barNode.value = std::clamp(bar->value, 0.0, 1.0);
      const NodeId barId = add(tree, areaId, std::move(barNode));
      std::vector<const char*> parts;
      if (bar->arrows) parts.insert(parts.end(), {"AXIncrementArrow", "AXDecrementArrow"});
      if (bar->pages) parts.insert(parts.end(), {"AXIncrementPage", "AXDecrementPage"});
      for (const char* subrole : parts) {
        Node part;
        part.kind = Kind::scrollPart;
        part.subrole = subrole;
        add(tree, barId, std::move(part));
      }
    }
  }
  for (const SimControl& control : window.controls) addControl(tree, id, control);
  tree.windows.push_back(id);
  return id;
}

void SimUserInterface::setMenuBar(ProcessId pid, std::optional<std::vector<SimMenuItem>> menuBar) {
  std::lock_guard lock(mutex_);
  Tree& tree = treeLocked(pid);
  tree.described = true;
  if (tree.menuBar) removeSubtree(tree, tree.menuBar);
  if (!menuBar) return;
  Node bar;
  bar.kind = Kind::menuBar;
  tree.menuBar = add(tree, kApplicationNode, std::move(bar));
  for (const SimMenuItem& item : *menuBar) addMenuItem(tree, tree.menuBar, item, true);
}

SimMenuItem SimUserInterface::describeMenuItem(const Tree& tree, NodeId id) const {
  const Node& node = tree.nodes.at(id);
  SimMenuItem item;
  item.separator = node.kind == Kind::separator;
  if (item.separator) return item;
  item.title = node.title;
  item.enabled = node.enabled;
  item.mark = node.mark;
  item.actions = node.actions;
  if (const NodeId menu = submenuOf(tree, id)) {
    const Node& menuNode = tree.nodes.at(menu);
    item.fillsWhenOpened = menuNode.fillsWhenOpened;
    for (NodeId child : menuNode.children) item.items.push_back(describeMenuItem(tree, child));
  }
  return item;
}

std::optional<std::vector<SimMenuItem>> SimUserInterface::menuBar(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  auto it = trees_.find(pid);
  if (it == trees_.end() || !it->second.menuBar) return std::nullopt;
  std::vector<SimMenuItem> items;
  for (NodeId child : it->second.nodes.at(it->second.menuBar).children)
    items.push_back(describeMenuItem(it->second, child));
  return items;
}

void SimUserInterface::setWindows(ProcessId pid, std::vector<SimWindow> windows) {
  std::lock_guard lock(mutex_);
  Tree& tree = treeLocked(pid);
  tree.described = true;
  for (NodeId id : std::vector<NodeId>(tree.windows)) removeSubtree(tree, id);
  for (const SimWindow& window : windows) addWindow(tree, window);
}

SimWindow SimUserInterface::describeWindow(const Tree& tree, NodeId id) const {
  const Node& node = tree.nodes.at(id);
  SimWindow window;
  window.title = node.title;
  window.subrole = node.subrole;
  window.frame = node.frame;
  window.minimized = node.minimized;
  window.toolbarVisible = node.toolbarVisible;
  window.movable = node.movable;
  window.resizable = node.resizable;
  window.buttons.clear();
  for (NodeId child : node.children) {
    const Node& c = tree.nodes.at(child);
    if (c.kind == Kind::button) window.buttons.push_back(buttonName(c.subrole));
    if (c.kind == Kind::control) window.controls.push_back(describeControl(tree, child));
    if (c.kind != Kind::scrollArea) continue;
    for (NodeId barId : c.children) {
      const Node& bar = tree.nodes.at(barId);
      SimScrollBar out{bar.value, false, false};
      for (NodeId part : bar.children) {
        const std::string& subrole = tree.nodes.at(part).subrole;
        if (subrole.ends_with("Arrow")) out.arrows = true;
        if (subrole.ends_with("Page")) out.pages = true;
      }
      (bar.vertical ? window.verticalScrollBar : window.horizontalScrollBar) = out;
    }
  }
  return window;
}

std::vector<SimWindow> SimUserInterface::windows(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  std::vector<SimWindow> out;
  auto it = trees_.find(pid);
  if (it == trees_.end()) return out;
  for (NodeId id : it->second.windows) out.push_back(describeWindow(it->second, id));
  return out;
}

void SimUserInterface::setAccessible(ProcessId pid, bool accessible) {
  std::lock_guard lock(mutex_);
  Tree& tree = treeLocked(pid);
  tree.described = true;
  tree.accessible = accessible;
}

bool SimUserInterface::accessible(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  auto it = trees_.find(pid);
  return it == trees_.end() || it->second.accessible;
}

bool SimUserInterface::hasInterface(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  auto it = trees_.find(pid);
  return it != trees_.end() && it->second.described;
}

std::vector<std::string> SimUserInterface::chosenMenuItems(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  auto it = trees_.find(pid);
  return it == trees_.end() ? std::vector<std::string>() : it->second.chosen;
}

void SimUserInterface::passTime(std::chrono::microseconds duration) {
  if (duration.count() <= 0) return;
  std::lock_guard lock(mutex_);
  for (auto& [pid, tree] : trees_) tree.elapsed += duration;
}

// --- Descriptions for the trace --------------------------------------------

std::string SimUserInterface::menuPath(const Tree& tree, NodeId id) const {
  std::vector<std::string> titles;
  for (NodeId at = id; at && at != kApplicationNode;) {
    const Node& node = tree.nodes.at(at);
    if (node.kind == Kind::menuBarItem || node.kind == Kind::menuItem)
      titles.push_back(node.title.empty() ? "(untitled)" : node.title);
    at = node.parent;
  }
  std::string path;
  for (auto it = titles.rbegin(); it != titles.rend(); ++it) {
    if (!path.empty()) path += " > ";
    path += *it;
  }
  return path;
}

std::string SimUserInterface::describe(const Tree& tree, NodeId id) const {
  const Node& node = tree.nodes.at(id);
  switch (node.kind) {
    case Kind::application: return "application";
    case Kind::menuBar: return "menu bar";
    case Kind::menuBarItem:
    case Kind::menuItem: return quoted(menuPath(tree, id));
    case Kind::menu:
      return quoted(menuPath(tree, node.parent)) + " menu";
    case Kind::separator: return std::string("separator in ").append(quoted(menuPath(tree, node.parent))).append(" menu");
    case Kind::window: return std::string("window ").append(quoted(node.title));
    case Kind::button: return std::string(buttonName(node.subrole)) + " button of " + describe(tree, node.parent);
    case Kind::scrollArea: return std::string("scroll area of ").append(describe(tree, node.parent));
    case Kind::scrollBar:
      return std::string(node.vertical ? "vertical" : "horizontal") + " scroll bar of " +
             describe(tree, tree.nodes.at(node.parent).parent);
    case Kind::scrollPart: {
      std::string part = node.subrole.substr(2);  // "IncrementArrow"
      return part + " of " + describe(tree, node.parent);
    }
    case Kind::control: return describeControlNode(tree, node);
  }
  return "element";
}

std::string SimUserInterface::describeValue(const Tree& tree, const AXValue& value) const {
  if (const auto* s = value.asString()) return quoted(*s);
  if (const auto* b = value.asBool()) return *b ? "true" : "false";
  if (const auto* n = value.asNumber()) return number(*n);
  if (const auto* p = value.asPoint()) return pointText(*p);
  if (const auto* sz = value.asSize()) return number(sz->width) + "×" + number(sz->height);
  if (const auto* e = value.asElement()) {
    const auto* handle = dynamic_cast<const SimElementHandle*>(e->handle());
    if (handle && tree.nodes.count(handle->node)) return describe(tree, handle->node);
    return "element";
  }
  if (const auto* list = value.asList())
    return std::to_string(list->size()) + (list->size() == 1 ? " element" : " elements");
  return "(other)";
}

// --- The accessibility interface -------------------------------------------

AXElement SimUserInterface::element(ProcessId pid, NodeId id) const {
  return AXElement(std::make_shared<SimElementHandle>(this, pid, id));
}

AXElement SimUserInterface::applicationElement(ProcessId pid) { return element(pid, kApplicationNode); }

std::optional<ProcessId> SimUserInterface::processOf(const AXElement& element) {
  const auto* handle = dynamic_cast<const SimElementHandle*>(element.handle());
  if (!handle) return std::nullopt;
  return handle->pid;
}

SimUserInterface::Located SimUserInterface::locate(const AXElement& element) {
  Located at;
  const auto* handle = dynamic_cast<const SimElementHandle*>(element.handle());
  if (!handle || handle->owner != this) {
    at.error = AXError::illegalArgument;
    return at;
  }
  at.pid = handle->pid;
  at.id = handle->node;
  at.tree = &treeLocked(at.pid);
  if (!at.tree->accessible) {
    at.error = AXError::cannotComplete;
    return at;
  }
  auto it = at.tree->nodes.find(at.id);
  if (it == at.tree->nodes.end()) at.error = AXError::invalidUIElement;
  else at.node = &it->second;
  return at;
}

SimUserInterface::NodeId SimUserInterface::submenuOf(const Tree& tree, NodeId id) const {
  for (NodeId child : tree.nodes.at(id).children)
    if (tree.nodes.at(child).kind == Kind::menu) return child;
  return 0;
}

std::vector<SimUserInterface::NodeId> SimUserInterface::visibleChildren(const Tree& tree, NodeId id) const {
  const Node& node = tree.nodes.at(id);
  if (node.kind == Kind::application) {
    std::vector<NodeId> out;
    if (tree.menuBar) out.push_back(tree.menuBar);
    out.insert(out.end(), tree.windows.begin(), tree.windows.end());
    return out;
  }
  if (node.kind == Kind::menu && node.fillsWhenOpened && !node.open) return {};
  std::vector<NodeId> out;
  for (NodeId child : node.children)
    if (const Node& c = tree.nodes.at(child); c.kind != Kind::control || c.appearsAt <= tree.elapsed)
      out.push_back(child);
  return out;
}

std::optional<SimUserInterface::NodeId> SimUserInterface::focusedWindow(const Tree& tree, bool mainOnly) const {
  for (NodeId id : tree.windows) {
    const Node& window = tree.nodes.at(id);
    if (window.minimized) continue;
    if (mainOnly && window.subrole != "AXStandardWindow") continue;
    return id;
  }
  return std::nullopt;
}

AXResult<AXValue> SimUserInterface::read(const AXElement& element, std::string_view attribute, std::string& trace) {
  std::lock_guard lock(mutex_);
  const Located at = locate(element);
  if (at.error != AXError::success) {
    trace = std::string(attribute) + " of an element of pid=" + std::to_string(at.pid) + ": " +
            std::string(axErrorName(at.error));
    return at.error;
  }
  auto result = readLocked(at.pid, *at.tree, at.id, *at.node, attribute);
  trace = std::string(attribute) + " of " + describe(*at.tree, at.id) + " pid=" + std::to_string(at.pid) + ": " +
          (result ? describeValue(*at.tree, *result) : std::string(axErrorName(result.error())));
  return result;
}

AXResult<AXValue> SimUserInterface::readLocked(ProcessId pid, Tree& tree, NodeId id, Node& node,
                                               std::string_view attribute) {
  auto elementOrNone = [&](std::optional<NodeId> target) -> AXResult<AXValue> {
    if (!target || !*target) return AXError::noValue;
    return AXValue(element(pid, *target));
  };
  auto list = [&](const std::vector<NodeId>& ids) {
    AXValue::List out;
    for (NodeId child : ids) out.push_back(AXValue(element(pid, child)));
    return AXValue(std::move(out));
  };
  auto childWithSubrole = [&](std::string_view subrole) -> std::optional<NodeId> {
    for (NodeId child : node.children)
      if (tree.nodes.at(child).subrole == subrole) return child;
    return std::nullopt;
  };
  static constexpr std::pair<Kind, const char*> kRoles[] = {
      {Kind::application, "AXApplication"}, {Kind::menuBar, "AXMenuBar"},   {Kind::menuBarItem, "AXMenuBarItem"},
      {Kind::menu, "AXMenu"},               {Kind::menuItem, "AXMenuItem"}, {Kind::separator, "AXSeparator"},
      {Kind::window, "AXWindow"},           {Kind::button, "AXButton"},     {Kind::scrollArea, "AXScrollArea"},
      {Kind::scrollBar, "AXScrollBar"},     {Kind::scrollPart, "AXButton"},
  };
  if (node.kind == Kind::control) return readControl(pid, tree, id, node, attribute);
  if (attribute == "AXRole")
    for (const auto& [kind, role] : kRoles)
      if (kind == node.kind) return AXValue(role);
  if (attribute == "AXSubrole") return node.subrole.empty() ? AXResult<AXValue>(AXError::noValue) : AXValue(node.subrole);
  if (attribute == "AXChildren") return list(visibleChildren(tree, id));
  if (attribute == "AXParent") return elementOrNone(node.parent ? std::optional(node.parent) : std::nullopt);
  const bool titled = node.kind == Kind::menuBarItem || node.kind == Kind::menuItem ||
                      node.kind == Kind::window || node.kind == Kind::separator;
  if (attribute == "AXTitle") return titled ? AXValue(node.title) : AXResult<AXValue>(AXError::noValue);
  switch (node.kind) {
    case Kind::application:
      if (attribute == "AXMenuBar") return elementOrNone(tree.menuBar);
      if (attribute == "AXWindows") return list(tree.windows);
      if (attribute == "AXFocusedWindow") return elementOrNone(focusedWindow(tree, false));
      if (attribute == "AXMainWindow") return elementOrNone(focusedWindow(tree, true));
      if (attribute == "AXFocusedUIElement") return elementOrNone(tree.focusedControl);
      break;
    case Kind::menuBarItem:
    case Kind::menuItem:
    case Kind::separator:
      if (attribute == "AXEnabled") return AXValue(node.enabled);
      if (attribute == "AXMenuItemMarkChar")
        return node.mark.empty() ? AXResult<AXValue>(AXError::noValue) : AXValue(node.mark);
      break;
    case Kind::window:
      if (attribute == "AXPosition") return AXValue(node.frame.origin());
      if (attribute == "AXSize") return AXValue(node.frame.size());
      if (attribute == "AXMinimized") return AXValue(node.minimized);
      if (attribute == "AXMain") return AXValue(focusedWindow(tree, true) == id);
      if (attribute == "AXFocused") return AXValue(focusedWindow(tree, false) == id);
      // The buttons are attributes of their own too ("AXCloseButton").
      for (const auto& entry : kButtonSubroles)
        if (attribute == entry.second) return elementOrNone(childWithSubrole(entry.second));
      break;
    case Kind::button:
    case Kind::scrollPart:
      if (attribute == "AXEnabled") return AXValue(true);
      break;
    case Kind::scrollArea:
      if (attribute == "AXVerticalScrollBar" || attribute == "AXHorizontalScrollBar") {
        const bool vertical = attribute == "AXVerticalScrollBar";
        for (NodeId child : node.children)
          if (tree.nodes.at(child).kind == Kind::scrollBar && tree.nodes.at(child).vertical == vertical)
            return AXValue(element(pid, child));
        return AXError::noValue;
      }
      break;
    case Kind::scrollBar:
      if (attribute == "AXOrientation")
        return AXValue(node.vertical ? "AXVerticalOrientation" : "AXHorizontalOrientation");
      if (attribute == "AXValue") return AXValue(node.value);
      break;
    case Kind::menuBar:
    case Kind::menu:
    case Kind::control:
      break;
  }
  return AXError::attributeUnsupported;
}

AXError SimUserInterface::write(const AXElement& element, std::string_view attribute, const AXValue& value,
                                std::string& trace) {
  std::lock_guard lock(mutex_);
  const Located at = locate(element);
  if (at.error != AXError::success) {
    trace = std::string(attribute) + " of an element of pid=" + std::to_string(at.pid) + ": " +
            std::string(axErrorName(at.error));
    return at.error;
  }
  const bool secret = at.node->subrole == "AXSecureTextField" && attribute == "AXValue";
  trace = std::string(attribute) + " of " + describe(*at.tree, at.id) + " pid=" + std::to_string(at.pid) + " = " +
          (secret ? std::string("(hidden)") : describeValue(*at.tree, value));
  const AXError error = writeLocked(*at.tree, at.id, *at.node, attribute, value);
  if (error != AXError::success) trace += ": " + std::string(axErrorName(error));
  return error;
}

AXError SimUserInterface::writeLocked(Tree& tree, NodeId id, Node& node, std::string_view attribute,
                                      const AXValue& value) {
  if (node.kind == Kind::control) return writeControl(tree, id, node, attribute, value);
  if (node.kind == Kind::window) {
    if (attribute == "AXPosition") {
      const Point* p = value.asPoint();
      if (!p) return AXError::illegalArgument;
      if (!node.movable) return AXError::cannotComplete;
      node.frame.x = p->x;
      node.frame.y = p->y;
      return AXError::success;
    }
    if (attribute == "AXSize") {
      const Size* s = value.asSize();
      if (!s || !(s->width >= 0) || !(s->height >= 0)) return AXError::illegalArgument;
      if (!node.resizable) return AXError::cannotComplete;
      node.frame.width = s->width;
      node.frame.height = s->height;
      return AXError::success;
    }
    if (attribute == "AXMinimized") {
      const bool* on = value.asBool();
      if (!on) return AXError::illegalArgument;
      node.minimized = *on;
      return AXError::success;
    }
    if (attribute == "AXMain" || attribute == "AXFocused") {
      const bool* on = value.asBool();
      if (!on) return AXError::illegalArgument;
      if (!*on) return AXError::success;  // a window gives up focus only to another
      if (node.minimized) return AXError::cannotComplete;
      raiseWindow(tree, id);
      return AXError::success;
    }
  }
  if (node.kind == Kind::scrollBar && attribute == "AXValue") {
    const double* n = value.asNumber();
    if (!n || !std::isfinite(*n)) return AXError::illegalArgument;
    node.value = std::clamp(*n, 0.0, 1.0);
    return AXError::success;
  }
  return AXError::attributeUnsupported;
}

AXError SimUserInterface::perform(const AXElement& element, std::string_view action, std::string& trace) {
  std::lock_guard lock(mutex_);
  const Located at = locate(element);
  if (at.error != AXError::success) {
    trace = std::string(action) + " on an element of pid=" + std::to_string(at.pid) + ": " +
            std::string(axErrorName(at.error));
    return at.error;
  }
  trace = std::string(action) + " " + describe(*at.tree, at.id) + " pid=" + std::to_string(at.pid);
  const AXError error = performLocked(*at.tree, at.id, *at.node, action);
  if (error != AXError::success) trace += ": " + std::string(axErrorName(error));
  return error;
}

void SimUserInterface::closeMenus(Tree& tree, NodeId from) {
  auto it = tree.nodes.find(from);
  if (it == tree.nodes.end()) return;
  if (it->second.kind == Kind::menu) it->second.open = false;
  for (NodeId child : it->second.children) closeMenus(tree, child);
}

void SimUserInterface::raiseWindow(Tree& tree, NodeId id) {
  std::erase(tree.windows, id);
  tree.windows.insert(tree.windows.begin(), id);
}

AXError SimUserInterface::performLocked(Tree& tree, NodeId id, Node& node, std::string_view action) {
  switch (node.kind) {
    case Kind::menuBarItem:
    case Kind::menuItem: {
      if (!allows(node.actions, action)) return AXError::actionUnsupported;
      const NodeId menu = submenuOf(tree, id);
      if (action == "AXCancel") {
        if (menu) closeMenus(tree, menu);
        return AXError::success;
      }
      if (!node.enabled) return AXError::cannotComplete;
      if (menu) {
        // Opening a menu closes the others at its level, as moving along
        // the menu bar does.
        for (NodeId sibling : tree.nodes.at(node.parent).children)
          if (sibling != id) closeMenus(tree, sibling);
        tree.nodes.at(menu).open = true;
        return AXError::success;
      }
      tree.chosen.push_back(menuPath(tree, id));
      if (tree.menuBar) closeMenus(tree, tree.menuBar);
      return AXError::success;
    }
    case Kind::menu:
      if (action != "AXCancel") return AXError::actionUnsupported;
      closeMenus(tree, id);
      return AXError::success;
    case Kind::window:
      if (action != "AXRaise") return AXError::actionUnsupported;
      if (node.minimized) return AXError::cannotComplete;
      raiseWindow(tree, id);
      return AXError::success;
    case Kind::button:
      if (action != "AXPress") return AXError::actionUnsupported;
      return pressButton(tree, node);
    case Kind::scrollPart: {
      if (action != "AXPress") return AXError::actionUnsupported;
      Node& bar = tree.nodes.at(node.parent);
      const double step = node.subrole.ends_with("Arrow") ? kSimScrollArrowStep : kSimScrollPageStep;
      const double direction = node.subrole.starts_with("AXIncrement") ? 1 : -1;
      bar.value = std::clamp(bar.value + direction * step, 0.0, 1.0);
      return AXError::success;
    }
    case Kind::control: return pressControl(tree, id, node, action);
    case Kind::application:
    case Kind::menuBar:
    case Kind::separator:
    case Kind::scrollArea:
    case Kind::scrollBar:
      break;
  }
  return AXError::actionUnsupported;
}

Rect SimUserInterface::visibleFrameFor(const Rect& frame) const {
  const Point middle{frame.x + frame.width / 2, frame.y + frame.height / 2};
  for (const SimScreen& screen : screens_)
    if (screen.frame.contains(middle)) return screen.visibleFrame;
  return screens_[mainScreen_].visibleFrame;
}

AXError SimUserInterface::pressButton(Tree& tree, Node& node) {
  const NodeId windowId = node.parent;
  Node& window = tree.nodes.at(windowId);
  if (node.subrole == "AXCloseButton") {
    removeSubtree(tree, windowId);  // `node` and `window` are gone after this
  } else if (node.subrole == "AXMinimizeButton") {
    window.minimized = true;
  } else if (node.subrole == "AXZoomButton") {
    if (window.unzoomedFrame) {
      window.frame = *window.unzoomedFrame;
      window.unzoomedFrame.reset();
    } else {
      window.unzoomedFrame = window.frame;
      window.frame = visibleFrameFor(window.frame);
    }
  } else if (node.subrole == "AXToolbarButton") {
    window.toolbarVisible = !window.toolbarVisible;
  } else {
    return AXError::actionUnsupported;
  }
  return AXError::success;
}

}  // namespace orla::sim
