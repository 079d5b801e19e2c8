// The folder menu over big folders: listing a folder through GIO (the Linux
// desktop's way, with display names and hidden marks) and through readdir
// and stat, and building the whole menu, for folders of 1,000 to 50,000
// files. The menu shows 200 items a level; the rest is listed, counted and
// left out, so this is the time a user waits before a huge folder pops up.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "platform/linux/gio_files.h"
#include "platform/posix/posix_services.h"
#include "plugins/apps/folder_menu.h"

namespace {

namespace fs = std::filesystem;

// One folder of `count` empty files per size, made once and removed at exit.
class Folders {
 public:
  ~Folders() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  std::string of(std::int64_t count) {
    auto found = made_.find(count);
    if (found != made_.end()) return found->second;
    const fs::path folder = root_ / std::to_string(count);
    fs::create_directories(folder);
    for (std::int64_t i = 0; i < count; ++i) std::ofstream(folder / ("File " + std::to_string(i) + ".txt"));
    return made_[count] = folder.string();
  }

 private:
  fs::path root_ = fs::temp_directory_path() / ("orla-folder-bench-" + std::to_string(::getpid()));
  std::map<std::int64_t, std::string> made_;
};

Folders& folders() {
  static Folders shared;
  return shared;
}

void listThroughGio(benchmark::State& state) {
  const std::string folder = folders().of(state.range(0));
  const auto files = orla::linux_desktop::makeGioFiles();
  for (auto _ : state) benchmark::DoNotOptimize(files->listFolder(folder));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void listThroughReaddir(benchmark::State& state) {
  const std::string folder = folders().of(state.range(0));
  const orla::posix::PosixFiles files;
  for (auto _ : state) benchmark::DoNotOptimize(files.listFolder(folder));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void buildMenuThroughGio(benchmark::State& state) {
  const std::string folder = folders().of(state.range(0));
  const auto files = orla::linux_desktop::makeGioFiles();
  const orla::posix::PosixClock clock;
  orla::FolderMenuOptions options;
  options.locale = "en_US";
  for (auto _ : state) benchmark::DoNotOptimize(orla::buildFolderMenu(*files, clock, folder, options));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(listThroughGio)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(listThroughReaddir)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(buildMenuThroughGio)->Arg(1000)->Arg(10000)->Arg(50000)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
