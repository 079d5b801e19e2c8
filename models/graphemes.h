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

// The length of the code point at `i` (an invalid byte counts as one code
// point of its own) and whether it is "simple": of grapheme class Other,
// Control, CR or LF. `kind` is 1 for CR, 2 for LF, 0 otherwise.
struct CodePoint {
  std::uint32_t length;
  bool simple;
  std::uint8_t kind;
};
CodePoint classifyNonAscii(std::string_view text, std::size_t i);

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
  bool prevSimple = false;
  bool prevCR = false;
  std::vector<std::uint32_t> ends;
  const auto flush = [&](std::size_t end) -> bool {
    if (pieceCodePoints == 1) return visit(pieceStart, end);
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
    if (c < 0x80) cp = {1, true, static_cast<std::uint8_t>(c == '\r' ? 1 : c == '\n' ? 2 : 0)};
    else cp = classifyNonAscii(text, i);
    if (pieceCodePoints > 0 && prevSimple && cp.simple && !(prevCR && cp.kind == 2)) {
      if (!flush(i)) return;
      pieceStart = i;
      pieceCodePoints = 0;
    }
    ++pieceCodePoints;
    prevSimple = cp.simple;
    prevCR = cp.kind == 1;
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
