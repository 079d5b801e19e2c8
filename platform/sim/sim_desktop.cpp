#include "platform/sim/sim_desktop.h"

#include <orla/models/text.h>
#include <orla/models/utf8.h>

#include <algorithm>
#include <limits>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace orla::sim {

namespace {

// "down 0x09 flags=0x100000", with the text an event carries: "down 0x00 flags=0x0 “é”".
std::string describe(const KeyboardEvent& event) {
  char head[64];
  std::snprintf(head, sizeof head, "%s 0x%02X flags=0x%llX", event.keyDown ? "down" : "up",
                static_cast<unsigned>(event.keyCode), static_cast<unsigned long long>(event.flags));
  std::string text = head;
  if (!event.unicodeString.empty()) {
    text += ' ';
    text += quoted(toUtf8(event.unicodeString));
  }
  return text;
}

std::map<std::string, std::string> processEnvironment() {
  std::map<std::string, std::string> env;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view line(*entry);
    const size_t eq = line.find('=');
    if (eq == std::string_view::npos) continue;
    env.emplace(std::string(line.substr(0, eq)), std::string(line.substr(eq + 1)));
  }
  return env;
}

RunningApplication hostApplication(const HostIdentity& host, bool frontmost) {
  RunningApplication app;
  app.processIdentifier = host.processIdentifier;
  app.bundleIdentifier = host.bundleIdentifier;
  app.localizedName = host.name;
  app.bundlePath = "/Applications/" + host.name + ".app";
  app.activationPolicy = host.activationPolicy;
  app.active = frontmost;
  return app;
}

}  // namespace

SimDesktop::SimDesktop()
    // A fixed start keeps runs repeatable; a state file or test sets its own.
    : now_(std::chrono::sys_days{std::chrono::year{2026} / 1 / 5} + std::chrono::hours{9}),
      monotonic_(Clock::Monotonic{} + std::chrono::hours{1}),
      environment_(processEnvironment()) {}

TimePoint SimDesktop::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

void SimDesktop::setNow(TimePoint now) {
  std::lock_guard lock(mutex_);
  now_ = now;
}

std::string SimDesktop::timeZone() const {
  std::lock_guard lock(mutex_);
  return timeZone_;
}

void SimDesktop::setTimeZone(std::string timeZone) {
  std::lock_guard lock(mutex_);
  timeZone_ = std::move(timeZone);
}

std::string SimDesktop::locale() const {
  std::lock_guard lock(mutex_);
  return locale_;
}

void SimDesktop::setLocale(std::string locale) {
  std::lock_guard lock(mutex_);
  locale_ = std::move(locale);
}

Clock::Monotonic SimDesktop::monotonicNow() const {
  std::lock_guard lock(mutex_);
  return monotonic_;
}

void SimDesktop::sleep(std::chrono::microseconds duration) {
  std::optional<ProcessId> before;
  std::vector<std::function<void()>> due;
  {
    std::lock_guard lock(mutex_);
    before = frontmost_;
    if (duration.count() > 0) {
      now_ += duration;
      monotonic_ += duration;
    }
    if (recording_) trace_.push_back({"sleep", formatDuration(duration)});
    // Applications being launched appear when their time has come.
    launchDueLocked();
    while (!timeline_.empty() && timeline_.begin()->first <= monotonic_) {
      due.push_back(std::move(timeline_.begin()->second));
      timeline_.erase(timeline_.begin());
    }
  }
  ui_.passTime(duration);
  for (auto& work : due) work();  // outside the lock: it changes the desktop
  notifyIfFrontChanged(before);
}

void SimDesktop::atTime(std::chrono::microseconds delay, std::function<void()> work) {
  std::lock_guard lock(mutex_);
  timeline_.emplace(monotonic_ + delay, std::move(work));
}

std::map<std::string, std::string> SimDesktop::environment() const {
  std::lock_guard lock(mutex_);
  return environment_;
}

void SimDesktop::setEnvironment(std::map<std::string, std::string> environment) {
  std::lock_guard lock(mutex_);
  environment_ = std::move(environment);
}

std::optional<std::string> SimDesktop::clipboardText() const {
  std::lock_guard lock(mutex_);
  return clipboardTextLocked();
}

std::optional<std::string> SimDesktop::clipboardTextLocked() const {
  if (clipboard_.empty()) return std::nullopt;
  const std::string* text = clipboard_.front().bytes(pasteboard_types::plainText);
  // The system decodes the bytes; text that is not UTF-8 reads as none.
  if (!text || !isValidUtf8(*text)) return std::nullopt;
  return *text;
}

