#include "plugins/text/text_transforms.h"

#include <unicode/coll.h>
#include <unicode/regex.h>
#include <unicode/rbbi.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include <orla/models/input_limits.h>
#include <orla/models/base64.h>
#include <orla/models/graphemes.h>
#include <orla/models/icu_support.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

#include "plugins/text/regex_search.h"

namespace orla::transforms {

namespace {

// ---- Lines ----

// The byte length of the line break at `i`, or 0: U+000A to U+000D are one
// byte, U+0085 two, U+2028 and U+2029 three.
inline size_t lineBreakAt(const unsigned char* s, size_t i, size_t n) {
  const unsigned char c = s[i];
  if (c >= 0x0A && c <= 0x0D) return 1;
  if (c == 0xC2 && i + 1 < n && s[i + 1] == 0x85) return 2;
  if (c == 0xE2 && i + 2 < n && s[i + 1] == 0x80 && (s[i + 2] == 0xA8 || s[i + 2] == 0xA9)) return 3;
  return 0;
}

// Bytes that may start a line break.
constexpr std::array<bool, 256> makeBreakStarts() {
  std::array<bool, 256> t{};
  for (int c = 0x0A; c <= 0x0D; ++c) t[c] = true;
  t[0xC2] = t[0xE2] = true;
  return t;
}
constexpr auto kBreakStart = makeBreakStarts();

// Calls visit(line) for every piece between line breaks, the last one
// included (so the empty text has one empty line).
template <class Visit>
void forEachLine(std::string_view text, Visit&& visit) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t start = 0;
  for (size_t i = 0; i < n;) {
    if (!kBreakStart[s[i]]) {
      ++i;
      continue;
    }
    const size_t length = lineBreakAt(s, i, n);
    if (length == 0) {
      ++i;
      continue;
    }
    visit(text.substr(start, i - start));
    i += length;
    start = i;
  }
  visit(text.substr(start));
}

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  forEachLine(text, [&](std::string_view line) { lines.push_back(line); });
  return lines;
}

std::string joinLines(const std::vector<std::string_view>& lines) {
  size_t size = lines.empty() ? 0 : lines.size() - 1;
  for (std::string_view line : lines) size += line.size();
  std::string out;
  out.reserve(size);
  for (size_t k = 0; k < lines.size(); ++k) {
    if (k) out += '\n';
    out += lines[k];
  }
  return out;
}

// ---- Case ----

// Runs one of ICU's UTF-8 case mappings, growing the output as it asks.
template <class Mapping>
std::string mapCase(std::string_view text, Mapping mapping) {
  std::string out(text.size() + text.size() / 8 + 16, '\0');
  for (;;) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = mapping(out.data(), static_cast<int32_t>(out.size()), text.data(),
                                   static_cast<int32_t>(text.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
      out.assign(static_cast<size_t>(length), '\0');
      continue;
    }
    if (U_FAILURE(status)) return std::string(text);
    out.resize(static_cast<size_t>(length));
    return out;
  }
}

struct CaseMapCloser {
  void operator()(UCaseMap* map) const { ucasemap_close(map); }
};
using CaseMapPtr = std::unique_ptr<UCaseMap, CaseMapCloser>;

// Locale-independent mappings ("" is the root locale).
UCaseMap* rootCaseMap() {
  thread_local CaseMapPtr map = [] {
    UErrorCode status = U_ZERO_ERROR;
    return CaseMapPtr(ucasemap_open("", 0, &status));
  }();
  return map.get();
}

// Words for title case are runs between white space and line breaks, not
// the dictionary words of the word break rules: "hello-world" becomes
// "Hello-world" and "it's" becomes "It's".
UCaseMap* titleCaseMap() {
  thread_local CaseMapPtr map = []() -> CaseMapPtr {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    auto words = std::make_unique<icu::RuleBasedBreakIterator>(
        icu::UnicodeString(u"$ws = [\\p{White_Space}]; $ws+; [^$ws]+;"), parseError, status);
    if (U_FAILURE(status)) return nullptr;
    CaseMapPtr titles(ucasemap_open("", U_TITLECASE_NO_BREAK_ADJUSTMENT, &status));
    if (U_FAILURE(status)) return nullptr;
    ucasemap_setBreakIterator(titles.get(), reinterpret_cast<UBreakIterator*>(words.release()), &status);
    return U_SUCCESS(status) ? std::move(titles) : nullptr;
  }();
  return map.get();
}

// ---- White space ----

