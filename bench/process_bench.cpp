// Capturing a command's output: 1 GiB through the process service alone
// (bytes counted and dropped), 1 GiB of log-like text and of non-ASCII
// prose through the whole
// shell-command plugin (UTF-8 check, trim, 2000-character cut and character
// count as it streams), and the same text through StreamedText in memory,
// without a process, to show what the reading costs on its own. Each reports
// its rate and this process's peak resident memory so far; the goal is at
// least 1 GB/s with the peak under 64 MiB.
//
// The plugin benchmarks need /bin/zsh and run on the native platform.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bench/corpus.h"
#include <orla/models/streamed_text.h>
#include "platform/posix/posix_processes.h"
#include "plugins/scripts/shell_command_plugin.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;
constexpr std::size_t kCorpusBytes = std::size_t{64} << 20;

double peakResidentMiB() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

void report(benchmark::State& state, std::uint64_t bytesPerRun) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytesPerRun) * state.iterations());
  state.counters["peak_rss_MiB"] = peakResidentMiB();
}

// Lines as a busy log has them: mostly ASCII, a few accents, a symbol and
// an emoji every few lines.
std::string logText(std::size_t bytes) {
  static const std::string lines[] = {
      "2026-11-23 08:15:00.123 INFO  worker[42]: processed batch 18233 in 5 ms\n",
      "2026-11-23 08:15:00.131 DEBUG cache: hit ratio 0.973 over 65536 lookups\n",
      "2026-11-23 08:15:00.140 WARN  import: skipped “Résumé Zoë.pdf” — already present ✓\n",
      "2026-11-23 08:15:00.152 INFO  sync: 12 files up to date 👍 (café, naïve, Ærøskøbing)\n",
  };
  std::string text;
  text.reserve(bytes + 128);
  for (std::size_t i = 0; text.size() < bytes; ++i) text += lines[i % std::size(lines)];
  text.resize(bytes - (bytes % 4096));  // whole lines do not matter here, whole characters do
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
  if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0x80) text.pop_back();
  return text;
}

// Prose in many scripts (bench/corpus.h): half its words German, French,
// Russian, Greek, Chinese, Japanese, Korean, emoji and combining marks.
std::string nonAsciiText(std::size_t bytes) {
  std::string text = orla::bench::makeCorpus(orla::bench::Corpus::nonAscii, bytes + 4096);
  std::size_t end = bytes;
  while (end > 0 && text[end - 1] != '\n') --end;  // whole lines
  text.resize(end);
  return text;
}

fs::path corpusPath(bool nonAscii) {
  return fs::temp_directory_path() /
         ((nonAscii ? "orla-bench-nonascii-" : "orla-bench-log-") + std::to_string(::getpid()) + ".txt");
}

// A 64 MiB file of log text or of non-ASCII prose, written once per run;
// `cat` of it sixteen times is the command that prints 1 GiB.
fs::path corpusFile(bool nonAscii = false) {
  static const fs::path paths[2] = {corpusPath(false), corpusPath(true)};
  static bool made[2] = {false, false};
  if (!made[nonAscii]) {
    made[nonAscii] = true;
    // Written 1 MiB at a time, so that the text does not count in the peak
    // memory the capture reports.
    const std::string piece = nonAscii ? nonAsciiText(std::size_t{1} << 20) : logText(std::size_t{1} << 20);
    std::ofstream out(paths[nonAscii], std::ios::binary);
    for (std::size_t written = 0; written < kCorpusBytes; written += piece.size()) out << piece;
  }
  return paths[nonAscii];
}

struct CorpusCleanup {
  ~CorpusCleanup() {
    std::error_code ignored;
    fs::remove(corpusPath(false), ignored);
    fs::remove(corpusPath(true), ignored);
  }
} cleanup;

class CountingSink : public orla::OutputSink {
 public:
  void append(std::string_view bytes) override { total += bytes.size(); }
  std::uint64_t total = 0;
};

void ProcessRun_OneGiBOfZeros(benchmark::State& state) {
  orla::posix::PosixProcesses processes;
  for (auto _ : state) {
    CountingSink out, err;
    auto exit = processes.run({"/bin/dd", {"if=/dev/zero", "bs=1M", "count=1024", "status=none"}, {}}, out, err);
    if (!exit || out.total != kGiB) state.SkipWithError("dd did not print 1 GiB");
  }
  report(state, kGiB);
}
BENCHMARK(ProcessRun_OneGiBOfZeros)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void ShellCommand_OneGiB(benchmark::State& state) {
  const bool nonAscii = state.range(0) == 1;
  orla::ShellCommandPlugin plugin(orla::makeNativePlatform());
  const std::string file = corpusFile(nonAscii).string();
  std::string command = "cat";
  for (int i = 0; i < 16; ++i) command += " '" + file + "'";
  const orla::ActionData data{{"command", command}};
  for (auto _ : state) {
    const orla::PluginResult result = plugin.execute(data);
    if (result.isFailure() || !result.message().ends_with(" characters)")) state.SkipWithError("unexpected result");
    benchmark::DoNotOptimize(result);
  }
  state.SetLabel(nonAscii ? "non-ASCII prose" : "log text");
  report(state, kGiB);
}
BENCHMARK(ShellCommand_OneGiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// The reader alone, in 256 KiB chunks as the pipes deliver them.
void StreamedText_InMemory(benchmark::State& state) {
  const std::int64_t kind = state.range(0);
  const std::string text = kind == 0   ? std::string(kCorpusBytes, 'x')
                           : kind == 1 ? logText(kCorpusBytes)
                                       : nonAsciiText(kCorpusBytes);
  constexpr std::size_t kChunk = std::size_t{1} << 18;
  for (auto _ : state) {
    orla::StreamedText streamed(2000);
    for (std::size_t at = 0; at < text.size(); at += kChunk)
      streamed.append(std::string_view(text).substr(at, kChunk));
    streamed.finish();
    benchmark::DoNotOptimize(streamed.characterCount());
  }
  state.SetLabel(kind == 0 ? "ASCII" : kind == 1 ? "log text" : "non-ASCII prose");
  report(state, text.size());
}
BENCHMARK(StreamedText_InMemory)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
