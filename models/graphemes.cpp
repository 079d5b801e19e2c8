#include <orla/models/graphemes.h>

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/ucpmap.h>
#include <unicode/uset.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <orla/models/utf8.h>

// The block count is built with GCC's target pragmas; other compilers keep
// the code point loop.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORLA_GRAPHEMES_AVX2 1
#include <immintrin.h>
#endif

namespace orla {

namespace graphemes_detail {

namespace {

std::uint8_t classOfBreakValue(uint32_t value) {
  switch (value) {
    case U_GCB_CR: return gCR;
    case U_GCB_LF: return gLF;
    case U_GCB_CONTROL: return gControl;
    case U_GCB_EXTEND: return gExtend;
    case U_GCB_ZWJ: return gZWJ;
    case U_GCB_REGIONAL_INDICATOR: return gRegional;
    case U_GCB_PREPEND: return gPrepend;
    case U_GCB_SPACING_MARK: return gSpacingMark;
    case U_GCB_L: return gL;
    case U_GCB_V: return gV;
    case U_GCB_T: return gT;
    case U_GCB_LV: return gLV;
    case U_GCB_LVT: return gLVT;
    default: return gOther;  // Other, and the emoji classes no code point has had since Unicode 11
  }
}

bool isExtend(std::uint8_t cls) { return cls == gExtend || cls == gExtendCombining || cls == gVirama; }

// Whether a cluster ends between what `state` remembers and a code point of
// class `cls`.
bool breaksBefore(std::uint8_t state, std::uint8_t cls) {
  const auto is = [](std::uint8_t v, std::initializer_list<std::uint8_t> set) {
    for (std::uint8_t s : set)
      if (v == s) return true;
    return false;
  };
  if (state == gCR && cls == gLF) return false;
  if (is(state, {gCR, gLF, gControl})) return true;
  if (is(cls, {gCR, gLF, gControl})) return true;
  // Hangul syllables from their jamo.
  if (state == gL && is(cls, {gL, gV, gLV, gLVT})) return false;
  if (is(state, {gLV, gV}) && is(cls, {gV, gT})) return false;
  if (is(state, {gLVT, gT}) && cls == gT) return false;
  if (isExtend(cls) || cls == gZWJ || cls == gSpacingMark) return false;
  if (state == gPrepend) return false;
  // Emoji ZWJ sequences, conjuncts, and flags two indicators at a time.
  if (state == sPictographicZWJ && cls == gPictographic) return false;
  if (state == sConjunctLinked && cls == gLinkingConsonant) return false;
  if (state == sRegionalOdd && cls == gRegional) return false;
  return true;
}

std::uint8_t stateAfter(std::uint8_t state, std::uint8_t cls, bool broke) {
  const bool inEmoji = state == gPictographic || state == sPictographicExtend;
  if (isExtend(cls) && inEmoji) return sPictographicExtend;
  if (cls == gZWJ && inEmoji) return sPictographicZWJ;
  // A consonant, then marks with a combining class or joiners, at least one
  // of them a virama: the next consonant joins.
  const bool inConjunct = state == gLinkingConsonant || state == sConjunctOpen || state == sConjunctLinked;
  if (inConjunct && (cls == gVirama || cls == gExtendCombining || cls == gZWJ))
    return cls == gVirama || state == sConjunctLinked ? sConjunctLinked : sConjunctOpen;
  // The second indicator of a pair closes it; the state is then the plain
  // class, after which a third opens a new pair.
  if (cls == gRegional) return state == sRegionalOdd && !broke ? std::uint8_t{gRegional} : sRegionalOdd;
  return cls;
}

// The code points of an ICU set pattern.
template <class Visit>
void forEachInSet(const char16_t* pattern, Visit&& visit) {
  UErrorCode status = U_ZERO_ERROR;
  USet* set = uset_openPattern(pattern, -1, &status);
  if (U_FAILURE(status)) return;
  const int32_t ranges = uset_getItemCount(set);
  for (int32_t k = 0; k < ranges; ++k) {
    UChar32 start = 0, end = 0;
    if (uset_getItem(set, k, &start, &end, nullptr, 0, &status) != 0) continue;  // a string, not a range
    for (UChar32 c = start; c <= end; ++c) visit(static_cast<std::size_t>(c));
  }
  uset_close(set);
}

// The full table of classes, one byte per code point, from ICU's own
// property data, read range by range.
std::vector<std::uint8_t> allClasses() {
  std::vector<std::uint8_t> classes(0x110000, gOther);
  UErrorCode status = U_ZERO_ERROR;
  const UCPMap* map = u_getIntPropertyMap(UCHAR_GRAPHEME_CLUSTER_BREAK, &status);
  if (U_SUCCESS(status)) {
    for (UChar32 start = 0; start < 0x110000;) {
      uint32_t value = 0;
      const UChar32 end = ucpmap_getRange(map, start, UCPMAP_RANGE_NORMAL, 0, nullptr, nullptr, &value);
      if (end < start) break;
      std::memset(classes.data() + start, classOfBreakValue(value), static_cast<std::size_t>(end - start + 1));
      start = end + 1;
    }
  }
  forEachInSet(u"[:ExtPict:]", [&](std::size_t c) {
    if (classes[c] == gOther) classes[c] = gPictographic;
  });
  // The scripts whose consonants join through a virama, as the character
  // break rules of this ICU name them.
  forEachInSet(u"[[\\p{Gujr}\\p{sc=Telu}\\p{sc=Mlym}\\p{sc=Orya}\\p{sc=Beng}\\p{sc=Deva}]&"
               u"[\\p{Indic_Syllabic_Category=Consonant}]]",
               [&](std::size_t c) {
                 if (classes[c] == gOther) classes[c] = gLinkingConsonant;
               });
  forEachInSet(u"[[\\p{gcb=Extend}]-[\\p{ccc=0}]]", [&](std::size_t c) { classes[c] = gExtendCombining; });
  forEachInSet(u"[[\\p{Gujr}\\p{sc=Telu}\\p{sc=Mlym}\\p{sc=Orya}\\p{sc=Beng}\\p{sc=Deva}]&"
               u"[\\p{Indic_Syllabic_Category=Virama}]&[\\p{gcb=Extend}]]",
               [&](std::size_t c) { classes[c] = gVirama; });
  return classes;
}

struct BuiltTables {
  std::array<std::uint8_t, 0x10000> bmp{};
  std::vector<std::uint16_t> blockOf;  // for every block of 256, the BMP's included
  std::vector<std::uint8_t> blocks;
  std::array<std::uint8_t, kStateCount * kClasses> transitions{};
  std::array<bool, 0x10000 / 64> plainBlocks{};
  std::array<bool, 256> safeLeads{};
  Tables view{};

