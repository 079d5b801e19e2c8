// The JavaScript engine of the worker: one fresh context per run, with the
// script's world (its input, a console, and the host functions the action
// allows), the execution time limit, and the conversion of the completion
// value into the result text.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orla::javascript_worker {

struct RunRequest {
  std::string script;
  std::string input;
  double timeLimit = 5;
  bool fileRead = false;
  bool network = false;
  std::size_t resultCharacters = 1'000'000;
  std::size_t consoleLines = 1000;
  std::size_t consoleCharacters = 100'000;
};

struct RunResult {
  // "value", "none", "syntaxError", "thrown", "timedOut", "neverSettled",
  // "resultTooLong"
  std::string kind;
  std::string value;
  std::optional<int> line;
  std::string message;
  std::vector<std::string> console;
};

// A host function's answer: the text, or the message of the Error to throw.
struct HostAnswer {
  bool ok = false;
  std::string text;
};
// Asks the host to run `name` ("readTextFile" or "httpGet") on `argument`.
using HostCall = std::function<HostAnswer(const std::string& name, const std::string& argument)>;

class Engine {
 public:
  Engine(const RunRequest& request, HostCall host);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Runs a trivial script, so that the engine has made its threads and read
  // what it reads at start-up before the sandbox closes.
  bool warmUp();
  RunResult run();

  struct State;

 private:
  State* state_;
};

}  // namespace orla::javascript_worker
