// The accessibility helpers the menu, window and mouse plugins share: the
// element wrapper `AXBox` and `AXReader`, which reads attributes the way
// these plugins need them. A reader never fails loudly: what cannot be read,
// or is not of the kind asked for, reads as absent, and the plugin decides
// what that means for the user.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>
#include <orla/platform/platform.h>

namespace orla {

// Holds one element, shared, so that it can be attached to a pop-up menu
// entry and acted on when the entry is chosen.
class AXBox {
 public:
  explicit AXBox(AXElement element) : element_(std::move(element)) {}
  const AXElement& element() const { return element_; }

 private:
  AXElement element_;
};

class AXReader {
 public:
  explicit AXReader(Accessibility& accessibility) : ax_(accessibility) {}

  // A text; a missing, failed or non-text value, or an empty text, is none.
  std::optional<std::string> string(const AXElement& element, std::string_view attribute) const;
  std::optional<bool> boolean(const AXElement& element, std::string_view attribute) const;
  std::optional<double> number(const AXElement& element, std::string_view attribute) const;
  std::optional<Point> point(const AXElement& element, std::string_view attribute) const;
  std::optional<Size> size(const AXElement& element, std::string_view attribute) const;
  std::optional<AXElement> element(const AXElement& element, std::string_view attribute) const;
  // The elements of a list, leaving out values that are not elements; a
  // failure is an empty list.
  std::vector<AXElement> elements(const AXElement& element, std::string_view attribute) const;

  std::vector<AXElement> children(const AXElement& element) const;
  std::string role(const AXElement& element) const;
  std::string subrole(const AXElement& element) const;
  // "AXTitle" for matching and listing; the menu bar item without a title
  // is the Apple menu.
  std::string title(const AXElement& element) const;
  // "AXEnabled"; what cannot be read as a Boolean counts as enabled.
  bool isEnabled(const AXElement& element) const;
  // Whether "AXMenuItemMarkChar" is set.
  bool isMarked(const AXElement& element) const;
  // The element itself when it is a menu, else its first child that is one.
  std::optional<AXElement> submenu(const AXElement& element) const;
  // The application's "AXMenuBar".
  std::optional<AXElement> menuBar(ProcessId pid) const;

  // The application's window named by `attribute` ("AXFocusedWindow",
  // "AXMainWindow"), else the first of its "AXWindows".
  std::optional<AXElement> window(ProcessId pid, std::string_view attribute) const;
  std::vector<AXElement> windows(ProcessId pid) const;
  // "AXPosition" and "AXSize" together.
  std::optional<Rect> frame(const AXElement& element) const;

  bool perform(const AXElement& element, std::string_view action) const;
  bool set(const AXElement& element, std::string_view attribute, const AXValue& value) const;

  Accessibility& accessibility() const { return ax_; }

 private:
  Accessibility& ax_;
};

// Whether the accessibility interface can be used: a sentence when this
// desktop has none (`kAccessibilityUnavailable`), or the caller's own
// permission sentence when this process is not trusted.
Checked<void> requireAccessibility(Platform& platform, std::string_view permissionSentence);

}  // namespace orla
