// SimKeychain: the simulated desktop's keychain, generic-password items held
// in memory. A test (or a state file) can lock it or make it refuse access,
// to see how callers cope with a keychain that will not answer.
// Thread safety: every method may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/http.h>
#include <orla/platform/keychain.h>

namespace orla::sim {

class SimDesktop;

enum class SimKeychainAccess {
  unlocked,
  locked,  // every operation answers interactionNotAllowed
  denied,  // every operation answers authorizationDenied
};

struct SimKeychainItem {
  std::string service;
  std::string account;
  std::string data;
  friend bool operator==(const SimKeychainItem&, const SimKeychainItem&) = default;
};

class SimKeychain {
 public:
  KeychainLookup copy(std::string_view service, std::string_view account) const;
  KeychainStatus add(std::string_view service, std::string_view account, std::string_view data);
  KeychainStatus remove(std::string_view service, std::string_view account);

  // Every item, sorted by service and account, whatever the access.
  std::vector<SimKeychainItem> items() const;
  // Replaces every item, whatever the access (for set-up).
  void setItems(const std::vector<SimKeychainItem>& items);
  SimKeychainAccess access() const;
  void setAccess(SimKeychainAccess access);

 private:
  KeychainStatus refusal() const;  // with mutex_ held

  mutable std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, std::string, std::less<>> items_;
  SimKeychainAccess access_ = SimKeychainAccess::unlocked;
};

// The keychain service of the simulated desktop. It records every call in
// the trace (category "keychain") by service, account and outcome, never
// with the secret.
std::unique_ptr<Keychain> makeSimKeychainService(std::shared_ptr<SimDesktop> desktop);

// Real HTTP (the process-wide session) that also records each request in
// the trace (category "http") as its method and address, without the query,
// any credentials or headers, which may carry secrets.
std::unique_ptr<Http> makeSimHttp(std::shared_ptr<SimDesktop> desktop);

// "keychain": {"access": "unlocked" | "locked" | "denied",
//              "items": [{"service": "...", "account": "...", "password": "..."}]}
// An absent key keeps the default: unlocked and empty. The saved state has
// the key only when the keychain is not in that default state.
Checked<void> loadKeychainState(SimKeychain& keychain, const nlohmann::json& state);
void saveKeychainState(const SimKeychain& keychain, nlohmann::json& state);

}  // namespace orla::sim
