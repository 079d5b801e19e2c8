#include "platform/linux/gio_services.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <vector>

#include <orla/models/file_formatting.h>
#include <orla/models/text.h>
#include <orla/models/url.h>
#include "platform/posix/posix_services.h"
#include "platform/linux/glib_handles.h"

namespace orla::linux_desktop {

namespace {


std::string fileName(std::string_view path) {
  const std::string name = std::filesystem::path(path).filename().string();
  return name.empty() ? std::string(path) : name;
}

// GIO ends some messages without a full stop; ours always have one.
std::string sentence(std::string text) {
  if (!text.empty() && text.back() != '.') text += '.';
  return text;
}

GObjectPtr<GAppInfo> desktopEntry(std::string_view path) {
  return GObjectPtr<GAppInfo>(G_APP_INFO(g_desktop_app_info_new_from_filename(std::string(path).c_str())));
}

std::optional<std::string> entryPath(GAppInfo* info) {
  if (!info || !G_IS_DESKTOP_APP_INFO(info)) return std::nullopt;
  const char* file = g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info));
  if (!file) return std::nullopt;
  return std::string(file);
}

class GioFileWorkspace : public FileWorkspace {
 public:
  std::optional<std::string> applicationForURL(std::string_view url) const override {
    auto parsed = parseURL(url);
    if (!parsed || parsed->scheme.empty()) return std::nullopt;
    // No application is registered for the scheme "file": a file address
    // opens with the application of the file's own type, as its document would.
    if (parsed->scheme == "file") {
      GObjectPtr<GFile> file(g_file_new_for_uri(std::string(url).c_str()));
      GObjectPtr<GFileInfo> info(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE,
                                                   G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
      const char* type = info ? g_file_info_get_content_type(info.get()) : nullptr;
      GObjectPtr<GAppInfo> app(type ? g_app_info_get_default_for_type(type, FALSE) : nullptr);
      return entryPath(app.get());
    }
    GObjectPtr<GAppInfo> info(g_app_info_get_default_for_uri_scheme(parsed->scheme.c_str()));
    return entryPath(info.get());
  }

  Checked<void> openDocument(std::string_view path) override {
    GObjectPtr<GFile> file(g_file_new_for_path(std::string(path).c_str()));
    ErrorOut error;
    GObjectPtr<GFileInfo> info(
        g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE, G_FILE_QUERY_INFO_NONE, nullptr, &error));
    if (!info) return fail(sentence(error.message()));
    const char* type = g_file_info_get_content_type(info.get());
    GObjectPtr<GAppInfo> app(type ? g_app_info_get_default_for_type(type, FALSE) : nullptr);
    if (!app) return fail("There is no application set to open the document “" + fileName(path) + "”.");
    GList files{file.get(), nullptr, nullptr};
    ErrorOut launchError;
    if (!g_app_info_launch(app.get(), &files, nullptr, &launchError)) return fail(sentence(launchError.message()));
    return {};
  }

  void openURLs(std::vector<std::string> urls, std::string applicationPath, const OpenConfiguration&,
                OpenCompletion completion) override {
    auto app = desktopEntry(applicationPath);
    if (!app) {
      completion("The application “" + fileName(applicationPath) + "” can’t be opened.");
      return;
    }
    GList* list = nullptr;
    for (const std::string& url : urls) list = g_list_append(list, const_cast<char*>(url.c_str()));
    ErrorOut error;
    const bool launched = g_app_info_launch_uris(app.get(), list, nullptr, &error);
    g_list_free(list);
    if (!launched) completion(sentence(error.message()));
    else completion(std::nullopt);
  }

  // An application here is a desktop entry; its desktop-file id stands in
  // for the bundle identifier.
  std::optional<std::string> bundleIdentifier(std::string_view path) const override {
    auto app = desktopEntry(path);
    if (!app) return std::nullopt;
    if (const char* id = g_app_info_get_id(app.get())) return std::string(id);
    return fileName(path);
  }

  // The Linux desktops have no packages: every folder is a folder.
  bool isPackage(std::string_view) const override { return false; }

