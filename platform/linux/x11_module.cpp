// The X11 module (orla_x11.so): the services of the X11 desktop and the
// running applications, added to a platform as the program asks (see
// x11_module.h).
#include "platform/linux/x11_module.h"

#include "platform/linux/proc_workspace.h"
#include "platform/linux/x11_connection.h"
#include "platform/linux/x11_displays.h"
#include "platform/linux/x11_events.h"
#include "platform/linux/x11_hotkeys.h"
#include "platform/linux/x11_pasteboard.h"

namespace orla::linux_desktop {

namespace {

void addWindowSystem(Platform::Services& services, std::set<Capability>& capabilities,
                     std::shared_ptr<ApplicationOpener> opener) {
  auto x11 = X11Connection::open();
  if (!x11) {
    services.workspace = makeProcWorkspace(std::move(opener));
    return;
  }
  services.keyboard = makeX11KeyboardEvents(*x11);
  services.mouse = makeX11MouseEvents(*x11);
  services.displays = makeX11Displays(*x11);
  services.accessibility = makeX11Accessibility(*x11);
  services.workspace = makeProcWorkspace(std::move(opener), *x11);
  capabilities.insert({Capability::keyboardEvents, Capability::mouseEvents, Capability::displays,
                       Capability::accessibility, Capability::applicationControl});
}

void addClipboard(Platform::Services& services, std::set<Capability>& capabilities) {
  if (auto clipboard = makeX11Pasteboard()) {
    services.pasteboard = std::move(clipboard.value());
    capabilities.insert(Capability::pasteboard);
  }
}

Workspace* makeWorkspace(std::shared_ptr<ApplicationOpener> opener) {
  return makeProcWorkspace(std::move(opener)).release();
}

GlobalHotkeys* openHotkeys(std::string* problem) {
  auto hotkeys = openX11GlobalHotkeys();
  if (!hotkeys) {
    *problem = hotkeys.error();
    return nullptr;
  }
  return std::move(hotkeys).value().release();
}

void routeErrors(void* display, void* receiver) { routeX11Errors(static_cast<Display*>(display), receiver); }

constexpr X11ModuleEntries kEntries{addWindowSystem, addClipboard,       makeWorkspace,
                                    openHotkeys,     describeX11Element, routeErrors};

}  // namespace

}  // namespace orla::linux_desktop

extern "C" __attribute__((visibility("default"))) const orla::linux_desktop::X11ModuleEntries*
orla_x11_module_entries() {
  return &orla::linux_desktop::kEntries;
}
