#include "plugins/text/regex_search.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>

namespace orla::transforms {

namespace {

// Look-behinds are bounded in ICU, but the bound is not published; the text
// kept before a search start must hold the longest one. Beyond this the
// whole text is converted instead.
constexpr int64_t kMaxLookBack = int64_t{1} << 20;

// UTF-16 units one pattern character can match at most: a character that
// case-folds to three, each outside the BMP, with room to spare.
constexpr int64_t kUnitsPerPatternCharacter = 8;

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Whether the text just before `at` ends with a line terminator: ICU's
// multi-line ^ and \R take the end of their text for the end of a line, so a
// window never ends right after one.
bool lineTerminatorBefore(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t back) { return static_cast<unsigned char>(text[at - back]); };
  if (at >= 1 && byte(1) >= 0x0A && byte(1) <= 0x0D) return true;
  if (at >= 2 && byte(2) == 0xC2 && byte(1) == 0x85) return true;
  return at >= 3 && byte(3) == 0xE2 && byte(2) == 0x80 && (byte(1) == 0xA8 || byte(1) == 0xA9);
}

// \b looks back over combining marks and format characters to the character
// they belong to; a window never starts inside such a run.
bool extendsPrevious(std::string_view text, std::size_t at) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(std::min<std::size_t>(text.size(), at + 4));
  auto i = static_cast<int32_t>(at);
  UChar32 c;
  U8_NEXT(s, i, n, c);
  return c >= 0 && (u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND) || u_charType(c) == U_FORMAT_CHAR);
}

// One code point of well-formed UTF-8 at `s`, as one or two UTF-16 units.
inline void convertOne(const uint8_t* s, std::size_t& i, char16_t*& out) {
  const uint8_t c = s[i];
  if (c < 0x80) {
    *out++ = c, i += 1;
  } else if (c < 0xE0) {
    *out++ = static_cast<char16_t>(((c & 0x1F) << 6) | (s[i + 1] & 0x3F)), i += 2;
  } else if (c < 0xF0) {
    *out++ = static_cast<char16_t>(((c & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F)), i += 3;
  } else {
    const UChar32 code =
        ((c & 0x07) << 18) | ((s[i + 1] & 0x3F) << 12) | ((s[i + 2] & 0x3F) << 6) | (s[i + 3] & 0x3F);
    *out++ = U16_LEAD(code), *out++ = U16_TRAIL(code), i += 4;
  }
}

int32_t toUtf16Scalar(std::string_view utf8, char16_t* out) {
  const auto* s = reinterpret_cast<const uint8_t*>(utf8.data());
  const std::size_t n = utf8.size();
  char16_t* const first = out;
  std::size_t i = 0;
  while (i < n) {
    uint64_t eight;
    if (i + 8 <= n && (std::memcpy(&eight, s + i, 8), (eight & 0x8080808080808080ULL) == 0)) {
      for (int k = 0; k < 8; ++k) out[k] = s[i + k];
      out += 8, i += 8;
      continue;
    }
    convertOne(s, i, out);
  }
  return static_cast<int32_t>(out - first);
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORLA_REGEX_AVX2 1
#pragma GCC push_options
#pragma GCC target("avx2,bmi")

// Leading two-byte code points (Cyrillic, Greek, accented Latin letters) in
// the 32 bytes at `s`, up to 16, converted into `out`; how many.
inline unsigned twoByteRun(const uint8_t* s, char16_t* out) {
  // Each 16-bit word is a lead (low byte) and its continuation (high byte).
  const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
  const __m256i valid = _mm256_cmpeq_epi16(_mm256_and_si256(words, _mm256_set1_epi16(static_cast<short>(0xC0E0))),
                                           _mm256_set1_epi16(static_cast<short>(0x80C0)));
  const auto bits = static_cast<uint32_t>(_mm256_movemask_epi8(valid));
  const unsigned count = bits == 0xFFFFFFFFu ? 16 : static_cast<unsigned>(__builtin_ctz(~bits)) / 2;
  const __m256i units = _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(words, _mm256_set1_epi16(0x1F)), 6),
                                        _mm256_and_si256(_mm256_srli_epi16(words, 8), _mm256_set1_epi16(0x3F)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), units);
  return count;
}

