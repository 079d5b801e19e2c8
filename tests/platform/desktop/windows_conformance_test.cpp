// A window of the front application through the accessibility interface:
// its geometry and states read back as set, its title-bar buttons work, and
// what the desktop cannot show is refused rather than invented.
#include <gtest/gtest.h>

#include <thread>

#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

template <class Backend>
class WindowsConformance : public DesktopTest<Backend> {
 protected:
  Accessibility& ax() { return this->platform().accessibility(); }
  std::vector<AXElement> windowsOf(ProcessId pid) {
    std::vector<AXElement> out;
    auto list = ax().copyAttributeValue(ax().applicationElement(pid), "AXWindows");
    if (list && list->asList())
      for (const AXValue& v : *list->asList())
        if (v.asElement()) out.push_back(*v.asElement());
    return out;
  }
  std::optional<AXElement> button(const AXElement& window, std::string_view subrole) {
    auto children = ax().copyAttributeValue(window, "AXChildren");
    if (!children || !children->asList()) return std::nullopt;
    for (const AXValue& child : *children->asList()) {
      if (!child.asElement()) continue;
      auto role = ax().copyAttributeValue(*child.asElement(), "AXSubrole");
      if (role && role->asString() && *role->asString() == subrole) return *child.asElement();
    }
    return std::nullopt;
  }
  Point position(const AXElement& w) { return *ax().copyAttributeValue(w, "AXPosition")->asPoint(); }
  Size size(const AXElement& w) { return *ax().copyAttributeValue(w, "AXSize")->asSize(); }
};

TYPED_TEST_SUITE(WindowsConformance, DesktopBackends, DesktopBackendNames);

TYPED_TEST(WindowsConformance, TheFocusedWindowMovesResizesMinimizesZoomsAndCloses) {
  ASSERT_TRUE(this->platform().supports(Capability::accessibility));
  ASSERT_TRUE(this->ax().isProcessTrusted());
  auto receiver = this->backend->receiver();
  const AXElement app = this->ax().applicationElement(receiver->process());
  EXPECT_EQ(*this->ax().copyAttributeValue(app, "AXRole")->asString(), "AXApplication");
  const auto windows = this->windowsOf(receiver->process());
  ASSERT_EQ(windows.size(), 1u);
  auto focused = this->ax().copyAttributeValue(app, "AXFocusedWindow");
  ASSERT_TRUE(focused);
  const AXElement window = *focused->asElement();
  EXPECT_EQ(window, windows.front()) << "one window, one element";
  EXPECT_EQ(*this->ax().copyAttributeValue(window, "AXRole")->asString(), "AXWindow");
  EXPECT_EQ(*this->ax().copyAttributeValue(window, "AXTitle")->asString(), "Orla test window");

  for (const Point to : {Point{200, 150}, Point{60, 90}}) {
    ASSERT_EQ(this->ax().setAttributeValue(window, "AXPosition", to), AXError::success);
    EXPECT_EQ(this->position(window), to);
  }
  ASSERT_EQ(this->ax().setAttributeValue(window, "AXSize", Size{520, 340}), AXError::success);
  EXPECT_EQ(this->size(window), (Size{520, 340}));
  EXPECT_EQ(this->position(window), (Point{60, 90})) << "a resize keeps the top left corner";

  for (const bool minimized : {true, false}) {
    ASSERT_EQ(this->ax().setAttributeValue(window, "AXMinimized", minimized), AXError::success);
    EXPECT_EQ(*this->ax().copyAttributeValue(window, "AXMinimized")->asBool(), minimized);
  }

  const auto zoom = this->button(window, "AXZoomButton");
  ASSERT_TRUE(zoom);
  ASSERT_EQ(this->ax().performAction(*zoom, "AXPress"), AXError::success);
  EXPECT_NE(this->size(window), (Size{520, 340})) << "zoomed";
  ASSERT_EQ(this->ax().performAction(*zoom, "AXPress"), AXError::success);
  EXPECT_EQ(this->size(window), (Size{520, 340})) << "and back";

  const auto close = this->button(window, "AXCloseButton");
  ASSERT_TRUE(close);
  ASSERT_EQ(this->ax().performAction(*close, "AXPress"), AXError::success);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!this->windowsOf(receiver->process()).empty() && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(this->windowsOf(receiver->process()).empty()) << "the window closed";
}

TYPED_TEST(WindowsConformance, WhatTheDesktopCannotShowIsRefused) {
  auto receiver = this->backend->receiver();
  const AXElement app = this->ax().applicationElement(receiver->process());
  EXPECT_FALSE(this->ax().copyAttributeValue(app, "AXSurelyNotAnAttribute"));
  const AXElement window = *this->ax().copyAttributeValue(app, "AXFocusedWindow")->asElement();
  EXPECT_FALSE(this->ax().copyAttributeValue(window, "AXSurelyNotAnAttribute"));
  EXPECT_NE(this->ax().setAttributeValue(window, "AXPosition", AXValue("not a point")), AXError::success);
  EXPECT_NE(this->ax().performAction(window, "AXSurelyNotAnAction"), AXError::success);
  const ProcessId gone = 0x3FFFFFF0;
  EXPECT_FALSE(this->ax().copyAttributeValue(this->ax().applicationElement(gone), "AXWindows"));
}

}  // namespace
}  // namespace orla::desktop_testing
