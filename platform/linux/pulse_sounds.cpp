#include "platform/linux/pulse_sounds.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/pulse_client.h"
#include "platform/linux/shared_library.h"

namespace orla::linux_desktop {

namespace {

struct LibSndfile {
  decltype(&sf_open) open = nullptr;
  decltype(&sf_readf_short) readFrames = nullptr;
  decltype(&sf_close) close = nullptr;
  decltype(&sf_command) command = nullptr;
};

const LibSndfile* libSndfile() {
  static const LibSndfile* loaded = []() -> const LibSndfile* {
    void* handle = openSharedLibrary("libsndfile.so.1");
    if (!handle) return nullptr;
    static LibSndfile lib;
    const bool ok = bindSymbol(handle, lib.open, "sf_open") && bindSymbol(handle, lib.readFrames, "sf_readf_short") &&
                    bindSymbol(handle, lib.close, "sf_close") && bindSymbol(handle, lib.command, "sf_command");
    return ok ? &lib : nullptr;
  }();
  return loaded;
}

// The macOS alert sounds that saved actions name, each with the closest
// event of the freedesktop sound theme (by character: a low error thud, a
// bright chime, a soft pop, ...).
struct ThemeName {
  const char* macName;
  const char* eventName;
};
constexpr ThemeName kThemeNames[] = {
    {"Basso", "dialog-error"},          {"Blow", "message-new-instant"}, {"Bottle", "message"},
    {"Frog", "window-question"},        {"Funk", "dialog-warning"},      {"Glass", "complete"},
    {"Hero", "service-login"},          {"Morse", "phone-outgoing-busy"}, {"Ping", "bell"},
    {"Pop", "audio-volume-change"},     {"Purr", "window-attention"},    {"Sosumi", "dialog-information"},
    {"Submarine", "device-added"},      {"Tink", "audio-volume-change"},
};

// Longer sounds than this are not decoded into memory.
constexpr sf_count_t kMaxFrames = 48000 * 60 * 10;

std::mutex& activeMutex() {
  static std::mutex mutex;
  return mutex;
}
std::condition_variable& activeChanged() {
  static std::condition_variable changed;
  return changed;
}
int& activeCount() {
  static int count = 0;
  return count;
}
std::function<void()>& firstBufferObserver() {
  static std::function<void()> observer;
  return observer;
}

struct Samples {
  std::vector<short> data;  // interleaved, native-endian 16-bit
  int channels = 0;
  int rate = 0;
};

// Whether the file's audio chunk ends before its header says: libsndfile
// then plays what is there and notes the size it expected in its log.
bool audioChunkCutShort(const LibSndfile& lib, SNDFILE* file) {
  std::string log(8192, '\0');
  lib.command(file, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
  std::size_t start = 0;
  while (start < log.size() && log[start]) {
    const std::size_t end = log.find('\n', start);
    const std::string_view line(log.data() + start, (end == std::string::npos ? log.size() : end) - start);
    if ((line.rfind("data", 0) == 0 || line.rfind("SSND", 0) == 0) && line.find("(should be") != std::string::npos)
      return true;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return false;
}

// The whole file decoded, or none when it is not a sound libsndfile knows
// or ends before its header says it does.
std::shared_ptr<Samples> decode(const std::string& path) {
  const LibSndfile* lib = libSndfile();
  if (!lib) return nullptr;
  SF_INFO info{};
  SNDFILE* file = lib->open(path.c_str(), SFM_READ, &info);
  if (!file) return nullptr;
  std::shared_ptr<Samples> samples;
  if (!audioChunkCutShort(*lib, file) && info.channels > 0 && info.channels <= 8 && info.samplerate > 0 && info.frames > 0 && info.frames <= kMaxFrames) {
    samples = std::make_shared<Samples>();
    samples->channels = info.channels;
    samples->rate = info.samplerate;
    samples->data.resize(static_cast<std::size_t>(info.frames) * info.channels);
    const sf_count_t read = lib->readFrames(file, samples->data.data(), info.frames);
    // A truncated file decodes fewer frames than announced: not loadable.
    if (read < info.frames * 9 / 10) samples.reset();
    else samples->data.resize(static_cast<std::size_t>(read) * info.channels);
  }
  lib->close(file);
  return samples;
}

// Plays on a connection of its own; ends when the sound has drained, when
// the server goes away, or by a deadline of the sound's length plus five
// seconds, whichever is first.
void playToEnd(const LibPulse* lib, PulseSession& session, const std::shared_ptr<Samples>& samples) {
  const auto length = std::chrono::milliseconds(1000LL * samples->data.size() / samples->channels / samples->rate);
  session.extendDeadline(PulseClock::now() + length + std::chrono::seconds(5));
  const pa_sample_spec format{PA_SAMPLE_S16NE, static_cast<uint32_t>(samples->rate),
                            static_cast<uint8_t>(samples->channels)};
  pa_stream* stream = lib->streamNew(session.context(), "Orla sound", &format, nullptr);
  if (!stream) return;
  if (lib->connectPlayback(stream, nullptr, nullptr, PA_STREAM_NOFLAGS, nullptr, nullptr) == 0 &&
      session.runUntil([&] { return lib->streamState(stream) != PA_STREAM_CREATING; }) &&
      lib->streamState(stream) == PA_STREAM_READY) {
    const auto* bytes = reinterpret_cast<const char*>(samples->data.data());
    const std::size_t total = samples->data.size() * sizeof(short);
    std::size_t written = 0;
    bool first = true;
    while (written < total) {
      if (!session.runUntil([&] {
            return lib->streamState(stream) != PA_STREAM_READY || lib->writableSize(stream) > 0;
          }) ||
          lib->streamState(stream) != PA_STREAM_READY)
        break;
      const std::size_t chunk = std::min(total - written, lib->writableSize(stream));
      if (lib->write(stream, bytes + written, chunk, nullptr, 0, PA_SEEK_RELATIVE) < 0) break;
      written += chunk;
      if (first) {
        first = false;
        std::function<void()> observer;
        {
          std::lock_guard lock(activeMutex());
          observer = firstBufferObserver();
        }
        if (observer) observer();
      }
    }
    if (written == total) session.finish(lib->drain(stream, nullptr, nullptr));
    lib->streamDisconnect(stream);
  }
  lib->streamUnref(stream);
}

void waitAtExit() { waitForSounds(std::chrono::seconds(10)); }

// A decoded sound with its connection to the server, made when it was
// loaded so that a missing server is a sentence rather than silence.
class DecodedSound : public Sound {
 public:
  DecodedSound(std::shared_ptr<Samples> samples, std::unique_ptr<PulseSession> session)
      : samples_(std::move(samples)), session_(std::move(session)) {}
  void play() override {
    {
      std::lock_guard lock(activeMutex());
      static const bool registered = std::atexit(waitAtExit) == 0;
      (void)registered;
      ++activeCount();
    }
    std::thread([samples = samples_, session = std::shared_ptr<PulseSession>(std::move(session_))] {
      if (session) playToEnd(libPulse(), *session, samples);
      std::lock_guard lock(activeMutex());
      --activeCount();
      activeChanged().notify_all();
    }).detach();
  }

 private:
  std::shared_ptr<Samples> samples_;
  std::unique_ptr<PulseSession> session_;  // handed to the playing thread
};

constexpr const char* kNoServer =
    "The sound server did not answer, so nothing was played. Start PulseAudio or PipeWire, then click Test again.";
constexpr const char* kNoSoundLibraries =
    "Playing sounds needs the PulseAudio client library and libsndfile (libpulse0, libsndfile1), which are not "
    "installed.";

class PulseSounds : public Sounds {
 public:
  Checked<std::unique_ptr<Sound>> systemSound(std::string_view name) override {
    if (!libPulse() || !libSndfile()) return fail(kNoSoundLibraries);
    const auto file = soundThemeFile(soundThemeEventName(name));
    // Without a server no sound plays, known or not: that comes first.
    if (!file) return serverAnswers() ? Checked<std::unique_ptr<Sound>>(std::unique_ptr<Sound>()) : fail(kNoServer);
    return loaded(*file);
  }
  // The caller checks that the file exists; one that is not audio, or is
  // cut short, loads as nothing.
  Checked<std::unique_ptr<Sound>> soundFile(std::string_view path) override {
    if (!libPulse() || !libSndfile()) return fail(kNoSoundLibraries);
    return loaded(std::string(path));
  }

 private:
  static bool serverAnswers() {
    return PulseSession(*libPulse(), PulseClock::now() + std::chrono::seconds(2)).ready();
  }
  static Checked<std::unique_ptr<Sound>> loaded(const std::string& path) {
    auto session = std::make_unique<PulseSession>(*libPulse(), PulseClock::now() + std::chrono::seconds(2));
    if (!session->ready()) return fail(kNoServer);
    auto samples = decode(path);
    if (!samples) return std::unique_ptr<Sound>();
    return std::unique_ptr<Sound>(std::make_unique<DecodedSound>(std::move(samples), std::move(session)));
  }
};

std::string lowercased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower;
}

}  // namespace

std::string soundThemeEventName(std::string_view name) {
  const std::string lower = lowercased(name);
  for (const ThemeName& entry : kThemeNames)
    if (lowercased(entry.macName) == lower) return entry.eventName;
  return std::string(name);
}

// The freedesktop sound theme's layout: sounds/<theme>/stereo/<event>.<ext>
// in the user's data folder and then each system data folder. The
// "freedesktop" theme is the fallback every theme inherits.
std::optional<std::string> soundThemeFile(std::string_view eventName) {
  if (eventName.empty() || eventName.find('/') != std::string_view::npos || eventName.front() == '.')
    return std::nullopt;
  std::vector<std::filesystem::path> roots;
  if (const char* home = std::getenv("XDG_DATA_HOME"); home && *home) roots.emplace_back(home);
  else if (const char* user = std::getenv("HOME"); user && *user) roots.emplace_back(std::filesystem::path(user) / ".local/share");
  const char* dirs = std::getenv("XDG_DATA_DIRS");
  std::string_view list = dirs && *dirs ? dirs : "/usr/local/share:/usr/share";
  while (!list.empty()) {
    const std::size_t colon = list.find(':');
    if (colon != 0) roots.emplace_back(std::string(list.substr(0, colon)));
    if (colon == std::string_view::npos) break;
    list.remove_prefix(colon + 1);
  }
  for (const auto& root : roots)
    for (const char* extension : {".oga", ".ogg", ".wav"}) {
      const auto file = root / "sounds" / "freedesktop" / "stereo" / (std::string(eventName) + extension);
      std::error_code ec;
      if (std::filesystem::is_regular_file(file, ec)) return file.string();
    }
  return std::nullopt;
}

void setFirstBufferObserver(std::function<void()> observer) {
  std::lock_guard lock(activeMutex());
  firstBufferObserver() = std::move(observer);
}

void waitForSounds(std::chrono::milliseconds timeout) {
  std::unique_lock lock(activeMutex());
  activeChanged().wait_for(lock, timeout, [] { return activeCount() == 0; });
}

std::unique_ptr<Sounds> makePulseSounds() { return std::make_unique<PulseSounds>(); }

}  // namespace orla::linux_desktop