// The line trimmed, with every run of white space inside it folded to one
// space, appended to `out`.
void appendTrimmedLine(std::string_view line, std::string& out) {
  const auto* s = reinterpret_cast<const uint8_t*>(line.data());
  const auto n = static_cast<int32_t>(line.size());
  bool pendingSpace = false, any = false;
  for (int32_t i = 0; i < n;) {
    const int32_t start = i;
    UChar32 c;
    U8_NEXT(s, i, n, c);
    if (c >= 0 && isInlineSpace(static_cast<char32_t>(c))) {
      pendingSpace = any;
      continue;
    }
    if (pendingSpace) out += ' ';
    pendingSpace = false;
    any = true;
    out.append(line.data() + start, static_cast<size_t>(i - start));
  }
}

// ---- URL ----

constexpr std::array<bool, 256> makeQueryAllowed() {
  std::array<bool, 256> t{};
  for (int c = 'a'; c <= 'z'; ++c) t[c] = true;
  for (int c = 'A'; c <= 'Z'; ++c) t[c] = true;
  for (int c = '0'; c <= '9'; ++c) t[c] = true;
  for (unsigned char c : std::string_view("!$&'()*+,-./:;=?@_~")) t[c] = true;
  return t;
}
constexpr auto kQueryAllowed = makeQueryAllowed();

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// ---- Regular expressions ----

// ICU counts its matching work in steps of very roughly a millisecond; a
// pattern that backtracks without end is stopped after a few seconds.
constexpr int32_t kRegexTimeLimit = 3000;

std::string invalidPattern(std::string_view pattern) {
  const std::string shown = quoted(pattern);
  return "The regex pattern " + shown + " is not valid: The value " + shown + " is invalid.";
}

std::unique_ptr<icu::RegexPattern> compile(std::string_view pattern) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError;
  std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(unicodeString(pattern), 0, parseError, status));
  if (U_FAILURE(status)) return nullptr;
  return compiled;
}

// The sentence for a match that ICU gave up on.
std::string matchFailure(UErrorCode status, std::string_view pattern) {
  if (status == U_REGEX_TIME_OUT)
    return "The regex pattern " + quoted(pattern) +
           " took too long on this text and was stopped. Try a simpler pattern.";
  if (status == U_REGEX_STACK_OVERFLOW)
    return "The regex pattern " + quoted(pattern) + " needs too much memory on this text. Try a simpler pattern.";
  return "The regex pattern " + quoted(pattern) + " could not be applied to this text.";
}

// The replacement template, read once: "$" and a group number insert that
// group (0 the whole match); a "$" with no digit after it, as in "US$", is an
// ordinary character; a backslash makes the next character ordinary.
// Digits after the first join the number only while it stays a group of the
// pattern, so with two groups "$12" is group 1 and then "2".
struct TemplatePiece {
  std::string literal;  // UTF-8
  int32_t group = -1;   // -1: the literal
};

std::string templateMismatch(std::string_view replacement, std::string_view pattern) {
  return "The replacement " + quoted(replacement) + " does not fit the regex pattern " + quoted(pattern) +
         ": use $0 for the whole match, $1 for the first group, and \\$ for a dollar sign.";
}

Checked<std::vector<TemplatePiece>> parseTemplate(std::string_view replacement, std::string_view pattern,
                                                  int32_t groupCount) {
  // Read as UTF-8, one code point at a time: "\\" makes the whole next
  // character ordinary, whatever its length. Invalid bytes become U+FFFD.
  std::vector<TemplatePiece> pieces(1);
  const auto* s = reinterpret_cast<const uint8_t*>(replacement.data());
  const auto n = static_cast<int32_t>(replacement.size());
  const auto digit = [&](int32_t at) { return at < n && s[at] >= '0' && s[at] <= '9' ? s[at] - '0' : -1; };
  const auto appendCodePointAt = [&](int32_t& i) {
    UChar32 c;
    const int32_t start = i;
    U8_NEXT(s, i, n, c);
    if (c < 0) pieces.back().literal += "\uFFFD";
    else pieces.back().literal.append(replacement.substr(static_cast<size_t>(start), static_cast<size_t>(i - start)));
  };
  for (int32_t i = 0; i < n;) {
    if (s[i] == '\\' && i + 1 < n) {
      ++i;
      appendCodePointAt(i);
    } else if (s[i] == '$' && digit(i + 1) >= 0) {
      int32_t group = digit(i + 1);
      if (group > groupCount) return fail(templateMismatch(replacement, pattern));
      i += 2;
      while (digit(i) >= 0 && group * 10 + digit(i) <= groupCount) group = group * 10 + digit(i++);
      pieces.push_back({{}, group});
      pieces.emplace_back();
    } else {
      appendCodePointAt(i);
    }
  }
  return pieces;
}

