// Stand-ins for desktop services a backend does not offer yet. They never
// crash and never pretend: reads find nothing, writes fail with one sentence.
#pragma once

#include <orla/export.h>

#include <orla/platform/accessibility.h>
#include <orla/platform/alerts.h>
#include <orla/platform/displays.h>
#include <orla/platform/events.h>
#include <orla/platform/keychain.h>
#include <orla/platform/pasteboard.h>
#include <orla/platform/popup_menus.h>
#include <orla/platform/scripting.h>
#include <orla/platform/sound.h>

namespace orla ORLA_EXPORT {

class UnavailablePasteboard : public Pasteboard {
 public:
  std::optional<std::string> text() const override { return std::nullopt; }
  Checked<void> setText(std::string_view) override {
    return fail("The clipboard is not available on this desktop in this build of Orla.");
  }
  std::int64_t changeCount() const override { return 0; }
  PasteboardSnapshot snapshot() const override { return {}; }
  Checked<void> restore(const PasteboardSnapshot&) override {
    return fail("The clipboard is not available on this desktop in this build of Orla.");
  }
};

class UnavailableScripting : public Scripting {
 public:
  Checked<std::unique_ptr<Script>> compile(std::string_view) override {
    return fail("AppleScript is not available on this desktop; it needs macOS.");
  }
  Checked<LoadedScript> load(std::string_view) override {
    return fail("AppleScript is not available on this desktop; it needs macOS.");
  }
};

class UnavailableSounds : public Sounds {
 public:
  Checked<std::unique_ptr<Sound>> systemSound(std::string_view) override {
    return fail("Playing sounds is not available on this desktop in this build of Orla.");
  }
  Checked<std::unique_ptr<Sound>> soundFile(std::string_view) override {
    return fail("Playing sounds is not available on this desktop in this build of Orla.");
  }
};

class UnavailableKeyboardEvents : public KeyboardEvents {
 public:
  Checked<std::unique_ptr<EventSource>> createEventSource(EventSourceState) override {
    return fail("Keyboard events are not available on this desktop in this build of Orla.");
  }
};

// Reports the process as not trusted, and every call as refused, the way
// the system answers an untrusted process. Plugins that see the capability
// missing say so with `kAccessibilityUnavailable`.
class UnavailableAccessibility : public Accessibility {
 public:
  bool isProcessTrusted() const override { return false; }
  AXElement applicationElement(ProcessId) override { return AXElement(); }
  AXResult<AXValue> copyAttributeValue(const AXElement&, std::string_view) override {
    return AXError::apiDisabled;
  }
  AXError setAttributeValue(const AXElement&, std::string_view, const AXValue&) override {
    return AXError::apiDisabled;
  }
  AXError performAction(const AXElement&, std::string_view) override { return AXError::apiDisabled; }
};

class UnavailableMouseEvents : public MouseEvents {
 public:
  Checked<Point> pointerLocation() const override { return fail(std::string(kMouseEventsUnavailable)); }
  Checked<void> post(const MouseEvent&) override { return fail(std::string(kMouseEventsUnavailable)); }
  Checked<void> postScrollWheel(std::int32_t) override { return fail(std::string(kMouseEventsUnavailable)); }
};

// No screens are known.
class UnavailableDisplays : public Displays {
 public:
  std::optional<Rect> mainDisplayBounds() const override { return std::nullopt; }
  std::vector<Screen> screens() const override { return {}; }
  std::optional<Screen> mainScreen() const override { return std::nullopt; }
};

class UnavailablePopupMenus : public PopupMenus {
 public:
  Checked<std::optional<std::size_t>> popUpAtMouse(std::span<const MenuItem>) override {
    return fail("Pop-up menus are not available on this desktop in this build of Orla.");
  }
  Checked<std::optional<MenuItemPath>> popUpNestedAtMouse(std::span<const MenuItem>) override {
    return fail("Pop-up menus are not available on this desktop in this build of Orla.");
  }
};

class UnavailableAlerts : public Alerts {
 public:
  Checked<int> runModal(const Alert&) override {
    return fail("Messages are not available on this desktop in this build of Orla.");
  }
};

// No keychain yet: every item reads as absent, the way a locked keychain
// answers, and writes are refused.
class UnavailableKeychain : public Keychain {
 public:
  KeychainLookup copyPassword(std::string_view, std::string_view) const override {
    return {KeychainStatus::unavailable, std::nullopt};
  }
  KeychainStatus addPassword(std::string_view, std::string_view, std::string_view) override {
    return KeychainStatus::unavailable;
  }
  KeychainStatus deletePassword(std::string_view, std::string_view) override {
    return KeychainStatus::unavailable;
  }
};

}  // namespace orla
