#include "platform/linux/desktop_entries.h"

#include <glib.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <vector>

#include <orla/models/text.h>
#include "platform/linux/glib_handles.h"

namespace orla::linux_desktop {

namespace {

// The folders desktop entries are installed in, the first taking
// precedence: the user's, then the system's.
std::vector<std::filesystem::path> applicationFolders() {
  std::vector<std::filesystem::path> folders{std::filesystem::path(g_get_user_data_dir()) / "applications"};
  for (const char* const* dir = g_get_system_data_dirs(); *dir; ++dir)
    folders.push_back(std::filesystem::path(*dir) / "applications");
  return folders;
}

// Every installed entry's file with its desktop-file id (the path below
// its folder, '/' written '-'), once per id, in precedence order. Read from
// the folders directly: GIO's own list of applications sets up its file
// system layer first, which connects to the session bus for its volume
// daemon, and costs a fresh process (a key chord from the command line)
// more than everything else it does.
template <class Visit>
void forEachEntryFile(Visit&& visit) {
  std::set<std::string> seen;
  for (const auto& folder : applicationFolders()) {
    std::error_code ec;
    for (auto it = std::filesystem::recursive_directory_iterator(folder, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      if (it->path().extension() != ".desktop") continue;
      std::string id = it->path().lexically_relative(folder).string();
      std::replace(id.begin(), id.end(), '/', '-');
      if (seen.insert(id).second && visit(id, it->path())) return;
    }
  }
}

// What naming a window's application needs of a desktop entry, read with
// GLib's key-file reader as GIO reads it (an application entry, not
// hidden unless `hiddenToo`, whose TryExec program is there); none when GIO
// would not list it.
struct EntryFile {
  std::string name;
  std::string startupWMClass;
  std::string program;  // the first word of Exec
  bool noDisplay = false;
};

std::optional<EntryFile> readEntryFile(const std::filesystem::path& file, bool hiddenToo = false) {
  constexpr const char* kGroup = "Desktop Entry";
  std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> keys(g_key_file_new(), g_key_file_free);
  if (!g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_NONE, nullptr)) return std::nullopt;
  auto text = [&](const char* key, bool localized = false) {
    GString value(localized ? g_key_file_get_locale_string(keys.get(), kGroup, key, nullptr, nullptr)
                            : g_key_file_get_string(keys.get(), kGroup, key, nullptr));
    return value ? std::string(value.get()) : std::string();
  };
  if (text("Type") != "Application" ||
      (!hiddenToo && g_key_file_get_boolean(keys.get(), kGroup, "Hidden", nullptr)))
    return std::nullopt;
  if (const std::string tryExec = text("TryExec"); !tryExec.empty()) {
    GString found(g_find_program_in_path(tryExec.c_str()));
    if (!found) return std::nullopt;
  }
  EntryFile entry;
  entry.name = text("Name", true);
  entry.startupWMClass = text("StartupWMClass");
  entry.noDisplay = g_key_file_get_boolean(keys.get(), kGroup, "NoDisplay", nullptr);
  if (const std::string exec = text("Exec"); !exec.empty()) {
    gchar** argv = nullptr;
    if (g_shell_parse_argv(exec.c_str(), nullptr, &argv, nullptr) && argv && argv[0]) entry.program = argv[0];
    g_strfreev(argv);
  }
  return entry;
}

}  // namespace

std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable) {
  auto names = [&](const char* name) {
    return name && *name && (equalsIgnoringCase(name, windowClass) || equalsIgnoringCase(name, instance));
  };
  // The program an entry runs, as a full path, to compare with the
  // process's own: an entry whose id and StartupWMClass say nothing of the
  // window's class (org.xfce.mousepad.desktop for the class "mousepad")
  // still names the program that made the window.
  auto runs = [&](const EntryFile& entry) {
    if (executable.empty() || entry.program.empty()) return false;
    GString path(g_find_program_in_path(entry.program.c_str()));
    if (!path) return false;
    std::error_code ec;
    const auto resolved = std::filesystem::canonical(path.get(), ec);
    return !ec && resolved == std::filesystem::path(executable);
  };
  auto describe = [](const std::string& id, const EntryFile& entry, const std::filesystem::path& file) {
    return DesktopEntry{id, entry.name, file.string()};
  };
  // Most applications' entries are named after their class: found by that
  // id, the entry settles it unless another name for the window is written
  // in it, which reading every entry then sorts out.
  for (std::string_view name : {windowClass, instance}) {
    if (name.empty() || name.find('/') != std::string_view::npos) continue;
    const std::string id = std::string(name) + ".desktop";
    for (const auto& folder : applicationFolders()) {
      std::error_code ec;
      if (!std::filesystem::is_regular_file(folder / id, ec)) continue;
      const auto entry = readEntryFile(folder / id);
      if (!entry) break;  // hidden here, which hides the others too
      if (entry->startupWMClass.empty() || names(entry->startupWMClass.c_str()))
        return describe(id, *entry, folder / id);
      break;
    }
  }
  std::optional<DesktopEntry> found, byId, byProgram;
  forEachEntryFile([&](const std::string& id, const std::filesystem::path& file) {
    const auto entry = readEntryFile(file);
    if (!entry) return false;
    if (names(entry->startupWMClass.c_str())) found = describe(id, *entry, file);
    else if (!byId && id.ends_with(".desktop") && names(id.substr(0, id.size() - 8).c_str()))
      byId = describe(id, *entry, file);
    else if (!byProgram && !entry->noDisplay && runs(*entry))
      byProgram = describe(id, *entry, file);
    return found.has_value();
  });
  return found ? found : byId ? byId : byProgram;
}

std::optional<DesktopEntry> desktopEntryAt(std::string_view path) {
  const std::filesystem::path file(path);
  const auto entry = readEntryFile(file, true);
  if (!entry) return std::nullopt;
  std::string id = file.filename().string();
  if (id.empty()) id = std::string(path);
  return DesktopEntry{std::move(id), entry->name, std::string(path)};
}

}  // namespace orla::linux_desktop
