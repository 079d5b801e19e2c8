// SimUserInterface: what the simulated desktop shows: its screens, the mouse
// pointer, and each application's menu bar and windows as a tree of
// accessibility elements that answers reads, writes and actions the way the
// real interface does.
//
// - Menus: a menu bar of items, each with a menu of items, separators and
//   submenus. Items may be disabled or marked. A menu that fills when opened
//   lists no items until its owner is pressed ("AXPress"), and empties again
//   when cancelled ("AXCancel") or when an item is chosen. Pressing (or
//   picking) an enabled item without a submenu chooses it and closes every
//   menu; a disabled one cannot be pressed.
// - Windows, front to back: a title, a frame in accessibility coordinates,
//   minimized or not, buttons (close, minimize, zoom, toolbar) that do what
//   they say, and a scroll area with vertical and horizontal scroll bars
//   whose value runs from 0 to 1 and whose arrows and page areas step it.
//   The focused window is the frontmost one not minimized; the main window
//   the frontmost standard one not minimized.
// - Screens in accessibility coordinates (origin at the top left of the
//   primary screen, y down); the Displays service turns them into screen
//   coordinates as the real one reports them.
//
// Each call returns, beside its answer, a line for the desktop's trace.
// Thread safety: every method may be called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orla/platform/accessibility.h>
#include <orla/platform/displays.h>
#include <orla/platform/events.h>

namespace orla::sim {

struct SimMenuItem {
  std::string title{};
  bool separator = false;
  bool enabled = true;
  std::string mark{};  // the mark character ("✓"); empty for none
  // The items of its submenu. It has a submenu when it lists items or fills
  // when opened.
  std::vector<SimMenuItem> items{};
  bool fillsWhenOpened = false;
  // The actions it takes; empty for all of "AXPress", "AXPick", "AXCancel".
  std::vector<std::string> actions{};

  bool hasSubmenu() const { return !items.empty() || fillsWhenOpened; }
  friend bool operator==(const SimMenuItem&, const SimMenuItem&) = default;
};

struct SimScrollBar {
  double value = 0;  // 0 at the top (or left) end, 1 at the other
  bool arrows = true;
  bool pages = true;
  friend bool operator==(const SimScrollBar&, const SimScrollBar&) = default;
};

// One control of a window's content: a button, a text field, a checkbox, a
// label, ... as the accessibility interface shows it.
struct SimControl {
  std::string role = "AXButton";
  std::string subrole{};      // "AXSecureTextField", "AXSwitch", ...
  std::string title{};        // "AXTitle"
  std::string description{};  // "AXDescription"
  std::string label{};        // the text of the label it names as its "AXTitleUIElement"
  std::string placeholder{};  // "AXPlaceholderValue"
  std::string identifier{};   // "AXIdentifier"
  // "AXValue": a text, a number, a Boolean or a value of another kind; none
  // for a control without one.
  std::optional<AXValue> value{};
  bool enabled = true;
  // Whether its value and its focus can be set.
  bool settable = true;
  // What a press does: "nothing" (it is taken and changes nothing),
  // "toggle" (a checkbox's value flips; a radio button turns on), "open"
  // (a window titled `opens` comes to the front), "refuse" (the press fails).
  std::string press = "nothing";
  std::string opens{};
  // Virtual time after the scene was set up before it shows.
  std::chrono::microseconds appearsAfter{0};
  std::vector<SimControl> children{};
  friend bool operator==(const SimControl&, const SimControl&) = default;
};

inline constexpr const char* kSimControlPresses[] = {"nothing", "toggle", "open", "refuse"};

// "close", "minimize", "zoom", "toolbar".
inline constexpr const char* kSimWindowButtons[] = {"close", "minimize", "zoom", "toolbar"};

struct SimWindow {
  std::string title{};
  Rect frame{100, 100, 800, 600};  // accessibility coordinates
  bool minimized = false;
  std::string subrole = "AXStandardWindow";  // "AXFloatingWindow", "AXDialog", ...
  std::vector<std::string> buttons{"close", "minimize", "zoom"};
  bool toolbarVisible = true;
  bool movable = true;
  bool resizable = true;
  std::optional<SimScrollBar> verticalScrollBar{};
  std::optional<SimScrollBar> horizontalScrollBar{};
  // Its content, after the buttons and the scroll area.
  std::vector<SimControl> controls{};
  friend bool operator==(const SimWindow&, const SimWindow&) = default;
};

// A screen in accessibility coordinates.
struct SimScreen {
  Rect frame{};
  Rect visibleFrame{};
  friend bool operator==(const SimScreen&, const SimScreen&) = default;
};

// How far one press of a scroll bar's arrow or page area moves its value.
inline constexpr double kSimScrollArrowStep = 0.05;
inline constexpr double kSimScrollPageStep = 0.2;

class SimUserInterface {
 public:
  SimUserInterface();

