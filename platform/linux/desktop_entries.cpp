#include "platform/linux/desktop_entries.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
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
void forEachEntryFile(const std::vector<std::filesystem::path>& folders, Visit&& visit) {
  std::set<std::string> seen;
  for (const auto& folder : folders) {
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

constexpr const char* kGroup = "Desktop Entry";
using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

std::optional<EntryFile> entryOf(GKeyFile* keys, bool hiddenToo) {
  auto text = [&](const char* key, bool localized = false) {
    GString value(localized ? g_key_file_get_locale_string(keys, kGroup, key, nullptr, nullptr)
                            : g_key_file_get_string(keys, kGroup, key, nullptr));
    return value ? std::string(value.get()) : std::string();
  };
  if (text("Type") != "Application" || (!hiddenToo && g_key_file_get_boolean(keys, kGroup, "Hidden", nullptr)))
    return std::nullopt;
  if (const std::string tryExec = text("TryExec"); !tryExec.empty()) {
    GString found(g_find_program_in_path(tryExec.c_str()));
    if (!found) return std::nullopt;
  }
  EntryFile entry;
  entry.name = text("Name", true);
  entry.startupWMClass = text("StartupWMClass");
  entry.noDisplay = g_key_file_get_boolean(keys, kGroup, "NoDisplay", nullptr);
  if (const std::string exec = text("Exec"); !exec.empty()) {
    gchar** argv = nullptr;
    if (g_shell_parse_argv(exec.c_str(), nullptr, &argv, nullptr) && argv && argv[0]) entry.program = argv[0];
    g_strfreev(argv);
  }
  return entry;
}

std::optional<EntryFile> readEntryFile(const std::filesystem::path& file, bool hiddenToo = false) {
  KeyFile keys(g_key_file_new(), g_key_file_free);
  if (!g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_NONE, nullptr)) return std::nullopt;
  return entryOf(keys.get(), hiddenToo);
}

bool isKeyFileSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// The lines of a key file's [Desktop Entry] group that naming a window
// reads, under that group's header: a key file of their own for GLib's
// reader, which still parses and unescapes every value. A real entry is
// mostly translations (Name[de]=, Comment[ja]=, Keywords[fr]=, ...), which
// only the entry finally chosen needs; leaving them out makes reading every
// installed entry, which naming a window often takes, several times faster.
// Lines are told apart as the reader tells them: white space before a line
// and around a key is not part of it, '#' starts a comment, '[' a group.
std::optional<std::string> namingKeys(const std::filesystem::path& file) {
  static constexpr std::string_view kKeys[] = {"Type", "Hidden", "TryExec", "StartupWMClass", "NoDisplay", "Exec"};
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  char buffer[16384];
  for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) != 0;) {
    if (got < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return std::nullopt;
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  std::string kept = "[Desktop Entry]\n";
  bool inGroup = false;
  std::string_view rest(text);
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    std::size_t start = 0;
    while (start < line.size() && isKeyFileSpace(line[start])) ++start;
    line.remove_prefix(start);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '[') {
      const std::size_t close = line.rfind(']');
      inGroup = close != std::string_view::npos && line.substr(1, close - 1) == kGroup;
      continue;
    }
    if (!inGroup) continue;
    std::string_view key = line.substr(0, line.find('='));
    while (!key.empty() && isKeyFileSpace(key.back())) key.remove_suffix(1);
    if (std::find(std::begin(kKeys), std::end(kKeys), key) == std::end(kKeys)) continue;
    kept += line;
    kept += '\n';
  }
  return kept;
}

std::optional<EntryFile> readNamingKeys(const std::filesystem::path& file) {
  const auto text = namingKeys(file);
  if (!text) return std::nullopt;
  KeyFile keys(g_key_file_new(), g_key_file_free);
  if (!g_key_file_load_from_data(keys.get(), text->data(), text->size(), G_KEY_FILE_NONE, nullptr))
    return std::nullopt;
  return entryOf(keys.get(), false);
}

}  // namespace

std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable) {
  return desktopEntryForWindowClass(instance, windowClass, executable, applicationFolders());
}

std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable,
                                                       const std::vector<std::filesystem::path>& folders) {
  auto names = [&](const std::string& name) {
    return !name.empty() && (equalsIgnoringCase(name, windowClass) || equalsIgnoringCase(name, instance));
  };
  // The program an entry runs, as a full path, to compare with the
  // process's own: an entry whose id and StartupWMClass say nothing of the
  // window's class (org.xfce.mousepad.desktop for the class "mousepad")
  // still names the program that made the window. Another file than the
  // process's (by device and inode) is another program, which spares
  // resolving the path of nearly every entry's.
  struct stat process {};
  const bool known = !executable.empty() && ::stat(std::string(executable).c_str(), &process) == 0;
  auto runs = [&](const EntryFile& entry) {
    if (!known || entry.program.empty()) return false;
    GString path(g_find_program_in_path(entry.program.c_str()));
    struct stat program {};
    if (!path || ::stat(path.get(), &program) != 0 || program.st_dev != process.st_dev ||
        program.st_ino != process.st_ino)
      return false;
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
    for (const auto& folder : folders) {
      std::error_code ec;
      if (!std::filesystem::is_regular_file(folder / id, ec)) continue;
      const auto entry = readEntryFile(folder / id);
      if (!entry) break;  // hidden here, which hides the others too
      if (entry->startupWMClass.empty() || names(entry->startupWMClass)) return describe(id, *entry, folder / id);
      break;
    }
  }
  // Which of the three an entry is, if any: decided first from its naming
  // keys alone, then again from the whole entry, which must be one GIO
  // reads and gives the name.
  enum class Match { none, byClass, byId, byProgram };
  std::optional<DesktopEntry> found, byId, byProgram;
  auto match = [&](const std::string& id, const EntryFile& entry) {
    if (names(entry.startupWMClass)) return Match::byClass;
    if (!byId && id.ends_with(".desktop") && names(id.substr(0, id.size() - 8))) return Match::byId;
    if (!byProgram && !entry.noDisplay && runs(entry)) return Match::byProgram;
    return Match::none;
  };
  forEachEntryFile(folders, [&](const std::string& id, const std::filesystem::path& file) {
    const auto keys = readNamingKeys(file);
    if (!keys || match(id, *keys) == Match::none) return false;
    const auto entry = readEntryFile(file);
    if (!entry) return false;
    switch (match(id, *entry)) {
      case Match::byClass: found = describe(id, *entry, file); break;
      case Match::byId: byId = describe(id, *entry, file); break;
      case Match::byProgram: byProgram = describe(id, *entry, file); break;
      case Match::none: break;
    }
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