  BuiltTables() {
    const std::vector<std::uint8_t> classes = allClasses();
    std::memcpy(bmp.data(), classes.data(), bmp.size());
    // The planes above are mostly unassigned: identical blocks are stored
    // once.
    std::map<std::string, std::uint16_t> seen;
    blockOf.resize(0x110000 >> 8);
    for (std::size_t block = 0; block < blockOf.size(); ++block) {
      std::string bytes(reinterpret_cast<const char*>(classes.data() + (block << 8)), 256);
      auto [at, added] = seen.emplace(bytes, static_cast<std::uint16_t>(blocks.size() >> 8));
      if (added) blocks.insert(blocks.end(), bytes.begin(), bytes.end());
      blockOf[block] = at->second;
    }
    for (std::uint8_t state = 0; state < kStateCount; ++state)
      for (std::uint8_t cls = 0; cls < kClasses; ++cls) {
        const bool broke = breaksBefore(state, cls);
        transitions[state * kClasses + cls] =
            static_cast<std::uint8_t>(stateAfter(state, cls, broke) | (broke ? kBreakBit : 0));
      }
    for (std::size_t block = 0; block < plainBlocks.size(); ++block) {
      bool plain = true;
      for (std::size_t c = block * 64; c < block * 64 + 64; ++c) plain = plain && isPlain(bmp[c]);
      plainBlocks[block] = plain;
    }
    // Lead bytes all of whose code points are plain: two-byte leads by
    // their 64-code-point block, three-byte leads when all their 64 blocks
    // are (the ideographs, most Hangul syllables).
    for (unsigned lead = 0xC2; lead <= 0xDF; ++lead) safeLeads[lead] = plainBlocks[lead & 0x1F];
    for (unsigned lead = 0xE1; lead <= 0xEC; ++lead) {
      bool plain = true;
      for (unsigned block = (lead & 0x0F) << 6; block < ((lead & 0x0F) + 1) << 6; ++block) plain = plain && plainBlocks[block];
      safeLeads[lead] = plain;
    }
    view = {bmp.data(), blockOf.data(), blocks.data(), transitions.data(), plainBlocks.data()};
  }
};

const BuiltTables& built() {
  static const BuiltTables tables;
  return tables;
}

}  // namespace

const Tables& tables() { return built().view; }

Decoded decodeSlow(std::string_view text, std::size_t i) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(text.size());
  auto next = static_cast<int32_t>(i);
  UChar32 c;
  U8_NEXT(s, next, n, c);
  const auto length = static_cast<std::uint32_t>(next - static_cast<int32_t>(i));
  // An invalid sequence stands alone, as the U+FFFD it decodes to would.
  if (c < 0) return {length, gOther};
  return {length, classOf(tables(), static_cast<std::uint32_t>(c))};
}

void complexBoundaries(std::string_view piece, std::vector<std::uint32_t>& ends) {
  // UTF-16 of the piece with the UTF-8 offset of every unit, so that ICU's
  // boundaries map back to bytes; invalid bytes decode to U+FFFD.
  std::u16string units;
  std::vector<std::uint32_t> offsets;
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

  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> iterator(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status) || !iterator) {  // no break data: one code point per character
    for (std::size_t k = 1; k < offsets.size(); ++k)
      if (offsets[k] != offsets[k - 1]) ends.push_back(offsets[k]);
    return;
  }
  UText text = UTEXT_INITIALIZER;
  utext_openUChars(&text, units.data(), static_cast<int64_t>(units.size()), &status);
  iterator->setText(&text, status);
  for (int32_t end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next())
    ends.push_back(offsets[static_cast<std::size_t>(end)]);
  utext_close(&text);
}

}  // namespace graphemes_detail

