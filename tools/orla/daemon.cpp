#include "tools/orla/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <orla/models/text.h>
#include <orla/plugins/framework/orla_plugin.h>
#include "tools/orla/host_runner.h"

namespace orla::cli {
namespace {

// Whether one of the shortcut's actions pauses and resumes the hotkeys:
// such a shortcut keeps its hotkey while the others are paused, or nothing
// could resume them.
bool togglesHotkeys(const Shortcut& shortcut) {
  for (const Action& action : shortcut.actions)
    if (action.kind == OrlaPlugin::pluginClass &&
        OrlaPlugin::subAction(OrlaPlugin::resolvedActionType(action.data)) == "toggleEngine")
      return true;
  return false;
}

std::string grabProblem(GlobalHotkeys::GrabProblem problem, const Binding& binding) {
  const std::string hotkey = hotkeyText(binding.hotkey);
  const std::string name = orla::quoted(binding.shortcut);
  if (problem == GlobalHotkeys::GrabProblem::noSuchKey)
    return "The keyboard has no key for " + hotkey + ", so " + name + " has no hotkey.";
  return hotkey + " is held by another program, so " + name +
         " has no hotkey; choose another combination or free it there.";
}

std::string clockTime(std::chrono::system_clock::time_point when) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

}  // namespace

Daemon::Daemon(std::shared_ptr<Platform> platform, std::unique_ptr<GlobalHotkeys> hotkeys,
               std::unique_ptr<HostDesktop> desktop, DaemonLog& log, std::filesystem::path folder)
    : platform_(std::move(platform)),
      hotkeys_(std::move(hotkeys)),
      desktop_(std::move(desktop)),
      log_(log),
      folder_(std::move(folder)),
      library_(std::make_shared<const std::vector<Shortcut>>()) {
  if (::pipe2(wakePipe_, O_NONBLOCK | O_CLOEXEC) != 0) wakePipe_[0] = wakePipe_[1] = -1;
  worker_ = std::thread([this] { workerLoop(); });
}

Daemon::~Daemon() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    queue_.clear();
  }
  changed_.notify_all();
  worker_.join();
  for (const auto& [hotkey, id] : grabbed_) hotkeys_->release(id);
  ::close(wakePipe_[0]);
  ::close(wakePipe_[1]);
}

// ---- The folder and the grabs (loop thread) ----

void Daemon::reload() {
  std::shared_ptr<const std::vector<Shortcut>> previous;
  {
    std::lock_guard lock(mutex_);
    previous = library_;
  }
  ShortcutFolder read = readShortcutFolder(folder_, previous.get());
  std::vector<std::string> problems;
  for (const FolderProblem& problem : read.problems) problems.push_back(problem.line());
  keptWhilePaused_.clear();
  for (const Shortcut& shortcut : read.shortcuts)
    if (togglesHotkeys(shortcut)) keptWhilePaused_.insert(shortcut.name);
  bindings_ = std::move(read.bindings);
  {
    std::lock_guard lock(mutex_);
    library_ = std::make_shared<const std::vector<Shortcut>>(std::move(read.shortcuts));
  }
  applyGrabs(problems);
  report(std::move(problems), true);
  log_.info("watching " + folder_.string() + ": " + std::to_string(grabbed_.size()) +
            (grabbed_.size() == 1 ? " hotkey" : " hotkeys") +
            (paused_ ? " (paused)" : ""));
}

// Takes the hotkeys that should be held and gives back the others, leaving
// alone the ones that stay, so a change to one file never opens a gap in
// another's hotkey.
void Daemon::applyGrabs(std::vector<std::string>& problems) {
  std::map<Hotkey, const Binding*> wanted;
  for (const Binding& binding : bindings_)
    if (!paused_ || keptWhilePaused_.count(binding.shortcut)) wanted[binding.hotkey] = &binding;
  for (auto it = grabbed_.begin(); it != grabbed_.end();) {
    if (wanted.count(it->first)) {
      owners_[it->second] = *wanted[it->first];
      ++it;
      continue;
    }
    hotkeys_->release(it->second);
    owners_.erase(it->second);
    it = grabbed_.erase(it);
  }
  for (const auto& [hotkey, binding] : wanted) {
    if (grabbed_.count(hotkey)) continue;
    const GlobalHotkeys::Id id = nextId_++;
    if (auto problem = hotkeys_->grab(id, hotkey)) {
      problems.push_back(grabProblem(*problem, *binding));
      continue;
    }
    grabbed_[hotkey] = id;
    owners_[id] = *binding;
  }
}

