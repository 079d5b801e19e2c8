// The simulated desktop's application control: hiding, quitting, opening and
// launching, the activation observers, and the scripted pop-up menus and
// alerts. Each request is recorded for `--trace` and the tests.
#include <algorithm>
#include <cctype>
#include <filesystem>

#include <orla/models/text.h>
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

namespace {

std::string pidText(ProcessId pid) { return "pid=" + std::to_string(pid); }

const char* wayName(unsigned way) {
  switch (way) {
    case hiding_ways::request: return "request";
    case hiding_ways::accessibility: return "accessibility";
    case hiding_ways::processManager: return "processManager";
    default: return "?";
  }
}

std::string bundleName(const SimApplicationBundle& bundle) {
  if (!bundle.name.empty()) return bundle.name;
  std::filesystem::path path(bundle.path);
  if (!path.has_filename()) path = path.parent_path();
  return path.stem().string();
}

std::string standardized(std::string_view path) { return standardizedPath(path); }

}  // namespace

std::string standardizedPath(std::string_view path) {
  if (path.empty()) return {};
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

bool SimDesktop::yieldActivation(ProcessId pid) {
  std::lock_guard lock(mutex_);
  trace_.push_back({"yield", "to " + pidText(pid)});
  return frontmost_.has_value();
}

Checked<void> SimDesktop::setHidden(ProcessId pid, bool hidden, unsigned way) {
  std::lock_guard lock(mutex_);
  trace_.push_back({hidden ? "hide" : "unhide", pidText(pid) + " by " + wayName(way)});
  if (way == hiding_ways::accessibility && !trusted_)
    return fail("Orla is not trusted for accessibility.");
  App* app = findLocked(pid);
  // The host is the process running this code; it does not hide itself here.
  if (!app || pid == host_.processIdentifier) return fail("There is no such application.");
  if (!(app->hidingWays & way)) {
    // The request goes out and is ignored, as an application busy with a
    // modal panel ignores it.
    if (way == hiding_ways::request) return {};
    return fail("The application did not take the request.");
  }
  app->info.hidden = hidden;
  if (hidden && frontmost_ == pid) frontmost_.reset();
  return {};
}

void SimDesktop::setHidingWays(ProcessId pid, unsigned ways) {
  std::lock_guard lock(mutex_);
  if (App* app = findLocked(pid)) app->hidingWays = ways;
}

void SimDesktop::removeLocked(ProcessId pid) {
  std::erase_if(applications_, [&](const App& a) { return a.info.processIdentifier == pid; });
  if (frontmost_ == pid) frontmost_.reset();
}

Checked<void> SimDesktop::sendQuitEvent(ProcessId pid, std::chrono::milliseconds timeout) {
  std::lock_guard lock(mutex_);
  trace_.push_back({"quitEvent", pidText(pid) + " timeout=" + formatDuration(timeout)});
  App* app = findLocked(pid);
  if (!app) return fail("The application is not running.");
  if (!app->answersAppleEvents) {
    // The send waits out its time-out.
    now_ += timeout;
    monotonic_ += timeout;
    return fail("The application did not answer in time.");
  }
  if (app->quit == QuitBehaviour::quits) removeLocked(pid);
  return {};
}

bool SimDesktop::terminate(ProcessId pid, bool force) {
  std::lock_guard lock(mutex_);
  trace_.push_back({force ? "forceTerminate" : "terminate", pidText(pid)});
  App* app = findLocked(pid);
  if (!app) return false;
  if (app->quit == QuitBehaviour::quits || (force && app->quit == QuitBehaviour::asksToSave))
    removeLocked(pid);
  return true;
}

void SimDesktop::setQuitBehaviour(ProcessId pid, QuitBehaviour behaviour) {
  std::lock_guard lock(mutex_);
  if (App* app = findLocked(pid)) app->quit = behaviour;
}

QuitBehaviour SimDesktop::quitBehaviour(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  const App* app = findLocked(pid);
  return app ? app->quit : QuitBehaviour::quits;
}

void SimDesktop::setAnswersAppleEvents(ProcessId pid, bool answers) {
  std::lock_guard lock(mutex_);
  if (App* app = findLocked(pid)) app->answersAppleEvents = answers;
}

void SimDesktop::installApplication(SimApplicationBundle bundle) {
  std::lock_guard lock(mutex_);
  bundle.path = standardized(bundle.path);
  std::string key = bundle.path;
  installed_.insert_or_assign(std::move(key), std::move(bundle));
}

std::vector<SimApplicationBundle> SimDesktop::installedApplications() const {
  std::lock_guard lock(mutex_);
  std::vector<SimApplicationBundle> bundles;
  for (const auto& [path, bundle] : installed_) bundles.push_back(bundle);
  return bundles;
}

Checked<void> SimDesktop::openLocked(const SimApplicationBundle& bundle,
                                     const OpenConfiguration& configuration) {
  // One that runs already is brought to the front. Opening gets through
  // where an activation request may be ignored, as the system's launcher
  // does.
  for (App& app : applications_) {
    if (standardized(app.info.bundlePath) != bundle.path) continue;
    if (configuration.activates) {
      app.info.hidden = false;
      frontmost_ = app.info.processIdentifier;
    }
    return {};
  }
  if (!bundle.launchDelay) return {};  // accepted, and it dies on launch
  pendingLaunches_.push_back({monotonic_ + *bundle.launchDelay, bundle, configuration.activates});
  launchDueLocked();
  return {};
}

void SimDesktop::launchDueLocked() {
  auto due =
      std::stable_partition(pendingLaunches_.begin(), pendingLaunches_.end(),
                            [&](const PendingLaunch& p) { return p.appearsAt > monotonic_; });
  for (auto it = due; it != pendingLaunches_.end(); ++it) {
    App app;
    app.info.processIdentifier = nextLaunchPid_++;
    app.info.bundleIdentifier = it->bundle.bundleIdentifier;
    app.info.bundlePath = it->bundle.path;
    app.info.executablePath = it->bundle.executablePath;
    app.info.localizedName = bundleName(it->bundle);
    app.info.activationPolicy = it->bundle.activationPolicy;
    app.info.launchDate = now_;
    app.quit = it->bundle.quit;
    trace_.push_back({"launched", orla::quoted(app.info.localizedName) + " " +
                                      pidText(app.info.processIdentifier)});
    if (it->activates) frontmost_ = app.info.processIdentifier;
    applications_.push_back(std::move(app));
  }
  pendingLaunches_.erase(due, pendingLaunches_.end());
}

Checked<void> SimDesktop::openApplication(std::string_view path,
                                          const OpenConfiguration& configuration) {
  std::optional<ProcessId> before;
  Checked<void> result;
  {
    std::lock_guard lock(mutex_);
    before = frontmost_;
    trace_.push_back(
        {"open", std::string(path) + (configuration.activates ? "" : " (in the background)")});
    auto it = installed_.find(standardized(path));
    if (it == installed_.end())
      result = fail("The application can't be opened.");
    else
      result = openLocked(it->second, configuration);
  }
  notifyIfFrontChanged(before);
  return result;
}

Checked<void> SimDesktop::openApplicationWithBundleIdentifier(
    std::string_view bundleIdentifier, const OpenConfiguration& configuration) {
  std::optional<ProcessId> before;
  Checked<void> result = fail("No application with this bundle identifier is installed.");
  {
    std::lock_guard lock(mutex_);
    before = frontmost_;
    trace_.push_back({"open", "bundle " + std::string(bundleIdentifier)});
    for (const auto& [path, bundle] : installed_) {
      if (bundle.bundleIdentifier != bundleIdentifier) continue;
      result = openLocked(bundle, configuration);
      break;
    }
  }
  notifyIfFrontChanged(before);
  return result;
}

std::optional<std::string> SimDesktop::applicationPath(std::string_view bundleIdentifier) const {
  std::lock_guard lock(mutex_);
  for (const auto& [path, bundle] : installed_)
    if (!bundleIdentifier.empty() && bundle.bundleIdentifier == bundleIdentifier) return path;
  return std::nullopt;
}

bool SimDesktop::itemExists(std::string_view path) const {
  if (path.empty()) return false;
  {
    std::lock_guard lock(mutex_);
    if (installed_.count(standardized(path))) return true;
  }
  std::error_code ec;
  return std::filesystem::exists(std::filesystem::path(path), ec);
}

Checked<void> SimDesktop::openURL(std::string_view url) {
  std::lock_guard lock(mutex_);
  trace_.push_back({"open", std::string(url)});
  // A scheme: a letter, then letters, digits, "+", "-" or ".", then ":".
  const auto colon = url.find(':');
  const auto isSchemeChar = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
  };
  if (colon == std::string_view::npos || colon == 0 || !std::isalpha(static_cast<unsigned char>(url[0])) ||
      !std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(colon), isSchemeChar))
    return fail("The address “" + std::string(url) + "” can't be opened.");
  std::string scheme(url.substr(0, colon));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto handler = documents_.urlHandler(scheme);
  if (!handler) return fail("No application is set to open “" + scheme + ":” addresses.");
  // The handler is asked to open it; one that cannot read addresses says so.
  if (auto it = installed_.find(standardized(*handler)); it != installed_.end() && !it->second.opensDocuments)
    return fail("The application “" + std::string(std::filesystem::path(it->first).stem()) + "” can’t open “" +
                std::string(url) + "”.");
  return {};
}

