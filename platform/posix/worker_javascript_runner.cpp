#include "platform/posix/worker_javascript_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "platform/posix/install_locations.h"
#include "platform/posix/javascript_frames.h"

extern char** environ;

namespace orla::posix {

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;
using Kind = JavaScriptOutcome::Kind;
namespace frames = javascript_frames;

// A worker that has not started its engine by then never will.
constexpr std::chrono::seconds kStartLimit{10};
constexpr std::chrono::milliseconds kMemoryInterval{50};

// The resident memory of `pid` in bytes, from the kernel's page counts; 0
// when it cannot be read (the process has just ended).
std::size_t residentBytes(pid_t pid) {
  std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
  std::size_t size = 0, resident = 0;
  if (!(statm >> size >> resident)) return 0;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// Writing to a worker that has died must fail with EPIPE, not end the host
// with SIGPIPE; the signal is held back for this thread while it writes,
// and any one raised is taken back before it is let through again.
class SigpipeHeld {
 public:
  SigpipeHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &old_);
  }
  ~SigpipeHeld() {
    const timespec none{0, 0};
    while (::sigtimedwait(&pipe_, nullptr, &none) == SIGPIPE) {
    }
    ::pthread_sigmask(SIG_SETMASK, &old_, nullptr);
  }
  SigpipeHeld(const SigpipeHeld&) = delete;
  SigpipeHeld& operator=(const SigpipeHeld&) = delete;

 private:
  sigset_t pipe_{}, old_{};
};

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// One worker process with its two pipes; killed and reaped when dropped.
class Worker {
 public:
  bool spawn(const std::string& path) {
    int toWorker[2], fromWorker[2];
    if (::pipe2(toWorker, O_CLOEXEC) != 0) return false;
    Fd toRead(toWorker[0]), toWrite(toWorker[1]);
    if (::pipe2(fromWorker, O_CLOEXEC) != 0) return false;
    Fd fromRead(fromWorker[0]), fromWrite(fromWorker[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toRead.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromWrite.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
    const int error = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      pid_ = -1;
      return false;
    }
    ::fcntl(toWrite.get(), F_SETFL, O_NONBLOCK);
    input_ = std::move(toWrite);
    output_ = std::move(fromRead);
    return true;
  }
  ~Worker() {
    kill();
    reap();
  }
  void kill() {
    if (pid_ > 0 && !reaped_) ::kill(pid_, SIGKILL);
  }
  void reap() {
    if (pid_ <= 0 || reaped_) return;
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
  }
  pid_t pid() const { return pid_; }
  Fd& input() { return input_; }
  Fd& output() { return output_; }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  Fd input_, output_;
};

std::string encoded(const json& message) {
  return frames::encode(message.dump(-1, ' ', false, json::error_handler_t::replace));
}

JavaScriptOutcome outcomeOf(Kind kind) {
  JavaScriptOutcome outcome;
  outcome.kind = kind;
  return outcome;
}

JavaScriptOutcome outcomeFrom(const json& done) {
  static const std::pair<std::string_view, Kind> kKinds[] = {
      {"value", Kind::value},         {"none", Kind::none},
      {"syntaxError", Kind::syntaxError}, {"thrown", Kind::thrown},
      {"timedOut", Kind::timedOut},   {"neverSettled", Kind::neverSettled},
      {"resultTooLong", Kind::resultTooLong},
  };
  JavaScriptOutcome outcome = outcomeOf(Kind::endedUnexpectedly);
  const std::string kind = done.value("kind", "");
  for (const auto& [name, value] : kKinds)
    if (name == kind) outcome.kind = value;
  outcome.value = done.value("value", "");
  outcome.message = done.value("message", "");
  if (auto line = done.find("line"); line != done.end() && line->is_number_integer()) outcome.line = line->get<int>();
  if (auto console = done.find("console"); console != done.end() && console->is_array())
    for (const json& entry : *console)
      if (entry.is_string()) outcome.console.push_back(entry.get<std::string>());
  return outcome;
}

// One run, from the request sent to the outcome read or decided.
class Run {
 public:
  Run(Worker& worker, const JavaScriptLimits& limits, JavaScriptHostFunctions& host)
      : worker_(worker), limits_(limits), host_(host), spawned_(Clock::now()) {}

  JavaScriptOutcome drive(std::string request) {
    pending_ = std::move(request);
    SigpipeHeld held;
    auto nextSample = Clock::now();
    for (;;) {
      const auto now = Clock::now();
      if (!started_ && now - spawned_ >= kStartLimit) return stop(Kind::failedToStart);
      if (started_ && now >= killAt()) return stop(Kind::timedOut);
      if (now >= nextSample) {
        if (residentBytes(worker_.pid()) > limits_.memoryBytes) return stop(Kind::memoryExceeded);
        nextSample = now + kMemoryInterval;
      }
      if (auto outcome = step(nextSample)) return std::move(*outcome);
    }
  }

 private:
  Clock::time_point killAt() const {
    return scriptStart_ + std::chrono::duration_cast<Clock::duration>(limits_.time + std::chrono::seconds(1));
  }

  JavaScriptOutcome stop(Kind kind) {
    worker_.kill();
    worker_.reap();
    return outcomeOf(kind);
  }

