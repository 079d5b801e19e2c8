#include "plugins/input/menu_path.h"

#include <algorithm>

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <orla/models/icu_support.h>
#include <orla/models/text.h>

namespace orla {

Selection selectionFromRaw(std::int64_t raw, Selection fallback) {
  if (raw < 0 || raw > 5) return fallback;
  return static_cast<Selection>(raw);
}

bool selectsByIndex(Selection selection) {
  return selection == Selection::index || selection == Selection::indexReverse;
}

std::string PathStep::label() const {
  if (selectsByIndex(selection))
    return std::string(selection == Selection::index ? "#" : "#-").append(std::to_string(index));
  return name;
}

std::string pathLabel(std::span<const PathStep> steps) {
  std::string label;
  for (const PathStep& step : steps) {
    if (!label.empty()) label += " > ";
    label += step.label();
  }
  return label;
}

namespace {

std::vector<std::string> splitAt(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  for (;;) {
    const std::size_t at = text.find(separator);
    const std::string_view piece = trimWhitespaceAndNewlines(text.substr(0, at));
    if (!piece.empty()) pieces.emplace_back(piece);
    if (at == std::string_view::npos) return pieces;
    text.remove_prefix(at + separator.size());
  }
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The form two texts are compared in: "..." as "…", trimmed of spaces,
// without diacritics (decomposed, the combining marks dropped) and case
// folded, so "Résumé..." and "resume…" meet. Most titles are ASCII, where
// folding is lowercasing and there is nothing to decompose.
std::u16string comparable(std::string_view text) {
  if (isAscii(text)) {
    text = trimSpaces(text);
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
      if (text.compare(i, 3, "...") == 0) {
        out += u'\u2026';
        i += 3;
        continue;
      }
      const char c = text[i++];
      out += static_cast<char16_t>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return out;
  }
  std::string ellipsis;
  ellipsis.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, 3, "...") == 0) {
      ellipsis += "\u2026";
      i += 3;
    } else {
      ellipsis += text[i++];
    }
  }
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  icu::UnicodeString decomposed = unicodeString(trimSpaces(ellipsis));
  if (U_SUCCESS(status)) decomposed = nfd->normalize(decomposed, status);
  icu::UnicodeString bare;
  for (int32_t i = 0; i < decomposed.length();) {
    const UChar32 c = decomposed.char32At(i);
    if (u_charType(c) != U_NON_SPACING_MARK) bare.append(c);
    i += U16_LENGTH(c);
  }
  bare.foldCase(U_FOLD_CASE_DEFAULT);
  return std::u16string(bare.getBuffer(), static_cast<std::size_t>(bare.length()));
}

}  // namespace

std::vector<std::string> splitPathText(std::string_view text) {
  text = trimWhitespaceAndNewlines(text);
  if (text.empty()) return {};
  if (text.find('\n') != std::string_view::npos) {
    // Every newline character separates levels (a carriage return before a
    // line feed only leaves an empty piece, which is dropped).
    std::string unified;
    unified.reserve(text.size());
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
      const int32_t start = i;
      UChar32 c;
      U8_NEXT(bytes, i, length, c);
      if ((c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029) unified += '\n';
      else unified.append(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(i - start)));
    }
    return splitAt(unified, "\n");
  }
  if (text.find(" > ") != std::string_view::npos) return splitAt(text, " > ");
  if (text.find('>') != std::string_view::npos) return splitAt(text, ">");
  return {std::string(text)};
}

bool titleMatches(std::string_view title, std::string_view name, Selection selection) {
  return NameMatcher(name, selection).matches(title);
}

NameMatcher::NameMatcher(std::string_view name, Selection selection)
    : name_(comparable(name)), selection_(selection) {}

bool NameMatcher::matches(std::string_view title) const {
  const std::u16string t = comparable(title);
  switch (selection_) {
    case Selection::nameFull: return t == name_;
    case Selection::nameContains: return t.find(name_) != std::u16string::npos;
    case Selection::namePrefix: return t.starts_with(name_);
    case Selection::nameSuffix: return t.ends_with(name_);
    case Selection::index:
    case Selection::indexReverse: return false;
  }
  return false;
}

}  // namespace orla
