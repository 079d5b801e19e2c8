// The JavaScript action's cost as the user feels it: from the request to the
// result, with a fresh worker (process start, engine start and sandbox
// included) on every run.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/posix/worker_javascript_runner.h"

namespace {

class NoHostFunctions : public orla::JavaScriptHostFunctions {
 public:
  bool allowsFileRead() const override { return false; }
  bool allowsNetwork() const override { return false; }
  orla::Checked<std::string> readTextFile(const std::string&) override { return orla::fail("not allowed"); }
  orla::Checked<std::string> httpGet(const std::string&, std::chrono::duration<double>) override {
    return orla::fail("not allowed");
  }
};

void run(benchmark::State& state, const std::string& script, const std::string& input, std::size_t expectedSize) {
  auto runner = orla::posix::makeWorkerJavaScriptRunner(std::string(ORLA_BENCH_JAVASCRIPT_WORKER));
  NoHostFunctions host;
  for (auto _ : state) {
    const orla::JavaScriptOutcome outcome = runner->run(script, input, {}, host);
    if (outcome.kind != orla::JavaScriptOutcome::Kind::value || outcome.value.size() != expectedSize) {
      state.SkipWithError("the script did not give its result");
      return;
    }
    benchmark::DoNotOptimize(outcome.value.data());
  }
}

void BM_OnePlusOne(benchmark::State& state) { run(state, "1+1", "", 1); }
BENCHMARK(BM_OnePlusOne)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_UppercaseOneMegabyte(benchmark::State& state) {
  std::string input;
  while (input.size() < 1'000'000) input += "the quick brown fox jumps over the lazy dog ";
  input.resize(1'000'000);
  run(state, "input.toUpperCase()", input, input.size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}
BENCHMARK(BM_UppercaseOneMegabyte)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
