// The simulated desktop's settings application: which desktop the scene
// plays (whose settings program the real backend would start), whether it
// refuses, and every pane asked for, as the URL or the command line the real
// backend would use.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orla/platform/settings_panes.h>

namespace orla::sim {

class SimDesktop;

class SimSettings {
 public:
  // "macos" (the default), "gnome", "kde", or none.
  void setDesktop(std::optional<std::string> desktop);
  std::optional<std::string> desktop() const;
  void setRefuses(bool refuses);
  bool refuses() const;
  // "x-apple.systempreferences:com.apple.preference.sound" on macOS,
  // "gnome-control-center sound" on GNOME, "systemsettings kcm_pulseaudio"
  // on KDE.
  void recordOpened(std::string request);
  std::vector<std::string> opened() const;

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> desktop_ = "macos";
  bool refuses_ = false;
  std::vector<std::string> opened_;
};

std::unique_ptr<SettingsPanes> makeSimSettingsPanes(std::shared_ptr<SimDesktop> desktop);

}  // namespace orla::sim
