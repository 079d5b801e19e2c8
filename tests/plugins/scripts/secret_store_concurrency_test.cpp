// InMemorySecretBackend used from many threads at once; built and run under
// ThreadSanitizer by the tsan preset, and as a plain test everywhere else.
#include <gtest/gtest.h>

#include <thread>

#include "plugins/scripts/secret_store.h"

namespace orla {
namespace {

TEST(InMemorySecretBackendConcurrency, ManyThreadsSaveLoadRemoveAndList) {
  InMemorySecretBackend backend;
  constexpr int kThreads = 8;
  constexpr int kRounds = 2000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&backend, t] {
      const std::string own = "own-" + std::to_string(t);
      for (int i = 0; i < kRounds; ++i) {
        const std::string value = std::to_string(i);
        backend.save(own, value);
        EXPECT_EQ(backend.load(own), value);  // no other thread writes this account
        backend.save("shared", own);
        if (auto seen = backend.load("shared")) {
          EXPECT_EQ(seen->rfind("own-", 0), 0u);
        }
        if (i % 16 == 0) backend.remove("shared");
        const auto keys = backend.allKeys();
        EXPECT_LE(keys.size(), static_cast<std::size_t>(kThreads + 1));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  auto keys = backend.allKeys();
  std::erase(keys, "shared");
  EXPECT_EQ(keys.size(), static_cast<std::size_t>(kThreads));
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(backend.load("own-" + std::to_string(t)), std::to_string(kRounds - 1));
}

}  // namespace
}  // namespace orla
