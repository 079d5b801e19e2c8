#include <orla/models/typing_target_context.h>

#include <mutex>

namespace orla {

namespace {

struct State {
  std::mutex mutex;
  std::optional<std::string> bundleIdentifier;
};

State& state() {
  static State s;
  return s;
}

}  // namespace

std::optional<std::string> TypingTargetContext::lastUserAppBundleID() {
  std::lock_guard lock(state().mutex);
  return state().bundleIdentifier;
}

void TypingTargetContext::setLastUserAppBundleID(std::optional<std::string> bundleIdentifier) {
  std::lock_guard lock(state().mutex);
  state().bundleIdentifier = std::move(bundleIdentifier);
}

}  // namespace orla
