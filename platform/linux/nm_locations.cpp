// Network locations as NetworkManager's connection profiles, over GDBus on
// the system bus. Every call is synchronous with a short time-out: a
// NetworkManager that does not answer must not hold the action.
#include <gio/gio.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/gio_network_volumes.h"
#include "platform/linux/glib_handles.h"

namespace orla::linux_desktop {
namespace {

constexpr const char* kBusName = "org.freedesktop.NetworkManager";
constexpr const char* kManagerPath = "/org/freedesktop/NetworkManager";
constexpr const char* kManager = "org.freedesktop.NetworkManager";
constexpr const char* kSettingsPath = "/org/freedesktop/NetworkManager/Settings";
constexpr const char* kSettings = "org.freedesktop.NetworkManager.Settings";
constexpr const char* kProfile = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr const char* kActive = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr int kTimeoutMs = 5000;
constexpr guint32 kActivated = 2;  // NM_ACTIVE_CONNECTION_STATE_ACTIVATED

constexpr const char* kUnreachable =
    "NetworkManager did not answer on the system bus, so Orla cannot read the network locations. Start "
    "NetworkManager, then try again.";

struct VariantDeleter {
  void operator()(GVariant* v) const { g_variant_unref(v); }
};
using Variant = std::unique_ptr<GVariant, VariantDeleter>;

struct Profile {
  std::string path;
  std::string id;
};

struct Active {
  std::string path;
  std::string profile;  // the settings path it runs
  guint32 state = 0;
  bool isDefault = false;
};

class NetworkManagerLocations : public NetworkLocations {
 public:
  Checked<std::vector<std::string>> list() override {
    auto profiles = this->profiles();
    if (!profiles) return fail(profiles.error());
    std::vector<std::string> names;
    for (const Profile& p : *profiles) names.push_back(p.id);
    return names;
  }

  Checked<std::optional<std::string>> current() override {
    auto profiles = this->profiles();
    if (!profiles) return fail(profiles.error());
    auto active = this->active();
    if (!active) return fail(active.error());
    auto idOf = [&](const std::string& path) -> std::optional<std::string> {
      for (const Profile& p : *profiles)
        if (p.path == path) return p.id;
      return std::nullopt;
    };
    // The profile this process switched to, while it stays up; else the
    // one holding the default route; else the first that is up.
    const std::string mine = lastActivated();
    std::optional<std::string> preferred, first;
    for (const Active& a : *active) {
      const auto id = idOf(a.profile);
      if (!id || a.state != kActivated) continue;
      if (a.path == mine) return id;
      if (a.isDefault && !preferred) preferred = id;
      if (!first) first = id;
    }
    return preferred ? preferred : first;
  }

  Checked<void> activate(std::string_view name) override {
    auto profiles = this->profiles();
    if (!profiles) return fail(profiles.error());
    for (const Profile& p : *profiles) {
      if (p.id != name) continue;
      ErrorOut error;
      Variant reply(call(kManagerPath, kManager, "ActivateConnection",
                         g_variant_new("(ooo)", p.path.c_str(), "/", "/"), G_VARIANT_TYPE("(o)"), &error));
      if (!reply) return fail(error.message());
      const gchar* path = nullptr;
      g_variant_get(reply.get(), "(&o)", &path);
      std::lock_guard lock(mutex_);
      lastActivated_ = path ? path : "";
      return {};
    }
    return fail("There is no such connection profile.");
  }

 private:
  GVariant* call(const char* path, const char* interface, const char* method, GVariant* args,
                 const GVariantType* replyType, GError** error) {
    GDBusConnection* bus = connection(error);
    if (!bus) {
      if (args) g_variant_unref(g_variant_ref_sink(args));
      return nullptr;
    }
    return g_dbus_connection_call_sync(bus, kBusName, path, interface, method, args, replyType,
                                       G_DBUS_CALL_FLAGS_NO_AUTO_START, kTimeoutMs, nullptr, error);
  }

  // The system bus, opened once; a failure is tried again at the next call.
  GDBusConnection* connection(GError** error) {
    std::lock_guard lock(mutex_);
    if (!bus_) bus_.reset(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error));
    return bus_.get();
  }

  std::string lastActivated() {
    std::lock_guard lock(mutex_);
    return lastActivated_;
  }

  Checked<std::vector<Profile>> profiles() {
    ErrorOut error;
    Variant reply(call(kSettingsPath, kSettings, "ListConnections", nullptr, G_VARIANT_TYPE("(ao)"), &error));
    if (!reply) return fail(kUnreachable);
    std::vector<Profile> out;
    GVariantIter* paths = nullptr;
    g_variant_get(reply.get(), "(ao)", &paths);
    const gchar* path = nullptr;
    while (g_variant_iter_next(paths, "&o", &path)) {
      ErrorOut settingsError;
      Variant settings(call(path, kProfile, "GetSettings", nullptr, G_VARIANT_TYPE("(a{sa{sv}})"), &settingsError));
      if (!settings) continue;  // removed meanwhile
      Variant all(g_variant_get_child_value(settings.get(), 0));
      Variant connection(g_variant_lookup_value(all.get(), "connection", G_VARIANT_TYPE("a{sv}")));
      if (!connection) continue;
      const gchar* id = nullptr;
      const gchar* type = nullptr;
      if (!g_variant_lookup(connection.get(), "id", "&s", &id) || !id || !*id) continue;
      g_variant_lookup(connection.get(), "type", "&s", &type);
      // Loopback and bridge profiles are plumbing, not places to be.
      if (type && (std::string_view(type) == "loopback" || std::string_view(type) == "bridge")) continue;
      bool seen = false;
      for (const Profile& p : out) seen = seen || p.id == id;
      if (!seen) out.push_back({path, id});
    }
    g_variant_iter_free(paths);
    return out;
  }

  Checked<std::vector<Active>> active() {
    ErrorOut error;
    Variant reply(call(kManagerPath, kProperties, "Get", g_variant_new("(ss)", kManager, "ActiveConnections"),
                       G_VARIANT_TYPE("(v)"), &error));
    if (!reply) return fail(kUnreachable);
    Variant boxed(g_variant_get_child_value(reply.get(), 0));
    Variant list(g_variant_get_variant(boxed.get()));
    std::vector<Active> out;
    if (!g_variant_is_of_type(list.get(), G_VARIANT_TYPE("ao"))) return out;
    GVariantIter iter;
    g_variant_iter_init(&iter, list.get());
    const gchar* path = nullptr;
    while (g_variant_iter_next(&iter, "&o", &path)) {
      ErrorOut propsError;
      Variant props(call(path, kProperties, "GetAll", g_variant_new("(s)", kActive), G_VARIANT_TYPE("(a{sv})"),
                         &propsError));
      if (!props) continue;
      Variant dict(g_variant_get_child_value(props.get(), 0));
      Active a{path, {}, 0, false};
      const gchar* profile = nullptr;
      if (g_variant_lookup(dict.get(), "Connection", "&o", &profile) && profile) a.profile = profile;
      g_variant_lookup(dict.get(), "State", "u", &a.state);
      gboolean isDefault = FALSE;
      if (g_variant_lookup(dict.get(), "Default", "b", &isDefault)) a.isDefault = isDefault;
      out.push_back(std::move(a));
    }
    return out;
  }

  std::mutex mutex_;
  GObjectPtr<GDBusConnection> bus_;
  std::string lastActivated_;
};

}  // namespace

std::unique_ptr<NetworkLocations> makeNetworkManagerLocations() {
  return std::make_unique<NetworkManagerLocations>();
}

}  // namespace orla::linux_desktop
