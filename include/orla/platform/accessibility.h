// Accessibility: the desktop's accessibility interface, through which one
// application reads and drives the interface of another: its menu bar, its
// windows and their buttons, scroll bars, ... Each element has attributes
// (read, and some written) and actions; this layer passes them through as
// the system states them, and the plugins decide what they mean.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <orla/models/geometry.h>
#include <orla/platform/workspace.h>

namespace orla ORLA_EXPORT {

// What a call answers, with the system's numbers.
enum class AXError : int {
  success = 0,
  failure = -25200,
  illegalArgument = -25201,
  invalidUIElement = -25202,
  cannotComplete = -25204,
  attributeUnsupported = -25205,
  actionUnsupported = -25206,
  notImplemented = -25208,
  apiDisabled = -25211,
  noValue = -25212,
};

// A reference to one element of another application's interface. Copies
// refer to the same element; two references are equal when they refer to
// the same element, however they were obtained. A default-made reference
// refers to nothing.
class AXElement {
 public:
  // What a backend keeps for one element.
  class Handle {
   public:
    virtual ~Handle() = default;
    virtual bool sameElement(const Handle& other) const = 0;
  };

  AXElement() = default;
  explicit AXElement(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  explicit operator bool() const { return handle_ != nullptr; }
  const Handle* handle() const { return handle_.get(); }

  friend bool operator==(const AXElement& a, const AXElement& b) {
    if (!a.handle_ || !b.handle_) return a.handle_ == b.handle_;
    return a.handle_ == b.handle_ || a.handle_->sameElement(*b.handle_);
  }

 private:
  std::shared_ptr<const Handle> handle_;
};

// The value of an attribute: a text, a Boolean, a number, a point, a size,
// an element, or a list of values. A value of a kind this layer does not
// read (a URL, a range, ...) is kept as "other".
class AXValue {
 public:
  using List = std::vector<AXValue>;

  AXValue() = default;  // other
  AXValue(std::string text) : value_(std::move(text)) {}
  AXValue(const char* text) : value_(std::string(text)) {}
  AXValue(bool on) : value_(on) {}
  AXValue(double number) : value_(number) {}
  AXValue(Point point) : value_(point) {}
  AXValue(Size size) : value_(size) {}
  AXValue(AXElement element) : value_(std::move(element)) {}
  AXValue(List list) : value_(std::move(list)) {}

  const std::string* asString() const { return std::get_if<std::string>(&value_); }
  const bool* asBool() const { return std::get_if<bool>(&value_); }
  const double* asNumber() const { return std::get_if<double>(&value_); }
  const Point* asPoint() const { return std::get_if<Point>(&value_); }
  const Size* asSize() const { return std::get_if<Size>(&value_); }
  const AXElement* asElement() const { return std::get_if<AXElement>(&value_); }
  const List* asList() const { return std::get_if<List>(&value_); }
  bool isOther() const { return value_.index() == 0; }

  friend bool operator==(const AXValue&, const AXValue&) = default;

 private:
  std::variant<std::monostate, std::string, bool, double, Point, Size, AXElement, List> value_;
};

// A value, or the error that came instead.
template <class T>
class [[nodiscard]] AXResult {
 public:
  AXResult(T value) : value_(std::move(value)) {}
  AXResult(AXError error) : error_(error == AXError::success ? AXError::failure : error) {}

  bool ok() const { return error_ == AXError::success; }
  explicit operator bool() const { return ok(); }
  AXError error() const { return error_; }
  const T& value() const { return value_; }
  const T& operator*() const { return value_; }
  const T* operator->() const { return &value_; }

 private:
  T value_{};
  AXError error_ = AXError::success;
};

// The sentence a desktop without the interface gives.
inline constexpr std::string_view kAccessibilityUnavailable =
    "The accessibility interface is not available on this desktop in this build of Orla.";
// The sentence of a desktop whose windows can be worked but whose
// applications' own menus and controls cannot be read (`Capability::menuBars`).
inline constexpr std::string_view kApplicationInterfaceUnavailable =
    "The menus and controls of other applications cannot be read on this desktop in this build of Orla.";

class Accessibility {
 public:
  virtual ~Accessibility() = default;
  // Whether this process may use the accessibility interface. Never prompts.
  virtual bool isProcessTrusted() const = 0;
  // The element of the application with this process. Always answers; calls
  // on the element of a process that does not run fail.
  virtual AXElement applicationElement(ProcessId pid) = 0;
  virtual AXResult<AXValue> copyAttributeValue(const AXElement& element, std::string_view attribute) = 0;
  virtual AXError setAttributeValue(const AXElement& element, std::string_view attribute,
                                    const AXValue& value) = 0;
  // "AXPress", "AXPick", "AXCancel", "AXRaise", ...
  virtual AXError performAction(const AXElement& element, std::string_view action) = 0;

  // A search's shortcut through a whole subtree. Among the first `limit`
  // elements below `root` in depth-first pre-order (menu bars and menus
  // left out), those whose "AXRole" is one of `roles` (every one when
  // `roles` is empty), in that order; each answers "AXRole", "AXTitle" and
  // "AXDescription" without asking the application again. `counted` is how
  // many elements there were below `root`, at most `limit` + 1. A backend
  // whose system cannot list a subtree in one request answers
  // notImplemented, and the caller walks "AXChildren" itself.
  struct Descendants {
    std::vector<AXElement> elements;
    std::size_t counted = 0;
  };
  virtual AXResult<Descendants> descendants(const AXElement& root, const std::vector<std::string>& roles,
                                            std::size_t limit) {
    (void)root, (void)roles, (void)limit;
    return AXError::notImplemented;
  }
};

}  // namespace orla
