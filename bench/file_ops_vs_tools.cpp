// The file operations beside the tools that do the same work, in the same
// run, on the same files: `FileOperationPlugin` copying a folder against
// `cp -r`, and compressing it against `zip -r -q`, for a folder of many small
// files and one of a single large file. Each pair runs alternately (tool,
// plugin, tool, plugin, ...) so that both meet the same page cache; the
// copies and archives are removed between runs, untimed. Then the plugin's
// own overhead per operation: the plugin against the bare work on one small
// file (a copy_file, a zip run), many times.
//
// Every timed step starts after sync(2), and tool and plugin take turns
// going first.
//
// Usage: orla_file_ops_vs_tools [--dir FOLDER] [--files 10000] [--big-mib 1024] [--runs 3]
//        (default folder: a new one in the system's temporary folder, removed after)
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <orla/platform/platform.h>
#include "plugins/apps/file_operation_plugin.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double cpuSeconds(const rusage& usage) {
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// The processor time of this process and its finished children so far:
// what a step costs whoever does it, less sensitive than the wall clock to
// the other work on a shared machine.
double processorSeconds() {
  rusage self{}, children{};
  ::getrusage(RUSAGE_SELF, &self);
  ::getrusage(RUSAGE_CHILDREN, &children);
  return cpuSeconds(self) + cpuSeconds(children);
}

// Runs a program to its end, its output thrown away; fails the benchmark
// when it does not succeed.
void runTool(const std::vector<std::string>& args, const fs::path& cwd = {}) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    std::perror(argv[0]);
    std::exit(1);
  }
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "%s failed\n", args[0].c_str());
    std::exit(1);
  }
}

// Text-like bytes that compress about as well as documents do (roughly 3:1).
std::string textLike(std::size_t bytes, std::mt19937_64& random) {
  static const std::vector<std::string> words{"the", "quarterly", "report", "shows", "growth", "in", "every",
                                              "region", "while", "costs", "fell", "by", "twelve", "percent",
                                              "Ærøskøbing", "naïve", "café", "2026-11-23", "invoice", "#4821"};
  std::string text;
  text.reserve(bytes + 32);
  while (text.size() < bytes) {
    text += words[random() % words.size()];
    text += (random() % 12 == 0) ? '\n' : ' ';
    if (random() % 64 == 0) text += std::to_string(random());
  }
  text.resize(bytes);
  return text;
}

void makeSmallFiles(const fs::path& folder, int count, std::mt19937_64& random) {
  for (int i = 0; i < count; ++i) {
    const fs::path sub = folder / ("part-" + std::to_string(i / 100));
    if (i % 100 == 0) fs::create_directories(sub);
    std::ofstream(sub / ("file-" + std::to_string(i) + ".txt"), std::ios::binary)
        << textLike(512 + random() % 4096, random);
  }
}

