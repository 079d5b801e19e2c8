// NetworkCredentialStore: mount passwords kept out of saved actions, in the
// same keychain and with the same marker as the AI action's API keys. One
// account per scheme, user and server; without a user nothing is looked up,
// and the system's own stored credentials apply.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>
#include <orla/models/server_address.h>
#include "plugins/scripts/secret_store.h"

namespace orla::NetworkCredentialStore {

inline constexpr std::string_view dataKey = "password";

// The backend every call below uses: the keychain unless a host or a test
// set another. Replacing it while actions run is meant for set-up only.
std::shared_ptr<SecretBackend> backend();
void setBackend(std::shared_ptr<SecretBackend> backend);

// "network-" + scheme + "://" + user + "@" + host (+ ":" + port), scheme
// and host lowercased, the user as given.
std::string account(const ServerAddress& address, std::string_view user);

// The stored password; none when there is none or `user` is empty.
std::optional<std::string> load(const ServerAddress& address, std::string_view user);
// Stores the password as given (a password's spaces are its own); an
// empty one removes the stored password.
void save(const ServerAddress& address, std::string_view user, std::string_view password);
void remove(const ServerAddress& address, std::string_view user);

// The action's address and user, when both are there and the address is a
// valid server address.
struct Target {
  ServerAddress address;
  std::string user;
};
std::optional<Target> target(const ActionData& data);

// The password for an action: a stored password wins; otherwise a
// plain-text "password" is moved into the store and read back; otherwise
// none.
std::optional<std::string> resolvePassword(const ActionData& data);

// Moves a plain-text "password" into the store (unless one is stored
// already, which is kept) and leaves the marker in its place. True when
// `data` changed, and the caller should then save the action again. An
// action without a user or a valid address keeps its password: there is
// no account to move it to.
bool migrate(ActionData& data);

}  // namespace orla::NetworkCredentialStore
