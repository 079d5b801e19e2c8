// DesktopWords: the few words of the plugins' sentences that name something
// only macOS has ("this Mac", System Settings → Privacy & Security →
// Accessibility, the Finder), and what the desktop the plugins run on calls
// the same thing. The plugins write macOS's words; the host shows each
// sentence through `adapt`, so a sentence stays exactly as written on macOS
// and the simulated desktop, and reads true on another desktop.
#pragma once

#include <orla/export.h>

#include <span>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

struct PhraseReplacement {
  std::string_view macOS;  // as the sentences write it
  std::string_view here;   // what the desktop says instead
};

class DesktopWords {
 public:
  // macOS's own words: nothing is replaced.
  DesktopWords() = default;
  // The phrases are tried in order at each place of a sentence, so a longer
  // phrase goes before a shorter one it contains.
  explicit DesktopWords(std::span<const PhraseReplacement> table) : table_(table) {}

  std::string adapt(std::string_view sentence) const;

  // The words of the desktop a platform drives, by its name ("linux",
  // "sim", "macos"): the simulated desktop and macOS keep macOS's words.
  static DesktopWords of(std::string_view platformName);

 private:
  std::span<const PhraseReplacement> table_;
};

}  // namespace orla
