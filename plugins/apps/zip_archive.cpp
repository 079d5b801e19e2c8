#include "plugins/apps/zip_archive.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include <orla/models/text.h>
#include "platform/posix/service_module.h"
#include "plugins/apps/file_transfer.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

std::error_code lastErrno() { return {errno, std::generic_category()}; }

constexpr int kLinkDepthLimit = 40;
std::vector<std::string> components(std::string_view path) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : path) {
    // unzip takes a backslash for a separator in archives made on Windows.
    if (c == '/' || c == '\\') {
      parts.push_back(std::move(part));
      part.clear();
    } else {
      part += c;
    }
  }
  parts.push_back(std::move(part));
  return parts;
}

std::string join(const std::vector<std::string>& parts) {
  std::string path;
  for (const std::string& part : parts) {
    if (!path.empty()) path += '/';
    path += part;
  }
  return path;
}

class Resolver {
 public:
  Resolver(const std::vector<ArchiveEntry>& entries, fs::path root, const DiskLinkLookup& diskLink)
      : root_(std::move(root)), rootText_(root_.string()), diskLink_(diskLink) {
    for (const ArchiveEntry& entry : entries) {
      if (!entry.linkTarget) continue;
      std::vector<std::string> parts = components(entry.name);
      std::erase_if(parts, [](const std::string& p) { return p.empty() || p == "."; });
      links_.emplace(join(parts), *entry.linkTarget);
    }
  }

  // Whether the entry, with every link on its way followed, stays below
  // the root.
  bool staysInside(std::string_view name) {
    if (name.empty() || name.front() == '/' || name.front() == '\\') return false;
    std::vector<std::string> stack;
    const auto parts = components(name);
    std::deque<std::string> remaining(parts.begin(), parts.end());
    int depth = 0;
    while (!remaining.empty()) {
      std::string part = std::move(remaining.front());
      remaining.pop_front();
      if (part.empty() || part == ".") continue;
      if (part == "..") {
        if (stack.empty()) return false;
        stack.pop_back();
        continue;
      }
      stack.push_back(std::move(part));
      // An item's own place is replaced, not followed, when a link is
      // already there on disk; only the folders on its way are walked through.
      const bool ownPlace = remaining.empty() && depth == 0;
      auto target = linkAt(join(stack), !ownPlace);
      if (!target) continue;
      if (++depth > kLinkDepthLimit) return false;
      stack.pop_back();
      if (!target->empty() && target->front() == '/') {
        // An absolute target is inside only when it names a place below the root.
        const fs::path absolute = fs::path(*target).lexically_normal();
        const std::string text = absolute.string();
        if (text != rootText_ && !text.starts_with(rootText_ + "/")) return false;
        stack = components(fs::path(text.substr(rootText_.size())).relative_path().string());
        std::erase_if(stack, [](const std::string& p) { return p.empty(); });
        continue;
      }
      const auto linkParts = components(*target);
      remaining.insert(remaining.begin(), linkParts.begin(), linkParts.end());
    }
    return !stack.empty();
  }

 private:
  std::optional<std::string> linkAt(const std::string& relative, bool onDiskToo) const {
    if (auto it = links_.find(relative); it != links_.end()) return it->second;
    return diskLink_ && onDiskToo ? diskLink_(relative) : std::nullopt;
  }

  fs::path root_;
  std::string rootText_;
  const DiskLinkLookup& diskLink_;
  std::unordered_map<std::string, std::string> links_;
};

// A path the tools cannot take for an option.
std::string argumentPath(std::string path) {
  if (!path.empty() && path.front() == '-') path.insert(0, "./");
  return path;
}

// The name as a place below the folder: separators unified, empty and "."
// steps dropped, ".." steps applied; two entries with one key would write
// the same item.
std::string placeKey(std::string_view name) {
  std::vector<std::string> kept;
  for (std::string& part : components(name)) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    kept.push_back(std::move(part));
  }
  return join(kept);
}

}  // namespace

