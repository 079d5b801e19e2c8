// SimDesktop: a desktop held in memory, for the unit tests and `orla --sim`.
// It is a model (applications that launch after a delay, hide, and quit or
// refuse to; a frontmost one; a clipboard with a change count; pop-up menus
// and alerts answered from a script; a virtual clock whose sleeps return at
// once) and a recorder: every sleep, notification, clipboard write,
// activation, hide, quit, launch, menu, alert, script, program started,
// sound played, address or document opened, item trashed or revealed,
// Finder window change and print job is logged in order for a test (or
// `--trace`) to read. The file system is the real one, shared with
// the native backend, so file conditions and operations behave as they will
// for the user.
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <orla/platform/memory_user_defaults.h>
#include <orla/platform/platform.h>
#include "platform/sim/sim_documents.h"
#include "platform/sim/sim_finder.h"
#include "platform/sim/sim_focus.h"
#include "platform/sim/sim_network.h"
#include "platform/sim/sim_keychain.h"
#include "platform/sim/sim_programs.h"
#include "platform/sim/sim_settings.h"
#include "platform/sim/sim_sounds.h"
#include "platform/sim/sim_speech.h"
#include "platform/sim/sim_user_interface.h"

namespace orla::sim {

struct TraceEntry {
  std::string category;  // "sleep", "notification", "clipboard", ...
  std::string text;
  friend bool operator==(const TraceEntry&, const TraceEntry&) = default;
};

// The text field of a simulated application: it inserts what is typed into
// it (text-carrying events, Return and Tab), copies its selection on
// Command-C, cuts it on Command-X and pastes the clipboard's text over it on
// Command-V, as a real one does; with nothing selected, copy and cut leave the
// clipboard alone. The selection is in UTF-16 units, as the system counts
// them.
struct SimTextField {
  std::u16string value;
  std::size_t selectionStart = 0;
  std::size_t selectionLength = 0;
  // What copy and cut put on the clipboard instead of the selected text, as
  // when the selection is an image or a file.
  std::optional<PasteboardSnapshot> selectionContent;
  friend bool operator==(const SimTextField&, const SimTextField&) = default;
};

// What the simulated system answers to one AppleScript source text.
struct SimScriptAnswer {
  bool compiles = true;
  std::optional<std::string> result;
  std::optional<ScriptError> error;
};

struct HostIdentity {
  std::string bundleIdentifier = "pro.orla.OrlaPro";
  std::string name = "Orla Pro";
  ProcessId processIdentifier = 100;
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  // Whether one of its windows is on screen with a title (its editor).
  bool hasTitledWindow = false;
};

// What a simulated application does when asked to quit.
enum class QuitBehaviour {
  quits,       // on the quit event, the termination request or force
  asksToSave,  // puts up a save sheet and stays; only forced termination ends it
  refuses,     // hangs: nothing ends it
};

// The ways of hiding an application, as bits of `SimDesktop::setHidingWays`.
namespace hiding_ways {
inline constexpr unsigned request = 1;        // its own hide and unhide requests
inline constexpr unsigned accessibility = 2;  // "AXHidden"
inline constexpr unsigned processManager = 4;
inline constexpr unsigned all = 7;
}  // namespace hiding_ways

// An application installed on the simulated desktop, which opening a path
// or a bundle identifier launches.
struct SimApplicationBundle {
  std::string path;  // "/Applications/Safari.app"
  std::string bundleIdentifier;
  std::string name;  // empty: the bundle's file name without ".app"
  std::string executablePath;
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  // How long after opening it appears among the running applications;
  // none: it never does (it crashes on launch).
  std::optional<std::chrono::microseconds> launchDelay = std::chrono::microseconds(0);
  QuitBehaviour quit = QuitBehaviour::quits;
  // false: it answers a request to open documents or addresses with an
  // error, as an application that cannot read them does.
  bool opensDocuments = true;
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

  // Clipboard: items of typed bytes. Every write counts as a change.
  // The first item's plain text, when it has valid UTF-8 text.
  std::optional<std::string> clipboardText() const;
  // One item with plain text, or an empty clipboard for none.
  void setClipboardText(std::optional<std::string> text);
  PasteboardSnapshot clipboardItems() const;
  void setClipboardItems(PasteboardSnapshot items);
  std::int64_t clipboardChangeCount() const;

