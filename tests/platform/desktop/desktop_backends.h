// The desktops the conformance suites of the desktop services (events,
// screens, ...) run against: the simulated one in every build, and the X11
// backend on a real X server when the headless desktop of scripts/test
// (scripts/desktop-harness) is up. Each comes with a receiving window that
// reports what reached it in one form, so that a suite states its
// expectations once for every backend.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string_view>
#include <string>
#include <vector>

#include <orla/platform/platform.h>
#include "platform/sim/sim_desktop.h"

extern char** environ;

namespace orla::desktop_testing {

// Runs the desktop driver in the background while this process shows its
// dialog or menu; `succeeded` waits for it.
class Driver {
 public:
  explicit Driver(std::vector<std::string> args) {
    args.insert(args.begin(), ORLA_DESKTOP_DRIVER);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) pid_ = -1;
  }
  ~Driver() { succeeded(); }
  bool succeeded() {
    if (pid_ > 0) {
      int status = 0;
      waitpid(pid_, &status, 0);
      ok_ = WIFEXITED(status) && WEXITSTATUS(status) == 0;
      pid_ = -1;
    }
    return ok_;
  }

 private:
  pid_t pid_ = -1;
  bool ok_ = false;
};

inline std::string self() { return std::to_string(::getpid()); }


// The application of the receiving window, as every backend names it.
inline constexpr const char* kTestWindowName = "Orla Test Window";
inline constexpr const char* kTestWindowBundle = "org.orla.TestWindow.desktop";

// The test application: a program of its own, installed where the desktop
// looks for applications, as every backend names it.
inline constexpr const char* kTestAppName = "Orla Test Application";
inline constexpr const char* kTestAppBundle = "org.orla.TestApplication.desktop";

// The test application on a desktop. Copies still running at the end are
// ended.
class TestApplications {
 public:
  virtual ~TestApplications() = default;
  // Where it is installed: what `openApplication` opens, and the bundle path
  // of a running copy.
  virtual std::string installedPath() const = 0;
  // Starts a copy with one window; its process once the workspace lists it
  // as a regular application. With `asksToSave`, asked to quit it keeps its
  // window, as an application with unsaved work does.
  virtual ProcessId start(bool asksToSave = false) = 0;
};

// A window in front with the keyboard focus, seen from inside.
class Receiver {
 public:
  virtual ~Receiver() = default;
  // The key chords pressed so far (modifier keys on their own left out), in
  // the glyph form of a menu ("⇧⌘A"), once `count` have arrived or the wait
  // is over.
  virtual std::vector<std::string> chords(std::size_t count) = 0;
  // The text typed so far, once it has `characters` code points or the wait
  // is over.
  virtual std::string text(std::size_t characters) = 0;
  // Buttons and wheel clicks so far, as "left down 120,80", "right up 5,6",
  // "wheel up", once `count` have arrived or the wait is over. Locations are
  // in event coordinates.
  virtual std::vector<std::string> clicks(std::size_t count) = 0;
  // Where on the desktop a point inside the window is, in event coordinates.
  virtual Point inside() const = 0;
  // The process the window belongs to.
  virtual ProcessId process() const = 0;
};

// Another program on the same desktop that copies and pastes.
class OtherProgram {
 public:
  virtual ~OtherProgram() = default;
  // Puts `bytes` on the clipboard as `type` (a pasteboard type), as a copy in
  // that program does.
  virtual void copy(std::string_view type, const std::string& bytes) = 0;
  // What a paste of `type` there gets; none when the clipboard lacks it.
  virtual std::optional<std::string> paste(std::string_view type) = 0;
};

struct SimDesktopBackend {
  static constexpr const char* name = "sim";
  // The simulated clipboard keeps every item; the X clipboard holds one.
  static constexpr bool clipboardHoldsOneItem = false;
  // Whether an application whose windows are all minimized counts as
  // hidden (X11 has no hiding of its own).
  static constexpr bool minimizedMeansHidden = false;
  // Whether an executable or an application's name opens it (applications
  // here are bundles).
  static constexpr bool opensExecutables = false;
  // Why the backend cannot run here; empty when it can.
  static std::string unavailableReason() { return {}; }
  SimDesktopBackend();
  // `announcesProcess`: whether the window names its process itself; the
  // simulated desktop always knows.
  std::unique_ptr<Receiver> receiver(bool announcesProcess = true);
  std::unique_ptr<OtherProgram> otherProgram();
  std::unique_ptr<TestApplications> applications();

  std::shared_ptr<sim::SimDesktop> desktop;
  std::shared_ptr<Platform> platform;
};

struct X11DesktopBackend {
  static constexpr const char* name = "x11";
  static constexpr bool clipboardHoldsOneItem = true;
  static constexpr bool minimizedMeansHidden = true;
  static constexpr bool opensExecutables = true;
  static std::string unavailableReason();
  X11DesktopBackend();
  std::unique_ptr<Receiver> receiver(bool announcesProcess = true);
  // xclip, a separate X client.
  std::unique_ptr<OtherProgram> otherProgram();
  // orla_test_app, a separate X client, behind a desktop entry.
  std::unique_ptr<TestApplications> applications();
  // Locks or unlocks Caps Lock on a connection of its own, as the user's
  // keyboard would; and reads the lock back.
  static void setCapsLock(bool on);
  static bool capsLockIsOn();
  // The keycodes with no keysym, and the keyboard group locked now.
  static int emptyKeycodes();
  static int lockedGroup();

  std::shared_ptr<Platform> platform;
};

using DesktopBackends = ::testing::Types<SimDesktopBackend, X11DesktopBackend>;

class DesktopBackendNames {
 public:
  template <class T>
  static std::string GetName(int) {
    return T::name;
  }
};

// A fresh desktop per test, skipped with the reason where it cannot run.
template <class Backend>
class DesktopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = Backend::unavailableReason(); !why.empty()) GTEST_SKIP() << why;
    backend = std::make_unique<Backend>();
  }
  Platform& platform() { return *backend->platform; }
  std::unique_ptr<Backend> backend;
};

}  // namespace orla::desktop_testing
