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
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "models/graphemes.h"
#include "models/text.h"
#include "platform/platform.h"
#include "plugins/input/key_shortcut_plugin.h"
#include "plugins/text/text_transform_plugin.h"
#include "plugins/text/type_text_plugin.h"

// Last: Xlib's macros (Status, None, Bool) would clash with the names above.
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

void typeCorpus(benchmark::State& state, std::optional<int> charactersPerSecond) {
  if (!onDesktop(state)) return;
  auto window = focusedWindow(state, "Orla typing bench");
  if (!window) return;
  const std::string corpus = typingCorpus();
  const std::u32string sent = codePoints(corpus);
  ActionData data{{"text", corpus}};
  if (charactersPerSecond) data["charsPerSecond"] = std::int64_t{*charactersPerSecond};
  orla::TypeTextPlugin plugin(desktop());
  for (auto _ : state) {
    window->clear();
    const auto start = Clock::now();
    const auto result = plugin.execute(data);
    if (result.kind() == orla::PluginResult::Kind::failure) {
      state.SkipWithError(result.message().c_str());
      return;
    }
    window->waitUntil([&] { return window->typedCharacters() >= sent.size(); }, std::chrono::seconds(10));
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const std::u32string read = codePoints(window->text());
    const Comparison c = compare(sent, read);
    state.counters["sent"] = static_cast<double>(sent.size());
    state.counters["read"] = static_cast<double>(read.size());
    state.counters["dropped"] = static_cast<double>(c.dropped);
    state.counters["doubled"] = static_cast<double>(c.doubled);
    state.counters["reordered"] = static_cast<double>(c.reordered);
    state.counters["chars_per_s"] = static_cast<double>(read.size()) / seconds;
    state.counters["graphemes"] = static_cast<double>(orla::graphemeCount(corpus));
  }
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
  for (const auto& [name, values] : series) {
    state.counters[std::string(name) + "_median_ms"] = percentile(*values, 0.5);
    state.counters[std::string(name) + "_p90_ms"] = percentile(*values, 0.9);
    state.counters[std::string(name) + "_max_ms"] = percentile(*values, 1.0);
  }
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

}  // namespace

BENCHMARK_CAPTURE(typeCorpus, default_speed, std::nullopt)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(typeCorpus, 1000_per_second, 1000)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(keyChords)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(copyTransformPaste)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bigTextRoundTrip)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

BENCHMARK_MAIN();