// Says each problem once: again only after it has gone and come back.
void Daemon::report(std::vector<std::string> problems, bool replace) {
  std::set<std::string> now(problems.begin(), problems.end());
  for (const std::string& problem : problems)
    if (!reported_.count(problem)) log_.warning(problem);
  if (replace) reported_ = std::move(now);
  else reported_.insert(now.begin(), now.end());
}

// ---- The loop ----

int Daemon::run(std::unique_ptr<FolderWatch> watch) {
  watch_ = std::move(watch);
  reload();
  while (step(std::chrono::milliseconds(-1))) {
  }
  log_.info("stopped");
  return 0;
}

bool Daemon::step(std::chrono::milliseconds timeout) {
  if (quitting_) return false;
  // Presses a grab's round trip read off the connection wait in the
  // hotkeys' own queue, where poll cannot see them.
  handlePresses();
  pollfd fds[3] = {{hotkeys_->descriptor(), POLLIN, 0}, {wakePipe_[0], POLLIN, 0}, {-1, POLLIN, 0}};
  if (watch_) fds[2].fd = watch_->descriptor();
  // Idle, the loop sleeps in poll without a timeout: it wakes only for a
  // press, a change of the folder, or a request.
  int wait = timeout.count() < 0 ? -1 : static_cast<int>(timeout.count());
  if (reloadAt_) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*reloadAt_ - std::chrono::steady_clock::now());
    // Rounded up, so that poll does not return just short of the time and
    // spin through the last fraction of a millisecond.
    const int settle = static_cast<int>(std::max<std::int64_t>(0, left.count() + 1));
    wait = wait < 0 ? settle : std::min(wait, settle);
  }
  const int ready = ::poll(fds, 3, wait);
  if (ready < 0 && errno != EINTR) {
    log_.error(std::string("waiting for hotkeys failed: ") + std::strerror(errno));
    return false;
  }
  // Presses first: a press that came with a change of the folder belongs to
  // the hotkeys that were there when it was made.
  handlePresses();
  if (fds[1].revents & POLLIN) {
    char drain[64];
    while (::read(wakePipe_[0], drain, sizeof drain) > 0) {
    }
  }
  handleCommands();
  if (signalled_) quitting_ = true;
  if (watch_ && (fds[2].revents & POLLIN) && watch_->takeChanges())
    reloadAt_ = std::chrono::steady_clock::now() + kSettle;
  if (reloadAt_ && std::chrono::steady_clock::now() >= *reloadAt_) {
    reloadAt_.reset();
    reload();
  }
  return !quitting_;
}

void Daemon::handlePresses() {
  for (const GlobalHotkeys::Press& press : hotkeys_->takePresses()) {
    auto owner = owners_.find(press.id);
    if (owner == owners_.end()) continue;  // given back since
    start(owner->second.shortcut, hotkeyText(owner->second.hotkey));
  }
}

void Daemon::start(const std::string& name, const std::string& trigger) {
  {
    std::lock_guard lock(mutex_);
    if (!busy_.insert(name).second) {
      log_.info(orla::quoted(name) + " is still running; " + trigger + " is ignored until it ends");
      return;
    }
    queue_.push_back({name, trigger});
  }
  changed_.notify_all();
}

void Daemon::requestQuit() { post(Command::quit); }

void Daemon::quitFromSignal() noexcept {
  signalled_ = true;
  const char byte = 1;
  (void)!::write(wakePipe_[1], &byte, 1);
}

void Daemon::post(Command command) {
  {
    std::lock_guard lock(mutex_);
    commands_.push_back(command);
  }
  wake();
}

void Daemon::wake() {
  const char byte = 1;
  (void)!::write(wakePipe_[1], &byte, 1);
}

void Daemon::handleCommands() {
  std::vector<Command> commands;
  {
    std::lock_guard lock(mutex_);
    commands.swap(commands_);
  }
  for (Command command : commands) {
    if (command == Command::quit) {
      quitting_ = true;
      continue;
    }
    paused_ = !paused_;
    std::vector<std::string> problems;
    applyGrabs(problems);
    report(std::move(problems), false);
    log_.info(paused_ ? "hotkeys paused" : "hotkeys resumed");
  }
}

// ---- Runs (worker thread) ----

void Daemon::workerLoop() {
  // One runner for every run: made once, so that a press does not wait for
  // the plugins to be made. Its printed lines go nowhere; the results reach
  // the log through the observer each run sets.
  std::ostream discarded(nullptr);
  Output output(discarded, false);
  HostRunner runner(platform_, output);
  for (;;) {
    Queued next;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
      if (stopping_) return;
      next = queue_.front();
      queue_.pop_front();
    }
    runOne(runner, next);
    {
      std::lock_guard lock(mutex_);
      busy_.erase(next.name);
    }
    changed_.notify_all();
    platform_->mainThread().wake();
  }
}

