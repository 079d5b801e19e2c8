// The keychain service: what every backend answers, the simulated one's
// locked and denied states, its trace and its place in the state file.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <orla/platform/platform.h>
#include "platform/sim/sim_desktop.h"
#include "platform/sim/sim_state.h"

namespace orla {
namespace {

struct SimBackend {
  static std::shared_ptr<Platform> make() { return sim::makeSimPlatform(std::make_shared<sim::SimDesktop>()); }
};
struct NativeBackend {
  static std::shared_ptr<Platform> make() { return makeNativePlatform(); }
};

template <class Backend>
class KeychainConformance : public ::testing::Test {
 protected:
  std::shared_ptr<Platform> platform = Backend::make();
};

using Backends = ::testing::Types<SimBackend, NativeBackend>;
class BackendNames {
 public:
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, SimBackend> ? "sim" : "native";
  }
};
TYPED_TEST_SUITE(KeychainConformance, Backends, BackendNames);

TYPED_TEST(KeychainConformance, ItemsAreAddedFoundAndDeletedByServiceAndAccount) {
  Keychain& keychain = this->platform->keychain();
  if (!this->platform->supports(Capability::keychain)) {
    // Without a keychain every answer says so, and nothing is found.
    EXPECT_EQ(keychain.copyPassword("svc", "acct").status, KeychainStatus::unavailable);
    EXPECT_EQ(keychain.copyPassword("svc", "acct").data, std::nullopt);
    EXPECT_EQ(keychain.addPassword("svc", "acct", "x"), KeychainStatus::unavailable);
    EXPECT_EQ(keychainStatusMessage(KeychainStatus::unavailable),
              "The keychain is not available on this desktop in this build of Orla.");
    GTEST_SKIP() << "no keychain on this backend";
  }
  // A real keyring may keep what an earlier run left.
  (void)keychain.deletePassword("orla.test", "a");
  (void)keychain.deletePassword("orla.other", "a");
  EXPECT_EQ(keychain.copyPassword("orla.test", "a").status, KeychainStatus::itemNotFound);
  EXPECT_EQ(keychain.addPassword("orla.test", "a", "s3cret ✓"), KeychainStatus::success);
  EXPECT_EQ(keychain.addPassword("orla.test", "a", "other"), KeychainStatus::duplicateItem);
  EXPECT_EQ(keychain.addPassword("orla.other", "a", "elsewhere"), KeychainStatus::success);
  const KeychainLookup found = keychain.copyPassword("orla.test", "a");
  EXPECT_EQ(found.status, KeychainStatus::success);
  EXPECT_EQ(found.data, "s3cret ✓");
  EXPECT_EQ(keychain.deletePassword("orla.test", "a"), KeychainStatus::success);
  EXPECT_EQ(keychain.deletePassword("orla.test", "a"), KeychainStatus::itemNotFound);
  EXPECT_EQ(keychain.copyPassword("orla.test", "a").data, std::nullopt);
  EXPECT_EQ(keychain.copyPassword("orla.other", "a").data, "elsewhere");
  EXPECT_EQ(keychain.deletePassword("orla.other", "a"), KeychainStatus::success);
}

TEST(SimKeychain, LockedOrDeniedAnswersEveryCallWithoutTouchingItems) {
  auto desktop = std::make_shared<sim::SimDesktop>();
  auto platform = sim::makeSimPlatform(desktop);
  Keychain& keychain = platform->keychain();
  desktop->keychain().setItems({{"svc", "acct", "kept"}});
  const std::pair<sim::SimKeychainAccess, KeychainStatus> cases[] = {
      {sim::SimKeychainAccess::locked, KeychainStatus::interactionNotAllowed},
      {sim::SimKeychainAccess::denied, KeychainStatus::authorizationDenied}};
  for (auto [access, status] : cases) {
    desktop->keychain().setAccess(access);
    EXPECT_EQ(keychain.copyPassword("svc", "acct").status, status);
    EXPECT_EQ(keychain.copyPassword("svc", "acct").data, std::nullopt);
    EXPECT_EQ(keychain.deletePassword("svc", "acct"), status);
    EXPECT_EQ(keychain.addPassword("svc", "new", "x"), status);
  }
  desktop->keychain().setAccess(sim::SimKeychainAccess::unlocked);
  EXPECT_EQ(desktop->keychain().items(), (std::vector<sim::SimKeychainItem>{{"svc", "acct", "kept"}}));
}

TEST(SimKeychain, TraceNamesTheItemAndOutcomeButNeverTheSecret) {
  auto desktop = std::make_shared<sim::SimDesktop>();
  auto platform = sim::makeSimPlatform(desktop);
  Keychain& keychain = platform->keychain();
  (void)keychain.addPassword("svc", "acct", "sk-very-secret");
  (void)keychain.copyPassword("svc", "acct");
  desktop->keychain().setAccess(sim::SimKeychainAccess::locked);
  (void)keychain.deletePassword("svc", "acct");
  const std::vector<sim::TraceEntry> expected{
      {"keychain", "add svc acct: ok"},
      {"keychain", "copy svc acct: ok"},
      {"keychain", "delete svc acct: The keychain is locked."},
  };
  EXPECT_EQ(desktop->trace("keychain"), expected);
}

TEST(SimKeychain, StateFileSeedsAndSavesItemsAndAccess) {
  using nlohmann::json;
  const json state = json::parse(R"({"keychain": {"access": "locked", "items": [
      {"service": "pro.orla.OrlaPro", "account": "ai-action-openai-api-key", "password": "sk-1"},
      {"service": "pro.orla.OrlaPro", "account": "ai-action-anthropic-api-key", "password": "sk-ant"}]}})");
  sim::SimDesktop desktop;
  ASSERT_TRUE(sim::loadState(desktop, state));
  EXPECT_EQ(desktop.keychain().access(), sim::SimKeychainAccess::locked);
  EXPECT_EQ(desktop.keychain().items().size(), 2u);
  const json saved = sim::saveState(desktop);
  // Saved sorted by service and account.
  EXPECT_EQ(saved["keychain"]["items"][0]["account"], "ai-action-anthropic-api-key");
  sim::SimDesktop again;
  ASSERT_TRUE(sim::loadState(again, saved));
  EXPECT_EQ(sim::saveState(again), saved);

  sim::SimDesktop fresh;
  EXPECT_FALSE(sim::saveState(fresh).contains("keychain")) << "the default keychain is not written";

  const std::pair<const char*, const char*> bad[] = {
      {R"({"keychain": []})", "Simulated desktop state: “keychain” must be an object with “access” and “items”."},
      {R"({"keychain": {"access": "open"}})",
       "Simulated desktop state: “keychain” access must be “unlocked”, “locked” or “denied”."},
      {R"({"keychain": {"items": {}}})", "Simulated desktop state: “keychain” items must be a list."},
      {R"({"keychain": {"items": [{"service": "s", "account": "a", "password": 1}]}})",
       "Simulated desktop state: “keychain” items must each have a “service”, an “account” and a “password” text."},
  };
  for (auto [text, message] : bad) {
    sim::SimDesktop d;
    auto loaded = sim::loadState(d, json::parse(text));
    ASSERT_FALSE(loaded) << text;
    EXPECT_EQ(loaded.error(), message);
  }
}

TEST(SimKeychain, SavesBytesThatAreNotUtf8AsReplacementCharacters) {
  sim::SimDesktop desktop;
  desktop.keychain().setItems({{"svc", "acct", "a\xFF"}});
  EXPECT_EQ(sim::saveState(desktop)["keychain"]["items"][0]["password"], "a\uFFFD");
}

}  // namespace
}  // namespace orla
