// The volume commands on the Linux desktop, against the PulseAudio server of
// the headless desktop: each step is read back with pactl, the tool a user
// would check it with.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

#include "platform/linux/pulse_volume.h"
#include <orla/platform/platform.h>
#include "plugins/system/sound_plugin.h"
#include "tests/support/command_output.h"

namespace orla {
namespace {

using testing::outputOf;

int sinkPercent() {
  const std::string out = outputOf("pactl get-sink-volume @DEFAULT_SINK@");
  std::smatch match;
  if (!std::regex_search(out, match, std::regex(R"(/\s*(\d+)%)"))) return -1;
  return std::stoi(match[1]);
}

bool sinkMuted() { return outputOf("pactl get-sink-mute @DEFAULT_SINK@").find("yes") != std::string::npos; }

void setSink(int percent, bool muted) {
  ASSERT_EQ(std::system(("pactl set-sink-volume @DEFAULT_SINK@ " + std::to_string(percent) + "%").c_str()), 0);
  ASSERT_EQ(std::system(muted ? "pactl set-sink-mute @DEFAULT_SINK@ 1" : "pactl set-sink-mute @DEFAULT_SINK@ 0"), 0);
}

class PulseVolumeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("ORLA_HARNESS_SINK")) GTEST_SKIP() << "no sound server: the headless desktop's PulseAudio is not running";
  }
};

TEST_F(PulseVolumeTest, EachCommandMovesTheDefaultOutputAsPactlShows) {
  SoundPlugin plugin(makeNativePlatform());
  struct Case {
    const char* subAction;
    int before;
    bool mutedBefore;
    int after;
    bool mutedAfter;
    const char* message;
  };
  const Case cases[] = {
      {"volumeUp", 50, false, 60, false, "Volume increased."},
      {"soundUp", 95, false, 100, false, "Volume increased."},
      {"volumeUp", 100, false, 100, false, "Volume increased."},
      {"volumeDown", 50, false, 40, false, "Volume decreased."},
      {"volumeDown", 5, false, 1, false, "Volume decreased."},
      {"mute", 30, false, 30, true, "Mute toggled."},
      {"toggleMute", 30, true, 30, false, "Mute toggled."},
      {"fullVolume", 20, true, 100, true, "Volume set to full."},
  };
  for (const Case& c : cases) {
    setSink(c.before, c.mutedBefore);
    EXPECT_EQ(plugin.execute({{"subAction", c.subAction}}), PluginResult::success(c.message)) << c.subAction;
    EXPECT_EQ(sinkPercent(), c.after) << c.subAction << " from " << c.before;
    EXPECT_EQ(sinkMuted(), c.mutedAfter) << c.subAction;
  }
  auto control = linux_desktop::makePulseVolumeControl();
  setSink(37, true);
  const auto read = control->read();
  ASSERT_TRUE(read) << read.error();
  EXPECT_EQ(read->percent, 37);
  EXPECT_TRUE(read->muted);
}

TEST_F(PulseVolumeTest, AServerThatIsNotThereIsASentenceWithinTheDeadline) {
  const std::string saved = std::getenv("PULSE_SERVER") ? std::getenv("PULSE_SERVER") : "";
  setenv("PULSE_SERVER", "unix:/nonexistent/orla-no-pulse", 1);
  auto control = linux_desktop::makePulseVolumeControl(std::chrono::milliseconds(500));
  const auto start = std::chrono::steady_clock::now();
  const auto read = control->read();
  const auto set = control->setMuted(true);
  const auto took = std::chrono::steady_clock::now() - start;
  if (saved.empty()) unsetenv("PULSE_SERVER");
  else setenv("PULSE_SERVER", saved.c_str(), 1);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error(),
            "The sound server did not answer, so the volume was not changed. Start PulseAudio or PipeWire, then "
            "click Test again.");
  EXPECT_FALSE(set);
  EXPECT_LT(took, std::chrono::seconds(2));
}

}  // namespace
}  // namespace orla