void Daemon::runOne(HostRunner& runner, const Queued& queued) {
  std::shared_ptr<const std::vector<Shortcut>> library;
  {
    std::lock_guard lock(mutex_);
    library = library_;
  }
  const Shortcut* shortcut = nullptr;
  for (const Shortcut& candidate : *library)
    if (candidate.name == queued.name) shortcut = &candidate;
  if (!shortcut) {
    log_.warning(orla::quoted(queued.name) + " is no longer in " + folder_.string());
    return;
  }
  // Keys posted while the user still holds the hotkey would carry its
  // modifiers (⌘C would arrive as ⌃⌥⌘C), so the run waits for them to be
  // let go of.
  if (!hotkeys_->waitForModifiersReleased(kReleaseWait))
    log_.info("the keys of " + queued.trigger + " are still held; " + orla::quoted(queued.name) + " runs anyway");
  RunRecord record{queued.name, queued.trigger, true, {}, std::chrono::system_clock::now()};
  runner.setLibrary(library);
  runner.setResultObserver([&](std::string_view kind, const PluginResult& result) {
    if (result.isFailure() && record.ok) {
      record.ok = false;
      record.message = result.message();
      log_.error(orla::quoted(queued.name) + " failed at " + std::string(kind) + ": " + result.message());
    }
  });
  runner.setRequestHandler([&](const std::string& action) { handleRequest(action, *shortcut); });
  runner.runShortcut(*shortcut);
  platform_->scheduler().waitUntilIdle();
  runner.setResultObserver({});
  runner.setRequestHandler({});
  if (record.ok) log_.info(orla::quoted(queued.name) + " ran (" + queued.trigger + ")");
  {
    std::lock_guard lock(mutex_);
    history_.push_back(record);
    if (history_.size() > kReportLength) history_.pop_front();
  }
  if (!record.ok)
    if (auto shown = desktop_->showNotice(queued.name + " failed", record.message); !shown)
      log_.warning("the failure of " + orla::quoted(queued.name) + " could not be shown: " + shown.error());
}

void Daemon::handleRequest(const std::string& action, const Shortcut& shortcut) {
  Checked<void> done;
  if (action == "quit") {
    post(Command::quit);
  } else if (action == "toggleEngine") {
    post(Command::togglePause);
  } else if (action == "openEditor") {
    done = desktop_->openInTextEditor(shortcut.file);
  } else if (action == "openPreferences") {
    done = desktop_->openFolder(folder_);
  } else if (action == "showReport") {
    done = desktop_->showNotice("orla: recent runs", reportText());
  } else if (action == "lastAction") {
    enqueueFromHistory(1, shortcut.name);
  } else if (action == "previousAction") {
    enqueueFromHistory(2, shortcut.name);
  } else {
    done = fail("there is no editor here whose action could be tested");
  }
  if (!done) log_.warning(orla::quoted(shortcut.name) + " asked for " + action + ": " + done.error());
}

// Repeats the run `back` places before the current one (1: the last).
void Daemon::enqueueFromHistory(std::size_t back, const std::string& current) {
  std::string name;
  {
    std::lock_guard lock(mutex_);
    std::size_t seen = 0;
    for (auto it = history_.rbegin(); it != history_.rend(); ++it)
      if (it->shortcut != current && ++seen == back) {
        name = it->shortcut;
        break;
      }
    if (!name.empty() && busy_.insert(name).second) queue_.push_back({name, "repeat"});
    else if (name.empty()) log_.info(orla::quoted(current) + " asked for a repeat, and there is no run to repeat");
  }
  changed_.notify_all();
}

std::string Daemon::reportText() const {
  std::lock_guard lock(mutex_);
  if (history_.empty()) return "No shortcut has run yet.";
  std::string text;
  for (auto it = history_.rbegin(); it != history_.rend(); ++it) {
    if (!text.empty()) text += '\n';
    text += clockTime(it->started) + " " + it->shortcut + " (" + it->trigger + "): " +
            (it->ok ? "done" : "failed: " + it->message);
  }
  return text;
}

void Daemon::waitUntilIdle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return busy_.empty(); });
}

bool Daemon::idle() const {
  std::lock_guard lock(mutex_);
  return busy_.empty();
}

void Daemon::dropQueued() {
  std::lock_guard lock(mutex_);
  for (const Queued& queued : queue_) busy_.erase(queued.name);
  queue_.clear();
}

std::vector<Daemon::RunRecord> Daemon::history() const {
  std::lock_guard lock(mutex_);
  return {history_.begin(), history_.end()};
}

}  // namespace orla::cli
