#include <orla/models/url.h>

#include <uriparser/Uri.h>

#include <cctype>
#include <vector>

namespace orla {

URLCharacterSet URLCharacterSet::alphanumericsAnd(std::string_view extra) {
  URLCharacterSet set;
  for (unsigned c = 0; c < 128; ++c)
    if (std::isalnum(static_cast<int>(c))) set.bits_[c] = true;
  return set.adding(extra);
}

URLCharacterSet URLCharacterSet::queryAllowed() { return alphanumericsAnd("!$&'()*+,-./:;=?@_~"); }
URLCharacterSet URLCharacterSet::fragmentAllowed() { return alphanumericsAnd("!$&'()*+,-./:;=?@_~"); }
URLCharacterSet URLCharacterSet::pathAllowed() { return alphanumericsAnd("!$&'()*+,-./:=@_~"); }

URLCharacterSet URLCharacterSet::adding(std::string_view characters) const {
  URLCharacterSet set = *this;
  for (char c : characters)
    if (static_cast<unsigned char>(c) < 128) set.bits_[static_cast<unsigned char>(c)] = true;
  return set;
}

URLCharacterSet URLCharacterSet::removing(std::string_view characters) const {
  URLCharacterSet set = *this;
  for (char c : characters)
    if (static_cast<unsigned char>(c) < 128) set.bits_[static_cast<unsigned char>(c)] = false;
  return set;
}

std::string percentEncode(std::string_view text, const URLCharacterSet& allowed) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (allowed.contains(c)) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::optional<ParsedURL> parseURL(std::string_view text) {
  // uriparser reads up to the terminating zero: a text holding one is not a URL.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string copy(text);
  UriUriA uri;
  const char* errorAt = nullptr;
  const bool ok = uriParseSingleUriExA(&uri, copy.data(), copy.data() + copy.size(), &errorAt) == URI_SUCCESS;
  if (!ok) return std::nullopt;
  ParsedURL parsed{copy, {}};
  if (uri.scheme.first && uri.scheme.afterLast > uri.scheme.first) parsed.scheme.assign(uri.scheme.first, uri.scheme.afterLast);
  uriFreeUriMembersA(&uri);
  return parsed;
}

std::optional<std::string> filePathFromURL(std::string_view url) {
  auto parsed = parseURL(url);
  if (!parsed) return std::nullopt;
  std::string scheme = parsed->scheme;
  for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "file") return std::nullopt;
  // The converter knows the scheme in lowercase only.
  const std::string text = "file" + parsed->text.substr(4);
  std::vector<char> path(text.size() + 1, '\0');
  if (uriUriStringToUnixFilenameA(text.c_str(), path.data()) != URI_SUCCESS) return std::nullopt;
  std::string out(path.data());
  // "file://localhost/tmp" names "/tmp" on this machine.
  if (out.rfind("localhost/", 0) == 0) out.erase(0, 9);
  if (out.empty() || out.front() != '/') return std::nullopt;
  return out;
}

std::string fileURLFromPath(std::string_view path) {
  return "file://" + percentEncode(path, URLCharacterSet::pathAllowed());
}

}  // namespace orla
