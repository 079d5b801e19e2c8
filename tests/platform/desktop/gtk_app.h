// Real GTK applications on the headless desktop for the accessibility
// suites: the tests' own (orla_gtk_test_app, which logs what it is made to
// do) and mousepad, each started in its own process and ended with the test,
// and `orla` run as a separate process, as a user runs it.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <orla/platform/platform.h>
#include "tests/support/temp_folder.h"

namespace orla::desktop_testing {

// Why the accessibility suites cannot run here; empty when they can.
std::string accessibilityBusUnavailableReason();

class GtkApp {
 public:
  // Starts `program` with `arguments` and `environment` added, and waits
  // until its menu bar can be read over the accessibility bus.
  GtkApp(const std::string& program, std::vector<std::string> arguments = {},
         std::map<std::string, std::string> environment = {});
  ~GtkApp();
  GtkApp(const GtkApp&) = delete;
  GtkApp& operator=(const GtkApp&) = delete;

  ProcessId pid() const { return pid_; }
  bool ready() const { return ready_; }
  void signal(int number) const { ::kill(pid_, number); }
  // Waits until the application's menu bar can be read again.
  static bool waitUntilAnswering(ProcessId pid, std::chrono::milliseconds wait);

 private:
  ProcessId pid_ = 0;
  bool ready_ = false;
};

// orla_gtk_test_app with its log.
class GtkTestApp {
 public:
  explicit GtkTestApp(std::map<std::string, std::string> environment = {});
  // The log's lines after "ready", once it has `count` of them or the wait
  // is over.
  std::vector<std::string> lines(std::size_t count, std::chrono::milliseconds wait = std::chrono::seconds(5)) const;
  const GtkApp& app() const { return *app_; }

 private:
  testing::TempFolder folder_{"orla-gtk-app"};
  std::string log_;
  std::unique_ptr<GtkApp> app_;
};

struct OrlaRun {
  int status = -1;
  std::string output;  // one line: "Kind: result: message"
  std::chrono::milliseconds took{};
};
// Runs `orla run KIND PARAMS` (PARAMS as JSON text) with `environment`
// changed (an empty value removes a variable).
OrlaRun runOrla(const std::string& kind, const std::string& json,
                const std::map<std::string, std::string>& environment = {});

}  // namespace orla::desktop_testing