// Leading three-byte code points (Chinese, Japanese, Korean, most symbols)
// in the 24 bytes at `s`, up to 8, converted into `out`; how many.
inline unsigned threeByteRun(const uint8_t* s, char16_t* out) {
  // Twelve bytes in each half, each code point spread into a 32-bit lane.
  const __m256i bytes = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(s + 12),
                                            reinterpret_cast<const __m128i*>(s));
  const __m256i spread = _mm256_shuffle_epi8(
      bytes, _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8,
                              -1, 9, 10, 11, -1));
  const __m256i valid = _mm256_cmpeq_epi32(_mm256_and_si256(spread, _mm256_set1_epi32(0xC0C0F0)),
                                           _mm256_set1_epi32(0x8080E0));
  const auto bits = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(valid)));
  const unsigned count = bits == 0xFF ? 8 : static_cast<unsigned>(__builtin_ctz(~bits));
  const __m256i units = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(spread, _mm256_set1_epi32(0x0F)), 12),
                      _mm256_and_si256(_mm256_srli_epi32(spread, 2), _mm256_set1_epi32(0x0FC0))),
      _mm256_and_si256(_mm256_srli_epi32(spread, 16), _mm256_set1_epi32(0x3F)));
  // Each half packs its four units into its low 64 bits; the two are then
  // put side by side.
  const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(units, units), 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  return count;
}

// Text that mixes scripts changes between ASCII and other code points every
// few bytes, which breaks any fixed-size ASCII step. Here every step widens
// the next 32 bytes whole and keeps as many units as the ASCII bytes they
// begin with (the rest is written over), then converts the code points up
// to the next ASCII byte: runs of two-byte and of three-byte ones a vector at
// a time in the same way, the others one by one. What a step writes never
// reaches past the buffer: there are never more units than bytes, and 32
// bytes are left.
int32_t toUtf16Avx2(std::string_view utf8, char16_t* out) {
  const auto* s = reinterpret_cast<const uint8_t*>(utf8.data());
  const std::size_t n = utf8.size();
  char16_t* const first = out;
  std::size_t i = 0;
  while (i < n) {
    if (i + 32 <= n) {
      const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes)));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16),
                          _mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1)));
      const auto high = static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
      if (high == 0) {
        out += 32, i += 32;
        continue;
      }
      const unsigned ascii = static_cast<unsigned>(__builtin_ctz(high));
      out += ascii, i += ascii;
    }
    do {
      if (i + 32 <= n && s[i] >= 0xC0 && s[i] < 0xF0) {
        const bool two = s[i] < 0xE0;
        if (const unsigned run = two ? twoByteRun(s + i, out) : threeByteRun(s + i, out); run > 0) {
          out += run, i += run * (two ? 2 : 3);
          continue;
        }
      }
      convertOne(s, i, out);
    } while (i < n && s[i] >= 0x80);
  }
  return static_cast<int32_t>(out - first);
}

#pragma GCC pop_options

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
  return have;
}
#endif

}  // namespace

int32_t toUtf16(std::string_view utf8, char16_t* out) {
#ifdef ORLA_REGEX_AVX2
  if (utf8.size() >= 64 && haveAvx2()) return toUtf16Avx2(utf8, out);
#endif
  return toUtf16Scalar(utf8, out);
}

RegexReach regexReach(std::string_view pattern) {
  RegexReach reach;
  bool lookBehind = false;
  int64_t characters = 0, repeats = 1;
  const std::size_t n = pattern.size();
  const auto digitAt = [&](std::size_t k) { return k < n && pattern[k] >= '0' && pattern[k] <= '9'; };
  const auto numberAt = [&](std::size_t& k) {
    int64_t number = 0;
    for (; digitAt(k); ++k) number = std::min(number * 10 + (pattern[k] - '0'), kMaxLookBack);
    return number;
  };
  for (std::size_t i = 0; i < n; ++i) {
    const char c = pattern[i];
    if (!isContinuation(c)) ++characters;
    if (c == '\\' && i + 1 < n) {
      const char escaped = pattern[++i];
      if (escaped == 'G' || escaped == 'X') reach.wholeText = true;
      // The braces of \x{...}, \N{...} and \p{...} are no repeat.
      if (i + 1 < n && pattern[i + 1] == '{')
        while (i + 1 < n && pattern[i] != '}') ++i, ++characters;
    } else if (c == '(' && (pattern.substr(i, 4) == "(?<=" || pattern.substr(i, 4) == "(?<!")) {
      lookBehind = true;
    } else if (c == '(' && i + 1 < n && pattern[i + 1] == '?') {
      // Flags such as (?i) or (?w-s:...): w makes \b follow the word break rules.
      for (std::size_t k = i + 2; k < n && (std::isalpha(static_cast<unsigned char>(pattern[k])) || pattern[k] == '-');
           ++k)
        if (pattern[k] == 'w') reach.wholeText = true;
    } else if (c == '{' && digitAt(i + 1)) {
      // A repeat {n}, {n,} or {n,m}: multiplying every bound over-estimates
      // the longest look-behind, never under-.
      std::size_t k = i + 1;
      int64_t bound = numberAt(k);
      if (k < n && pattern[k] == ',') bound = std::max(bound, numberAt(++k));
      repeats = std::min(repeats * std::max<int64_t>(bound, 1), kMaxLookBack);
    }
  }
  // One code point back for \b and ^, two units when it is outside the BMP.
  reach.lookBack = 8;
  if (lookBehind) {
    const int64_t longest = std::min(characters * kUnitsPerPatternCharacter, kMaxLookBack) * repeats;
    if (longest >= kMaxLookBack) reach.wholeText = true;
    else reach.lookBack += longest;
  }
  return reach;
}

