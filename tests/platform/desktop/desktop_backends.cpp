#include "tests/platform/desktop/desktop_backends.h"

#include <X11/XKBlib.h>
#include <X11/keysym.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include <orla/models/key_code_map.h>
#include "tests/platform/desktop/x11_test_window.h"
#include "tests/support/temp_folder.h"

namespace orla::desktop_testing {
namespace {

// The test window's application as the desktop knows it: on Linux, the
// desktop entry that names its window class, installed in a private data
// folder that GLib is pointed at before anything can ask (it reads the
// folder once per process).
struct TestWindowEntry {
  TestWindowEntry() {
    ::setenv("XDG_DATA_HOME", folder.path().c_str(), 1);
    std::filesystem::create_directories(folder.path() / "applications");
    std::ofstream(folder.path() / "applications" / kTestWindowBundle)
        << "[Desktop Entry]\nType=Application\nName=" << kTestWindowName
        << "\nExec=/bin/true\nStartupWMClass=OrlaTestWindow\n";
    std::ofstream(folder.path() / "applications" / kTestAppBundle)
        << "[Desktop Entry]\nType=Application\nName=" << kTestAppName << "\nExec=" << ORLA_TEST_APP
        << "\nStartupWMClass=OrlaTestApp\n";
  }
  testing::TempFolder folder{"orla-desktop-entries"};
};
const TestWindowEntry testWindowEntry;

// How long a receiver waits at most for what was posted to arrive. Every
// change of the keyboard map costs the window manager a while (openbox takes
// some 40 ms of processor time to reload its key bindings), during which
// events wait, so the bound is generous; the wait ends as soon as they are
// there.
constexpr auto kArrival = std::chrono::seconds(20);

constexpr KeyCode kModifierKeys[] = {54, 55, 56, 57, 58, 59, 60, 61, 62, 63};

std::size_t codePointCount(const std::string& utf8) {
  std::size_t n = 0;
  for (unsigned char c : utf8) n += (c & 0xC0) != 0x80;
  return n;
}

std::string location(Point p) {
  return std::to_string(static_cast<long>(p.x)) + "," + std::to_string(static_cast<long>(p.y));
}

class SimReceiver : public Receiver {
 public:
  static constexpr ProcessId kPid = 4242;
  explicit SimReceiver(std::shared_ptr<sim::SimDesktop> desktop) : desktop_(std::move(desktop)) {
    RunningApplication app;
    app.processIdentifier = kPid;
    app.bundleIdentifier = kTestWindowBundle;
    app.localizedName = kTestWindowName;
    desktop_->addApplication(app);
    desktop_->setTextField(kPid, sim::SimTextField{});
    desktop_->ui().setWindows(kPid, {sim::SimWindow{"Orla test window", {100, 100, 400, 300}}});
    desktop_->setFrontmost(kPid);
  }

  std::vector<std::string> chords(std::size_t) override {
    std::vector<std::string> out;
    for (const KeyboardEvent& event : desktop_->keyEvents()) {
      if (!event.keyDown || !event.unicodeString.empty() || std::count(std::begin(kModifierKeys), std::end(kModifierKeys), event.keyCode)) continue;
      // fn is a flag the system sets on its own (on every arrow and F key);
      // a window sees the key, not the flag, and neither does this receiver.
      out.push_back(KeyCodeMap::displayString(event.keyCode, event.flags & event_flags::modifierMask &
                                                                 ~event_flags::function));
    }
    return out;
  }
  std::string text(std::size_t) override { return desktop_->textFieldValue(kPid); }
  std::vector<std::string> clicks(std::size_t) override {
    std::vector<std::string> out;
    for (const MouseEvent& event : desktop_->ui().mouseEvents()) {
      switch (event.type) {
        case MouseEventType::leftMouseDown: out.push_back("left down " + location(event.location)); break;
        case MouseEventType::leftMouseUp: out.push_back("left up " + location(event.location)); break;
        case MouseEventType::rightMouseDown: out.push_back("right down " + location(event.location)); break;
        case MouseEventType::rightMouseUp: out.push_back("right up " + location(event.location)); break;
        default: break;
      }
    }
    for (std::int32_t lines : desktop_->ui().scrolls())
      for (std::int32_t i = 0; i < std::abs(lines); ++i) out.push_back(lines > 0 ? "wheel up" : "wheel down");
    return out;
  }
  Point inside() const override { return {150, 150}; }
  ProcessId process() const override { return kPid; }

