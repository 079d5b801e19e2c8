#include "plugins/apps/zip_archive.h"

#include <deque>
#include <unordered_map>

#include "models/text.h"
#include "plugins/apps/file_transfer.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

constexpr int kLinkDepthLimit = 40;
// An archive's list is read whole before anything is extracted; one longer
// than this is refused rather than checked in part.
constexpr std::size_t kListLimit = std::size_t{64} << 20;

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
      auto target = linkAt(join(stack));
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
  std::optional<std::string> linkAt(const std::string& relative) const {
    if (auto it = links_.find(relative); it != links_.end()) return it->second;
    return diskLink_ ? diskLink_(relative) : std::nullopt;
  }

  fs::path root_;
  std::string rootText_;
  const DiskLinkLookup& diskLink_;
  std::unordered_map<std::string, std::string> links_;
};

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    out.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return out;
}

// A name as unzip matches it literally: its wildcard characters (and a
// leading "-", which it would read as an option) inside brackets.
std::string literalPattern(std::string_view name) {
  std::string pattern;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    if (c == '[' || c == '*' || c == '?' || c == '\\' || (i == 0 && c == '-')) {
      pattern += '[';
      pattern += c;
      pattern += ']';
    } else {
      pattern += c;
    }
  }
  return pattern;
}

// A path the tools cannot take for an option.
std::string argumentPath(std::string path) {
  if (!path.empty() && path.front() == '-') path.insert(0, "./");
  return path;
}

// The list of entries with their kinds: names from "-Z1", one per line, and
// from the short listing the mode of each, in the same order; a link's
// target is its content.
Checked<std::vector<ArchiveEntry>> listEntries(Processes& processes, const std::string& archive, std::string& output) {
  auto names = runTool(processes, kUnzipTool, {"-Z1", argumentPath(archive)}, {}, kListLimit);
  if (!names) return fail(names.error());
  if (names->status != 0 || names->signalled) {
    output = names->message();
    return fail(output);
  }
  std::vector<ArchiveEntry> entries;
  for (std::string& name : lines(names->output)) entries.push_back({std::move(name), std::nullopt});

  auto listing = runTool(processes, kUnzipTool, {"-Z", "-s", argumentPath(archive)}, {}, kListLimit);
  if (!listing) return fail(listing.error());
  if (listing->status != 0 || listing->signalled) {
    output = listing->message();
    return fail(output);
  }
  // Two lines of heading, one line per entry, one line of totals.
  const auto rows = lines(listing->output);
  if (rows.size() < entries.size() + 2) {
    output = "The archive's entries could not be told apart.";
    return fail(output);
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (rows[i + 2].empty() || rows[i + 2].front() != 'l') continue;
    auto target = runTool(processes, kUnzipTool, {"-p", argumentPath(archive), literalPattern(entries[i].name)});
    if (!target) return fail(target.error());
    entries[i].linkTarget = target->status == 0 ? target->output : std::string("/");
  }
  return entries;
}

std::string replacingAll(std::string text, std::string_view from, std::string_view to) {
  if (from.empty()) return text;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace

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
  fs::rename(partial, archive, ec);
  if (ec) {
    // The place is held by something a file cannot replace (a folder).
    fs::remove_all(archive, ec);
    fs::rename(partial, archive, ec);
  }
  if (ec) {
    std::error_code ignored;
    fs::remove(partial, ignored);
    return fail(ec.message() + ": “" + archive + "”.");
  }
  return {};
}

std::optional<DecompressionProblem> decompress(Processes& processes, const std::string& archive,
                                               const std::string& target) {
  using Kind = DecompressionProblem::Kind;
  std::string output;
  auto entries = listEntries(processes, archive, output);
  if (!entries) return DecompressionProblem{Kind::unreadable, output.empty() ? entries.error() : output};

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
  if (ec) return DecompressionProblem{Kind::folder, ec.message() + ": “" + target + "”."};
  auto run = runTool(processes, kUnzipTool, {"-o", argumentPath(archive), "-d", argumentPath(target)});
  if (!run) return DecompressionProblem{Kind::extraction, run.error()};
  if (run->status != 0 || run->signalled) {
    std::string message = run->message();
    if (message.empty()) message = "unzip ended with status " + std::to_string(run->status) + ".";
    return DecompressionProblem{Kind::extraction, message};
  }
  return std::nullopt;
}

}  // namespace orla
