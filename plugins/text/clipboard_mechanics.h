// The clipboard work shared by the text-transform and clipboard actions:
// plain-text reads and writes, the change count, snapshots, Command-key
// chords, and copying the selection of the application in front. Every
// clipboard access runs on the main thread; the waits block the caller.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>
#include <orla/platform/platform.h>

namespace orla {

namespace key_codes {
inline constexpr KeyCode x = 7;
inline constexpr KeyCode c = 8;
inline constexpr KeyCode v = 9;
}  // namespace key_codes

inline constexpr std::string_view kKeyEventsFailed = "Failed to create keyboard events";

// What copying the selection brought.
struct CopiedSelection {
  enum class Outcome {
    text,            // `text` holds it (possibly empty)
    nothingCopied,   // the clipboard did not change within a second
    notText,         // it changed, but holds no plain text
    eventsFailed,    // the chord could not be posted
  };
  Outcome outcome;
  std::string text;
};

class ClipboardMechanics {
 public:
  explicit ClipboardMechanics(Platform& platform) : platform_(platform) {}

  std::optional<std::string> readText();
  Checked<void> writeText(std::string_view text);
  // The same, handing the text to the clipboard instead of copying it.
  Checked<void> takeText(std::string text);
  std::int64_t changeCount();
  PasteboardSnapshot snapshot();
  Checked<void> restore(const PasteboardSnapshot& snapshot);

  // Command plus `key`, down and up, from a private event source, then a
  // pause of 0.1 s for the application to act. Fails with
  // "Failed to create keyboard events".
  Checked<void> postCommandChord(KeyCode key);

  // Posts Command-C (or Command-X) and waits up to a second for the
  // clipboard to change.
  CopiedSelection copySelection(KeyCode key = key_codes::c);

  // A pause that the simulated desktop records rather than sleeps.
  void wait(std::chrono::microseconds duration) { platform_.clock().sleep(duration); }

 private:
  Platform& platform_;
};

}  // namespace orla
