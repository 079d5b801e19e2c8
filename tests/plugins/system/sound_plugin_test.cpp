// The sound plugin on the simulated desktop: the volume scripts as the
// system receives them, system sounds by name and sound files by path.
#include "plugins/system/sound_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::SimTest;

// The scripts line for line, as saved actions have always run them.
const std::string kUp =
    "set curVolume to output volume of (get volume settings)\n"
    "if curVolume < 90 then\n"
    "    set newVolume to curVolume + 10\n"
    "else\n"
    "    set newVolume to 100\n"
    "end if\n"
    "set volume output volume newVolume";
const std::string kDown =
    "set curVolume to output volume of (get volume settings)\n"
    "if curVolume > 10 then\n"
    "    set newVolume to curVolume - 10\n"
    "else\n"
    "    set newVolume to 1\n"
    "end if\n"
    "set volume output volume newVolume";
const std::string kMute =
    "set isMuted to output muted of (get volume settings)\n"
    "set newMuted to not isMuted\n"
    "set volume output muted newMuted";
const std::string kFull = "set volume output volume 100";

class SoundTest : public SimTest {
 protected:
  SoundTest() : plugin(platform) {
    home = fs::temp_directory_path() / ("orla-sound-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(home / "Sounds");
    desktop->setEnvironment({{"HOME", home.string()}});
    for (const std::string& s : {kUp, kDown, kMute, kFull}) desktop->setScriptAnswer(s, {});
  }
  ~SoundTest() override { fs::remove_all(home); }

  SoundPlugin plugin;
  fs::path home;
};

TEST_F(SoundTest, VolumeCommandsRunTheirScripts) {
  struct Case {
    ActionData data;
    std::string script;
    std::string message;
  };
  const Case cases[] = {
      {{{"subAction", "soundUp"}}, kUp, "Volume increased."},
      {{{"actionType", 10}}, kUp, "Volume increased."},
      {{{"subAction", "volumeDown"}, {"actionType", 10}}, kDown, "Volume decreased."},
      {{{"Action", 11}}, kDown, "Volume decreased."},
      {{{"subAction", "toggleMute"}}, kMute, "Mute toggled."},
      {{{"subAction", "soundMute"}}, kMute, "Mute toggled."},
      {{{"actionType", 14}}, kFull, "Volume set to full."},
      {{{"subAction", "volumeFull"}}, kFull, "Volume set to full."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), std::nullopt) << c.message;
    EXPECT_EQ(plugin.execute(c.data), PluginResult::success(c.message)) << c.message;
    EXPECT_EQ(desktop->givenScripts().back(), c.script) << c.message;
  }
}

TEST_F(SoundTest, UnusedNumbersAreUnknownAndEachNumberHasItsName) {
  for (std::int64_t number : {2, 5, 9, 13, 15, -1}) {
    const ActionData data{{"actionType", number}};
    EXPECT_EQ(plugin.validate(data), "Unknown sound command. Choose one from the menu.") << number;
    EXPECT_EQ(plugin.execute(data), PluginResult::failure("Unknown sound command. Choose one from the menu."));
  }
  EXPECT_TRUE(desktop->givenScripts().empty());
  const std::pair<std::int64_t, std::string_view> names[] = {
      {1, "play"}, {10, "volumeUp"}, {11, "volumeDown"}, {12, "mute"}, {13, "play"}, {14, "fullVolume"}, {99, "play"}};
  for (const auto& [number, name] : names) EXPECT_EQ(SoundPlugin::subAction(number), name) << number;
}

TEST_F(SoundTest, VolumeScriptFailuresSayWhy) {
  struct Case {
    sim::SimScriptAnswer answer;
    std::string expected;
  };
  const Case cases[] = {
      {{true, std::nullopt, ScriptError{"No output device.", "brief", -1}}, "No output device."},
      {{true, std::nullopt, ScriptError{std::nullopt, "Brief reason.", -1}}, "Brief reason."},
      {{true, std::nullopt, ScriptError{std::nullopt, std::nullopt, -1}}, "Could not change system volume."},
      {{false, std::nullopt, std::nullopt}, "Could not run volume command."},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer(kMute, c.answer);
    EXPECT_EQ(plugin.execute({{"subAction", "mute"}}), PluginResult::failure(c.expected));
  }
}

TEST_F(SoundTest, PlaysANamedSoundOrAFile) {
  std::ofstream(home / "Sounds" / "x.aiff", std::ios::binary) << std::string("FORM\0\0\0\x20" "AIFFCOMM", 16);
  std::ofstream(home / "notes.txt") << "not a sound";
  const std::string aiff = (home / "Sounds" / "x.aiff").string();
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> problem;
    PluginResult result;
    std::string played;  // the trace, empty for none
  };
  const Case cases[] = {
      {"by name", {{"soundName", " Glass "}}, std::nullopt, PluginResult::success("Played system sound “Glass”."),
       "play system sound “Glass”"},
      {"name wins over path", {{"name", "ping"}, {"soundPath", "~/Sounds/x.aiff"}}, std::nullopt,
       PluginResult::success("Played system sound “ping”."), "play system sound “Ping”"},
      {"unknown name passes validation", {{"SoundName", "Zap"}}, std::nullopt,
       PluginResult::failure("System sound not found: Zap"), ""},
      {"file under home", {{"subAction", "playFile"}, {"Path", "~/Sounds/x.aiff"}}, std::nullopt,
       PluginResult::success("Played sound file."), "play file " + aiff},
      {"not a sound", {{"path", "~/notes.txt"}}, std::nullopt,
       PluginResult::failure("Cannot load sound: " + (home / "notes.txt").string()), ""},
      {"nothing", {{"soundName", "  "}}, "Choose a system sound or sound file to play.",
       PluginResult::failure("Choose a system sound or sound file to play."), ""},
      {"missing file", {{"soundPath", "~/gone.wav"}},
       "The sound file “" + (home / "gone.wav").string() + "” can't be found. Choose it again with Browse…",
       PluginResult::failure("The sound file “" + (home / "gone.wav").string() +
                             "” can't be found. Choose it again with Browse…"),
       ""},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    EXPECT_EQ(plugin.validate(c.data), c.problem) << c.name;
    EXPECT_EQ(plugin.execute(c.data), c.result) << c.name;
    const auto sounds = desktop->trace("sound");
    if (c.played.empty()) {
      EXPECT_TRUE(sounds.empty()) << c.name;
    } else {
      ASSERT_EQ(sounds.size(), 1u) << c.name;
      EXPECT_EQ(sounds[0].text, c.played) << c.name;
    }
  }
}

// The volume commands on the native desktop go to its sound server; they
// are tested against a real one with the other session services.
TEST(SoundNative, ADesktopWithoutAppleScriptChangesTheVolumeThroughItsSoundServer) {
  auto platform = makeNativePlatform();
  EXPECT_FALSE(platform->supports(Capability::appleScript));
  EXPECT_TRUE(platform->supports(Capability::outputVolume));
}

}  // namespace
}  // namespace orla