void SimDesktop::setClipboardText(std::optional<std::string> text) {
  PasteboardSnapshot items;
  if (text) {
    // Built step by step: a braced list would copy the text, which may be
    // a whole file's.
    PasteboardItem item;
    item.representations.push_back({std::string(pasteboard_types::plainText), std::move(*text)});
    items.push_back(std::move(item));
  }
  setClipboardItems(std::move(items));
}

PasteboardSnapshot SimDesktop::clipboardItems() const {
  std::lock_guard lock(mutex_);
  return clipboard_;
}

void SimDesktop::setClipboardItems(PasteboardSnapshot items) {
  std::lock_guard lock(mutex_);
  clipboard_ = std::move(items);
  ++changeCount_;
}

void SimDesktop::setScriptAnswer(std::string source, SimScriptAnswer answer) {
  std::lock_guard lock(mutex_);
  scripts_[std::move(source)] = std::move(answer);
}

std::map<std::string, SimScriptAnswer> SimDesktop::scriptAnswers() const {
  std::lock_guard lock(mutex_);
  return scripts_;
}

std::optional<SimScriptAnswer> SimDesktop::scriptAnswer(const std::string& source) const {
  std::lock_guard lock(mutex_);
  auto it = scripts_.find(source);
  if (it == scripts_.end()) return std::nullopt;
  return it->second;
}

void SimDesktop::recordGivenScript(std::string source) {
  std::lock_guard lock(mutex_);
  givenScripts_.push_back(std::move(source));
}

std::vector<std::string> SimDesktop::givenScripts() const {
  std::lock_guard lock(mutex_);
  return givenScripts_;
}

std::int64_t SimDesktop::clipboardChangeCount() const {
  std::lock_guard lock(mutex_);
  return changeCount_;
}

bool SimDesktop::accessibilityTrusted() const {
  std::lock_guard lock(mutex_);
  return trusted_;
}

void SimDesktop::setAccessibilityTrusted(bool trusted) {
  std::lock_guard lock(mutex_);
  trusted_ = trusted;
}

HostIdentity SimDesktop::host() const {
  std::lock_guard lock(mutex_);
  return host_;
}

void SimDesktop::setHost(HostIdentity host) {
  std::lock_guard lock(mutex_);
  if (frontmost_ == host_.processIdentifier) frontmost_ = host.processIdentifier;
  host_ = std::move(host);
}

std::vector<RunningApplication> SimDesktop::applications() const {
  std::lock_guard lock(mutex_);
  std::vector<RunningApplication> apps;
  apps.reserve(applications_.size() + 1);
  apps.push_back(hostApplication(host_, frontmost_ == host_.processIdentifier));
  for (const App& app : applications_) {
    apps.push_back(app.info);
    apps.back().active = frontmost_ == app.info.processIdentifier;
  }
  return apps;
}

void SimDesktop::addApplication(RunningApplication app) {
  std::lock_guard lock(mutex_);
  std::erase_if(applications_, [&](const App& a) {
    return a.info.processIdentifier == app.processIdentifier;
  });
  if (app.active) frontmost_ = app.processIdentifier;
  if (!app.bundlePath.empty() && !installed_.count(standardizedPath(app.bundlePath))) {
    SimApplicationBundle bundle;
    bundle.path = standardizedPath(app.bundlePath);
    bundle.bundleIdentifier = app.bundleIdentifier;
    bundle.name = app.localizedName;
    bundle.executablePath = app.executablePath;
    bundle.activationPolicy = app.activationPolicy;
    installed_.emplace(bundle.path, std::move(bundle));
  }
  if (app.processIdentifier < std::numeric_limits<ProcessId>::max())
    nextLaunchPid_ = std::max(nextLaunchPid_, app.processIdentifier + 1);
  App entry;
  entry.info = std::move(app);
  applications_.push_back(std::move(entry));
}

void SimDesktop::removeAllApplications() {
  std::lock_guard lock(mutex_);
  applications_.clear();
  if (frontmost_ != host_.processIdentifier) frontmost_.reset();
}

std::optional<RunningApplication> SimDesktop::frontmostApplication() const {
  for (RunningApplication& app : applications())
    if (app.active) return std::move(app);
  return std::nullopt;
}

void SimDesktop::setFrontmost(std::optional<ProcessId> pid) {
  std::optional<ProcessId> before;
  {
    std::lock_guard lock(mutex_);
    before = frontmost_;
    frontmost_ = pid;
  }
  notifyIfFrontChanged(before);
}

bool SimDesktop::isRunning(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  return pid == host_.processIdentifier || findLocked(pid) != nullptr;
}

bool SimDesktop::hostIsFrontmost() const {
  std::lock_guard lock(mutex_);
  return frontmost_ == host_.processIdentifier;
}

