#include "platform/linux/gio_files.h"

#include <gio/gio.h>

#include <cstdlib>
#include <string>

#include "platform/posix/posix_services.h"
#include "platform/linux/glib_handles.h"

namespace orla::linux_desktop {

namespace {


constexpr const char* kAttributes =
    G_FILE_ATTRIBUTE_STANDARD_NAME "," G_FILE_ATTRIBUTE_STANDARD_DISPLAY_NAME "," G_FILE_ATTRIBUTE_STANDARD_IS_HIDDEN
    "," G_FILE_ATTRIBUTE_STANDARD_IS_BACKUP "," G_FILE_ATTRIBUTE_STANDARD_TYPE "," G_FILE_ATTRIBUTE_STANDARD_IS_SYMLINK
    "," G_FILE_ATTRIBUTE_TIME_MODIFIED "," G_FILE_ATTRIBUTE_TIME_MODIFIED_USEC;

// GIO ends some messages without a full stop; ours always have one.
std::string sentence(const GError* error) {
  std::string text = error && error->message ? error->message : "The folder can't be read.";
  if (text.back() != '.') text += '.';
  return text;
}

std::string realPathOf(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  return resolved ? std::string(resolved.get()) : std::string();
}

FolderItem itemFrom(GFileInfo* info, const std::string& prefix, const std::string& realPrefix) {
  FolderItem item;
  item.name = g_file_info_get_name(info);
  item.path = prefix + item.name;
  const char* display = g_file_info_get_display_name(info);
  item.displayName = display ? display : item.name;
  // Links are followed: a link to a folder lists as a folder.
  item.folder = g_file_info_get_file_type(info) == G_FILE_TYPE_DIRECTORY;
  item.hidden = g_file_info_get_is_hidden(info) || g_file_info_get_is_backup(info) || item.name.front() == '.';
  item.realPath = g_file_info_get_is_symlink(info) ? realPathOf(item.path) : realPrefix + item.name;
  const auto seconds = g_file_info_get_attribute_uint64(info, G_FILE_ATTRIBUTE_TIME_MODIFIED);
  const auto micros = g_file_info_get_attribute_uint32(info, G_FILE_ATTRIBUTE_TIME_MODIFIED_USEC);
  item.modified = TimePoint(std::chrono::duration_cast<TimePoint::duration>(
      std::chrono::seconds(static_cast<std::int64_t>(seconds)) + std::chrono::microseconds(micros)));
  return item;
}

class GioFiles : public posix::PosixFiles {
 public:
  // The Linux desktops have no packages: every folder lists as a folder.
  Checked<FolderListing> listFolder(std::string_view given) const override {
    std::string folder(given);
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    if (folder.empty() || folder.find('\0') != std::string::npos) return fail("No such file or directory.");
    GObjectPtr<GFile> file(g_file_new_for_path(folder.c_str()));
    GError* error = nullptr;
    GObjectPtr<GFileEnumerator> children(
        g_file_enumerate_children(file.get(), kAttributes, G_FILE_QUERY_INFO_NONE, nullptr, &error));
    if (!children) {
      std::string why = sentence(error);
      g_clear_error(&error);
      return fail(std::move(why));
    }
    FolderListing listing;
    listing.realPath = realPathOf(folder);
    GObjectPtr<GFileInfo> own(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_DISPLAY_NAME,
                                                G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    const char* ownName = own ? g_file_info_get_display_name(own.get()) : nullptr;
    listing.displayName = ownName ? ownName : folder;
    const std::string prefix = folder == "/" ? folder : folder + "/";
    const std::string realPrefix = listing.realPath == "/" ? listing.realPath : listing.realPath + "/";
    while (GFileInfo* info = g_file_enumerator_next_file(children.get(), nullptr, &error)) {
      listing.items.push_back(itemFrom(info, prefix, realPrefix));
      g_object_unref(info);
    }
    g_clear_error(&error);  // an item that vanished mid-listing is simply not there
    return listing;
  }
};

}  // namespace

std::unique_ptr<Files> makeGioFiles() { return std::make_unique<GioFiles>(); }

}  // namespace orla::linux_desktop
