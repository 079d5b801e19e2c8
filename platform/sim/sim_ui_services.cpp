#include "platform/sim/sim_ui_services.h"

namespace orla::sim {

namespace {

class SimAccessibility : public Accessibility {
 public:
  explicit SimAccessibility(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  bool isProcessTrusted() const override { return desktop_->accessibilityTrusted(); }

  AXElement applicationElement(ProcessId pid) override { return desktop_->ui().applicationElement(pid); }

  AXResult<AXValue> copyAttributeValue(const AXElement& element, std::string_view attribute) override {
    if (AXError refused = refusal(element); refused != AXError::success) {
      record("axRead", std::string(attribute), refused);
      return refused;
    }
    std::string trace;
    auto result = desktop_->ui().read(element, attribute, trace);
    desktop_->record("axRead", std::move(trace));
    return result;
  }

  AXError setAttributeValue(const AXElement& element, std::string_view attribute, const AXValue& value) override {
    if (AXError refused = refusal(element); refused != AXError::success) {
      record("axWrite", std::string(attribute), refused);
      return refused;
    }
    std::string trace;
    const AXError error = desktop_->ui().write(element, attribute, value, trace);
    desktop_->record("axWrite", std::move(trace));
    return error;
  }

  AXError performAction(const AXElement& element, std::string_view action) override {
    if (AXError refused = refusal(element); refused != AXError::success) {
      record("axAction", std::string(action), refused);
      return refused;
    }
    std::string trace;
    const AXError error = desktop_->ui().perform(element, action, trace);
    desktop_->record("axAction", std::move(trace));
    return error;
  }

 private:
  // What the system answers before it looks at the element: nothing for an
  // untrusted process, and an invalid element once its process is gone.
  AXError refusal(const AXElement& element) const {
    if (!desktop_->accessibilityTrusted()) return AXError::apiDisabled;
    const auto pid = SimUserInterface::processOf(element);
    if (!pid) return AXError::illegalArgument;
    if (!desktop_->isRunning(*pid)) return AXError::invalidUIElement;
    return AXError::success;
  }

  void record(const char* category, std::string what, AXError error) {
    desktop_->record(category, what + ": " + std::string(axErrorName(error)));
  }

  std::shared_ptr<SimDesktop> desktop_;
};

// The screens as the system reports them: the main display's bounds in
// event coordinates, the screens in screen coordinates (y up from the
// bottom of the primary screen).
class SimDisplays : public Displays {
 public:
  explicit SimDisplays(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  std::optional<Rect> mainDisplayBounds() const override { return desktop_->ui().screens().front().frame; }

  std::vector<Screen> screens() const override {
    const auto screens = desktop_->ui().screens();
    std::vector<Screen> out;
    for (const SimScreen& screen : screens) out.push_back(flipped(screen, screens.front()));
    return out;
  }

  std::optional<Screen> mainScreen() const override {
    const auto screens = desktop_->ui().screens();
    return flipped(screens.at(desktop_->ui().mainScreenIndex()), screens.front());
  }

 private:
  static Rect flip(const Rect& r, const Rect& primary) {
    return {r.x, primary.maxY() - r.maxY(), r.width, r.height};
  }
  static Screen flipped(const SimScreen& screen, const SimScreen& primary) {
    return {flip(screen.frame, primary.frame), flip(screen.visibleFrame, primary.frame)};
  }

  std::shared_ptr<SimDesktop> desktop_;
};

class SimMouseEvents : public MouseEvents {
 public:
  explicit SimMouseEvents(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<Point> pointerLocation() const override {
    if (!desktop_->eventSourcesAvailable()) return fail("The event could not be created.");
    return desktop_->ui().pointer();
  }

  Checked<void> post(const MouseEvent& event) override {
    if (!desktop_->eventSourcesAvailable()) return fail("The event could not be created.");
    std::string trace;
    auto posted = desktop_->ui().postMouse(event, trace);
    desktop_->record("mouse", std::move(trace));
    return posted;
  }

  Checked<void> postScrollWheel(std::int32_t lines) override {
    if (!desktop_->eventSourcesAvailable()) return fail("The event could not be created.");
    std::string trace;
    auto posted = desktop_->ui().postScroll(lines, trace);
    desktop_->record("mouse", std::move(trace));
    return posted;
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::unique_ptr<Accessibility> makeSimAccessibility(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimAccessibility>(std::move(desktop));
}

std::unique_ptr<Displays> makeSimDisplays(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimDisplays>(std::move(desktop));
}

std::unique_ptr<MouseEvents> makeSimMouseEvents(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimMouseEvents>(std::move(desktop));
}

}  // namespace orla::sim