std::string replacedTooLarge() {
  return "The replaced text would be larger than " + std::string(kTextSizeLimitWords) +
         ", which is too large to use. Nothing was changed.";
}

}  // namespace

std::string uppercase(std::string_view text) {
  return mapCase(text, [](char* out, int32_t capacity, const char* in, int32_t length, UErrorCode* status) {
    return ucasemap_utf8ToUpper(rootCaseMap(), out, capacity, in, length, status);
  });
}

std::string lowercase(std::string_view text) {
  return mapCase(text, [](char* out, int32_t capacity, const char* in, int32_t length, UErrorCode* status) {
    return ucasemap_utf8ToLower(rootCaseMap(), out, capacity, in, length, status);
  });
}

std::string titleCase(std::string_view text) {
  UCaseMap* map = titleCaseMap();
  if (!map) return std::string(text);
  return mapCase(text, [map](char* out, int32_t capacity, const char* in, int32_t length, UErrorCode* status) {
    return ucasemap_utf8ToTitle(map, out, capacity, in, length, status);
  });
}

std::string trimWhitespace(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  // Lines are written as they come; empty lines wait until a line with
  // text follows, so that those at the end are dropped, and those at the
  // start are never written.
  size_t pendingEmpty = 0;
  bool any = false;
  forEachLine(text, [&](std::string_view line) {
    const size_t mark = out.size();
    if (any) out.append(pendingEmpty + 1, '\n');
    const size_t before = out.size();
    appendTrimmedLine(line, out);
    if (out.size() == before) {
      out.resize(mark);
      if (any) ++pendingEmpty;
      return;
    }
    any = true;
    pendingEmpty = 0;
  });
  return out;
}

std::string reverse(std::string_view text) {
  std::string out(text.size(), '\0');
  const size_t n = text.size();
  forEachGrapheme(text, [&](size_t begin, size_t end) {
    std::memcpy(out.data() + (n - end), text.data() + begin, end - begin);
    return true;
  });
  return out;
}

std::string urlEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (kQueryAllowed[c]) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string urlDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c != '%') {
      out += c;
      continue;
    }
    if (i + 2 >= text.size()) return std::string(text);
    const int hi = hexValue(static_cast<unsigned char>(text[i + 1]));
    const int lo = hexValue(static_cast<unsigned char>(text[i + 2]));
    if (hi < 0 || lo < 0) return std::string(text);
    out += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  if (!isValidUtf8(out)) return std::string(text);
  return out;
}

std::string base64Encode(std::string_view text) { return orla::base64Encode(text); }

Checked<std::string> base64Decode(std::string_view text) {
  auto decoded = base64DecodeToString(text, /*ignoreInvalid=*/true);
  if (!decoded || !isValidUtf8(*decoded)) return fail("The text is not valid Base64, so it cannot be decoded.");
  return std::move(*decoded);
}

std::size_t countCharacters(std::string_view text) { return graphemeCount(text); }

namespace {

// Whether a code point of the Basic Multilingual Plane is white space or a
// line break, one bit each, from the same test the rest of the text code
// uses; no code point above it is.
const std::array<std::uint64_t, 1024>& bmpWhitespace() {
  static const std::array<std::uint64_t, 1024> bits = [] {
    std::array<std::uint64_t, 1024> b{};
    for (char32_t c = 0; c < 0x10000; ++c)
      if (isWhitespaceOrNewline(c)) b[c >> 6] |= std::uint64_t{1} << (c & 63);
    return b;
  }();
  return bits;
}

}  // namespace

std::size_t countWords(std::string_view text) {
  // A character is a separator when its first code point is white space or
  // a line break; words are the runs of other characters. One pass of the
  // grapheme walker's state machine, with runs of ASCII counted directly.
  using namespace graphemes_detail;
  if (text.size() >= 128 && wideCountAvailable() && isValidUtf8(text)) return countWellFormed(text, true);
  const Tables& t = tables();
  const auto& whitespace = bmpWhitespace();
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(text.size());
  std::size_t words = 0;
  bool inWord = false;
  const auto isAsciiSeparator = [](unsigned char c) -> unsigned { return (c == ' ') | (unsigned(c - 9) <= 4); };
  std::uint8_t state = kStartState;
  for (int32_t i = 0; i < n;) {
    // After a plain character every ASCII byte but CR is a character.
    if (isPlain(state) && s[i] < 0x80 && s[i] != '\r') {
      int32_t end = i + 1;
      while (end < n && s[end] < 0x80 && s[end] != '\r') ++end;
      std::size_t starts = !isAsciiSeparator(s[i]) && !inWord;
      for (int32_t k = i + 1; k < end; ++k) starts += isAsciiSeparator(s[k - 1]) & !isAsciiSeparator(s[k]);
      words += starts;
      inWord = !isAsciiSeparator(s[end - 1]);
      state = t.bmp[s[end - 1]];
      i = end;
      continue;
    }
    UChar32 c;
    U8_NEXT(s, i, n, c);  // an invalid sequence reads as one U+FFFD, of class Other
    const std::uint8_t step = t.transitions[state * kClasses + (c < 0 ? std::uint8_t{gOther} : classOf(t, static_cast<std::uint32_t>(c)))];
    state = step & 0x7F;
    if (!(step & kBreakBit)) continue;
    const bool separator = c >= 0 && (c < 0x10000 ? ((whitespace[static_cast<std::size_t>(c) >> 6] >> (c & 63)) & 1) != 0
                                                  : isWhitespaceOrNewline(static_cast<char32_t>(c)));
    words += !separator && !inWord;
    inWord = !separator;
  }
  return words;
}

