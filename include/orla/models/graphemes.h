// User-perceived characters (extended grapheme clusters) of UTF-8 text,
// walked without converting the text to UTF-16 and without a break
// iterator.
//
// Every code point is looked up once in compact tables of its grapheme
// class (built once from ICU's property data), and a small state machine
// over those classes decides each boundary: the extended grapheme cluster
// rules as the ICU this is built with applies them (CR LF, controls, Hangul
// syllables, marks and joiners, prepended marks, emoji ZWJ sequences,
// regional-indicator flags). The boundaries are exactly ICU's character
// break iterator's, which tests check on random and tricky text.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orla ORLA_EXPORT {

namespace graphemes_detail {

// The grapheme class of a code point, with Extended_Pictographic as a class
// of its own (such code points are all of class Other otherwise).
enum Class : std::uint8_t {
  gOther,
  gCR,
  gLF,
  gControl,
  gExtend,
  gZWJ,
  gRegional,
  gPrepend,
  gSpacingMark,
  gL,
  gV,
  gT,
  gLV,
  gLVT,
  gPictographic,
  // Devanagari, Bengali, Gujarati, Oriya, Telugu and Malayalam, where a
  // virama joins two consonants into one character: those consonants, the
  // viramas, and the other combining marks (Extend with a combining class).
  gLinkingConsonant,
  gVirama,
  gExtendCombining,
  kClassCount
};

// The walker's states: what came before that matters to the next boundary.
// The first states are "the last code point was of this class"; the others
// remember an emoji sequence or the parity of a run of regional indicators.
constexpr std::uint8_t kClasses = kClassCount;
constexpr std::uint8_t sPictographicExtend = kClasses;   // a pictograph and marks after it
constexpr std::uint8_t sPictographicZWJ = kClasses + 1;  // ... and a joiner: a pictograph joins
constexpr std::uint8_t sRegionalOdd = kClasses + 2;      // an indicator that opens a flag
constexpr std::uint8_t sConjunctOpen = kClasses + 3;     // a linking consonant and marks, no virama yet
constexpr std::uint8_t sConjunctLinked = kClasses + 4;   // ... with a virama: a consonant joins
constexpr std::uint8_t kStateCount = kClasses + 5;
// A state that breaks before anything: where the text starts.
constexpr std::uint8_t kStartState = static_cast<std::uint8_t>(gControl);

// An entry of the transition table: the next state, and whether a cluster
// ends before the code point.
constexpr std::uint8_t kBreakBit = 0x80;

struct Tables {
  // The class of every code point of the Basic Multilingual Plane.
  const std::uint8_t* bmp;
  // Above it, in blocks of 256 code points: block[cp >> 8] is the offset of
  // the block's classes in `blocks`.
  const std::uint16_t* blockOf;
  const std::uint8_t* blocks;
  // transitions[state * kClasses + class].
  const std::uint8_t* transitions;
  // For every 64 code points of the Basic Multilingual Plane (cp >> 6),
  // whether all are of the plain classes below: letters, ideographs and the
  // like, which break against one another and against ASCII.
  const bool* plainBlocks;
};

// The classes after which anything plain, and any ASCII but LF, starts a
// new character; and that themselves start one after anything plain.
constexpr std::uint32_t kPlainClasses = (1u << gOther) | (1u << gPictographic) | (1u << gLinkingConsonant) |
                                        (1u << gLV) | (1u << gLVT) | (1u << gControl) | (1u << gLF);
inline bool isPlain(std::uint8_t stateOrClass) { return stateOrClass < 32 && ((kPlainClasses >> stateOrClass) & 1); }
const Tables& tables();

inline std::uint8_t classOf(const Tables& t, std::uint32_t cp) {
  if (cp < 0x10000) return t.bmp[cp];
  return t.blocks[(std::size_t{t.blockOf[cp >> 8]} << 8) | (cp & 0xFF)];
}

// The code point at `i` (well-formed or not: an invalid sequence counts as
// one U+FFFD, of class Other, as ICU reads it) and its byte length.
struct Decoded {
  std::uint32_t length;
  std::uint8_t cls;
};
Decoded decodeSlow(std::string_view text, std::size_t i);

inline Decoded decode(std::string_view text, std::size_t i, const Tables& t) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  const unsigned char c = s[i];
  if (c < 0x80) return {1, t.bmp[c]};
  if (c >= 0xC2 && c <= 0xDF && i + 1 < n && (s[i + 1] & 0xC0) == 0x80)
    return {2, t.bmp[((c & 0x1Fu) << 6) | (s[i + 1] & 0x3Fu)]};
  if (c >= 0xE0 && c <= 0xEF && i + 2 < n && (s[i + 1] & 0xC0) == 0x80 && (s[i + 2] & 0xC0) == 0x80) {
    const unsigned cp = ((c & 0x0Fu) << 12) | ((s[i + 1] & 0x3Fu) << 6) | (s[i + 2] & 0x3Fu);
    // Overlong forms and surrogates are invalid: decodeSlow reads those.
    if (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) return {3, t.bmp[cp]};
  }
  if (c >= 0xF0 && c <= 0xF4 && i + 3 < n && (s[i + 1] & 0xC0) == 0x80 && (s[i + 2] & 0xC0) == 0x80 &&
      (s[i + 3] & 0xC0) == 0x80) {
    const unsigned cp = ((c & 0x07u) << 18) | ((s[i + 1] & 0x3Fu) << 12) | ((s[i + 2] & 0x3Fu) << 6) | (s[i + 3] & 0x3Fu);
    if (cp >= 0x10000 && cp <= 0x10FFFF) return {4, classOf(t, cp)};
  }
  return decodeSlow(text, i);
}

