// Opening documents and addresses with a chosen application: the request
// goes to the workspace, whose completion may come on another thread (or
// never), while the caller waits for it with a deadline, polling through the
// platform's clock.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orla/platform/platform.h>

namespace orla {

// The result of one open request, shared by the caller and the completion
// (which may outlive the caller's wait).
class Outcome {
 public:
  void complete(std::optional<std::string> error);
  // None while the request is unanswered; then the error, none for success.
  std::optional<std::optional<std::string>> answer() const;

 private:
  mutable std::mutex mutex_;
  bool answered_ = false;
  std::optional<std::string> error_;
};

struct OpenAnswer {
  enum class Kind { opened, failed, unanswered };
  Kind kind = Kind::opened;
  std::string error;  // the system's sentence when failed
};

inline constexpr auto kOpenWithApplicationLimit = std::chrono::seconds(8);
inline constexpr auto kOpenPollInterval = std::chrono::milliseconds(50);

// Asks the application at `applicationPath` to open `urls` and waits up to
// `limit` for its answer.
OpenAnswer openWithApplication(Platform& platform, std::vector<std::string> urls, const std::string& applicationPath,
                               bool activates, std::chrono::milliseconds limit = kOpenWithApplicationLimit);

// An application's name for messages: the file manager's name for the
// bundle, without ".app".
std::string applicationDisplayName(Platform& platform, const std::string& applicationPath);

}  // namespace orla
