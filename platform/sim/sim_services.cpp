// The platform services of the simulated desktop: thin views onto one
// SimDesktop, so that every service sees (and records into) the same model.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <orla/platform/local_notification_center.h>
#include "platform/posix/posix_services.h"
#include <orla/platform/queued_main_thread.h>
#include "platform/sim/sim_desktop.h"
#include "platform/sim/sim_documents.h"
#include "platform/sim/sim_settings.h"
#include "platform/sim/sim_javascript.h"
#include "platform/sim/sim_ui_services.h"

namespace orla::sim {

namespace {

class SimClock : public Clock {
 public:
  explicit SimClock(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  TimePoint now() const override { return desktop_->now(); }
  std::string timeZone() const override { return desktop_->timeZone(); }
  std::string locale() const override { return desktop_->locale(); }
  Monotonic monotonicNow() const override { return desktop_->monotonicNow(); }
  void sleep(std::chrono::microseconds duration) override { desktop_->sleep(duration); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimNotificationCenter : public LocalNotificationCenter {
 public:
  explicit SimNotificationCenter(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  void post(const Notification& notification) override {
    std::string text = notification.name;
    for (const auto& [key, value] : notification.userInfo) text += " " + key + "=" + value;
    desktop_->record("notification", std::move(text));
    LocalNotificationCenter::post(notification);
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimScheduler : public Scheduler {
 public:
  explicit SimScheduler(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  void runAfter(std::chrono::microseconds delay, Work work) override {
    desktop_->schedule(delay, std::move(work));
  }
  void waitUntilIdle() override { desktop_->runScheduled(); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimPasteboard : public Pasteboard {
 public:
  explicit SimPasteboard(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::optional<std::string> text() const override { return desktop_->clipboardText(); }
  Checked<void> setText(std::string_view text) override { return takeText(std::string(text)); }
  Checked<void> takeText(std::string text) override {
    const std::size_t size = text.size();
    desktop_->setClipboardText(std::move(text));
    desktop_->record("clipboard", "setText " + std::to_string(size) + " bytes");
    return {};
  }
  std::int64_t changeCount() const override { return desktop_->clipboardChangeCount(); }
  PasteboardSnapshot snapshot() const override { return desktop_->clipboardItems(); }
  Checked<void> restore(const PasteboardSnapshot& snapshot) override {
    desktop_->setClipboardItems(snapshot);
    desktop_->record("clipboard", "restore " + std::to_string(snapshot.size()) + " item(s)");
    return {};
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimScript : public Script {
 public:
  SimScript(std::shared_ptr<SimDesktop> d, std::string source) : desktop_(std::move(d)), source_(std::move(source)) {}
  ScriptOutcome execute() override {
    const std::string_view firstLine = std::string_view(source_).substr(0, source_.find('\n'));
    desktop_->record("script", "run “" + std::string(firstLine) + (firstLine.size() < source_.size() ? "…”" : "”"));
    // A scripted answer first, so a test can make any script fail; then the
    // Finder's model.
    auto answer = desktop_->scriptAnswer(source_);
    if (answer) return {answer->result, answer->error};
    if (auto finder = desktop_->finder().answer(source_, [this](std::string change) {
          desktop_->record("finder", std::move(change));
        }))
      return *finder;
    return {std::nullopt, ScriptError{"The simulated desktop has no answer for this script.", std::nullopt, -2700}};
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
  std::string source_;
};

class SimScripting : public Scripting {
 public:
  explicit SimScripting(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  Checked<std::unique_ptr<Script>> compile(std::string_view source) override {
    std::string text(source);
    desktop_->recordGivenScript(text);
    if (auto answer = desktop_->scriptAnswer(text); answer && !answer->compiles)
      return std::unique_ptr<Script>();
    return std::unique_ptr<Script>(std::make_unique<SimScript>(desktop_, std::move(text)));
  }

  // The simulation cannot read compiled scripts: it takes the file's bytes
  // as the script, answered from the table like a source text.
  Checked<LoadedScript> load(std::string_view path) override {
    desktop_->record("script", "load " + std::string(path));
    const std::string name = std::filesystem::path(path).filename().string();
    std::ifstream file{std::string(path), std::ios::binary};
    if (!file)
      return LoadedScript{nullptr, ScriptError{"The file “" + name + "” couldn’t be opened because there is no such file.",
                                               std::nullopt, -43}};
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    desktop_->recordGivenScript(content);
    if (auto answer = desktop_->scriptAnswer(content); answer && !answer->compiles)
      return LoadedScript{nullptr, ScriptError{"The file “" + name + "” is not a compiled script.", std::nullopt, std::nullopt}};
    return LoadedScript{std::make_unique<SimScript>(desktop_, std::move(content)), {}};
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimWorkspace : public Workspace {
 public:
  explicit SimWorkspace(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::vector<RunningApplication> runningApplications() const override {
    return desktop_->applications();
  }
  std::optional<RunningApplication> frontmostApplication() const override {
    return desktop_->frontmostApplication();
  }
  bool activate(ProcessId pid, unsigned options) override { return desktop_->activate(pid, options); }
  bool yieldActivation(ProcessId pid) override { return desktop_->yieldActivation(pid); }
  bool hide(ProcessId pid) override {
    return desktop_->setHidden(pid, true, hiding_ways::request).ok();
  }
  bool unhide(ProcessId pid) override {
    return desktop_->setHidden(pid, false, hiding_ways::request).ok();
  }
  Checked<void> setHiddenThroughAccessibility(ProcessId pid, bool hidden) override {
    return desktop_->setHidden(pid, hidden, hiding_ways::accessibility);
  }
  Checked<void> setHiddenThroughProcessManager(ProcessId pid, bool hidden) override {
    return desktop_->setHidden(pid, hidden, hiding_ways::processManager);
  }
  Checked<void> sendQuitEvent(ProcessId pid, std::chrono::milliseconds timeout) override {
    return desktop_->sendQuitEvent(pid, timeout);
  }
  bool terminate(ProcessId pid) override { return desktop_->terminate(pid, false); }
  bool forceTerminate(ProcessId pid) override { return desktop_->terminate(pid, true); }
  Checked<void> openApplication(std::string_view path, const OpenConfiguration& configuration) override {
    return desktop_->openApplication(path, configuration);
  }
  Checked<void> openApplicationWithBundleIdentifier(std::string_view bundleIdentifier,
                                                    const OpenConfiguration& configuration) override {
    return desktop_->openApplicationWithBundleIdentifier(bundleIdentifier, configuration);
  }
  std::optional<std::string> applicationPath(std::string_view bundleIdentifier) const override {
    return desktop_->applicationPath(bundleIdentifier);
  }
  Checked<void> openURL(std::string_view url) override { return desktop_->openURL(url); }
  bool itemExists(std::string_view path) const override { return desktop_->itemExists(path); }
  ObserverToken addActivationObserver(ActivationObserver observer) override {
    return desktop_->addActivationObserver(std::move(observer));
  }
  void removeActivationObserver(ObserverToken token) override {
    desktop_->removeActivationObserver(token);
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimEventSource : public EventSource {
 public:
  explicit SimEventSource(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  Checked<void> post(const KeyboardEvent& event) override { return desktop_->postKeyEvent(event); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimKeyboardEvents : public KeyboardEvents {
 public:
  explicit SimKeyboardEvents(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  Checked<std::unique_ptr<EventSource>> createEventSource(EventSourceState) override {
    if (!desktop_->eventSourcesAvailable()) return fail("The event source could not be created.");
    return std::unique_ptr<EventSource>(std::make_unique<SimEventSource>(desktop_));
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimEnvironment : public Environment {
 public:
  explicit SimEnvironment(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::optional<std::string> variable(std::string_view name) const override {
    auto env = desktop_->environment();
    auto it = env.find(std::string(name));
    if (it == env.end()) return std::nullopt;
    return it->second;
  }
  std::optional<std::string> homeDirectory(std::string_view user) const override {
    if (user.empty()) return variable("HOME");
    // Other users' folders live on the real file system the simulation shares.
    return posix::passwordDatabaseHome(user);
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimHost : public Host {
 public:
  explicit SimHost(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::string bundleIdentifier() const override { return desktop_->host().bundleIdentifier; }
  ProcessId processIdentifier() const override { return desktop_->host().processIdentifier; }
  ActivationPolicy activationPolicy() const override { return desktop_->host().activationPolicy; }
  bool setActivationPolicy(ActivationPolicy policy) override {
    return desktop_->setHostActivationPolicy(policy);
  }
  bool hasVisibleTitledWindow() const override { return desktop_->host().hasTitledWindow; }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimPopupMenus : public PopupMenus {
 public:
  explicit SimPopupMenus(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  Checked<std::optional<std::size_t>> popUpAtMouse(std::span<const MenuItem> items) override {
    return desktop_->popUpMenu(items);
  }
  Checked<std::optional<MenuItemPath>> popUpNestedAtMouse(std::span<const MenuItem> items) override {
    return desktop_->popUpNestedMenu(items);
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

class SimAlerts : public Alerts {
 public:
  explicit SimAlerts(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  Checked<int> runModal(const Alert& alert) override { return desktop_->runAlert(alert); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

// The desktop's own defaults, so that a state file seeds them.
class SimUserDefaults : public UserDefaults {
 public:
  explicit SimUserDefaults(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  std::optional<AnyCodable> object(std::string_view key) const override {
    return desktop_->userDefaults().object(key);
  }
  void set(std::string_view key, AnyCodable value) override {
    desktop_->userDefaults().set(key, std::move(value));
  }
  void remove(std::string_view key) override { desktop_->userDefaults().remove(key); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::shared_ptr<Platform> makeSimPlatform(std::shared_ptr<SimDesktop> desktop,
                                          std::vector<Platform::DeferredPart> deferred) {
  Platform::Services services;
  services.clock = std::make_unique<SimClock>(desktop);
  services.notifications = std::make_unique<SimNotificationCenter>(desktop);
  services.mainThread = std::make_unique<QueuedMainThread>();
  services.scheduler = std::make_unique<SimScheduler>(desktop);
  services.pasteboard = std::make_unique<SimPasteboard>(desktop);
  services.keyboard = std::make_unique<SimKeyboardEvents>(desktop);
  services.workspace = std::make_unique<SimWorkspace>(desktop);
  services.accessibility = makeSimAccessibility(desktop);
  services.environment = std::make_unique<SimEnvironment>(desktop);
  // Real files, with the simulated desktop's bundles and names.
  services.files =
      std::make_unique<posix::PosixFiles>(std::shared_ptr<const FileWorkspace>(makeSimFileWorkspace(desktop)));
  services.host = std::make_unique<SimHost>(desktop);
  services.scripting = std::make_unique<SimScripting>(desktop);
  services.popupMenus = std::make_unique<SimPopupMenus>(desktop);
  services.alerts = std::make_unique<SimAlerts>(desktop);
  services.userDefaults = std::make_unique<SimUserDefaults>(desktop);
  services.http = makeSimHttp(desktop);
  services.keychain = makeSimKeychainService(desktop);
  services.processes = makeSimProcesses(desktop);
  services.sounds = makeSimSounds(desktop);
  services.mouse = makeSimMouseEvents(desktop);
  services.displays = makeSimDisplays(desktop);
  services.fileWorkspace = makeSimFileWorkspace(desktop);
  services.fileManager = makeSimFileManager(desktop);
  services.printers = makeSimPrinters(desktop);
  services.settingsPanes = makeSimSettingsPanes(desktop);
  services.javaScript = makeSimJavaScript(desktop);
  services.speech = makeSimSpeech(desktop);
  services.focusModes = makeSimFocusModes(desktop);
  services.networkVolumes = makeSimNetworkVolumes(desktop);
  services.networkLocations = makeSimNetworkLocations(desktop);
  return std::make_shared<Platform>(
      "sim", std::move(services),
      std::set<Capability>{Capability::pasteboard, Capability::workspace, Capability::accessibility,
                           Capability::keyboardEvents, Capability::appleScript, Capability::popUpMenus,
                           Capability::alerts, Capability::applicationControl, Capability::http,
                           Capability::keychain, Capability::processes, Capability::sound,
                           Capability::mouseEvents, Capability::displays, Capability::trash,
                           Capability::recentDocuments, Capability::printers, Capability::menuBars,
                           Capability::settingsPanes, Capability::javaScript, Capability::speech,
                           Capability::focusModes, Capability::networkVolumes,
                           Capability::networkLocations},
      std::move(deferred));
}

}  // namespace orla::sim
