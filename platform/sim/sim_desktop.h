// SimDesktop: a desktop held in memory, for the unit tests and `orla --sim`.
// It is a model (applications, a frontmost one, a clipboard with a change
// count, a virtual clock whose sleeps return at once) and a recorder: every
// sleep, notification, clipboard write and activation is logged in order for
// a test (or `--trace`) to read. The file system is the real one, shared with
// the native backend, so file conditions and operations behave as they will
// for the user.
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/sim/sim_keychain.h"

namespace orla::sim {

struct TraceEntry {
  std::string category;  // "sleep", "notification", "clipboard", ...
  std::string text;
  friend bool operator==(const TraceEntry&, const TraceEntry&) = default;
};

// The text field of a simulated application: it inserts what is typed into
// it (text-carrying events, Return and Tab) and pastes the clipboard's text
// over its selection on Command-V. The
// selection is in UTF-16 units, as the system counts them.
struct SimTextField {
  std::u16string value;
  std::size_t selectionStart = 0;
  std::size_t selectionLength = 0;
  friend bool operator==(const SimTextField&, const SimTextField&) = default;
};

struct HostIdentity {
  std::string bundleIdentifier = "pro.orla.OrlaPro";
  std::string name = "Orla Pro";
  ProcessId processIdentifier = 100;
};

class SimDesktop {
 public:
  SimDesktop();

  // Clock.
  TimePoint now() const;
  void setNow(TimePoint now);
  std::string timeZone() const;
  void setTimeZone(std::string timeZone);
  std::string locale() const;
  void setLocale(std::string locale);
  Clock::Monotonic monotonicNow() const;
  // Advances both clocks at once and records the sleep.
  void sleep(std::chrono::microseconds duration);

  // Environment. The default is a copy of this process's environment, so that
  // "~" agrees with the real file system the simulation uses.
  std::map<std::string, std::string> environment() const;
  void setEnvironment(std::map<std::string, std::string> environment);

  // Clipboard.
  std::optional<std::string> clipboardText() const;
  void setClipboardText(std::optional<std::string> text);  // counts as a change
  std::int64_t clipboardChangeCount() const;

  // Accessibility trust.
  bool accessibilityTrusted() const;
  void setAccessibilityTrusted(bool trusted);

  // Applications. The host is one of them, listed first.
  HostIdentity host() const;
  void setHost(HostIdentity host);
  std::vector<RunningApplication> applications() const;
  void addApplication(RunningApplication app);
  void removeAllApplications();  // all but the host
  std::optional<RunningApplication> frontmostApplication() const;
  // Makes the application with this process the frontmost; none clears it.
  void setFrontmost(std::optional<ProcessId> pid);
  bool hostIsFrontmost() const;
  // Brings the application to the front unless it refuses; records the call.
  bool activate(ProcessId pid, unsigned options);
  void setRefusesActivation(ProcessId pid, bool refuses);

  // Text fields, one per application at most.
  void setTextField(ProcessId pid, std::optional<SimTextField> field);
  std::optional<SimTextField> textField(ProcessId pid) const;
  // The field's text as UTF-8, empty when the application has none.
  std::string textFieldValue(ProcessId pid) const;

  // Keyboard. Every posted event is recorded; a key-down acts on the
  // frontmost application's text field.
  Checked<void> postKeyEvent(const KeyboardEvent& event);
  std::vector<KeyboardEvent> keyEvents() const;
  void clearKeyEvents();
  bool eventSourcesAvailable() const;
  void setEventSourcesAvailable(bool available);
  // After `count` more events, every event fails to be created; none lifts it.
  void failKeyEventsAfter(std::optional<std::size_t> count);

  // Work scheduled for later. It runs only when `runScheduled` is called,
  // which moves the clocks forward to each piece's time, in time order.
  void schedule(std::chrono::microseconds delay, std::function<void()> work);
  std::size_t runScheduled();

  // The keychain; it has a lock of its own.
  SimKeychain& keychain() { return keychain_; }
  const SimKeychain& keychain() const { return keychain_; }

  // Recorder.
  void record(std::string category, std::string text);
  std::vector<TraceEntry> trace() const;
  std::vector<TraceEntry> trace(std::string_view category) const;
  void clearTrace();

 private:
  mutable std::mutex mutex_;
  TimePoint now_;
  Clock::Monotonic monotonic_;
  std::string timeZone_ = "UTC";
  std::string locale_ = "en_US";
  std::map<std::string, std::string> environment_;
  std::optional<std::string> clipboard_;
  std::int64_t changeCount_ = 0;
  bool trusted_ = true;
  HostIdentity host_;
  struct App {
    RunningApplication info;
    std::optional<SimTextField> textField;
    bool refusesActivation = false;
  };
  App* findLocked(ProcessId pid);
  void typeLocked(const KeyboardEvent& event);

  std::vector<App> applications_;  // without the host
  std::optional<SimTextField> hostTextField_;
  std::vector<KeyboardEvent> keyEvents_;
  bool eventSourcesAvailable_ = true;
  std::optional<std::size_t> keyEventsBeforeFailure_;
  std::multimap<Clock::Monotonic, std::function<void()>> scheduled_;
  std::optional<ProcessId> frontmost_;
  std::vector<TraceEntry> trace_;
  SimKeychain keychain_;
};

// A Platform whose every service is backed by `desktop`.
std::shared_ptr<Platform> makeSimPlatform(std::shared_ptr<SimDesktop> desktop);

// "5ms", "1000ms", "0.25ms": a duration as the trace prints it.
std::string formatDuration(std::chrono::microseconds duration);

}  // namespace orla::sim