  // AppleScript: answers by exact source text; a source with no answer fails
  // to run with an error saying so.
  void setScriptAnswer(std::string source, SimScriptAnswer answer);
  std::map<std::string, SimScriptAnswer> scriptAnswers() const;
  std::optional<SimScriptAnswer> scriptAnswer(const std::string& source) const;
  // Every script given to the scripting service, in order: the source of
  // each one compiled, the content of each compiled file loaded.
  void recordGivenScript(std::string source);
  std::vector<std::string> givenScripts() const;

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
  bool refusesActivation(ProcessId pid) const;
  bool answersAppleEvents(ProcessId pid) const;
  // The host's activation policy; a change is recorded.
  bool setHostActivationPolicy(ActivationPolicy policy);

  // Application control (sim_applications.cpp). Every request is recorded.
  bool yieldActivation(ProcessId pid);
  // Hides or shows by one way; it works when the application takes that way
  // (all by default) and, for the accessibility way, when this process is
  // trusted. Hiding the frontmost application leaves no application in front.
  Checked<void> setHidden(ProcessId pid, bool hidden, unsigned way);
  void setHidingWays(ProcessId pid, unsigned ways);
  Checked<void> sendQuitEvent(ProcessId pid, std::chrono::milliseconds timeout);
  // The polite request, or with `force` the forced one.
  bool terminate(ProcessId pid, bool force);
  void setQuitBehaviour(ProcessId pid, QuitBehaviour behaviour);
  QuitBehaviour quitBehaviour(ProcessId pid) const;
  // An application that does not answer Apple events lets the quit event
  // time out.
  void setAnswersAppleEvents(ProcessId pid, bool answers);

  // Installed applications. Adding a running application with a bundle path
  // installs that bundle too, unless one is installed there already.
  void installApplication(SimApplicationBundle bundle);
  std::vector<SimApplicationBundle> installedApplications() const;
  Checked<void> openApplication(std::string_view path, const OpenConfiguration& configuration);
  Checked<void> openApplicationWithBundleIdentifier(std::string_view bundleIdentifier,
                                                    const OpenConfiguration& configuration);
  std::optional<std::string> applicationPath(std::string_view bundleIdentifier) const;
  // An installed bundle, or an item of the real file system.
  bool itemExists(std::string_view path) const;
  // Opens an address with the application its scheme's handler names
  // (documents().urlHandler); recorded.
  Checked<void> openURL(std::string_view url);

  Workspace::ObserverToken addActivationObserver(Workspace::ActivationObserver observer);
  void removeActivationObserver(Workspace::ObserverToken token);

  // Pop-up menus answer the scripted choices in order: an item's title (or
  // payload), or none to dismiss the menu. Without a script the menu is
  // dismissed.
  void scriptMenuChoice(std::optional<std::string> choice);
  std::vector<std::optional<std::string>> pendingMenuChoices() const;
  std::optional<std::size_t> popUpMenu(std::span<const MenuItem> items);
  // A menu with submenus: a scripted choice is a title (or payload) found
  // anywhere in it, or a path of titles ("File > Save…"). Submenus, disabled
  // items and separators cannot be chosen.
  std::optional<MenuItemPath> popUpNestedMenu(std::span<const MenuItem> items);
  // Alerts answer the scripted answers in order: a button's title, or its
  // number ("1", "2"). Without a script the first (default) button is pressed.
  void scriptAlertAnswer(std::string answer);
  std::vector<std::string> pendingAlertAnswers() const;
  int runAlert(const Alert& alert);

  MemoryUserDefaults& userDefaults() { return userDefaults_; }
  const MemoryUserDefaults& userDefaults() const { return userDefaults_; }

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
  // The scene's timeline: work that happens by itself once the clocks pass
  // `delay` from now (an application starts, a window is retitled), run by
  // the sleep that gets there, in time order.
  void atTime(std::chrono::microseconds delay, std::function<void()> work);

  // The screens, the pointer, and the applications' menu bars and windows;
  // it has a lock of its own.
  SimUserInterface& ui() { return ui_; }
  const SimUserInterface& ui() const { return ui_; }
  bool isRunning(ProcessId pid) const;

  // The keychain; it has a lock of its own.
  SimKeychain& keychain() { return keychain_; }
  const SimKeychain& keychain() const { return keychain_; }
  // Programs and sounds, each with a lock of its own.
  SimPrograms& programs() { return programs_; }
  const SimPrograms& programs() const { return programs_; }
  SimSounds& sounds() { return sounds_; }
  const SimSounds& sounds() const { return sounds_; }
  // Documents, the Trash and printers; the Finder. Each has a lock of its own.
  SimDocuments& documents() { return documents_; }
  const SimDocuments& documents() const { return documents_; }
  SimFinder& finder() { return finder_; }
  const SimFinder& finder() const { return finder_; }
  SimSettings& settings() { return settings_; }
  // The speech synthesiser and the Focus modes, each with a lock of its own.
  SimSpeech& speech() { return speech_; }
  const SimSpeech& speech() const { return speech_; }
  SimFocus& focus() { return focus_; }
  const SimFocus& focus() const { return focus_; }
  // Servers, mounted network volumes and network locations.
  SimNetwork& network() { return network_; }
  const SimNetwork& network() const { return network_; }

