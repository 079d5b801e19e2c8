#include "plugins/system/speech_plugin.h"

#include <algorithm>
#include <cctype>
#include <mutex>

#include <orla/models/graphemes.h>
#include <orla/models/text.h>
#include "plugins/input/accessibility_readers.h"
#include "plugins/input/menu_path.h"
#include "plugins/input/typing_target.h"
#include "plugins/text/clipboard_mechanics.h"
#include "plugins/text/text_transforms.h"

namespace orla {

namespace {

// The one speech this process has going: the platform whose synthesiser
// speaks it and its number, so that a waiting action can tell its own
// speech ending from being stopped or replaced by another action. The
// mutex is held for the calls that start and stop speech, never for a wait.
struct Speaker {
  std::mutex mutex;
  std::shared_ptr<Platform> platform;
  std::uint64_t current = 0;  // 0: none
  std::uint64_t next = 1;

  void forgetLocked() {
    platform.reset();
    current = 0;
  }
};

Speaker& speaker() {
  static Speaker instance;
  return instance;
}

std::string lowercasedLanguage(std::string_view tag) {
  std::string out(tag);
  for (char& c : out) c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

std::string primarySubtag(std::string_view tag) {
  const std::string lower = lowercasedLanguage(tag);
  return lower.substr(0, lower.find('-'));
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

}  // namespace

SpeechPlugin::SpeechPlugin() : SpeechPlugin(Platform::current()) {}
SpeechPlugin::SpeechPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t SpeechPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::string SpeechPlugin::text(const ActionData& data) { return readStringOr(data, {"text", "Text", "message", "Message"}); }
std::string SpeechPlugin::voice(const ActionData& data) { return readStringOr(data, {"voice", "Voice", "voiceName"}); }
double SpeechPlugin::rate(const ActionData& data) { return readDoubleOr(data, {"rate", "Rate"}, 0); }
bool SpeechPlugin::waitsUntilDone(const ActionData& data) { return readSwitchOr(data, {"waitUntilDone", "wait"}, true); }

std::optional<Voice> SpeechPlugin::resolveVoice(std::span<const Voice> voices, std::string_view wanted) {
  for (const Voice& v : voices)
    if (v.identifier == wanted) return v;
  const NameMatcher byName(wanted, Selection::nameFull);
  for (const Voice& v : voices)
    if (byName.matches(v.name)) return v;
  const std::string language = lowercasedLanguage(wanted);
  for (const Voice& v : voices)
    if (!v.language.empty() && lowercasedLanguage(v.language) == language) return v;
  for (const Voice& v : voices)
    if (!v.language.empty() && primarySubtag(v.language) == language) return v;
  return std::nullopt;
}

SpeechPlugin::Cut SpeechPlugin::cutToLimit(std::string_view text) {
  // Most texts are short: the byte length bounds the character count.
  if (text.size() <= characterLimit) return {text, 0};
  const GraphemePrefix prefix = graphemePrefix(text, characterLimit);
  if (!prefix.truncated) return {text, 0};
  std::string_view kept = prefix.prefix;
  // Back to the last white space when there is one among the last 100
  // characters, so that no word is spoken half.
  std::size_t seen = 0, lastSpace = std::string_view::npos;
  std::vector<std::size_t> starts;
  forEachGrapheme(kept, [&](std::size_t begin, std::size_t) {
    starts.push_back(begin);
    return true;
  });
  for (std::size_t i = starts.size(); i-- > 0 && seen < cutLookBack; ++seen) {
    if (isSpace(kept[starts[i]])) {
      lastSpace = starts[i];
      break;
    }
  }
  if (lastSpace != std::string_view::npos) kept = kept.substr(0, lastSpace);
  return {kept, graphemeCount(text)};
}

std::optional<std::string> SpeechPlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command < speakText || command > stopSpeaking) return unknownCommandMessage("speech command");
  if (command == speakText && text(data).empty()) return "Type the text to speak in the box.";
  const double wpm = rate(data);
  if (wpm != 0 && (wpm < slowestRate || wpm > fastestRate))
    return "The rate must be between 80 and 400 words per minute, or 0 for the system's rate.";
  return std::nullopt;
}

PluginResult SpeechPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  Platform& p = *platform_;
  if (!p.supports(Capability::speech))
    return PluginResult::failure("Speech is not available on this desktop in this build of Orla.");
  const std::int64_t command = resolvedActionType(data);
  if (command == stopSpeaking) return stop();

  std::string spoken;
  if (command == speakText) {
    spoken = text(data);
  } else if (command == speakClipboard) {
    auto clip = ClipboardMechanics(p).readText();
    const std::string_view trimmed = clip ? trimWhitespaceAndNewlines(*clip) : std::string_view();
    if (trimmed.empty())
      return PluginResult::failure("The clipboard has no text. Copy some text first, then click Test again.");
    spoken = std::string(trimmed);
  } else {
    auto selection = selectedText();
    if (!selection) return PluginResult::failure(selection.error());
    spoken = std::move(selection.value());
  }

