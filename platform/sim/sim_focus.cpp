#include "platform/sim/sim_focus.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/sim/sim_desktop.h"

namespace orla::sim {

FocusModeState SimFocus::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}
void SimFocus::setState(FocusModeState state) {
  std::lock_guard lock(mutex_);
  state_ = std::move(state);
}
void SimFocus::apply(const std::string& name, bool on) {
  std::lock_guard lock(mutex_);
  // The system switches only the modes it has.
  if (std::find(state_.modes.begin(), state_.modes.end(), name) == state_.modes.end()) return;
  if (on) state_.active = name;
  else if (state_.active == name) state_.active.reset();
}
std::optional<std::chrono::microseconds> SimFocus::switchDelay() const {
  std::lock_guard lock(mutex_);
  return switchDelay_;
}
void SimFocus::setSwitchDelay(std::optional<std::chrono::microseconds> delay) {
  std::lock_guard lock(mutex_);
  switchDelay_ = delay;
}
bool SimFocus::refuses() const {
  std::lock_guard lock(mutex_);
  return refuses_;
}
void SimFocus::setRefuses(bool refuses) {
  std::lock_guard lock(mutex_);
  refuses_ = refuses;
}
bool SimFocus::needsAccessibility() const {
  std::lock_guard lock(mutex_);
  return needsAccessibility_;
}
void SimFocus::setNeedsAccessibility(bool needs) {
  std::lock_guard lock(mutex_);
  needsAccessibility_ = needs;
}

namespace {

class SimFocusModes : public FocusModes {
 public:
  explicit SimFocusModes(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<FocusModeState> state() override { return desktop_->focus().state(); }

  Checked<void> setMode(std::string_view name, bool on) override {
    SimFocus& focus = desktop_->focus();
    const std::string mode(name);
    desktop_->record("focus", (focus.refuses() ? "refused " : "") + std::string(on ? "on " : "off ") + "\u201c" +
                                  mode + "\u201d");
    if (focus.refuses()) return fail("The system refused the switch.");
    const auto delay = focus.switchDelay();
    if (!delay) return {};
    if (delay->count() == 0) {
      focus.apply(mode, on);
      return {};
    }
    std::weak_ptr<SimDesktop> weak = desktop_;
    desktop_->atTime(*delay, [weak, mode, on] {
      if (auto desktop = weak.lock()) desktop->focus().apply(mode, on);
    });
    return {};
  }

  bool needsAccessibility() const override { return desktop_->focus().needsAccessibility(); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

Failure badFocus(std::string_view expected) {
  return fail("Simulated desktop state: \u201cfocus\u201d must be " + std::string(expected) + ".");
}

}  // namespace

std::unique_ptr<FocusModes> makeSimFocusModes(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimFocusModes>(std::move(desktop));
}

Checked<void> loadFocusState(SimFocus& focus, const nlohmann::json& state) {
  auto it = state.find("focus");
  if (it == state.end()) return {};
  if (!it->is_object()) return badFocus("an object");
  FocusModeState modes = focus.state();
  if (auto list = it->find("modes"); list != it->end()) {
    if (!list->is_array()) return badFocus("an object whose \u201cmodes\u201d is a list of different names");
    modes.modes.clear();
    for (const auto& name : *list) {
      if (!name.is_string() || name.get<std::string>().empty() ||
          std::count(modes.modes.begin(), modes.modes.end(), name.get<std::string>()))
        return badFocus("an object whose \u201cmodes\u201d is a list of different names");
      modes.modes.push_back(name.get<std::string>());
    }
    modes.active.reset();
  }
  if (auto active = it->find("active"); active != it->end()) {
    if (active->is_null()) modes.active.reset();
    else if (active->is_string() &&
             std::count(modes.modes.begin(), modes.modes.end(), active->get<std::string>()))
      modes.active = active->get<std::string>();
    else return badFocus("an object whose \u201cactive\u201d is one of its modes, or null");
  }
  if (auto delay = it->find("switchDelayMs"); delay != it->end()) {
    if (delay->is_null()) focus.setSwitchDelay(std::nullopt);
    else if (delay->is_number_unsigned() && delay->get<std::uint64_t>() <= 3'600'000)
      focus.setSwitchDelay(std::chrono::milliseconds(delay->get<std::uint64_t>()));
    else return badFocus("an object whose \u201cswitchDelayMs\u201d is a whole number of milliseconds up to an hour, or null");
  }
  for (auto [key, setter] : {std::pair{"refuses", &SimFocus::setRefuses},
                             std::pair{"needsAccessibility", &SimFocus::setNeedsAccessibility}}) {
    if (auto flag = it->find(key); flag != it->end()) {
      if (!flag->is_boolean()) return badFocus("an object whose \u201c" + std::string(key) + "\u201d is true or false");
      (focus.*setter)(flag->get<bool>());
    }
  }
  focus.setState(std::move(modes));
  return {};
}

void saveFocusState(const SimFocus& focus, nlohmann::json& state) {
  const SimFocus defaults;
  const FocusModeState modes = focus.state();
  if (modes == defaults.state() && focus.switchDelay() == defaults.switchDelay() &&
      focus.refuses() == defaults.refuses() && focus.needsAccessibility() == defaults.needsAccessibility())
    return;
  nlohmann::json out = {{"modes", modes.modes},
                        {"refuses", focus.refuses()},
                        {"needsAccessibility", focus.needsAccessibility()}};
  out["active"] = modes.active ? nlohmann::json(*modes.active) : nlohmann::json(nullptr);
  if (auto delay = focus.switchDelay())
    out["switchDelayMs"] = std::chrono::duration_cast<std::chrono::milliseconds>(*delay).count();
  else out["switchDelayMs"] = nullptr;
  state["focus"] = std::move(out);
}

}  // namespace orla::sim
