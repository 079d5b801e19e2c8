#include "plugins/scripts/network_credential_store.h"

#include <algorithm>
#include <cctype>
#include <mutex>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>

namespace orla::NetworkCredentialStore {

namespace {

std::mutex& backendMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<SecretBackend>& backendSlot() {
  static std::shared_ptr<SecretBackend> slot = std::make_shared<KeychainSecretBackend>();
  return slot;
}

std::string lowercased(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

}  // namespace

std::shared_ptr<SecretBackend> backend() {
  std::lock_guard guard(backendMutex());
  return backendSlot();
}

void setBackend(std::shared_ptr<SecretBackend> replacement) {
  std::lock_guard guard(backendMutex());
  backendSlot() = std::move(replacement);
}

std::string account(const ServerAddress& address, std::string_view user) {
  std::string out = "network-" + lowercased(address.scheme) + "://" + std::string(user) + "@" + lowercased(address.host);
  if (address.port) {
    out += ':';  // not ":" + …, which GCC 12 at -O3 warns on falsely (-Wrestrict)
    out += std::to_string(*address.port);
  }
  return out;
}

std::optional<std::string> load(const ServerAddress& address, std::string_view user) {
  if (user.empty()) return std::nullopt;
  auto stored = backend()->load(account(address, user));
  if (!stored || stored->empty()) return std::nullopt;
  return stored;
}

void save(const ServerAddress& address, std::string_view user, std::string_view password) {
  if (user.empty()) return;
  if (password.empty()) backend()->remove(account(address, user));
  else backend()->save(account(address, user), password);
}

void remove(const ServerAddress& address, std::string_view user) {
  if (!user.empty()) backend()->remove(account(address, user));
}

std::optional<Target> target(const ActionData& data) {
  const auto text = readString(data, {"serverURL", "url", "URL", "server", "Server"});
  if (!text) return std::nullopt;
  auto parsed = parseServerAddress(*text);
  auto* address = std::get_if<ServerAddress>(&parsed);
  if (!address) return std::nullopt;
  std::string user = readStringOr(data, {"user", "username", "User"}, address->user);
  if (user.empty()) return std::nullopt;
  return Target{std::move(*address), std::move(user)};
}

namespace {

// The plain-text password of an action: the first of its keys holding one.
std::optional<std::string> plainPassword(const ActionData& data, std::string* key) {
  for (std::string_view name : {"password", "Password"}) {
    auto raw = readRawString(data, name);
    if (!raw) continue;
    if (key) *key = std::string(name);
    if (!SecretMarker::isPlaintextSecret(raw)) return std::nullopt;
    return std::string(trimWhitespaceAndNewlines(*raw));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> resolvePassword(const ActionData& data) {
  const auto where = target(data);
  if (!where) return std::nullopt;
  if (auto stored = load(where->address, where->user)) return stored;
  const auto plain = plainPassword(data, nullptr);
  if (!plain) return std::nullopt;
  save(where->address, where->user, *plain);
  return load(where->address, where->user);
}

bool migrate(ActionData& data) {
  const auto where = target(data);
  if (!where) return false;
  std::string key;
  const auto plain = plainPassword(data, &key);
  if (!plain) return false;
  if (!load(where->address, where->user)) save(where->address, where->user, *plain);
  data.insert_or_assign(key, AnyCodable(std::string(SecretMarker::keychain)));
  return true;
}

}  // namespace orla::NetworkCredentialStore
