// Speech on Linux: espeak-ng's synthesiser (libespeak-ng, loaded on first
// use), its samples played on the sound server's default output through
// libpulse from a thread of its own, so that a missing server is a sentence
// at once and a stop ends the sound within a buffer.
#pragma once

#include <functional>
#include <memory>

#include <orla/platform/speech.h>

namespace orla::linux_desktop {

std::unique_ptr<SpeechSynthesizer> makeEspeakSpeech();

// Called on the speaking thread when a speech's first samples have been
// handed to the sound server (benchmarks measure start latency with it).
void setFirstSpeechBufferObserver(std::function<void()> observer);

}  // namespace orla::linux_desktop
