#include <orla/platform/local_notification_center.h>

#include <algorithm>

namespace orla {

NotificationCenter::Token LocalNotificationCenter::addObserver(std::string name, Observer observer) {
  std::lock_guard lock(mutex_);
  const Token token = nextToken_++;
  observers_.push_back({token, std::move(name), std::move(observer)});
  return token;
}

void LocalNotificationCenter::removeObserver(Token token) {
  std::lock_guard lock(mutex_);
  std::erase_if(observers_, [token](const Entry& e) { return e.token == token; });
}

void LocalNotificationCenter::post(const Notification& notification) {
  // Copy the matching observers so one may add or remove observers (or post
  // again) without deadlocking on the lock.
  std::vector<Observer> matching;
  {
    std::lock_guard lock(mutex_);
    for (const Entry& e : observers_)
      if (e.name == notification.name) matching.push_back(e.observer);
  }
  for (const Observer& observer : matching) observer(notification);
}

}  // namespace orla
