// The Secret Service keychain against the real gnome-keyring of the headless
// desktop: what it stores is what `secret-tool` reads and the other way
// round, a locked collection is reported as locked without a prompt, and no
// sentence on the keychain's paths ever carries the secret.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/secret_service_keychain.h"
#include <orla/platform/platform.h>
#include "platform/posix/curl_http.h"
#include "plugins/scripts/ai_action_plugin.h"
#include "plugins/scripts/secret_store.h"
#include "tests/support/command_output.h"

namespace orla {
namespace {

constexpr const char* kSecrets = "org.freedesktop.secrets";

GDBusConnection* sessionBus() {
  if (!std::getenv("ORLA_HARNESS_KEYRING_PASSWORD")) return nullptr;
  return g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
}

using testing::outputOf;

// A collection of its own on the keyring, made and unlocked with a master
// password through gnome-keyring's own interface (no prompt), so that
// locking it disturbs no other test using the login collection.
class PrivateCollection {
 public:
  explicit PrivateCollection(GDBusConnection* bus) : bus_(bus) {
    GVariant* opened = call("/org/freedesktop/secrets", "org.freedesktop.Secret.Service", "OpenSession",
                            g_variant_new("(sv)", "plain", g_variant_new_string("")));
    if (!opened) return;
    const char* session = nullptr;
    GVariant* output = nullptr;
    g_variant_get(opened, "(v&o)", &output, &session);
    session_ = session;
    g_variant_unref(output);
    g_variant_unref(opened);
    alias_ = "orlatest" + std::to_string(::getpid());
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Collection.Label",
                          g_variant_new_string(alias_.c_str()));
    GVariant* made = call("/org/freedesktop/secrets", "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
                          "CreateWithMasterPassword", g_variant_new("(a{sv}@(oayays))", &properties, master()));
    if (!made) return;
    const char* path = nullptr;
    g_variant_get(made, "(&o)", &path);
    path_ = path;
    g_variant_unref(made);
  }
  ~PrivateCollection() {
    if (path_.empty()) return;
    unlock();
    if (GVariant* gone = call(path_, "org.freedesktop.Secret.Collection", "Delete", nullptr)) g_variant_unref(gone);
  }
  bool ready() const { return !path_.empty(); }
  const std::string& path() const { return path_; }

  bool lock() {
    const char* paths[] = {path_.c_str()};
    GVariant* answer = call("/org/freedesktop/secrets", "org.freedesktop.Secret.Service", "Lock",
                            g_variant_new("(@ao)", g_variant_new_objv(paths, 1)));
    if (answer) g_variant_unref(answer);
    return answer != nullptr;
  }
  bool unlock() {
    GVariant* answer = call("/org/freedesktop/secrets", "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
                            "UnlockWithMasterPassword", g_variant_new("(o@(oayays))", path_.c_str(), master()));
    if (answer) g_variant_unref(answer);
    return answer != nullptr;
  }

 private:
  GVariant* master() const {
    static const char password[] = "orla-private-collection";
    return g_variant_new("(o@ay@ays)", session_.c_str(),
                         g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, "", 0, 1),
                         g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, password, sizeof password - 1, 1),
                         "text/plain");
  }
  GVariant* call(const std::string& path, const char* interface, const char* method, GVariant* arguments) {
    GError* error = nullptr;
    GVariant* answer = g_dbus_connection_call_sync(bus_, kSecrets, path.c_str(), interface, method, arguments,
                                                   nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
    if (error) {
      ADD_FAILURE() << method << ": " << error->message;
      g_error_free(error);
    }
    return answer;
  }

  GDBusConnection* bus_;
  std::string session_, path_, alias_;
};

class SecretServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bus = sessionBus();
    if (!bus) GTEST_SKIP() << "no Secret Service: the headless desktop's keyring is not running";
  }
  void TearDown() override {
    if (bus) g_object_unref(bus);
  }
  GDBusConnection* bus = nullptr;
  const std::string service = "orla.test.secret-service." + std::to_string(::getpid());
};

TEST_F(SecretServiceTest, SecretToolReadsWhatIsStoredAndTheOtherWayRound) {
  auto keychain = linux_desktop::makeSecretServiceKeychain();
  ASSERT_EQ(keychain->addPassword(service, "ai-action-openai-api-key", "sk-☃-one"), KeychainStatus::success);
  EXPECT_EQ(outputOf("secret-tool lookup service '" + service + "' account ai-action-openai-api-key"), "sk-☃-one");
  // Named for the desktop's password manager.
  EXPECT_NE(outputOf("secret-tool search service '" + service + "' 2>&1").find(
                "label = ai-action-openai-api-key (" + service + ")"),
            std::string::npos);
  ASSERT_EQ(std::system(("printf 'typed-by-hand' | secret-tool store --label=x service '" + service +
                         "' account ai-action-anthropic-api-key").c_str()),
            0);
  EXPECT_EQ(keychain->copyPassword(service, "ai-action-anthropic-api-key").data, "typed-by-hand");
  EXPECT_EQ(keychain->deletePassword(service, "ai-action-anthropic-api-key"), KeychainStatus::success);
  EXPECT_EQ(outputOf("secret-tool lookup service '" + service + "' account ai-action-anthropic-api-key"), "");
  EXPECT_EQ(keychain->deletePassword(service, "ai-action-openai-api-key"), KeychainStatus::success);
  EXPECT_EQ(keychain->copyPassword(service, "ai-action-openai-api-key").status, KeychainStatus::itemNotFound);
}

