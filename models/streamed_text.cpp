#include <orla/models/streamed_text.h>

#include <unicode/utf8.h>

#include <cstring>

#include <orla/models/graphemes.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {

namespace {

using graphemes_detail::Kind;

constexpr std::size_t npos = std::string_view::npos;
// The most bytes kept while waiting for a certain boundary.
constexpr std::size_t kMaxCarry = std::size_t{64} << 10;
// How far back the search for a certain boundary looks before it gives up
// and carries the whole chunk.
constexpr std::size_t kBoundaryWindow = 4096;

bool isAsciiWhitespace(unsigned char c) { return c == ' ' || (c >= 0x09 && c <= 0x0D); }

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

// Two ASCII bytes always have a character boundary between them, except CR
// followed by LF.
bool asciiBoundary(std::string_view text, std::size_t at) {
  return isAscii(text[at - 1]) && isAscii(text[at]) && !(text[at - 1] == '\r' && text[at] == '\n');
}

// A boundary is certain between two code points that are each Other,
// Control, CR, LF or a regional indicator, except in CR LF and between two
// indicators (whose pairing depends on what came before).
bool sureBoundary(Kind a, Kind b) {
  const auto simple = [](Kind k) { return k <= graphemes_detail::control || k == graphemes_detail::regional; };
  return simple(a) && simple(b) && !(a == graphemes_detail::cr && b == graphemes_detail::lf) &&
         !(a == graphemes_detail::regional && b == graphemes_detail::regional);
}

std::size_t sequenceLength(unsigned char lead) {
  return lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
}

// The code point at `i`, or none when the text ends inside it.
bool codePointAt(std::string_view text, std::size_t i, graphemes_detail::CodePoint& out) {
  const auto lead = static_cast<unsigned char>(text[i]);
  if (lead < 0x80) {
    out = {1, lead == '\r'                   ? graphemes_detail::cr
              : lead == '\n'                 ? graphemes_detail::lf
              : (lead < 0x20 || lead == 0x7F) ? graphemes_detail::control
                                              : graphemes_detail::other};
    return true;
  }
  if (i + sequenceLength(lead) > text.size()) return false;
  out = graphemes_detail::classify(text, i);
  return true;
}

std::size_t codePointStart(std::string_view text, std::size_t from) {
  for (std::size_t k = 0; k < 3 && from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80; ++k)
    ++from;
  return from;
}

// The certain boundaries between the code points of `text` from `from` (a
// code point start) on: the first one, or the last one.
std::size_t sureBoundaryFrom(std::string_view text, std::size_t from, bool last) {
  std::size_t found = npos;
  Kind previous = graphemes_detail::other;
  bool havePrevious = false;
  graphemes_detail::CodePoint cp{};
  for (std::size_t i = from; i < text.size(); i += cp.length) {
    if (!codePointAt(text, i, cp)) break;
    if (havePrevious && sureBoundary(previous, cp.kind)) {
      found = i;
      if (!last) return found;
    }
    previous = cp.kind;
    havePrevious = true;
  }
  return found;
}

// The last certain boundary inside `text` (after its first byte), or npos.
std::size_t lastSureBoundary(std::string_view text) {
  const std::size_t n = text.size();
  for (std::size_t at = n - 1; at >= 1 && n - at <= 64; --at)
    if (asciiBoundary(text, at)) return at;
  return sureBoundaryFrom(text, codePointStart(text, n > kBoundaryWindow ? n - kBoundaryWindow : 0), true);
}

// The first certain boundary inside `text` after a code point that lies
// wholly in it, or npos.
std::size_t firstSureBoundary(std::string_view text) {
  for (std::size_t at = 1; at < text.size() && at <= 64; ++at)
    if (asciiBoundary(text, at)) return at;
  return sureBoundaryFrom(text.substr(0, std::min(text.size(), kBoundaryWindow)), codePointStart(text, 0), false);
}

graphemes_detail::Kind asciiKind(char byte) {
  const auto c = static_cast<unsigned char>(byte);
  return c == '\r'                   ? graphemes_detail::cr
         : c == '\n'                 ? graphemes_detail::lf
         : (c < 0x20 || c == 0x7F) ? graphemes_detail::control
                                   : graphemes_detail::other;
}

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// The code point at `i`, which is not ASCII, checked as it is decoded: its
// length is 0 when the bytes are not well-formed UTF-8.
graphemes_detail::CodePoint decodeNonAscii(std::string_view text, std::size_t i, const graphemes_detail::Tables& t) {
  using graphemes_detail::kindOfClass;
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  const unsigned char c = s[i];
  if (c >= 0xC2 && c <= 0xDF) {
    if (i + 1 < n && isContinuation(s[i + 1])) return {2, kindOfClass(t.bmp[((c & 0x1Fu) << 6) | (s[i + 1] & 0x3Fu)])};
  } else if (c >= 0xE0 && c <= 0xEF) {
    const unsigned char low = c == 0xE0 ? 0xA0 : 0x80, high = c == 0xED ? 0x9F : 0xBF;
    if (i + 2 < n && s[i + 1] >= low && s[i + 1] <= high && isContinuation(s[i + 2]))
      return {3, kindOfClass(t.bmp[((c & 0x0Fu) << 12) | ((s[i + 1] & 0x3Fu) << 6) | (s[i + 2] & 0x3Fu)])};
  } else if (c >= 0xF0 && c <= 0xF4) {
    const unsigned char low = c == 0xF0 ? 0x90 : 0x80, high = c == 0xF4 ? 0x8F : 0xBF;
    if (i + 3 < n && s[i + 1] >= low && s[i + 1] <= high && isContinuation(s[i + 2]) && isContinuation(s[i + 3]))
      return {4, graphemes_detail::classify(text, i).kind};
  }
  return {0, graphemes_detail::other};
}

// Whether a character holds a code point that is not white space.
bool hasContent(std::string_view character) {
  if (character.size() == 1) return !isAsciiWhitespace(static_cast<unsigned char>(character[0]));
  const auto* s = reinterpret_cast<const uint8_t*>(character.data());
  const auto n = static_cast<int32_t>(character.size());
  for (int32_t i = 0; i < n;) {
    UChar32 c;
    U8_NEXT(s, i, n, c);
    if (c < 0 || !isWhitespaceOrNewline(static_cast<char32_t>(c))) return true;
  }
  return false;
}

}  // namespace