namespace {

// Whether the eight bytes at `s` are ASCII other than CR.
inline bool asciiWithoutCr(const unsigned char* s) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
  std::uint64_t word;
  std::memcpy(&word, s, 8);
  const std::uint64_t cr = word ^ (kOnes * '\r');  // a zero byte where a CR is
  return ((word & kHigh) | ((cr - kOnes) & ~cr & kHigh)) == 0;
}

// The plain code point at `i`: its length, or 0 when it is not plain (or
// not well-formed), and its class.
inline std::uint32_t plainAt(const unsigned char* s, std::size_t i, std::size_t n, const graphemes_detail::Tables& t,
                             std::uint8_t& cls) {
  const unsigned c = s[i];
  if (c >= 0xC2 && c <= 0xDF) {
    if (i + 1 >= n || (s[i + 1] & 0xC0) != 0x80) return 0;
    const unsigned cp = ((c & 0x1Fu) << 6) | (s[i + 1] & 0x3Fu);
    if (!t.plainBlocks[cp >> 6]) return 0;
    cls = t.bmp[cp];
    return 2;
  }
  if (c >= 0xE0 && c <= 0xEF) {
    if (i + 2 >= n || (s[i + 1] & 0xC0) != 0x80 || (s[i + 2] & 0xC0) != 0x80) return 0;
    const unsigned cp = ((c & 0x0Fu) << 12) | ((s[i + 1] & 0x3Fu) << 6) | (s[i + 2] & 0x3Fu);
    if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF) || !t.plainBlocks[cp >> 6]) return 0;
    cls = t.bmp[cp];
    return 3;
  }
  return 0;
}

#ifdef ORLA_GRAPHEMES_AVX2

#pragma GCC push_options
#pragma GCC target("avx2,popcnt")

