// The system commands on the Linux desktop: the login manager's stand-in
// (python-dbusmock's logind on a private system bus) sees each request and
// can refuse; a screen saver stand-in on the session bus is started only
// when it says so; the Trash is emptied on disk. Never the real login
// manager: without the stand-in these tests skip.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <orla/platform/platform.h>
#include "plugins/system/system_plugin.h"

namespace orla {
namespace {

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

int run(const std::string& command) { return std::system(command.c_str()); }

// Replaces a method of a dbusmock object on the bus `bus` ("system" or "session").
void mockMethod(const char* bus, const char* name, const char* path, const char* interface, const char* method,
                const char* in, const char* out, const std::string& code) {
  const std::string command = std::string("gdbus call --") + bus + " --dest " + name + " --object-path " + path +
                              " --method org.freedesktop.DBus.Mock.AddMethod " + interface + " " + method + " '" +
                              in + "' '" + out + "' '" + code + "' >/dev/null";
  ASSERT_EQ(run(command), 0) << command;
}

class LoginManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* log = std::getenv("ORLA_HARNESS_LOGIND_LOG");
    if (!log || !std::getenv("DBUS_SYSTEM_BUS_ADDRESS"))
      GTEST_SKIP() << "no login manager stand-in: the headless desktop's system bus is not running";
    logPath = log;
  }
  // What the stand-in logged since `from`.
  std::string loggedSince(std::size_t from) const { return fileText(logPath).substr(from); }
  std::size_t logSize() const { return fileText(logPath).size(); }
  void restoreSuspend() {
    mockMethod("system", "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
               "CanSuspend", "", "s", "ret = \"yes\"");
    mockMethod("system", "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
               "Suspend", "b", "", "");
  }

  std::string logPath;
  SystemPlugin plugin{makeNativePlatform()};
};

TEST_F(LoginManagerTest, EachRequestReachesTheLoginManagerAndAsks) {
  struct Case {
    const char* subAction;
    const char* logged;
    const char* message;
  };
  const Case cases[] = {
      {"restart", "Reboot True", "Asked the system to restart. Confirm the dialog if one appears."},
      {"shutDown", "PowerOff True", "Asked the system to shut down. Confirm the dialog if one appears."},
      {"sleep", "Suspend True", "Putting the computer to sleep."},
      {"logout", "TerminateSession \"auto\"", "Asked the system to log out. Confirm the dialog if one appears."},
  };
  for (const Case& c : cases) {
    const std::size_t before = logSize();
    EXPECT_EQ(plugin.execute({{"subAction", c.subAction}}), PluginResult::success(c.message)) << c.subAction;
    EXPECT_NE(loggedSince(before).find(c.logged), std::string::npos) << c.subAction << ": " << loggedSince(before);
  }
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}, {"sleepWakeType", 1}}),
            PluginResult::success("Putting the computer to sleep. Scheduled wake is not supported on this desktop, "
                                  "so no wake time was set."));
}

TEST_F(LoginManagerTest, ARefusalIsASentenceAndNothingIsDone) {
  mockMethod("system", "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
             "CanSuspend", "", "s", "ret = \"no\"");
  std::size_t before = logSize();
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}}),
            PluginResult::failure("The system refused to sleep (not allowed for this user). Ask your administrator, "
                                  "or use the desktop's own menu."));
  EXPECT_EQ(loggedSince(before).find("Suspend True"), std::string::npos);
  mockMethod("system", "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
             "CanSuspend", "", "s", "ret = \"yes\"");
  mockMethod("system", "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
             "Suspend", "b", "",
             "raise dbus.exceptions.DBusException(\"Access denied by policy\", "
             "name=\"org.freedesktop.DBus.Error.AccessDenied\")");
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}}),
            PluginResult::failure("The system refused to sleep (Access denied by policy). Ask your administrator, "
                                  "or use the desktop's own menu."));
  restoreSuspend();
}

