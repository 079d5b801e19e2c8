#include "platform/posix/posix_processes.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <thread>
#include <utility>

extern char** environ;

namespace orla::posix {

namespace {

// A file descriptor closed when it goes out of scope.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  Descriptor read;
  Descriptor write;
};

// Both ends close on exec, so that a program started by another thread at
// the same moment does not inherit them and keep the pipe open.
Checked<Pipe> makePipe() {
  int fds[2];
#if defined(__linux__) || defined(__FreeBSD__)
  if (::pipe2(fds, O_CLOEXEC) != 0) return fail(std::string("Could not create a pipe: ") + ::strerror(errno) + ".");
#else
  if (::pipe(fds) != 0) return fail(std::string("Could not create a pipe: ") + ::strerror(errno) + ".");
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#endif
  Pipe pipe{Descriptor(fds[0]), Descriptor(fds[1])};
#ifdef F_SETPIPE_SZ
  // A larger pipe means fewer switches between the child and this reader
  // when a program writes a lot; the system may grant less, which is fine.
  ::fcntl(pipe.write.get(), F_SETPIPE_SZ, 1 << 20);
#endif
  return pipe;
}

class SpawnActions {
 public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

class SpawnAttributes {
 public:
  SpawnAttributes() { ::posix_spawnattr_init(&attributes_); }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

// What every child gets: the null device for whatever the caller does not
// connect, no other descriptor of this process, an empty signal mask and
// the default action for every signal (a host that ignores SIGPIPE would
// otherwise pass that on, and `yes | head` would never end).
// `out` and `err` are the write ends of the output pipes; without them the
// output goes to the null device.
Checked<void> prepare(const ProcessLaunch& launch, SpawnActions& actions, SpawnAttributes& attributes,
                      short extraFlags, const Pipe* out, const Pipe* err) {
  // The system would cut each text at a NUL and run a different command.
  auto hasNul = [](std::string_view text) { return text.find('\0') != std::string_view::npos; };
  if (hasNul(launch.executable) || hasNul(launch.workingDirectory) ||
      std::any_of(launch.arguments.begin(), launch.arguments.end(), hasNul))
    return fail("The command holds a NUL character, which cannot be passed on.");
  auto* a = actions.get();
  ::posix_spawn_file_actions_addopen(a, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (out && err) {
    ::posix_spawn_file_actions_adddup2(a, out->write.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(a, err->write.get(), STDERR_FILENO);
  } else {
    ::posix_spawn_file_actions_addopen(a, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(a, STDOUT_FILENO, STDERR_FILENO);
  }
  if (!launch.workingDirectory.empty()) {
    // Checked here: a folder that is missing at spawn time would be
    // reported with the same error as a missing program.
    struct stat info {};
    if (::stat(launch.workingDirectory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
      return fail("The folder “" + launch.workingDirectory + "” doesn’t exist.");
    ::posix_spawn_file_actions_addchdir_np(a, launch.workingDirectory.c_str());
  }
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | extraFlags;
#if defined(POSIX_SPAWN_CLOEXEC_DEFAULT)
  flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#elif defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
  // Last, after the pipes are in place.
  ::posix_spawn_file_actions_addclosefrom_np(a, STDERR_FILENO + 1);
#endif
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  sigdelset(&all, SIGKILL);
  sigdelset(&all, SIGSTOP);
  ::posix_spawnattr_setsigmask(attributes.get(), &none);
  ::posix_spawnattr_setsigdefault(attributes.get(), &all);
  ::posix_spawnattr_setflags(attributes.get(), flags);
  return {};
}

// argv: the program's path as its own name, then the arguments.
std::vector<char*> argumentVector(const ProcessLaunch& launch) {
  std::vector<char*> argv;
  argv.reserve(launch.arguments.size() + 2);
  argv.push_back(const_cast<char*>(launch.executable.c_str()));
  for (const std::string& argument : launch.arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  return argv;
}

Checked<pid_t> spawn(const ProcessLaunch& launch, SpawnActions& actions, SpawnAttributes& attributes) {
  if (launch.executable.empty() || launch.executable.front() != '/')
    return fail("The program “" + launch.executable + "” must be given by its full path.");
  auto argv = argumentVector(launch);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, launch.executable.c_str(), actions.get(), attributes.get(), argv.data(),
                                  environ);
  if (error != 0) return fail(launchErrorDescription(error, launch.executable));
  return pid;
}

int waitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

// Reads both pipes until each is closed, handing every chunk to its sink.
void drain(Descriptor& out, Descriptor& err, OutputSink& standardOutput, OutputSink& standardError) {
  constexpr std::size_t kChunk = std::size_t{1} << 18;
  auto buffer = std::make_unique<char[]>(kChunk);
  std::array<pollfd, 2> fds{pollfd{out.get(), POLLIN, 0}, pollfd{err.get(), POLLIN, 0}};
  std::array<OutputSink*, 2> sinks{&standardOutput, &standardError};
  std::array<Descriptor*, 2> owners{&out, &err};
  for (;;) {
    int open = 0;
    for (const pollfd& p : fds) open += p.fd >= 0;
    if (open == 0) return;
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t n = ::read(fds[i].fd, buffer.get(), kChunk);
      if (n > 0) {
        sinks[i]->append(std::string_view(buffer.get(), static_cast<std::size_t>(n)));
      } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        owners[i]->reset();
        fds[i].fd = -1;  // poll skips negative descriptors
      }
    }
  }
}

}  // namespace

std::string launchErrorDescription(int error, std::string_view executable) {
  const std::string name = "“" + std::string(executable) + "”";
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return "The file " + name + " doesn’t exist.";
    case EACCES:
    case EPERM:
      return "You don’t have permission to run " + name + ".";
    case ENOEXEC:
      return "The file " + name + " is not a program this system can run.";
    case EISDIR:
      return "The file " + name + " is a folder, not a program.";
    case E2BIG:
      return "The arguments for " + name + " are longer than the system allows.";
    default:
      return "Could not start " + name + ": " + ::strerror(error) + ".";
  }
}

Checked<ProcessExit> PosixProcesses::run(const ProcessLaunch& launch, OutputSink& standardOutput,
                                         OutputSink& standardError) {
  auto madeOut = makePipe();
  if (!madeOut) return fail(madeOut.error());
  auto madeErr = makePipe();
  if (!madeErr) return fail(madeErr.error());
  Pipe out = std::move(madeOut).value();
  Pipe err = std::move(madeErr).value();
  SpawnActions actions;
  SpawnAttributes attributes;
  if (auto prepared = prepare(launch, actions, attributes, 0, &out, &err); !prepared)
    return fail(prepared.error());

  auto pid = spawn(launch, actions, attributes);
  // The child has its own copies of the write ends; with ours closed, the
  // pipes end when the child (and whatever it left running) closes them.
  out.write.reset();
  err.write.reset();
  if (!pid) return fail(pid.error());

  try {
    drain(out.read, err.read, standardOutput, standardError);
  } catch (...) {
    // A sink that gives up (out of memory) must not leave a child behind.
    ::kill(*pid, SIGKILL);
    waitFor(*pid);
    throw;
  }
  const int status = waitFor(*pid);
  if (status < 0) return fail("Could not learn how “" + launch.executable + "” ended.");
  if (WIFSIGNALED(status)) return ProcessExit{ProcessExit::Reason::signalled, WTERMSIG(status)};
  return ProcessExit{ProcessExit::Reason::exited, WEXITSTATUS(status)};
}

Checked<void> PosixProcesses::start(const ProcessLaunch& launch) {
  SpawnActions actions;
  SpawnAttributes attributes;
  // A process group of its own: the terminal's Control-C to the host does
  // not reach it.
  if (auto prepared = prepare(launch, actions, attributes, POSIX_SPAWN_SETPGROUP, nullptr, nullptr); !prepared)
    return fail(prepared.error());
  ::posix_spawnattr_setpgroup(attributes.get(), 0);
  auto pid = spawn(launch, actions, attributes);
  if (!pid) return fail(pid.error());
  // Nobody waits for the program, but its end must be collected so that it
  // does not linger as a zombie while the host runs.
  std::thread([child = *pid] { waitFor(child); }).detach();
  return {};
}

}  // namespace orla::posix
