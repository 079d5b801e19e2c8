// The JavaScript worker's walls, seen from inside and checked from outside:
// what a script (or the worker's own code, once sandboxed) tries to reach
// must not appear on disk or reach a server on loopback, and every attempt
// ends in its sentence.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/posix/posix_processes.h"
#include "plugins/scripts/javascript_plugin.h"
#include "tests/sim_fixture.h"
#include "tests/support/javascript_worker.h"

namespace orla {
namespace {

namespace fs = std::filesystem;

// A TCP server on 127.0.0.1 that only counts the connections made to it.
class CountingServer {
 public:
  CountingServer() {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(fd_, 16) != 0) return;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      while (!stop_) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, 20) == 1) {
          const int client = ::accept(fd_, nullptr, nullptr);
          if (client >= 0) {
            ++count_;
            ::close(client);
          }
        }
      }
    });
  }
  ~CountingServer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    ::close(fd_);
  }
  int port() const { return port_; }
  int connections() const { return count_; }

 private:
  int fd_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> count_{0};
  std::thread thread_;
};

bool connectTo(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return ok;
}

class JavaScriptSandboxTest : public testing::SimTest {
 protected:
  JavaScriptSandboxTest() {
    useBuiltJavaScriptWorker();
    folder = fs::temp_directory_path() / ("orla-js-sandbox-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder);
    forbidden = folder / "must-not-appear";
  }
  ~JavaScriptSandboxTest() override { fs::remove_all(folder); }

  // Waits until the counting server has seen what it is going to see.
  int connectionsAfterSettling(const CountingServer& server) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return server.connections();
  }

  fs::path folder, forbidden;
};

// The worker's own code, once inside, cannot create a file, open or connect
// a socket, start a process or run a program.
TEST_F(JavaScriptSandboxTest, TheSandboxRefusesFilesSocketsAndProcessesFromInside) {
  CountingServer server;
  ASSERT_NE(server.port(), 0);
  ASSERT_TRUE(connectTo(server.port()));  // the server counts what reaches it
  ASSERT_EQ(connectionsAfterSettling(server), 1);

  posix::PosixProcesses processes;
  CapturedOutput out, err;
  auto exit = processes.run({ORLA_TEST_JAVASCRIPT_WORKER,
                             {"--probe-sandbox", forbidden.string(), std::to_string(server.port())}, {}},
                            out, err);
  ASSERT_TRUE(exit);
  EXPECT_EQ(exit->status, 0);
  EXPECT_EQ(out.bytes(),
            "open refused: Operation not permitted\n"
            "socket refused: Operation not permitted\n"
            "connect refused: Operation not permitted\n"
            "fork refused: Operation not permitted\n"
            "exec refused: Operation not permitted\n");
  EXPECT_FALSE(fs::exists(forbidden));
  EXPECT_EQ(connectionsAfterSettling(server), 1);
}

// Scripts that try to get out, or to exhaust the worker, each end in their
// sentence, and nothing outside has been touched.
TEST_F(JavaScriptSandboxTest, ScriptsThatReachOutOrRunAwayEndInTheirSentences) {
  CountingServer server;
  ASSERT_NE(server.port(), 0);
  const std::string path = forbidden.string();
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
  const auto stoppedWith = [](std::string error) {
    return "The script stopped with an error on line 1: " + error + ". Fix it, then click Test again.";
  };
  struct Case {
    std::string script;
    std::string expected;
    // The allocation gets room to reach the memory ceiling before its time
    // is up, even on a busy machine.
    double timeLimit = 0.5;
  };
  const Case cases[] = {
      {"readTextFile('" + path + "')", stoppedWith("ReferenceError: Can't find variable: readTextFile")},
      {"open('" + path + "', 'w')", stoppedWith("ReferenceError: Can't find variable: open")},
      {"require('fs').writeFileSync('" + path + "', 'x')", stoppedWith("ReferenceError: Can't find variable: require")},
      {"fetch('" + url + "')", stoppedWith("ReferenceError: Can't find variable: fetch")},
      {"new XMLHttpRequest()", stoppedWith("ReferenceError: Can't find variable: XMLHttpRequest")},
      {"new WebSocket('ws://127.0.0.1:" + std::to_string(server.port()) + "')",
       stoppedWith("ReferenceError: Can't find variable: WebSocket")},
      {"httpGet('" + url + "')", stoppedWith("ReferenceError: Can't find variable: httpGet")},
      {"require('child_process').execSync('touch " + path + "')",
       stoppedWith("ReferenceError: Can't find variable: require")},
      {"typeof process + typeof load + typeof readFile + typeof run + typeof print",
       "undefinedundefinedundefinedundefinedundefined"},
      {"new Uint8Array(2 ** 31).fill(1).length",
       "The script used more than 256 MB of memory and was stopped. Make it use less memory, then click Test again.",
       60},
      {"for (;;) {}",
       "The script ran longer than its time limit of 0.5 seconds and was stopped. Make it faster, or raise the time "
       "limit (at most 60 seconds)."},
      {"(function f() { return f() + 1; })()", stoppedWith("RangeError: Maximum call stack size exceeded")},
      {"'x'.repeat(10 * 1024 * 1024)",
       "The script's result is longer than 1,000,000 characters. Return a shorter text."},
  };
  JavaScriptPlugin plugin(platform);
  for (const Case& c : cases) {
    const PluginResult result = plugin.execute({{"script", c.script}, {"timeLimit", c.timeLimit}});
    EXPECT_EQ(result.message(), c.expected) << c.script;
  }
  // A dynamic import has no module loader to reach the disk or the network.
  EXPECT_TRUE(plugin.execute({{"script", "import('" + url + "')"}}).isFailure());
  EXPECT_TRUE(plugin.execute({{"script", "import('file://" + path + "')"}}).isFailure());
  EXPECT_FALSE(fs::exists(forbidden));
  EXPECT_EQ(connectionsAfterSettling(server), 0);
}

// A worker that stops answering is killed once the time limit and one more
// second have passed; nothing waits longer.
TEST_F(JavaScriptSandboxTest, AWorkerThatHangsIsKilledAfterTheLimitAndASecond) {
  std::ofstream(folder / "hang.sh") << "#!/bin/sh\nprintf '\\022\\000\\000\\000{\"type\":\"started\"}'\nexec sleep 30\n";
  fs::permissions(folder / "hang.sh", fs::perms::owner_all);
  ::setenv("ORLA_JAVASCRIPT_WORKER", (folder / "hang.sh").c_str(), 1);
  JavaScriptPlugin plugin(platform);
  const auto start = std::chrono::steady_clock::now();
  const PluginResult result = plugin.execute({{"script", "1"}, {"timeLimit", 0.1}});
  const auto took = std::chrono::steady_clock::now() - start;
  useBuiltJavaScriptWorker();
  EXPECT_EQ(result, PluginResult::failure("The script ran longer than its time limit of 0.1 seconds and was stopped. "
                                          "Make it faster, or raise the time limit (at most 60 seconds)."));
  EXPECT_GE(took, std::chrono::milliseconds(1100));
  EXPECT_LT(took, std::chrono::seconds(5));
}

}  // namespace
}  // namespace orla