// A screen saver stand-in on the session bus for one test, ended by its
// process id.
class ScreenSaverStandIn {
 public:
  ScreenSaverStandIn() {
    const gchar* argv[] = {"/usr/bin/python3", "-m", "dbusmock", "org.freedesktop.ScreenSaver",
                           "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", nullptr};
    if (!g_spawn_async(nullptr, const_cast<gchar**>(argv), nullptr,
                       static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                                                G_SPAWN_STDERR_TO_DEV_NULL),
                       nullptr, nullptr, &pid_, nullptr))
      return;
    for (int i = 0; i < 100 && !ready_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      ready_ = run("gdbus introspect --session --dest org.freedesktop.ScreenSaver --object-path "
                   "/org/freedesktop/ScreenSaver >/dev/null 2>&1") == 0;
    }
  }
  ~ScreenSaverStandIn() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  bool ready() const { return ready_; }

 private:
  GPid pid_ = 0;
  bool ready_ = false;
};

TEST_F(LoginManagerTest, TheScreenSaverCountsOnlyWhenItSaysItIsOn) {
  if (std::getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) GTEST_SKIP() << "no session bus";
  ScreenSaverStandIn saver;
  ASSERT_TRUE(saver.ready());
  const char* path = "/org/freedesktop/ScreenSaver";
  // Says yes to the request but never turns on: not a success.
  mockMethod("session", "org.freedesktop.ScreenSaver", path, "org.freedesktop.ScreenSaver", "SetActive", "b", "b",
             "ret = True");
  mockMethod("session", "org.freedesktop.ScreenSaver", path, "org.freedesktop.ScreenSaver", "GetActive", "", "b",
             "ret = False");
  const PluginResult refused = plugin.execute({{"subAction", "screensaver"}});
  if (std::system("command -v xdg-screensaver >/dev/null") != 0) {
    EXPECT_EQ(refused, PluginResult::failure("Could not start the screen saver: no screen saver answered on this "
                                             "desktop. Start the desktop's screen saver or install xdg-screensaver, "
                                             "then click Test again."));
  }
  mockMethod("session", "org.freedesktop.ScreenSaver", path, "org.freedesktop.ScreenSaver", "SetActive", "b", "b",
             "self.active = args[0]; ret = True");
  mockMethod("session", "org.freedesktop.ScreenSaver", path, "org.freedesktop.ScreenSaver", "GetActive", "", "b",
             "ret = getattr(self, \"active\", False)");
  EXPECT_EQ(plugin.execute({{"subAction", "screenSaver"}}), PluginResult::success("Started the screen saver."));
}

TEST_F(LoginManagerTest, EmptyingTheTrashDeletesWhatIsInItAndEjectingNothingSaysSo) {
  const char* data = std::getenv("XDG_DATA_HOME");
  if (!data || !std::getenv("ORLA_DESKTOP_HARNESS")) GTEST_SKIP() << "no private data folder to trash into";
  const std::filesystem::path folder = std::filesystem::path(data) / "trash-test";
  std::filesystem::create_directories(folder / "inner");
  std::ofstream(folder / "inner" / "a.txt") << "x";
  std::ofstream(std::filesystem::path(data) / "b.txt") << "y";
  for (const auto& path : {folder, std::filesystem::path(data) / "b.txt"}) {
    GFile* file = g_file_new_for_path(path.c_str());
    ASSERT_TRUE(g_file_trash(file, nullptr, nullptr)) << path;
    g_object_unref(file);
  }
  const std::filesystem::path trash = std::filesystem::path(data) / "Trash";
  ASSERT_FALSE(std::filesystem::is_empty(trash / "files"));
  EXPECT_EQ(plugin.execute({{"subAction", "emptyTrash"}}), PluginResult::success("Emptied the Trash."));
  EXPECT_TRUE(std::filesystem::is_empty(trash / "files"));
  EXPECT_TRUE(std::filesystem::is_empty(trash / "info"));
  EXPECT_EQ(plugin.execute({{"subAction", "trash"}}), PluginResult::success("Emptied the Trash."));
  // The headless desktop has no removable disks.
  EXPECT_EQ(plugin.execute({{"subAction", "eject"}}),
            PluginResult::success("There were no removable disks to eject."));
}

}  // namespace
}  // namespace orla
