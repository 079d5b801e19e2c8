#include "models/character_prefix.h"

#include <unicode/brkiter.h>
#include <unicode/utext.h>

#include <memory>

namespace orla {

CharacterPrefix leadingCharacters(std::string_view text, std::size_t count) {
  // Fewer bytes than characters asked for: nothing to cut.
  if (text.size() <= count) return {text, false};
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UText, decltype(&utext_close)> ut(
      utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status), &utext_close);
  std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) return {text, false};
  characters->setText(ut.get(), status);
  if (U_FAILURE(status)) return {text, false};
  int32_t end = characters->first();
  for (std::size_t i = 0; i < count; ++i) {
    const int32_t next = characters->next();
    if (next == icu::BreakIterator::DONE) return {text, false};
    end = next;
  }
  if (static_cast<std::size_t>(end) >= text.size()) return {text, false};
  return {text.substr(0, static_cast<std::size_t>(end)), true};
}

}  // namespace orla