StreamedText::StreamedText(std::size_t shownLimit) : limit_(shownLimit) {}

void StreamedText::append(std::string_view bytes) {
  if (!valid_ || bytes.empty()) return;
  if (!carry_.empty()) {
    // What was carried ends at the first certain boundary of the new bytes.
    const std::size_t end = firstSureBoundary(bytes);
    if (end == npos) {
      carry_.append(bytes);
      if (carry_.size() > kMaxCarry) forceSegmentCarry();
      return;
    }
    carry_.append(bytes.substr(0, end));
    segment(carry_);
    carry_.clear();
    bytes.remove_prefix(end);
  }
  // The rest is read in place up to its last certain boundary; only the
  // few bytes after it are copied.
  const std::size_t end = lastSureBoundary(bytes);
  if (end == npos) {
    carry_.assign(bytes);
    if (carry_.size() > kMaxCarry) forceSegmentCarry();
    return;
  }
  segment(bytes.substr(0, end));
  if (valid_) carry_.assign(bytes.substr(end));
}

void StreamedText::forceSegmentCarry() {
  std::size_t end = sureBoundaryFrom(carry_, 0, true);
  if (end == npos) {
    // One character of more than kMaxCarry bytes: it is cut before its
    // last code point, the one bound on exactness this class has.
    end = carry_.size();
    while (end > 0 && (static_cast<unsigned char>(carry_[end - 1]) & 0xC0) == 0x80) --end;
    if (end > 0) --end;
    if (end == 0) end = carry_.size();
  }
  segment(std::string_view(carry_).substr(0, end));
  if (valid_) carry_.erase(0, end);
}

