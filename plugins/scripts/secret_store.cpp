#include "plugins/scripts/secret_store.h"

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {

KeychainSecretBackend::KeychainSecretBackend(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)) {}

std::shared_ptr<Platform> KeychainSecretBackend::platform() const {
  return platform_ ? platform_ : Platform::current();
}

std::string KeychainSecretBackend::service() const { return platform()->host().bundleIdentifier(); }

std::optional<std::string> KeychainSecretBackend::load(std::string_view key) const {
  auto platform = this->platform();
  KeychainLookup found = platform->keychain().copyPassword(platform->host().bundleIdentifier(), key);
  if (found.status != KeychainStatus::success || !found.data || !isValidUtf8(*found.data))
    return std::nullopt;
  return std::move(found.data);
}

void KeychainSecretBackend::save(std::string_view key, std::string_view value) {
  if (!isValidUtf8(value)) return;
  auto platform = this->platform();
  const std::string service = platform->host().bundleIdentifier();
  Keychain& keychain = platform->keychain();
  (void)keychain.deletePassword(service, key);
  (void)keychain.addPassword(service, key, value);
}

void KeychainSecretBackend::remove(std::string_view key) {
  auto platform = this->platform();
  (void)platform->keychain().deletePassword(platform->host().bundleIdentifier(), key);
}

std::optional<std::string> InMemorySecretBackend::load(std::string_view key) const {
  std::lock_guard guard(lock_);
  auto it = storage_.find(key);
  if (it == storage_.end()) return std::nullopt;
  return it->second;
}

void InMemorySecretBackend::save(std::string_view key, std::string_view value) {
  std::lock_guard guard(lock_);
  storage_.insert_or_assign(std::string(key), std::string(value));
}

void InMemorySecretBackend::remove(std::string_view key) {
  std::lock_guard guard(lock_);
  if (auto it = storage_.find(key); it != storage_.end()) storage_.erase(it);
}

std::vector<std::string> InMemorySecretBackend::allKeys() const {
  std::lock_guard guard(lock_);
  std::vector<std::string> keys;
  keys.reserve(storage_.size());
  for (const auto& entry : storage_) keys.push_back(entry.first);
  return keys;
}

namespace SecretMarker {

bool isMarker(std::optional<std::string_view> text) { return text && *text == keychain; }

bool isPlaintextSecret(std::optional<std::string_view> text) {
  if (!text) return false;
  const std::string_view trimmed = trimWhitespaceAndNewlines(*text);
  return !trimmed.empty() && trimmed != keychain;
}

}  // namespace SecretMarker

namespace AIActionKeyStore {

namespace {

std::mutex& backendMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<SecretBackend>& backendSlot() {
  static std::shared_ptr<SecretBackend> slot = std::make_shared<KeychainSecretBackend>();
  return slot;
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

std::string account(std::string_view provider) {
  std::string name = toLowercase(trimWhitespaceAndNewlines(provider));
  if (name.empty()) name = "openai";
  return "ai-action-" + name + "-api-key";
}

std::string load(std::string_view provider) {
  auto stored = backend()->load(account(provider));
  return stored ? std::string(trimWhitespaceAndNewlines(*stored)) : std::string();
}

void save(std::string_view provider, std::string_view key) {
  const std::string_view trimmed = trimWhitespaceAndNewlines(key);
  if (trimmed.empty()) backend()->remove(account(provider));
  else backend()->save(account(provider), trimmed);
}

void remove(std::string_view provider) { backend()->remove(account(provider)); }

std::string resolveKey(std::string_view provider, const ActionData& data) {
  if (std::string stored = load(provider); !stored.empty()) return stored;
  auto plain = readRawString(data, dataKey);
  if (!SecretMarker::isPlaintextSecret(plain)) return {};
  std::string key(trimWhitespaceAndNewlines(*plain));
  save(provider, key);
  return key;
}

bool migrate(ActionData& data) {
  const std::string provider = readRawString(data, "provider").value_or("openai");
  auto plain = readRawString(data, dataKey);
  if (!plain) return false;
  const std::string_view trimmed = trimWhitespaceAndNewlines(*plain);
  if (trimmed.empty() || trimmed == SecretMarker::keychain) return false;
  if (load(provider).empty()) save(provider, trimmed);
  data.insert_or_assign(std::string(dataKey), AnyCodable(std::string(SecretMarker::keychain)));
  return true;
}

}  // namespace AIActionKeyStore

}  // namespace orla
