#include "platform/linux/session_control.h"

#include <gio/gio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orla::linux_desktop {

namespace {

// Calls that only ask end within this; calls that may wait for the user
// (an authentication dialog of the system's policy) within the longer one.
constexpr int kCallTimeoutMs = 5000;
constexpr int kInteractiveTimeoutMs = 60000;

// The sentences true on this desktop, one per request.
struct Words {
  SessionRequest request;
  const char* verb;     // what the login manager is asked, in the refusal sentence
  const char* success;  // what was asked, when it was
};
constexpr Words kWords[] = {
    {SessionRequest::restart, "restart", "Asked the system to restart. Confirm the dialog if one appears."},
    {SessionRequest::shutDown, "shut down", "Asked the system to shut down. Confirm the dialog if one appears."},
    {SessionRequest::sleep, "sleep", "Putting the computer to sleep."},
    {SessionRequest::logOut, "log out", "Asked the system to log out. Confirm the dialog if one appears."},
    {SessionRequest::startScreenSaver, "start the screen saver", "Started the screen saver."},
    {SessionRequest::ejectRemovableDisks, "eject removable disks", "Ejected the removable disks."},
    {SessionRequest::emptyTrash, "empty the Trash", "Emptied the Trash."},
    {SessionRequest::toggleDockHiding, "hide the Dock", ""},
};
constexpr const char* kNoWake = " Scheduled wake is not supported on this desktop, so no wake time was set.";

const Words& words(SessionRequest request) {
  for (const Words& w : kWords)
    if (w.request == request) return w;
  return kWords[0];
}

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Ref = std::unique_ptr<T, Unref>;

struct VariantUnref {
  void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

// The text of a D-Bus error without the remote error's name in front.
std::string reasonOf(GError* error) {
  if (g_dbus_error_is_remote_error(error)) g_dbus_error_strip_remote_error(error);
  std::string text = error->message ? error->message : "";
  while (!text.empty() && (text.back() == '.' || text.back() == ' ')) text.pop_back();
  return text;
}

struct Call {
  Variant reply;
  std::string error;  // empty on success
};

Call call(GDBusConnection* bus, const char* name, const char* path, const char* interface, const char* method,
          GVariant* arguments, const GVariantType* replyType, bool interactive = false) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, name, path, interface, method, arguments, replyType,
      interactive ? G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION : G_DBUS_CALL_FLAGS_NONE,
      interactive ? kInteractiveTimeoutMs : kCallTimeoutMs, nullptr, &error);
  if (!reply) {
    std::string reason = reasonOf(error);
    g_error_free(error);
    return {nullptr, reason.empty() ? "no answer" : reason};
  }
  return {Variant(reply), {}};
}

bool hasOwner(GDBusConnection* bus, const char* name) {
  Call answer = call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                     g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"));
  gboolean owned = FALSE;
  if (answer.reply) g_variant_get(answer.reply.get(), "(b)", &owned);
  return owned;
}

