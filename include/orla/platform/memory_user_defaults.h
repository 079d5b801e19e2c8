// User defaults held in memory for the life of the process: what a host
// without a preferences store (the command-line host, the simulated desktop)
// has.
#pragma once

#include <orla/export.h>

#include <map>
#include <mutex>

#include <orla/platform/user_defaults.h>

namespace orla ORLA_EXPORT {

class MemoryUserDefaults : public UserDefaults {
 public:
  std::optional<AnyCodable> object(std::string_view key) const override {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
  }
  void set(std::string_view key, AnyCodable value) override {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  void remove(std::string_view key) override {
    std::lock_guard lock(mutex_);
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
  }
  std::map<std::string, AnyCodable, std::less<>> all() const {
    std::lock_guard lock(mutex_);
    return values_;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, AnyCodable, std::less<>> values_;
};

}  // namespace orla
