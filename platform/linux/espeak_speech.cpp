#include "platform/linux/espeak_speech.h"

#include <espeak-ng/speak_lib.h>

#include <atomic>
#include <cctype>
#include <cmath>
#include <mutex>
#include <thread>

#include "platform/linux/pulse_client.h"
#include "platform/linux/shared_library.h"

namespace orla::linux_desktop {

namespace {

struct LibEspeak {
  decltype(&espeak_Initialize) initialize = nullptr;
  decltype(&espeak_SetSynthCallback) setSynthCallback = nullptr;
  decltype(&espeak_Synth) synth = nullptr;
  decltype(&espeak_ListVoices) listVoices = nullptr;
  decltype(&espeak_SetVoiceByName) setVoiceByName = nullptr;
  decltype(&espeak_SetParameter) setParameter = nullptr;
};

constexpr const char* kNoLibrary =
    "Speaking needs espeak-ng's library (libespeak-ng1), which is not installed.";
constexpr const char* kNoVoiceData =
    "espeak-ng could not start: its voice data (espeak-ng-data) is missing or damaged. Reinstall espeak-ng-data, "
    "then click Test again.";
constexpr const char* kNoServer =
    "The sound server did not answer, so nothing was spoken. Start PulseAudio or PipeWire, then click Test again.";
// espeak-ng's own default voice, which speaks when the action names none.
constexpr const char* kSystemVoice = "en";
// How long the sound server may keep a buffer waiting before the speech is
// given up as stalled.
constexpr auto kServerPatience = std::chrono::seconds(5);

// The engine, set up once for the life of the process. espeak-ng keeps
// global state and is not reentrant: every call after set-up runs under
// `engineMutex()`, and the voices are listed once, so that listing them
// never waits for a speech.
struct Engine {
  const LibEspeak* lib = nullptr;
  int sampleRate = 0;
  std::vector<Voice> voices;
};

// The engine's state and the observer are never destroyed: a speech still
// playing when the process exits is heard to its end by the synthesiser's
// destructor, after other statics are gone.
std::mutex& engineMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

// "en-gb-x-rp" as "en-GB-x-rp": the region in capitals, as BCP 47 writes it.
std::string languageTag(std::string_view espeakLanguage) {
  std::string tag(espeakLanguage);
  const std::size_t dash = tag.find('-');
  if (dash != std::string::npos) {
    const std::size_t end = tag.find('-', dash + 1);
    const std::size_t length = (end == std::string::npos ? tag.size() : end) - dash - 1;
    if (length == 2)
      for (std::size_t i = dash + 1; i < dash + 3; ++i)
        tag[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(tag[i])));
  }
  return tag;
}

std::vector<Voice> listVoices(const LibEspeak& lib) {
  std::vector<Voice> voices;
  const espeak_VOICE** list = lib.listVoices(nullptr);
  for (; list && *list; ++list) {
    const espeak_VOICE& v = **list;
    if (!v.name || !v.identifier) continue;
    // `languages` is a run of (priority byte, name, NUL), ended by a zero
    // priority; the first is the voice's own language.
    std::string language;
    if (v.languages && v.languages[0]) language = languageTag(v.languages + 1);
    voices.push_back({v.identifier, v.name, std::move(language)});
  }
  return voices;
}

struct Job;
Job*& currentJob() {
  static Job* job = nullptr;
  return job;
}

std::function<void()>& firstBufferObserver() {
  static auto* observer = new std::function<void()>;
  return *observer;
}
std::mutex& observerMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

// One speech: the text, and its stream to the sound server.
struct Job {
  const LibPulse* pulse = nullptr;
  std::unique_ptr<PulseSession> session;
  pa_stream* stream = nullptr;
  std::string text;
  std::string voice;
  int wordsPerMinute = espeakRATE_NORMAL;
  std::atomic<bool> cancel{false};
  std::atomic<bool> speaking{true};
  bool first = true;
  // Guards `session` against `wake` while the speaking thread closes it.
  std::mutex sessionMutex;

  ~Job() { close(); }

