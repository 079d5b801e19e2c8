// The window commands on one front window: what the window plugin does once
// it knows the command and the window. Each answers nothing or the sentence
// of the step that failed; nothing done before a failure is undone.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <orla/models/checked.h>
#include "plugins/input/accessibility_readers.h"

namespace orla {

class WindowCommands {
 public:
  WindowCommands(Platform& platform, const AXReader& reader, ProcessId pid, AXElement window)
      : platform_(platform), reader_(reader), pid_(pid), window_(std::move(window)) {}

  Checked<void> run(std::int64_t command, const ActionData& data);

 private:
  Checked<void> pressButton(const AXElement& window, std::string_view subrole) const;
  Checked<void> forEveryWindow(const std::function<Checked<void>(const AXElement&)>& action) const;
  Checked<void> minimizeWindow(const AXElement& window) const;
  Checked<void> moveTo(const ActionData& data, bool relative) const;
  Checked<void> resizeTo(std::int64_t command, const ActionData& data) const;
  Checked<void> centerOnScreen(const ActionData& data) const;
  Checked<void> fillScreen() const;
  Checked<void> tileTo(const ActionData& data) const;
  Checked<void> switchWindow(bool next) const;
  Checked<void> scroll(std::int64_t command, const ActionData& data) const;
  // The visible frame of the screen with the keyboard focus, in
  // accessibility coordinates.
  Checked<Rect> mainVisibleFrame() const;
  std::optional<AXElement> scrollBar(bool vertical) const;

  Platform& platform_;
  const AXReader& reader_;
  ProcessId pid_;
  AXElement window_;
};

}  // namespace orla
