#include "models/graphemes.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <memory>

namespace orla {

namespace graphemes_detail {

namespace {

Kind kindOf(UChar32 c) {
  switch (u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_OTHER:
    case U_GCB_LV:
    case U_GCB_LVT: return other;
    case U_GCB_REGIONAL_INDICATOR: return regional;
    case U_GCB_CONTROL: return control;
    case U_GCB_CR: return cr;
    case U_GCB_LF: return lf;
    case U_GCB_EXTEND:
    case U_GCB_SPACING_MARK: return mark;
    default: return complex;
  }
}

}  // namespace

const Kind* bmpKinds() {
  static const std::vector<Kind> table = [] {
    std::vector<Kind> kinds(0x10000);
    for (UChar32 c = 0; c < 0x10000; ++c) kinds[static_cast<size_t>(c)] = kindOf(c);
    return kinds;
  }();
  return table.data();
}

CodePoint classifyNonAscii(std::string_view text, std::size_t i) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(text.size());
  auto next = static_cast<int32_t>(i);
  UChar32 c;
  U8_NEXT(s, next, n, c);
  const auto length = static_cast<std::uint32_t>(next - static_cast<int32_t>(i));
  // An invalid sequence stands alone, as the U+FFFD it decodes to would.
  if (c < 0) return {length, other};
  return {length, kindOf(c)};
}

void complexBoundaries(std::string_view piece, std::vector<std::uint32_t>& ends) {
  // UTF-16 of the piece with the UTF-8 offset of every unit, so that ICU's
  // boundaries map back to bytes; invalid bytes decode to U+FFFD.
  thread_local std::u16string units;
  thread_local std::vector<std::uint32_t> offsets;
  units.clear();
  offsets.clear();
  const auto* s = reinterpret_cast<const uint8_t*>(piece.data());
  const auto n = static_cast<int32_t>(piece.size());
  for (int32_t i = 0; i < n;) {
    const int32_t start = i;
    UChar32 c;
    U8_NEXT(s, i, n, c);
    if (c < 0) c = 0xFFFD;
    if (c <= 0xFFFF) {
      units.push_back(static_cast<char16_t>(c));
      offsets.push_back(static_cast<std::uint32_t>(start));
    } else {
      units.push_back(static_cast<char16_t>(U16_LEAD(c)));
      units.push_back(static_cast<char16_t>(U16_TRAIL(c)));
      offsets.push_back(static_cast<std::uint32_t>(start));
      offsets.push_back(static_cast<std::uint32_t>(start));
    }
  }
  offsets.push_back(static_cast<std::uint32_t>(n));

  thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> it(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    return U_SUCCESS(status) ? std::move(it) : nullptr;
  }();
  if (!iterator) {  // no break data: one code point per character
    for (std::size_t k = 1; k < offsets.size(); ++k)
      if (offsets[k] != offsets[k - 1]) ends.push_back(offsets[k]);
    return;
  }
  UErrorCode status = U_ZERO_ERROR;
  UText text = UTEXT_INITIALIZER;
  utext_openUChars(&text, units.data(), static_cast<int64_t>(units.size()), &status);
  iterator->setText(&text, status);
  for (int32_t end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next())
    ends.push_back(offsets[static_cast<std::size_t>(end)]);
  utext_close(&text);
}

}  // namespace graphemes_detail

std::size_t graphemeCount(std::string_view text) {
  std::size_t count = 0;
  forEachGrapheme(text, [&](std::size_t, std::size_t) {
    ++count;
    return true;
  });
  return count;
}

GraphemePrefix graphemePrefix(std::string_view text, std::size_t count) {
  if (count == 0) return {text.substr(0, 0), !text.empty()};
  std::size_t seen = 0, end = 0;
  bool more = false;
  forEachGrapheme(text, [&](std::size_t, std::size_t e) {
    if (seen == count) {
      more = true;
      return false;
    }
    ++seen;
    end = e;
    return true;
  });
  return {text.substr(0, end), more};
}

}  // namespace orla
