#include "plugins/scripts/shortcuts_app_plugin.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>
#include "plugins/scripts/script_files.h"

namespace orla {

namespace {

namespace fs = std::filesystem;

// A fresh random (version 4) UUID in the system's upper-case spelling.
std::string uuidString() {
  thread_local std::mt19937_64 random{std::random_device{}()};
  const std::uint64_t high = (random() & ~std::uint64_t{0xF000}) | 0x4000;
  const std::uint64_t low = (random() & ~(std::uint64_t{0xC} << 60)) | (std::uint64_t{0x8} << 60);
  char text[37];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(high >> 32),
                static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
                static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull));
  return text;
}

// The input and output files of one run, removed however the run ends.
class TemporaryFiles {
 public:
  explicit TemporaryFiles(const fs::path& folder)
      : input_(folder / ("orla-shortcuts-in-" + uuidString() + ".txt")),
        output_(folder / ("orla-shortcuts-out-" + uuidString() + ".txt")) {}
  ~TemporaryFiles() {
    std::error_code ignored;
    fs::remove(input_, ignored);
    fs::remove(output_, ignored);
  }
  TemporaryFiles(const TemporaryFiles&) = delete;
  TemporaryFiles& operator=(const TemporaryFiles&) = delete;
  std::string input() const { return input_.string(); }
  std::string output() const { return output_.string(); }

 private:
  fs::path input_;
  fs::path output_;
};

std::string saveError(int error, const fs::path& path) {
  const std::string name = orla::quoted(path.filename().string());
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return "The folder " + orla::quoted(path.parent_path().string()) + " doesn’t exist.";
    case EACCES:
    case EPERM:
    case EROFS:
      return "You don’t have permission to save the file " + name + " in the folder " +
             orla::quoted(path.parent_path().filename().string()) + ".";
    case ENOSPC:
    case EDQUOT:
      return "The file " + name + " couldn’t be saved because there isn’t enough space.";
    default:
      return "The file " + name + " couldn’t be saved.";
  }
}

// Written beside the file and renamed into place, so that the tool never
// reads half a text. Readable by this user only: the input may be private.
Checked<void> writeAtomically(const fs::path& path, std::string_view text) {
  const fs::path staging = path.string() + ".writing";
  const int fd = ::open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return fail(saveError(errno, path));
  int error = 0;
  for (std::size_t done = 0; done < text.size() && error == 0;) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n > 0) done += static_cast<std::size_t>(n);
    else if (errno != EINTR) error = errno;
  }
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(staging.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(staging.c_str());
    return fail(saveError(error, path));
  }
  return {};
}

// A query value with everything but the unreserved characters of URIs
// percent-encoded, so that "&", "=", "+" and "#" in a name or an input
// reach the Shortcuts app as typed.
std::string percentEncoded(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
        c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0xF];
    }
  }
  return out;
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

// The answer of a tool that could not reach the Shortcuts service.
bool isHelperError(std::string_view error) {
  const std::string lower = toLowercase(error);
  return contains(lower, "helper application") || contains(lower, "couldn’t communicate") ||
         contains(lower, "couldn't communicate");
}

std::string textOf(const CapturedOutput& captured) {
  std::string_view bytes = captured.bytes();
  if (captured.cut()) bytes = withoutPartialLastCharacter(bytes);
  return isValidUtf8(bytes) ? std::string(bytes) : std::string();
}

class Discard : public OutputSink {
 public:
  void append(std::string_view) override {}
};

}  // namespace

ShortcutsAppPlugin::ShortcutsAppPlugin() : ShortcutsAppPlugin(Platform::current()) {}
ShortcutsAppPlugin::ShortcutsAppPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string ShortcutsAppPlugin::shortcutName(const ActionData& data) {
  return readStringOr(data, {"shortcutName", "Shortcut", "name", "Name"});
}

std::string ShortcutsAppPlugin::input(const ActionData& data) {
  return readStringOr(data, {"input", "Input", "text", "Text"});
}

bool ShortcutsAppPlugin::runInApp(const ActionData& data) {
  return readSwitchOr(data, {"runInApp", "openInShortcuts"});
}

std::vector<std::string> ShortcutsAppPlugin::listShortcutNames() { return listShortcutNames(*Platform::current()); }

