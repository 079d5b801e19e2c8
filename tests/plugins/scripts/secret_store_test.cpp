#include "plugins/scripts/secret_store.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimKeychainItem;

TEST(SecretMarker, MarkerIsExactAndPlaintextIsTrimmedFirst) {
  struct Case {
    std::optional<std::string_view> text;
    bool marker;
    bool plaintext;
  };
  const Case cases[] = {
      {std::nullopt, false, false},
      {"", false, false},
      {"   \n\t", false, false},
      {"<keychain>", true, false},
      {" <keychain> ", false, false},
      {"<KEYCHAIN>", false, true},
      {"sk-abc", false, true},
      {"  sk-abc\n", false, true},
      {"<keychain>x", false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text ? std::string(*c.text) : "(absent)");
    EXPECT_EQ(SecretMarker::isMarker(c.text), c.marker);
    EXPECT_EQ(SecretMarker::isPlaintextSecret(c.text), c.plaintext);
  }
  EXPECT_EQ(SecretMarker::keychain.size(), 10u);
}

TEST(AIActionKeyStore, AccountNamesTrimAndLowercaseTheProvider) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"openai", "ai-action-openai-api-key"},       {"anthropic", "ai-action-anthropic-api-key"},
      {"local", "ai-action-local-api-key"},         {"  OpenAI \n", "ai-action-openai-api-key"},
      {"", "ai-action-openai-api-key"},             {" \t", "ai-action-openai-api-key"},
      {"Mistral", "ai-action-mistral-api-key"},
  };
  for (auto [provider, account] : cases) EXPECT_EQ(AIActionKeyStore::account(provider), account) << provider;
}

TEST(InMemorySecretBackend, SavesLoadsReplacesAndRemoves) {
  InMemorySecretBackend backend;
  EXPECT_EQ(backend.load("a"), std::nullopt);
  backend.save("a", "1");
  backend.save("b", "2");
  backend.save("a", "3");
  EXPECT_EQ(backend.load("a"), "3");
  auto keys = backend.allKeys();
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::string>{"a", "b"}));
  backend.remove("a");
  backend.remove("missing");
  EXPECT_EQ(backend.load("a"), std::nullopt);
  EXPECT_EQ(backend.allKeys(), std::vector<std::string>{"b"});
}

// The key store on the simulated keychain, as the host uses it.
class KeyStoreTest : public testing::SimTest {
 protected:
  KeyStoreTest() { AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>(platform)); }
  ~KeyStoreTest() override { AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>()); }

  std::optional<std::string> stored(std::string_view provider) {
    const std::string account = AIActionKeyStore::account(provider);
    for (const SimKeychainItem& item : desktop->keychain().items())
      if (item.service == "pro.orla.OrlaPro" && item.account == account) return item.data;
    return std::nullopt;
  }
};

TEST_F(KeyStoreTest, KeychainBackendUsesTheHostBundleIdentifierAndDeletesBeforeAdding) {
  KeychainSecretBackend backend(platform);
  EXPECT_EQ(backend.service(), "pro.orla.OrlaPro");
  backend.save("acct", "one");
  backend.save("acct", "two");
  EXPECT_EQ(backend.load("acct"), "two");
  const std::vector<sim::TraceEntry> expected{
      {"keychain", "delete pro.orla.OrlaPro acct: The keychain holds no such item."},
      {"keychain", "add pro.orla.OrlaPro acct: ok"},
      {"keychain", "delete pro.orla.OrlaPro acct: ok"},
      {"keychain", "add pro.orla.OrlaPro acct: ok"},
      {"keychain", "copy pro.orla.OrlaPro acct: ok"},
  };
  EXPECT_EQ(desktop->trace("keychain"), expected);
  backend.remove("acct");
  EXPECT_EQ(backend.load("acct"), std::nullopt);

  sim::HostIdentity host = desktop->host();
  host.bundleIdentifier = "com.example.Other";
  desktop->setHost(host);
  EXPECT_EQ(backend.service(), "com.example.Other");
}

TEST_F(KeyStoreTest, KeychainBackendReadsNothingItCannotTrust) {
  KeychainSecretBackend backend(platform);
  desktop->keychain().setItems({{"pro.orla.OrlaPro", "bytes", "\xC3\x28"}, {"pro.orla.OrlaPro", "ok", "fine"}});
  EXPECT_EQ(backend.load("bytes"), std::nullopt) << "not UTF-8";
  backend.save("new", "\xFF");
  EXPECT_EQ(desktop->keychain().items().size(), 2u) << "text that is not UTF-8 is not saved";
  desktop->keychain().setAccess(sim::SimKeychainAccess::locked);
  EXPECT_EQ(backend.load("ok"), std::nullopt);
  backend.remove("ok");  // silently refused
  desktop->keychain().setAccess(sim::SimKeychainAccess::unlocked);
  EXPECT_EQ(backend.load("ok"), "fine");
}

