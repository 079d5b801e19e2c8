// Workspace: the running applications, the frontmost one, and what can be
// done to them: activate, hide and show, quit, open, look up.
//
// Each way of doing a thing is its own call (an application's own hide
// request, the accessibility attribute, the process manager), so that the
// order of attempts and what counts as success live in the plugin. A call
// reports whether the request was made; whether the application followed it
// is seen by reading the running applications again.
//
// Thread safety: every method may be called from any thread; a backend that
// needs the main thread hops there itself. Activation observers are called
// on the thread that caused the activation; for activations made by the
// user, on the main thread (macOS) or on a thread of
// the backend's own that hears the window manager (X11), in the order they
// happened. An observer that needs the main thread hops there itself.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/calendar.h>
#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

using ProcessId = std::int32_t;

// 0, 1 and 2, as the system numbers them.
enum class ActivationPolicy { regular, accessory, prohibited };

struct RunningApplication {
  ProcessId processIdentifier = 0;
  std::string bundleIdentifier;  // empty when the application has none
  std::string bundlePath;        // the application's bundle or install location
  std::string executablePath;
  std::string localizedName;     // empty when the application has none
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  std::optional<TimePoint> launchDate;
  bool hidden = false;
  bool active = false;
  bool terminated = false;
};

// Options of `activate`, as bits.
namespace activation_options {
inline constexpr unsigned allWindows = 1;
inline constexpr unsigned ignoringOtherApps = 2;
}  // namespace activation_options

// How an application is opened.
struct OpenConfiguration {
  // Bring it to the front once open (or at once, when it already runs).
  bool activates = true;
};

class Workspace {
 public:
  using ActivationObserver = std::function<void(const RunningApplication&)>;
  using ObserverToken = std::uint64_t;

  virtual ~Workspace() = default;
  // In the order the system reports them.
  virtual std::vector<RunningApplication> runningApplications() const = 0;
  virtual std::optional<RunningApplication> frontmostApplication() const = 0;
  // Asks the application to come to the front; answers whether the request
  // was accepted. It may take a moment to happen, or not happen at all: a
  // caller that needs it polls `frontmostApplication`.
  virtual bool activate(ProcessId pid, unsigned options) = 0;
  // Asks the frontmost application to hand activation over to `pid`, which
  // then activates in its turn (cooperative activation). Answers whether
  // there was a front application to ask.
  virtual bool yieldActivation(ProcessId pid) = 0;

  // The application's own hide and unhide requests.
  virtual bool hide(ProcessId pid) = 0;
  virtual bool unhide(ProcessId pid) = 0;
  // Hiding through the accessibility interface: the attribute "AXHidden" of
  // the application element. Needs the Accessibility permission.
  virtual Checked<void> setHiddenThroughAccessibility(ProcessId pid, bool hidden) = 0;
  // Hiding through the process manager's show/hide call, looked up by name
  // at run time because it is not public.
  virtual Checked<void> setHiddenThroughProcessManager(ProcessId pid, bool hidden) = 0;

  // Sends the standard quit Apple event (class "aevt", identifier "quit"),
  // addressed by process identifier; the send gives up after `timeout`. A
  // delivered event does not mean the application quits: it may ask to save.
  virtual Checked<void> sendQuitEvent(ProcessId pid, std::chrono::milliseconds timeout) = 0;
  // The polite termination request, which the application may refuse.
  virtual bool terminate(ProcessId pid) = 0;
  // Forced termination: the application gets no say.
  virtual bool forceTerminate(ProcessId pid) = 0;

  // Opens the application bundle at `bundlePath`; one that already runs is
  // brought to the front instead (when the configuration activates). The
  // answer comes once the system has accepted or refused the request; the
  // application appears among the running ones some time later.
  virtual Checked<void> openApplication(std::string_view bundlePath,
                                        const OpenConfiguration& configuration) = 0;
  // The same for the application the system knows by this bundle identifier.
  virtual Checked<void> openApplicationWithBundleIdentifier(
      std::string_view bundleIdentifier, const OpenConfiguration& configuration) = 0;
  // Where the application with this bundle identifier is installed.
  virtual std::optional<std::string> applicationPath(std::string_view bundleIdentifier) const = 0;
  // Opens an address (a web page, a "mailto:" link, an application's own
  // scheme such as "shortcuts://") with the application the system has for
  // it. Fails with a sentence when no application takes it.
  virtual Checked<void> openURL(std::string_view url) = 0;
  // Whether an item exists at `path` (an application bundle is a folder).
  // Whether it really is an application shows when it is opened.
  virtual bool itemExists(std::string_view path) const = 0;

  // Called after each application comes to the front, with its new state.
  virtual ObserverToken addActivationObserver(ActivationObserver observer) = 0;
  virtual void removeActivationObserver(ObserverToken token) = 0;
};

}  // namespace orla
