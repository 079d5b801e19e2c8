#include "platform/linux/atspi_bus.h"

#include <cstdlib>
#include <cstring>

namespace orla::linux_desktop {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kDeadlineMs = static_cast<int>(AtspiBus::kDeadline.count());

Variant own(GVariant* v) { return Variant(v, [](GVariant* p) { if (p) g_variant_unref(p); }); }

// The accessibility bus's address, asked of the session bus when the
// environment does not name it.
std::string busAddress() {
  if (const char* address = std::getenv("AT_SPI_BUS_ADDRESS"); address && *address) return address;
  // Without a session bus there is nothing to ask, and asking would launch
  // one of its own.
  const char* session = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!session || !*session) return {};
  GError* error = nullptr;
  GDBusConnection* bus = g_dbus_connection_new_for_address_sync(
      session,
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!bus) {
    g_clear_error(&error);
    return {};
  }
  std::string address;
  GVariant* reply = g_dbus_connection_call_sync(bus, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus",
                                                "GetAddress", nullptr, G_VARIANT_TYPE("(s)"),
                                                G_DBUS_CALL_FLAGS_NONE, kDeadlineMs, nullptr, &error);
  if (reply) {
    const gchar* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    if (text) address = text;
    g_variant_unref(reply);
  }
  g_clear_error(&error);
  g_object_unref(bus);
  return address;
}

}  // namespace

AtspiRef refFrom(GVariant* so) {
  const gchar* bus = nullptr;
  const gchar* path = nullptr;
  g_variant_get(so, "(&s&o)", &bus, &path);
  return {bus ? bus : "", path ? path : ""};
}

std::vector<AtspiRef> refsFrom(GVariant* array) {
  std::vector<AtspiRef> out;
  const gsize count = g_variant_n_children(array);
  out.reserve(count);
  for (gsize i = 0; i < count; ++i) {
    GVariant* child = g_variant_get_child_value(array, i);
    out.push_back(refFrom(child));
    g_variant_unref(child);
  }
  return out;
}

std::shared_ptr<AtspiBus> AtspiBus::connect() {
  const std::string address = busAddress();
  if (address.empty()) return nullptr;
  GError* error = nullptr;
  GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  g_clear_error(&error);
  if (!connection) return nullptr;
  // A bus that is there but whose registry does not answer is no bus.
  auto bus = std::shared_ptr<AtspiBus>(new AtspiBus(connection));
  if (!bus->call({"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"}, "org.a11y.atspi.Accessible",
                 "GetRole", nullptr, "(u)"))
    return nullptr;
  return bus;
}

AtspiBus::~AtspiBus() {
  if (connection_) g_object_unref(connection_);
}

bool AtspiBus::stalled(const std::string& bus) {
  std::lock_guard lock(mutex_);
  const auto it = stalledSince_.find(bus);
  if (it == stalledSince_.end()) return false;
  if (SteadyClock::now() - it->second < kStallMemory) return true;
  stalledSince_.erase(it);
  return false;
}

AXError AtspiBus::mapError(const std::string& bus, GError* error) {
  AXError mapped = AXError::failure;
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) {
    std::lock_guard lock(mutex_);
    stalledSince_[bus] = SteadyClock::now();
    mapped = AXError::cannotComplete;
  } else if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    mapped = AXError::apiDisabled;
  } else if (gchar* remote = g_dbus_error_get_remote_error(error)) {
    const std::string name = remote;
    g_free(remote);
    if (name == "org.freedesktop.DBus.Error.ServiceUnknown" || name == "org.freedesktop.DBus.Error.UnknownObject" ||
        name == "org.freedesktop.DBus.Error.NameHasNoOwner")
      mapped = AXError::invalidUIElement;
    else if (name == "org.freedesktop.DBus.Error.NoReply" || name == "org.freedesktop.DBus.Error.Timeout")
      mapped = AXError::cannotComplete;
    else if (name == "org.freedesktop.DBus.Error.UnknownMethod" ||
             name == "org.freedesktop.DBus.Error.UnknownInterface" ||
             name == "org.freedesktop.DBus.Error.UnknownProperty")
      mapped = AXError::attributeUnsupported;
    else if (name == "org.freedesktop.DBus.Error.InvalidArgs")
      mapped = AXError::illegalArgument;
  }
  g_error_free(error);
  return mapped;
}