  // Ends the stream and the connection; only closing the connection tells
  // the server at once, as nothing runs the loop after this.
  void close() {
    std::lock_guard lock(sessionMutex);
    if (stream) {
      pulse->streamDisconnect(stream);
      pulse->streamUnref(stream);
      stream = nullptr;
    }
    session.reset();
  }

  // Ends a wait for the server at once rather than at its next request;
  // any thread may call it.
  void wake() {
    std::lock_guard lock(sessionMutex);
    if (session) pulse->wakeup(session->loop());
  }

  bool streamUsable() const { return stream && pulse->streamState(stream) == PA_STREAM_READY; }

  // Hands samples to the server as it asks for them, so that synthesis
  // goes no faster than playback; false when the speech is to end.
  bool write(const short* samples, std::size_t count) {
    const auto* bytes = reinterpret_cast<const char*>(samples);
    std::size_t left = count * sizeof(short);
    while (left > 0) {
      session->extendDeadline(PulseClock::now() + kServerPatience);
      if (!session->runUntil([&] { return cancel || !streamUsable() || pulse->writableSize(stream) > 0; }) ||
          cancel || !streamUsable())
        return false;
      const std::size_t chunk = std::min(left, pulse->writableSize(stream));
      if (pulse->write(stream, bytes, chunk, nullptr, 0, PA_SEEK_RELATIVE) < 0) return false;
      bytes += chunk;
      left -= chunk;
      if (first) {
        first = false;
        std::function<void()> observer;
        {
          std::lock_guard lock(observerMutex());
          observer = firstBufferObserver();
        }
        if (observer) observer();
      }
    }
    return true;
  }

  // Waits until the server has played what it was given.
  void drain() {
    pa_operation* operation = pulse->drain(stream, nullptr, nullptr);
    if (!operation) return;
    // The stream buffers a fraction of a second; the patience covers a
    // server that is busy.
    session->extendDeadline(PulseClock::now() + kServerPatience);
    (void)session->runUntil(
        [&] { return cancel || !streamUsable() || pulse->operationState(operation) != PA_OPERATION_RUNNING; });
    pulse->operationUnref(operation);
  }
};

int synthCallback(short* samples, int count, espeak_EVENT*) {
  Job* job = currentJob();
  if (!job || job->cancel) return 1;
  if (!samples || count <= 0) return 0;  // the end, or an empty buffer
  return job->write(samples, static_cast<std::size_t>(count)) ? 0 : 1;
}

const LibEspeak* libEspeak() {
  static const LibEspeak* loaded = []() -> const LibEspeak* {
    void* handle = openSharedLibrary("libespeak-ng.so.1");
    if (!handle) return nullptr;
    static LibEspeak lib;
    const bool ok = bindSymbol(handle, lib.initialize, "espeak_Initialize") &&
                    bindSymbol(handle, lib.setSynthCallback, "espeak_SetSynthCallback") &&
                    bindSymbol(handle, lib.synth, "espeak_Synth") &&
                    bindSymbol(handle, lib.listVoices, "espeak_ListVoices") &&
                    bindSymbol(handle, lib.setVoiceByName, "espeak_SetVoiceByName") &&
                    bindSymbol(handle, lib.setParameter, "espeak_SetParameter");
    return ok ? &lib : nullptr;
  }();
  return loaded;
}

// The engine, or the sentence that says why there is none. Set up once,
// before any speech, so that it needs no lock after: a speech holds
// `engineMutex()` while it plays, and the voices must not wait for it.
Checked<const Engine*> engine() {
  static const Engine* ready = []() -> const Engine* {
    const LibEspeak* lib = libEspeak();
    if (!lib) return nullptr;
    std::lock_guard lock(engineMutex());
    // Samples come back through the callback 100 ms at a time; the library
    // must not end the process when its data is missing.
    const int rate = lib->initialize(AUDIO_OUTPUT_SYNCHRONOUS, 100, nullptr, espeakINITIALIZE_DONT_EXIT);
    if (rate <= 0) return nullptr;
    auto* e = new Engine;
    e->lib = lib;
    e->sampleRate = rate;
    lib->setSynthCallback(synthCallback);
    e->voices = listVoices(*lib);
    return e;
  }();
  if (ready) return ready;
  return fail(libEspeak() ? kNoVoiceData : kNoLibrary);
}

void speakToEnd(const Engine& e, const std::shared_ptr<Job>& job) {
  {
    std::lock_guard lock(engineMutex());
    if (e.lib->setVoiceByName(job->voice.c_str()) == EE_OK &&
        e.lib->setParameter(espeakRATE, job->wordsPerMinute, 0) == EE_OK) {
      currentJob() = job.get();
      (void)e.lib->synth(job->text.c_str(), job->text.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr,
                         nullptr);
      currentJob() = nullptr;
    }
  }
  if (!job->cancel && job->streamUsable()) job->drain();
  job->close();
  job->speaking = false;
}

class EspeakSpeech : public SpeechSynthesizer {
 public:
  // A speech still going on is heard to its end: a short-lived host would
  // otherwise cut off what it was asked to say without waiting.
  ~EspeakSpeech() override {
    if (worker_.joinable()) worker_.join();
  }