  // Screens, the primary one first; at least one is kept.
  std::vector<SimScreen> screens() const;
  void setScreens(std::vector<SimScreen> screens);
  // The screen with the keyboard focus, an index into `screens()`.
  std::size_t mainScreenIndex() const;
  void setMainScreenIndex(std::size_t index);

  Point pointer() const;
  void setPointer(Point location);
  // Records a posted mouse event: moved and dragged events take the
  // pointer with them. Fails, as an event that cannot be created, when
  // `failMouseEventsAfter` says so.
  Checked<void> postMouse(const MouseEvent& event, std::string& trace);
  Checked<void> postScroll(std::int32_t lines, std::string& trace);
  std::vector<MouseEvent> mouseEvents() const;
  std::vector<std::int32_t> scrolls() const;
  // After `count` more events, every mouse event fails to be created; none
  // lifts it.
  void failMouseEventsAfter(std::optional<std::size_t> count);

  // An application's interface. Setting replaces it; elements handed out
  // before refer to nothing afterwards.
  // None: the application has no menu bar.
  void setMenuBar(ProcessId pid, std::optional<std::vector<SimMenuItem>> menuBar);
  std::optional<std::vector<SimMenuItem>> menuBar(ProcessId pid) const;
  void setWindows(ProcessId pid, std::vector<SimWindow> windows);
  std::vector<SimWindow> windows(ProcessId pid) const;  // front to back
  // An application that is not accessible fails every call on its elements.
  void setAccessible(ProcessId pid, bool accessible);
  bool accessible(ProcessId pid) const;
  // Whether a state file or test described any interface for it.
  bool hasInterface(ProcessId pid) const;
  // The titles of the menu items chosen so far, as paths ("File > Save…").
  std::vector<std::string> chosenMenuItems(ProcessId pid) const;
  // Virtual time passes for every application: controls due show up.
  void passTime(std::chrono::microseconds duration);

  // The accessibility interface over these trees.
  AXElement applicationElement(ProcessId pid);
  AXResult<AXValue> read(const AXElement& element, std::string_view attribute, std::string& trace);
  AXError write(const AXElement& element, std::string_view attribute, const AXValue& value,
                std::string& trace);
  AXError perform(const AXElement& element, std::string_view action, std::string& trace);
  // The process an element of these trees belongs to; none for another's.
  static std::optional<ProcessId> processOf(const AXElement& element);

