#include "platform/sim/sim_desktop.h"

#include <algorithm>

extern char** environ;

namespace orla::sim {

namespace {

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
  std::lock_guard lock(mutex_);
  if (duration.count() > 0) {
    now_ += duration;
    monotonic_ += duration;
  }
  trace_.push_back({"sleep", formatDuration(duration)});
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
  return clipboard_;
}

void SimDesktop::setClipboardText(std::optional<std::string> text) {
  std::lock_guard lock(mutex_);
  clipboard_ = std::move(text);
  ++changeCount_;
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
  for (RunningApplication app : applications_) {
    app.active = frontmost_ == app.processIdentifier;
    apps.push_back(std::move(app));
  }
  return apps;
}

void SimDesktop::addApplication(RunningApplication app) {
  std::lock_guard lock(mutex_);
  std::erase_if(applications_, [&](const RunningApplication& a) {
    return a.processIdentifier == app.processIdentifier;
  });
  if (app.active) frontmost_ = app.processIdentifier;
  applications_.push_back(std::move(app));
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
  std::lock_guard lock(mutex_);
  frontmost_ = pid;
}

bool SimDesktop::hostIsFrontmost() const {
  std::lock_guard lock(mutex_);
  return frontmost_ == host_.processIdentifier;
}

void SimDesktop::record(std::string category, std::string text) {
  std::lock_guard lock(mutex_);
  trace_.push_back({std::move(category), std::move(text)});
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
  if (us % 1'000'000 == 0 && us != 0) return std::to_string(us / 1'000'000) + "s";
  if (us % 1000 == 0) return std::to_string(us / 1000) + "ms";
  return std::to_string(us) + "us";
}

}  // namespace orla::sim