void StreamedText::finish() {
  if (!valid_ || carry_.empty()) return;
  segment(carry_);
  carry_.clear();
}

std::string_view StreamedText::shown() const {
  if (!valid_) return {};
  if (contentCount_ <= limit_) return trimWhitespaceAndNewlines(head_);
  return head_;
}

// `region` starts and ends where a character boundary is certain.
void StreamedText::segment(std::string_view region) {
  if (region.empty()) return;
  const bool validateAll = !started_ || headCount_ < limit_;
  if (validateAll && !orla::isValidUtf8(region)) return invalidate();
  if (!started_) {
    const auto* s = reinterpret_cast<const uint8_t*>(region.data());
    const auto n = static_cast<int32_t>(region.size());
    int32_t i = 0;
    while (i < n) {
      int32_t next = i;
      UChar32 c;
      U8_NEXT(s, next, n, c);
      if (!isWhitespaceOrNewline(static_cast<char32_t>(c))) break;
      i = next;
    }
    if (i == n) return;
    started_ = true;
    region.remove_prefix(static_cast<std::size_t>(i));
  }
  if (headCount_ < limit_) {
    std::size_t stop = region.size();
    forEachGrapheme(region, [&](std::size_t begin, std::size_t end) {
      const std::string_view character = region.substr(begin, end - begin);
      ++count_;
      if (hasContent(character)) contentCount_ = count_;
      head_.append(character);
      if (++headCount_ < limit_) return true;
      stop = end;
      return false;
    });
    region.remove_prefix(stop);
  }
  countFast(region);
}

// Counting once the head is full: the grapheme walker's count, without
// visiting each character. The white space that matters is the region's
// trailing run, found from its end.
void StreamedText::countFast(std::string_view region) {
  using namespace graphemes_detail;
  const Tables& table = tables();
  const std::size_t n = region.size();
  // The region starts and ends on certain boundaries, so the walker counts
  // it alone exactly; the vector check of the bytes is far cheaper than
  // checking them code point by code point.
  if (!orla::isValidUtf8(region)) return invalidate();
  const std::uint64_t count = wideCountAvailable() ? countWellFormed(region, false) : graphemeCount(region);

  // The region's trailing white space, and the code point before it.
  std::size_t trailing = n;
  Kind beforeTrailing = other;
  while (trailing > 0) {
    const auto last = static_cast<unsigned char>(region[trailing - 1]);
    if (last < 0x80) {
      if (!isAsciiWhitespace(last)) {
        beforeTrailing = asciiKind(static_cast<char>(last));
        break;
      }
      --trailing;
      continue;
    }
    std::size_t start = trailing - 1;
    while (start > 0 && (static_cast<unsigned char>(region[start]) & 0xC0) == 0x80) --start;
    UChar32 c;
    int32_t at = static_cast<int32_t>(start);
    U8_NEXT(reinterpret_cast<const uint8_t*>(region.data()), at, static_cast<int32_t>(trailing), c);
    if (!isWhitespaceOrNewline(static_cast<char32_t>(c))) {
      beforeTrailing = decodeNonAscii(region, start, table).kind;
      break;
    }
    trailing = start;
  }
  const std::uint64_t before = count_;
  count_ += count;
  if (trailing == 0) return;  // only white space: no new content
  if (beforeTrailing == complex) {
    // A prepended mark takes the white space after it into its character:
    // count this rare tail exactly.
    std::uint64_t seen = before;
    forEachGrapheme(region, [&](std::size_t b, std::size_t e) {
      ++seen;
      if (hasContent(region.substr(b, e - b))) contentCount_ = seen;
      return true;
    });
    return;
  }
  contentCount_ = count_ - graphemeCount(region.substr(trailing));
}

void StreamedText::invalidate() {
  valid_ = false;
  head_ = std::string();
  carry_ = std::string();
}

}  // namespace orla