Workspace::ObserverToken SimDesktop::addActivationObserver(Workspace::ActivationObserver observer) {
  std::lock_guard lock(mutex_);
  const auto token = nextObserverToken_++;
  activationObservers_.emplace(token, std::move(observer));
  return token;
}

void SimDesktop::removeActivationObserver(Workspace::ObserverToken token) {
  std::lock_guard lock(mutex_);
  activationObservers_.erase(token);
}

void SimDesktop::notifyIfFrontChanged(std::optional<ProcessId> before) {
  std::vector<Workspace::ActivationObserver> observers;
  {
    std::lock_guard lock(mutex_);
    if (!frontmost_ || frontmost_ == before || activationObservers_.empty()) return;
    for (const auto& [token, observer] : activationObservers_) observers.push_back(observer);
  }
  const auto front = frontmostApplication();
  if (!front) return;
  for (const auto& observer : observers) observer(*front);
}

void SimDesktop::scriptMenuChoice(std::optional<std::string> choice) {
  std::lock_guard lock(mutex_);
  menuChoices_.push_back(std::move(choice));
}

std::vector<std::optional<std::string>> SimDesktop::pendingMenuChoices() const {
  std::lock_guard lock(mutex_);
  return {menuChoices_.begin(), menuChoices_.end()};
}

