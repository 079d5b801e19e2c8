#include "plugins/apps/application_menus.h"

#include <unicode/coll.h>

#include <algorithm>
#include <memory>

#include <orla/models/icu_support.h>
#include "plugins/apps/application_plugin.h"
#include "plugins/apps/recent_applications_tracker.h"

namespace orla {

PluginResult ApplicationPopupTarget::choose(const ApplicationMenuEntry& entry) {
  // The application may have quit while the menu was open: look again.
  std::optional<RunningApplication> app;
  if (entry.running) app = control_.find(entry.running->processIdentifier);
  if (!app) app = control_.findByBundleID(entry.item.payload);
  if (app) {
    const std::string name = ApplicationControl::displayName(*app);
    if (!control_.switchTo(*app, hideOthers_))
      return PluginResult::failure("Could not switch to " + name);
    return PluginResult::success("Switched to " + name + ".");
  }
  const auto launched = control_.launchBundleID(entry.item.payload);
  if (!launched) return PluginResult::failure("Could not launch " + entry.name);
  if (hideOthers_) control_.hideOthers(launched->processIdentifier);
  return PluginResult::success("Launched " + ApplicationControl::displayName(*launched) + ".");
}

void sortByName(std::vector<ApplicationMenuEntry>& entries, const std::string& locale) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(
      icu::Collator::createInstance(icu::Locale(locale.c_str()), status));
  if (U_FAILURE(status) || !collator) return;
  // Secondary strength: letters and accents count, case does not.
  collator->setStrength(icu::Collator::SECONDARY);
  std::stable_sort(entries.begin(), entries.end(),
                   [&](const ApplicationMenuEntry& a, const ApplicationMenuEntry& b) {
                     UErrorCode s = U_ZERO_ERROR;
                     return collator->compare(unicodeString(a.name), unicodeString(b.name), s) ==
                            UCOL_LESS;
                   });
}

PluginResult popUpApplicationMenu(Platform& platform,
                                  const std::vector<ApplicationMenuEntry>& entries,
                                  ApplicationPopupTarget& target) {
  std::vector<MenuItem> items;
  items.reserve(entries.size());
  for (const ApplicationMenuEntry& entry : entries) items.push_back(entry.item);
  const auto chosen = platform.popupMenus().popUpAtMouse(items);
  if (!chosen) return PluginResult::failure(chosen.error());
  if (!*chosen || **chosen >= entries.size()) return PluginResult::silentSuccess();
  return target.choose(entries[**chosen]);
}

PluginResult ApplicationPlugin::runningMenu(const ActionData& data) {
  const auto frontApp = control_->front();
  std::vector<ApplicationMenuEntry> entries;
  for (const RunningApplication& app : control_->regular()) {
    ApplicationMenuEntry entry;
    entry.name = app.localizedName.empty() ? "Unknown" : app.localizedName;
    entry.item.title = entry.name;
    entry.item.iconApplicationPath = app.bundlePath;
    entry.item.on = frontApp && frontApp->processIdentifier == app.processIdentifier;
    entry.item.payload = app.bundleIdentifier;
    entry.running = app;
    entries.push_back(std::move(entry));
  }
  if (entries.empty()) return PluginResult::failure("No running applications");
  if (order(data) == 1) {
    sortByName(entries, platform_->clock().locale());
  } else {
    // Most recently launched first; no launch date is the distant past.
    std::stable_sort(entries.begin(), entries.end(),
                     [](const ApplicationMenuEntry& a, const ApplicationMenuEntry& b) {
                       return a.running->launchDate.value_or(TimePoint::min()) >
                              b.running->launchDate.value_or(TimePoint::min());
                     });
  }
  ApplicationPopupTarget target(*control_, hideOthers(data));
  return popUpApplicationMenu(*platform_, entries, target);
}

PluginResult ApplicationPlugin::recentMenu(const ActionData& data) {
  const auto frontApp = control_->front();
  std::vector<ApplicationMenuEntry> entries;
  for (const std::string& bundleID : RecentApplicationsTracker::shared()->bundleIDs()) {
    ApplicationMenuEntry entry;
    entry.running = control_->findByBundleID(bundleID);
    std::string path = entry.running ? entry.running->bundlePath : std::string();
    if (!entry.running) {
      auto installed = platform_->workspace().applicationPath(bundleID);
      if (!installed) continue;  // no longer installed
      path = std::move(*installed);
    }
    entry.name =
        ApplicationControl::displayName(entry.running ? entry.running->localizedName : "", path);
    entry.item.title = entry.name;
    entry.item.iconApplicationPath = path;
    entry.item.on = entry.running && frontApp &&
                    frontApp->processIdentifier == entry.running->processIdentifier;
    entry.item.payload = bundleID;
    entries.push_back(std::move(entry));
  }
  if (entries.empty()) return PluginResult::failure("No recent applications");
  if (order(data) == 1) sortByName(entries, platform_->clock().locale());
  ApplicationPopupTarget target(*control_, hideOthers(data));
  return popUpApplicationMenu(*platform_, entries, target);
}

}  // namespace orla