TEST_F(SecretServiceTest, ALockedCollectionIsReportedLockedAndKeepsItsItems) {
  PrivateCollection collection(bus);
  ASSERT_TRUE(collection.ready());
  linux_desktop::SecretServiceOptions options;
  options.collection = collection.path();
  options.allowPrompt = false;
  auto keychain = linux_desktop::makeSecretServiceKeychain(options);
  ASSERT_EQ(keychain->addPassword(service, "acct", "kept"), KeychainStatus::success);
  ASSERT_TRUE(collection.lock());
  EXPECT_EQ(keychain->copyPassword(service, "acct").status, KeychainStatus::interactionNotAllowed);
  EXPECT_EQ(keychain->copyPassword(service, "acct").data, std::nullopt);
  EXPECT_EQ(keychain->addPassword(service, "other", "x"), KeychainStatus::interactionNotAllowed);
  EXPECT_EQ(keychain->deletePassword(service, "acct"), KeychainStatus::interactionNotAllowed);
  ASSERT_TRUE(collection.unlock());
  EXPECT_EQ(keychain->copyPassword(service, "acct").data, "kept");
  EXPECT_EQ(keychain->copyPassword(service, "other").status, KeychainStatus::itemNotFound);
}

// The bundle identifier is the service of every item.
class TestHost : public Host {
 public:
  explicit TestHost(std::string id) : id_(std::move(id)) {}
  std::string bundleIdentifier() const override { return id_; }
  ProcessId processIdentifier() const override { return ::getpid(); }
  ActivationPolicy activationPolicy() const override { return ActivationPolicy::prohibited; }
  bool setActivationPolicy(ActivationPolicy) override { return false; }
  bool hasVisibleTitledWindow() const override { return false; }

 private:
  std::string id_;
};

TEST_F(SecretServiceTest, NoSentenceOnTheKeychainPathsCarriesTheSecret) {
  constexpr std::string_view kSecret = "sk-LEAK-CANARY-7f3a";
  PrivateCollection collection(bus);
  ASSERT_TRUE(collection.ready());
  linux_desktop::SecretServiceOptions options;
  options.collection = collection.path();
  options.allowPrompt = false;
  Platform::Services services;
  services.host = std::make_unique<TestHost>(service);
  services.keychain = linux_desktop::makeSecretServiceKeychain(options);
  services.http = std::make_unique<posix::CurlHttp>();
  auto platform = std::make_shared<Platform>("keyring-test", std::move(services),
                                             std::set<Capability>{Capability::keychain, Capability::http});
  auto previous = AIActionKeyStore::backend();
  AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>(platform));
  AIActionPlugin plugin(platform);
  const ActionData marked{{"provider", AnyCodable("openai")}, {"prompt", AnyCodable("hi")},
                          {"apiKey", AnyCodable("<keychain>")}};

  ::testing::internal::CaptureStderr();
  std::vector<std::string> sentences;
  AIActionKeyStore::save("openai", kSecret);
  ASSERT_EQ(AIActionKeyStore::load("openai"), kSecret);
  ASSERT_TRUE(collection.lock());
  // Locked: the stored key cannot be read, every call answers a status.
  const Keychain& keychain = platform->keychain();
  for (const KeychainStatus status : {keychain.copyPassword(service, AIActionKeyStore::account("openai")).status,
                                      platform->keychain().addPassword(service, "x", kSecret),
                                      platform->keychain().deletePassword(service, "x")}) {
    EXPECT_EQ(status, KeychainStatus::interactionNotAllowed);
    sentences.emplace_back(keychainStatusMessage(status));
  }
  EXPECT_EQ(AIActionKeyStore::load("openai"), "");
  if (auto problem = plugin.validate(marked)) sentences.push_back(*problem);
  sentences.push_back(plugin.execute(marked).message());
  EXPECT_EQ(sentences.back(), "Enter an OpenAI API key.");
  ASSERT_TRUE(collection.unlock());
  const std::string logged = ::testing::internal::GetCapturedStderr();
  AIActionKeyStore::setBackend(previous);

  for (const std::string& sentence : sentences) EXPECT_EQ(sentence.find(kSecret), std::string::npos) << sentence;
  EXPECT_EQ(logged.find(kSecret), std::string::npos) << logged;
}

}  // namespace
}  // namespace orla
