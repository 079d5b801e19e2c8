#include "plugins/text/clipboard_mechanics.h"

namespace orla {

namespace {

constexpr auto kAfterChord = std::chrono::milliseconds(100);
constexpr auto kCopyDeadline = std::chrono::milliseconds(1000);
constexpr auto kCopyPoll = std::chrono::milliseconds(50);

}  // namespace

std::optional<std::string> ClipboardMechanics::readText() {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().text(); });
}

Checked<void> ClipboardMechanics::writeText(std::string_view text) {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().setText(text); });
}

Checked<void> ClipboardMechanics::takeText(std::string text) {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().takeText(std::move(text)); });
}

std::int64_t ClipboardMechanics::changeCount() {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().changeCount(); });
}

PasteboardSnapshot ClipboardMechanics::snapshot() {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().snapshot(); });
}

Checked<void> ClipboardMechanics::restore(const PasteboardSnapshot& saved) {
  return onMainThread(platform_.mainThread(), [&] { return platform_.pasteboard().restore(saved); });
}

Checked<void> ClipboardMechanics::postCommandChord(KeyCode key) {
  auto source = platform_.keyboard().createEventSource(EventSourceState::privateState);
  if (!source) return fail(std::string(kKeyEventsFailed));
  if (!source.value()->post({key, true, event_flags::command, {}}) ||
      !source.value()->post({key, false, event_flags::command, {}}))
    return fail(std::string(kKeyEventsFailed));
  wait(kAfterChord);
  return {};
}

CopiedSelection ClipboardMechanics::copySelection(KeyCode key) {
  using Outcome = CopiedSelection::Outcome;
  const std::int64_t before = changeCount();
  if (!postCommandChord(key)) return {Outcome::eventsFailed, {}};
  Clock& clock = platform_.clock();
  const auto deadline = clock.monotonicNow() + kCopyDeadline;
  while (changeCount() == before) {
    if (clock.monotonicNow() >= deadline) return {Outcome::nothingCopied, {}};
    wait(kCopyPoll);
  }
  auto text = readText();
  if (!text) return {Outcome::notText, {}};
  return {Outcome::text, std::move(*text)};
}

}  // namespace orla
