// Counting characters and words of well-formed UTF-8 64 bytes at a time.
//
// Two code points next to each other are always two characters unless one
// of them is "joining": of the classes CR, Extend, ZWJ, SpacingMark,
// Prepend, a Hangul jamo (L, V, T) or a regional indicator. Every rule that
// keeps a cluster together names one of those on one side or the other
// (CR LF, marks and joiners after anything, anything after a prepended
// mark, jamo sequences, emoji sequences after a joiner, conjuncts after a
// virama, indicator pairs). So a stretch without joining code points holds
// as many characters as code points, which is the number of bytes that are
// not continuations, and the state machine is only needed from the code
// point before a joining one to the first ordinary one after it.
//
// A block of 64 bytes is tested for joining code points with three byte
// permutes: each lead byte, the byte after it and the one after that index
// 64-entry tables of rule bits, and a code point is flagged when one rule
// holds for all three. The rules cover the places joining code points live
// in (combining marks, the joiners among the punctuation, the voicing marks
// among the kana, the jamo, skin tones, flags, variation selectors...), each
// as narrowly as lead, second and third byte allow, so that letters,
// ideographs, kana, Hangul syllables and emoji nearby are not flagged; the
// tables are then checked against every code point, and any lead that a
// rule misses is flagged whole. Word counts flag white space beyond ASCII
// the same way.
//
// The emoji sequences text is full of (a pictograph with a skin tone or a
// variation selector, pictographs joined by zero-width joiners, flags) are
// then settled in the block too, from masks of their bytes: each of their
// code points has a length of its own, so what comes before a lane is a
// shift of a mask. Only what those masks cannot tell goes to the state
// machine.
#include <orla/models/graphemes.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <orla/models/text.h>

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORLA_GRAPHEME_COUNT_WIDE 1
#include <immintrin.h>
#endif

namespace orla::graphemes_detail {

namespace {

// The classes next to which a cluster may go on.
constexpr std::uint32_t kJoiningClasses = (1u << gCR) | (1u << gExtend) | (1u << gZWJ) | (1u << gRegional) |
                                          (1u << gPrepend) | (1u << gSpacingMark) | (1u << gL) | (1u << gV) |
                                          (1u << gT) | (1u << gVirama) | (1u << gExtendCombining);

bool isAsciiSeparator(unsigned c) { return c == ' ' || c - 9 <= 4; }

// A code point of well-formed UTF-8 and its length.
inline std::uint32_t decodeWellFormed(const unsigned char* s, std::uint32_t& length) {
  const unsigned c = s[0];
  if (c < 0x80) {
    length = 1;
    return c;
  }
  if (c < 0xE0) {
    length = 2;
    return ((c & 0x1Fu) << 6) | (s[1] & 0x3Fu);
  }
  if (c < 0xF0) {
    length = 3;
    return ((c & 0x0Fu) << 12) | ((s[1] & 0x3Fu) << 6) | (s[2] & 0x3Fu);
  }
  length = 4;
  return ((c & 0x07u) << 18) | ((s[1] & 0x3Fu) << 12) | ((s[2] & 0x3Fu) << 6) | (s[3] & 0x3Fu);
}

// White space and line breaks beyond ASCII, one bit per code point of the
// Basic Multilingual Plane (none above it is).
bool isWideSeparator(std::uint32_t cp) {
  static const std::array<std::uint64_t, 1024> bits = [] {
    std::array<std::uint64_t, 1024> b{};
    for (char32_t c = 0; c < 0x10000; ++c)
      if (isWhitespaceOrNewline(c)) b[c >> 6] |= std::uint64_t{1} << (c & 63);
    return b;
  }();
  return cp < 0x10000 && ((bits[cp >> 6] >> (cp & 63)) & 1);
}

// The walk's running totals. Characters: every cluster. Words: clusters
// whose first code point is not white space, right after one that is (or
// at the start).
struct Totals {
  std::size_t count = 0;
  bool afterSeparator = true;
  std::uint8_t state = kStartState;
};

// One step of the state machine at `i`; returns the code point's class.
template <bool Words>
inline std::uint8_t step(const unsigned char* s, std::size_t& i, const Tables& t, Totals& totals) {
  std::uint32_t length;
  const std::uint32_t cp = decodeWellFormed(s + i, length);
  const std::uint8_t cls = classOf(t, cp);
  const std::uint8_t next = t.transitions[totals.state * kClasses + cls];
  if constexpr (Words) {
    if (next & kBreakBit) {
      const bool separator = cp < 0x80 ? isAsciiSeparator(cp) : isWideSeparator(cp);
      totals.count += !separator && totals.afterSeparator;
      totals.afterSeparator = separator;
    }
  } else {
    totals.count += next >> 7;
  }
  totals.state = next & 0x7F;
  i += length;
  return cls;
}

#ifdef ORLA_GRAPHEME_COUNT_WIDE

// The rule tables: a code point is flagged when the bits its lead byte,
// the byte after it and the one after that index (by their low six bits,
// which is how the permutes index) have one rule in common.
struct RuleTables {
  // [group][low six bits of the byte]: one bit per rule, eight rules a group.
  alignas(64) std::uint8_t lead[2][64]{};
  alignas(64) std::uint8_t second[2][64]{};
  alignas(64) std::uint8_t third[2][64]{};
  int rules = 1;  // bit 0 flags a lead whatever follows (filled in from the check)
  // Whether U+0300–036F are all marks that join what comes before.
  bool asciiMarks = false;
  // The common emoji sequences, settled in the block (settleSequences):
  // 0xFF for every 64 code points of U+1F000–1FFFF that are all
  // pictographs (by the third byte's low six bits).
  alignas(64) std::uint8_t pictographGroups[64]{};
  // The bytes the blocks are compared with, each in all 64 lanes: loaded
  // where they are used, which costs less than making them again in every
  // block (the loop has too few registers to keep them all).
  static constexpr std::uint8_t kCompared[] = {0xF0, 0x9F, 0xFF, 0x8F, 0xBB, 0x87, 0xA6, 0xE2, 0x80, 0x8D, 0x84, 0xEF,
                                                0xB8, 0x90, 0xC0, '\r', 0xCC, 0xCD, 0xB0, 0x21, 0x7E - 0x21, ' ', 9, 4};
  alignas(64) std::uint8_t compared[sizeof kCompared][64]{};
  bool sequences = false;
  // U+2100–2FFF hold no control, CR or LF.
  bool quietSymbols = false;

