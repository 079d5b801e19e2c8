// A small synchronous client of the sound server (PulseAudio, or PipeWire
// through pipewire-pulse): libpulse loaded on first use, and one connection
// on a private main loop that is driven by hand, so that every wait ends by a
// deadline.
#pragma once

#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>
#include <pulse/stream.h>
#include <pulse/volume.h>

#include <chrono>

namespace orla::linux_desktop {

using PulseClock = std::chrono::steady_clock;

struct LibPulse {
  decltype(&pa_mainloop_new) mainloopNew = nullptr;
  decltype(&pa_mainloop_free) mainloopFree = nullptr;
  decltype(&pa_mainloop_get_api) mainloopApi = nullptr;
  decltype(&pa_mainloop_prepare) prepare = nullptr;
  decltype(&pa_mainloop_poll) poll = nullptr;
  decltype(&pa_mainloop_dispatch) dispatch = nullptr;
  decltype(&pa_mainloop_wakeup) wakeup = nullptr;
  decltype(&pa_context_new) contextNew = nullptr;
  decltype(&pa_context_connect) connect = nullptr;
  decltype(&pa_context_disconnect) disconnect = nullptr;
  decltype(&pa_context_unref) contextUnref = nullptr;
  decltype(&pa_context_get_state) state = nullptr;
  decltype(&pa_context_get_sink_info_by_name) sinkInfo = nullptr;
  decltype(&pa_context_set_sink_volume_by_name) setVolume = nullptr;
  decltype(&pa_context_set_sink_mute_by_name) setMute = nullptr;
  decltype(&pa_operation_get_state) operationState = nullptr;
  decltype(&pa_operation_unref) operationUnref = nullptr;
  decltype(&pa_cvolume_max) volumeMax = nullptr;
  decltype(&pa_cvolume_scale) volumeScale = nullptr;
  decltype(&pa_stream_new) streamNew = nullptr;
  decltype(&pa_stream_connect_playback) connectPlayback = nullptr;
  decltype(&pa_stream_get_state) streamState = nullptr;
  decltype(&pa_stream_writable_size) writableSize = nullptr;
  decltype(&pa_stream_write) write = nullptr;
  decltype(&pa_stream_drain) drain = nullptr;
  decltype(&pa_stream_disconnect) streamDisconnect = nullptr;
  decltype(&pa_stream_unref) streamUnref = nullptr;
};

// The library, or null when it is not installed.
const LibPulse* libPulse();

// One short conversation with the server on a private main loop, driven by
// hand so that every wait ends by the deadline.
class PulseSession {
 public:
  PulseSession(const LibPulse& lib, PulseClock::time_point deadline) : lib_(lib), deadline_(deadline) {
    loop_ = lib_.mainloopNew();
    context_ = lib_.contextNew(lib_.mainloopApi(loop_), "Orla");
    if (!context_ || lib_.connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return;
    ready_ = runUntil([this] {
      const pa_context_state_t state = lib_.state(context_);
      return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
    }) && lib_.state(context_) == PA_CONTEXT_READY;
  }
  ~PulseSession() {
    if (context_) {
      lib_.disconnect(context_);
      lib_.contextUnref(context_);
    }
    lib_.mainloopFree(loop_);
  }
  PulseSession(const PulseSession&) = delete;
  PulseSession& operator=(const PulseSession&) = delete;

  bool ready() const { return ready_; }
  pa_context* context() const { return context_; }

  pa_mainloop* loop() const { return loop_; }
  PulseClock::time_point deadline() const { return deadline_; }
  void extendDeadline(PulseClock::time_point deadline) { deadline_ = deadline; }

  // Waits for an operation to end; false when it did not by the deadline
  // or the connection broke.
  bool finish(pa_operation* operation) {
    if (!operation) return false;
    const bool done = runUntil([&] { return lib_.operationState(operation) != PA_OPERATION_RUNNING; });
    const bool ok = done && lib_.operationState(operation) == PA_OPERATION_DONE;
    lib_.operationUnref(operation);
    return ok;
  }

  // Runs the loop until `done` holds; false when the deadline passed or
  // the connection broke first.
  template <class Done>
  bool runUntil(Done done) {
    while (!done()) {
      const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - PulseClock::now());
      if (left.count() <= 0) return false;
      if (lib_.prepare(loop_, static_cast<int>(left.count())) < 0 || lib_.poll(loop_) < 0 ||
          lib_.dispatch(loop_) < 0)
        return false;
      if (!PA_CONTEXT_IS_GOOD(lib_.state(context_))) return done();
    }
    return true;
  }

 private:
  const LibPulse& lib_;
  PulseClock::time_point deadline_;
  pa_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  bool ready_ = false;
};

}  // namespace orla::linux_desktop
