#include "platform/linux/pulse_client.h"

#include "platform/linux/shared_library.h"

namespace orla::linux_desktop {

const LibPulse* libPulse() {
  static const LibPulse* loaded = []() -> const LibPulse* {
    void* handle = openSharedLibrary("libpulse.so.0");
    if (!handle) return nullptr;
    static LibPulse lib;
    const bool ok = bindSymbol(handle, lib.mainloopNew, "pa_mainloop_new") &&
                    bindSymbol(handle, lib.mainloopFree, "pa_mainloop_free") &&
                    bindSymbol(handle, lib.mainloopApi, "pa_mainloop_get_api") &&
                    bindSymbol(handle, lib.prepare, "pa_mainloop_prepare") &&
                    bindSymbol(handle, lib.poll, "pa_mainloop_poll") &&
                    bindSymbol(handle, lib.dispatch, "pa_mainloop_dispatch") &&
                    bindSymbol(handle, lib.wakeup, "pa_mainloop_wakeup") &&
                    bindSymbol(handle, lib.contextNew, "pa_context_new") &&
                    bindSymbol(handle, lib.connect, "pa_context_connect") &&
                    bindSymbol(handle, lib.disconnect, "pa_context_disconnect") &&
                    bindSymbol(handle, lib.contextUnref, "pa_context_unref") &&
                    bindSymbol(handle, lib.state, "pa_context_get_state") &&
                    bindSymbol(handle, lib.sinkInfo, "pa_context_get_sink_info_by_name") &&
                    bindSymbol(handle, lib.setVolume, "pa_context_set_sink_volume_by_name") &&
                    bindSymbol(handle, lib.setMute, "pa_context_set_sink_mute_by_name") &&
                    bindSymbol(handle, lib.operationState, "pa_operation_get_state") &&
                    bindSymbol(handle, lib.operationUnref, "pa_operation_unref") &&
                    bindSymbol(handle, lib.volumeMax, "pa_cvolume_max") &&
                    bindSymbol(handle, lib.volumeScale, "pa_cvolume_scale") &&
                    bindSymbol(handle, lib.streamNew, "pa_stream_new") &&
                    bindSymbol(handle, lib.connectPlayback, "pa_stream_connect_playback") &&
                    bindSymbol(handle, lib.streamState, "pa_stream_get_state") &&
                    bindSymbol(handle, lib.writableSize, "pa_stream_writable_size") &&
                    bindSymbol(handle, lib.write, "pa_stream_write") &&
                    bindSymbol(handle, lib.drain, "pa_stream_drain") &&
                    bindSymbol(handle, lib.streamDisconnect, "pa_stream_disconnect") &&
                    bindSymbol(handle, lib.streamUnref, "pa_stream_unref");
    return ok ? &lib : nullptr;
  }();
  return loaded;
}

}  // namespace orla::linux_desktop
