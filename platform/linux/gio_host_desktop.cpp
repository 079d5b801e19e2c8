// The host's own requests to the Linux desktop, through GIO: notices over
// the session bus, files and folders through the MIME associations.
#include <gio/gio.h>

#include <memory>

#include <orla/platform/host_desktop.h>
#include "platform/linux/glib_handles.h"

namespace orla::linux_desktop {
namespace {


// A notification server that does not answer within this time is treated
// as absent, so that a failed run is still logged without delay.
constexpr int kNoticeTimeoutMs = 3000;

class GioHostDesktop final : public HostDesktop {
 public:
  Checked<void> showNotice(const std::string& summary, const std::string& body) override {
    ErrorOut error;
    GObjectPtr<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error));
    if (!bus) return fail("There is no session bus to show the notice on (" + error.message("unknown error") + ").");
    GVariantBuilder actions, hints;
    g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
    g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
    GVariant* reply = g_dbus_connection_call_sync(
        bus.get(), "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
        "org.freedesktop.Notifications", "Notify",
        g_variant_new("(susssasa{sv}i)", "orla", 0u, "", summary.c_str(), body.c_str(), &actions, &hints, -1),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, kNoticeTimeoutMs, nullptr, &error);
    if (!reply) return fail("The desktop shows no notices (" + error.message("unknown error") + ").");
    g_variant_unref(reply);
    return {};
  }

  Checked<void> openInTextEditor(const std::filesystem::path& file) override {
    // Shortcut files are JSON, which many desktops hand to a browser; the
    // user edits them in whatever opens plain text.
    GObjectPtr<GAppInfo> editor(g_app_info_get_default_for_type("text/plain", FALSE));
    if (!editor) return fail("No application is set to open plain text, so " + file.string() + " cannot be opened.");
    GObjectPtr<GFile> target(g_file_new_for_path(file.c_str()));
    GList files{target.get(), nullptr, nullptr};
    ErrorOut error;
    if (!g_app_info_launch(editor.get(), &files, nullptr, &error))
      return fail(file.string() + " cannot be opened (" + error.message("unknown error") + ").");
    return {};
  }

  Checked<void> openFolder(const std::filesystem::path& folder) override {
    GObjectPtr<GFile> target(g_file_new_for_path(folder.c_str()));
    char* uri = g_file_get_uri(target.get());
    ErrorOut error;
    const bool opened = g_app_info_launch_default_for_uri(uri, nullptr, &error);
    g_free(uri);
    if (!opened) return fail(folder.string() + " cannot be shown (" + error.message("unknown error") + ").");
    return {};
  }
};

}  // namespace

std::unique_ptr<HostDesktop> makeGioHostDesktop() { return std::make_unique<GioHostDesktop>(); }

}  // namespace orla::linux_desktop
