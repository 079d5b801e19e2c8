#include "platform/sim/sim_settings.h"

#include "platform/sim/sim_desktop.h"

namespace orla::sim {

void SimSettings::setDesktop(std::optional<std::string> desktop) {
  std::lock_guard lock(mutex_);
  desktop_ = std::move(desktop);
}
std::optional<std::string> SimSettings::desktop() const {
  std::lock_guard lock(mutex_);
  return desktop_;
}
void SimSettings::setRefuses(bool refuses) {
  std::lock_guard lock(mutex_);
  refuses_ = refuses;
}
bool SimSettings::refuses() const {
  std::lock_guard lock(mutex_);
  return refuses_;
}
void SimSettings::recordOpened(std::string request) {
  std::lock_guard lock(mutex_);
  opened_.push_back(std::move(request));
}
std::vector<std::string> SimSettings::opened() const {
  std::lock_guard lock(mutex_);
  return opened_;
}

namespace {

class SimSettingsPanes : public SettingsPanes {
 public:
  explicit SimSettingsPanes(std::shared_ptr<SimDesktop> desktop) : desktop_(std::move(desktop)) {}
  std::optional<std::string> desktop() const override { return desktop_->settings().desktop(); }
  Checked<void> open(std::string_view identifier) override {
    SimSettings& settings = desktop_->settings();
    const auto which = settings.desktop();
    if (!which) return fail("This desktop has no settings application.");
    std::string request;
    if (*which == "macos") request = "x-apple.systempreferences:";
    else if (*which == "gnome") request = "gnome-control-center ";
    else request = "systemsettings ";
    request += identifier;
    desktop_->record("settings", (settings.refuses() ? "refused " : "open ") + request);
    if (settings.refuses()) return fail("The settings application refused the request.");
    settings.recordOpened(std::move(request));
    return {};
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::unique_ptr<SettingsPanes> makeSimSettingsPanes(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimSettingsPanes>(std::move(desktop));
}

}  // namespace orla::sim
