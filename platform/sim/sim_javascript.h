// JavaScript on the simulated desktop: the real worker and engine (running a
// script is pure computation), with the scene able to end the next run at
// its time limit or memory ceiling at once.
#pragma once

#include <memory>

#include <orla/platform/javascript.h>
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

std::unique_ptr<JavaScriptRunner> makeSimJavaScript(std::shared_ptr<SimDesktop> desktop);

}  // namespace orla::sim
