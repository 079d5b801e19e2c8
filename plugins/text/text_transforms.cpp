#include "plugins/text/text_transforms.h"

#include <unicode/coll.h>
#include <unicode/regex.h>
#include <unicode/rbbi.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "models/input_limits.h"
#include "models/base64.h"
#include "models/graphemes.h"
#include "models/icu_support.h"
#include "models/text.h"
#include "models/utf8.h"

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

// Walks the user-perceived characters of `text` the quick way. In a run of
// ASCII every byte is a character by itself, except CR LF, which is one;
// only the last byte before other text may take marks that follow it, unless
// it is a control character. Such runs go to `asciiRun(begin, end)` whole;
// the stretches around other text, which start and end on sure boundaries,
// go through the grapheme walker to `cluster(begin, end)`.
template <class AsciiRun, class Cluster>
void forEachCharacter(std::string_view text, AsciiRun&& asciiRun, Cluster&& cluster) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    size_t k = i;
    while (k < n && s[k] < 0x80) ++k;
    size_t runEnd = k;
    if (k < n && k > i && s[k - 1] >= 0x20 && s[k - 1] != 0x7F) --runEnd;
    if (runEnd > i) asciiRun(i, runEnd);
    if (runEnd == n) return;
    // From here to the next two ASCII bytes in a row that are not CR LF.
    size_t j = runEnd + 1;
    while (j < n && !(s[j - 1] < 0x80 && s[j] < 0x80 && !(s[j - 1] == '\r' && s[j] == '\n'))) ++j;
    forEachGrapheme(text.substr(runEnd, j - runEnd), [&](size_t begin, size_t end) {
      cluster(runEnd + begin, runEnd + end);
      return true;
    });
    i = j;
  }
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

// ---- JSON ----

// Writes JSON pretty-printed as the parser reads it, so keys stay in their
// order and no tree is built. Two spaces per level, "key" : value.
class PrettyWriter : public nlohmann::json_sax<nlohmann::json> {
 public:
  // Deeper documents are refused, as the system's own parser refuses them.
  static constexpr size_t kMaxDepth = kJsonDepthLimit;
  // A few levels of nesting can multiply a text's size by its depth; past
  // this the result would be no use on a clipboard.
  static constexpr size_t kMaxOutput = kTextSizeLimit;

  explicit PrettyWriter(size_t inputSize) { out_.reserve(inputSize + inputSize / 2 + 16); }

