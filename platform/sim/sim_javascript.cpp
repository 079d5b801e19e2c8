#include "platform/sim/sim_javascript.h"

#include "platform/posix/worker_javascript_runner.h"

namespace orla::sim {

namespace {

class SimJavaScript : public JavaScriptRunner {
 public:
  explicit SimJavaScript(std::shared_ptr<SimDesktop> desktop)
      : desktop_(std::move(desktop)), worker_(posix::makeWorkerJavaScriptRunner()) {}

  JavaScriptOutcome run(const std::string& script, const std::string& input, const JavaScriptLimits& limits,
                        JavaScriptHostFunctions& host) override {
    if (auto forced = desktop_->takeForcedJavaScriptOutcome()) {
      desktop_->record("javascript", "forced end");
      JavaScriptOutcome outcome;
      outcome.kind = *forced;
      return outcome;
    }
    desktop_->record("javascript", "run");
    return worker_->run(script, input, limits, host);
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
  std::unique_ptr<JavaScriptRunner> worker_;
};

}  // namespace

std::unique_ptr<JavaScriptRunner> makeSimJavaScript(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimJavaScript>(std::move(desktop));
}

}  // namespace orla::sim