  std::optional<Voice> chosen;
  if (const std::string wanted = voice(data); !wanted.empty()) {
    const std::vector<Voice> voices = p.speech().voices();
    chosen = resolveVoice(voices, wanted);
    if (!chosen)
      return PluginResult::failure("The voice \u201c" + wanted +
                                   "\u201d is not installed. Choose one from the menu, or leave Voice empty to use "
                                   "the system voice.");
  }
  return speak(spoken, chosen, rate(data), waitsUntilDone(data));
}

Checked<std::string> SpeechPlugin::selectedText() {
  Platform& p = *platform_;
  if (!p.accessibility().isProcessTrusted())
    return fail(
        "Accessibility permission is required to speak the selection. Enable Orla Pro in System Settings \u2192 "
        "Privacy & Security \u2192 Accessibility.");
  if (!ensureTypingTarget(p))
    return fail("No app to read the selection from. Click into the app with the text you want, then click Test again.");
  // The focused element's own selection first: it leaves the clipboard
  // alone.
  if (auto front = p.workspace().frontmostApplication()) {
    AXReader reader(p.accessibility());
    const AXElement app = p.accessibility().applicationElement(front->processIdentifier);
    if (auto focused = reader.element(app, "AXFocusedUIElement"))
      if (auto selected = reader.string(*focused, "AXSelectedText"); selected && !selected->empty())
        return *selected;
  }
  ClipboardMechanics clipboard(p);
  const PasteboardSnapshot saved = clipboard.snapshot();
  CopiedSelection copied = clipboard.copySelection();
  (void)clipboard.restore(saved);
  switch (copied.outcome) {
    case CopiedSelection::Outcome::eventsFailed: return fail(std::string(kKeyEventsFailed));
    case CopiedSelection::Outcome::nothingCopied:
      return fail(
          "Nothing was copied. Select some text in the target app first (the app in front before you clicked Test), "
          "then try again.");
    case CopiedSelection::Outcome::notText:
      return fail("The selection is not text (an image or file). Orla can only speak text.");
    case CopiedSelection::Outcome::text: break;
  }
  if (trimWhitespaceAndNewlines(copied.text).empty()) return fail("The selection is empty. Select some text first.");
  return std::move(copied.text);
}

PluginResult SpeechPlugin::stop() {
  Speaker& s = speaker();
  std::lock_guard lock(s.mutex);
  const bool speaking = s.current != 0 && s.platform && s.platform->speech().isSpeaking();
  if (speaking) s.platform->speech().stop();
  s.forgetLocked();
  return PluginResult::success(speaking ? "Stopped speaking." : "Nothing was being spoken.");
}

PluginResult SpeechPlugin::speak(const std::string& text, const std::optional<Voice>& voice, double wpm, bool wait) {
  Platform& p = *platform_;
  const Cut cut = cutToLimit(text);
  const std::size_t words = transforms::countWords(cut.text);
  std::string what = std::to_string(words) + (words == 1 ? " word" : " words");
  if (voice) what += " with the voice \u201c" + voice->name + "\u201d";
  if (cut.total)
    what += " (the first " + std::to_string(graphemeCount(cut.text)) + " of " + std::to_string(cut.total) +
            " characters)";

  Speaker& s = speaker();
  std::uint64_t mine = 0;
  {
    std::lock_guard lock(s.mutex);
    if (s.current != 0 && s.platform) s.platform->speech().stop();
    s.forgetLocked();
    const std::optional<std::string> voiceId = voice ? std::optional(voice->identifier) : std::nullopt;
    const Checked<void> started = p.speech().speak(cut.text, voiceId, wpm > 0 ? std::optional(wpm) : std::nullopt);
    if (!started) return PluginResult::failure(started.error());
    mine = s.next++;
    s.current = mine;
    s.platform = platform_;
  }
  if (!wait) return PluginResult::success("Speaking " + what + ".");

  Clock& clock = p.clock();
  const auto deadline = clock.monotonicNow() + longestWait;
  for (;;) {
    {
      std::lock_guard lock(s.mutex);
      if (s.current != mine) return PluginResult::success("The speech was stopped before the end.");
      if (!p.speech().isSpeaking()) {
        s.forgetLocked();
        return PluginResult::success("Spoke " + what + ".");
      }
      if (clock.monotonicNow() >= deadline) {
        p.speech().stop();
        s.forgetLocked();
        return PluginResult::failure(
            "Stopped speaking after 30 minutes. Speak a shorter text, or turn off \u201cWait until done\u201d.");
      }
    }
    clock.sleep(pollInterval);
  }
}

void SpeechPlugin::resetSpeaker() {
  Speaker& s = speaker();
  std::lock_guard lock(s.mutex);
  s.forgetLocked();
  s.next = 1;
}

}  // namespace orla
