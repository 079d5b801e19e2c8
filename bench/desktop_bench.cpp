// The X11 desktop under real clients (Google Benchmark, one iteration each,
// the findings as counters). Run it on the headless desktop:
//
//   eval "$(scripts/desktop-harness start)"
//   build/release/bench/orla_desktop_bench
//   scripts/desktop-harness stop "$ORLA_DESKTOP_HARNESS"
//
// - Typing: 10,000 characters (ASCII, accented Latin, CJK and Hangul, emoji
//   with skin tones, ZWJ sequences and flags, combining marks) typed by
//   `TypeTextPlugin` into an X client of its own connection, at the default
//   speed and at 1,000 characters a second, compared with what the client
//   read: characters dropped, doubled, or all there but out of order.
// - Key chords: ⇧⌘K through `KeyShortcutPlugin::execute`, 50 times; the time
//   from the call to the first KeyPress the client reads, and how far the
//   gaps between the chord's events stray from the plugin's 5 ms and 20 ms
//   pauses.
// - Clipboard: another program owns text, image/png and text/html; a
//   copy-transform-paste replace (`TextTransformPlugin`, upper case) of a
//   text field's selection must paste the result and leave every type of
//   the other program's clipboard byte for byte as it was; then 50 MiB of
//   text round-trips between `orla`'s clipboard and `xclip` both ways.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <orla/models/graphemes.h>
#include <orla/models/text.h>
#include <orla/platform/platform.h>
#include "plugins/input/key_shortcut_plugin.h"
#include "plugins/text/text_transform_plugin.h"
#include "plugins/text/type_text_plugin.h"

// Last: Xlib's macros (Status, None, Bool) would clash with the names above.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include "tests/platform/desktop/x11_test_window.h"