std::vector<std::string> ShortcutsAppPlugin::listShortcutNames(Platform& platform) {
  // Far more than any library of shortcuts; a longer answer keeps its
  // whole lines.
  CapturedOutput out(std::size_t{4} << 20);
  Discard err;
  auto exit = platform.processes().run({std::string(tool), {"list"}, {}}, out, err);
  if (!exit) return {};
  std::string_view text = out.bytes();
  if (out.cut()) text = text.substr(0, text.rfind('\n') == std::string_view::npos ? 0 : text.rfind('\n'));
  if (!isValidUtf8(text)) return {};
  std::vector<std::string> names;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trimWhitespaceAndNewlines(text.substr(0, end));
    if (!line.empty()) names.emplace_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return names;
}

std::optional<std::string> ShortcutsAppPlugin::shortcutsURL(std::string_view name, std::string_view input) {
  if (!isValidUtf8(name) || !isValidUtf8(input)) return std::nullopt;
  std::string url = "shortcuts://run-shortcut?name=" + percentEncoded(name);
  if (!input.empty()) url += "&input=" + percentEncoded(input);
  return url;
}

std::optional<std::string> ShortcutsAppPlugin::validate(const ActionData& data) const {
  const std::string name = shortcutName(data);
  if (name.empty()) return "Choose an Apple Shortcut to run.";
  // An empty list, as from a tool that fails, lets the name pass: a broken
  // tool must not block editing.
  const auto names = listShortcutNames(*platform_);
  if (!names.empty() &&
      std::none_of(names.begin(), names.end(), [&](const std::string& n) { return equalsIgnoringCase(n, name); }))
    return "No shortcut named " + orla::quoted(name) + ". Pick one from the menu, or check the name in the Shortcuts app.";
  return std::nullopt;
}

PluginResult ShortcutsAppPlugin::execute(const ActionData& data) {
  std::string name = shortcutName(data);
  if (name.empty()) return PluginResult::failure("Choose an Apple Shortcut to run.");
  if (runInApp(data)) return openInApp(name, input(data));
  // The listed spelling of the name, when the user typed other capitals.
  for (const std::string& listed : listShortcutNames(*platform_))
    if (equalsIgnoringCase(listed, name)) {
      name = listed;
      break;
    }
  return runInBackground(name, input(data));
}

PluginResult ShortcutsAppPlugin::runInBackground(const std::string& name, const std::string& inputText) const {
  const auto folder = platform_->environment().variable("TMPDIR");
  TemporaryFiles files(folder && !folder->empty() ? fs::path(*folder) : fs::path("/tmp"));
  ProcessLaunch launch{std::string(tool),
                       {"run", name, "--output-path", files.output(), "--output-type", "public.plain-text"},
                       {}};
  if (!inputText.empty()) {
    if (auto written = writeAtomically(files.input(), inputText); !written)
      return PluginResult::failure("Could not write shortcut input: " + written.error());
    launch.arguments.insert(launch.arguments.end(), {"--input-path", files.input()});
  }

  Discard out;
  CapturedOutput err(std::size_t{1} << 20);
  auto exit = platform_->processes().run(launch, out, err);
  if (!exit) return openInApp(name, inputText);
  const std::string errorText = textOf(err);

  if (exit->status == 0) {
    auto output = readUtf8File(files.output());
    const std::string_view text = output ? trimWhitespaceAndNewlines(*output) : std::string_view();
    if (!text.empty()) return PluginResult::success(std::string(text));
    return PluginResult::success("Ran " + orla::quoted(name) + ". It produced no text.");
  }
  if (isHelperError(errorText)) return openInApp(name, inputText);
  const std::string_view trimmed = trimWhitespaceAndNewlines(errorText);
  if (!trimmed.empty()) return PluginResult::failure(std::string(trimmed));
  return PluginResult::failure("Apple Shortcut " + orla::quoted(name) + " failed. Check the name in the Shortcuts app.");
}

PluginResult ShortcutsAppPlugin::openInApp(const std::string& name, const std::string& inputText) const {
  const auto url = shortcutsURL(name, inputText);
  if (!url) return PluginResult::failure("Could not build a Shortcuts URL for " + orla::quoted(name) + ".");
  if (!platform_->workspace().openURL(*url))
    return PluginResult::failure("Could not open Shortcuts to run " + orla::quoted(name) + ".");
  std::string message = "Opened the Shortcuts app to run " + orla::quoted(name) + ".";
  if (!inputText.empty()) message += "\nInput: " + inputText;
  return PluginResult::success(std::move(message));
}

}  // namespace orla
