// The controls of the simulated windows: buttons, fields, checkboxes,
// labels. They answer the accessibility interface the way a real
// application's controls do: a field takes a new text, a checkbox flips when
// pressed, a disabled control refuses a press, and a control that has not
// shown up yet is no one's child.
#include <algorithm>

#include <orla/models/text.h>
#include "platform/sim/sim_user_interface.h"

namespace orla::sim {

namespace {

bool isRadio(std::string_view role) { return role == "AXRadioButton"; }

std::string firstName(const SimControl& control) {
  for (const std::string* name : {&control.title, &control.description, &control.label, &control.placeholder,
                                  &control.identifier})
    if (!name->empty()) return *name;
  return {};
}

}  // namespace

SimUserInterface::NodeId SimUserInterface::addControl(Tree& tree, NodeId parent, const SimControl& control) {
  Node node;
  node.kind = Kind::control;
  node.role = control.role;
  node.subrole = control.subrole;
  node.title = control.title;
  node.description = control.description;
  node.placeholder = control.placeholder;
  node.identifier = control.identifier;
  node.controlValue = control.value;
  node.enabled = control.enabled;
  node.settable = control.settable;
  node.press = control.press;
  node.opens = control.opens;
  node.appearsAt = tree.elapsed + std::max(control.appearsAfter, std::chrono::microseconds(0));
  const NodeId id = add(tree, parent, std::move(node));
  if (!control.label.empty()) {
    Node label;
    label.kind = Kind::control;
    label.role = "AXStaticText";
    label.controlValue = AXValue(control.label);
    label.settable = false;
    const NodeId labelId = add(tree, id, std::move(label));
    // The label stands beside the control on screen; only the control
    // points at it.
    std::erase(tree.nodes.at(id).children, labelId);
    tree.nodes.at(id).label = labelId;
  }
  for (const SimControl& child : control.children) addControl(tree, id, child);
  return id;
}

SimControl SimUserInterface::describeControl(const Tree& tree, NodeId id) const {
  const Node& node = tree.nodes.at(id);
  SimControl control;
  control.role = node.role;
  control.subrole = node.subrole;
  control.title = node.title;
  control.description = node.description;
  control.placeholder = node.placeholder;
  control.identifier = node.identifier;
  control.value = node.controlValue;
  control.enabled = node.enabled;
  control.settable = node.settable;
  control.press = node.press;
  control.opens = node.opens;
  control.appearsAfter = std::max(node.appearsAt - tree.elapsed, std::chrono::microseconds(0));
  if (node.label) {
    const auto& labelValue = tree.nodes.at(node.label).controlValue;
    if (labelValue && labelValue->asString()) control.label = *labelValue->asString();
  }
  for (NodeId child : node.children) control.children.push_back(describeControl(tree, child));
  return control;
}

std::string SimUserInterface::describeControlNode(const Tree& tree, const Node& node) const {
  SimControl named;
  named.title = node.title;
  named.description = node.description;
  if (node.label) {
    const auto& labelValue = tree.nodes.at(node.label).controlValue;
    if (labelValue && labelValue->asString()) named.label = *labelValue->asString();
  }
  named.placeholder = node.placeholder;
  named.identifier = node.identifier;
  std::string name = firstName(named);
  if (name.empty() && node.controlValue && node.controlValue->asString()) name = *node.controlValue->asString();
  std::string text = node.role;
  if (!name.empty()) text.append(" ").append(quoted(name));
  return text;
}

AXResult<AXValue> SimUserInterface::readControl(ProcessId pid, Tree& tree, NodeId id, Node& node,
                                                std::string_view attribute) {
  const auto text = [](const std::string& value) -> AXResult<AXValue> {
    if (value.empty()) return AXError::noValue;
    return AXValue(value);
  };
  if (attribute == "AXRole") return AXValue(node.role);
  if (attribute == "AXSubrole") return text(node.subrole);
  if (attribute == "AXTitle") return text(node.title);
  if (attribute == "AXDescription") return text(node.description);
  if (attribute == "AXPlaceholderValue") return text(node.placeholder);
  if (attribute == "AXIdentifier") return text(node.identifier);
  if (attribute == "AXEnabled") return AXValue(node.enabled);
  if (attribute == "AXFocused") return AXValue(tree.focusedControl == id);
  if (attribute == "AXValue") {
    if (!node.controlValue) return AXError::noValue;
    return *node.controlValue;
  }
  if (attribute == "AXTitleUIElement") {
    if (!node.label) return AXError::noValue;
    return AXValue(element(pid, node.label));
  }
  if (attribute == "AXParent") return AXValue(element(pid, node.parent));
  if (attribute == "AXChildren") {
    AXValue::List out;
    for (NodeId child : visibleChildren(tree, id)) out.push_back(AXValue(element(pid, child)));
    return AXValue(std::move(out));
  }
  return AXError::attributeUnsupported;
}

AXError SimUserInterface::writeControl(Tree& tree, NodeId id, Node& node, std::string_view attribute,
                                       const AXValue& value) {
  if (attribute == "AXFocused") {
    const bool* on = value.asBool();
    if (!on) return AXError::illegalArgument;
    if (!node.settable) return AXError::cannotComplete;
    if (*on) tree.focusedControl = id;
    else if (tree.focusedControl == id) tree.focusedControl = 0;
    return AXError::success;
  }
  if (attribute != "AXValue") return AXError::attributeUnsupported;
  if (!node.settable || !node.enabled) return AXError::cannotComplete;
  // A value keeps its kind: a field takes a text, a checkbox a number.
  if (node.controlValue && node.controlValue->asString() && !value.asString()) return AXError::illegalArgument;
  node.controlValue = value;
  return AXError::success;
}

AXError SimUserInterface::pressControl(Tree& tree, NodeId id, Node& node, std::string_view action) {
  (void)id;
  if (action != "AXPress") return AXError::actionUnsupported;
  if (!node.enabled || node.press == "refuse") return AXError::cannotComplete;
  if (node.press == "toggle") {
    if (!node.controlValue || node.controlValue->asBool()) {
      const bool on = node.controlValue && *node.controlValue->asBool();
      node.controlValue = AXValue(isRadio(node.role) ? true : !on);
    } else if (const double* n = node.controlValue->asNumber()) {
      // A mixed checkbox turns on, as a click on it does.
      node.controlValue = AXValue(isRadio(node.role) || *n != 1 ? 1.0 : 0.0);
    }
    return AXError::success;
  }
  if (node.press == "open") {
    for (NodeId window : tree.windows)
      if (tree.nodes.at(window).title == node.opens) {
        tree.nodes.at(window).minimized = false;
        raiseWindow(tree, window);
        return AXError::success;
      }
    SimWindow window;
    window.title = node.opens;
    const NodeId opened = addWindow(tree, window);
    raiseWindow(tree, opened);
  }
  return AXError::success;
}

}  // namespace orla::sim