  std::vector<Voice> voices() override {
    auto e = engine();
    return e ? e.value()->voices : std::vector<Voice>();
  }

  Checked<void> speak(std::string_view text, const std::optional<std::string>& voice,
                      std::optional<double> wordsPerMinute) override {
    auto e = engine();
    if (!e) return fail(e.error());
    const LibPulse* pulse = libPulse();
    if (!pulse) return fail(kNoServer);
    stop();

    auto job = std::make_shared<Job>();
    job->pulse = pulse;
    job->text = std::string(text);
    job->voice = voice.value_or(kSystemVoice);
    job->wordsPerMinute = static_cast<int>(std::lround(wordsPerMinute.value_or(espeakRATE_NORMAL)));
    job->session = std::make_unique<PulseSession>(*pulse, PulseClock::now() + std::chrono::seconds(2));
    if (!job->session->ready()) return fail(kNoServer);
    const pa_sample_spec format{PA_SAMPLE_S16NE, static_cast<uint32_t>(e.value()->sampleRate), 1};
    job->stream = pulse->streamNew(job->session->context(), "Orla speech", &format, nullptr);
    if (!job->stream) return fail(kNoServer);
    // A quarter of a second buffered: a stop is heard at once, and the
    // first words are not held back.
    const uint32_t quarter = static_cast<uint32_t>(e.value()->sampleRate / 4 * sizeof(short));
    const pa_buffer_attr buffer{static_cast<uint32_t>(-1), quarter, static_cast<uint32_t>(-1),
                                static_cast<uint32_t>(-1), static_cast<uint32_t>(-1)};
    if (pulse->connectPlayback(job->stream, nullptr, &buffer, PA_STREAM_ADJUST_LATENCY, nullptr, nullptr) != 0 ||
        !job->session->runUntil([&] { return pulse->streamState(job->stream) != PA_STREAM_CREATING; }) ||
        !job->streamUsable())
      return fail(kNoServer);

    std::lock_guard lock(mutex_);
    job_ = job;
    worker_ = std::thread([engine = e.value(), job] { speakToEnd(*engine, job); });
    return {};
  }

  bool isSpeaking() override {
    std::lock_guard lock(mutex_);
    return job_ && job_->speaking;
  }

  void stop() override {
    std::shared_ptr<Job> job;
    std::thread worker;
    {
      std::lock_guard lock(mutex_);
      job = std::move(job_);
      worker = std::move(worker_);
    }
    if (job) {
      job->cancel = true;
      job->wake();
    }
    if (worker.joinable()) worker.join();
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<Job> job_;
  std::thread worker_;
};

}  // namespace

std::unique_ptr<SpeechSynthesizer> makeEspeakSpeech() { return std::make_unique<EspeakSpeech>(); }

void setFirstSpeechBufferObserver(std::function<void()> observer) {
  std::lock_guard lock(observerMutex());
  firstBufferObserver() = std::move(observer);
}

}  // namespace orla::linux_desktop