std::optional<std::size_t> SimDesktop::popUpMenu(std::span<const MenuItem> items) {
  std::lock_guard lock(mutex_);
  std::string shown;
  for (const MenuItem& item : items) {
    if (!shown.empty()) shown += ", ";
    if (item.on) shown += "\u2713";
    if (!item.enabled) shown += "(disabled)";
    shown += orla::quoted(item.title);
  }
  trace_.push_back({"menu", "pop up " + shown});
  std::optional<std::string> choice;
  if (!menuChoices_.empty()) {
    choice = std::move(menuChoices_.front());
    menuChoices_.pop_front();
  }
  if (choice) {
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (!items[i].enabled || (items[i].title != *choice && items[i].payload != *choice)) continue;
      trace_.push_back({"menu", "chose " + orla::quoted(items[i].title)});
      return i;
    }
  }
  trace_.push_back({"menu", choice ? "dismissed (no item " + orla::quoted(*choice) + ")"
                                   : std::string("dismissed")});
  return std::nullopt;
}

namespace {

// “File” [“New”, —, (disabled)“Save…”], for the trace.
std::string describeMenu(std::span<const MenuItem> items) {
  std::string shown;
  for (const MenuItem& item : items) {
    if (!shown.empty()) shown += ", ";
    if (item.separator) {
      shown += "\u2014";
      continue;
    }
    if (item.on) shown += "\u2713";
    if (!item.enabled) shown += "(disabled)";
    shown += orla::quoted(item.title);
    if (!item.submenu.empty()) shown.append(" [").append(describeMenu(item.submenu)).append("]");
  }
  return shown;
}

bool choosable(const MenuItem& item) { return !item.separator && item.enabled && item.submenu.empty(); }

// The first choosable item, depth first, whose title or payload is `choice`.
bool findChoice(std::span<const MenuItem> items, const std::string& choice, MenuItemPath& path) {
  for (std::size_t i = 0; i < items.size(); ++i) {
    path.push_back(i);
    if (choosable(items[i]) && (items[i].title == choice || items[i].payload == choice)) return true;
    if (!items[i].separator && items[i].enabled && findChoice(items[i].submenu, choice, path)) return true;
    path.pop_back();
  }
  return false;
}

// "File > Save…": one title per level, through enabled submenus.
bool findChoicePath(std::span<const MenuItem> items, std::string_view choice, MenuItemPath& path) {
  for (;;) {
    const std::size_t cut = choice.find(" > ");
    const std::string_view title = choice.substr(0, cut);
    std::size_t i = 0;
    while (i < items.size() && (items[i].separator || !items[i].enabled || items[i].title != title)) ++i;
    if (i == items.size()) return false;
    path.push_back(i);
    if (cut == std::string_view::npos) return items[i].submenu.empty();
    choice.remove_prefix(cut + 3);
    items = items[i].submenu;
  }
}

std::string pathTitles(std::span<const MenuItem> items, const MenuItemPath& path) {
  std::string titles;
  for (std::size_t index : path) {
    if (!titles.empty()) titles += " > ";
    titles += items[index].title;
    items = items[index].submenu;
  }
  return titles;
}

}  // namespace