SimDesktop::App* SimDesktop::findLocked(ProcessId pid) {
  for (App& app : applications_)
    if (app.info.processIdentifier == pid) return &app;
  return nullptr;
}

const SimDesktop::App* SimDesktop::findLocked(ProcessId pid) const {
  for (const App& app : applications_)
    if (app.info.processIdentifier == pid) return &app;
  return nullptr;
}

bool SimDesktop::activate(ProcessId pid, unsigned options) {
  std::optional<ProcessId> before;
  bool accepted = false;
  {
    std::lock_guard lock(mutex_);
    before = frontmost_;
    trace_.push_back({"activate", "pid=" + std::to_string(pid) + " options=" + std::to_string(options)});
    if (pid == host_.processIdentifier) {
      frontmost_ = pid;
      accepted = true;
    } else if (App* app = findLocked(pid); app && !app->info.terminated) {
      // A refusing application accepts the request but never comes forward,
      // as a busy or modal application may.
      if (!app->refusesActivation) frontmost_ = pid;
      accepted = true;
    }
  }
  notifyIfFrontChanged(before);
  return accepted;
}

void SimDesktop::setRefusesActivation(ProcessId pid, bool refuses) {
  std::lock_guard lock(mutex_);
  if (App* app = findLocked(pid)) app->refusesActivation = refuses;
}

bool SimDesktop::refusesActivation(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  const App* app = findLocked(pid);
  return app && app->refusesActivation;
}

bool SimDesktop::answersAppleEvents(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  const App* app = findLocked(pid);
  return !app || app->answersAppleEvents;
}

bool SimDesktop::setHostActivationPolicy(ActivationPolicy policy) {
  std::lock_guard lock(mutex_);
  static constexpr const char* kNames[] = {"regular", "accessory", "prohibited"};
  std::string text = "activationPolicy ";
  text += kNames[static_cast<int>(host_.activationPolicy)];
  text += " -> ";
  text += kNames[static_cast<int>(policy)];
  trace_.push_back({"host", std::move(text)});
  host_.activationPolicy = policy;
  return true;
}

void SimDesktop::setTextField(ProcessId pid, std::optional<SimTextField> field) {
  std::lock_guard lock(mutex_);
  if (field) {
    field->selectionStart = std::min(field->selectionStart, field->value.size());
    field->selectionLength = std::min(field->selectionLength, field->value.size() - field->selectionStart);
  }
  if (pid == host_.processIdentifier) hostTextField_ = std::move(field);
  else if (App* app = findLocked(pid)) app->textField = std::move(field);
}

std::optional<SimTextField> SimDesktop::textField(ProcessId pid) const {
  std::lock_guard lock(mutex_);
  if (pid == host_.processIdentifier) return hostTextField_;
  for (const App& app : applications_)
    if (app.info.processIdentifier == pid) return app.textField;
  return std::nullopt;
}

std::string SimDesktop::textFieldValue(ProcessId pid) const {
  auto field = textField(pid);
  if (!field) return {};
  return toUtf8(field->value);
}

Checked<void> SimDesktop::postKeyEvent(const KeyboardEvent& event) {
  std::lock_guard lock(mutex_);
  if (keyEventsBeforeFailure_) {
    if (*keyEventsBeforeFailure_ == 0) return fail("The event could not be created.");
    --*keyEventsBeforeFailure_;
  }
  if (recording_) {
    keyEvents_.push_back(event);
    trace_.push_back({"key", describe(event)});
  }
  if (event.keyDown) typeLocked(event);
  return {};
}

