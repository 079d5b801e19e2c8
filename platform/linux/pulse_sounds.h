// Sounds on Linux: named system sounds from the freedesktop sound theme and
// sound files (whatever libsndfile decodes: WAV, AIFF, FLAC, Ogg Vorbis and
// Opus, MP3), decoded when loaded and played on the sound server's default
// output from a background thread. Both libraries load on first use.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/platform/sound.h>

namespace orla::linux_desktop {

std::unique_ptr<Sounds> makePulseSounds();

// The theme's event name for a system sound name: the macOS names of saved
// actions map to the closest freedesktop event ("Glass" to "complete"); any
// other name is taken as an event name itself.
std::string soundThemeEventName(std::string_view name);

// The file of a theme event in the installed sound themes, if any.
std::optional<std::string> soundThemeFile(std::string_view eventName);

// Called on the playing thread when a sound's first samples have been
// handed to the sound server (benchmarks measure start latency with it).
void setFirstBufferObserver(std::function<void()> observer);

// Waits until every sound this process started has ended, at most
// `timeout`; a short-lived host calls it before it exits (it is also called
// at exit, with ten seconds).
void waitForSounds(std::chrono::milliseconds timeout);

}  // namespace orla::linux_desktop
