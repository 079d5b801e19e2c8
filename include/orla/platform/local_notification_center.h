// An in-process notification centre: observers keyed by name, called
// synchronously by `post`. Used by the simulated and Linux desktops.
#pragma once

#include <orla/export.h>

#include <mutex>
#include <vector>

#include <orla/platform/notifications.h>

namespace orla ORLA_EXPORT {

class LocalNotificationCenter : public NotificationCenter {
 public:
  Token addObserver(std::string name, Observer observer) override;
  void removeObserver(Token token) override;
  void post(const Notification& notification) override;

 private:
  struct Entry {
    Token token;
    std::string name;
    Observer observer;
  };
  std::mutex mutex_;
  std::vector<Entry> observers_;
  Token nextToken_ = 1;
};

}  // namespace orla