AXResult<Variant> AtspiBus::call(const AtspiRef& ref, const char* interface, const char* method,
                                 GVariant* parameters, const char* replyType, std::chrono::milliseconds deadline) {
  if (ref.bus.empty() || ref.path.empty()) {
    if (parameters) g_variant_unref(g_variant_ref_sink(parameters));
    return AXError::invalidUIElement;
  }
  if (stalled(ref.bus)) {
    if (parameters) g_variant_unref(g_variant_ref_sink(parameters));
    return AXError::cannotComplete;
  }
  ++roundTrips_;
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(connection_, ref.bus.c_str(), ref.path.c_str(), interface, method,
                                                parameters, replyType ? G_VARIANT_TYPE(replyType) : nullptr,
                                                // The registry may be started on demand; applications never.
                                                ref.bus.starts_with("org.a11y.") ? G_DBUS_CALL_FLAGS_NONE
                                                                                 : G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                                static_cast<int>(deadline.count()), nullptr, &error);
  if (!reply) return mapError(ref.bus, error);
  return own(reply);
}

namespace {

struct Pending {
  AtspiBus* bus;
  std::string name;
  AXResult<Variant>* slot;
  std::size_t* left;
  GError* error = nullptr;
};

}  // namespace

std::vector<AXResult<Variant>> AtspiBus::callMany(const std::vector<Request>& requests) {
  // Not too many in flight: a bus limits the replies one connection awaits.
  constexpr std::size_t kInFlight = 256;
  std::vector<AXResult<Variant>> replies(requests.size(), AXResult<Variant>(AXError::cannotComplete));
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  std::size_t next = 0, left = 0;
  std::vector<std::unique_ptr<Pending>> pending;
  const auto done = [](GObject* source, GAsyncResult* result, gpointer data) {
    auto* p = static_cast<Pending*>(data);
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &p->error);
    if (reply) *p->slot = own(reply);
    --*p->left;
  };
  while (next < requests.size() || left > 0) {
    while (next < requests.size() && left < kInFlight) {
      const Request& r = requests[next];
      if (stalled(r.ref.bus) || r.ref.bus.empty()) {
        if (r.parameters) g_variant_unref(g_variant_ref_sink(r.parameters));
        ++next;
        continue;
      }
      ++roundTrips_;
      ++left;
      pending.push_back(std::make_unique<Pending>(Pending{this, r.ref.bus, &replies[next], &left}));
      g_dbus_connection_call(connection_, r.ref.bus.c_str(), r.ref.path.c_str(), r.interface, r.method, r.parameters,
                             r.replyType ? G_VARIANT_TYPE(r.replyType) : nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                             kDeadlineMs, nullptr, done, pending.back().get());
      ++next;
    }
    g_main_context_iteration(context, TRUE);
  }
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  for (const auto& p : pending)
    if (p->error) *p->slot = mapError(p->name, p->error);
  return replies;
}

AXResult<Variant> AtspiBus::property(const AtspiRef& ref, const char* interface, const char* name) {
  auto reply = call(ref, "org.freedesktop.DBus.Properties", "Get", g_variant_new("(ss)", interface, name), "(v)");
  if (!reply) return reply.error();
  GVariant* boxed = nullptr;
  g_variant_get(reply->get(), "(v)", &boxed);
  return own(boxed);
}

AXError AtspiBus::setProperty(const AtspiRef& ref, const char* interface, const char* name, GVariant* value) {
  auto reply = call(ref, "org.freedesktop.DBus.Properties", "Set", g_variant_new("(ssv)", interface, name, value),
                    nullptr);
  return reply ? AXError::success : reply.error();
}

std::vector<AtspiRef> AtspiBus::applications() {
  auto reply = call({"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"}, "org.a11y.atspi.Accessible",
                    "GetChildren", nullptr, "(a(so))");
  if (!reply) return {};
  GVariant* array = g_variant_get_child_value(reply->get(), 0);
  auto out = refsFrom(array);
  g_variant_unref(array);
  return out;
}

std::optional<ProcessId> AtspiBus::processOf(const std::string& busName) {
  {
    std::lock_guard lock(mutex_);
    if (const auto it = processes_.find(busName); it != processes_.end()) return it->second;
  }
  auto reply = call({"org.freedesktop.DBus", "/org/freedesktop/DBus"}, "org.freedesktop.DBus",
                    "GetConnectionUnixProcessID", g_variant_new("(s)", busName.c_str()), "(u)");
  if (!reply) return std::nullopt;
  guint32 pid = 0;
  g_variant_get(reply->get(), "(u)", &pid);
  std::lock_guard lock(mutex_);
  processes_[busName] = static_cast<ProcessId>(pid);
  return static_cast<ProcessId>(pid);
}

}  // namespace orla::linux_desktop