  template <std::uint8_t Byte>
  __attribute__((target("avx512f"))) __m512i splat() const {
    constexpr std::size_t k = [] {
      std::size_t at = 0;
      while (at < sizeof kCompared && kCompared[at] != Byte) ++at;
      return at;
    }();
    static_assert(k < sizeof kCompared, "a byte to compare with is missing from kCompared");
    return _mm512_load_si512(compared[k]);
  }

  bool flags(unsigned char b0, unsigned char b1, unsigned char b2) const {
    for (int g = 0; g < 2; ++g)
      if (lead[g][b0 & 0x3F] & second[g][b1 & 0x3F] & third[g][b2 & 0x3F]) return true;
    return false;
  }

  using Ranges = std::initializer_list<std::pair<int, int>>;
  // A rule: a lead byte of `leads`, then a byte in `second`, then one in
  // `third` (any byte where a set is left empty).
  void add(std::initializer_list<int> leads, Ranges secondBytes, Ranges thirdBytes = {}) {
    const int bit = rules++;
    if (bit >= 16) std::abort();  // two groups of eight: a rule more needs a third permute
    const int g = bit / 8;
    const auto mask = static_cast<std::uint8_t>(1u << (bit % 8));
    for (int l : leads) lead[g][l & 0x3F] |= mask;
    const auto fill = [&](std::uint8_t* table, Ranges ranges) {
      if (ranges.size() == 0)
        for (int k = 0; k < 64; ++k) table[k] |= mask;
      for (auto [low, high] : ranges)
        for (int b = low; b <= high; ++b) table[b & 0x3F] |= mask;
    };
    fill(second[g], secondBytes);
    fill(third[g], thirdBytes);
  }
};

// Whether `cp` must go through the state machine: joining, or (for words)
// white space beyond ASCII.
bool needsStep(const Tables& t, std::uint32_t cp, bool words) {
  if ((kJoiningClasses >> classOf(t, cp)) & 1) return true;
  return words && cp < 0x10000 && isWhitespaceOrNewline(static_cast<char32_t>(cp));
}

// The tables the block needs to settle emoji sequences itself, and the
// facts about the code points it relies on, checked here: where one does
// not hold for the ICU this runs with, those sequences go through the state
// machine as before.
void addSequenceTables(RuleTables& r) {
  const Tables& t = tables();
  const auto classIs = [&](std::uint32_t first, std::uint32_t last, std::uint8_t cls) {
    for (std::uint32_t cp = first; cp <= last; ++cp)
      if (classOf(t, cp) != cls) return false;
    return true;
  };
  const auto loud = [&](std::uint32_t cp) {
    const std::uint8_t cls = classOf(t, cp);
    return cls == gCR || cls == gLF || cls == gControl;
  };
  const auto prepended = [&](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t cp = first; cp <= last; ++cp)
      if (classOf(t, cp) == gPrepend) return true;
    return false;
  };
  const auto quiet = [&](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t cp = first; cp <= last; ++cp)
      if (loud(cp)) return false;
    return true;
  };
  for (std::uint32_t group = 0; group < 64; ++group)
    r.pictographGroups[group] = classIs(0x1F000 + group * 64, 0x1F000 + group * 64 + 63, gPictographic) ? 0xFF : 0;
  r.quietSymbols = quiet(0x2100, 0x2FFF);
  r.sequences = classIs(0xFE00, 0xFE0F, gExtend) && classIs(0x1F3FB, 0x1F3FF, gExtend) &&
                classIs(0x200D, 0x200D, gZWJ) && classIs(0x1F1E6, 0x1F1FF, gRegional) && quiet(0x1F000, 0x1FFFF) &&
                !prepended(0x1F000, 0x1FFFF);
}

