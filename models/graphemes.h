// User-perceived characters (extended grapheme clusters) of UTF-8 text,
// walked without converting the whole text to UTF-16.
//
// Between two code points that both belong to the grapheme classes Other,
// Control, CR or LF there is always a boundary (except CR LF), so such text,
// ASCII above all, is split here directly. Only the stretches between such
// sure boundaries (combining marks, emoji sequences, Hangul syllables,
// regional-indicator flags) go to ICU's character break iterator. The
// boundaries are exactly ICU's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orla {

namespace graphemes_detail {

// What the walker needs to know of a code point's grapheme class.
enum Kind : std::uint8_t {
  other,    // Other, and Hangul syllables: break against one another
  cr,       // CR
  lf,       // LF
  control,  // Control
  mark,      // Extend or SpacingMark: joins the character before
  regional,  // a regional indicator: two make a flag
  complex,   // everything else: ZWJ, Prepend, Hangul jamo
};

// The length of the code point at `i` (an invalid byte counts as one code
// point of its own, of kind `other`) and its kind.
struct CodePoint {
  std::uint32_t length;
  Kind kind;
};
CodePoint classifyNonAscii(std::string_view text, std::size_t i);

// The kind of every code point of the Basic Multilingual Plane, looked up
// once from ICU: most text never needs ICU per character.
const Kind* bmpKinds();

// The code point at `i`, which is not ASCII: two- and three-byte sequences
// are decoded here and looked up in `table`, the rest is left to ICU.
inline CodePoint classify(std::string_view text, std::size_t i, const Kind* table) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  const unsigned char c = s[i];
  if (c >= 0xC2 && c <= 0xDF && i + 1 < n && (s[i + 1] & 0xC0) == 0x80)
    return {2, table[((c & 0x1Fu) << 6) | (s[i + 1] & 0x3Fu)]};
  if (c >= 0xE0 && c <= 0xEF && i + 2 < n && (s[i + 1] & 0xC0) == 0x80 && (s[i + 2] & 0xC0) == 0x80) {
    const unsigned cp = ((c & 0x0Fu) << 12) | ((s[i + 1] & 0x3Fu) << 6) | (s[i + 2] & 0x3Fu);
    // Overlong forms and surrogates are invalid: ICU decides those.
    if (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) return {3, table[cp]};
  }
  return classifyNonAscii(text, i);
}

// ICU's cluster boundaries inside `piece`, as offsets from its start, each
// cluster's end (the last one is piece.size()).
void complexBoundaries(std::string_view piece, std::vector<std::uint32_t>& ends);

}  // namespace graphemes_detail

// Calls visit(begin, end) with the byte offsets of every user-perceived
// character of `text`, in order. Stops early when visit returns false.
template <class Visit>
void forEachGrapheme(std::string_view text, Visit&& visit) {
  using namespace graphemes_detail;
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::size_t pieceStart = 0;
  std::size_t pieceCodePoints = 0;
  // Whether the piece so far is a letter or the like followed by marks only,
  // which makes it one character (the common case of accents and emoji
  // skin tones, decided here without the break iterator).
  bool pieceIsMarked = false;
  // Whether the piece is only regional indicators: flags, two by two.
  bool pieceIsFlags = false;
  Kind prev = other;
  std::vector<std::uint32_t> ends;
  const Kind* table = bmpKinds();
  const auto flush = [&](std::size_t end) -> bool {
    if (pieceCodePoints == 1 || pieceIsMarked) return visit(pieceStart, end);
    if (pieceIsFlags) {
      for (std::size_t at = pieceStart; at < end; at += 8)  // each indicator is four bytes
        if (!visit(at, at + 8 <= end ? at + 8 : end)) return false;
      return true;
    }
    ends.clear();
    complexBoundaries(text.substr(pieceStart, end - pieceStart), ends);
    std::size_t begin = pieceStart;
    for (std::uint32_t e : ends) {
      if (!visit(begin, pieceStart + e)) return false;
      begin = pieceStart + e;
    }
    return true;
  };
  std::size_t i = 0;
  while (i < n) {
    CodePoint cp;
    const unsigned char c = s[i];
    if (c < 0x80) cp = {1, c == '\r' ? cr : c == '\n' ? lf : (c < 0x20 || c == 0x7F) ? control : other};
    else cp = classify(text, i, table);
    // A regional indicator breaks against anything simple, only not
    // against another indicator.
    const bool simple = cp.kind <= control || cp.kind == regional;
    const bool prevSimple = prev <= control || prev == regional;
    if (pieceCodePoints > 0 && prevSimple && simple && !(prev == cr && cp.kind == lf) &&
        !(prev == regional && cp.kind == regional)) {
      if (!flush(i)) return;
      pieceStart = i;
      pieceCodePoints = 0;
    }
    pieceIsMarked = pieceCodePoints == 0 ? false : pieceCodePoints == 1 ? (prev == other && cp.kind == mark)
                                                                         : (pieceIsMarked && cp.kind == mark);
    pieceIsFlags = cp.kind == regional && cp.length == 4 && (pieceCodePoints == 0 || pieceIsFlags);
    ++pieceCodePoints;
    prev = cp.kind;
    i += cp.length;
  }
  if (pieceCodePoints > 0) flush(n);
}

// The number of user-perceived characters.
std::size_t graphemeCount(std::string_view text);

// The first `count` user-perceived characters (all of them when there are
// fewer), and whether any were left out.
struct GraphemePrefix {
  std::string_view prefix;
  bool truncated;
};
GraphemePrefix graphemePrefix(std::string_view text, std::size_t count);

}  // namespace orla