 private:
  using NodeId = std::uint64_t;
  enum class Kind {
    application, menuBar, menuBarItem, menu, menuItem, separator, window, button, scrollArea, scrollBar, scrollPart,
    control,
  };
  struct Node {
    Kind kind = Kind::application;
    NodeId parent = 0;
    std::vector<NodeId> children;
    std::string title;
    std::string subrole;  // windows, buttons and scroll parts
    // Menu items and menu bar items.
    bool enabled = true;
    std::string mark;
    std::vector<std::string> actions;
    // Menus.
    bool fillsWhenOpened = false;
    bool open = false;
    // Windows.
    Rect frame;
    bool minimized = false;
    bool toolbarVisible = true;
    bool movable = true;
    bool resizable = true;
    std::optional<Rect> unzoomedFrame;
    // Scroll bars.
    bool vertical = true;
    double value = 0;
    // Controls (`title`, `subrole` and `enabled` above too). A label named
    // by a control hangs from it without being one of its children.
    std::string role;
    std::string description;
    std::string placeholder;
    std::string identifier;
    NodeId label = 0;
    std::optional<AXValue> controlValue;
    bool settable = true;
    std::string press;
    std::string opens;
    std::chrono::microseconds appearsAt{0};  // on the tree's own clock
  };
  struct Tree {
    bool accessible = true;
    bool described = false;
    NodeId nextId = 2;  // 1 is the application
    std::map<NodeId, Node> nodes;
    NodeId menuBar = 0;
    std::vector<NodeId> windows;  // front to back
    std::vector<std::string> chosen;
    std::chrono::microseconds elapsed{0};  // virtual time since the tree was set up
    NodeId focusedControl = 0;
  };

  Tree& treeLocked(ProcessId pid);
  NodeId add(Tree& tree, NodeId parent, Node node);
  void removeSubtree(Tree& tree, NodeId id);
  NodeId addMenuItem(Tree& tree, NodeId parent, const SimMenuItem& item, bool inMenuBar);
  NodeId addWindow(Tree& tree, const SimWindow& window);
  SimMenuItem describeMenuItem(const Tree& tree, NodeId id) const;
  SimWindow describeWindow(const Tree& tree, NodeId id) const;
  std::string describe(const Tree& tree, NodeId id) const;
  std::string menuPath(const Tree& tree, NodeId id) const;
  NodeId submenuOf(const Tree& tree, NodeId id) const;
  std::vector<NodeId> visibleChildren(const Tree& tree, NodeId id) const;
  std::optional<NodeId> focusedWindow(const Tree& tree, bool mainOnly) const;
  AXElement element(ProcessId pid, NodeId id) const;
  // The tree and node an element refers to, or the error a call on it gets.
  // An element's node in its application's tree, or why it has none (`pid`
  // is known whenever the element is one of this desktop's).
  struct Located {
    AXError error = AXError::success;
    ProcessId pid = 0;
    NodeId id = 0;
    Tree* tree = nullptr;
    Node* node = nullptr;
  };
  Located locate(const AXElement& element);
  AXResult<AXValue> readLocked(ProcessId pid, Tree& tree, NodeId id, Node& node, std::string_view attribute);
  AXError writeLocked(Tree& tree, NodeId id, Node& node, std::string_view attribute, const AXValue& value);
  AXError performLocked(Tree& tree, NodeId id, Node& node, std::string_view action);
  AXError pressButton(Tree& tree, Node& node);
  void closeMenus(Tree& tree, NodeId from);
  void raiseWindow(Tree& tree, NodeId id);
  // Controls (sim_controls.cpp).
  NodeId addControl(Tree& tree, NodeId parent, const SimControl& control);
  SimControl describeControl(const Tree& tree, NodeId id) const;
  AXResult<AXValue> readControl(ProcessId pid, Tree& tree, NodeId id, Node& node, std::string_view attribute);
  AXError writeControl(Tree& tree, NodeId id, Node& node, std::string_view attribute, const AXValue& value);
  AXError pressControl(Tree& tree, NodeId id, Node& node, std::string_view action);
  std::string describeControlNode(const Tree& tree, const Node& node) const;
  Rect visibleFrameFor(const Rect& frame) const;
  std::string describeValue(const Tree& tree, const AXValue& value) const;

  mutable std::mutex mutex_;
  std::vector<SimScreen> screens_;
  std::size_t mainScreen_ = 0;
  Point pointer_;
  std::vector<MouseEvent> mouseEvents_;
  std::vector<std::int32_t> scrolls_;
  std::optional<std::size_t> mouseEventsBeforeFailure_;
  std::map<ProcessId, Tree> trees_;
};

// "cannotComplete", "noValue", ...: an error as the trace names it.
std::string_view axErrorName(AXError error);

}  // namespace orla::sim