 private:
  std::shared_ptr<sim::SimDesktop> desktop_;
};

// The glyph name of the keys the suites press, by X keysym; letters are
// upper case, as a menu shows them.
std::string keyName(KeySym keysym) {
  static const std::map<KeySym, std::string> names = {
      {XK_Return, "↩"}, {XK_Tab, "⇥"}, {XK_space, "Space"}, {XK_BackSpace, "⌫"}, {XK_Escape, "⎋"},
      {XK_Delete, "⌦"}, {XK_Home, "↖"}, {XK_End, "↘"}, {XK_Prior, "⇞"}, {XK_Next, "⇟"},
      {XK_Left, "←"}, {XK_Right, "→"}, {XK_Up, "↑"}, {XK_Down, "↓"}, {XK_F1, "F1"}, {XK_F5, "F5"},
      {XK_F12, "F12"}, {XK_KP_1, "Keypad 1"}, {XK_KP_Enter, "⌤"}, {XK_minus, "-"}, {XK_equal, "="},
      {XK_slash, "/"}, {XK_comma, ","}, {XK_period, "."}, {XK_grave, "`"},
  };
  if (auto it = names.find(keysym); it != names.end()) return it->second;
  if (keysym >= XK_a && keysym <= XK_z) return std::string(1, char('A' + (keysym - XK_a)));
  if (keysym >= XK_0 && keysym <= XK_9) return std::string(1, char(keysym));
  const char* raw = XKeysymToString(keysym);
  return raw ? raw : "?";
}

bool isModifier(KeySym keysym) {
  return (keysym >= XK_Shift_L && keysym <= XK_Hyper_R) || keysym == XK_ISO_Level3_Shift;
}

class X11Receiver : public Receiver {
 public:
  explicit X11Receiver(bool announcesProcess)
      : window_(testing_x11::X11TestWindow::open("Orla test window", announcesProcess)) {
    if (!window_ || !window_->focus()) ADD_FAILURE() << "the test window did not get the keyboard focus";
  }

  std::vector<std::string> chords(std::size_t count) override {
    window_->waitUntil([&] { return chordsNow().size() >= count; }, kArrival);
    return chordsNow();
  }
  std::string text(std::size_t characters) override {
    window_->waitUntil([&] { return codePointCount(window_->text()) >= characters; }, kArrival);
    return window_->text();
  }
  std::vector<std::string> clicks(std::size_t count) override {
    window_->waitUntil([&] { return clicksNow().size() >= count; }, kArrival);
    return clicksNow();
  }
  // The window sits at (100, 100) of a screen whose primary monitor starts
  // at the root window's origin; its frame's title bar is above that.
  Point inside() const override {
    int x = 0, y = 0;
    window_->toRoot(50, 50, x, y);
    return {double(x), double(y)};
  }
  ProcessId process() const override { return static_cast<ProcessId>(::getpid()); }

 private:
  // ⌘ is Control unless ORLA_COMMAND_KEY asks for Super.
  std::vector<std::string> chordsNow() const {
    const char* command = std::getenv("ORLA_COMMAND_KEY");
    const unsigned commandMask = command && std::string(command) == "super" ? Mod4Mask : ControlMask;
    std::vector<std::string> out;
    for (const auto& key : window_->keys()) {
      if (isModifier(key.keysym)) continue;
      std::string chord;
      if (key.state & Mod1Mask) chord += "⌥";
      if (key.state & ShiftMask) chord += "⇧";
      if (key.state & commandMask) chord += "⌘";
      out.push_back(chord + keyName(key.keysym));
    }
    return out;
  }
  std::vector<std::string> clicksNow() const {
    std::vector<std::string> out;
    for (const auto& b : window_->buttons()) {
      if (b.button == 4 || b.button == 5) {
        if (b.press) out.push_back(b.button == 4 ? "wheel up" : "wheel down");
        continue;
      }
      out.push_back(std::string(b.button == 1 ? "left" : b.button == 3 ? "right" : "other") +
                    (b.press ? " down " : " up ") + location({double(b.rootX), double(b.rootY)}));
    }
    return out;
  }

