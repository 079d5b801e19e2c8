#include "tests/support/test_print_server.h"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <thread>

extern char** environ;

namespace orla::testing {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDaemon = "/usr/sbin/cupsd";

// A backend that writes each job's document to "<device path>-<job id>".
constexpr const char* kCaptureBackend =
    "#!/bin/sh\n"
    "[ $# -eq 0 ] && { echo 'direct capture \"Unknown\" \"Test capture\"'; exit 0; }\n"
    "out=\"${DEVICE_URI#capture:}\"\n"
    "if [ -n \"$6\" ]; then cat \"$6\"; else cat; fi > \"$out-$1.part\" && mv \"$out-$1.part\" \"$out-$1\"\n";

bool accepts(const std::string& socketPath) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  ::close(fd);
  return connected;
}

}  // namespace

std::unique_ptr<TestPrintServer> TestPrintServer::start(const std::vector<std::string>& printers, std::string& whyNot) {
  if (::access(kDaemon, X_OK) != 0) {
    whyNot = "cupsd is not installed here (Debian package cups-daemon)";
    return nullptr;
  }
  for (const char* tool : {"/usr/bin/lpr", "/usr/bin/lpstat", "/usr/bin/lpoptions"})
    if (::access(tool, X_OK) != 0) {
      whyNot = std::string(tool) + " is not installed here (Debian packages cups-client and cups-bsd)";
      return nullptr;
    }
  std::unique_ptr<TestPrintServer> server(new TestPrintServer());
  const TempFolder& root = server->folder_;
  const std::string socket = root / "cups.sock";
  if (socket.size() >= sizeof(sockaddr_un{}.sun_path)) {
    whyNot = "the temporary folder's path is too long for a socket";
    return nullptr;
  }
  for (const char* sub : {"conf", "spool", "cache", "state", "log", "out", "home", "bin/backend"})
    fs::create_directories(root.path() / sub);
  fs::create_directory_symlink("/usr/lib/cups/daemon", root.path() / "bin/daemon");
  const std::string backend = root.write("bin/backend/capture", kCaptureBackend);
  // Owner-only: the server runs such a backend with its own rights.
  fs::permissions(backend, fs::perms::owner_all, fs::perm_options::replace);
  root.write("conf/cupsd.conf",
             "Listen " + socket +
                 "\nLogLevel warn\nWebInterface No\nBrowsing No\nDefaultAuthType None\n"
                 "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
                 "<Policy default>\n  <Limit All>\n    Order deny,allow\n    Allow all\n  </Limit>\n</Policy>\n");
  const std::string base = root.path().string();
  root.write("conf/cups-files.conf", "ServerRoot " + base + "/conf\nServerBin " + base + "/bin\nRequestRoot " + base +
                                         "/spool\nCacheDir " + base + "/cache\nStateDir " + base + "/state\nTempDir " +
                                         base + "/spool\nErrorLog " + base + "/log/error_log\nAccessLog " + base +
                                         "/log/access_log\nPageLog " + base + "/log/page_log\n");
  std::string queues;
  for (std::size_t i = 0; i < printers.size(); ++i) {
    const std::string section = i == 0 ? "DefaultPrinter" : "Printer";
    queues += "<" + section + " " + printers[i] + ">\nDeviceURI capture:" + base + "/out/" + printers[i] +
              "\nState Idle\nAccepting Yes\nShared No\n</" + section + ">\n";
  }
  root.write("conf/printers.conf", queues);

  const std::string conf = root / "conf/cupsd.conf", files = root / "conf/cups-files.conf";
  const char* argv[] = {kDaemon, "-f", "-c", conf.c_str(), "-s", files.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string log = root / "log/cupsd.out";
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  const int spawned = posix_spawn(&server->pid_, kDaemon, &actions, nullptr, const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    server->pid_ = 0;
    whyNot = "cupsd could not be started";
    return nullptr;
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!accepts(socket)) {
    int status = 0;
    if (::waitpid(server->pid_, &status, WNOHANG) == server->pid_) {
      server->pid_ = 0;
      whyNot = "cupsd stopped at once: " + root.read("log/cupsd.out") + root.read("log/error_log");
      return nullptr;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      whyNot = "cupsd did not open its socket within 10 seconds";
      return nullptr;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  server->setEnvironment("CUPS_SERVER", socket);
  server->setEnvironment("CUPS_SERVERROOT", base + "/conf");
  server->setEnvironment("HOME", base + "/home");
  return server;
}

void TestPrintServer::setEnvironment(const std::string& name, const std::string& value) {
  if (!savedEnvironment_.count(name)) {
    const char* old = std::getenv(name.c_str());
    savedEnvironment_[name] = old ? std::optional<std::string>(old) : std::nullopt;
  }
  ::setenv(name.c_str(), value.c_str(), 1);
}

TestPrintServer::~TestPrintServer() {
  for (const auto& [name, value] : savedEnvironment_) {
    if (value) ::setenv(name.c_str(), value->c_str(), 1);
    else ::unsetenv(name.c_str());
  }
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
}

std::vector<std::string> TestPrintServer::jobs(const std::string& printer, std::size_t count,
                                               std::chrono::milliseconds wait) const {
  const auto deadline = std::chrono::steady_clock::now() + wait;
  for (;;) {
    std::vector<std::pair<int, std::string>> found;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder_.path() / "out", ec)) {
      const std::string name = entry.path().filename().string();
      const std::string prefix = printer + "-";
      if (!name.starts_with(prefix) || name.ends_with(".part")) continue;
      found.emplace_back(std::atoi(name.c_str() + prefix.size()), folder_.read("out/" + name));
    }
    if (found.size() >= count || std::chrono::steady_clock::now() > deadline) {
      std::sort(found.begin(), found.end());
      std::vector<std::string> documents;
      for (auto& [id, content] : found) documents.push_back(std::move(content));
      return documents;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace orla::testing
