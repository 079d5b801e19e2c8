// NotificationCenter: the process's default notification centre. Observers
// run synchronously, on the thread that posts. Callers that must deliver on
// the main thread hop there first (see main_thread.h).
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace orla ORLA_EXPORT {

struct Notification {
  std::string name;
  std::map<std::string, std::string> userInfo;
};

class NotificationCenter {
 public:
  using Observer = std::function<void(const Notification&)>;
  using Token = std::uint64_t;

  virtual ~NotificationCenter() = default;
  // Calls `observer` for every notification named `name`.
  virtual Token addObserver(std::string name, Observer observer) = 0;
  virtual void removeObserver(Token token) = 0;
  virtual void post(const Notification& notification) = 0;
};

}  // namespace orla