// libzip, and the libraries it brings (a cryptography library among them),
// load only when an archive is read: the reading lives in the module
// orla_zip.so (zip_entries.cpp).
Checked<std::vector<ArchiveEntry>> readArchiveEntries(const std::string& archivePath) {
  struct Reader {
    bool (*read)(const char*, std::vector<ArchiveEntry>*, std::string*) = nullptr;
    std::string problem;  // why there is none
  };
  static const Reader reader = [] {
    Reader r;
    auto module = posix::loadServiceModule("orla_zip.so", "zip archives");
    if (!module) {
      r.problem = module.error();
      return r;
    }
    r.read = reinterpret_cast<decltype(r.read)>(posix::moduleSymbol(*module, "orla_zip_read_entries"));
    if (!r.read) r.problem = "Orla's module orla_zip.so is not the one this program was built with; reinstall Orla.";
    return r;
  }();
  if (!reader.read) return fail(reader.problem);
  std::vector<ArchiveEntry> entries;
  std::string error;
  if (!reader.read(archivePath.c_str(), &entries, &error)) return fail(std::move(error));
  return entries;
}

namespace {

std::string replacingAll(std::string text, std::string_view from, std::string_view to) {
  if (from.empty()) return text;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace

std::optional<std::string> firstDuplicateEntry(const std::vector<ArchiveEntry>& entries) {
  std::unordered_set<std::string> seen;
  for (const ArchiveEntry& entry : entries)
    if (!seen.insert(placeKey(entry.name)).second) return entry.name;
  return std::nullopt;
}

std::optional<std::string> firstUnsafeEntry(const std::vector<ArchiveEntry>& entries, const fs::path& root,
                                            const DiskLinkLookup& diskLink) {
  Resolver resolver(entries, root, diskLink);
  for (const ArchiveEntry& entry : entries)
    if (!resolver.staysInside(entry.name)) return entry.name;
  return std::nullopt;
}

std::string archivePathFor(std::string_view source, std::string_view destination, bool destinationIsFolder) {
  const fs::path src = fs::path(source).lexically_normal();
  std::string name = (src.has_filename() ? src : src.parent_path()).filename().string();
  if (destination.empty()) {
    const fs::path parent = (src.has_filename() ? src : src.parent_path()).parent_path();
    return (parent / (name + ".zip")).string();
  }
  if (destinationIsFolder) {
    std::string folder(destination);
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return (fs::path(folder) / (name + ".zip")).string();
  }
  std::string archive(destination);
  if (toLowercase(fs::path(archive).extension().string()) != ".zip") archive += ".zip";
  return archive;
}

Checked<void> compress(Processes& processes, const std::string& source, const std::string& archive) {
  const fs::path src = fs::path(source).lexically_normal();
  const fs::path item = src.has_filename() ? src : src.parent_path();
  const std::string partial = uniqueSiblingPath(archive, ".zip");
  auto run = runTool(processes, kZipTool, {"-r", "-q", argumentPath(partial), argumentPath(item.filename().string())},
                     item.parent_path().string());
  std::error_code ec;
  if (!run) {
    fs::remove(partial, ec);
    return fail(run.error());
  }
  if (run->status != 0 || run->signalled) {
    fs::remove(partial, ec);
    std::string message = run->message();
    if (message.empty()) message = "zip ended with status " + std::to_string(run->status) + ".";
    // zip names the hidden file it was writing; the user asked for the archive.
    return fail(replacingAll(message, argumentPath(partial), archive));
  }
  // One rename over an archive (or any file or link) already there.
  fs::rename(partial, archive, ec);
  if (ec == std::errc::is_a_directory) {
    // An empty folder of that name is given up; a folder that holds
    // anything is the user's, never removed for an archive.
    std::error_code removal;
    if (fs::remove(archive, removal)) fs::rename(partial, archive, ec);
  }
  if (ec) {
    std::error_code ignored;
    fs::remove(partial, ignored);
    return fail(ec.message() + ": “" + archive + "”.");
  }
  return {};
}

namespace {

// Folders nested deeper than this are refused: each level holds a
// descriptor open while it is walked.
constexpr int kFolderDepthLimit = 256;

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

int openFolderAt(int folder, const std::string& name) {
  return ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

std::optional<std::vector<std::string>> namesIn(int folder) {
  const int copy = ::dup(folder);
  if (copy < 0) return std::nullopt;
  DIR* dir = ::fdopendir(copy);
  if (!dir) {
    ::close(copy);
    return std::nullopt;
  }
  // The copy shares the position of `folder`, which an earlier walk left at the end.
  ::rewinddir(dir);
  std::vector<std::string> names;
  while (const dirent* item = ::readdir(dir)) {
    const std::string_view name = item->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(dir);
  return names;
}

std::string below(const std::string& prefix, const std::string& name) {
  return prefix.empty() ? name : prefix + "/" + name;
}

// Every item unzip made in the private folder, seen without following a
// link: files and folders by name, links with their targets. `odd` names
// the first item that is none of these, or a folder too deep to walk.
struct Staged {
  std::vector<ArchiveEntry> items;
  std::optional<std::string> odd;
};

void walkStaged(int folder, const std::string& prefix, int depth, Staged& staged) {
  auto names = namesIn(folder);
  if (!names || depth > kFolderDepthLimit) {
    staged.odd = prefix;
    return;
  }
  for (const std::string& name : *names) {
    const std::string path = below(prefix, name);
    struct stat info {};
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      staged.odd = path;
      return;
    }
    if (S_ISLNK(info.st_mode)) {
      std::string target(kLinkTargetLimit + 1, '\0');
      const ssize_t n = ::readlinkat(folder, name.c_str(), target.data(), target.size());
      target.resize(n > 0 && static_cast<std::size_t>(n) <= kLinkTargetLimit ? static_cast<std::size_t>(n) : 0);
      staged.items.push_back({path, target.empty() ? std::string("/") : target});
    } else if (S_ISDIR(info.st_mode)) {
      staged.items.push_back({path, std::nullopt});
      Descriptor inner(openFolderAt(folder, name));
      if (inner.get() < 0) {
        staged.odd = path;
        return;
      }
      walkStaged(inner.get(), path, depth + 1, staged);
    } else if (S_ISREG(info.st_mode)) {
      staged.items.push_back({path, std::nullopt});
    } else {
      staged.odd = path;
    }
    if (staged.odd) return;
  }
}

using Kind = DecompressionProblem::Kind;

// Moves the staged items of one folder level into the target's, never
// through a link: a folder the target lacks arrives whole, an existing
// folder takes the staged folder's items, and a file or link replaces what
// is at its place in one rename. With `dryRun` only checks that every step
// can be taken, so that nothing is placed when one of them cannot.
std::optional<DecompressionProblem> placeLevel(int from, int to, const std::string& prefix, const std::string& target,
                                               bool dryRun) {
  auto names = namesIn(from);
  if (!names) return DecompressionProblem{Kind::extraction, fileErrorText(lastErrno(), target)};
  for (const std::string& name : *names) {
    const std::string path = below(prefix, name);
    const std::string shown = (fs::path(target) / path).string();
    struct stat staged {}, there {};
    if (::fstatat(from, name.c_str(), &staged, AT_SYMLINK_NOFOLLOW) != 0)
      return DecompressionProblem{Kind::extraction, fileErrorText(lastErrno(), shown)};
    const bool exists = ::fstatat(to, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
    if (S_ISDIR(staged.st_mode) && exists) {
      // Writing into a link already there would follow it.
      if (S_ISLNK(there.st_mode)) return DecompressionProblem{Kind::blocked, path};
      if (!S_ISDIR(there.st_mode))
        return DecompressionProblem{Kind::extraction, fileErrorText(std::make_error_code(std::errc::not_a_directory), shown)};
      Descriptor inner(openFolderAt(from, name)), outer(openFolderAt(to, name));
      if (inner.get() < 0 || outer.get() < 0) return DecompressionProblem{Kind::extraction, fileErrorText(lastErrno(), shown)};
      if (auto problem = placeLevel(inner.get(), outer.get(), path, target, dryRun)) return problem;
      continue;
    }
    if (exists && S_ISDIR(there.st_mode) && !S_ISDIR(staged.st_mode))
      return DecompressionProblem{Kind::extraction, fileErrorText(std::make_error_code(std::errc::is_a_directory), shown)};
    if (!dryRun && ::renameat(from, name.c_str(), to, name.c_str()) != 0)
      return DecompressionProblem{Kind::extraction, fileErrorText(lastErrno(), shown)};
  }
  return std::nullopt;
}

// unzip's own words without its questions (on a write error it asks
// whether to go on and, reading the null device, gives up) and with the
// private folder's name put back to the target's.
std::string toolProblem(const ToolRun& run, const std::string& staging, const std::string& target) {
  std::string text;
  const std::string message = run.message();
  for (std::size_t at = 0, end = 0; at < message.size(); at = end + 1) {
    end = std::min(message.find('\n', at), message.size());
    std::string_view line = std::string_view(message).substr(at, end - at);
    // Its prompts, and its warning that the file it wrote is cut short:
    // that file was in the private folder and is gone.
    if (line.find("[y]es") != std::string_view::npos || line.find("probably truncated") != std::string_view::npos)
      continue;
    if (auto prompt = line.find("Continue? (y/n"); prompt != std::string_view::npos) line = line.substr(0, prompt);
    line = trimWhitespaceAndNewlines(line);
    if (line.empty()) continue;
    if (!text.empty()) text += ' ';
    for (char c : line)
      if (c != ' ' || text.empty() || text.back() != ' ') text += c;
  }
  for (std::size_t at = text.find(staging); !staging.empty() && at != std::string::npos; at = text.find(staging, at + target.size()))
    text.replace(at, staging.size(), target);
  if (text.empty()) text = "unzip ended with status " + std::to_string(run.status) + ".";
  return text;
}

// A fresh folder only this user can enter, inside the target so that its
// items can be renamed into place; removed with whatever is left in it.
class Staging {
 public:
  explicit Staging(const fs::path& folder) {
    std::string pattern = (folder / ".orla-unzip-XXXXXX").string();
    if (::mkdtemp(pattern.data())) path_ = pattern;
  }
  ~Staging() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

std::optional<DecompressionProblem> decompress(Processes& processes, const std::string& archive,
                                               const std::string& target) {
  auto entries = readArchiveEntries(archive);
  if (!entries) return DecompressionProblem{Kind::unreadable, entries.error()};
  if (auto duplicate = firstDuplicateEntry(*entries)) return DecompressionProblem{Kind::blocked, *duplicate};

  std::error_code ec;
  const fs::path root = fs::weakly_canonical(fs::absolute(target, ec), ec);
  const DiskLinkLookup diskLink = [&root](const std::string& relative) -> std::optional<std::string> {
    std::error_code linkError;
    const fs::path path = root / relative;
    if (!fs::is_symlink(path, linkError)) return std::nullopt;
    return fs::read_symlink(path, linkError).string();
  };
  if (auto unsafe = firstUnsafeEntry(*entries, root, diskLink)) return DecompressionProblem{Kind::blocked, *unsafe};

  fs::create_directories(target, ec);
  if (ec) return DecompressionProblem{Kind::folder, fileErrorText(ec, target)};
  if (entries->empty()) return std::nullopt;
  Staging staging(root);
  if (staging.path().empty()) return DecompressionProblem{Kind::folder, fileErrorText(lastErrno(), target)};
  auto run = runTool(processes, kUnzipTool, {"-q", "-o", argumentPath(archive), "-d", staging.path()});
  if (!run) return DecompressionProblem{Kind::extraction, run.error()};
  if (run->status != 0 || run->signalled)
    return DecompressionProblem{Kind::extraction, toolProblem(*run, staging.path(), root.string())};

  // What was made is checked again as it lies on disk: the list above is
  // the archive's word, this is unzip's deed.
  Descriptor from(::open(staging.path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  Descriptor to(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (from.get() < 0 || to.get() < 0) return DecompressionProblem{Kind::folder, fileErrorText(lastErrno(), target)};
  Staged staged;
  walkStaged(from.get(), {}, 0, staged);
  if (staged.odd) return DecompressionProblem{Kind::blocked, *staged.odd};
  if (auto unsafe = firstUnsafeEntry(staged.items, root, diskLink)) return DecompressionProblem{Kind::blocked, *unsafe};
  if (auto problem = placeLevel(from.get(), to.get(), {}, root.string(), true)) return problem;
  return placeLevel(from.get(), to.get(), {}, root.string(), false);
}

}  // namespace orla