  std::string displayName(std::string_view path) const override {
    GObjectPtr<GFile> file(g_file_new_for_path(std::string(path).c_str()));
    GObjectPtr<GFileInfo> info(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_DISPLAY_NAME,
                                                 G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    if (info) {
      if (const char* name = g_file_info_get_display_name(info.get())) return name;
    }
    return fileName(path);
  }

  // The file manager's own D-Bus interface selects the item in its window;
  // without one, the folder opens in whatever application takes folders.
  Checked<void> reveal(std::string_view path) override {
    std::error_code ec;
    const bool folder = std::filesystem::is_directory(std::string(path), ec);
    const std::string uri = fileURLFromPath(path);
    ErrorOut busError;
    GObjectPtr<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &busError));
    if (bus) {
      const gchar* uris[] = {uri.c_str(), nullptr};
      ErrorOut callError;
      GVariant* reply = g_dbus_connection_call_sync(
          bus.get(), "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1",
          folder ? "ShowFolders" : "ShowItems", g_variant_new("(^ass)", uris, ""), nullptr, G_DBUS_CALL_FLAGS_NONE,
          2000, nullptr, &callError);
      if (reply) {
        g_variant_unref(reply);
        return {};
      }
    }
    const std::string folderURI =
        folder ? uri : fileURLFromPath(std::filesystem::path(std::string(path)).parent_path().string());
    ErrorOut openError;
    if (g_app_info_launch_default_for_uri(folderURI.c_str(), nullptr, &openError)) return {};
    return fail(sentence(openError.message()));
  }

  Checked<std::vector<std::string>> selectedItemURLs(std::string_view) const override {
    return fail("Reading another application's selection is not available on this desktop in this build of Orla.");
  }
};

// $XDG_DATA_HOME, else ~/.local/share, read afresh on each call.
std::optional<std::string> userDataFolder() {
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') return std::string(data);
  const char* home = std::getenv("HOME");
  if (home && *home) return std::string(home) + "/.local/share";
  if (auto entry = posix::passwordDatabaseHome({})) return *entry + "/.local/share";
  return std::nullopt;
}

class GioFileManager : public FileManager {
 public:
  Checked<void> moveToTrash(std::string_view path) override {
    GObjectPtr<GFile> file(g_file_new_for_path(std::string(path).c_str()));
    ErrorOut error;
    if (!g_file_trash(file.get(), nullptr, &error)) return fail(sentence(error.message()));
    return {};
  }

  Checked<FileAttributes> attributes(std::string_view path) const override { return posix::fileAttributes(path); }

  std::string formatByteCount(std::uint64_t bytes) const override { return formatFileByteCount(bytes, clock_.locale()); }
  std::string formatDate(TimePoint date) const override {
    return formatMediumDateShortTime(date, clock_.timeZone(), clock_.locale());
  }

  // The freedesktop list, "recently-used.xbel" in the user's data folder,
  // newest first by when each document was last changed or visited.
  std::vector<RecentDocument> recentDocuments() const override {
    std::vector<RecentDocument> documents;
    const auto folder = userDataFolder();
    if (!folder) return documents;
    std::unique_ptr<GBookmarkFile, void (*)(GBookmarkFile*)> list(g_bookmark_file_new(), g_bookmark_file_free);
    const std::string file = *folder + "/recently-used.xbel";
    if (!g_bookmark_file_load_from_file(list.get(), file.c_str(), nullptr)) return documents;
    gsize count = 0;
    std::unique_ptr<gchar*, void (*)(gchar**)> uris(g_bookmark_file_get_uris(list.get(), &count), g_strfreev);
    struct Entry {
      RecentDocument document;
      gint64 when;
    };
    std::vector<Entry> entries;
    for (gsize i = 0; i < count; ++i) {
      const char* uri = uris.get()[i];
      GString path(g_filename_from_uri(uri, nullptr, nullptr));
      if (!path) continue;  // not a local file
      gint64 when = 0;
      for (auto get : {g_bookmark_file_get_modified_date_time, g_bookmark_file_get_visited_date_time})
        if (GDateTime* time = get(list.get(), uri, nullptr)) when = std::max(when, g_date_time_to_unix(time));
      GString title(g_bookmark_file_get_title(list.get(), uri, nullptr));
      entries.push_back({{path.get(), title ? title.get() : ""}, when});
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.when > b.when; });
    for (Entry& entry : entries) documents.push_back(std::move(entry.document));
    return documents;
  }

 private:
  posix::PosixClock clock_;
};

}  // namespace

