#include "plugins/input/accessibility_readers.h"

namespace orla {

std::optional<std::string> AXReader::string(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asString() || value->asString()->empty()) return std::nullopt;
  return *value->asString();
}

std::optional<bool> AXReader::boolean(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asBool()) return std::nullopt;
  return *value->asBool();
}

std::optional<double> AXReader::number(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asNumber()) return std::nullopt;
  return *value->asNumber();
}

std::optional<Point> AXReader::point(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asPoint()) return std::nullopt;
  return *value->asPoint();
}

std::optional<Size> AXReader::size(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asSize()) return std::nullopt;
  return *value->asSize();
}

std::optional<AXElement> AXReader::element(const AXElement& element, std::string_view attribute) const {
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asElement() || !*value->asElement()) return std::nullopt;
  return *value->asElement();
}

std::vector<AXElement> AXReader::elements(const AXElement& element, std::string_view attribute) const {
  std::vector<AXElement> out;
  auto value = ax_.copyAttributeValue(element, attribute);
  if (!value || !value->asList()) return out;
  for (const AXValue& item : *value->asList())
    if (const AXElement* e = item.asElement(); e && *e) out.push_back(*e);
  return out;
}

std::vector<AXElement> AXReader::children(const AXElement& element) const {
  return elements(element, "AXChildren");
}

std::string AXReader::role(const AXElement& element) const { return string(element, "AXRole").value_or(""); }

std::string AXReader::subrole(const AXElement& element) const {
  return string(element, "AXSubrole").value_or("");
}

std::string AXReader::title(const AXElement& element) const {
  if (auto title = string(element, "AXTitle")) return *title;
  return role(element) == "AXMenuBarItem" ? "Apple" : "";
}

bool AXReader::isEnabled(const AXElement& element) const {
  return boolean(element, "AXEnabled").value_or(true);
}

bool AXReader::isMarked(const AXElement& element) const {
  return string(element, "AXMenuItemMarkChar").has_value();
}

std::optional<AXElement> AXReader::submenu(const AXElement& element) const {
  if (role(element) == "AXMenu") return element;
  for (const AXElement& child : children(element))
    if (role(child) == "AXMenu") return child;
  return std::nullopt;
}

std::optional<AXElement> AXReader::menuBar(ProcessId pid) const {
  return element(ax_.applicationElement(pid), "AXMenuBar");
}

std::optional<AXElement> AXReader::window(ProcessId pid, std::string_view attribute) const {
  const AXElement app = ax_.applicationElement(pid);
  if (auto window = element(app, attribute)) return window;
  auto all = elements(app, "AXWindows");
  if (all.empty()) return std::nullopt;
  return all.front();
}

std::vector<AXElement> AXReader::windows(ProcessId pid) const {
  return elements(ax_.applicationElement(pid), "AXWindows");
}

std::optional<Rect> AXReader::frame(const AXElement& element) const {
  const auto position = point(element, "AXPosition");
  if (!position) return std::nullopt;
  const auto extent = size(element, "AXSize");
  if (!extent) return std::nullopt;
  return Rect{position->x, position->y, extent->width, extent->height};
}

bool AXReader::perform(const AXElement& element, std::string_view action) const {
  return ax_.performAction(element, action) == AXError::success;
}

bool AXReader::set(const AXElement& element, std::string_view attribute, const AXValue& value) const {
  return ax_.setAttributeValue(element, attribute, value) == AXError::success;
}

Checked<void> requireAccessibility(Platform& platform, std::string_view permissionSentence) {
  if (!platform.supports(Capability::accessibility)) return fail(std::string(kAccessibilityUnavailable));
  if (!platform.accessibility().isProcessTrusted()) return fail(std::string(permissionSentence));
  return {};
}

}  // namespace orla