Ref<GDBusConnection> connect(GBusType type) {
  // A private connection: the shared one would keep the process's first
  // answer to "is there a bus" for ever, and tests start buses late.
  GError* error = nullptr;
  gchar* address = g_dbus_address_get_for_bus_sync(type, nullptr, &error);
  if (!address) {
    g_error_free(error);
    return nullptr;
  }
  GDBusConnection* bus = g_dbus_connection_new_for_address_sync(
      address, static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                 G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  g_free(address);
  if (!bus) g_error_free(error);
  return Ref<GDBusConnection>(bus);
}

// Runs a program with arguments, without a shell, and answers whether it
// exited with status 0 within `timeout`.
bool runsSuccessfully(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
  std::vector<gchar*> args;
  for (const std::string& a : argv) args.push_back(const_cast<gchar*>(a.c_str()));
  args.push_back(nullptr);
  GPid pid = 0;
  if (!g_spawn_async(nullptr, args.data(), nullptr,
                     static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                              G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
                     nullptr, nullptr, &pid, nullptr))
    return false;
  const auto end = std::chrono::steady_clock::now() + timeout;
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return false;
    }
    g_usleep(10000);
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class LinuxSessionControl : public SessionControl {
 public:
  Checked<std::string> request(SessionRequest what, bool wakeAsked) override {
    switch (what) {
      case SessionRequest::restart: return askLoginManager(what, "CanReboot", "Reboot");
      case SessionRequest::shutDown: return askLoginManager(what, "CanPowerOff", "PowerOff");
      case SessionRequest::sleep: {
        auto asked = askLoginManager(what, "CanSuspend", "Suspend");
        if (asked && wakeAsked) return asked.value() + kNoWake;
        return asked;
      }
      case SessionRequest::logOut: return logOut();
      case SessionRequest::startScreenSaver: return startScreenSaver();
      case SessionRequest::ejectRemovableDisks: return ejectRemovableDisks();
      case SessionRequest::emptyTrash: return emptyTrash();
      case SessionRequest::toggleDockHiding:
        return fail("There is no Dock on this desktop, so there is nothing to hide or show. Hide the desktop's "
                    "panel in its own settings instead.");
    }
    return fail("Unknown system action. Choose one from the menu.");
  }

 private:
  static Failure refused(SessionRequest what, const std::string& reason) {
    return fail(std::string("The system refused to ") + words(what).verb + " (" + reason +
                "). Ask your administrator, or use the desktop's own menu.");
  }

  // The login manager's own check first, so that a request the policy
  // rules out is a sentence rather than a dialog; then the request itself,
  // with interactive authorisation allowed: the policy may ask the user.
  static Checked<std::string> askLoginManager(SessionRequest what, const char* check, const char* method) {
    auto bus = connect(G_BUS_TYPE_SYSTEM);
    if (!bus || !hasOwner(bus.get(), "org.freedesktop.login1"))
      return fail(std::string("The login manager is not running, so the system cannot be asked to ") +
                  words(what).verb + ".");
    Call can = call(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                    check, nullptr, G_VARIANT_TYPE("(s)"));
    if (!can.reply) return refused(what, can.error);
    const gchar* answer = nullptr;
    g_variant_get(can.reply.get(), "(&s)", &answer);
    const std::string_view verdict(answer);
    if (verdict == "na") return refused(what, "this computer cannot do that");
    if (verdict == "no") return refused(what, "not allowed for this user");
    Call asked = call(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1",
                      "org.freedesktop.login1.Manager", method, g_variant_new("(b)", TRUE), nullptr, true);
    if (!asked.reply) return refused(what, asked.error);
    return std::string(words(what).success);
  }

  // The desktop's session manager asks the user to confirm; without one,
  // the login manager ends this session.
  static Checked<std::string> logOut() {
    if (auto session = connect(G_BUS_TYPE_SESSION); session && hasOwner(session.get(), "org.gnome.SessionManager")) {
      Call asked = call(session.get(), "org.gnome.SessionManager", "/org/gnome/SessionManager",
                        "org.gnome.SessionManager", "Logout", g_variant_new("(u)", 0u), nullptr, true);
      if (!asked.reply) return refused(SessionRequest::logOut, asked.error);
      return std::string(words(SessionRequest::logOut).success);
    }
    auto bus = connect(G_BUS_TYPE_SYSTEM);
    if (!bus || !hasOwner(bus.get(), "org.freedesktop.login1"))
      return fail("The login manager is not running, so the system cannot be asked to log out.");
    // "auto": the session of the caller, as the login manager finds it.
    const char* id = std::getenv("XDG_SESSION_ID");
    Call asked = call(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1",
                      "org.freedesktop.login1.Manager", "TerminateSession",
                      g_variant_new("(s)", id && *id ? id : "auto"), nullptr, true);
    if (!asked.reply) return refused(SessionRequest::logOut, asked.error);
    return std::string(words(SessionRequest::logOut).success);
  }

  // The first way that works, where working means the service says the
  // screen saver is now active, or the tool exits with success.
  static Checked<std::string> startScreenSaver() {
    const std::string started = words(SessionRequest::startScreenSaver).success;
    if (auto session = connect(G_BUS_TYPE_SESSION)) {
      struct Service {
        const char* name;
        const char* path;
      };
      for (const Service service : {Service{"org.gnome.ScreenSaver", "/org/gnome/ScreenSaver"},
                                    Service{"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver"},
                                    Service{"org.freedesktop.ScreenSaver", "/ScreenSaver"}}) {
        if (!hasOwner(session.get(), service.name)) continue;
        Call set = call(session.get(), service.name, service.path, service.name, "SetActive",
                        g_variant_new("(b)", TRUE), nullptr);
        if (!set.reply) continue;
        Call active = call(session.get(), service.name, service.path, service.name, "GetActive", nullptr,
                           G_VARIANT_TYPE("(b)"));
        gboolean on = FALSE;
        if (active.reply) g_variant_get(active.reply.get(), "(b)", &on);
        if (on) return started;
      }
    }
    if (runsSuccessfully({"xdg-screensaver", "activate"}, std::chrono::seconds(5))) return started;
    return fail("Could not start the screen saver: no screen saver answered on this desktop. Start the "
                "desktop's screen saver or install xdg-screensaver, then click Test again.");
  }

  static Checked<std::string> ejectRemovableDisks();
  static Checked<std::string> emptyTrash();
};

// Ejecting is asynchronous in GIO: each request is started, then a private
// main context runs until every answer is in or the deadline passes.
Checked<std::string> LinuxSessionControl::ejectRemovableDisks() {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  struct Pending {
    int left = 0;
    std::vector<std::string> failures;
  };
  // On the heap: an answer that misses the deadline may still come while
  // the context is iterated by no one, and must find its state alive.
  auto* pending = new Pending;
  Ref<GVolumeMonitor> monitor(g_volume_monitor_get());
  GList* mounts = g_volume_monitor_get_mounts(monitor.get());
  for (GList* m = mounts; m; m = m->next) {
    GMount* mount = G_MOUNT(m->data);
    if (!g_mount_can_eject(mount)) continue;
    ++pending->left;
    g_mount_eject_with_operation(
        mount, G_MOUNT_UNMOUNT_NONE, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* state = static_cast<Pending*>(data);
          GError* error = nullptr;
          if (!g_mount_eject_with_operation_finish(G_MOUNT(source), result, &error)) {
            gchar* name = g_mount_get_name(G_MOUNT(source));
            state->failures.push_back(std::string(name) + ": " + reasonOf(error));
            g_free(name);
            g_error_free(error);
          }
          --state->left;
        },
        pending);
  }
  const int asked = pending->left;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (pending->left > 0 && std::chrono::steady_clock::now() < end)
    if (!g_main_context_iteration(context, FALSE)) g_usleep(5000);
  g_list_free_full(mounts, g_object_unref);
  monitor.reset();
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  const bool late = pending->left > 0;
  std::vector<std::string> failures = pending->failures;
  if (!late) delete pending;  // else left to the answer that may still come
  if (late) failures.push_back("the disks did not answer within 30 seconds");
  if (asked == 0) return std::string("There were no removable disks to eject.");
  if (!failures.empty()) {
    std::string message = "Could not eject ";
    for (std::size_t i = 0; i < failures.size(); ++i) message += (i ? "; " : "") + failures[i];
    return fail(message + ". Close what uses the disk, then click Test again.");
  }
  return std::string(words(SessionRequest::ejectRemovableDisks).success);
}