namespace {

using orla::ActionData;
using orla::testing_x11::X11TestWindow;
using Clock = std::chrono::steady_clock;

std::shared_ptr<orla::Platform> desktop() {
  static std::shared_ptr<orla::Platform> platform = orla::makeNativePlatform();
  return platform;
}

bool onDesktop(benchmark::State& state) {
  if (!std::getenv("DISPLAY") || !desktop()->supports(orla::Capability::keyboardEvents)) {
    state.SkipWithError("no X11 desktop: start one with scripts/desktop-harness");
    return false;
  }
  return true;
}

// A window of another connection, in front with the keyboard focus; none,
// with the benchmark marked skipped, when that cannot be had.
std::unique_ptr<X11TestWindow> focusedWindow(benchmark::State& state, const char* title) {
  auto window = X11TestWindow::open(title);
  if (window && window->focus()) return window;
  state.SkipWithError("the receiving window did not get the focus");
  return nullptr;
}

// Whether xclip, the other program of the clipboard benchmarks, is here.
bool haveXclip(benchmark::State& state) {
  if (std::system("command -v xclip >/dev/null") == 0) return true;
  state.SkipWithError("xclip is missing (scripts/install-deps installs it)");
  return false;
}

std::u32string codePoints(std::string_view text) {
  std::u32string out;
  for (char16_t unit : orla::toUtf16(text)) {
    if (unit >= 0xDC00 && unit <= 0xDFFF && !out.empty() && out.back() >= 0xD800 && out.back() <= 0xDBFF)
      out.back() = 0x10000 + ((out.back() - 0xD800) << 10) + (unit - 0xDC00);
    else
      out.push_back(unit);
  }
  return out;
}

// 10,000 code points of mixed scripts, made of whole pieces so that no
// emoji sequence or combining mark is cut, padded with ASCII.
std::string typingCorpus() {
  const std::vector<std::string> pieces = {
      "The quick brown fox jumps over the lazy dog. ",
      "Cr\u00E8me br\u00FBl\u00E9e \u00E0 la fa\u00E7on, \u00C5ngstr\u00F6m, ni\u00F1o, \u0141\u00F3d\u017A, "
      "\u0153uvre. ",
      "\u6771\u4EAC\u90FD\u306E\u5929\u6C17\u306F\u6674\u308C\u3067\u3059\u3002\u4E2D\u6587\u8F93\u5165\u3002 ",
      "\uD55C\uAD6D\uC5B4 \uD14D\uC2A4\uD2B8. ",
      "\U0001F44D\U0001F3FD \U0001F44B\U0001F3FF \U0001F469\u200D\U0001F4BB "
      "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466 \U0001F3F3\uFE0F\u200D\U0001F308 "
      "\U0001F1EB\U0001F1F7 ",
      "e\u0301 a\u0308 n\u0303 Z\u0351\u0346 \u0915\u094D\u0937 ",
  };
  std::string text;
  std::size_t count = 0;
  for (std::size_t i = 0;; ++i) {
    const std::string& piece = pieces[i % pieces.size()];
    const std::size_t n = codePoints(piece).size();
    if (count + n > 10'000) break;
    text += piece;
    count += n;
  }
  text.append(10'000 - count, 'x');
  return text;
}

struct Comparison {
  std::size_t dropped = 0, doubled = 0, reordered = 0;
};

// Dropped: sent more often than read; doubled: read more often than sent;
// reordered: the same characters, the same number of times, but not in the
// order sent (the positions that differ).
Comparison compare(const std::u32string& sent, const std::u32string& read) {
  Comparison c;
  std::map<char32_t, long> balance;
  for (char32_t ch : sent) ++balance[ch];
  for (char32_t ch : read) --balance[ch];
  for (const auto& [ch, n] : balance) (n > 0 ? c.dropped : c.doubled) += static_cast<std::size_t>(std::labs(n));
  if (c.dropped == 0 && c.doubled == 0)
    for (std::size_t i = 0; i < sent.size(); ++i) c.reordered += sent[i] != read[i];
  return c;
}

// Changes of the keyboard map, as every other client hears of them
// (XkbMapNotify), counted on a connection of the bench's own.
class MapChangeCounter {
 public:
  MapChangeCounter() {
    display_ = XOpenDisplay(nullptr);
    int opcode = 0, error = 0, major = XkbMajorVersion, minor = XkbMinorVersion;
    if (!display_ || !XkbQueryExtension(display_, &opcode, &eventBase_, &error, &major, &minor)) return;
    XkbSelectEvents(display_, XkbUseCoreKbd, XkbMapNotifyMask, XkbMapNotifyMask);

    XSync(display_, False);
    thread_ = std::thread([this] { count(); });
  }
  ~MapChangeCounter() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (display_) XCloseDisplay(display_);
  }
  std::size_t changes() const { return changes_; }
  std::size_t notices() const { return notices_; }

 private:
  void count() {
    while (!stop_) {
      while (XPending(display_)) {
        XEvent event;
        XNextEvent(display_, &event);
        const auto& xkb = reinterpret_cast<XkbEvent&>(event);
        if (event.type != eventBase_ || xkb.any.xkb_type != XkbMapNotify) continue;
        // The server tells of a change once for each keyboard device it
        // makes it on (here four): a change counts once, by the notices of
        // the device first heard of.
        ++notices_;
        if (device_ < 0) device_ = static_cast<int>(xkb.any.device);
        if (static_cast<int>(xkb.any.device) == device_) ++changes_;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  Display* display_ = nullptr;
  int eventBase_ = 0, device_ = -1;
  std::atomic<bool> stop_{false};
  std::atomic<std::size_t> changes_{0}, notices_{0};
  std::thread thread_;
};

// The CPU time the harness's window manager has used, in seconds; none
// outside the harness.
std::optional<double> windowManagerCpu() {
  const char* harness = std::getenv("ORLA_DESKTOP_HARNESS");
  if (!harness) return std::nullopt;
  std::ifstream pidFile(std::string(harness) + "/pids/01-openbox.pid");
  long pid = 0;
  if (!(pidFile >> pid)) return std::nullopt;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return std::nullopt;
  // Fields after the command's closing parenthesis: state is the 3rd field,
  // utime and stime the 14th and 15th.
  std::istringstream fields(line.substr(line.rfind(')') + 2));
  std::string field;
  double ticks = 0;
  for (int i = 3; i <= 15 && fields >> field; ++i)
    if (i >= 14) ticks += std::stod(field);
  return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// How long after `end` the window manager kept using CPU: sampled every
// 100 ms until a second passes without any, for `limit` at most.
double windowManagerBusyAfter(Clock::time_point end, std::chrono::seconds limit) {
  auto last = windowManagerCpu();
  if (!last) return 0;
  Clock::time_point lastBusy = end, quietSince = Clock::now();
  while (Clock::now() - quietSince < std::chrono::seconds(1) && Clock::now() - end < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto now = windowManagerCpu();
    if (now && *now > *last) {
      lastBusy = quietSince = Clock::now();
      last = now;
    }
  }
  return std::chrono::duration<double>(lastBusy - end).count();
}

// Types the corpus with `type` into a window of another connection, and
// sets what the window read, how fast, the keyboard-map changes the typing
// made and what they cost the window manager.
void typeAndCompare(benchmark::State& state, const std::function<std::optional<std::string>()>& type,
                    const std::function<void()>& after = [] {}) {
  if (!onDesktop(state)) return;
  auto window = focusedWindow(state, "Orla typing bench");
  if (!window) return;
  const std::u32string sent = codePoints(typingCorpus());
  for (auto _ : state) {
    window->clear();
    MapChangeCounter maps;
    const auto cpuBefore = windowManagerCpu();
    const auto start = Clock::now();
    if (const auto failure = type()) {
      state.SkipWithError(failure->c_str());
      return;
    }
    window->waitUntil([&] { return window->typedCharacters() >= sent.size(); }, std::chrono::seconds(10));
    const auto end = Clock::now();
    const double seconds = std::chrono::duration<double>(end - start).count();
    after();
    const double busyAfter = windowManagerBusyAfter(end, std::chrono::seconds(30));
    const auto cpuAfter = windowManagerCpu();
    const std::u32string read = codePoints(window->text());
    const Comparison c = compare(sent, read);
    state.counters["sent"] = static_cast<double>(sent.size());
    state.counters["read"] = static_cast<double>(read.size());
    state.counters["dropped"] = static_cast<double>(c.dropped);
    state.counters["doubled"] = static_cast<double>(c.doubled);
    state.counters["reordered"] = static_cast<double>(c.reordered);
    state.counters["chars_per_s"] = static_cast<double>(read.size()) / seconds;
    state.counters["map_changes"] = static_cast<double>(maps.changes());
    state.counters["map_notices_all_devices"] = static_cast<double>(maps.notices());
    if (cpuBefore && cpuAfter) state.counters["wm_cpu_s"] = *cpuAfter - *cpuBefore;
    state.counters["wm_busy_after_s"] = busyAfter;
  }
}

// A platform of its own for each run, so that the keyboard map is given
// back (after the run is timed) as a command-line `orla` gives it back when
// it ends, and the next run, or xdotool, starts from the map as it was.
void typeCorpus(benchmark::State& state, std::optional<int> charactersPerSecond) {
  const std::string corpus = typingCorpus();
  ActionData data{{"text", corpus}};
  if (charactersPerSecond) data["charsPerSecond"] = std::int64_t{*charactersPerSecond};
  std::shared_ptr<orla::Platform> platform = orla::makeNativePlatform();
  typeAndCompare(
      state,
      [&]() -> std::optional<std::string> {
        const auto result = orla::TypeTextPlugin(platform).execute(data);
        if (result.kind() == orla::PluginResult::Kind::failure) return result.message();
        return std::nullopt;
      },
      [&] { platform.reset(); });
  state.counters["graphemes"] = static_cast<double>(orla::graphemeCount(corpus));
  std::set<char32_t> distinct;
  std::size_t nonAscii = 0;
  for (char32_t c : codePoints(corpus))
    if (c >= 0x80) {
      ++nonAscii;
      distinct.insert(c);
    }
  state.counters["non_ascii"] = static_cast<double>(nonAscii);
  state.counters["distinct_non_ascii"] = static_cast<double>(distinct.size());
}

// The same corpus through `xdotool type`, with `delay` its option
// (none: its default of 12 ms).
void xdotoolTypeCorpus(benchmark::State& state, std::optional<int> delay) {
  if (std::system("command -v xdotool >/dev/null") != 0) {
    state.SkipWithError("xdotool is missing (scripts/install-deps installs it)");
    return;
  }
  char path[] = "/tmp/orla-typing-corpus-XXXXXX";
  const int fd = ::mkstemp(path);
  const std::string corpus = typingCorpus();
  if (fd < 0 || ::write(fd, corpus.data(), corpus.size()) != static_cast<ssize_t>(corpus.size())) {
    state.SkipWithError("the corpus could not be written for xdotool");
    return;
  }
  ::close(fd);
  const std::string command = std::string("xdotool type ") + (delay ? "--delay " + std::to_string(*delay) : "") +
                              " -- \"$(cat " + path + ")\"";
  typeAndCompare(state, [&]() -> std::optional<std::string> {
    if (std::system(command.c_str()) != 0) return "xdotool type failed";
    return std::nullopt;
  });
  ::unlink(path);
}

// The value below which `share` of the values lie (0.5: the median).
double percentile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

void keyChords(benchmark::State& state) {
  if (!onDesktop(state)) return;
  auto window = focusedWindow(state, "Orla chord bench");
  if (!window) return;
  orla::KeyShortcutPlugin plugin(desktop());
  // ⇧⌘K: Control and Shift down, K down and up, Shift and Control up.
  const ActionData data{{"keycode", std::int64_t{40}},
                        {"modifiers", std::int64_t{orla::event_flags::command | orla::event_flags::shift}}};
  // The gaps between those six events: 5 ms after each press, 20 ms more
  // between the press and the release sequences, 5 ms after each release.
  const std::array<double, 5> expected{5, 5, 25, 5, 5};
  std::vector<double> latencies, fiveDeviations, twentyDeviations;
  for (auto _ : state) {
    for (int round = 0; round < 50; ++round) {
      window->clear();
      const auto start = Clock::now();
      const auto result = plugin.execute(data);
      if (result.kind() == orla::PluginResult::Kind::failure) {
        state.SkipWithError(result.message().c_str());
        return;
      }
      window->waitUntil([&] { return window->timeline().size() >= 6; }, std::chrono::seconds(2));
      const auto events = window->timeline();
      if (events.size() != 6) {
        state.SkipWithError("the chord did not arrive as six key events");
        return;
      }
      latencies.push_back(std::chrono::duration<double, std::milli>(events[0].at - start).count());
      for (std::size_t i = 0; i < expected.size(); ++i) {
        const double gap = std::chrono::duration<double, std::milli>(events[i + 1].at - events[i].at).count();
        (expected[i] == 25 ? twentyDeviations : fiveDeviations).push_back(std::abs(gap - expected[i]));
      }
    }
  }
  const std::pair<const char*, const std::vector<double>*> series[] = {
      {"latency", &latencies}, {"pause5_dev", &fiveDeviations}, {"pause20_dev", &twentyDeviations}};
  // The first chord reads the front application afresh; the others find
  // it kept.
  if (!latencies.empty()) state.counters["latency_first_ms"] = latencies.front();
  for (const auto& [name, values] : series) {
    state.counters[std::string(name) + "_median_ms"] = percentile(*values, 0.5);
    state.counters[std::string(name) + "_p90_ms"] = percentile(*values, 0.9);
    state.counters[std::string(name) + "_max_ms"] = percentile(*values, 1.0);
  }
}

// `orla` beside this bench (build/<preset>/tools/orla/orla), or ORLA_BIN.
std::string orlaBinary() {
  if (const char* bin = std::getenv("ORLA_BIN")) return bin;
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (self.parent_path().parent_path() / "tools" / "orla" / "orla").string();
}

// Runs `argv` as a process of its own (no shell), 20 times, each while the
// window is in front: the time from starting it to the window's first
// KeyPress, and to the process's end.
void commandChord(benchmark::State& state, std::vector<std::string> argv) {
  if (!onDesktop(state)) return;
  if (::access(argv[0].c_str(), X_OK) != 0 && std::system(("command -v " + argv[0] + " >/dev/null").c_str()) != 0) {
    state.SkipWithError((argv[0] + " is missing").c_str());
    return;
  }
  auto window = focusedWindow(state, "Orla command chord bench");
  if (!window) return;
  std::vector<char*> args;
  for (std::string& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  std::vector<double> firstKey, whole;
  for (auto _ : state) {
    for (int round = 0; round < 20; ++round) {
      window->clear();
      const auto start = Clock::now();
      pid_t pid = 0;
      posix_spawn_file_actions_t quiet;
      posix_spawn_file_actions_init(&quiet);
      posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
      const int spawned = ::posix_spawnp(&pid, args[0], &quiet, nullptr, args.data(), environ);
      posix_spawn_file_actions_destroy(&quiet);
      if (spawned != 0) {
        state.SkipWithError("the command could not be started");
        return;
      }
      int status = 0;
      ::waitpid(pid, &status, 0);
      whole.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
      window->waitUntil([&] { return !window->timeline().empty(); }, std::chrono::seconds(2));
      const auto events = window->timeline();
      if (events.empty() || status != 0) {
        state.SkipWithError("the chord did not arrive");
        return;
      }
      firstKey.push_back(std::chrono::duration<double, std::milli>(events[0].at - start).count());
    }
  }
  state.counters["first_key_median_ms"] = percentile(firstKey, 0.5);
  state.counters["process_median_ms"] = percentile(whole, 0.5);
}

// Another program's clipboard with several types at once, as a browser's
// copy leaves it: served from its own connection and thread until another
// client takes the selection.
class OtherProgramsClipboard {
 public:
  explicit OtherProgramsClipboard(std::map<std::string, std::string> types) : types_(std::move(types)) {
    display_ = XOpenDisplay(nullptr);
    window_ = XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 1, 1, 0, 0, 0);
    clipboard_ = XInternAtom(display_, "CLIPBOARD", False);
    XSetSelectionOwner(display_, clipboard_, window_, CurrentTime);
    XSync(display_, False);
    thread_ = std::thread([this] { serve(); });
  }
  ~OtherProgramsClipboard() {
    stop_ = true;
    thread_.join();
    XDestroyWindow(display_, window_);
    XCloseDisplay(display_);
  }
  bool owns() const { return owns_; }

 private:
  void serve() {
    while (!stop_) {
      while (XPending(display_)) {
        XEvent event;
        XNextEvent(display_, &event);
        if (event.type == SelectionClear) owns_ = false;
        if (event.type == SelectionRequest) answer(event.xselectionrequest);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  void answer(const XSelectionRequestEvent& request) {
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    reply.property = request.property;
    const Atom targets = XInternAtom(display_, "TARGETS", False);
    char* name = XGetAtomName(display_, request.target);
    const std::string target = name ? name : "";
    if (name) XFree(name);
    if (request.target == targets) {
      std::vector<Atom> offered{targets};
      for (const auto& [type, bytes] : types_) offered.push_back(XInternAtom(display_, type.c_str(), False));
      XChangeProperty(display_, request.requestor, request.property, XA_ATOM, 32, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(offered.data()), static_cast<int>(offered.size()));
    } else if (auto found = types_.find(target); found != types_.end()) {
      XChangeProperty(display_, request.requestor, request.property, request.target, 8, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(found->second.data()),
                      static_cast<int>(found->second.size()));
    } else {
      reply.property = None;
    }
    XSendEvent(display_, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
    XFlush(display_);
  }

  std::map<std::string, std::string> types_;
  Display* display_;
  Window window_;
  Atom clipboard_;
  std::atomic<bool> stop_{false}, owns_{true};
  std::thread thread_;
};

// What a paste of `type` gets in another program (xclip), or none.
std::optional<std::string> xclipPaste(const std::string& type) {
  const std::string command = "xclip -o -selection clipboard -t '" + type + "' 2>/dev/null";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return std::nullopt;
  std::string out;
  char buffer[1 << 16];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  return ::pclose(pipe) == 0 ? std::optional(out) : std::nullopt;
}

bool xclipCopy(const std::string& bytes) {
  FILE* pipe = ::popen("xclip -i -selection clipboard -t UTF8_STRING >/dev/null 2>&1", "w");
  if (!pipe) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), pipe) == bytes.size();
  return ::pclose(pipe) == 0 && written;
}

std::string randomBytes(std::size_t n, std::string_view prefix) {
  std::string bytes(prefix);
  std::mt19937 random(11);
  while (bytes.size() < n) bytes.push_back(static_cast<char>(random() & 0xFF));
  return bytes;
}

void copyTransformPaste(benchmark::State& state) {
  if (!onDesktop(state)) return;
  if (!haveXclip(state)) return;
  auto window = focusedWindow(state, "Orla clipboard bench");
  if (!window) return;
  const std::map<std::string, std::string> original = {
      {"UTF8_STRING", "Caf\u00E9 menu \U0001F37D\uFE0F \u2014 the other program's text"},
      {"text/html", "<meta charset=\"utf-8\"><b>Caf\u00E9</b> <i>menu</i>"},
      {"image/png", randomBytes(256 << 10, "\x89PNG\r\n\x1A\n")},
  };
  orla::TextTransformPlugin plugin(desktop());
  std::size_t intact = 0, pasted = 0;
  for (auto _ : state) {
    OtherProgramsClipboard other(original);
    window->setFieldText("stra\u00DFe and caf\u00E9");
    const auto start = Clock::now();
    // With the result kept off the clipboard, the user's clipboard comes
    // back once the result is pasted.
    const auto result = plugin.execute({{"transform", std::string("uppercase")}, {"writeToClipboard", false}});
    state.counters["replace_ms"] = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    if (result.kind() == orla::PluginResult::Kind::failure) {
      state.SkipWithError(result.message().c_str());
      return;
    }
    pasted = window->fieldText() == "STRASSE AND CAF\u00C9";
    for (const auto& [type, bytes] : original) {
      const bool same = xclipPaste(type) == bytes;
      intact += same;
      state.counters["intact " + type] = same;
    }
  }
  state.counters["pasted_result"] = static_cast<double>(pasted);
  state.counters["types_intact"] = static_cast<double>(intact);
  state.counters["types"] = static_cast<double>(original.size());
}

void bigTextRoundTrip(benchmark::State& state) {
  if (!onDesktop(state)) return;
  if (!haveXclip(state)) return;
  std::string text;
  const std::string line = "Fifty mebibytes of text, line after line, with \u00E9 and \u6F22\u5B57 in it.\n";
  while (text.size() < (std::size_t{50} << 20)) text += line;
  orla::Pasteboard& pasteboard = desktop()->pasteboard();
  for (auto _ : state) {
    auto start = Clock::now();
    const bool written = static_cast<bool>(pasteboard.setText(text));
    const bool readOut = written && xclipPaste("UTF8_STRING") == text;
    state.counters["orla_to_xclip_s"] = std::chrono::duration<double>(Clock::now() - start).count();
    start = Clock::now();
    const bool copied = xclipCopy(text);
    const bool readIn = copied && pasteboard.text() == text;
    state.counters["xclip_to_orla_s"] = std::chrono::duration<double>(Clock::now() - start).count();
    state.counters["orla_to_xclip_ok"] = readOut;
    state.counters["xclip_to_orla_ok"] = readIn;
  }
  state.counters["MiB"] = static_cast<double>(text.size()) / (1 << 20);
}

// Runs `argv` (no shell) with `input` on its standard input, unless empty;
// its wall time and peak resident memory, and whether it succeeded.
struct ProcessRun {
  double seconds = 0, peakMiB = 0;
  bool ok = false;
};
ProcessRun runProcess(std::vector<std::string> argv, const std::string& input = {}) {
  std::vector<char*> args;
  for (std::string& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!input.empty()) posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  ProcessRun run;
  const auto start = Clock::now();
  pid_t pid = 0;
  if (::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) == 0) {
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    run.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  posix_spawn_file_actions_destroy(&actions);
  return run;
}

// 50 MiB of text put on the clipboard from the command line: `orla run
// ClipboardShortcut` with the text in a parameters file (JSON-escaped), and
// `xclip -i` reading it from a file; each read back by `xclip -o`, byte
// for byte.
void bigTextFromCommandLine(benchmark::State& state) {
  if (!onDesktop(state) || !haveXclip(state)) return;
  std::string text;
  const std::string line = "Fifty mebibytes of text, line after line, with \u00E9 and \u6F22\u5B57 in it.\n";
  while (text.size() < (std::size_t{50} << 20)) text += line;
  const auto folder = std::filesystem::temp_directory_path() / ("orla-clipboard-bench-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::string textFile = (folder / "text").string(), paramsFile = (folder / "params.json").string();
  std::ofstream(textFile, std::ios::binary) << text;
  std::string escaped;
  for (char c : text) {
    if (c == '\n') escaped += "\\n";
    else if (c == '"' || c == '\\') (escaped += '\\') += c;
    else escaped += c;
  }
  std::ofstream(paramsFile, std::ios::binary) << "{\"actionType\":1,\"text\":\"" << escaped << "\"}";
  for (auto _ : state) {
    const ProcessRun orla = runProcess({orlaBinary(), "run", "ClipboardShortcut", "@" + paramsFile});
    const bool orlaRead = orla.ok && xclipPaste("UTF8_STRING") == text;
    const ProcessRun xclip = runProcess({"xclip", "-i", "-selection", "clipboard", "-t", "UTF8_STRING"}, textFile);
    const bool xclipRead = xclip.ok && xclipPaste("UTF8_STRING") == text;
    state.counters["orla_s"] = orla.seconds;
    state.counters["orla_peak_MiB"] = orla.peakMiB;
    state.counters["orla_read_back_ok"] = orlaRead;
    state.counters["xclip_s"] = xclip.seconds;
    state.counters["xclip_peak_MiB"] = xclip.peakMiB;
    state.counters["xclip_read_back_ok"] = xclipRead;
    state.counters["ratio_xclip_over_orla"] = orla.seconds > 0 ? xclip.seconds / orla.seconds : 0;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace

BENCHMARK_CAPTURE(typeCorpus, default_speed, std::nullopt)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(typeCorpus, 1000_per_second, 1000)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(xdotoolTypeCorpus, delay_1, 1)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(xdotoolTypeCorpus, default_delay, std::nullopt)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(keyChords)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(commandChord, orla_run_KeyShortcut,
                  {orlaBinary(), "run", "KeyShortcut",
                   "{\"keycode\":40,\"modifiers\":" +
                       std::to_string(orla::event_flags::command | orla::event_flags::shift) + "}"})
    ->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(commandChord, xdotool_key, {"xdotool", "key", "ctrl+shift+k"})
    ->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(copyTransformPaste)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bigTextRoundTrip)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(bigTextFromCommandLine)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

BENCHMARK_MAIN();