// Thirty-two bytes at a time over well-formed UTF-8 after a plain
// character: while a block holds only ASCII other than CR, continuation
// bytes and safe leads, every code point in it is a character of its own,
// so the block holds as many characters as bytes that are not
// continuations. Returns the bytes consumed (a multiple of 32) and adds the
// characters to `count`.
std::size_t countSafeBlocks(const unsigned char* s, std::size_t n, const bool* safeLeads, std::size_t& count) {
  // Which leads are safe, by low nibble, for the high nibbles C, D and E.
  alignas(32) std::uint8_t tables[3][32];
  for (int high = 0; high < 3; ++high)
    for (int low = 0; low < 16; ++low)
      tables[high][low] = tables[high][low + 16] = safeLeads[((0xC + high) << 4) | low] ? 0xFF : 0;
  const __m256i safeC = _mm256_load_si256(reinterpret_cast<const __m256i*>(tables[0]));
  const __m256i safeD = _mm256_load_si256(reinterpret_cast<const __m256i*>(tables[1]));
  const __m256i safeE = _mm256_load_si256(reinterpret_cast<const __m256i*>(tables[2]));
  const __m256i lowNibble = _mm256_set1_epi8(0x0F);
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(v, 4), lowNibble);
    const __m256i low = _mm256_and_si256(v, lowNibble);
    // Below 0xC0 (signed: below -64 or at least 0) and not CR: safe.
    const __m256i belowLeads = _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(0xC0)), v);
    const __m256i ascii = _mm256_cmpgt_epi8(v, _mm256_set1_epi8(-1));
    const __m256i simple = _mm256_andnot_si256(_mm256_cmpeq_epi8(v, _mm256_set1_epi8('\r')), _mm256_or_si256(belowLeads, ascii));
    const __m256i leadC = _mm256_and_si256(_mm256_cmpeq_epi8(high, _mm256_set1_epi8(0xC)), _mm256_shuffle_epi8(safeC, low));
    const __m256i leadD = _mm256_and_si256(_mm256_cmpeq_epi8(high, _mm256_set1_epi8(0xD)), _mm256_shuffle_epi8(safeD, low));
    const __m256i leadE = _mm256_and_si256(_mm256_cmpeq_epi8(high, _mm256_set1_epi8(0xE)), _mm256_shuffle_epi8(safeE, low));
    const __m256i safe = _mm256_or_si256(_mm256_or_si256(simple, leadC), _mm256_or_si256(leadD, leadE));
    // Continuation bytes are 0x80..0xBF: signed, below -64.
    const auto starts = ~static_cast<std::uint32_t>(_mm256_movemask_epi8(belowLeads)) |
                        static_cast<std::uint32_t>(_mm256_movemask_epi8(ascii));
    const auto safeBytes = static_cast<std::uint32_t>(_mm256_movemask_epi8(safe));
    if (safeBytes != 0xFFFFFFFFu) {
      // The safe bytes before the first that is not: that one is a lead
      // (continuations are always safe), so they end on a boundary.
      const int prefix = __builtin_ctz(~safeBytes);
      count += static_cast<std::size_t>(__builtin_popcount(starts & ((std::uint32_t{1} << prefix) - 1)));
      return i + static_cast<std::size_t>(prefix);
    }
    count += static_cast<std::size_t>(__builtin_popcount(starts));
  }
  return i;
}

#pragma GCC pop_options

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
  return have;
}

#endif

}  // namespace

std::size_t graphemeCount(std::string_view text) {
  using namespace graphemes_detail;
  if (text.size() >= 128 && wideCountAvailable() && isValidUtf8(text)) return countWellFormed(text, false);
  const Tables& t = tables();
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::size_t count = 0;
  std::uint8_t state = kStartState;
  std::size_t i = 0;
#ifdef ORLA_GRAPHEMES_AVX2
  // Blocks count bytes, which is only right for well-formed text, where an
  // invalid sequence cannot pass for part of a character.
  const bool blocks = n >= 64 && haveAvx2() && isValidUtf8(text);
  const bool* safeLeads = graphemes_detail::built().safeLeads.data();
#endif
  while (i < n) {
#ifdef ORLA_GRAPHEMES_AVX2
    if (blocks && isPlain(state)) {
      const std::size_t done = countSafeBlocks(s + i, n - i, safeLeads, count);
      if (done > 0) {
        i += done;
        // The character the last block ended in, whose lead was counted:
        // its class is the state, and the walk goes on after it.
        std::size_t lead = i - 1;
        while ((s[lead] & 0xC0) == 0x80) --lead;
        const Decoded last = decode(text, lead, t);
        state = last.cls;
        i = lead + last.length;
        if (i >= n) break;
      }
    }
    // With the blocks, only the last few bytes go through the plain loop;
    // what stopped a block goes to the state machine, one code point.
    const std::size_t stop = !blocks || n - i < 32 ? n : i;
#else
    const std::size_t stop = n;
#endif
    // After a plain character, every plain one and every ASCII byte but CR
    // starts a new character: runs of them (ASCII eight bytes at a time,
    // letters and ideographs of the plain blocks one by one) are counted
    // without the state machine.
    if (isPlain(state)) {
      while (i < stop) {
        if (i + 8 <= n && asciiWithoutCr(s + i)) {
          count += 8;
          i += 8;
          state = t.bmp[s[i - 1]];
          continue;
        }
        const unsigned c = s[i];
        if (c < 0x80) {
          if (c == '\r') break;
          ++count;
          ++i;
          state = t.bmp[c];
          continue;
        }
        std::uint8_t cls;
        const std::uint32_t length = plainAt(s, i, n, t, cls);
        if (length == 0) break;
        ++count;
        i += length;
        state = cls;
      }
      if (i >= n) break;
    }
    const Decoded d = decode(text, i, t);
    const std::uint8_t step = t.transitions[state * kClasses + d.cls];
    count += step >> 7;
    state = step & 0x7F;
    i += d.length;
  }
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
