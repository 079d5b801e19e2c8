// A small X client for the desktop conformance suites and benchmarks: its
// own connection and its own top-level window, which records what reaches it
// (key presses with their keysyms and modifiers, the text they type, buttons
// and wheel clicks), so that the suites prove each posted event from the
// receiving side. Like a live application it reads its events as they come,
// on a thread of its own.
#pragma once

#include <X11/Xlib.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orla::testing_x11 {

struct ReceivedKey {
  KeySym keysym;   // of the key's first level, whatever the modifiers
  unsigned state;  // the X modifier mask at the press
};

// A key press or release with the moment this client read it.
struct TimedKeyEvent {
  KeySym keysym;
  bool press;
  std::chrono::steady_clock::time_point at;
};

struct ReceivedButton {
  unsigned button;
  bool press;
  int rootX, rootY;
};

class X11TestWindow {
 public:
  // Opens a connection and maps a window; none when there is no display.
  // Without `announcesProcess` the window does not name its process
  // (`_NET_WM_PID`), as some clients do not.
  static std::unique_ptr<X11TestWindow> open(const char* title = "Orla test window", bool announcesProcess = true);
  ~X11TestWindow();

  Window window() const { return window_; }
  // Activates the window through the window manager and waits until it has
  // the keyboard focus. False after the timeout.
  bool focus();
  // Where a point of the window is on the root window.
  void toRoot(int x, int y, int& rootX, int& rootY);
  // Waits until `done` holds or `timeout` passes; answers `done()`. `done`
  // reads the window through the accessors below.
  bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(5));

  std::vector<ReceivedKey> keys() const;
  // The text of every key press that types a character, as UTF-8.
  std::string text() const;
  std::size_t typedCharacters() const;
  std::vector<ReceivedButton> buttons() const;
  // Every key press and release, in the order read.
  std::vector<TimedKeyEvent> timeline() const;
  void clear();

  // Makes the window a text field whose whole text is selected: Control-C
  // puts the text on the CLIPBOARD selection (as UTF8_STRING), Control-V
  // replaces it with the clipboard's UTF8_STRING, as an application's text
  // field does.
  void setFieldText(std::string text);
  std::string fieldText() const;
  // How many pastes have arrived.
  std::size_t pastes() const;

 private:
  X11TestWindow(Display* display, Window window);
  void pump();
  void handle(XEvent& event);

  Display* display_;
  Window window_;
  mutable std::mutex mutex_;  // the display and what was received
  std::vector<ReceivedKey> keys_;
  std::string text_;
  std::size_t typedCharacters_ = 0;
  std::vector<ReceivedButton> buttons_;
  std::vector<TimedKeyEvent> timeline_;
  bool isField_ = false;
  std::string field_;
  std::size_t pastes_ = 0;
  void copyField(Time time);
  void answerRequest(const XSelectionRequestEvent& request);
  void takePaste(const XSelectionEvent& notify);
  std::atomic<bool> stop_{false};
  std::thread pump_;
};

// The active window as the window manager announces it on the root window.
Window activeWindow(Display* display);

}  // namespace orla::testing_x11
