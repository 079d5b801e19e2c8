// ServerAddress: the address of a server share as the network action takes
// it ("smb://server/Public"), parsed, checked and shown without its user
// part, so that no sentence ever repeats what the user typed.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace orla ORLA_EXPORT {

// Longer texts are not taken as addresses: a URL past this is no share a
// server offers, and a host name past the DNS limit resolves nowhere.
inline constexpr std::size_t kServerAddressLimit = 2048;
inline constexpr std::size_t kServerHostLimit = 253;

struct ServerAddress {
  std::string scheme;  // lowercased; "cifs" is read as "smb"
  std::string user;    // percent-decoded; empty: none
  std::string host;    // as written; an IPv6 address keeps its brackets
  std::optional<unsigned> port;
  std::string path;  // as written, still percent-encoded; "" or from "/"

  // scheme + "://" + host (+ ":" + port) + path: never a user or password.
  std::string display() const;
  // The path percent-decoded, as a folder on disk names it.
  std::string decodedPath() const;
  // The last path component, percent-decoded, or the host without a path.
  std::string shareName() const;
  // The same scheme, host (case-insensitive), port and path (without a
  // final "/"); the user does not count.
  bool sameVolume(const ServerAddress& other) const;
  // WebDAV over "http" and "https".
  bool isWebDAV() const { return scheme == "http" || scheme == "https"; }
};

enum class ServerAddressProblem {
  notAnAddress,       // does not parse, no host, or past a limit
  unsupportedScheme,  // outside smb, afp, nfs, sftp, ftp, http, https
  passwordInside,     // "user:password@host"
  noShare,            // smb and afp need one
};

// Parses `text` (already trimmed) in the order the problems are listed.
std::variant<ServerAddress, ServerAddressProblem> parseServerAddress(std::string_view text);

// The same, for an address the system reports (the source of a mounted
// volume); none when it is not a server address. The scheme's set is not
// checked, so "dav" and "davs" come back as "http" and "https".
std::optional<ServerAddress> parseMountedAddress(std::string_view text);

}  // namespace orla
