#include "plugins/apps/file_transfer.h"

#include <unistd.h>

#include <atomic>
#include <cctype>
#include <filesystem>

namespace orla {

namespace fs = std::filesystem;

namespace {

bool itemAt(const fs::path& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

fs::path resolved(std::string_view path) {
  std::error_code ec;
  fs::path absolute = fs::absolute(fs::path(path), ec);
  fs::path canonical = fs::weakly_canonical(absolute, ec);
  return ec ? absolute.lexically_normal() : canonical;
}

// Where the item at `path` is: its folder with links resolved, and its own
// name (a link at the end is the link, not what it points to).
fs::path place(std::string_view path) {
  fs::path item = fs::path(path).lexically_normal();
  if (!item.has_filename() && item.has_parent_path() && item != item.root_path()) item = item.parent_path();
  if (!item.has_filename()) return resolved(path);
  return resolved(item.parent_path().string()) / item.filename();
}

// Puts the item at `fresh` in the place of `target`: what is there is set
// aside first and removed only once `fresh` has taken its place.
Checked<void> placeReplacing(const std::string& fresh, const std::string& target) {
  std::error_code ec;
  if (!itemAt(target)) {
    fs::rename(fresh, target, ec);
    if (!ec) return {};
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, target));
  }
  const std::string aside = uniqueSiblingPath(target);
  fs::rename(target, aside, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, target));
  }
  fs::rename(fresh, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::rename(aside, target, ignored);
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, target));
  }
  fs::remove_all(aside, ec);
  return {};
}

Checked<void> copyTo(const std::string& source, const std::string& fresh) {
  std::error_code ec;
  fs::copy(source, fresh, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  if (!ec) return {};
  std::error_code ignored;
  fs::remove_all(fresh, ignored);
  return fail(fileErrorText(ec, source));
}

}  // namespace

std::string uniqueSiblingPath(std::string_view path, std::string_view suffix) {
  static std::atomic<unsigned> counter{0};
  fs::path target = fs::path(path).lexically_normal();
  if (!target.has_filename()) target = target.parent_path();
  // Appended in steps: GCC 12 at -O3 warns falsely on "literal" + string.
  std::string name = ".";
  name += target.filename().string();
  name += ".orla-";
  name += std::to_string(::getpid());
  name += '-';
  name += std::to_string(counter.fetch_add(1));
  name += suffix;
  return (target.parent_path() / name).string();
}

bool samePlace(std::string_view a, std::string_view b) {
  const fs::path placeOfB = place(b);
  if (place(a) == placeOfB) return true;
  // A link put where the item it points to was would point to itself.
  std::error_code ec;
  return fs::is_symlink(fs::path(a), ec) && resolved(a) == placeOfB;
}

bool isInside(std::string_view inner, std::string_view outer) {
  const std::string in = resolved(inner).string();
  std::string out = resolved(outer).string();
  if (out.empty() || out.back() != '/') out += '/';
  return in.starts_with(out);
}

std::string fileErrorText(const std::error_code& error, std::string_view path) {
  std::string text = error.message();
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  text += ": “";
  text += path;
  text += "”.";
  return text;
}

Checked<void> copyReplacing(const std::string& source, const std::string& target) {
  const std::string fresh = uniqueSiblingPath(target);
  if (auto copied = copyTo(source, fresh); !copied) return copied;
  return placeReplacing(fresh, target);
}

Checked<void> moveReplacing(const std::string& source, const std::string& target) {
  std::error_code ec;
  if (!itemAt(target)) {
    fs::rename(source, target, ec);
    if (!ec) return {};
    if (ec != std::errc::cross_device_link) return fail(fileErrorText(ec, source));
  } else {
    const std::string aside = uniqueSiblingPath(target);
    fs::rename(target, aside, ec);
    if (ec) return fail(fileErrorText(ec, target));
    fs::rename(source, target, ec);
    std::error_code ignored;
    if (!ec) {
      fs::remove_all(aside, ignored);
      return {};
    }
    fs::rename(aside, target, ignored);
    if (ec != std::errc::cross_device_link) return fail(fileErrorText(ec, source));
  }
  // Another volume: copy whole, then let go of the source.
  if (auto copied = copyReplacing(source, target); !copied) return copied;
  fs::remove_all(source, ec);
  if (ec) return fail(fileErrorText(ec, source));
  return {};
}

Checked<void> symlinkReplacing(const std::string& original, const std::string& link) {
  const std::string fresh = uniqueSiblingPath(link);
  std::error_code ec;
  fs::create_symlink(original, fresh, ec);
  if (ec) return fail(fileErrorText(ec, link));
  return placeReplacing(fresh, link);
}

}  // namespace orla