RuleTables makeRules(bool words) {
  RuleTables r;
  for (std::size_t k = 0; k < sizeof RuleTables::kCompared; ++k) std::memset(r.compared[k], RuleTables::kCompared[k], 64);
  for (int k = 0; k < 64; ++k) r.second[0][k] = r.third[0][k] = 1;
  r.add({0xE1}, {{0x80, 0xB7}});  // U+1000–1DFF: Myanmar, jamo, Khmer, Mongolian, Balinese, combining marks
  r.add({0xEA}, {{0x80, 0xAF}});  // U+A000–ABFF, not the Hangul syllables after it
  r.add({0xED}, {{0x9E, 0x9F}});  // the jamo after the Hangul syllables
  r.add({0xF0}, {{0x90, 0x9E}});  // the historic and Indic scripts of the first plane above
  r.add({0xF0}, {{0x9F, 0x9F}}, {{0x87, 0x87}, {0x8F, 0x8F}});          // regional indicators, skin tones
  r.add({0xE2}, {{0x83, 0x83}, {0xB3, 0xB3}, {0xB5, 0xB5}, {0xB7, 0xB7}});  // combining marks for symbols, Coptic
  // The zero-width non-joiner and joiner; for words, with the spaces and
  // separators among the punctuation around them.
  if (words) r.add({0xE2}, {{0x80, 0x81}});
  else r.add({0xE2}, {{0x80, 0x80}}, {{0x8C, 0x8D}});
  // Ideographic tone marks; for words, and the ideographic space.
  if (words) r.add({0xE3}, {{0x80, 0x80}}, {{0x80, 0x80}, {0xAA, 0xAF}});
  else r.add({0xE3}, {{0x80, 0x80}}, {{0xAA, 0xAF}});
  r.add({0xE3}, {{0x82, 0x82}}, {{0x99, 0x9A}});  // kana voicing marks
  r.add({0xEF}, {{0xB8, 0xB8}, {0xBE, 0xBE}});    // variation selectors, half-width voicing
  r.add({0xEF}, {{0xAC, 0xAC}}, {{0x9E, 0x9E}});  // a Hebrew point among ligatures and letters
  r.add({0xCD}, {{0x80, 0xAF}});  // combining diacritical marks, not the Greek after them
  r.add({0xD2}, {{0x80, 0x89}});  // Cyrillic combining marks
  if (words) r.add({0xC2}, {{0x85, 0x85}, {0xA0, 0xA0}});  // next line, no-break space
  r.asciiMarks = true;
  for (std::uint32_t cp = 0x300; cp <= 0x36F; ++cp) {
    const std::uint8_t cls = classOf(tables(), cp);
    r.asciiMarks = r.asciiMarks && (cls == gExtend || cls == gExtendCombining);
  }
  // Every code point that needs the state machine must be flagged, for
  // every byte that may follow it: a lead a rule misses is flagged whole.
  const Tables& t = tables();
  const auto flagLead = [&](unsigned lead) { r.lead[0][lead & 0x3F] |= 1; };
  for (std::uint32_t cp = 0x80; cp < 0x110000; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    if (!needsStep(t, cp, words)) continue;
    if (cp < 0x800) {
      const auto lead = static_cast<unsigned char>(0xC0 | (cp >> 6)), b1 = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      for (int next = 0; next < 64; ++next)
        if (!r.flags(lead, b1, static_cast<unsigned char>(next))) {
          flagLead(lead);
          break;
        }
    } else {
      const unsigned char lead = cp < 0x10000 ? static_cast<unsigned char>(0xE0 | (cp >> 12)) : static_cast<unsigned char>(0xF0 | (cp >> 18));
      const unsigned char b1 = cp < 0x10000 ? static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F))
                                            : static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
      const unsigned char b2 = cp < 0x10000 ? static_cast<unsigned char>(0x80 | (cp & 0x3F))
                                            : static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
      if (!r.flags(lead, b1, b2)) flagLead(lead);
    }
  }
  addSequenceTables(r);
  return r;
}

