// StreamedText: what a plugin shows of a text that arrives in chunks and
// may be far too long to keep, such as a command's output: whether it is
// well-formed UTF-8, its beginning, and its length in user-perceived
// characters, both taken after trimming white space and line breaks from
// either end. Memory stays bounded by the number of characters shown,
// whatever the length of the stream.
//
// The characters are extended grapheme clusters, exactly as
// `graphemeCount` counts them, with one bound: a single cluster longer than
// 64 KiB (thousands of combining marks on one letter) is counted as
// several.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

class StreamedText {
 public:
  // Keeps the first `shownLimit` characters of the trimmed text.
  explicit StreamedText(std::size_t shownLimit);

  void append(std::string_view bytes);
  // Ends the stream; call once, before reading the answers below.
  void finish();

  // Whether the whole stream was well-formed UTF-8. When it was not, the
  // text counts as empty: nothing is shown and the count is 0.
  bool isValidUtf8() const { return valid_; }
  // The trimmed text when it has at most `shownLimit` characters, otherwise
  // its first `shownLimit` characters.
  std::string_view shown() const;
  // The number of characters of the trimmed text.
  std::uint64_t characterCount() const { return valid_ ? contentCount_ : 0; }
  bool isCut() const { return characterCount() > limit_; }

 private:
  void segment(std::string_view region);
  void countFast(std::string_view region);
  void forceSegmentCarry();
  void invalidate();

  std::size_t limit_;
  bool valid_ = true;
  bool started_ = false;  // a character that is not white space has come
  // Bytes after the last place where a character boundary is certain: the
  // next chunk may still add marks to the last character.
  std::string carry_;
  std::string head_;
  std::size_t headCount_ = 0;
  std::uint64_t count_ = 0;         // characters since the first that is not white space
  std::uint64_t contentCount_ = 0;  // ... up to the last that is not white space
};

}  // namespace orla
