// The module orla_zip.so: the names and link targets of an archive's
// entries, read with libzip, for readArchiveEntries in zip_archive.cpp.
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "plugins/apps/zip_archive.h"

namespace orla {

namespace {

class Archive {
 public:
  explicit Archive(zip_t* archive) : archive_(archive) {}
  ~Archive() {
    if (archive_) zip_discard(archive_);
  }
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  zip_t* get() const { return archive_; }
  void reset(zip_t* archive) {
    if (archive_) zip_discard(archive_);
    archive_ = archive;
  }

 private:
  zip_t* archive_;
};

bool isLinkEntry(zip_t* archive, zip_uint64_t index) {
  zip_uint8_t system = 0;
  zip_uint32_t attributes = 0;
  if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0) return false;
  // The Unix mode sits in the high half whatever system made the entry;
  // unzip honours it for several systems, so every one counts here.
  return ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

// A link's target is its content; one that cannot be read (encrypted, an
// unknown method, too long) counts as pointing to the root, which is outside.
std::string linkTargetOf(zip_t* archive, zip_uint64_t index) {
  zip_file_t* file = zip_fopen_index(archive, index, 0);
  if (!file) return "/";
  std::string target(kLinkTargetLimit + 1, '\0');
  std::size_t length = 0;
  for (;;) {
    const zip_int64_t n = zip_fread(file, target.data() + length, target.size() - length);
    if (n < 0) length = target.size();
    if (n <= 0 || (length += static_cast<std::size_t>(n)) >= target.size()) break;
  }
  zip_fclose(file);
  if (length > kLinkTargetLimit || length == 0) return "/";
  target.resize(length);
  return target;
}

Checked<std::vector<ArchiveEntry>> readEntries(const std::string& archivePath) {
  int code = 0;
  Archive archive(zip_open(archivePath.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
  // A strict reading refuses two entries of one name without saying which;
  // read leniently then, so that the refusal can name it.
  if (!archive.get() && code == ZIP_ER_EXISTS) archive.reset(zip_open(archivePath.c_str(), ZIP_RDONLY, &code));
  if (!archive.get()) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return fail(text + ".");
  }
  const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
  std::vector<ArchiveEntry> entries;
  entries.reserve(static_cast<std::size_t>(std::max<zip_int64_t>(count, 0)));
  for (zip_uint64_t i = 0; i < static_cast<zip_uint64_t>(std::max<zip_int64_t>(count, 0)); ++i) {
    const char* name = zip_get_name(archive.get(), i, ZIP_FL_ENC_RAW);
    if (!name) return fail("An entry of the archive has no readable name.");
    ArchiveEntry entry{name, std::nullopt};
    if (isLinkEntry(archive.get(), i)) entry.linkTarget = linkTargetOf(archive.get(), i);
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace

}  // namespace orla

extern "C" __attribute__((visibility("default"))) bool orla_zip_read_entries(const char* path,
                                                                           std::vector<orla::ArchiveEntry>* out,
                                                                           std::string* error) {
  auto entries = orla::readEntries(path);
  if (!entries) {
    *error = entries.error();
    return false;
  }
  *out = std::move(entries).value();
  return true;
}