// What the streamed reader needs to know of a code point's grapheme class:
// whether a boundary around it can be decided from it and its neighbour
// alone.
enum Kind : std::uint8_t {
  other,     // Other, pictographs and Hangul syllables: break against one another
  cr,        // CR
  lf,        // LF
  control,   // Control
  mark,      // Extend or SpacingMark: joins the character before
  regional,  // a regional indicator: two make a flag
  complex,   // everything else: ZWJ, Prepend, Hangul jamo
};
inline constexpr Kind kKindOfClass[kClasses] = {
    other,  // Other
    cr, lf, control,
    mark,     // Extend
    complex,  // ZWJ
    regional,
    complex,  // Prepend
    mark,     // SpacingMark
    complex, complex, complex,  // L, V, T
    other, other,               // LV, LVT
    other,                      // pictographs
    other,                      // linking consonants
    mark, mark,                 // viramas, other combining marks
};
inline Kind kindOfClass(std::uint8_t cls) { return kKindOfClass[cls]; }

struct CodePoint {
  std::uint32_t length;
  Kind kind;
};
inline CodePoint classify(std::string_view text, std::size_t i) {
  const Decoded d = decode(text, i, tables());
  return {d.length, kindOfClass(d.cls)};
}

// Counting well-formed UTF-8 without visiting each character: the number
// of characters, or with `words` the number of words (runs of characters
// whose first code point is not white space or a line break). Where the
// processor has 64-byte vectors with byte permutes (wideCountAvailable),
// stretches without joining code points are counted 64 bytes at a time and
// the state machine runs only around those; elsewhere the state machine
// counts alone (countWellFormedByStateMachine, the reference the wide count
// is tested against).
bool wideCountAvailable();
std::size_t countWellFormed(std::string_view text, bool words);
std::size_t countWellFormedByStateMachine(std::string_view text, bool words);

// ICU's character break iterator over `piece`, each cluster's end as an
// offset from its start (the last one is piece.size()): the reference the
// walker is tested against.
void complexBoundaries(std::string_view piece, std::vector<std::uint32_t>& ends);

}  // namespace graphemes_detail

// Calls visit(begin, end) with the byte offsets of every user-perceived
// character of `text`, in order. Stops early when visit returns false.
template <class Visit>
void forEachGrapheme(std::string_view text, Visit&& visit) {
  using namespace graphemes_detail;
  const Tables& t = tables();
  const std::size_t n = text.size();
  std::uint8_t state = kStartState;
  std::size_t start = 0;
  std::size_t i = 0;
  while (i < n) {
    const Decoded d = decode(text, i, t);
    const std::uint8_t step = t.transitions[state * kClasses + d.cls];
    if ((step & kBreakBit) && i > 0) {
      if (!visit(start, i)) return;
      start = i;
    }
    state = step & 0x7F;
    i += d.length;
  }
  if (n > 0) visit(start, n);
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
