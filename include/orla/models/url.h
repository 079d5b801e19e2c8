// URLs as the plugins handle them: checking that a text is a well-formed
// URL (RFC 3986, through uriparser) and finding its scheme, the character
// sets of percent-encoding, and the conversions between file URLs and paths.
#pragma once

#include <orla/export.h>

#include <bitset>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

// The ASCII characters left as they are by percent-encoding; every other
// byte (of UTF-8 text) is written as "%" and two upper-case hex digits.
class URLCharacterSet {
 public:
  // Letters, digits and `extra`.
  static URLCharacterSet alphanumericsAnd(std::string_view extra);
  // The sets of the same names the URL components are encoded with.
  static URLCharacterSet queryAllowed();     // alphanumerics and !$&'()*+,-./:;=?@_~
  static URLCharacterSet fragmentAllowed();  // the same characters as the query
  static URLCharacterSet pathAllowed();      // alphanumerics and !$&'()*+,-./:=@_~

  URLCharacterSet adding(std::string_view characters) const;
  URLCharacterSet removing(std::string_view characters) const;
  bool contains(unsigned char c) const { return c < 128 && bits_[c]; }

 private:
  std::bitset<128> bits_;
};

std::string percentEncode(std::string_view text, const URLCharacterSet& allowed);

// A text that parses as a URL reference; `scheme` is empty for a relative
// one (such as "www.example.com/page").
struct ParsedURL {
  std::string text;
  std::string scheme;  // as written
};

// Parses `text` as a URL reference; none when it is not one (a space, a
// character outside ASCII, a "%" without two hex digits, a second "#").
std::optional<ParsedURL> parseURL(std::string_view text);

// The path of a "file:" URL, percent-decoded ("file:///Users/ada/My%20Notes"
// gives "/Users/ada/My Notes"); none for another URL or a malformed one.
std::optional<std::string> filePathFromURL(std::string_view url);

// The "file://" URL of an absolute path.
std::string fileURLFromPath(std::string_view path);

}  // namespace orla