std::size_t countLines(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  std::size_t breaks = 0;
  size_t i = 0;
#if defined(__GNUC__) || defined(__clang__)
  // Sixteen bytes at a time: a lane counts where a break starts, the
  // three-byte checks reading one and two bytes ahead.
  using V = unsigned char __attribute__((vector_size(16)));
  using S = signed char __attribute__((vector_size(16)));
  const auto load = [&](size_t at) {
    V v;
    std::memcpy(&v, s + at, 16);
    return v;
  };
  while (i + 18 <= n) {
    S counts{};
    // At most 255 steps before the byte counters are emptied.
    for (int step = 0; step < 255 && i + 18 <= n; ++step, i += 16) {
      const V a = load(i), b = load(i + 1), c = load(i + 2);
      S hit = (S)(V)(a - (unsigned char)0x0A <= (unsigned char)3);
      hit |= (S)((a == 0xC2) & (b == 0x85));
      hit |= (S)((a == 0xE2) & (b == 0x80) & ((c | (unsigned char)1) == 0xA9));
      counts -= hit;  // each hit lane is -1
    }
    for (int k = 0; k < 16; ++k) breaks += static_cast<unsigned char>(counts[k]);
  }
#endif
  for (; i < n; ++i)
    if (kBreakStart[s[i]] && lineBreakAt(s, i, n)) ++breaks;
  return breaks + 1;
}

std::string sortLines(std::string_view text, std::string_view locale) {
  std::vector<std::string_view> lines = splitLines(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale(std::string(locale).c_str()), status));
  if (U_FAILURE(status)) return joinLines(lines);
  // Case ignored, accents not.
  collator->setStrength(icu::Collator::SECONDARY);
  // One sort key per line, all in one buffer: comparing keys byte by byte
  // orders exactly as the collator compares the lines.
  std::vector<uint8_t> keys;
  keys.reserve(text.size() * 2 + lines.size() * 4);
  std::vector<size_t> keyStart(lines.size() + 1);
  icu::UnicodeString units;
  for (size_t k = 0; k < lines.size(); ++k) {
    keyStart[k] = keys.size();
    units = icu::UnicodeString::fromUTF8(icu::StringPiece(lines[k].data(), static_cast<int32_t>(lines[k].size())));
    const size_t at = keys.size();
    keys.resize(at + static_cast<size_t>(units.length()) * 3 + 16);
    int32_t length = collator->getSortKey(units, keys.data() + at, static_cast<int32_t>(keys.size() - at));
    if (static_cast<size_t>(length) > keys.size() - at) {
      keys.resize(at + static_cast<size_t>(length));
      length = collator->getSortKey(units, keys.data() + at, length);
    }
    keys.resize(at + static_cast<size_t>(length));
  }
  keyStart[lines.size()] = keys.size();
  std::vector<uint32_t> order(lines.size());
  for (uint32_t k = 0; k < order.size(); ++k) order[k] = k;
  std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    // Keys end in a zero byte, so the shorter one is never a prefix.
    return std::strcmp(reinterpret_cast<const char*>(keys.data() + keyStart[a]),
                       reinterpret_cast<const char*>(keys.data() + keyStart[b])) < 0;
  });
  std::vector<std::string_view> sorted;
  sorted.reserve(lines.size());
  for (uint32_t k : order) sorted.push_back(lines[k]);
  return joinLines(sorted);
}

