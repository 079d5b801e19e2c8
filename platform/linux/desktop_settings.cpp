#include "platform/linux/desktop_settings.h"

#include <gio/gio.h>

#include <cstdlib>
#include <string>

namespace orla::linux_desktop {
namespace {

bool onPath(const char* program) {
  gchar* found = g_find_program_in_path(program);
  g_free(found);
  return found != nullptr;
}

// The desktop the session says it is (a colon-separated list), else the
// first settings program found on the path.
std::optional<std::string> sessionDesktop() {
  if (const char* current = std::getenv("XDG_CURRENT_DESKTOP")) {
    std::string list = current;
    std::size_t start = 0;
    while (start <= list.size()) {
      const std::size_t end = std::min(list.find(':', start), list.size());
      const std::string name = list.substr(start, end - start);
      if (name == "GNOME" || name == "Unity") return "gnome";
      if (name == "KDE") return "kde";
      start = end + 1;
    }
  }
  if (onPath("gnome-control-center")) return "gnome";
  if (onPath("systemsettings") || onPath("systemsettings5")) return "kde";
  return std::nullopt;
}

class DesktopSettingsPanes : public SettingsPanes {
 public:
  std::optional<std::string> desktop() const override { return sessionDesktop(); }

  // Started detached (GLib's double fork) and without a shell: the pane is
  // one argument whatever it holds; its output goes to the null device.
  Checked<void> open(std::string_view identifier) override {
    const auto which = sessionDesktop();
    if (!which) return fail("This desktop has no settings application that Orla can open.");
    std::string program = *which == "gnome" ? "gnome-control-center" : "systemsettings";
    if (*which == "kde" && !onPath("systemsettings") && onPath("systemsettings5")) program = "systemsettings5";
    std::string pane(identifier);
    gchar* argv[] = {program.data(), pane.data(), nullptr};
    GError* error = nullptr;
    const gboolean started = g_spawn_async(
        nullptr, argv, nullptr,
        static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
        nullptr, nullptr, nullptr, &error);
    if (started) return {};
    std::string message = "Could not start " + program + ": " + (error ? error->message : "unknown error") + ".";
    if (error) g_error_free(error);
    return fail(std::move(message));
  }
};

}  // namespace

std::unique_ptr<SettingsPanes> makeDesktopSettingsPanes() { return std::make_unique<DesktopSettingsPanes>(); }

}  // namespace orla::linux_desktop