std::unique_ptr<FileWorkspace> makeGioFileWorkspace() { return std::make_unique<GioFileWorkspace>(); }
std::unique_ptr<FileManager> makeGioFileManager() { return std::make_unique<GioFileManager>(); }

Checked<void> openURIWithDefaultHandler(std::string_view uri) {
  ErrorOut error;
  if (g_app_info_launch_default_for_uri(std::string(uri).c_str(), nullptr, &error)) return {};
  return fail(sentence(error.message()));
}

std::optional<DesktopEntry> installedDesktopEntry(std::string_view idOrName) {
  if (idOrName.empty()) return std::nullopt;
  auto describe = [](GDesktopAppInfo* info) -> std::optional<DesktopEntry> {
    const char* id = g_app_info_get_id(G_APP_INFO(info));
    const char* file = g_desktop_app_info_get_filename(info);
    const char* name = g_app_info_get_name(G_APP_INFO(info));
    if (!file) return std::nullopt;
    return DesktopEntry{id ? id : fileName(file), name ? name : "", file};
  };
  std::string id(idOrName);
  if (!id.ends_with(".desktop")) id += ".desktop";
  if (GObjectPtr<GDesktopAppInfo> info{g_desktop_app_info_new(id.c_str())}) return describe(info.get());
  GList* all = g_app_info_get_all();
  std::optional<DesktopEntry> found;
  for (GList* item = all; item && !found; item = item->next) {
    if (!G_IS_DESKTOP_APP_INFO(item->data)) continue;
    const char* name = g_app_info_get_name(G_APP_INFO(item->data));
    if (name && equalsIgnoringCase(name, idOrName)) found = describe(G_DESKTOP_APP_INFO(item->data));
  }
  g_list_free_full(all, g_object_unref);
  return found;
}

Checked<LaunchedApplication> launchApplication(std::string_view path) {
  const std::string file(path);
  GObjectPtr<GAppInfo> app;
  if (file.ends_with(".desktop")) {
    app = desktopEntry(file);
  } else if (std::error_code ec; ::access(file.c_str(), X_OK) == 0 && std::filesystem::is_regular_file(file, ec)) {
    // The command line of an executable: its path, quoted for the shell
    // syntax GIO parses it with.
    GString quoted(g_shell_quote(file.c_str()));
    app.reset(g_app_info_create_from_commandline(quoted.get(), nullptr, G_APP_INFO_CREATE_NONE, nullptr));
  }
  if (!app || !G_IS_DESKTOP_APP_INFO(app.get())) return fail("“" + fileName(path) + "” is not an application.");
  // A startup-notification id of this launch's own, which the application
  // reads from its environment and sets on its first window
  // (`_NET_STARTUP_ID`): how a window tells which launch made it when its
  // process does not, as when a program hands the request to a copy of
  // itself that already runs. (No "_TIME" part: a time of 0 would ask the
  // window manager not to give the new window the focus.)
  static std::atomic<unsigned> launches{0};
  LaunchedApplication launched;
  launched.startupId = "orla-" + std::to_string(::getpid()) + "-" + std::to_string(++launches) + "-" +
                       std::to_string(g_get_monotonic_time());
  GObjectPtr<GAppLaunchContext> context{g_app_launch_context_new()};
  g_app_launch_context_setenv(context.get(), "DESKTOP_STARTUP_ID", launched.startupId.c_str());
  auto noteChild = [](GDesktopAppInfo*, GPid pid, gpointer out) {
    static_cast<LaunchedApplication*>(out)->process = static_cast<ProcessId>(pid);
  };
  // The application is the desktop's, not ours: it does not inherit our
  // output, which would stay open (and keep a pipe reading it waiting) for
  // as long as it runs.
  ErrorOut error;
  if (!g_desktop_app_info_launch_uris_as_manager(
          G_DESKTOP_APP_INFO(app.get()), nullptr, context.get(),
          GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL), nullptr,
          nullptr, noteChild, &launched, &error))
    return fail(sentence(error.message()));
  return launched;
}

}  // namespace orla::linux_desktop
