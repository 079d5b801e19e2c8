// KeyboardEvents: synthetic keyboard events posted to the system's event tap,
// as a physical keyboard would produce them.
// Thread safety: every method may be called from any thread; one EventSource
// is used by one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "models/checked.h"

namespace orla {

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
};

class KeyboardEvents {
 public:
  virtual ~KeyboardEvents() = default;
  // A source of events; the failure says why there is none.
  virtual Checked<std::unique_ptr<EventSource>> createEventSource(EventSourceState state) = 0;
};

}  // namespace orla
