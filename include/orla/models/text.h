// Unicode text helpers shared by every plugin. Text is UTF-8 everywhere;
// anything that depends on characters rather than bytes goes through ICU.
#pragma once

#include <orla/export.h>

#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

// Whether a code point belongs to the white-space-and-newline set: the
// separators (Zs, Zl, Zp), the controls U+0009 to U+000D, and U+0085.
bool isWhitespaceOrNewline(char32_t c);

// The text without leading and trailing white space and line breaks. Invalid
// UTF-8 bytes are kept (they are not white space).
std::string_view trimWhitespaceAndNewlines(std::string_view text);

// White space within a line: tab and the space separators (Zs), no line
// breaks.
bool isInlineSpace(char32_t c);

// The text without leading and trailing white space within a line; line
// breaks stay.
std::string_view trimSpaces(std::string_view text);

// Full Unicode lowercase mapping, locale-independent ("ÄB" -> "äb").
std::string toLowercase(std::string_view text);

// Case-insensitive equality under full case folding and canonical
// equivalence, so "finder" equals "Finder" and a precomposed "é" equals "e"
// followed by a combining acute. Diacritics still count ("e" is not "é").
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// UTF-8 to UTF-16 and back; invalid bytes become U+FFFD.
std::u16string toUtf16(std::string_view utf8);
std::string toUtf8(std::u16string_view utf16);

// Lower case, then only the letters and digits: the form names are
// compared in, so that "Regex Find & Replace", "regex-find-replace" and
// "REGEX FIND REPLACE" all become "regexfindreplace".
std::string normalisedName(std::string_view name);

// Wraps a user-supplied name in typographic quotes: “name”.
std::string quoted(std::string_view name);

}  // namespace orla