// Deletes a file or a folder with everything in it, through GIO.
bool deleteTree(GFile* file, std::string& failure) {
  GError* error = nullptr;
  // GVfs's trash deletes a folder in it whole, and forbids touching what is
  // inside; a folder elsewhere is emptied first.
  if (g_file_delete(file, nullptr, &error)) return true;
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_NOT_EMPTY) &&
      g_file_query_file_type(file, G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr) == G_FILE_TYPE_DIRECTORY) {
    g_clear_error(&error);
    if (GFileEnumerator* children = g_file_enumerate_children(file, G_FILE_ATTRIBUTE_STANDARD_NAME,
                                                              G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr)) {
      GFileInfo* info = nullptr;
      GFile* child = nullptr;
      while (g_file_enumerator_iterate(children, &info, &child, nullptr, nullptr) && info)
        if (!deleteTree(child, failure)) break;
      g_object_unref(children);
    }
    if (g_file_delete(file, nullptr, &error)) return true;
  }
  if (failure.empty()) {
    gchar* name = g_file_get_parse_name(file);
    failure = std::string(name) + " (" + reasonOf(error) + ")";
    g_free(name);
  }
  g_error_free(error);
  return false;
}

// Deletes everything in a folder; false when the folder cannot be listed.
bool deleteChildren(GFile* folder, std::string& failure) {
  GFileEnumerator* items = g_file_enumerate_children(folder, G_FILE_ATTRIBUTE_STANDARD_NAME,
                                                     G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr);
  if (!items) return false;
  GFileInfo* info = nullptr;
  GFile* item = nullptr;
  while (g_file_enumerator_iterate(items, &info, &item, nullptr, nullptr) && info) deleteTree(item, failure);
  g_object_unref(items);
  return true;
}

// The Trash as GIO's trash:/// shows it where a virtual file system serves
// it (every mounted volume's trash too); else the home Trash folder of the
// freedesktop layout, whose "files" and "info" are emptied.
Checked<std::string> LinuxSessionControl::emptyTrash() {
  std::string failure;
  Ref<GFile> trash(g_file_new_for_uri("trash:///"));
  if (!deleteChildren(trash.get(), failure)) {
    const std::filesystem::path home = std::filesystem::path(g_get_user_data_dir()) / "Trash";
    for (const char* part : {"files", "info"}) {
      Ref<GFile> folder(g_file_new_for_path((home / part).c_str()));
      deleteChildren(folder.get(), failure);
    }
  }
  if (!failure.empty()) return fail("Could not empty the Trash: " + failure + " could not be deleted.");
  return std::string(words(SessionRequest::emptyTrash).success);
}

}  // namespace

std::unique_ptr<SessionControl> makeLinuxSessionControl() { return std::make_unique<LinuxSessionControl>(); }

}  // namespace orla::linux_desktop
