#include "plugins/apps/recent_documents.h"

#include <unicode/coll.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include <orla/models/icu_support.h>
#include <orla/models/text.h>

namespace orla {

namespace fs = std::filesystem;

RecentDocumentsTracker& RecentDocumentsTracker::shared() {
  static RecentDocumentsTracker tracker;
  return tracker;
}

void RecentDocumentsTracker::record(std::string_view path) {
  std::string standard = standardizedDocumentPath(path);
  std::lock_guard lock(mutex_);
  std::erase(stored_, standard);
  stored_.insert(stored_.begin(), std::move(standard));
  if (stored_.size() > maxItems) stored_.resize(maxItems);
}

std::vector<std::string> RecentDocumentsTracker::stored() const {
  std::lock_guard lock(mutex_);
  return stored_;
}

void RecentDocumentsTracker::reset() {
  std::lock_guard lock(mutex_);
  stored_.clear();
}

std::string standardizedDocumentPath(std::string_view path) {
  if (path.empty()) return {};
  std::string normal = fs::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

bool isDocument(Platform& platform, const std::string& path) {
  if (toLowercase(fs::path(path).extension().string()) == ".app") return false;
  std::error_code ec;
  const auto status = fs::status(path, ec);
  if (ec) return false;
  if (fs::is_regular_file(status)) return true;
  return fs::is_directory(status) && platform.fileWorkspace().isPackage(path);
}

namespace {

void sortByName(std::vector<RecentDocumentItem>& items, const std::string& locale) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(icu::Locale(locale.c_str()), status));
  if (U_FAILURE(status) || !collator) return;
  // Secondary strength: letters and accents count, case does not.
  collator->setStrength(icu::Collator::SECONDARY);
  std::stable_sort(items.begin(), items.end(), [&](const RecentDocumentItem& a, const RecentDocumentItem& b) {
    UErrorCode s = U_ZERO_ERROR;
    return collator->compare(unicodeString(a.name), unicodeString(b.name), s) == UCOL_LESS;
  });
}

}  // namespace

std::vector<RecentDocumentItem> recentDocumentItems(Platform& platform, bool byName) {
  std::vector<RecentDocument> candidates;
  for (std::string& path : RecentDocumentsTracker::shared().stored()) candidates.push_back({std::move(path), {}});
  if (platform.supports(Capability::recentDocuments))
    for (RecentDocument& document : platform.fileManager().recentDocuments()) candidates.push_back(std::move(document));

  std::vector<RecentDocumentItem> items;
  std::set<std::string> kept;
  for (const RecentDocument& candidate : candidates) {
    const std::string path = standardizedDocumentPath(candidate.path);
    if (path.empty() || kept.count(path) || !isDocument(platform, path)) continue;
    kept.insert(path);
    items.push_back({candidate.name.empty() ? platform.fileWorkspace().displayName(path) : candidate.name, path});
  }
  if (byName) sortByName(items, platform.clock().locale());
  return items;
}

}  // namespace orla
