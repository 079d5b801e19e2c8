// Keychain: the generic-password items of the user's keychain, each named by
// a service and an account. The backend reports what the keychain answered;
// what a missing or unreadable item means is the caller's business.
// Thread safety: every method may be called from any thread; the keychain
// serialises access itself.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

enum class KeychainStatus {
  success,
  itemNotFound,
  duplicateItem,
  interactionNotAllowed,  // the keychain is locked and may not ask
  authorizationDenied,    // the user or the system refused access
  unavailable,            // no keychain on this desktop
};

// One sentence for a status, for diagnostics and traces.
std::string_view keychainStatusMessage(KeychainStatus status);

struct KeychainLookup {
  KeychainStatus status = KeychainStatus::itemNotFound;
  std::optional<std::string> data;  // the item's bytes, when found
};

class Keychain {
 public:
  virtual ~Keychain() = default;
  virtual KeychainLookup copyPassword(std::string_view service, std::string_view account) const = 0;
  // Adds a new item; an existing item of that service and account makes it
  // fail with `duplicateItem`.
  virtual KeychainStatus addPassword(std::string_view service, std::string_view account,
                                     std::string_view data) = 0;
  virtual KeychainStatus deletePassword(std::string_view service, std::string_view account) = 0;
};

}  // namespace orla