  std::unique_ptr<testing_x11::X11TestWindow> window_;
};

class SimOtherProgram : public OtherProgram {
 public:
  explicit SimOtherProgram(std::shared_ptr<sim::SimDesktop> desktop) : desktop_(std::move(desktop)) {}
  void copy(std::string_view type, const std::string& bytes) override {
    desktop_->setClipboardItems({PasteboardItem{{{std::string(type), bytes}}}});
  }
  std::optional<std::string> paste(std::string_view type) override {
    const auto items = desktop_->clipboardItems();
    if (items.empty() || !items.front().bytes(type)) return std::nullopt;
    return *items.front().bytes(type);
  }

 private:
  std::shared_ptr<sim::SimDesktop> desktop_;
};

// xclip, through files in a scratch folder: it takes the clipboard with a
// background process of its own, as it does for a user.
class XclipProgram : public OtherProgram {
 public:
  XclipProgram() : folder_(std::filesystem::temp_directory_path() / ("orla-xclip-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~XclipProgram() override { std::filesystem::remove_all(folder_); }

  void copy(std::string_view type, const std::string& bytes) override {
    std::ofstream(folder_ / "in", std::ios::binary) << bytes;
    const std::string command =
        "xclip -selection clipboard -t '" + target(type) + "' -i '" + (folder_ / "in").string() +
        "' </dev/null >/dev/null 2>&1";  // its background owner must not hold this test's output open
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
  }
  std::optional<std::string> paste(std::string_view type) override {
    const std::string command = "xclip -selection clipboard -o -t '" + target(type) + "' > '" +
                                (folder_ / "out").string() + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) return std::nullopt;
    std::ifstream in(folder_ / "out", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  // The MIME names other X programs use for the pasteboard's types.
  static std::string target(std::string_view type) {
    if (type == pasteboard_types::plainText) return "UTF8_STRING";
    if (type == pasteboard_types::html) return "text/html";
    if (type == pasteboard_types::rtf) return "text/rtf";
    if (type == pasteboard_types::png) return "image/png";
    return std::string(type);
  }
  std::filesystem::path folder_;
};

class SimTestApplications : public TestApplications {
 public:
  static constexpr const char* kPath = "/Applications/Orla Test Application.app";
  explicit SimTestApplications(std::shared_ptr<sim::SimDesktop> desktop) : desktop_(std::move(desktop)) {
    sim::SimApplicationBundle bundle;
    bundle.path = kPath;
    bundle.bundleIdentifier = kTestAppBundle;
    bundle.name = kTestAppName;
    desktop_->installApplication(std::move(bundle));
  }
  std::string installedPath() const override { return kPath; }
  ProcessId start(bool asksToSave) override {
    RunningApplication app;
    app.processIdentifier = nextPid_++;
    app.bundleIdentifier = kTestAppBundle;
    app.bundlePath = kPath;
    app.localizedName = kTestAppName;
    desktop_->addApplication(app);
    desktop_->ui().setWindows(app.processIdentifier, {sim::SimWindow{"Orla test application", {200, 200, 300, 200}}});
    if (asksToSave) desktop_->setQuitBehaviour(app.processIdentifier, sim::QuitBehaviour::asksToSave);
    return app.processIdentifier;
  }

 private:
  std::shared_ptr<sim::SimDesktop> desktop_;
  ProcessId nextPid_ = 5000;
};

// Copies of orla_test_app: those started here are this process's children
// and are ended and reaped at the end; those the desktop launched from the
// entry are found by their executable and ended.
class X11TestApplications : public TestApplications {
 public:
  X11TestApplications(std::shared_ptr<Platform> platform, std::string entryPath)
      : platform_(std::move(platform)), entryPath_(std::move(entryPath)) {}
  ~X11TestApplications() override {
    std::error_code ec;
    const auto program = std::filesystem::canonical(ORLA_TEST_APP, ec);
    for (const RunningApplication& app : platform_->workspace().runningApplications())
      if (!ec && app.executablePath == program.string() &&
          std::find(children_.begin(), children_.end(), app.processIdentifier) == children_.end())
        ::kill(app.processIdentifier, SIGKILL);
    for (pid_t child : children_) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
  }
  std::string installedPath() const override { return entryPath_; }
  ProcessId start(bool asksToSave) override {
    std::vector<std::string> arguments{ORLA_TEST_APP};
    if (asksToSave) arguments.push_back("--keeps-windows");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (::posix_spawn(&pid, ORLA_TEST_APP, nullptr, nullptr, argv.data(), environ) != 0) {
      ADD_FAILURE() << "could not start " << ORLA_TEST_APP;
      return 0;
    }
    children_.push_back(pid);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < end) {
      for (const RunningApplication& app : platform_->workspace().runningApplications())
        if (app.processIdentifier == pid && app.activationPolicy == ActivationPolicy::regular) return pid;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "the test application's window did not appear";
    return pid;
  }

 private:
  std::shared_ptr<Platform> platform_;
  std::string entryPath_;
  std::vector<pid_t> children_;
};

}  // namespace

std::unique_ptr<TestApplications> SimDesktopBackend::applications() {
  return std::make_unique<SimTestApplications>(desktop);
}

std::unique_ptr<TestApplications> X11DesktopBackend::applications() {
  return std::make_unique<X11TestApplications>(
      platform, (testWindowEntry.folder.path() / "applications" / kTestAppBundle).string());
}

std::unique_ptr<OtherProgram> SimDesktopBackend::otherProgram() { return std::make_unique<SimOtherProgram>(desktop); }

std::unique_ptr<OtherProgram> X11DesktopBackend::otherProgram() {
  if (std::system("command -v xclip >/dev/null") != 0) {
    ADD_FAILURE() << "xclip is missing (scripts/install-deps installs it)";
    return nullptr;
  }
  return std::make_unique<XclipProgram>();
}

SimDesktopBackend::SimDesktopBackend()
    : desktop(std::make_shared<sim::SimDesktop>()), platform(sim::makeSimPlatform(desktop)) {}

std::unique_ptr<Receiver> SimDesktopBackend::receiver(bool) { return std::make_unique<SimReceiver>(desktop); }

std::string X11DesktopBackend::unavailableReason() {
  if (!std::getenv("ORLA_DESKTOP_HARNESS"))
    return "no headless X desktop: scripts/test starts one (scripts/desktop-harness) when Xvfb and openbox are "
           "installed (scripts/install-deps)";
  return {};
}

X11DesktopBackend::X11DesktopBackend() : platform(makeNativePlatform()) {
  if (!platform->supports(Capability::keyboardEvents))
    ADD_FAILURE() << "the native platform did not connect to the headless desktop at DISPLAY";
}

std::unique_ptr<Receiver> X11DesktopBackend::receiver(bool announcesProcess) {
  return std::make_unique<X11Receiver>(announcesProcess);
}

void X11DesktopBackend::setCapsLock(bool on) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return;
  XkbLockModifiers(display, XkbUseCoreKbd, LockMask, on ? LockMask : 0);
  XSync(display, False);
  XCloseDisplay(display);
}

bool X11DesktopBackend::capsLockIsOn() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return false;
  XkbStateRec state{};
  const bool on = XkbGetState(display, XkbUseCoreKbd, &state) == Success && (state.locked_mods & LockMask);
  XCloseDisplay(display);
  return on;
}

int X11DesktopBackend::emptyKeycodes() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return -1;
  int min = 0, max = 0, perKeycode = 0, empty = 0;
  XDisplayKeycodes(display, &min, &max);
  KeySym* map = XGetKeyboardMapping(display, static_cast<KeyCode>(min), max - min + 1, &perKeycode);
  for (int code = min; map && code <= max; ++code)
    empty += std::all_of(map + (code - min) * perKeycode, map + (code - min + 1) * perKeycode,
                         [](KeySym k) { return k == NoSymbol; });
  if (map) XFree(map);
  XCloseDisplay(display);
  return empty;
}

int X11DesktopBackend::lockedGroup() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return -1;
  XkbStateRec state{};
  const int group = XkbGetState(display, XkbUseCoreKbd, &state) == Success ? state.locked_group : -1;
  XCloseDisplay(display);
  return group;
}

}  // namespace orla::desktop_testing