  bool null() override { return scalar("null"); }
  bool boolean(bool value) override { return scalar(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return integer(value); }
  bool number_unsigned(number_unsigned_t value) override { return integer(value); }
  // The number as it was written: no digits gained or lost.
  bool number_float(number_float_t, const string_t& text) override { return scalar(text); }
  bool string(string_t& value) override {
    if (!beforeValue()) return false;
    appendQuoted(value);
    return afterValue();
  }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open('{'); }
  bool key(string_t& value) override {
    if (!beforeValue()) return false;
    appendQuoted(value);
    out_ += " : ";
    afterKey_ = true;
    return true;
  }
  bool end_object() override { return close('}'); }
  bool start_array(std::size_t) override { return open('['); }
  bool end_array() override { return close(']'); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

  std::string take() { return std::move(out_); }
  bool tooLarge() const { return tooLarge_; }

 private:
  bool scalar(std::string_view text) {
    if (!beforeValue()) return false;
    out_ += text;
    return afterValue();
  }
  template <class T>
  bool integer(T value) {
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    return scalar(std::string_view(digits, static_cast<size_t>(end - digits)));
  }
  // Starts a value or key on its line: after "key : " it follows directly,
  // otherwise a comma if needed, a new line and the indentation.
  bool beforeValue() {
    if (afterKey_) {
      afterKey_ = false;
      return true;
    }
    if (depth_ > 0) {
      if (!first_.back()) out_ += ',';
      first_.back() = false;
      newline();
    }
    return true;
  }
  bool afterValue() {
    if (out_.size() > kMaxOutput) {
      tooLarge_ = true;
      return false;
    }
    return true;
  }
  bool open(char bracket) {
    if (!beforeValue()) return false;
    if (depth_ == kMaxDepth) return false;
    out_ += bracket;
    ++depth_;
    first_.push_back(true);
    return afterValue();
  }
  bool close(char bracket) {
    const bool empty = first_.back();
    first_.pop_back();
    --depth_;
    if (!empty) newline();
    out_ += bracket;
    return afterValue();
  }
  void newline() {
    out_ += '\n';
    out_.append(depth_ * 2, ' ');
  }
  void appendQuoted(const std::string& value) {
    out_ += '"';
    size_t run = 0;
    for (size_t i = 0; i < value.size(); ++i) {
      const auto c = static_cast<unsigned char>(value[i]);
      if (c >= 0x20 && c != '"' && c != '\\') continue;
      out_.append(value, run, i - run);
      run = i + 1;
      switch (c) {
        case '"': out_ += "\\\""; break;
        case '\\': out_ += "\\\\"; break;
        case '\n': out_ += "\\n"; break;
        case '\r': out_ += "\\r"; break;
        case '\t': out_ += "\\t"; break;
        case '\b': out_ += "\\b"; break;
        case '\f': out_ += "\\f"; break;
        default: {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04x", c);
          out_ += escape;
        }
      }
    }
    out_.append(value, run, std::string::npos);
    out_ += '"';
  }

  std::string out_;
  size_t depth_ = 0;
  std::vector<bool> first_;  // per open container: nothing written in it yet
  bool afterKey_ = false;
  bool tooLarge_ = false;
};

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

// A matcher over `input` (which must outlive it) that gives up after the
// time limit.
struct BoundedMatcher {
  std::unique_ptr<icu::RegexPattern> pattern;
  std::unique_ptr<icu::RegexMatcher> matcher;
};

Checked<BoundedMatcher> boundedMatcher(std::string_view pattern, const icu::UnicodeString& input) {
  BoundedMatcher made{compile(pattern), nullptr};
  if (!made.pattern) return fail(invalidPattern(pattern));
  UErrorCode status = U_ZERO_ERROR;
  made.matcher.reset(made.pattern->matcher(input, status));
  if (U_SUCCESS(status)) made.matcher->setTimeLimit(kRegexTimeLimit, status);
  if (U_FAILURE(status)) return fail(matchFailure(status, pattern));
  return made;
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

std::size_t countCharacters(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t count = 0;
  forEachCharacter(
      text,
      [&](size_t begin, size_t end) {
        std::size_t pairs = 0;  // CR LF is one character
        for (size_t k = begin; k + 1 < end; ++k) pairs += (s[k] == '\r') & (s[k + 1] == '\n');
        count += end - begin - pairs;
      },
      [&](size_t, size_t) { ++count; });
  return count;
}

std::size_t countWords(std::string_view text) {
  // A character is a separator when its first scalar is white space or a
  // line break; words are the runs of other characters.
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(text.size());
  std::size_t words = 0;
  bool inWord = false;
  const auto isAsciiSeparator = [](unsigned char c) -> unsigned { return (c == ' ') | (unsigned(c - 9) <= 4); };
  forEachCharacter(
      text,
      [&](size_t begin, size_t end) {
        // A word starts at every non-separator after a separator.
        std::size_t starts = !isAsciiSeparator(s[begin]) && !inWord;
        for (size_t k = begin + 1; k < end; ++k) starts += isAsciiSeparator(s[k - 1]) & !isAsciiSeparator(s[k]);
        words += starts;
        inWord = !isAsciiSeparator(s[end - 1]);
      },
      [&](size_t begin, size_t) {
        auto i = static_cast<int32_t>(begin);
        UChar32 c;
        U8_NEXT(s, i, n, c);
        const bool separator = c >= 0 && isWhitespaceOrNewline(static_cast<char32_t>(c));
        words += !separator && !inWord;
        inWord = !separator;
      });
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

Checked<std::string> prettifyJSON(std::string_view text) {
  static const std::string kInvalid = "The text is not valid JSON, so it cannot be prettified.";
  PrettyWriter writer(text.size());
  const bool ok = nlohmann::json::sax_parse(text.begin(), text.end(), &writer, nlohmann::json::input_format_t::json,
                                            /*strict=*/true, /*ignore_comments=*/false);
  if (writer.tooLarge())
    return fail("The prettified JSON would be larger than 1 GB, which is too large to use. Nothing was changed.");
  if (!ok) return fail(kInvalid);
  return writer.take();
}

std::optional<std::string> regexError(std::string_view pattern) {
  if (compile(pattern)) return std::nullopt;
  return invalidPattern(pattern);
}

Checked<std::string> regexReplace(std::string_view text, std::string_view pattern, std::string_view replacement) {
  const icu::UnicodeString input = unicodeString(text);
  auto made = boundedMatcher(pattern, input);
  if (!made) return fail(made.error());
  icu::RegexMatcher* matcher = made.value().matcher.get();
  UErrorCode status = U_ZERO_ERROR;
  // The loop of replaceAll, written out: replaceAll drops the error of the
  // search that ran out of time and answers as if nothing matched.
  const icu::UnicodeString replacementText = unicodeString(replacement);
  icu::UnicodeString result;
  while (matcher->find(status)) {
    // UTF-16 units, at most three bytes of UTF-8 each.
    if (static_cast<std::size_t>(result.length()) > kTextSizeLimit / 3)
      return fail("The replaced text would be larger than " + std::string(kTextSizeLimitWords) +
                  ", which is too large to use. Nothing was changed.");
    matcher->appendReplacement(result, replacementText, status);
    if (U_FAILURE(status))
      return fail("The replacement " + quoted(replacement) + " does not fit the regex pattern " + quoted(pattern) +
                  ": use $0 for the whole match, $1 for the first group, and \\$ for a dollar sign.");
  }
  if (U_FAILURE(status)) return fail(matchFailure(status, pattern));
  matcher->appendTail(result);
  return utf8String(result);
}

Checked<std::string> regexExtract(std::string_view text, std::string_view pattern) {
  const icu::UnicodeString input = unicodeString(text);
  auto made = boundedMatcher(pattern, input);
  if (!made) return fail(made.error());
  icu::RegexMatcher* matcher = made.value().matcher.get();
  UErrorCode status = U_ZERO_ERROR;
  const bool found = matcher->find(status);
  if (U_FAILURE(status)) return fail(matchFailure(status, pattern));
  if (!found) return fail("No match for the pattern " + quoted(pattern) + " in the text.");
  const icu::UnicodeString match = matcher->group(status);
  return utf8String(match);
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