const RuleTables& rules(bool words) {
  static const RuleTables characters = makeRules(false);
  if (!words) return characters;
  static const RuleTables wordTables = makeRules(true);
  return wordTables;
}

// The state at `end`, where the walk last knew it was `known` at
// `knownAt` (at or before `end`). After an ordinary code point the state is
// its class, whatever came before; after joining ones (which the block may
// have settled itself, as in an emoji sequence) it depends on what they
// followed, so the walk goes back to the last ordinary code point, or to
// `knownAt`, and forward again. Each stretch walks back at most to where the
// one before it stopped, so this stays linear.
inline std::uint8_t stateAt(const unsigned char* s, std::size_t end, std::size_t knownAt, std::uint8_t known,
                            const Tables& t) {
  std::size_t from = end;
  std::uint8_t state = known;
  std::uint32_t length;
  while (from > knownAt) {
    std::size_t lead = from - 1;
    while ((s[lead] & 0xC0) == 0x80) --lead;
    const std::uint8_t cls = classOf(t, decodeWellFormed(s + lead, length));
    if (!((kJoiningClasses >> cls) & 1)) {
      state = cls;
      break;
    }
    from = lead;
  }
  while (from < end) {
    state = t.transitions[state * kClasses + classOf(t, decodeWellFormed(s + from, length))] & 0x7F;
    from += length;
  }
  return state;
}

// What settleSequences decided for a block: the lanes that continue the
// character before them, and the flagged lanes now settled (those and the
// first of a flag's two indicators, which starts a character).
struct Settled {
  std::uint64_t joined = 0;
  std::uint64_t resolved = 0;
  std::uint64_t unknown = 0;  // lanes the state machine must see after all
};

// What a block tells the next about its last code points, as lanes of the
// next block: where the code point before is one the masks know.
struct Carried {
  std::uint64_t quiet = 0;       // an emoji, a symbol or a selector
  std::uint64_t pictograph = 0;  // a pictograph
  std::uint64_t inEmoji = 0;     // a pictograph, or a selector or skin tone after one
  std::uint64_t joiner = 0;      // a joiner after those
  std::uint64_t first = 0;       // a flag's first indicator
};

