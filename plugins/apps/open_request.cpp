#include "plugins/apps/open_request.h"

#include <orla/models/text.h>

namespace orla {

void Outcome::complete(std::optional<std::string> error) {
  std::lock_guard lock(mutex_);
  if (answered_) return;
  answered_ = true;
  error_ = std::move(error);
}

std::optional<std::optional<std::string>> Outcome::answer() const {
  std::lock_guard lock(mutex_);
  if (!answered_) return std::nullopt;
  return error_;
}

OpenAnswer openWithApplication(Platform& platform, std::vector<std::string> urls, const std::string& applicationPath,
                               bool activates, std::chrono::milliseconds limit) {
  auto outcome = std::make_shared<Outcome>();
  OpenConfiguration configuration;
  configuration.activates = activates;
  platform.fileWorkspace().openURLs(std::move(urls), applicationPath, configuration,
                                    [outcome](std::optional<std::string> error) { outcome->complete(std::move(error)); });
  Clock& clock = platform.clock();
  const auto deadline = clock.monotonicNow() + limit;
  for (;;) {
    if (auto answer = outcome->answer()) {
      if (!*answer) return {OpenAnswer::Kind::opened, {}};
      return {OpenAnswer::Kind::failed, **answer};
    }
    if (clock.monotonicNow() >= deadline) return {OpenAnswer::Kind::unanswered, {}};
    clock.sleep(kOpenPollInterval);
  }
}

std::string applicationDisplayName(Platform& platform, const std::string& applicationPath) {
  std::string name = platform.fileWorkspace().displayName(applicationPath);
  if (name.size() > 4 && equalsIgnoringCase(std::string_view(name).substr(name.size() - 4), ".app"))
    name.resize(name.size() - 4);
  return name;
}

}  // namespace orla
