// The Linux desktop's session services as a user meets them: reading one
// API key from the keyring once it has been read before, the time from a
// sound action's `execute` to its first samples reaching the sound server,
// the same for a speech, and one volume step. Run on the headless desktop:
//   eval "$(scripts/desktop-harness start)"; build/release/bench/orla_session_bench
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "platform/linux/espeak_speech.h"
#include "platform/linux/pulse_sounds.h"
#include "platform/linux/secret_service_keychain.h"
#include <orla/platform/platform.h>
#include "plugins/system/sound_plugin.h"
#include "plugins/system/speech_plugin.h"

namespace {

using namespace orla;

void BM_KeyringReadAfterTheFirst(benchmark::State& state) {
  if (!std::getenv("ORLA_HARNESS_KEYRING_PASSWORD")) {
    state.SkipWithError("no keyring: start the headless desktop first");
    return;
  }
  auto keychain = linux_desktop::makeSecretServiceKeychain();
  (void)keychain->deletePassword("orla.bench", "ai-action-openai-api-key");
  (void)keychain->addPassword("orla.bench", "ai-action-openai-api-key", "sk-bench-0123456789");
  (void)keychain->copyPassword("orla.bench", "ai-action-openai-api-key");  // the first read
  for (auto _ : state) {
    auto found = keychain->copyPassword("orla.bench", "ai-action-openai-api-key");
    if (found.status != KeychainStatus::success) state.SkipWithError("the keyring did not answer");
    benchmark::DoNotOptimize(found);
  }
  (void)keychain->deletePassword("orla.bench", "ai-action-openai-api-key");
}
BENCHMARK(BM_KeyringReadAfterTheFirst)->Unit(benchmark::kMillisecond);

// A 0.1 s mono tone, written once.
std::string toneFile() {
  const auto path = std::filesystem::temp_directory_path() / "orla-bench-tone.wav";
  std::ofstream out(path, std::ios::binary);
  auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  const std::uint32_t frames = 4410;
  out << "RIFF";
  u32(36 + frames * 2);
  out << "WAVEfmt ";
  u32(16), u16(1), u16(1), u32(44100), u32(88200), u16(2), u16(16);
  out << "data";
  u32(frames * 2);
  for (std::uint32_t i = 0; i < frames; ++i) u16(static_cast<std::uint16_t>((i / 50) % 2 ? 8000 : -8000));
  return path.string();
}

template <bool named>
void BM_SoundStart(benchmark::State& state) {
  if (!std::getenv("ORLA_HARNESS_SINK")) {
    state.SkipWithError("no sound server: start the headless desktop first");
    return;
  }
  SoundPlugin plugin(makeNativePlatform());
  const ActionData action = named ? ActionData{{"soundName", "Pop"}} : ActionData{{"soundPath", toneFile()}};
  std::mutex mutex;
  std::condition_variable firstBuffer;
  bool started = false;
  linux_desktop::setFirstBufferObserver([&] {
    std::lock_guard lock(mutex);
    started = true;
    firstBuffer.notify_all();
  });
  for (auto _ : state) {
    started = false;
    const auto begin = std::chrono::steady_clock::now();
    if (plugin.execute(action).isFailure()) state.SkipWithError("the sound did not play");
    std::unique_lock lock(mutex);
    firstBuffer.wait_for(lock, std::chrono::seconds(5), [&] { return started; });
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    lock.unlock();
    linux_desktop::waitForSounds(std::chrono::seconds(5));
  }
  linux_desktop::setFirstBufferObserver(nullptr);
}
BENCHMARK(BM_SoundStart<false>)->Name("BM_SoundStartLatency/file")->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(BM_SoundStart<true>)->Name("BM_SoundStartLatency/theme")->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

// From `execute` of a speech that does not wait to its first samples
// reaching the sound server: the engine is set up by a first speech before
// the clock runs, as it is once per process.
void BM_SpeechStartLatency(benchmark::State& state) {
  if (!std::getenv("ORLA_HARNESS_SINK")) {
    state.SkipWithError("no sound server: start the headless desktop first");
    return;
  }
  auto platform = makeNativePlatform();
  SpeechPlugin plugin(platform);
  const ActionData speak{{"text", "Speech starts here, and goes on for a while."}, {"wait", false}};
  std::mutex mutex;
  std::condition_variable firstBuffer;
  bool started = false;
  linux_desktop::setFirstSpeechBufferObserver([&] {
    std::lock_guard lock(mutex);
    started = true;
    firstBuffer.notify_all();
  });
  if (plugin.execute(speak).isFailure()) state.SkipWithError("the speech did not start");
  platform->speech().stop();
  for (auto _ : state) {
    started = false;
    const auto begin = std::chrono::steady_clock::now();
    if (plugin.execute(speak).isFailure()) state.SkipWithError("the speech did not start");
    std::unique_lock lock(mutex);
    firstBuffer.wait_for(lock, std::chrono::seconds(5), [&] { return started; });
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    lock.unlock();
    platform->speech().stop();
  }
  linux_desktop::setFirstSpeechBufferObserver(nullptr);
  SpeechPlugin::resetSpeaker();
}
BENCHMARK(BM_SpeechStartLatency)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

void BM_VolumeStep(benchmark::State& state) {
  if (!std::getenv("ORLA_HARNESS_SINK")) {
    state.SkipWithError("no sound server: start the headless desktop first");
    return;
  }
  SoundPlugin plugin(makeNativePlatform());
  bool up = true;
  for (auto _ : state) {
    benchmark::DoNotOptimize(plugin.execute({{"subAction", up ? "volumeUp" : "volumeDown"}}));
    up = !up;
  }
}
BENCHMARK(BM_VolumeStep)->Unit(benchmark::kMillisecond);

}  // namespace
