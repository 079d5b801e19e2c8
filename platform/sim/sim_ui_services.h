// The accessibility, displays and mouse services of the simulated desktop:
// views onto its SimUserInterface that check trust and whether the
// application runs, the way the system does, and record every call in the
// trace ("axRead", "axWrite", "axAction", "mouse").
#pragma once

#include <memory>

#include "platform/sim/sim_desktop.h"

namespace orla::sim {

std::unique_ptr<Accessibility> makeSimAccessibility(std::shared_ptr<SimDesktop> desktop);
std::unique_ptr<Displays> makeSimDisplays(std::shared_ptr<SimDesktop> desktop);
std::unique_ptr<MouseEvents> makeSimMouseEvents(std::shared_ptr<SimDesktop> desktop);

}  // namespace orla::sim