// A key-down reaches the frontmost application's text field: ⌘C and ⌘X
// copy the selection (⌘X then deletes it), ⌘V pastes the clipboard's text
// over the selection; an event carrying text inserts it, as do Return and
// Tab. Other keys are recorded only.
void SimDesktop::typeLocked(const KeyboardEvent& event) {
  SimTextField* field = nullptr;
  if (frontmost_ == host_.processIdentifier && hostTextField_) field = &*hostTextField_;
  else if (frontmost_)
    if (App* app = findLocked(*frontmost_); app && app->textField) field = &*app->textField;
  if (!field) return;
  std::u16string insert;
  constexpr KeyCode kX = 7, kC = 8, kV = 9, kReturn = 36, kTab = 48, kKeypadEnter = 76;
  const EventFlags modifiers = event.flags & event_flags::modifierMask;
  const bool command = modifiers & event_flags::command;
  if ((event.keyCode == kC || event.keyCode == kX) && command) {
    if (field->selectionLength == 0) return;  // nothing selected: the clipboard stays as it is
    if (field->selectionContent) {
      clipboard_ = *field->selectionContent;
    } else {
      const std::u16string selected = field->value.substr(field->selectionStart, field->selectionLength);
      clipboard_ = {PasteboardItem{{{std::string(pasteboard_types::plainText), toUtf8(selected)}}}};
    }
    ++changeCount_;
    trace_.push_back({"clipboard", event.keyCode == kC ? "copy selection" : "cut selection"});
    if (event.keyCode == kX) {
      field->value.erase(field->selectionStart, field->selectionLength);
      field->selectionLength = 0;
    }
    return;
  }
  if (event.keyCode == kV && command) {
    auto text = clipboardTextLocked();
    if (!text) return;
    insert = toUtf16(*text);
    // What is pasted is plain text; the field's selection is text again.
    field->selectionContent.reset();
  } else if (modifiers & (event_flags::command | event_flags::control)) {
    return;
  } else if (!event.unicodeString.empty()) {
    insert = event.unicodeString;
  } else if (event.keyCode == kReturn || event.keyCode == kKeypadEnter) {
    insert = u"\n";
  } else if (event.keyCode == kTab) {
    insert = u"\t";
  } else {
    return;
  }
  field->value.replace(field->selectionStart, field->selectionLength, insert);
  field->selectionContent.reset();
  field->selectionStart += insert.size();
  field->selectionLength = 0;
}

std::vector<KeyboardEvent> SimDesktop::keyEvents() const {
  std::lock_guard lock(mutex_);
  return keyEvents_;
}

void SimDesktop::clearKeyEvents() {
  std::lock_guard lock(mutex_);
  keyEvents_.clear();
}

bool SimDesktop::eventSourcesAvailable() const {
  std::lock_guard lock(mutex_);
  return eventSourcesAvailable_;
}

void SimDesktop::setEventSourcesAvailable(bool available) {
  std::lock_guard lock(mutex_);
  eventSourcesAvailable_ = available;
}

void SimDesktop::forceNextJavaScriptOutcome(std::optional<JavaScriptOutcome::Kind> kind) {
  std::lock_guard lock(mutex_);
  forcedJavaScriptOutcome_ = kind;
}

std::optional<JavaScriptOutcome::Kind> SimDesktop::takeForcedJavaScriptOutcome() {
  std::lock_guard lock(mutex_);
  return std::exchange(forcedJavaScriptOutcome_, std::nullopt);
}

void SimDesktop::failKeyEventsAfter(std::optional<std::size_t> count) {
  std::lock_guard lock(mutex_);
  keyEventsBeforeFailure_ = count;
}

void SimDesktop::schedule(std::chrono::microseconds delay, std::function<void()> work) {
  std::lock_guard lock(mutex_);
  trace_.push_back({"schedule", "in " + formatDuration(delay)});
  scheduled_.emplace(monotonic_ + delay, std::move(work));
}

std::size_t SimDesktop::runScheduled() {
  std::size_t ran = 0;
  for (;;) {
    std::function<void()> work;
    {
      std::lock_guard lock(mutex_);
      if (scheduled_.empty()) return ran;
      auto first = scheduled_.begin();
      if (first->first > monotonic_) {
        now_ += first->first - monotonic_;
        monotonic_ = first->first;
        launchDueLocked();
      }
      work = std::move(first->second);
      scheduled_.erase(first);
    }
    work();  // outside the lock: it may use the desktop
    ++ran;
  }
}

void SimDesktop::record(std::string category, std::string text) {
  std::lock_guard lock(mutex_);
  if (recording_) trace_.push_back({std::move(category), std::move(text)});
}

void SimDesktop::setRecording(bool on) {
  std::lock_guard lock(mutex_);
  recording_ = on;
}

std::vector<TraceEntry> SimDesktop::trace() const {
  std::lock_guard lock(mutex_);
  return trace_;
}

std::vector<TraceEntry> SimDesktop::trace(std::string_view category) const {
  std::lock_guard lock(mutex_);
  std::vector<TraceEntry> out;
  std::copy_if(trace_.begin(), trace_.end(), std::back_inserter(out),
               [&](const TraceEntry& e) { return e.category == category; });
  return out;
}

void SimDesktop::clearTrace() {
  std::lock_guard lock(mutex_);
  trace_.clear();
}

std::string formatDuration(std::chrono::microseconds duration) {
  const auto us = duration.count();
  std::string text = std::to_string(us / 1000);
  if (auto fraction = std::abs(us % 1000)) {
    char digits[8];
    std::snprintf(digits, sizeof digits, ".%03lld", static_cast<long long>(fraction));
    std::string tail = digits;
    while (tail.back() == '0') tail.pop_back();
    text += tail;
  }
  return text + "ms";
}

}  // namespace orla::sim
