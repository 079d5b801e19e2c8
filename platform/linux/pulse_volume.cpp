#include "platform/linux/pulse_volume.h"

#include <cmath>
#include <optional>
#include <string>

#include "platform/linux/pulse_client.h"

namespace orla::linux_desktop {

namespace {

// The special name the server resolves to its default output.
constexpr const char* kDefaultSink = "@DEFAULT_SINK@";

constexpr const char* kNoLibrary =
    "Changing the volume needs the PulseAudio client library (libpulse0), which is not installed.";
constexpr const char* kNoServer =
    "The sound server did not answer, so the volume was not changed. Start PulseAudio or PipeWire, then click "
    "Test again.";
constexpr const char* kNoSink = "The sound server has no output to change the volume of.";

struct SinkState {
  std::optional<pa_cvolume> volume;
  bool muted = false;
};

class PulseVolumeControl : public OutputVolumeControl {
 public:
  explicit PulseVolumeControl(std::chrono::milliseconds deadline) : deadline_(deadline) {}

  Checked<OutputVolume> read() override {
    const LibPulse* lib = libPulse();
    if (!lib) return fail(kNoLibrary);
    PulseSession session(*lib, PulseClock::now() + deadline_);
    if (!session.ready()) return fail(kNoServer);
    auto sink = readSink(*lib, session);
    if (!sink) return fail(sink.error());
    const pa_volume_t level = lib->volumeMax(&*sink->volume);
    return OutputVolume{static_cast<int>(std::lround(100.0 * level / PA_VOLUME_NORM)), sink->muted};
  }

  Checked<void> setPercent(int percent) override {
    const LibPulse* lib = libPulse();
    if (!lib) return fail(kNoLibrary);
    PulseSession session(*lib, PulseClock::now() + deadline_);
    if (!session.ready()) return fail(kNoServer);
    auto sink = readSink(*lib, session);
    if (!sink) return fail(sink.error());
    pa_cvolume volume = *sink->volume;
    const auto level = static_cast<pa_volume_t>(std::lround(PA_VOLUME_NORM * (percent < 0 ? 0 : percent) / 100.0));
    lib->volumeScale(&volume, level);
    if (!session.finish(lib->setVolume(session.context(), kDefaultSink, &volume, nullptr, nullptr)))
      return fail(kNoServer);
    return {};
  }

  Checked<void> setMuted(bool muted) override {
    const LibPulse* lib = libPulse();
    if (!lib) return fail(kNoLibrary);
    PulseSession session(*lib, PulseClock::now() + deadline_);
    if (!session.ready()) return fail(kNoServer);
    if (!session.finish(lib->setMute(session.context(), kDefaultSink, muted ? 1 : 0, nullptr, nullptr)))
      return fail(kNoServer);
    return {};
  }

 private:
  static Checked<SinkState> readSink(const LibPulse& lib, PulseSession& session) {
    SinkState sink;
    auto onInfo = [](pa_context*, const pa_sink_info* info, int eol, void* userdata) {
      if (eol || !info) return;
      auto* state = static_cast<SinkState*>(userdata);
      state->volume = info->volume;
      state->muted = info->mute != 0;
    };
    // An unknown sink ends the operation with an error, not a failure to
    // answer: the server is there, the output is not.
    pa_operation* operation = lib.sinkInfo(session.context(), kDefaultSink, onInfo, &sink);
    if (!session.finish(operation) && !sink.volume) return fail(kNoServer);
    if (!sink.volume) return fail(kNoSink);
    return sink;
  }

  std::chrono::milliseconds deadline_;
};

}  // namespace

std::unique_ptr<OutputVolumeControl> makePulseVolumeControl(std::chrono::milliseconds deadline) {
  return std::make_unique<PulseVolumeControl>(deadline);
}

}  // namespace orla::linux_desktop
