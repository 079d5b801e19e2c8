// Naming the application of a window from the installed desktop entries:
// what a key chord, a paste or a typed text from the command line waits for
// before its first key, since the front application must be known to be
// another program than Orla. A real desktop installs a few hundred entries,
// most of them with dozens of translations; the entries here are made alike
// (about 7 KB each) in a private data folder, and the window is named three
// ways: by an entry named after its class (no listing), by the program an
// entry runs (every entry read), and by nothing (every entry read in vain).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/desktop_entries.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLanguages[] = {"ar", "be", "bg", "ca", "cs", "da", "de", "el", "en_GB", "es", "et", "eu",
                                      "fi", "fr", "gl", "he", "hr", "hu", "id", "it", "ja", "kk", "ko", "lt",
                                      "nb", "nl", "pl", "pt", "pt_BR", "ro", "ru", "sk", "sl", "sr", "sv", "tr",
                                      "uk", "vi", "zh_CN", "zh_TW"};

// `count` entries in <root>/data/applications, each running a program of its
// own in <root>/bin, which PATH searches second (as /usr/bin is on most
// desktops); the last entry's program is orla-bench-editor.
class Entries {
 public:
  explicit Entries(int count) {
    const fs::path apps = root_ / "data" / "applications";
    fs::create_directories(apps);
    fs::create_directories(root_ / "bin");
    editor_ = root_ / "bin" / "orla-bench-editor";
    for (int i = 0; i < count; ++i) {
      const bool last = i == count - 1;
      const fs::path program = last ? editor_ : root_ / "bin" / ("orla-bench-app-" + std::to_string(i));
      std::ofstream(program) << "#!/bin/sh\n";
      fs::permissions(program, fs::perms::owner_all);
      std::ofstream out(apps / ("org.example.App" + std::to_string(i) + ".desktop"));
      out << "[Desktop Entry]\nType=Application\nName=App " << i << "\n";
      for (const char* language : kLanguages)
        out << "Name[" << language << "]=Application number " << i << " in " << language << "\n"
            << "Comment[" << language << "]=Edits, views and organises the things of kind " << i << "\n"
            << "Keywords[" << language << "]=edit;view;organise;kind" << i << ";\n";
      out << "Exec=" << (last ? "orla-bench-editor" : "orla-bench-app-" + std::to_string(i)) << " %U\n";
      if (i % 4 == 0) out << "StartupWMClass=AppClass" << i << "\n";
      out << "Icon=app" << i << "\nCategories=Utility;\n";
    }
    ::setenv("XDG_DATA_HOME", (root_ / "data").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (root_ / "none").c_str(), 1);
    const char* path = std::getenv("PATH");
    ::setenv("PATH", ("/usr/local/bin:" + (root_ / "bin").string() + ":" + (path ? path : "/usr/bin")).c_str(), 1);
  }
  ~Entries() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  std::string editor() const { return editor_.string(); }

 private:
  fs::path root_ = fs::temp_directory_path() / ("orla-entries-bench-" + std::to_string(::getpid()));
  fs::path editor_;
};

// GLib reads the data folders once per process: one set of entries for the
// whole run.
Entries& entries() {
  static Entries made(static_cast<int>(std::strtol(std::getenv("ORLA_BENCH_ENTRIES") ? std::getenv("ORLA_BENCH_ENTRIES")
                                                                                         : "200",
                                                   nullptr, 10)));
  return made;
}

void namedAfterItsClass(benchmark::State& state) {
  entries();
  for (auto _ : state)
    benchmark::DoNotOptimize(orla::linux_desktop::desktopEntryForWindowClass("org.example.App7", "App7"));
}

void namedByItsProgram(benchmark::State& state) {
  const std::string editor = entries().editor();
  for (auto _ : state) {
    auto entry = orla::linux_desktop::desktopEntryForWindowClass("editor", "Editor", editor);
    if (!entry) state.SkipWithError("the entry running the program was not found");
    benchmark::DoNotOptimize(entry);
  }
}

void namedByNothing(benchmark::State& state) {
  entries();
  for (auto _ : state)
    benchmark::DoNotOptimize(orla::linux_desktop::desktopEntryForWindowClass("nothing", "Nothing", "/usr/bin/true"));
}

BENCHMARK(namedAfterItsClass)->Unit(benchmark::kMicrosecond);
BENCHMARK(namedByItsProgram)->Unit(benchmark::kMicrosecond);
BENCHMARK(namedByNothing)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
