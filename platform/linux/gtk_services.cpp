#include "platform/linux/gtk_services.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "platform/linux/gtk/gtk_ui.h"
#include "platform/posix/install_locations.h"

namespace orla::linux_desktop {
namespace {

constexpr const char* kAlertsUnavailable = "Messages are not available on this desktop in this build of Orla.";
constexpr const char* kMenusUnavailable = "Pop-up menus are not available on this desktop in this build of Orla.";

class LoopOf : public MainLoop {
 public:
  explicit LoopOf(GLibMainThread& mainThread) : mainThread_(mainThread) {}
  void runUntil(const std::function<bool()>& done) override { mainThread_.runWhileWaiting(done); }

 private:
  GLibMainThread& mainThread_;
};

// The installed module (beside the installed program or library), else
// where the build put it.
std::filesystem::path modulePath() {
  if (auto found = findInstalledModule("orla_gtk.so", ORLA_GTK_MODULE)) return *found;
  return ORLA_GTK_MODULE;
}

// GTK starts once per process and is never unloaded; a failed start is not
// tried again (GTK cannot be initialised twice).
std::mutex gMutex;
bool gTried = false;
GtkUi* gUi = nullptr;
X11ErrorRoute gRouteErrors = nullptr;

GtkUi* loadedUi() {
  std::lock_guard lock(gMutex);
  if (gTried) return gUi;
  gTried = true;
  // Without a display GTK has nothing to show on; do not load it at all.
  const char* display = std::getenv("DISPLAY");
  if (!display || !*display) return nullptr;
  void* module = dlopen(modulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) return nullptr;
  auto open = reinterpret_cast<OrlaGtkUiOpen>(dlsym(module, "orla_gtk_ui_open"));
  std::string why;
  gUi = open ? open(&why, gRouteErrors) : nullptr;
  return gUi;
}

class GtkAlerts : public Alerts {
 public:
  explicit GtkAlerts(GLibMainThread& mainThread) : mainThread_(mainThread) {}
  Checked<int> runModal(const Alert& alert) override {
    return onMainThread(mainThread_, [&]() -> Checked<int> {
      // The hop runs on the caller when the main thread is busy elsewhere;
      // GTK may only be used on the main thread.
      if (!mainThread_.isMainThread()) return fail(kAlertsUnavailable);
      GtkUi* ui = loadedUi();
      if (!ui) return fail(kAlertsUnavailable);
      LoopOf loop(mainThread_);
      return ui->runAlert(alert, loop);
    });
  }

 private:
  GLibMainThread& mainThread_;
};

class GtkPopupMenus : public PopupMenus {
 public:
  explicit GtkPopupMenus(GLibMainThread& mainThread) : mainThread_(mainThread) {}
  Checked<std::optional<std::size_t>> popUpAtMouse(std::span<const MenuItem> items) override {
    auto chosen = popUp(items, false);
    if (!chosen) return fail(chosen.error());
    if (!*chosen || (*chosen)->empty()) return std::optional<std::size_t>();
    return std::optional<std::size_t>((*chosen)->front());
  }
  Checked<std::optional<MenuItemPath>> popUpNestedAtMouse(std::span<const MenuItem> items) override {
    return popUp(items, true);
  }

 private:
  Checked<std::optional<MenuItemPath>> popUp(std::span<const MenuItem> items, bool nested) {
    return onMainThread(mainThread_, [&]() -> Checked<std::optional<MenuItemPath>> {
      if (!mainThread_.isMainThread()) return fail(kMenusUnavailable);
      GtkUi* ui = loadedUi();
      if (!ui) return fail(kMenusUnavailable);
      LoopOf loop(mainThread_);
      return ui->popUpMenu(items, nested, loop);
    });
  }

  GLibMainThread& mainThread_;
};

}  // namespace

std::unique_ptr<Alerts> makeGtkAlerts(GLibMainThread& mainThread) { return std::make_unique<GtkAlerts>(mainThread); }
std::unique_ptr<PopupMenus> makeGtkPopupMenus(GLibMainThread& mainThread) {
  return std::make_unique<GtkPopupMenus>(mainThread);
}

void routeGtkErrors(X11ErrorRoute routeErrors) {
  std::lock_guard lock(gMutex);
  gRouteErrors = routeErrors;
}

GMountOperation* newGtkMountOperation() {
  GtkUi* ui = loadedUi();
  return ui ? static_cast<GMountOperation*>(ui->newMountOperation()) : nullptr;
}

bool gtkLoaded() {
  std::lock_guard lock(gMutex);
  return gUi != nullptr;
}

}  // namespace orla::linux_desktop
