// A print server of the test's own: cupsd started on a private socket with
// a private configuration folder, its printers writing each job to a file.
// While it runs, this process's environment points the printing tools and
// libcups at it (CUPS_SERVER, CUPS_SERVERROOT, and HOME for the user's
// printer options); the old values come back when it stops.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"

namespace orla::testing {

class TestPrintServer {
 public:
  // Starts the server with these printers, the first one the server's
  // default. None, with `whyNot` saying why, when it cannot start here.
  static std::unique_ptr<TestPrintServer> start(const std::vector<std::string>& printers, std::string& whyNot);
  ~TestPrintServer();
  TestPrintServer(const TestPrintServer&) = delete;
  TestPrintServer& operator=(const TestPrintServer&) = delete;

  // The documents that reached `printer`, in the order of their jobs,
  // waiting up to `wait` for at least `count` of them.
  std::vector<std::string> jobs(const std::string& printer, std::size_t count,
                                std::chrono::milliseconds wait = std::chrono::seconds(10)) const;

 private:
  TestPrintServer() = default;
  void setEnvironment(const std::string& name, const std::string& value);

  TempFolder folder_{"orla-cups"};
  pid_t pid_ = 0;
  std::map<std::string, std::optional<std::string>> savedEnvironment_;
};

}  // namespace orla::testing
