// The simulated desktop's state loader: whatever it accepts, it saves, and
// what it saved loads again to the same state.
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <nlohmann/json.hpp>

#include <orla/models/input_limits.h>
#include "platform/sim/sim_desktop.h"
#include "platform/sim/sim_state.h"

using namespace orla;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (jsonNestingProblem(text, "state")) return 0;
  auto json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) return 0;
  sim::SimDesktop first;
  if (!sim::loadState(first, json)) return 0;
  const auto saved = sim::saveState(first);
  sim::SimDesktop second;
  auto again = sim::loadState(second, saved);
  if (!again) {
    std::fprintf(stderr, "saved state does not load: %s\n%s\n", again.error().c_str(),
                 saved.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    std::abort();
  }
  if (sim::saveState(second) != saved) {
    std::fprintf(stderr, "state changed in a round trip:\n%s\n%s\n",
                 saved.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str(),
                 sim::saveState(second).dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    std::abort();
  }
  return 0;
}
