#include "tools/orla/daemon.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <sstream>

#include "platform/sim/sim_hotkeys.h"
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla::cli {
namespace {

using std::chrono::milliseconds;

Hotkey key(const char* text) { return parseHotkey(text).value(); }

// Records what the daemon asks of the desktop instead of doing it.
class RecordingHostDesktop final : public HostDesktop {
 public:
  struct Log {
    std::mutex mutex;
    std::condition_variable released;
    bool holdNotices = false;  // a notice waits until this is false again
    std::vector<std::pair<std::string, std::string>> notices;
    std::vector<std::string> opened;
  };
  explicit RecordingHostDesktop(std::shared_ptr<Log> log) : log_(std::move(log)) {}
  Checked<void> showNotice(const std::string& summary, const std::string& body) override {
    std::unique_lock lock(log_->mutex);
    log_->notices.emplace_back(summary, body);
    log_->released.wait(lock, [&] { return !log_->holdNotices; });
    return {};
  }
  Checked<void> openInTextEditor(const std::filesystem::path& file) override {
    std::lock_guard lock(log_->mutex);
    log_->opened.push_back("editor " + file.filename().string());
    return {};
  }
  Checked<void> openFolder(const std::filesystem::path& folder) override {
    std::lock_guard lock(log_->mutex);
    log_->opened.push_back("folder " + folder.filename().string());
    return {};
  }

 private:
  std::shared_ptr<Log> log_;
};

class DaemonTest : public testing::SimTest {
 protected:
  DaemonTest() {
    auto hotkeys = std::make_unique<sim::SimGlobalHotkeys>();
    keys = hotkeys.get();
    desktopLog = std::make_shared<RecordingHostDesktop::Log>();
    daemon = std::make_unique<Daemon>(platform, std::move(hotkeys),
                                      std::make_unique<RecordingHostDesktop>(desktopLog), log, folder.path());
  }

  void write(const std::string& file, const std::string& name, const std::string& hotkey,
             const std::string& actions) {
    folder.write(file, R"({"name": ")" + name + R"(", "hotkey": ")" + hotkey + R"(", "actions": [)" + actions + "]}");
  }

  // Presses `hotkey` and lets the daemon run what it started.
  bool press(const char* hotkey) {
    if (!keys->press(key(hotkey))) return false;
    daemon->step(milliseconds(0));
    daemon->waitUntilIdle();
    daemon->step(milliseconds(0));  // requests the run posted to the loop
    return true;
  }

  std::vector<std::string> runs() const {
    std::vector<std::string> out;
    for (const auto& record : daemon->history())
      out.push_back(record.shortcut + (record.ok ? "" : ": " + record.message));
    return out;
  }

  testing::TempFolder folder;
  std::ostringstream logText;
  DaemonLog log{logText, false};
  sim::SimGlobalHotkeys* keys = nullptr;
  std::shared_ptr<RecordingHostDesktop::Log> desktopLog;
  std::unique_ptr<Daemon> daemon;
};

constexpr const char* kPauseToggle = R"({"kind": "OrlaShortcut", "data": {"subAction": "toggleEngine"}})";
constexpr const char* kFailing = R"({"kind": "OrlaShortcut", "data": {"subAction": "runByName"}})";
constexpr const char* kNothing = R"({"kind": "OrlaShortcut", "data": {"subAction": "testEdited"}})";

TEST_F(DaemonTest, APressRunsItsShortcutAfterTheKeysAreLetGoOf) {
  write("a.json", "Greet", "ctrl+alt+u", kNothing);
  daemon->reload();
  EXPECT_EQ(keys->held(), std::set<Hotkey>{key("⌃⌥U")});
  EXPECT_FALSE(press("ctrl+alt+i"));  // not held: another application gets it
  ASSERT_TRUE(press("ctrl+alt+u"));
  EXPECT_EQ(runs(), std::vector<std::string>{"Greet"});
  EXPECT_EQ(keys->releaseWaits(), 1);
}

TEST_F(DaemonTest, AFailureIsLoggedAndShownWithTheActionsSentence) {
  write("a.json", "Broken", "ctrl+alt+b", std::string(kFailing) + "," + kNothing);
  daemon->reload();
  ASSERT_TRUE(press("⌃⌥B"));
  ASSERT_EQ(runs().size(), 1u);
  const std::string sentence = daemon->history()[0].message;
  EXPECT_FALSE(sentence.empty());
  std::lock_guard lock(desktopLog->mutex);
  ASSERT_EQ(desktopLog->notices.size(), 1u);
  EXPECT_EQ(desktopLog->notices[0], std::make_pair(std::string("Broken failed"), sentence));
  EXPECT_NE(logText.str().find("“Broken” failed at OrlaShortcut: " + sentence), std::string::npos) << logText.str();
}

TEST_F(DaemonTest, ConflictsAndMissingKeysAreReportedOnceAndTheRestWork) {
  keys->holdElsewhere(key("⌃⌥U"));
  keys->removeKey(key("F13").keyCode);
  write("a.json", "Taken", "ctrl+alt+u", kNothing);
  write("b.json", "Missing", "f13", kNothing);
  write("c.json", "Fine", "ctrl+alt+f", kNothing);
  daemon->reload();
  daemon->reload();  // nothing new: nothing said again
  EXPECT_EQ(keys->held(), std::set<Hotkey>{key("⌃⌥F")});
  const std::string text = logText.str();
  const std::string taken =
      "⌃⌥U is held by another program, so “Taken” has no hotkey; choose another combination or free it there.";
  EXPECT_NE(text.find(taken), std::string::npos) << text;
  EXPECT_EQ(text.find(taken), text.rfind(taken)) << "said twice: " << text;
  EXPECT_NE(text.find("The keyboard has no key for F13, so “Missing” has no hotkey."), std::string::npos) << text;
}

TEST_F(DaemonTest, PauseReleasesEveryHotkeyButTheOneThatResumes) {
  write("a.json", "Greet", "ctrl+alt+u", kNothing);
  write("p.json", "Pause", "ctrl+alt+p", kPauseToggle);
  daemon->reload();
  ASSERT_TRUE(press("⌃⌥P"));
  EXPECT_TRUE(daemon->paused());
  EXPECT_EQ(keys->held(), std::set<Hotkey>{key("⌃⌥P")});
  EXPECT_FALSE(press("⌃⌥U"));
  ASSERT_TRUE(press("⌃⌥P"));
  EXPECT_FALSE(daemon->paused());
  EXPECT_TRUE(press("⌃⌥U"));
  EXPECT_EQ(runs(), (std::vector<std::string>{"Pause", "Pause", "Greet"}));
}

TEST_F(DaemonTest, CarriesOutTheHostRequests) {
  write("a.json", "Greet", "ctrl+alt+u", kNothing);
  write("e.json", "Edit", "ctrl+alt+e", R"({"kind": "OrlaShortcut", "data": {"subAction": "openEditor"}})");
  write("f.json", "Folder", "ctrl+alt+f", R"({"kind": "OrlaShortcut", "data": {"subAction": "openPreferences"}})");
  write("r.json", "Report", "ctrl+alt+r", R"({"kind": "OrlaShortcut", "data": {"subAction": "showReport"}})");
  write("l.json", "Again", "ctrl+alt+l", R"({"kind": "OrlaShortcut", "data": {"subAction": "lastAction"}})");
  write("n.json", "ByName", "ctrl+alt+n",
        R"({"kind": "OrlaShortcut", "data": {"subAction": "runByName", "shortcutName": "Greet"}})");
  daemon->reload();
  for (const char* hotkey : {"⌃⌥U", "⌃⌥E", "⌃⌥F", "⌃⌥R", "⌃⌥L", "⌃⌥N"}) ASSERT_TRUE(press(hotkey)) << hotkey;
  daemon->waitUntilIdle();
  // "Again" repeated the run before it, the report; "ByName" ran Greet inside its own run.
  EXPECT_EQ(runs(), (std::vector<std::string>{"Greet", "Edit", "Folder", "Report", "Again", "Report", "ByName"}));
  std::lock_guard lock(desktopLog->mutex);
  EXPECT_EQ(desktopLog->opened, (std::vector<std::string>{"editor e.json", "folder " + folder.path().filename().string()}));
  ASSERT_EQ(desktopLog->notices.size(), 2u);
  EXPECT_EQ(desktopLog->notices[0].first, "orla: recent runs");
  EXPECT_NE(desktopLog->notices[0].second.find("Folder (⌃⌥F): done"), std::string::npos) << desktopLog->notices[0].second;
  EXPECT_NE(desktopLog->notices[1].second.find("Again (⌃⌥L): done"), std::string::npos) << desktopLog->notices[1].second;
}

TEST_F(DaemonTest, AShortcutThatRunsItselfStopsAtTheNestingLimit) {
  write("a.json", "Forever", "ctrl+alt+f",
        R"({"kind": "OrlaShortcut", "data": {"subAction": "runByName", "shortcutName": "Forever"}})");
  daemon->reload();
  ASSERT_TRUE(press("⌃⌥F"));
  EXPECT_EQ(runs(), std::vector<std::string>{"Forever"});
  // The daemon is still there for the next press.
  EXPECT_TRUE(press("⌃⌥F"));
}

TEST_F(DaemonTest, ASecondPressWhileRunningIsIgnoredAndLogged) {
  // The run fails, and its notice is held up: the run is not over until
  // the notice is shown.
  write("a.json", "Broken", "ctrl+alt+b", kFailing);
  daemon->reload();
  {
    std::lock_guard lock(desktopLog->mutex);
    desktopLog->holdNotices = true;
  }
  ASSERT_TRUE(keys->press(key("⌃⌥B")));
  daemon->step(milliseconds(0));
  for (;;) {  // until the run has reached its notice
    std::lock_guard lock(desktopLog->mutex);
    if (!desktopLog->notices.empty()) break;
  }
  ASSERT_TRUE(keys->press(key("⌃⌥B")));
  daemon->step(milliseconds(0));
  {
    std::lock_guard lock(desktopLog->mutex);
    desktopLog->holdNotices = false;
  }
  desktopLog->released.notify_all();
  daemon->waitUntilIdle();
  EXPECT_EQ(runs().size(), 1u);
  EXPECT_NE(logText.str().find("“Broken” is still running; ⌃⌥B is ignored until it ends"), std::string::npos)
      << logText.str();
  // Once it is over, the next press runs it again.
  EXPECT_TRUE(press("⌃⌥B"));
  EXPECT_EQ(runs().size(), 2u);
}

TEST_F(DaemonTest, AQuitRequestEndsTheLoop) {
  write("q.json", "Quit", "ctrl+alt+q", R"({"kind": "OrlaShortcut", "data": {"subAction": "quit"}})");
  daemon->reload();
  ASSERT_TRUE(keys->press(key("⌃⌥Q")));
  daemon->step(milliseconds(0));
  daemon->waitUntilIdle();
  EXPECT_FALSE(daemon->step(milliseconds(0)));
}

}  // namespace
}  // namespace orla::cli
