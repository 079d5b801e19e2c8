// The text transforms behind the text-transform action, one function each.
// They take and give UTF-8 and work on the text as the user sees it
// (grapheme clusters, full Unicode case mapping, the locale's collation).
// They are written for large inputs: a clipboard can hold a whole log file.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla::transforms {

std::string uppercase(std::string_view text);
std::string lowercase(std::string_view text);
// The first character of every word (a run of characters between white
// space and line breaks) in title case, the rest lower case.
std::string titleCase(std::string_view text);
// Trims every line, folds runs of white space inside it to one space, and
// drops the empty lines at both ends.
std::string trimWhitespace(std::string_view text);
// The user-perceived characters in reverse order.
std::string reverse(std::string_view text);
// Percent-encodes everything outside the URL query set.
std::string urlEncode(std::string_view text);
// Removes percent-encoding; a malformed escape or bytes that are not UTF-8
// give the text back unchanged.
std::string urlDecode(std::string_view text);
std::string base64Encode(std::string_view text);
// Decodes Base64, skipping every character outside its alphabet; fails when
// the data is malformed or does not decode to UTF-8.
Checked<std::string> base64Decode(std::string_view text);

std::size_t countCharacters(std::string_view text);
// Runs of characters between white space and line breaks.
std::size_t countWords(std::string_view text);
// Pieces between line breaks (each of U+000A to U+000D, U+0085, U+2028 and
// U+2029 is one break): the empty text is one line.
std::size_t countLines(std::string_view text);

// Lines in the collation order of `locale`, case ignored; lines that compare
// equal keep their order.
std::string sortLines(std::string_view text, std::string_view locale);
// Each line the first time it occurs, in order.
std::string removeDuplicates(std::string_view text);

// Pretty-printed JSON, keys in their order in the text; a top-level string,
// number, true, false or null is allowed.
Checked<std::string> prettifyJSON(std::string_view text);

// Why `pattern` does not compile, in the words the user sees after the
// pattern; none when it compiles.
std::optional<std::string> regexError(std::string_view pattern, std::string_view replacement = {});
// Every match replaced by the template `replacement` ($0 the match, $1 the
// first group, \$ a dollar sign).
// The text is searched a window of `windowBytes` at a time (tests make it
// small so that matches cross the windows' ends).
Checked<std::string> regexReplace(std::string_view text, std::string_view pattern, std::string_view replacement,
                                  std::size_t windowBytes = 256 * 1024);
// The whole first match.
Checked<std::string> regexExtract(std::string_view text, std::string_view pattern,
                                  std::size_t windowBytes = 256 * 1024);

// Text for a message: more than `limit` characters become the first `limit`
// and "… (N characters)".
std::string displayCut(std::string_view text, std::size_t limit = 400);

}  // namespace orla::transforms