  // The next JavaScript run ends this way (a time-out or the memory
  // ceiling) without waiting for it; every later run is real again.
  void forceNextJavaScriptOutcome(std::optional<JavaScriptOutcome::Kind> kind);
  std::optional<JavaScriptOutcome::Kind> takeForcedJavaScriptOutcome();

  // Recorder.
  void record(std::string category, std::string text);
  // Whether the trace and the list of key events are kept (they are unless
  // turned off). `orla` without --trace turns them off, so that typing a
  // long text costs the text, not a record of every key.
  void setRecording(bool on);
  std::vector<TraceEntry> trace() const;
  std::vector<TraceEntry> trace(std::string_view category) const;
  void clearTrace();

 private:
  mutable std::mutex mutex_;
  std::optional<JavaScriptOutcome::Kind> forcedJavaScriptOutcome_;
  TimePoint now_;
  Clock::Monotonic monotonic_;
  std::string timeZone_ = "UTC";
  std::string locale_ = "en_US";
  std::map<std::string, std::string> environment_;
  PasteboardSnapshot clipboard_;
  std::int64_t changeCount_ = 0;
  std::map<std::string, SimScriptAnswer> scripts_;
  std::vector<std::string> givenScripts_;
  bool trusted_ = true;
  HostIdentity host_;
  struct App {
    RunningApplication info;
    std::optional<SimTextField> textField;
    bool refusesActivation = false;
    QuitBehaviour quit = QuitBehaviour::quits;
    bool answersAppleEvents = true;
    unsigned hidingWays = hiding_ways::all;
  };
  struct PendingLaunch {
    Clock::Monotonic appearsAt;
    SimApplicationBundle bundle;
    bool activates;
  };
  App* findLocked(ProcessId pid);
  const App* findLocked(ProcessId pid) const;
  void typeLocked(const KeyboardEvent& event);
  std::optional<std::string> clipboardTextLocked() const;
  void removeLocked(ProcessId pid);
  Checked<void> openLocked(const SimApplicationBundle& bundle, const OpenConfiguration& configuration);
  void launchDueLocked();
  // Tells the activation observers when the frontmost application is no
  // longer `before`. Called without the lock.
  void notifyIfFrontChanged(std::optional<ProcessId> before);

  std::vector<App> applications_;  // without the host
  std::optional<SimTextField> hostTextField_;
  std::vector<KeyboardEvent> keyEvents_;
  bool recording_ = true;
  bool eventSourcesAvailable_ = true;
  std::optional<std::size_t> keyEventsBeforeFailure_;
  std::multimap<Clock::Monotonic, std::function<void()>> scheduled_;
  std::multimap<Clock::Monotonic, std::function<void()>> timeline_;
  std::optional<ProcessId> frontmost_;
  std::vector<TraceEntry> trace_;
  std::map<std::string, SimApplicationBundle> installed_;  // by path
  std::vector<PendingLaunch> pendingLaunches_;
  ProcessId nextLaunchPid_ = 1000;
  std::map<Workspace::ObserverToken, Workspace::ActivationObserver> activationObservers_;
  Workspace::ObserverToken nextObserverToken_ = 1;
  std::deque<std::optional<std::string>> menuChoices_;
  std::deque<std::string> alertAnswers_;
  MemoryUserDefaults userDefaults_;
  SimKeychain keychain_;
  SimPrograms programs_;
  SimSettings settings_;
  SimSounds sounds_;
  SimSpeech speech_;
  SimFocus focus_;
  SimNetwork network_;
  SimUserInterface ui_;
  SimDocuments documents_;
  SimFinder finder_;
};

// A Platform whose every service is backed by `desktop`; `deferred`, for
// the tests of deferred parts, names some of them as loaded later.
std::shared_ptr<Platform> makeSimPlatform(std::shared_ptr<SimDesktop> desktop,
                                          std::vector<Platform::DeferredPart> deferred = {});

// "/Applications/Safari.app/" and "/Applications/./Safari.app" are one
// bundle: the path without dot segments and trailing slashes.
std::string standardizedPath(std::string_view path);

// "5ms", "1000ms", "0.25ms": a duration as the trace prints it.
std::string formatDuration(std::chrono::microseconds duration);

}  // namespace orla::sim