Utf8RegexSearch::Utf8RegexSearch(std::string_view text, const icu::RegexPattern& pattern, std::string_view source,
                                 int32_t timeLimit, std::size_t windowBytes)
    : text_(text), windowBytes_(std::max<std::size_t>(windowBytes, 1)), grownBytes_(windowBytes_),
      timeLimit_(timeLimit) {
  const RegexReach reach = regexReach(source);
  wholeText_ = reach.wholeText;
  // A UTF-16 unit is at most three bytes of UTF-8.
  lookBackBytes_ = reach.lookBack * 3;
  UErrorCode status = U_ZERO_ERROR;
  matcher_.reset(pattern.matcher(status));
  if (U_SUCCESS(status)) matcher_->setMatchCallback(&Utf8RegexSearch::onTick, this, status);
  if (U_FAILURE(status)) matcher_.reset();
}

Utf8RegexSearch::~Utf8RegexSearch() = default;

UBool Utf8RegexSearch::onTick(const void* context, int32_t steps) {
  auto* self = static_cast<Utf8RegexSearch*>(const_cast<void*>(context));
  self->spentNow_ = steps;
  return self->timeLimit_ <= 0 || self->spentBefore_ + steps < self->timeLimit_;
}

std::size_t Utf8RegexSearch::windowEnd(std::size_t from) const {
  std::size_t to = from + grownBytes_;
  if (to >= text_.size()) return text_.size();
  while (to < text_.size() && (isContinuation(text_[to]) || lineTerminatorBefore(text_, to))) ++to;
  return to;
}

void Utf8RegexSearch::load(std::size_t from, std::size_t to, UErrorCode& status) {
  const auto length = static_cast<int32_t>(to - from);
  // Never more units than bytes; one spare for ICU's terminating zero.
  char16_t* buffer = units_.getBuffer(length + 1);
  if (!buffer) {
    status = U_MEMORY_ALLOCATION_ERROR;
    return;
  }
  units_.releaseBuffer(toUtf16(text_.substr(from, to - from), buffer));
  spentBefore_ += spentNow_;
  spentNow_ = 0;
  matcher_->reset(units_);
  from_ = from;
  to_ = to;
  walkUnit_ = 0;
  walkByte_ = 0;
  loaded_ = true;
}

// The UTF-8 length of units [from, to) of the window, which begin and end
// between characters: one byte for ASCII, two below U+0800 and for each
// half of a surrogate pair, three otherwise. No branch, so the compiler
// makes it a vector loop: matches are far apart in a long text.
std::size_t Utf8RegexSearch::utf8Length(int64_t from, int64_t to) const {
  const char16_t* u = units_.getBuffer();
  std::size_t bytes = 0;
  for (int64_t k = from; k < to; ++k) {
    const unsigned c = u[k];
    bytes += 1u + (c >= 0x80) + (c >= 0x800) - ((c & 0xF800) == 0xD800);
  }
  return bytes;
}

std::size_t Utf8RegexSearch::byteAt(int64_t unit) {
  // Backwards for a group before the match, seen by a look-behind.
  if (unit >= walkUnit_) walkByte_ += utf8Length(walkUnit_, unit);
  else walkByte_ -= utf8Length(unit, walkUnit_);
  walkUnit_ = unit;
  return from_ + walkByte_;
}

int64_t Utf8RegexSearch::unitAt(std::size_t byte) {
  const auto* s = reinterpret_cast<const unsigned char*>(text_.data() + from_);
  const std::size_t target = byte - from_;
  while (walkByte_ < target) {
    const unsigned char c = s[walkByte_];
    const std::size_t length = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    walkByte_ += length;
    walkUnit_ += length == 4 ? 2 : 1;
  }
  while (walkByte_ > target) {
    std::size_t length = 1;
    while (isContinuation(static_cast<char>(s[walkByte_ - length]))) ++length;
    walkByte_ -= length;
    walkUnit_ -= length == 4 ? 2 : 1;
  }
  return walkUnit_;
}

