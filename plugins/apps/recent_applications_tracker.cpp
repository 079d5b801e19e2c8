#include "plugins/apps/recent_applications_tracker.h"

#include <algorithm>

namespace orla {

std::shared_ptr<RecentApplicationsTracker> RecentApplicationsTracker::shared() {
  static const auto instance = std::make_shared<RecentApplicationsTracker>();
  return instance;
}

void RecentApplicationsTracker::start(std::shared_ptr<Platform> platform) {
  {
    std::lock_guard lock(mutex_);
    if (started_) return;
    started_ = true;
    platform_ = platform;
  }
  if (auto front = platform->workspace().frontmostApplication()) record(front->bundleIdentifier);
  // The observer holds the tracker weakly and delivers on the main thread,
  // where the list is read for the menus. It lives in the platform's
  // workspace, which the tracker keeps alive, so it holds the platform by
  // plain pointer.
  std::weak_ptr<RecentApplicationsTracker> weak = weak_from_this();
  Platform* observed = platform.get();
  const auto token =
      platform->workspace().addActivationObserver([weak, observed](const RunningApplication& app) {
        postToMainThread(observed->mainThread(), [weak, id = app.bundleIdentifier] {
          if (auto tracker = weak.lock()) tracker->record(id);
        });
      });
  std::lock_guard lock(mutex_);
  observer_ = token;
}

void RecentApplicationsTracker::record(std::string_view bundleID) {
  if (bundleID.empty()) return;
  std::shared_ptr<Platform> platform;
  {
    std::lock_guard lock(mutex_);
    platform = platform_;
  }
  if (platform && bundleID == platform->host().bundleIdentifier()) return;
  std::lock_guard lock(mutex_);
  std::erase(bundleIDs_, bundleID);
  bundleIDs_.insert(bundleIDs_.begin(), std::string(bundleID));
  if (bundleIDs_.size() > maxItems) bundleIDs_.resize(maxItems);
}

std::vector<std::string> RecentApplicationsTracker::bundleIDs() const {
  std::lock_guard lock(mutex_);
  return bundleIDs_;
}

bool RecentApplicationsTracker::started() const {
  std::lock_guard lock(mutex_);
  return started_;
}

void RecentApplicationsTracker::reset() {
  std::shared_ptr<Platform> platform;
  std::optional<Workspace::ObserverToken> observer;
  {
    std::lock_guard lock(mutex_);
    bundleIDs_.clear();
    started_ = false;
    std::swap(platform, platform_);
    std::swap(observer, observer_);
  }
  if (platform && observer) platform->workspace().removeActivationObserver(*observer);
}

}  // namespace orla
