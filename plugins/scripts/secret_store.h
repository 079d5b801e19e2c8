// The secret store: API keys kept out of saved actions. A key lives in the
// keychain under one account per AI provider, and the action's "apiKey"
// parameter keeps only the marker "<keychain>". The AI action resolves its
// key here on every run; the host may migrate saved actions in bulk.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/any_codable.h>
#include <orla/platform/platform.h>

namespace orla {

// Where secrets are kept, by account name. Nothing is reported: a secret
// that cannot be read is none, and a save or a removal that fails is lost.
// (`remove` is the keychain's "delete", a reserved word here.)
class SecretBackend {
 public:
  virtual ~SecretBackend() = default;
  virtual std::optional<std::string> load(std::string_view key) const = 0;
  // Stores `value` under `key`, replacing any earlier secret.
  virtual void save(std::string_view key, std::string_view value) = 0;
  virtual void remove(std::string_view key) = 0;
};

// The user's keychain: generic-password items whose service is the host
// application's bundle identifier and whose account is the key. It keeps no
// state; without a platform of its own it uses the process default at each
// call, so a host that replaces the default is followed.
class KeychainSecretBackend : public SecretBackend {
 public:
  KeychainSecretBackend() = default;
  explicit KeychainSecretBackend(std::shared_ptr<Platform> platform);

  // The host's bundle identifier on the platform in use.
  std::string service() const;

  std::optional<std::string> load(std::string_view key) const override;
  // Delete, then add: an item always carries only these attributes.
  void save(std::string_view key, std::string_view value) override;
  void remove(std::string_view key) override;

 private:
  std::shared_ptr<Platform> platform() const;
  std::shared_ptr<Platform> platform_;
};

// Secrets in memory only, for hosts and tests that must not touch the
// keychain. Every operation takes the lock and releases it before returning.
class InMemorySecretBackend : public SecretBackend {
 public:
  InMemorySecretBackend() = default;

  std::optional<std::string> load(std::string_view key) const override;
  void save(std::string_view key, std::string_view value) override;
  void remove(std::string_view key) override;
  // The accounts held now, in no promised order.
  std::vector<std::string> allKeys() const;

 private:
  mutable std::mutex lock_;
  std::map<std::string, std::string, std::less<>> storage_;
};

namespace SecretMarker {

// What a saved action's "apiKey" holds when the key is in the keychain.
inline constexpr std::string_view keychain = "<keychain>";

// Exactly the marker, untrimmed.
bool isMarker(std::optional<std::string_view> text);
// Present, non-empty once trimmed, and not the marker once trimmed.
bool isPlaintextSecret(std::optional<std::string_view> text);

}  // namespace SecretMarker

namespace AIActionKeyStore {

inline constexpr std::string_view dataKey = "apiKey";

// The backend every call below uses: the keychain unless a host or a test
// set another. Replacing it while actions run is meant for set-up only.
std::shared_ptr<SecretBackend> backend();
void setBackend(std::shared_ptr<SecretBackend> backend);

// "ai-action-" + the provider, trimmed and lowercased ("openai" when that
// leaves nothing), + "-api-key".
std::string account(std::string_view provider);

// The stored key, trimmed; empty when there is none.
std::string load(std::string_view provider);
// Stores the trimmed key; a key that trims to nothing removes the stored one.
void save(std::string_view provider, std::string_view key);
void remove(std::string_view provider);

// The key for an action: the stored key wins; otherwise a plain-text
// "apiKey" is moved into the store and used; otherwise empty.
std::string resolveKey(std::string_view provider, const ActionData& data);

// Moves a plain-text "apiKey" into the store (unless a key is stored
// already, which is kept) and leaves the marker in its place. True when
// `data` changed, and the caller should then save the action again.
bool migrate(ActionData& data);

}  // namespace AIActionKeyStore

}  // namespace orla
