// The CLIPBOARD selection seen from one X connection: serving it as its
// owner (with INCR for contents larger than one request), and reading it
// from whoever owns it. Used by the clipboard service's thread and by the
// background owner that outlives `orla`. Not thread-safe: one thread drives
// a SelectionPeer and its display.
//
// Includes Xlib: for the X11 sources only.
#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <orla/platform/pasteboard.h>

namespace orla::linux_desktop {

// One X target with its bytes, as served.
struct SelectionTarget {
  std::string name;  // "UTF8_STRING", "image/png", ...
  std::shared_ptr<const std::string> bytes;
};

// The targets that carry a clipboard item's representations, plain text
// under each of its names.
std::vector<SelectionTarget> targetsForItem(PasteboardItem item);
// The targets of plain text alone, all sharing its one copy of the bytes.
std::vector<SelectionTarget> targetsForText(std::shared_ptr<const std::string> text);
// The clipboard item that X targets with their bytes make, plain-text
// aliases and targets about the selection left out.
PasteboardItem itemForTargets(const std::vector<std::pair<std::string, std::string>>& targets);
// Whether a target is content worth reading for a snapshot.
bool isContentTarget(const std::string& name);

class SelectionPeer {
 public:
  // `window` is this client's own (unmapped) window on `display`, selecting
  // PropertyChangeMask.
  SelectionPeer(Display* display, Window window);

  Display* display() const { return display_; }
  Window window() const { return window_; }
  Atom clipboard() const { return clipboard_; }

  // Owning. A server time for ownership requests, from a property change on
  // the window; handles other events while it waits.
  Time serverTime();
  bool own(std::vector<SelectionTarget> targets, Time time);
  void disown() { targets_.clear(); owning_ = false; }
  bool owning() const { return owning_; }
  // Whether a send in pieces is under way (it goes on after the selection
  // is lost, so that a paste begun before is not cut short).
  bool sending() const { return !sends_.empty(); }
  // Gives up the sends whose requestor has stopped asking for pieces.
  void dropStalledSends();
  const std::vector<SelectionTarget>& targets() const { return targets_; }

  // Reading from the owner: the bytes of one target, none when the owner
  // refuses it or does not answer in time.
  std::optional<std::string> read(const std::string& target);
  // The owner's target names.
  std::vector<std::string> readTargets();

  // Handles one event: selection requests (answered, INCR sends carried on),
  // the loss of the selection. Events it does not know go to `other`.
  void handle(XEvent& event);
  std::function<void(XEvent&)> other;

  // Waits for an event that `match` accepts, handling every other one,
  // until `timeout`. The matched event is handled too.
  bool waitFor(const std::function<bool(const XEvent&)>& match, std::chrono::milliseconds timeout,
               XEvent* matched = nullptr);

 private:
  void answer(const XSelectionRequestEvent& request);
  bool sendTarget(const XSelectionRequestEvent& request, Atom property);
  void continueSend(const XPropertyEvent& event);
  std::optional<std::string> readProperty(Atom property, Atom* type);

  Display* display_;
  Window window_;
  Atom clipboard_, targetsAtom_, timestampAtom_, incr_, property_, timeProperty_;
  std::size_t chunk_;
  bool owning_ = false;
  Time ownedSince_ = CurrentTime;
  std::vector<SelectionTarget> targets_;
  // Sends in pieces under way, by requestor window and property.
  struct Send {
    Atom type;
    std::shared_ptr<const std::string> bytes;
    std::size_t offset = 0;
    std::chrono::steady_clock::time_point lastPiece;
  };
  std::map<std::pair<Window, Atom>, Send> sends_;
};

}  // namespace orla::linux_desktop