// The common emoji sequences, settled 64 lanes at a time: a variation
// selector or skin tone after an emoji, a symbol of U+2100–2FFF or another
// selector (none of them a control, CR or LF), a joiner after a pictograph
// (and a selector or skin tone after it) with a pictograph or ASCII after
// the joiner, and a pair of regional indicators after ASCII. Each of these
// code points has a length of its own, so "the code point before" is a
// shift by that length. What the masks cannot see (a code point before the
// block, longer runs, a joiner before what they cannot tell) stays flagged
// for the state machine; a stretch of it runs on through the joining code
// points after it, so a lane settled here only counts when what it follows
// was not flagged.
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) inline Settled settleSequences(
    const RuleTables& r, __m512i v0, __m512i v1, __m512i v2, __m512i v3, unsigned before, Carried& carried) {
  // Independent compares, combined after: shorter chains than masked ones.
  // F0, E2 and EF are always leads.
  const std::uint64_t emoji = _mm512_cmpeq_epi8_mask(v0, r.splat<0xF0>()) & _mm512_cmpeq_epi8_mask(v1, r.splat<0x9F>());
  const std::uint64_t pictograph = _mm512_test_epi8_mask(
      _mm512_maskz_permutexvar_epi8(emoji, v2, _mm512_load_si512(r.pictographGroups)), r.splat<0xFF>());
  const std::uint64_t skinTone =
      emoji & _mm512_cmpeq_epi8_mask(v2, r.splat<0x8F>()) & _mm512_cmpge_epu8_mask(v3, r.splat<0xBB>());
  const std::uint64_t regional =
      emoji & _mm512_cmpeq_epi8_mask(v2, r.splat<0x87>()) & _mm512_cmpge_epu8_mask(v3, r.splat<0xA6>());
  const std::uint64_t e2 = _mm512_cmpeq_epi8_mask(v0, r.splat<0xE2>());
  const std::uint64_t joiner =
      e2 & _mm512_cmpeq_epi8_mask(v1, r.splat<0x80>()) & _mm512_cmpeq_epi8_mask(v2, r.splat<0x8D>());
  const std::uint64_t symbol = r.quietSymbols ? e2 & _mm512_cmpge_epu8_mask(v1, r.splat<0x84>()) : 0;
  const std::uint64_t selector = _mm512_cmpeq_epi8_mask(v0, r.splat<0xEF>()) &
                                 _mm512_cmpeq_epi8_mask(v1, r.splat<0xB8>()) &
                                 ~_mm512_cmpge_epu8_mask(v2, r.splat<0x90>());
  const std::uint64_t ascii = ~_mm512_movepi8_mask(v0);
  Settled out;
  // Selectors and skin tones join anything but a control, CR or LF.
  const std::uint64_t extend = selector | skinTone;
  // The byte before the block, when it is ASCII, is the code point before
  // its first lane; what the block before knew comes in as `carried`.
  const std::uint64_t asciiBefore = before < 0x80;
  const std::uint64_t quietBefore = ((symbol | selector) << 3) | (emoji << 4) | carried.quiet;
  std::uint64_t joined = extend & quietBefore;
  // After a pictograph, alone or with a selector or skin tone, a joiner
  // joins the next pictograph too (pictographs and skin tones are four
  // bytes long, selectors three).
  const std::uint64_t marked = extend & ((pictograph << 4) | carried.pictograph);
  const std::uint64_t inEmoji4 = pictograph | (marked & skinTone), inEmoji3 = marked & selector;
  const std::uint64_t zwj = joiner & ((inEmoji4 << 4) | (inEmoji3 << 3) | carried.inEmoji);
  // The masks tell ASCII and the pictographs of U+1F000–1FFFF after such a
  // joiner; whatever else follows it goes to the state machine, which walks
  // back to the pictograph for its state.
  const std::uint64_t afterJoiner = (zwj << 3) | carried.joiner;
  joined |= zwj | (afterJoiner & pictograph);
  out.unknown = afterJoiner & ~pictograph & ~ascii;
  // A flag's first indicator starts a character after ASCII (which is
  // neither an indicator's partner nor a prepended mark); the second joins
  // it.
  const std::uint64_t first = regional & ((ascii << 1) | asciiBefore);
  joined |= regional & ((first << 4) | carried.first);
  out.joined = joined;
  out.resolved = joined | first;
  carried.quiet = ((symbol | selector) >> 61) | (emoji >> 60);
  carried.pictograph = pictograph >> 60;
  carried.inEmoji = (inEmoji4 >> 60) | (inEmoji3 >> 61);
  carried.joiner = zwj >> 61;
  carried.first = first >> 60;
  return out;
}