void makeBigFile(const fs::path& folder, std::size_t mib, std::mt19937_64& random) {
  fs::create_directories(folder);
  std::ofstream file(folder / "big.dat", std::ios::binary);
  const std::string block = textLike(std::size_t{1} << 20, random);
  for (std::size_t i = 0; i < mib; ++i) {
    // Each MiB differs a little, so that zip finds no repeat a MiB apart.
    std::string copy = block;
    copy.replace(0, 32, std::to_string(i) + std::string(32, ' '), 0, 32);
    file.write(copy.data(), static_cast<std::streamsize>(copy.size()));
  }
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Times {
  double wall = 0, processor = 0;
};

struct Pair {
  std::string what;
  std::vector<Times> tool, plugin;
};

void printPair(const Pair& pair, const std::string& toolName) {
  const auto medianOf = [](const std::vector<Times>& times, double Times::*field) {
    std::vector<double> values;
    for (const Times& t : times) values.push_back(t.*field);
    return median(values);
  };
  for (auto [field, label] : {std::pair{&Times::wall, "wall"}, std::pair{&Times::processor, "CPU "}}) {
    const double t = medianOf(pair.tool, field), p = medianOf(pair.plugin, field);
    std::printf("  %-30s %s %-10s %8.3f s   plugin %8.3f s   plugin ÷ tool %.3f  (%s)\n", pair.what.c_str(), label,
                toolName.c_str(), t, p, p / t, p <= t * 1.10 ? "within 10%" : "over 10%");
  }
}

void expectSuccess(const orla::PluginResult& result) {
  if (result.kind() != orla::PluginResult::Kind::success) {
    std::fprintf(stderr, "plugin: %s\n", result.message().c_str());
    std::exit(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  fs::path base;
  int files = 10000, runs = 3;
  std::size_t bigMiB = 1024;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--dir") base = argv[i + 1];
    else if (option == "--files") files = std::atoi(argv[i + 1]);
    else if (option == "--big-mib") bigMiB = static_cast<std::size_t>(std::atoll(argv[i + 1]));
    else if (option == "--runs") runs = std::atoi(argv[i + 1]);
  }
  const bool own = base.empty();
  if (own) base = fs::temp_directory_path() / ("orla-file-bench-" + std::to_string(::getpid()));
  fs::create_directories(base);
  base = fs::canonical(base);

  std::mt19937_64 random(42);
  const fs::path small = base / "small", big = base / "big";
  std::printf("Making %d small files and one file of %zu MiB in %s ...\n", files, bigMiB, base.c_str());
  makeSmallFiles(small, files, random);
  makeBigFile(big, bigMiB, random);

  orla::FileOperationPlugin plugin(orla::makeNativePlatform());
  const fs::path out = base / "out";
  fs::create_directories(out);

  for (const fs::path& source : {small, big}) {
    const std::string label = source == small ? std::to_string(files) + " small files" : std::to_string(bigMiB) + " MiB file";
    Pair copy{"copy, " + label, {}, {}}, zip{"compress, " + label, {}, {}};
    const fs::path target = out / source.filename();
    const fs::path archive = out / (source.filename().string() + ".zip");
    // Each timed step starts with nothing left to write back, and the two
    // sides take turns going first, so that neither pays for the other's
    // files being written out or deleted.
    const auto timed = [](const std::function<void()>& work) {
      ::sync();
      const double processorStart = processorSeconds();
      const auto start = Clock::now();
      work();
      return Times{secondsSince(start), processorSeconds() - processorStart};
    };
    const auto toolCopy = [&] { runTool({"/bin/cp", "-r", source.string(), target.string()}); };
    const auto pluginCopy = [&] {
      expectSuccess(plugin.execute({{"source", source.string()}, {"destination", target.string()}}));
    };
    const auto toolZip = [&] {
      runTool({"/usr/bin/zip", "-r", "-q", archive.string(), source.filename().string()}, source.parent_path());
    };
    const auto pluginZip = [&] {
      expectSuccess(plugin.execute({{"subAction", "zip"}, {"source", source.string()}, {"destination", archive.string()}}));
    };
    for (int run = 0; run < runs; ++run) {
      const bool toolFirst = run % 2 == 0;
      for (int side = 0; side < 2; ++side) {
        const bool tool = (side == 0) == toolFirst;
        if (tool) copy.tool.push_back(timed(toolCopy));
        else copy.plugin.push_back(timed(pluginCopy));
        fs::remove_all(target);
      }
      for (int side = 0; side < 2; ++side) {
        const bool tool = (side == 0) == toolFirst;
        if (tool) zip.tool.push_back(timed(toolZip));
        else zip.plugin.push_back(timed(pluginZip));
        fs::remove(archive);
      }
    }
    std::printf("\n%s (median of %d runs: wall clock, then processor time of the process and its children)\n", label.c_str(), runs);
    printPair(copy, "cp -r");
    printPair(zip, "zip -r -q");
  }

  // The plugin's own cost per operation: one small file, many times, each
  // time to a new name (replacing an item costs the file system more than
  // making one, whoever does it).
  const fs::path one = small / "part-0" / "file-0.txt";
  constexpr int kTimes = 300;
  const fs::path each = out / "each";
  const auto fresh = [&] {
    fs::remove_all(each);
    fs::create_directories(each);
  };
  const auto name = [&](const char* stem, int i, const char* extension) {
    return (each / (stem + std::to_string(i) + extension)).string();
  };
  fresh();
  std::vector<double> bareCopies, pluginCopies, bareZips, pluginZips;
  for (int i = 0; i < kTimes; ++i) {
    auto start = Clock::now();
    fs::copy_file(one, name("bare", i, ".txt"));
    bareCopies.push_back(secondsSince(start));
    start = Clock::now();
    expectSuccess(plugin.execute({{"source", one.string()}, {"destination", name("plugin", i, ".txt")}}));
    pluginCopies.push_back(secondsSince(start));
    start = Clock::now();
    runTool({"/usr/bin/zip", "-r", "-q", name("bare", i, ".zip"), one.filename().string()}, one.parent_path());
    bareZips.push_back(secondsSince(start));
    start = Clock::now();
    expectSuccess(
        plugin.execute({{"subAction", "zip"}, {"source", one.string()}, {"destination", name("plugin", i, ".zip")}}));
    pluginZips.push_back(secondsSince(start));
  }
  const double bareCopy = median(bareCopies), pluginCopy = median(pluginCopies);
  const double bareZip = median(bareZips), pluginZip = median(pluginZips);
  std::printf("\nOne small file, median of %d operations taking turns, each to a new name\n", kTimes);
  std::printf("  copy      bare copy_file %8.1f µs   plugin %8.1f µs   overhead %8.1f µs\n", bareCopy * 1e6,
              pluginCopy * 1e6, (pluginCopy - bareCopy) * 1e6);
  std::printf("  compress  bare zip run   %8.1f µs   plugin %8.1f µs   overhead %8.1f µs\n", bareZip * 1e6,
              pluginZip * 1e6, (pluginZip - bareZip) * 1e6);

  if (own) fs::remove_all(base);
  return 0;
}
