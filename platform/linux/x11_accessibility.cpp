#include "platform/linux/x11_accessibility.h"

#include <X11/Xlib.h>

namespace orla::linux_desktop {
namespace {

class X11Accessibility : public Accessibility {
 public:
  explicit X11Accessibility(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

  // This service exists only over a connection that opened with its
  // extensions present (the native platform falls back to the unavailable
  // one otherwise), and Xlib ends the process when a server goes away, so
  // holding the connection is the answer.
  bool isProcessTrusted() const override { return connection_ != nullptr; }
  AXElement applicationElement(ProcessId) override { return AXElement(); }
  AXResult<AXValue> copyAttributeValue(const AXElement&, std::string_view) override {
    return AXError::cannotComplete;
  }
  AXError setAttributeValue(const AXElement&, std::string_view, const AXValue&) override {
    return AXError::cannotComplete;
  }
  AXError performAction(const AXElement&, std::string_view) override { return AXError::cannotComplete; }

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace

std::unique_ptr<Accessibility> makeX11Accessibility(std::shared_ptr<X11Connection> connection) {
  return std::make_unique<X11Accessibility>(std::move(connection));
}

}  // namespace orla::linux_desktop
