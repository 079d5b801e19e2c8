// KeyboardEvents and MouseEvents: synthetic keyboard and mouse events posted
// to the system's event tap, as a physical keyboard or mouse would produce
// them.
// Thread safety: every method may be called from any thread; one EventSource
// is used by one thread at a time.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <orla/models/checked.h>
#include <orla/models/geometry.h>

namespace orla ORLA_EXPORT {

// A virtual key code of the macOS layout (US keyboard: 0 is A, 9 is V, 55 is
// Command); backends translate it to their own keys.
using KeyCode = std::uint16_t;
// The flag word of an event, in the macOS bit layout.
using EventFlags = std::uint64_t;

namespace event_flags {
inline constexpr EventFlags capsLock = 0x10000;
inline constexpr EventFlags shift = 0x20000;
inline constexpr EventFlags control = 0x40000;
inline constexpr EventFlags option = 0x80000;
inline constexpr EventFlags command = 0x100000;
inline constexpr EventFlags function = 0x800000;
// The six modifier bits; anything else in a flag word is dropped.
inline constexpr EventFlags modifierMask = 0x9F0000;
}  // namespace event_flags

struct KeyboardEvent {
  KeyCode keyCode = 0;
  bool keyDown = true;
  EventFlags flags = 0;
  // When set, the text the event types, whatever the key (UTF-16 units, as
  // the system carries them).
  std::u16string unicodeString;
  friend bool operator==(const KeyboardEvent&, const KeyboardEvent&) = default;
};

// Whose modifier state a source reports: the hardware's, or its own.
enum class EventSourceState { privateState, hidSystem };

class EventSource {
 public:
  virtual ~EventSource() = default;
  // Creates the event and posts it to the HID event tap. Fails when the event
  // cannot be created.
  virtual Checked<void> post(const KeyboardEvent& event) = 0;
  // The text about to be typed through this source, one character event
  // after another: a source whose keyboard lacks keys for some characters
  // can prepare them ahead of time. Only a hint; events may differ.
  virtual void willType(std::u16string_view text) { (void)text; }
};

class KeyboardEvents {
 public:
  virtual ~KeyboardEvents() = default;
  // A source of events; the failure says why there is none.
  virtual Checked<std::unique_ptr<EventSource>> createEventSource(EventSourceState state) = 0;
};

// The mouse event types, numbered as the system numbers them.
enum class MouseEventType : int {
  leftMouseDown = 1,
  leftMouseUp = 2,
  rightMouseDown = 3,
  rightMouseUp = 4,
  mouseMoved = 5,
  leftMouseDragged = 6,
};

struct MouseEvent {
  MouseEventType type = MouseEventType::mouseMoved;
  // In event coordinates: origin at the top left of the main display, y
  // growing downwards.
  Point location;
  // The event's click state (1 for a single click, 2 for the second click
  // of a double click) and button number (0 left, 1 right).
  std::int64_t clickState = 0;
  std::int64_t buttonNumber = 0;
  friend bool operator==(const MouseEvent&, const MouseEvent&) = default;
};

// The sentence a desktop without synthetic mouse events gives.
inline constexpr std::string_view kMouseEventsUnavailable =
    "Mouse events are not available on this desktop in this build of Orla.";

class MouseEvents {
 public:
  virtual ~MouseEvents() = default;
  // Where the pointer is now, in event coordinates. Fails when no event can
  // be created to ask.
  virtual Checked<Point> pointerLocation() const = 0;
  // Creates the event with its fields and posts it to the HID event tap.
  // Fails when the event cannot be created.
  virtual Checked<void> post(const MouseEvent& event) = 0;
  // One scroll-wheel event of `lines` lines on the one (vertical) wheel;
  // positive scrolls up, as the system counts.
  virtual Checked<void> postScrollWheel(std::int32_t lines) = 0;
};

}  // namespace orla
