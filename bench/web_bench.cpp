// Sequential web requests to a server on the loopback interface: 1,000
// through WebAPIPlugin (one process, the shared HTTP session and its reused
// connection) against the same 1,000 made by the `curl` tool, one process
// each, in the same run and against the same server. The goal is for the
// plugin to manage at least five times the tool's rate.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <string>

#include "plugins/scripts/web_api_plugin.h"
#include "tests/support/test_http_server.h"

extern char** environ;

namespace {

using orla::testing::Reply;
using orla::testing::TestHttpServer;

constexpr int kRequests = 1000;

TestHttpServer& server() {
  static TestHttpServer instance;
  static const bool ready = [] {
    // A small JSON answer, as a status endpoint sends.
    instance.reply("/status", Reply::json(200, {{"status", "ok"}, {"build", 4213}, {"queue", {1, 2, 3}}}));
    return true;
  }();
  (void)ready;
  return instance;
}

std::map<std::string, double>& rates() {
  static std::map<std::string, double> measured;
  return measured;
}

// Requests per second over the whole loop, as a counter and for the ratio
// printed after the run.
void report(benchmark::State& state, const char* name, std::chrono::steady_clock::time_point started) {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  state.counters["requests/s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  rates()[name] = static_cast<double>(state.iterations()) / seconds.count();
}

void WebAPIPlugin_Loopback(benchmark::State& state) {
  orla::WebAPIPlugin plugin(orla::makeNativePlatform());
  const orla::ActionData data{{"url", server().url("/status")}, {"headers", R"({"Accept": "application/json"})"}};
  const auto started = std::chrono::steady_clock::now();
  for (auto _ : state) {
    const orla::PluginResult result = plugin.execute(data);
    if (result.isFailure()) state.SkipWithError(result.message().c_str());
    benchmark::DoNotOptimize(result);
  }
  report(state, "plugin", started);
}

void CurlTool_Loopback(benchmark::State& state) {
  const std::string url = server().url("/status");
  // --compressed: the same Accept-Encoding (and decoding) as the HTTP service.
  const char* argv[] = {"curl", "--silent", "--show-error", "--fail", "--compressed", "--output", "/dev/null",
                        "--header", "Accept: application/json", url.c_str(), nullptr};
  const auto started = std::chrono::steady_clock::now();
  for (auto _ : state) {
    pid_t pid = 0;
    if (posix_spawnp(&pid, "curl", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
      state.SkipWithError("the curl tool could not be started");
      break;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("curl failed");
  }
  report(state, "curl", started);
}

BENCHMARK(WebAPIPlugin_Loopback)->Iterations(kRequests)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(CurlTool_Loopback)->Iterations(kRequests)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  auto& measured = rates();
  if (measured.count("plugin") && measured.count("curl") && measured["curl"] > 0) {
    std::printf("\nplugin %.0f requests/s, curl tool %.0f requests/s: the plugin is %.1f times as fast (goal: 5)\n",
                measured["plugin"], measured["curl"], measured["plugin"] / measured["curl"]);
  }
  return 0;
}
