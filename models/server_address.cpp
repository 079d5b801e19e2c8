#include <orla/models/server_address.h>

#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>

namespace orla {

namespace {

std::string lowercased(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

std::string range(const UriTextRangeA& r) {
  if (!r.first || !r.afterLast || r.afterLast < r.first) return {};
  return std::string(r.first, r.afterLast);
}

std::string percentDecoded(std::string text) {
  if (text.empty()) return text;
  // uriparser decodes in place and ends the text with a zero.
  const char* end = uriUnescapeInPlaceExA(text.data(), URI_FALSE, URI_BR_DONT_TOUCH);
  text.resize(static_cast<std::size_t>(end - text.data()));
  return text;
}

std::string withoutFinalSlash(std::string_view path) {
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

struct UriDeleter {
  void operator()(UriUriA* uri) const {
    uriFreeUriMembersA(uri);
    delete uri;
  }
};

struct Parts {
  ServerAddress address;
  bool hasPassword = false;
};

// An absolute URL with a host, taken apart; none otherwise.
std::optional<Parts> split(std::string_view text) {
  if (text.empty() || text.size() > kServerAddressLimit || text.find('\0') != std::string_view::npos)
    return std::nullopt;
  // Letters outside ASCII (a share named "Büro", a password) are taken as
  // their percent-encoded UTF-8, as a browser's address bar does.
  std::string copy;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      copy += c;
      continue;
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    copy += {'%', kHex[byte >> 4], kHex[byte & 15]};
  }
  std::unique_ptr<UriUriA, UriDeleter> uri(new UriUriA{});
  const char* errorAt = nullptr;
  if (uriParseSingleUriExA(uri.get(), copy.data(), copy.data() + copy.size(), &errorAt) != URI_SUCCESS)
    return std::nullopt;
  Parts parts;
  ServerAddress& a = parts.address;
  a.scheme = lowercased(range(uri->scheme));
  if (a.scheme == "cifs") a.scheme = "smb";
  a.host = range(uri->hostText);
  if (a.scheme.empty() || a.host.empty() || a.host.size() > kServerHostLimit) return std::nullopt;
  if (uri->hostData.ip6 || (uri->hostData.ipFuture.first && uri->hostData.ipFuture.afterLast))
    a.host = "[" + a.host + "]";
  if (const std::string port = range(uri->portText); !port.empty()) {
    if (port.size() > 5 || !std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c); }))
      return std::nullopt;
    const unsigned number = static_cast<unsigned>(std::stoul(port));
    if (number == 0 || number > 65535) return std::nullopt;
    a.port = number;
  }
  const std::string userInfo = range(uri->userInfo);
  const std::size_t colon = userInfo.find(':');
  parts.hasPassword = colon != std::string::npos;
  a.user = percentDecoded(userInfo.substr(0, colon));
  // The path as written: from the character after the authority up to a
  // query or fragment, which a share address has no use for.
  for (const UriPathSegmentA* segment = uri->pathHead; segment; segment = segment->next) {
    a.path += '/';
    a.path += range(segment->text);
  }
  return parts;
}

bool isSupported(std::string_view scheme) {
  static constexpr std::array<std::string_view, 7> kSchemes{"smb", "afp", "nfs", "sftp", "ftp", "http", "https"};
  return std::find(kSchemes.begin(), kSchemes.end(), scheme) != kSchemes.end();
}

}  // namespace

std::string ServerAddress::display() const {
  // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict) on
  // a literal added to a string.
  std::string out = scheme;
  out += "://";
  out += host;
  if (port) {
    out += ':';
    out += std::to_string(*port);
  }
  out += path;
  return out;
}

std::string ServerAddress::decodedPath() const { return percentDecoded(path); }

std::string ServerAddress::shareName() const {
  const std::string trimmed = withoutFinalSlash(path);
  const std::size_t slash = trimmed.rfind('/');
  const std::string last = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
  if (last.empty()) return host;
  return percentDecoded(last);
}

bool ServerAddress::sameVolume(const ServerAddress& other) const {
  return scheme == other.scheme && lowercased(host) == lowercased(other.host) && port == other.port &&
         withoutFinalSlash(path) == withoutFinalSlash(other.path);
}

std::variant<ServerAddress, ServerAddressProblem> parseServerAddress(std::string_view text) {
  auto parts = split(text);
  if (!parts) return ServerAddressProblem::notAnAddress;
  if (!isSupported(parts->address.scheme)) return ServerAddressProblem::unsupportedScheme;
  if (parts->hasPassword) return ServerAddressProblem::passwordInside;
  const ServerAddress& a = parts->address;
  if ((a.scheme == "smb" || a.scheme == "afp") && withoutFinalSlash(a.path).empty())
    return ServerAddressProblem::noShare;
  return std::move(parts->address);
}

std::optional<ServerAddress> parseMountedAddress(std::string_view text) {
  auto parts = split(text);
  if (!parts) return std::nullopt;
  if (parts->address.scheme == "dav") parts->address.scheme = "http";
  else if (parts->address.scheme == "davs") parts->address.scheme = "https";
  parts->address.user.clear();
  return std::move(parts->address);
}

}  // namespace orla
