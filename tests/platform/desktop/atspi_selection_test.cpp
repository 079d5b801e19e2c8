// The selection of a real GTK application's text field over the
// accessibility bus: read as the field's own selected text, which the
// speech action speaks without touching the clipboard.
#include <gtest/gtest.h>

#include <cstdlib>

#include "plugins/input/accessibility_readers.h"
#include "plugins/system/speech_plugin.h"
#include "tests/platform/desktop/gtk_app.h"

namespace orla::desktop_testing {
namespace {

// The first element under `root` with this placeholder, depth first.
std::optional<AXElement> find(AXReader& reader, const AXElement& root, std::string_view placeholder, int depth = 0) {
  if (depth > 12) return std::nullopt;
  for (const AXElement& child : reader.children(root)) {
    if (reader.string(child, "AXPlaceholderValue") == placeholder) return child;
    if (auto found = find(reader, child, placeholder, depth + 1)) return found;
  }
  return std::nullopt;
}

TEST(AtspiSelection, TheFocusedFieldsSelectionIsReadAndSpoken) {
  if (const std::string why = accessibilityBusUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  auto platform = Platform::current();
  Accessibility& ax = platform->accessibility();
  AXReader reader(ax);
  const auto window = reader.window(app.app().pid(), "AXFocusedWindow");
  ASSERT_TRUE(window);
  const auto field = find(reader, *window, "Your name");
  ASSERT_TRUE(field);
  ASSERT_EQ(ax.setAttributeValue(*field, "AXValue", AXValue("read this aloud")), AXError::success);
  // GTK selects an entry's whole text when it takes the focus.
  ASSERT_EQ(ax.setAttributeValue(*field, "AXFocused", AXValue(true)), AXError::success);
  const auto focused = reader.element(ax.applicationElement(app.app().pid()), "AXFocusedUIElement");
  ASSERT_TRUE(focused);
  EXPECT_EQ(reader.string(*focused, "AXSelectedText"), "read this aloud");

  if (!std::getenv("ORLA_HARNESS_SINK")) GTEST_SKIP() << "no sound server: the headless desktop's PulseAudio is not running";
  SpeechPlugin::resetSpeaker();
  SpeechPlugin plugin(platform);
  // Read from the field itself: nothing is copied, so the clipboard never
  // changes hands.
  const auto changes = platform->pasteboard().changeCount();
  EXPECT_EQ(plugin.execute({{"subAction", "speakSelection"}, {"wait", false}}),
            PluginResult::success("Speaking 3 words."));
  EXPECT_EQ(platform->pasteboard().changeCount(), changes);
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Stopped speaking."));
  SpeechPlugin::resetSpeaker();
}

}  // namespace
}  // namespace orla::desktop_testing
