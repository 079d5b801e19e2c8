// The platform services of the simulated desktop: thin views onto one
// SimDesktop, so that every service sees (and records into) the same model.
#include "platform/local_notification_center.h"
#include "platform/posix/posix_services.h"
#include "platform/queued_main_thread.h"
#include "platform/sim/sim_desktop.h"

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
  Checked<void> setText(std::string_view text) override {
    desktop_->setClipboardText(std::string(text));
    desktop_->record("clipboard", "setText " + std::to_string(text.size()) + " bytes");
    return {};
  }
  std::int64_t changeCount() const override { return desktop_->clipboardChangeCount(); }

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

class SimAccessibility : public Accessibility {
 public:
  explicit SimAccessibility(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}
  bool isProcessTrusted() const override { return desktop_->accessibilityTrusted(); }

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

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::shared_ptr<Platform> makeSimPlatform(std::shared_ptr<SimDesktop> desktop) {
  Platform::Services services;
  services.clock = std::make_unique<SimClock>(desktop);
  services.notifications = std::make_unique<SimNotificationCenter>(desktop);
  services.mainThread = std::make_unique<QueuedMainThread>();
  services.scheduler = std::make_unique<SimScheduler>(desktop);
  services.pasteboard = std::make_unique<SimPasteboard>(desktop);
  services.keyboard = std::make_unique<SimKeyboardEvents>(desktop);
  services.workspace = std::make_unique<SimWorkspace>(desktop);
  services.accessibility = std::make_unique<SimAccessibility>(desktop);
  services.environment = std::make_unique<SimEnvironment>(desktop);
  services.files = std::make_unique<posix::PosixFiles>();
  services.host = std::make_unique<SimHost>(desktop);
  services.http = makeSimHttp(desktop);
  services.keychain = makeSimKeychainService(desktop);
  return std::make_shared<Platform>(
      "sim", std::move(services),
      std::set<Capability>{Capability::pasteboard, Capability::workspace, Capability::accessibility,
                           Capability::keyboardEvents, Capability::http, Capability::keychain});
}

}  // namespace orla::sim