  // Waits for the pipes until `until` at most and handles what they bring;
  // an outcome once the run is over.
  std::optional<JavaScriptOutcome> step(Clock::time_point until) {
    pollfd fds[2] = {{worker_.output().get(), POLLIN, 0}, {worker_.input().get(), POLLOUT, 0}};
    const nfds_t count = pending_.empty() || worker_.input().get() < 0 ? 1 : 2;
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    const int ready = ::poll(fds, count, static_cast<int>(std::clamp<long long>(wait, 0, 50)));
    if (ready < 0) return errno == EINTR ? std::nullopt : std::optional(stop(Kind::endedUnexpectedly));
    if (count == 2 && (fds[1].revents & (POLLOUT | POLLERR | POLLHUP))) writePending();
    if (!(fds[0].revents & (POLLIN | POLLHUP | POLLERR))) return std::nullopt;
    char buffer[65536];
    const ssize_t n = ::read(worker_.output().get(), buffer, sizeof buffer);
    if (n < 0) return errno == EINTR || errno == EAGAIN ? std::nullopt : std::optional(ended());
    if (n == 0) return ended();
    decoder_.append(std::string_view(buffer, static_cast<std::size_t>(n)));
    while (auto payload = decoder_.next()) {
      const json message = json::parse(*payload, nullptr, false);
      if (message.is_discarded() || !message.is_object()) return stop(Kind::endedUnexpectedly);
      const std::string type = message.value("type", "");
      if (type == "started") {
        started_ = true;
        scriptStart_ = Clock::now();
      } else if (type == "call" && started_) {
        // A request that used up the run's time ends the run: its time
        // counts as the script's own.
        if (!answer(message)) return stop(Kind::timedOut);
      } else if (type == "done" && started_) {
        JavaScriptOutcome outcome = outcomeFrom(message);
        stop(Kind::none);
        return outcome;
      } else {
        return stop(Kind::endedUnexpectedly);
      }
    }
    if (decoder_.broken()) return stop(started_ ? Kind::endedUnexpectedly : Kind::failedToStart);
    return std::nullopt;
  }

  void writePending() {
    const ssize_t n = ::write(worker_.input().get(), pending_.data(), pending_.size());
    if (n > 0) pending_.erase(0, static_cast<std::size_t>(n));
    else if (n < 0 && errno != EAGAIN && errno != EINTR) worker_.input().reset();  // the worker has gone
  }

  // The worker's pipe closed: it has ended, or is of no more use and is
  // ended here, so that a worker that closed its output and lingers is not
  // waited for.
  JavaScriptOutcome ended() {
    worker_.kill();
    worker_.reap();
    return outcomeOf(started_ ? Kind::endedUnexpectedly : Kind::failedToStart);
  }

  // False when the time limit has passed by the time the answer is ready.
  bool answer(const json& call) {
    const std::string name = call.value("name", "");
    const std::string argument = call.value("argument", "");
    const auto left = scriptStart_ + std::chrono::duration_cast<Clock::duration>(limits_.time) - Clock::now();
    Checked<std::string> result = fail("The time limit has been reached.");
    if (left > Clock::duration::zero()) {
      if (name == "readTextFile" && host_.allowsFileRead()) result = host_.readTextFile(argument);
      else if (name == "httpGet" && host_.allowsNetwork())
        result = host_.httpGet(argument, std::chrono::duration<double>(left));
      else result = fail(name + " is not available.");
    }
    pending_ += result ? encoded({{"ok", true}, {"text", *result}}) : encoded({{"ok", false}, {"text", result.error()}});
    return Clock::now() < scriptStart_ + std::chrono::duration_cast<Clock::duration>(limits_.time);
  }

  Worker& worker_;
  const JavaScriptLimits& limits_;
  JavaScriptHostFunctions& host_;
  Clock::time_point spawned_, scriptStart_;
  bool started_ = false;
  std::string pending_;
  frames::Decoder decoder_;
};

class WorkerJavaScriptRunner : public JavaScriptRunner {
 public:
  explicit WorkerJavaScriptRunner(std::optional<std::string> path) : path_(std::move(path)) {}

  JavaScriptOutcome run(const std::string& script, const std::string& input, const JavaScriptLimits& limits,
                        JavaScriptHostFunctions& host) override {
    Worker worker;
    const std::string path = path_ ? *path_ : javaScriptWorkerPath();
    if (path.empty() || !worker.spawn(path)) return outcomeOf(Kind::failedToStart);
    const json request = {{"script", script},
                          {"input", input},
                          {"timeLimit", limits.time.count()},
                          {"fileRead", host.allowsFileRead()},
                          {"network", host.allowsNetwork()},
                          {"resultCharacters", limits.resultCharacters},
                          {"consoleLines", limits.consoleLines},
                          {"consoleCharacters", limits.consoleCharacters}};
    Run run(worker, limits, host);
    return run.drive(encoded(request));
  }

 private:
  std::optional<std::string> path_;
};

}  // namespace

std::string javaScriptWorkerPath() {
  if (const char* given = std::getenv("ORLA_JAVASCRIPT_WORKER"); given && *given) return given;
  if (auto found = findInstalledProgram(kJavaScriptWorkerName)) return found->string();
  // Not found: the path beside the program, which the failure names.
  const auto program = programDirectory();
  return program.empty() ? std::string{} : (program / kJavaScriptWorkerName).string();
}

std::unique_ptr<JavaScriptRunner> makeWorkerJavaScriptRunner(std::optional<std::string> workerPath) {
  return std::make_unique<WorkerJavaScriptRunner>(std::move(workerPath));
}

}  // namespace orla::posix