// The lanes from `from` up to `to` (at most 64).
inline std::uint64_t lanes(unsigned from, unsigned to) {
  const std::uint64_t upTo = to >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << to) - 1;
  return upTo & ~((std::uint64_t{1} << from) - 1);
}

// The code points of lanes [from, to) whose lanes are in `starts`, each a
// character; for words, those that follow white space and are none.
template <bool Words>
__attribute__((target("popcnt"))) inline void countLanes(std::uint64_t starts, std::uint64_t separators, unsigned from,
                                                        unsigned to, Totals& totals) {
  if (to <= from) return;
  const std::uint64_t span = lanes(from, to);
  if constexpr (Words) {
    // A word starts where a code point that is not white space follows
    // one that is; the first lane's predecessor is what the walk knows.
    const std::uint64_t before =
        ((separators << 1) & ~(std::uint64_t{1} << from)) | (std::uint64_t{totals.afterSeparator} << from);
    totals.count += static_cast<std::size_t>(__builtin_popcountll(starts & ~separators & before & span));
    totals.afterSeparator = (separators >> (to - 1)) & 1;
  } else {
    totals.count += static_cast<std::size_t>(__builtin_popcountll(starts & span));
  }
}

// A block at `i` with flagged lanes: the lanes between them counted from
// the masks, each flagged one and the joining ones after it by the state
// machine. Returns where the next block starts: after this one, or where
// the state machine stopped when that is beyond it. Out of line, so that
// the loop over blocks keeps its tables in registers.
template <bool Words>
__attribute__((noinline, target("popcnt"))) std::size_t countFlagged(const unsigned char* s, std::size_t n, std::size_t i,
                                                                   std::uint64_t flagged, std::uint64_t starts,
                                                                   std::uint64_t separators, Totals& totals,
                                                                   std::size_t& settledAt, const Tables& t) {
  unsigned from = 0;  // the lanes before it are counted
  while (flagged) {
    const auto at = static_cast<unsigned>(__builtin_ctzll(flagged));
    countLanes<Words>(starts, separators, from, at, totals);
    std::size_t j = i + at;
    if (j != settledAt) totals.state = stateAt(s, j, settledAt, totals.state, t);
    while (j < n && ((kJoiningClasses >> step<Words>(s, j, t, totals)) & 1)) {
    }
    settledAt = j;
    if (j >= i + 64) return j;
    from = static_cast<unsigned>(j - i);
    flagged &= ~lanes(0, from);
  }
  countLanes<Words>(starts, separators, from, 64, totals);
  return i + 64;
}

