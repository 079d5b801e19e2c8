// Sounds on the Linux desktop, against the PulseAudio server of the headless
// desktop: a played sound shows up on the server as a stream of this process
// (read with pactl), theme names and files load or give their sentences.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "platform/linux/pulse_sounds.h"
#include <orla/platform/platform.h>
#include "plugins/system/sound_plugin.h"
#include "tests/support/command_output.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

using testing::outputOf;

// Whether the server shows a stream of ours within two seconds.
bool serverPlaysOurStream() {
  for (int i = 0; i < 40; ++i) {
    if (outputOf("pactl list sink-inputs").find("Orla sound") != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

// A mono 16-bit WAV of `frames` frames of a tone; `claimedFrames` is what
// its header announces (more than written: a truncated file).
void writeWav(const std::filesystem::path& path, std::uint32_t frames, std::uint32_t claimedFrames) {
  std::ofstream out(path, std::ios::binary);
  auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out << "RIFF";
  u32(36 + claimedFrames * 2);
  out << "WAVEfmt ";
  u32(16), u16(1), u16(1), u32(44100), u32(88200), u16(2), u16(16);
  out << "data";
  u32(claimedFrames * 2);
  for (std::uint32_t i = 0; i < frames; ++i) u16(static_cast<std::uint16_t>((i / 50) % 2 ? 8000 : -8000));
}

class PulseSoundsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("ORLA_HARNESS_SINK")) GTEST_SKIP() << "no sound server: the headless desktop's PulseAudio is not running";
  }
  void TearDown() override { linux_desktop::waitForSounds(std::chrono::seconds(5)); }
  testing::TempFolder folder{"orla-sounds"};
  SoundPlugin plugin{makeNativePlatform()};
};

TEST_F(PulseSoundsTest, MacSoundNamesMapToTheFreedesktopTheme) {
  const std::pair<const char*, const char*> names[] = {
      {"Basso", "dialog-error"}, {"glass", "complete"}, {"Ping", "bell"}, {"Sosumi", "dialog-information"},
      {"Funk", "dialog-warning"}, {"Pop", "audio-volume-change"}, {"bell", "bell"}, {"Klingon", "Klingon"}};
  for (auto [name, event] : names) EXPECT_EQ(linux_desktop::soundThemeEventName(name), event) << name;
  if (!linux_desktop::soundThemeFile("complete")) GTEST_SKIP() << "the freedesktop sound theme is not installed";
  EXPECT_EQ(linux_desktop::soundThemeFile("../etc/passwd"), std::nullopt);
  EXPECT_EQ(plugin.execute({{"soundName", "Glass"}}), PluginResult::success("Played system sound “Glass”."));
  EXPECT_TRUE(serverPlaysOurStream());
  EXPECT_EQ(plugin.execute({{"soundName", "Klingon"}}), PluginResult::failure("System sound not found: Klingon"));
}

TEST_F(PulseSoundsTest, FilesPlayOrSayWhyNot) {
  const auto good = folder.path() / "tone.wav";
  const auto truncated = folder.path() / "cut.wav";
  const auto text = folder.path() / "notes.wav";
  writeWav(good, 22050, 22050);
  writeWav(truncated, 2000, 44100);
  std::ofstream(text) << "this is not a sound";
  EXPECT_EQ(plugin.execute({{"soundPath", good.string()}}), PluginResult::success("Played sound file."));
  EXPECT_TRUE(serverPlaysOurStream());
  for (const auto& bad : {truncated, text})
    EXPECT_EQ(plugin.execute({{"soundPath", bad.string()}}), PluginResult::failure("Cannot load sound: " + bad.string()));
}

TEST_F(PulseSoundsTest, WithoutAServerNothingIsPlayedAndASentenceSaysSo) {
  const auto good = folder.path() / "tone.wav";
  writeWav(good, 4410, 4410);
  const std::string saved = std::getenv("PULSE_SERVER") ? std::getenv("PULSE_SERVER") : "";
  setenv("PULSE_SERVER", "unix:/nonexistent/orla-no-pulse", 1);
  const PluginResult result = plugin.execute({{"soundPath", good.string()}});
  if (saved.empty()) unsetenv("PULSE_SERVER");
  else setenv("PULSE_SERVER", saved.c_str(), 1);
  EXPECT_EQ(result, PluginResult::failure("The sound server did not answer, so nothing was played. Start PulseAudio "
                                          "or PipeWire, then click Test again."));
}

}  // namespace
}  // namespace orla
