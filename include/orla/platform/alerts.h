// Alerts: a modal alert with a title, a detail text and one or two buttons.
// Thread safety: may be called from any thread; the alert runs modally on
// the main thread and the call blocks until it is dismissed.
#pragma once

#include <orla/export.h>

#include <string>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

// The system's numbering of alert styles.
enum class AlertStyle { warning = 0, informational = 1, critical = 2 };

struct Alert {
  std::string messageText;      // the bold title
  std::string informativeText;  // the detail below it
  AlertStyle style = AlertStyle::informational;
  std::vector<std::string> buttons;  // first (the default button), then second
};

// The modal responses of the buttons, in the order they were added.
inline constexpr int alertFirstButtonReturn = 1000;
inline constexpr int alertSecondButtonReturn = 1001;

class Alerts {
 public:
  virtual ~Alerts() = default;
  // Runs the alert modally and answers its modal response. Fails when the
  // desktop cannot show alerts.
  virtual Checked<int> runModal(const Alert& alert) = 0;
};

}  // namespace orla
