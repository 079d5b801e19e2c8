// Throughput of every text transform on 1 KiB and 64 MiB of four kinds of
// text (bench/corpus.h): what a user waits for when the clipboard holds a
// line or a whole log file. bench/transforms_vs_tools.sh runs the same work
// through the standard tools for comparison.
//
//   orla_transform_bench                                   everything (a few minutes)
//   orla_transform_bench --benchmark_filter='/1KiB'         the small inputs only
//   orla_transform_bench --benchmark_filter='base64.*64MiB'
#include <benchmark/benchmark.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <map>
#include <memory>
#include <string>

#include "bench/corpus.h"
#include "bench/transform_inputs.h"
#include <orla/models/utf8.h>
#include "plugins/text/text_transform_plugin.h"

namespace {

using orla::Transform;
using orla::bench::Corpus;

void run(benchmark::State& state, Transform transform, const orla::bench::TransformInput* input) {
  for (auto _ : state) {
    auto result = orla::TextTransformPlugin::apply(transform, input->text, input->pattern, input->replacement, "en_US");
    if (!result) {
      state.SkipWithError(result.error().c_str());
      return;
    }
    benchmark::DoNotOptimize(result.value().data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input->text.size()));
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
#if defined(__GLIBC__)
  // Large results come from the heap and stay mapped when freed, as in a
  // host that has run for a while: the figures are the transforms' own, not
  // the kernel's first-touch page faults of a fresh mapping for every
  // result (about 0.5 ms per MiB on the virtual machine these were taken on;
  // bench/transforms_vs_tools.py shows whole processes, faults included).
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // Inputs are made once and live until the end; the 64 MiB ones only when
  // a benchmark that needs them was asked for.
  static orla::bench::TransformInputs inputs;
  for (const auto& [label, bytes] : {std::pair{"1KiB", std::size_t{1} << 10}, std::pair{"64MiB", std::size_t{64} << 20}})
    for (Corpus corpus : {Corpus::english, Corpus::nonAscii, Corpus::json, Corpus::lines})
      for (Transform transform : orla::allTransforms) {
        if (!orla::bench::applies(transform, corpus)) continue;
        const std::string name = "Transform/" + std::string(orla::bench::shortName(transform)) + "/" +
                                 std::string(orla::bench::name(corpus)) + "/" + label;
        benchmark::RegisterBenchmark(name.c_str(), [transform, corpus, bytes = bytes](benchmark::State& state) {
          run(state, transform, &inputs.get(transform, corpus, bytes));
        })->Unit(benchmark::kMillisecond)->UseRealTime();
      }
  // The UTF-8 check that every text from outside goes through (decoded
  // Base64 among them), alone.
  for (Corpus corpus : {Corpus::english, Corpus::nonAscii}) {
    const std::string name = "Utf8Check/" + std::string(orla::bench::name(corpus)) + "/64MiB";
    benchmark::RegisterBenchmark(name.c_str(), [corpus](benchmark::State& state) {
      // One lambda type serves both corpora, so its texts are kept by corpus.
      static std::map<Corpus, std::string> texts;
      std::string& text = texts[corpus];
      if (text.empty()) text = orla::bench::makeCorpus(corpus, std::size_t{64} << 20);
      for (auto _ : state) benchmark::DoNotOptimize(orla::isValidUtf8(text));
      state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
    })->Unit(benchmark::kMillisecond)->UseRealTime();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