TEST_F(KeyStoreTest, DefaultBackendFollowsTheProcessPlatform) {
  auto previous = Platform::current();
  Platform::setCurrent(platform);
  KeychainSecretBackend backend;
  backend.save("acct", "via default");
  Platform::setCurrent(previous);
  EXPECT_EQ(desktop->keychain().items(), (std::vector<SimKeychainItem>{{"pro.orla.OrlaPro", "acct", "via default"}}));
}

TEST_F(KeyStoreTest, SaveTrimsAndAnEmptyKeyRemovesTheStoredOne) {
  AIActionKeyStore::save(" OpenAI ", "  sk-1 \n");
  EXPECT_EQ(stored("openai"), "sk-1");
  EXPECT_EQ(AIActionKeyStore::load("openai"), "sk-1");
  AIActionKeyStore::save("openai", "   ");
  EXPECT_EQ(stored("openai"), std::nullopt);
  EXPECT_EQ(AIActionKeyStore::load("openai"), "");
  AIActionKeyStore::save("anthropic", "sk-ant");
  AIActionKeyStore::remove("anthropic");
  EXPECT_EQ(stored("anthropic"), std::nullopt);
  // A stored key with spaces around it (written by another program) loads trimmed.
  desktop->keychain().setItems({{"pro.orla.OrlaPro", "ai-action-local-api-key", " k \n"}});
  EXPECT_EQ(AIActionKeyStore::load("local"), "k");
}

TEST_F(KeyStoreTest, ResolveKeyPrefersTheStoredKeyThenMovesAPlainOne) {
  AIActionKeyStore::save("openai", "A");
  EXPECT_EQ(AIActionKeyStore::resolveKey("openai", {{"apiKey", "B"}}), "A");
  EXPECT_EQ(stored("openai"), "A") << "the stored key wins and is kept";

  EXPECT_EQ(AIActionKeyStore::resolveKey("anthropic", {{"apiKey", "  B \n"}}), "B");
  EXPECT_EQ(stored("anthropic"), "B");

  const ActionData nothing[] = {{}, {{"apiKey", ""}}, {{"apiKey", "<keychain>"}}, {{"apiKey", " <keychain> "}},
                                {{"apiKey", 42}}};
  for (const ActionData& data : nothing) EXPECT_EQ(AIActionKeyStore::resolveKey("local", data), "");
  EXPECT_EQ(stored("local"), std::nullopt);

  // A locked keychain reads as empty: the plain key is used (its save is lost).
  desktop->keychain().setAccess(sim::SimKeychainAccess::locked);
  EXPECT_EQ(AIActionKeyStore::resolveKey("openai", {{"apiKey", "C"}}), "C");
  desktop->keychain().setAccess(sim::SimKeychainAccess::unlocked);
  EXPECT_EQ(stored("openai"), "A");
}

TEST_F(KeyStoreTest, MigrateMovesAPlainKeyOnceAndKeepsAStoredOne) {
  ActionData data{{"apiKey", " B "}, {"prompt", "hi"}};
  EXPECT_TRUE(AIActionKeyStore::migrate(data));
  EXPECT_EQ(stored("openai"), "B");
  EXPECT_EQ(data, (ActionData{{"apiKey", "<keychain>"}, {"prompt", "hi"}}));
  EXPECT_FALSE(AIActionKeyStore::migrate(data)) << "a second run changes nothing";

  AIActionKeyStore::save("anthropic", "A");
  ActionData anthropic{{"provider", " Anthropic "}, {"apiKey", "B"}};
  EXPECT_TRUE(AIActionKeyStore::migrate(anthropic));
  EXPECT_EQ(stored("anthropic"), "A");
  EXPECT_EQ(anthropic.at("apiKey"), AnyCodable("<keychain>"));

  ActionData notText{{"provider", 3}, {"apiKey", "K"}};
  EXPECT_TRUE(AIActionKeyStore::migrate(notText));
  EXPECT_EQ(stored("openai"), "B") << "a provider that is not text means openai, whose key is kept";

  const ActionData unchanged[] = {{}, {{"apiKey", 5}}, {{"apiKey", "  "}}, {{"apiKey", " <keychain>\n"}}};
  for (ActionData data2 : unchanged) {
    const ActionData before = data2;
    EXPECT_FALSE(AIActionKeyStore::migrate(data2));
    EXPECT_EQ(data2, before);
  }
}

TEST(AIActionKeyStoreBackend, CanBeReplacedByAnInMemoryBackend) {
  auto memory = std::make_shared<InMemorySecretBackend>();
  AIActionKeyStore::setBackend(memory);
  AIActionKeyStore::save("openai", "k");
  EXPECT_EQ(memory->allKeys(), std::vector<std::string>{"ai-action-openai-api-key"});
  EXPECT_EQ(AIActionKeyStore::backend(), memory);
  AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>());
}

}  // namespace
}  // namespace orla