bool Utf8RegexSearch::next(UErrorCode& status) {
  if (!matcher_) status = U_MEMORY_ALLOCATION_ERROR;
  if (done_ || U_FAILURE(status)) return false;
  if (!loaded_) load(0, wholeText_ ? text_.size() : windowEnd(0), status);
  while (U_SUCCESS(status)) {
    bool found;
    if (goOn_) {
      found = matcher_->find(status);
    } else {
      spentBefore_ += spentNow_;  // find(start) starts ICU's count again
      spentNow_ = 0;
      found = matcher_->find(unitAt(next_), status);
    }
    if (status == U_REGEX_STOPPED_BY_CALLER) status = U_REGEX_TIME_OUT;
    // ICU may run out of stack on a repeat of something empty (such as
    // $*+) at the end of a window where the whole text would have gone on:
    // such a search runs again over all the rest of the text.
    const bool overflowed = status == U_REGEX_STACK_OVERFLOW && to_ < text_.size();
    if (overflowed) status = U_ZERO_ERROR;
    if (U_FAILURE(status)) break;
    if (overflowed || (matcher_->hitEnd() && to_ < text_.size())) {
      // More text could change this answer: search again from the same
      // start over a longer window, twice as long each time it was not
      // enough, so a match over the whole text costs a few passes, not one
      // per window.
      if (!overflowed && next_ < to_ && to_ - next_ > windowBytes_ / 2 && !settle(status)) break;
      grownBytes_ = overflowed ? text_.size() : next_ == lastLoadFrom_ ? grownBytes_ * 2 : windowBytes_;
      lastLoadFrom_ = next_;
      std::size_t from = next_ > static_cast<std::size_t>(lookBackBytes_) ? next_ - lookBackBytes_ : 0;
      while (from > 0 && (isContinuation(text_[from]) || extendsPrevious(text_, from))) --from;
      load(from, windowEnd(std::max(next_, to_)), status);
      goOn_ = false;
      continue;
    }
    if (!found) break;
    const std::size_t start = byteAt(matcher_->start(status));
    const std::size_t end = byteAt(matcher_->end(status));
    // Where the whole-text search would go on: after an empty match, one
    // character further.
    next_ = end;
    if (start == end && end < text_.size()) {
      ++next_;
      while (next_ < text_.size() && isContinuation(text_[next_])) ++next_;
    }
    goOn_ = true;
    return true;
  }
  done_ = true;
  return false;
}

// A search that failed, or found its match, only after trying starts far
// from the window's end may have settled most of the window already: the
// starts it tried before one of them touched the end did not match, and
// would not with any text after. Running it again while ICU reports each
// start it moves past finds where the next window may begin, so that a
// stretch of text without matches is not carried from window to window.
bool Utf8RegexSearch::settle(UErrorCode& status) {
  settledUnit_ = -1;
  matcher_->setFindProgressCallback(&Utf8RegexSearch::onProgress, this, status);
  // This repeats the search just made: the time limit still stops it, but
  // its steps are not counted twice.
  spentBefore_ += spentNow_;
  spentNow_ = 0;
  const int32_t spent = spentBefore_;
  matcher_->find(unitAt(next_), status);
  // Stopped by onProgress, or by the time limit through onTick.
  if (status == U_REGEX_STOPPED_BY_CALLER) status = timedOut() ? U_REGEX_TIME_OUT : U_ZERO_ERROR;
  if (status == U_REGEX_STACK_OVERFLOW) status = U_ZERO_ERROR;  // the search itself decides
  spentBefore_ = spent;
  spentNow_ = 0;
  UErrorCode ignored = U_ZERO_ERROR;
  matcher_->setFindProgressCallback(nullptr, nullptr, ignored);
  if (U_FAILURE(status)) return false;
  if (settledUnit_ > unitAt(next_)) next_ = byteAt(settledUnit_);
  return true;
}

UBool Utf8RegexSearch::onProgress(const void* context, int64_t unit) {
  auto* self = static_cast<Utf8RegexSearch*>(const_cast<void*>(context));
  if (self->matcher_->hitEnd()) return false;
  self->settledUnit_ = unit;
  return true;
}

bool Utf8RegexSearch::timedOut() const { return timeLimit_ > 0 && spentBefore_ + spentNow_ >= timeLimit_; }

std::size_t Utf8RegexSearch::start(int32_t group, UErrorCode& status) {
  const int64_t unit = matcher_->start64(group, status);
  return U_FAILURE(status) || unit < 0 ? std::string_view::npos : byteAt(unit);
}

std::size_t Utf8RegexSearch::end(int32_t group, UErrorCode& status) {
  const int64_t unit = matcher_->end64(group, status);
  return U_FAILURE(status) || unit < 0 ? std::string_view::npos : byteAt(unit);
}

}  // namespace orla::transforms
