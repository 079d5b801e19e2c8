// orla-javascript-worker: runs one script for orla and ends. It reads one
// request from its standard input, starts the engine, closes itself off from
// files, sockets and processes, says it has started, and answers with the
// outcome on its standard output. The host functions a script may call are
// questions on the same two pipes, answered by the host.
//
// `--probe-sandbox PATH PORT` enters the same sandbox and then tries what a
// script must never manage (create PATH, connect to 127.0.0.1:PORT, start a
// process, run a program), printing one line per attempt; the tests use it
// to see the walls from inside.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/posix/javascript_frames.h"
#include "tools/javascript_worker/engine.h"
#include "tools/javascript_worker/sandbox.h"

namespace {

using nlohmann::json;
using namespace orla::javascript_worker;
namespace frames = orla::javascript_frames;

bool writeAll(int fd, const std::string& bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + at, bytes.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    at += static_cast<std::size_t>(n);
  }
  return true;
}

bool send(const json& message) {
  return writeAll(STDOUT_FILENO, frames::encode(message.dump(-1, ' ', false, json::error_handler_t::replace)));
}

// The next message from the host; none when the pipe ends or breaks.
std::optional<json> receive(frames::Decoder& decoder) {
  char buffer[65536];
  for (;;) {
    if (auto payload = decoder.next()) {
      json message = json::parse(*payload, nullptr, false);
      if (message.is_discarded() || !message.is_object()) return std::nullopt;
      return message;
    }
    if (decoder.broken()) return std::nullopt;
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    decoder.append(std::string_view(buffer, static_cast<std::size_t>(n)));
  }
}

std::string outcome(int result) { return result >= 0 ? "allowed" : std::string("refused: ") + std::strerror(errno); }

int probeSandbox(const char* path, int port) {
  if (!forbidNewPrivileges() || !enterSandbox()) return 3;
  std::string report;
  const int file = ::open(path, O_WRONLY | O_CREAT, 0600);
  report += "open " + outcome(file) + "\n";
  const int sock = ::socket(AF_INET, SOCK_STREAM, 0);
  report += "socket " + outcome(sock) + "\n";
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  report += "connect " + outcome(::connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address)) + "\n";
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  if (child > 0) ::waitpid(child, nullptr, 0);
  report += "fork " + outcome(child) + "\n";
  char program[] = "/bin/true";
  char* const arguments[] = {program, nullptr};
  report += "exec " + outcome(::execve(program, arguments, nullptr)) + "\n";
  return writeAll(STDOUT_FILENO, report) ? 0 : 1;
}

RunRequest requestFrom(const json& message) {
  RunRequest request;
  request.script = message.value("script", "");
  request.input = message.value("input", "");
  request.timeLimit = message.value("timeLimit", 5.0);
  request.fileRead = message.value("fileRead", false);
  request.network = message.value("network", false);
  request.resultCharacters = message.value("resultCharacters", request.resultCharacters);
  request.consoleLines = message.value("consoleLines", request.consoleLines);
  request.consoleCharacters = message.value("consoleCharacters", request.consoleCharacters);
  return request;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--probe-sandbox") == 0) return probeSandbox(argv[2], std::atoi(argv[3]));
  // Whatever the host left open beyond the two pipes and the null device is
  // not the worker's to use.
  ::close_range(3, ~0U, 0);
  if (!forbidNewPrivileges()) return 2;

  frames::Decoder decoder;
  const auto first = receive(decoder);
  if (!first) return 2;
  const RunRequest request = requestFrom(*first);

  bool pipeBroken = false;
  HostCall host = [&](const std::string& name, const std::string& argument) {
    HostAnswer answer;
    answer.text = "Cannot reach the host";
    if (pipeBroken || !send({{"type", "call"}, {"name", name}, {"argument", argument}})) return answer;
    const auto reply = receive(decoder);
    if (!reply) {
      pipeBroken = true;
      return answer;
    }
    answer.ok = reply->value("ok", false);
    answer.text = reply->value("text", "");
    return answer;
  };

  Engine engine(request, host);
  if (!engine.warmUp() || !enterSandbox()) return 2;
  if (!send({{"type", "started"}})) return 2;

  const RunResult result = engine.run();
  json done = {{"type", "done"}, {"kind", result.kind}, {"value", result.value}, {"message", result.message},
               {"console", result.console}};
  if (result.line) done["line"] = *result.line;
  return send(done) ? 0 : 1;
}
