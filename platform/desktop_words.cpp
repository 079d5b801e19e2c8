#include <orla/platform/desktop_words.h>

#if defined(__linux__)
#include "platform/linux/linux_words.h"
#endif

namespace orla {

std::string DesktopWords::adapt(std::string_view sentence) const {
  if (table_.empty()) return std::string(sentence);
  std::string out;
  out.reserve(sentence.size());
  for (std::size_t i = 0; i < sentence.size();) {
    bool replaced = false;
    for (const PhraseReplacement& phrase : table_) {
      if (!phrase.macOS.empty() && sentence.substr(i).starts_with(phrase.macOS)) {
        out += phrase.here;
        i += phrase.macOS.size();
        replaced = true;
        break;
      }
    }
    if (!replaced) out += sentence[i++];
  }
  return out;
}

DesktopWords DesktopWords::of(std::string_view platformName) {
#if defined(__linux__)
  if (platformName == "linux") return linux_desktop::linuxWords();
#endif
  (void)platformName;
  return DesktopWords();
}

}  // namespace orla