std::optional<MenuItemPath> SimDesktop::popUpNestedMenu(std::span<const MenuItem> items) {
  std::lock_guard lock(mutex_);
  trace_.push_back({"menu", std::string("pop up ").append(describeMenu(items))});
  std::optional<std::string> choice;
  if (!menuChoices_.empty()) {
    choice = std::move(menuChoices_.front());
    menuChoices_.pop_front();
  }
  if (choice) {
    MenuItemPath path;
    const bool found = choice->find(" > ") != std::string::npos ? findChoicePath(items, *choice, path)
                                                                 : findChoice(items, *choice, path);
    if (found) {
      trace_.push_back({"menu", std::string("chose ").append(orla::quoted(pathTitles(items, path)))});
      return path;
    }
  }
  trace_.push_back({"menu", choice ? std::string("dismissed (no item ").append(orla::quoted(*choice)).append(")")
                                   : std::string("dismissed")});
  return std::nullopt;
}

void SimDesktop::scriptAlertAnswer(std::string answer) {
  std::lock_guard lock(mutex_);
  alertAnswers_.push_back(std::move(answer));
}

std::vector<std::string> SimDesktop::pendingAlertAnswers() const {
  std::lock_guard lock(mutex_);
  return {alertAnswers_.begin(), alertAnswers_.end()};
}

int SimDesktop::runAlert(const Alert& alert) {
  std::lock_guard lock(mutex_);
  std::string shown = orla::quoted(alert.messageText);
  if (!alert.informativeText.empty()) {
    shown += ' ';
    shown += orla::quoted(alert.informativeText);
  }
  for (const std::string& button : alert.buttons) {
    shown += " [";
    shown += button;
    shown += ']';
  }
  trace_.push_back({"alert", std::move(shown)});
  std::size_t pressed = 0;
  if (!alertAnswers_.empty()) {
    const std::string answer = std::move(alertAnswers_.front());
    alertAnswers_.pop_front();
    for (std::size_t i = 0; i < alert.buttons.size(); ++i)
      if (alert.buttons[i] == answer || std::to_string(i + 1) == answer) pressed = i;
  }
  if (!alert.buttons.empty())
    trace_.push_back({"alert", "pressed " + orla::quoted(alert.buttons[pressed])});
  return alertFirstButtonReturn + static_cast<int>(pressed);
}

}  // namespace orla::sim