// Blocks of 64 bytes: the code points the rules do not flag (nor CR) are
// counted from the block's masks, each flagged one and the joining ones
// after it by the state machine, up to the first ordinary code point after
// them; the block goes on from there. The permutes read two bytes past
// the block, so the last 65 bytes or fewer are left to the state machine.
template <bool Words>
__attribute__((target("avx512f,avx512bw,avx512vbmi,popcnt"))) std::size_t countWide(const unsigned char* s,
                                                                                   std::size_t n) {
  const Tables& t = tables();
  const RuleTables& r = rules(Words);
  const __m512i leadA = _mm512_load_si512(r.lead[0]), leadB = _mm512_load_si512(r.lead[1]);
  const __m512i secondA = _mm512_load_si512(r.second[0]), secondB = _mm512_load_si512(r.second[1]);
  const __m512i thirdA = _mm512_load_si512(r.third[0]), thirdB = _mm512_load_si512(r.third[1]);
  Totals totals;
  std::size_t i = 0;
  std::size_t settledAt = 0;  // where the state machine last stopped: totals.state holds there
  Carried carried;            // from the block that ends at carriedTo
  std::size_t carriedTo = 0;
  while (i + 67 <= n) {
    const __m512i v0 = _mm512_loadu_si512(s + i);
    const __m512i v1 = _mm512_loadu_si512(s + i + 1);
    const __m512i v2 = _mm512_loadu_si512(s + i + 2);
    const __mmask64 leads = _mm512_cmpge_epu8_mask(v0, r.splat<0xC0>());
    std::uint64_t starts = ~(_mm512_movepi8_mask(v0) & ~leads);
    // Rule bits of the lead lanes only (the masked form also spares GCC 12
    // a false warning about the unmasked one's undefined lanes).
    const __m512i a = _mm512_and_si512(_mm512_maskz_permutexvar_epi8(leads, v0, leadA),
                                       _mm512_maskz_permutexvar_epi8(leads, v1, secondA));
    const __m512i b = _mm512_and_si512(_mm512_maskz_permutexvar_epi8(leads, v0, leadB),
                                       _mm512_maskz_permutexvar_epi8(leads, v1, secondB));
    std::uint64_t flagged = _mm512_test_epi8_mask(a, _mm512_maskz_permutexvar_epi8(leads, v2, thirdA)) |
                            _mm512_test_epi8_mask(b, _mm512_maskz_permutexvar_epi8(leads, v2, thirdB)) |
                            _mm512_cmpeq_epi8_mask(v0, r.splat<'\r'>());
    // Combining diacritical marks (U+0300–036F) right after a printable
    // ASCII character, or after such a mark, join it: no state machine, and
    // they start no character. The state after them is their class, as
    // after any ordinary code point.
    if (r.asciiMarks) {
      const __mmask64 marks = leads & (_mm512_cmpeq_epi8_mask(v0, r.splat<0xCC>()) |
                                       (_mm512_cmpeq_epi8_mask(v0, r.splat<0xCD>()) &
                                        _mm512_cmplt_epu8_mask(v1, r.splat<0xB0>())));
      const std::uint64_t printable =
          _mm512_cmple_epu8_mask(_mm512_sub_epi8(v0, r.splat<0x21>()), r.splat<0x7E - 0x21>());
      std::uint64_t joined = marks & ((printable << 1) | (i > 0 && s[i - 1] - 0x21u <= 0x7Eu - 0x21u));
      joined |= marks & (joined << 2);
      joined |= marks & (joined << 2);
      flagged &= ~joined;
      starts &= ~joined;
    }
    if (leads && r.sequences) {
      if (i != carriedTo) carried = Carried{};
      const Settled settled =
          settleSequences(r, v0, v1, v2, _mm512_loadu_si512(s + i + 3), i > 0 ? s[i - 1] : 0u, carried);
      carriedTo = i + 64;
      flagged = (flagged & ~settled.resolved) | settled.unknown;
      starts &= ~settled.joined;
    }
    std::uint64_t separators = 0;
    if constexpr (Words)
      separators = _mm512_cmpeq_epi8_mask(v0, r.splat<' '>()) |
                   _mm512_cmple_epu8_mask(_mm512_sub_epi8(v0, r.splat<9>()), r.splat<4>());
    if (flagged) {
      i = countFlagged<Words>(s, n, i, flagged, starts, separators, totals, settledAt, t);
      continue;
    }
    countLanes<Words>(starts, separators, 0, 64, totals);
    i += 64;
  }
  // The end of the last block may fall inside a code point it counted.
  while (i < n && (s[i] & 0xC0) == 0x80) ++i;
  if (i != settledAt) totals.state = stateAt(s, i, settledAt, totals.state, t);
  while (i < n) step<Words>(s, i, t, totals);
  return totals.count;
}

bool haveWide() {
  static const bool have = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("popcnt");
  return have;
}

#endif

}  // namespace

bool wideCountAvailable() {
#ifdef ORLA_GRAPHEME_COUNT_WIDE
  return haveWide();
#else
  return false;
#endif
}

std::size_t countWellFormed(std::string_view text, bool words) {
#ifdef ORLA_GRAPHEME_COUNT_WIDE
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  if (haveWide()) return words ? countWide<true>(s, text.size()) : countWide<false>(s, text.size());
#endif
  return countWellFormedByStateMachine(text, words);
}

std::size_t countWellFormedByStateMachine(std::string_view text, bool words) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const Tables& t = tables();
  Totals totals;
  std::size_t i = 0;
  if (words) {
    while (i < text.size()) step<true>(s, i, t, totals);
  } else {
    while (i < text.size()) step<false>(s, i, t, totals);
  }
  return totals.count;
}

}  // namespace orla::graphemes_detail
