// Searching UTF-8 text with an ICU regular expression without converting the
// whole text to UTF-16.
//
// ICU matches fastest over UTF-16 held in one buffer (its UTF-8 text adapter
// is several times slower), so the text is converted a window at a time: a
// few hundred KiB from where the next search starts, with enough text before
// it for what looks back (look-behind, \b, ^ in multi-line mode). Whenever a
// search touched the end of the window (ICU's hitEnd), its answer could change
// with more text, so the window grows and the search runs again; only answers
// that never reached the window's end are kept. The matches are exactly those
// of one search over the whole text.
//
// A few constructs are decided by ICU's break iterators, which may read
// beyond the window without saying so (\X, \G, Unicode
// word boundaries with (?w)); a pattern with one of them, or with a
// look-behind longer than the window could hold, is searched over the whole
// text converted at once, as before.
#pragma once

#include <unicode/regex.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace orla::transforms {

// UTF-16 of well-formed UTF-8 (the text was repaired, and windows end between
// characters) into `out`, which has room for as many units as `utf8` has
// bytes; the number of units written. ICU's converter checks every byte and
// took a sixth of a search on non-ASCII text.
int32_t toUtf16(std::string_view utf8, char16_t* out);

// Whether the whole text must be converted for `pattern`, and otherwise how
// many UTF-16 units a search may look back from where it starts (an
// over-estimate: ICU does not publish the bounds of its look-behinds).
struct RegexReach {
  bool wholeText = false;
  int64_t lookBack = 0;
};
RegexReach regexReach(std::string_view pattern);

class Utf8RegexSearch {
 public:
  // The default window, in bytes of the UTF-8 text.
  static constexpr std::size_t kWindowBytes = 256 * 1024;

  // `text` must be valid UTF-8 and outlive the search; `timeLimit` is ICU's
  // (steps of roughly a millisecond), for all the searches together.
  Utf8RegexSearch(std::string_view text, const icu::RegexPattern& pattern, std::string_view source,
                  int32_t timeLimit, std::size_t windowBytes = kWindowBytes);
  ~Utf8RegexSearch();
  Utf8RegexSearch(const Utf8RegexSearch&) = delete;
  Utf8RegexSearch& operator=(const Utf8RegexSearch&) = delete;

  // The next match; false at the end or on failure (then `status` says why:
  // U_REGEX_TIME_OUT for the time limit, whatever ICU said otherwise).
  bool next(UErrorCode& status);
  // Byte offsets into the text of a group of the last match (0 the whole
  // match); npos for a group that took no part in it.
  std::size_t start(int32_t group, UErrorCode& status);
  std::size_t end(int32_t group, UErrorCode& status);
  int32_t groupCount() const { return matcher_ ? matcher_->groupCount() : 0; }

 private:
  void load(std::size_t from, std::size_t to, UErrorCode& status);
  std::size_t utf8Length(int64_t from, int64_t to) const;
  std::size_t byteAt(int64_t unit);
  int64_t unitAt(std::size_t byte);
  std::size_t windowEnd(std::size_t from) const;
  bool settle(UErrorCode& status);
  bool timedOut() const;
  static UBool onTick(const void* context, int32_t steps);
  static UBool onProgress(const void* context, int64_t unit);

  std::string_view text_;
  std::unique_ptr<icu::RegexMatcher> matcher_;
  icu::UnicodeString units_;
  bool wholeText_ = false;
  int64_t lookBackBytes_ = 0;
  std::size_t windowBytes_, grownBytes_;
  // The window: text_[from_, to_) is units_.
  std::size_t from_ = 0, to_ = 0;
  // A known pair of corresponding offsets in the window, for walking.
  int64_t walkUnit_ = 0;
  std::size_t walkByte_ = 0;
  // Where the next search starts in the text, and whether the matcher can
  // simply go on from its last match.
  std::size_t next_ = 0;
  bool goOn_ = false, done_ = false, loaded_ = false;
  std::size_t lastLoadFrom_ = SIZE_MAX;
  int64_t settledUnit_ = -1;
  // ICU counts its steps from each reset; these carry the count across.
  int32_t timeLimit_, spentBefore_ = 0, spentNow_ = 0;
};

}  // namespace orla::transforms