std::string removeDuplicates(std::string_view text) {
  // An open-addressing set of lines seen, holding views into the text: no
  // allocation per line.
  std::vector<std::string_view> kept;
  std::vector<uint32_t> slots(64, 0);  // index into `kept` + 1; 0 is empty
  size_t mask = slots.size() - 1;
  const std::hash<std::string_view> hash;
  forEachLine(text, [&](std::string_view line) {
    size_t slot = hash(line) & mask;
    while (slots[slot]) {
      if (kept[slots[slot] - 1] == line) return;
      slot = (slot + 1) & mask;
    }
    kept.push_back(line);
    slots[slot] = static_cast<uint32_t>(kept.size());
    if (kept.size() * 2 > slots.size()) {
      std::vector<uint32_t> grown(slots.size() * 2, 0);
      mask = grown.size() - 1;
      for (uint32_t k = 0; k < kept.size(); ++k) {
        size_t at = hash(kept[k]) & mask;
        while (grown[at]) at = (at + 1) & mask;
        grown[at] = k + 1;
      }
      slots = std::move(grown);
    }
  });
  return joinLines(kept);
}

std::optional<std::string> regexError(std::string_view pattern, std::string_view replacement) {
  const auto compiled = compile(pattern);
  if (!compiled) return invalidPattern(pattern);
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(status));
  if (U_FAILURE(status)) return invalidPattern(pattern);
  if (auto pieces = parseTemplate(replacement, pattern, matcher->groupCount()); !pieces) return pieces.error();
  return std::nullopt;
}

namespace {

// Runs `use(text, search)` over a windowed search of `text` for `pattern`.
// ICU reads invalid bytes as U+FFFD, and so did the result: such text (rare:
// it came from outside) is repaired first, so that the offsets of the two
// forms correspond, and `use` is given the repaired text.
template <typename Use>
Checked<std::string> searching(std::string_view text, std::string_view pattern, std::size_t windowBytes, Use use) {
  std::string repaired;
  if (!isValidUtf8(text)) {
    repaired = utf8String(unicodeString(text));
    text = repaired;
  }
  const auto compiled = compile(pattern);
  if (!compiled) return fail(invalidPattern(pattern));
  Utf8RegexSearch search(text, *compiled, pattern, kRegexTimeLimit, windowBytes);
  return use(text, search);
}

}  // namespace

Checked<std::string> regexReplace(std::string_view text, std::string_view pattern, std::string_view replacement,
                                  std::size_t windowBytes) {
  return searching(text, pattern, windowBytes, [&](std::string_view searched, Utf8RegexSearch& search) -> Checked<std::string> {
    auto pieces = parseTemplate(replacement, pattern, search.groupCount());
    if (!pieces) return fail(pieces.error());
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    std::size_t copiedTo = 0;
    const auto append = [&](std::size_t from, std::size_t to) { result.append(searched.data() + from, to - from); };
    while (search.next(status)) {
      if (result.size() > kTextSizeLimit) return fail(replacedTooLarge());
      if (result.empty()) result.reserve(searched.size() + searched.size() / 8);
      const std::size_t start = search.start(0, status);
      const std::size_t end = search.end(0, status);
      append(copiedTo, start);
      for (const TemplatePiece& piece : *pieces) {
        if (piece.group < 0) {
          result += piece.literal;
        } else if (const std::size_t from = search.start(piece.group, status); from != std::string_view::npos) {
          // A group that took part in the match.
          append(from, search.end(piece.group, status));
        }
      }
      copiedTo = end;
    }
    // A search that ran out of time is an error, never "nothing matched".
    if (U_FAILURE(status)) return fail(matchFailure(status, pattern));
    if (result.size() + (searched.size() - copiedTo) > kTextSizeLimit) return fail(replacedTooLarge());
    append(copiedTo, searched.size());
    return result;
  });
}

Checked<std::string> regexExtract(std::string_view text, std::string_view pattern, std::size_t windowBytes) {
  return searching(text, pattern, windowBytes, [&](std::string_view searched, Utf8RegexSearch& search) -> Checked<std::string> {
    UErrorCode status = U_ZERO_ERROR;
    const bool found = search.next(status);
    if (U_FAILURE(status)) return fail(matchFailure(status, pattern));
    if (!found) return fail("No match for the pattern " + quoted(pattern) + " in the text.");
    const std::size_t start = search.start(0, status);
    return std::string(searched.substr(start, search.end(0, status) - start));
  });
}

std::string displayCut(std::string_view text, std::size_t limit) {
  const GraphemePrefix head = graphemePrefix(text, limit);
  if (!head.truncated) return std::string(text);
  std::string out(head.prefix);
  out += "\u2026 (";
  out += std::to_string(graphemeCount(text));
  out += " characters)";
  return out;
}

}  // namespace orla::transforms
