#include "tests/platform/desktop/gtk_app.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "plugins/input/accessibility_readers.h"

extern char** environ;

namespace orla::desktop_testing {
namespace {

using SteadyClock = std::chrono::steady_clock;

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
  std::vector<std::string> out;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('='));
    if (!changes.contains(name)) out.push_back(entry);
  }
  for (const auto& [name, value] : changes)
    if (!value.empty()) out.push_back(name + "=" + value);
  return out;
}

ProcessId spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, int outFd = -1) {
  std::vector<char*> args, envp;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  for (const auto& e : env) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (outFd >= 0) {
    posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    posix_spawn_file_actions_adddup2(&actions, outFd, 2);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  }
  pid_t pid = 0;
  const int error = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? pid : 0;
}

std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  for (const char* dir : {"/usr/bin", "/usr/local/bin", "/bin"})
    if (::access((std::string(dir) + "/" + name).c_str(), X_OK) == 0) return std::string(dir) + "/" + name;
  return name;
}

}  // namespace

std::string accessibilityBusUnavailableReason() {
  if (!std::getenv("DISPLAY")) return "no X display (scripts/test starts the headless desktop)";
  const auto platform = Platform::current();
  if (!platform->supports(Capability::menuBars)) return "no accessibility bus on this desktop";
  return {};
}

GtkApp::GtkApp(const std::string& program, std::vector<std::string> arguments,
               std::map<std::string, std::string> environment) {
  // The toolkit publishes its interface only when nothing tells it not to.
  environment.emplace("NO_AT_BRIDGE", "");
  const bool publishes = environment["NO_AT_BRIDGE"].empty();
  std::vector<std::string> argv{findProgram(program)};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  pid_ = spawn(argv, environmentWith(environment));
  if (pid_ <= 0) return;
  // Applications register on the bus after their window shows: poll.
  if (publishes) {
    ready_ = waitUntilAnswering(pid_, std::chrono::seconds(15));
    return;
  }
  AXReader reader(Platform::current()->accessibility());
  const auto end = SteadyClock::now() + std::chrono::seconds(15);
  while (!(ready_ = !reader.windows(pid_).empty()) && SteadyClock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

bool GtkApp::waitUntilAnswering(ProcessId pid, std::chrono::milliseconds wait) {
  AXReader reader(Platform::current()->accessibility());
  const auto end = SteadyClock::now() + wait;
  while (SteadyClock::now() < end) {
    if (const auto bar = reader.menuBar(pid); bar && !reader.children(*bar).empty()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

GtkApp::~GtkApp() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGCONT);
  ::kill(pid_, SIGTERM);
  int status = 0;
  for (int i = 0; i < 100; ++i) {
    if (::waitpid(pid_, &status, WNOHANG) == pid_) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, &status, 0);
}

GtkTestApp::GtkTestApp(std::map<std::string, std::string> environment)
    : log_((folder_.path() / "actions.log").string()) {
  app_ = std::make_unique<GtkApp>(ORLA_GTK_TEST_APP, std::vector<std::string>{log_}, std::move(environment));
}

std::vector<std::string> GtkTestApp::lines(std::size_t count, std::chrono::milliseconds wait) const {
  const auto end = SteadyClock::now() + wait;
  std::vector<std::string> out;
  while (true) {
    out.clear();
    std::ifstream in(log_);
    std::string line;
    while (std::getline(in, line))
      if (line != "ready") out.push_back(line);
    if (out.size() >= count || SteadyClock::now() >= end) return out;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

OrlaRun runOrla(const std::string& kind, const std::string& json,
                const std::map<std::string, std::string>& environment) {
  testing::TempFolder folder("orla-run");
  const std::string params = (folder.path() / "params.json").string();
  std::ofstream(params) << json;
  const std::string outPath = (folder.path() / "out.txt").string();
  const int fd = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  OrlaRun run;
  const auto start = SteadyClock::now();
  const ProcessId pid = spawn({ORLA_CLI, "run", kind, "@" + params}, environmentWith(environment), fd);
  ::close(fd);
  int status = 0;
  if (pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.took = std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - start);
  std::ifstream in(outPath);
  std::stringstream text;
  text << in.rdbuf();
  run.output = text.str();
  while (!run.output.empty() && run.output.back() == '\n') run.output.pop_back();
  return run;
}

}  // namespace orla::desktop_testing
